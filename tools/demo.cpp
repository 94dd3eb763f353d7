#include "commands.h"

#include "progress.h"
#include "report.h"
#include "simcoins.h"

#include "cashcontrol/ecashcontrol.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"

#include <QElapsedTimer>

// The demo: a POS host's session narrated step by step against the built-in simulator.
namespace tool {

using hostkit::counterKey;
using hostkit::formatAmount;
using hostkit::sumBreakdown;

int Runner::demo()
{
    QElapsedTimer clock;
    clock.start();
    const auto heading = [this](const QString& title) {
        console.out(QStringLiteral("\n== %1\n").arg(title));
    };

    console.out(
        QStringLiteral("cpibcr demo: a POS host's session with the CPI BCR coin recycler driver.\n"
                       "The recycler is simulated on a pseudo-terminal; the plug-in speaks ccTalk to it\n"
                       "exactly as it would to the real device over a serial line.\n"
                       "plug-in %1\nport    %2 (built-in simulator)\n")
            .arg(host.pluginPath(), host.portPath()));

    heading(QStringLiteral("1. Connect and check the device"));
    connectDevice();
    driver().checkState();
    console.out(QStringLiteral("%1 (%2): %3, state ok\n")
                    .arg(driver().name(), driver().getTypeName(), host.classInfo("info")));

    heading(QStringLiteral("2. Cash units"));
    console.out(unitsTable(driver().getUnits()));

    heading(QStringLiteral("3. Accept coins (each lands in the hopper of its denomination)"));
    QList<int> coins;
    for (const long long amount : {1000LL, 500LL, 200LL, 200LL})
        if (const int position = simulatorCoinPosition(*simConfig, amount))
            coins.append(position);
    const SumDetailed accepted = acceptSession(false, {}, -1, coins, true);
    console.out(
        QStringLiteral("  accepted %1  (%2)\n").arg(formatAmount(accepted.sum()), sumBreakdown(accepted)));

    const long long change = 1300;
    heading(QStringLiteral("4. Pay %1 of change (optimal mode: fuller hoppers pay first)")
                .arg(formatAmount(change)));
    const bool payable = driver().cashOutCheck(ECashControl::Optimal, change);
    console.out(QStringLiteral("  can %1 be paid? %2\n")
                    .arg(formatAmount(change), payable ? QStringLiteral("yes") : QStringLiteral("no")));
    if (payable) {
        SumDetailed paid;
        {
            Progress progress(console.progress(), QStringLiteral("Paying %1").arg(formatAmount(change)));
            paid = driver().cashOut(ECashControl::Optimal, change);
        }
        console.out(QStringLiteral("  paid %1  (%2)\n").arg(formatAmount(paid.sum()), sumBreakdown(paid)));
    }

    heading(QStringLiteral("5. Counters"));
    for (const int type : {int(ECashControl::Accepted), int(ECashControl::Dispensed)}) {
        const SumDetailed counter = driver().getCounter(ECashControl::CounterType(type));
        console.out(
            QStringLiteral("  %1 %2  (%3)\n")
                .arg(counterKey(type).leftJustified(9), formatAmount(counter.sum()), sumBreakdown(counter)));
    }

    heading(QStringLiteral("6. Cash units afterwards"));
    console.out(unitsTable(driver().getUnits()));

    console.out(QStringLiteral("\ndone in %1 s; see cpibcr --help for every command\n")
                    .arg(QString::number(clock.elapsed() / 1000.0, 'f', 1)));
    return 0;
}

} // namespace tool
