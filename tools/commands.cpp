#include "commands.h"

#include "progress.h"
#include "report.h"
#include "signalwatcher.h"

#include "cashcontrol/ecashcontrol.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"
#include "sim/simulator.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QTime>
#include <QTimer>

#include <memory>

namespace tool {

using hostkit::counterKey;
using hostkit::formatAmount;
using hostkit::modeKey;
using hostkit::operationKey;
using hostkit::sumBreakdown;

namespace {

// Simulated coins drop into the acceptor this far apart, the first one shortly after start.
const int firstCoinMs = 300;
const int coinIntervalMs = 600;
// The driver re-arms its background check only when the host asks again after a failure.
const int watchRearmMs = 60000;

long long coinCount(const SumDetailed& sum)
{
    long long n = 0;
    for (const long long c : sum.denoms)
        n += c;
    return n;
}

void addTo(SumDetailed& total, const SumDetailed& more)
{
    for (auto it = more.denoms.begin(); it != more.denoms.end(); ++it)
        total.denoms[it.key()] += it.value();
    total.rest += more.rest;
}

QString denomList(const QSet<unsigned int>& denoms)
{
    QStringList items;
    for (const unsigned int d : sortedDenoms(denoms))
        items.append(formatAmount(d));
    return items.isEmpty() ? QStringLiteral("none") : items.join(QStringLiteral(", "));
}

const CashControlUnit* findUnit(const QList<CashControlUnit>& units, const QString& name)
{
    for (const CashControlUnit& u : units)
        if (u.name == name)
            return &u;
    return nullptr;
}

QString unitChange(const CashControlUnit& before, const CashControlUnit& after)
{
    if (before.type == 1)
        return QStringLiteral("%1: %2 -> %3 coins\n").arg(before.name).arg(before.count).arg(after.count);
    return QStringLiteral("%1: %2 -> %3\n")
        .arg(before.name, formatAmount(unitValue(before)), formatAmount(unitValue(after)));
}

} // namespace

DriverEvents::DriverEvents(QObject* driver)
{
    QObject::connect(driver, SIGNAL(received(SumDetailed)), this, SLOT(received(SumDetailed)));
    QObject::connect(driver, SIGNAL(error(QString)), this, SLOT(error(QString)));
}

void DriverEvents::received(SumDetailed sum)
{
    if (onReceived)
        onReceived(sum);
}

void DriverEvents::error(QString msg)
{
    if (onError)
        onError(msg);
}

int simulatorCoinPosition(const sim::Config& config, long long amount)
{
    for (auto it = config.coinIds.begin(); it != config.coinIds.end(); ++it)
        if (static_cast<long long>(sim::coinValue(it.value())) == amount)
            return it.key();
    return 0;
}

Runner::Runner(const Arguments& args, hostkit::DriverHost& driverHost, const Console& out,
               const sim::Config* config)
    : a(args), host(driverHost), console(out), simConfig(config)
{
}

Runner::~Runner() = default;

QJsonObject Runner::withCommand(QJsonObject object) const
{
    object.insert(QStringLiteral("command"), a.commandName);
    return object;
}

int Runner::run()
{
    // Installed before connecting, so that a signal that comes early still ends the session properly.
    if (a.command == Command::Accept || a.command == Command::Watch)
        signalWatcher = std::make_unique<SignalWatcher>();
    switch (a.command) {
    case Command::Status:
        return status();
    case Command::Units:
        return units();
    case Command::Denoms:
        return denoms();
    case Command::Accept:
        return accept();
    case Command::Check:
        return check();
    case Command::Pay:
        return pay();
    case Command::Loan:
        return loan();
    case Command::Pickup:
        return pickup();
    case Command::Counters:
        return counters();
    case Command::Maintenance:
        return maintenance();
    case Command::Watch:
        return watch();
    case Command::Demo:
        return demo();
    case Command::Ports:
    case Command::Trace:
        break; // answered without a device
    }
    return 2;
}

void Runner::connectDevice()
{
    Progress progress(console.progress(),
                      QStringLiteral("Connecting to the recycler on %1").arg(host.portPath()));
    driver().connect();
}

int Runner::status()
{
    connectDevice();
    driver().checkState();
    const QList<CashControlUnit> list = driver().getUnits();
    if (console.json()) {
        console.document(withCommand({{QStringLiteral("state"), QStringLiteral("ok")},
                                      {QStringLiteral("device"),
                                       QJsonObject{{QStringLiteral("name"), driver().name()},
                                                   {QStringLiteral("typeName"), driver().getTypeName()},
                                                   {QStringLiteral("model"), host.classInfo("name")},
                                                   {QStringLiteral("driver"), host.classInfo("info")},
                                                   {QStringLiteral("port"), host.portPath()},
                                                   {QStringLiteral("simulated"), host.simulator() != nullptr},
                                                   {QStringLiteral("plugin"), host.pluginPath()}}},
                                      {QStringLiteral("units"), unitsJson(list)}}));
        return 0;
    }
    console.out(QStringLiteral("device  %1 (%2): %3\n"
                               "port    %4%5\n"
                               "state   ok\n\n")
                    .arg(driver().name(), driver().getTypeName(), host.classInfo("info"), host.portPath(),
                         host.simulator() ? QStringLiteral(" (built-in simulator)") : QString()) +
                unitsTable(list));
    return 0;
}

int Runner::units()
{
    connectDevice();
    const QList<CashControlUnit> list = driver().getUnits();
    if (console.json())
        console.document(withCommand({{QStringLiteral("units"), unitsJson(list)}}));
    else
        console.out(unitsTable(list));
    return 0;
}

int Runner::denoms()
{
    connectDevice();
    const QSet<unsigned int> set = driver().getAcceptableDenoms();
    if (console.json()) {
        console.document(withCommand({{QStringLiteral("denoms"), denomsJson(set)}}));
        return 0;
    }
    QString text;
    for (const unsigned int d : sortedDenoms(set))
        text += formatAmount(d) + QLatin1Char('\n');
    console.out(text);
    return 0;
}

QList<int> Runner::simulatedCoins(const QSet<unsigned int>& accepted) const
{
    QList<int> positions;
    if (!simConfig)
        return positions;
    if (a.hasSimCoins) {
        for (const long long amount : a.simCoins)
            positions.append(simulatorCoinPosition(*simConfig, amount));
        return positions;
    }
    // A few of the coins the recycler takes, largest first.
    const QList<unsigned int> denoms = sortedDenoms(accepted);
    for (int i = denoms.size() - 1; i >= 0 && positions.size() < 3; --i) {
        const int position = simulatorCoinPosition(*simConfig, denoms.at(i));
        if (position > 0)
            positions.append(position);
    }
    return positions;
}

SumDetailed Runner::acceptSession(bool fast, const QSet<unsigned int>& excluded, int seconds,
                                  const QList<int>& coinPositions, bool verbose)
{
    QSet<unsigned int> accepted = driver().getAcceptableDenoms();
    accepted.subtract(excluded);

    SumDetailed total;
    long long coinsReported = 0;
    int coinsInserted = 0;
    long long coinsExpected = 0;
    for (const int position : coinPositions)
        if (accepted.contains(sim::coinValue(simConfig->coinIds.value(position))))
            ++coinsExpected;

    QEventLoop loop;
    DriverEvents events(host.driverObject());
    std::unique_ptr<SignalWatcher> local;
    SignalWatcher* watcher =
        signalWatcher ? signalWatcher.get() : (local = std::make_unique<SignalWatcher>()).get();
    QObject::connect(watcher, &SignalWatcher::signalled, &loop, &QEventLoop::quit);

    const bool stopWhenAllIn = seconds < 0 && host.simulator() && !coinPositions.isEmpty();
    const auto maybeFinish = [&] {
        if (stopWhenAllIn && coinsInserted == coinPositions.size() && coinsReported >= coinsExpected)
            QTimer::singleShot(coinIntervalMs, &loop, &QEventLoop::quit);
    };
    events.onReceived = [&](const SumDetailed& sum) {
        addTo(total, sum);
        coinsReported += coinCount(sum);
        if (console.json()) {
            QJsonObject e = sumJson(sum);
            e.insert(QStringLiteral("event"), QStringLiteral("received"));
            e.insert(QStringLiteral("total"), qint64(total.sum()));
            console.event(e);
        } else {
            console.out(QStringLiteral("%1received %2  (%3)  total %4\n")
                            .arg(verbose ? QStringLiteral("  ") : QString(), formatAmount(sum.sum()),
                                 sumBreakdown(sum), formatAmount(total.sum())));
        }
        maybeFinish();
    };
    events.onError = [&](const QString& msg) {
        if (console.json())
            console.event(
                {{QStringLiteral("event"), QStringLiteral("error")}, {QStringLiteral("message"), msg}});
        else
            console.err(msg + QLatin1Char('\n'));
    };

    driver().cashInStart(fast, excluded);

    if (console.json()) {
        console.event({{QStringLiteral("event"), QStringLiteral("accepting")},
                       {QStringLiteral("fast"), fast},
                       {QStringLiteral("denoms"), denomsJson(accepted)}});
    } else {
        QString coins;
        if (!coinPositions.isEmpty()) {
            QStringList names;
            for (const int position : coinPositions)
                names.append(formatAmount(sim::coinValue(simConfig->coinIds.value(position))));
            coins = QStringLiteral("; the simulator drops in %1").arg(names.join(QStringLiteral(", ")));
        }
        console.out(QStringLiteral("%1Accepting %2%3%4%5\n")
                        .arg(verbose ? QStringLiteral("  ") : QString(), denomList(accepted),
                             fast ? QStringLiteral(" (fast)") : QString(),
                             seconds >= 0    ? QStringLiteral(" for %1 s").arg(seconds)
                             : stopWhenAllIn ? QString()
                                             : QStringLiteral(" until Ctrl+C"),
                             coins));
    }

    for (int i = 0; i < coinPositions.size(); ++i) {
        const int position = coinPositions.at(i);
        QTimer::singleShot(firstCoinMs + i * coinIntervalMs, &events, [&, position] {
            host.simulator()->insertCoin(position);
            ++coinsInserted;
            maybeFinish();
        });
    }
    if (seconds >= 0)
        QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    else if (stopWhenAllIn)
        // Coins the recycler refuses are never reported; give up waiting for them.
        QTimer::singleShot(firstCoinMs + int(coinPositions.size()) * coinIntervalMs + 3000, &loop,
                           &QEventLoop::quit);

    if (watcher->received() == 0)
        loop.exec();
    // From here on a second Ctrl+C ends the tool the ordinary way.
    local.reset();
    signalWatcher.reset();
    {
        Progress progress(console.progress(), QStringLiteral("Stopping coin acceptance"));
        driver().cashInStop();
    }
    return total;
}

int Runner::accept()
{
    connectDevice();
    QSet<unsigned int> excluded;
    for (const long long amount : a.exclude)
        excluded.insert(static_cast<unsigned int>(amount));
    QSet<unsigned int> accepted = driver().getAcceptableDenoms();
    accepted.subtract(excluded);
    const SumDetailed total = acceptSession(a.fast, excluded, a.seconds, simulatedCoins(accepted), false);
    if (console.json()) {
        QJsonObject e = sumJson(total);
        e.insert(QStringLiteral("event"), QStringLiteral("total"));
        console.event(e);
    } else {
        console.out(
            QStringLiteral("accepted %1  (%2)\n").arg(formatAmount(total.sum()), sumBreakdown(total)));
    }
    return 0;
}

int Runner::check()
{
    connectDevice();
    const bool payable = driver().cashOutCheck(ECashControl::ChangeMode(a.mode), a.amount);
    if (console.json()) {
        console.document(withCommand({{QStringLiteral("amount"), qint64(a.amount)},
                                      {QStringLiteral("mode"), modeKey(a.mode)},
                                      {QStringLiteral("payable"), payable}}));
    } else {
        console.out(QStringLiteral("%1 %2 be paid as change (%3)\n")
                        .arg(formatAmount(a.amount),
                             payable ? QStringLiteral("can") : QStringLiteral("cannot"), modeKey(a.mode)));
    }
    return 0;
}

int Runner::pay()
{
    connectDevice();
    SumDetailed paid;
    {
        Progress progress(console.progress(), QStringLiteral("Paying %1").arg(formatAmount(a.amount)));
        paid = driver().cashOut(ECashControl::ChangeMode(a.mode), a.amount);
    }
    if (console.json()) {
        console.document(withCommand({{QStringLiteral("amount"), qint64(a.amount)},
                                      {QStringLiteral("mode"), modeKey(a.mode)},
                                      {QStringLiteral("paid"), sumJson(paid)}}));
    } else {
        console.out(QStringLiteral("paid %1 (%2)\n").arg(formatAmount(paid.sum()), modeKey(a.mode)) +
                    sumTable(paid));
    }
    return 0;
}

CashControlUnit Runner::requireUnit(const QString& name, int operation)
{
    const QList<CashControlUnit> list = driver().getUnits();
    const CashControlUnit* unit = findUnit(list, name);
    if (!unit) {
        QStringList names;
        for (const CashControlUnit& u : list)
            names.append(u.name);
        throw UsageError{
            QStringLiteral("unknown unit \"%1\" (the recycler has %2)")
                .arg(name, names.isEmpty() ? QStringLiteral("no units") : names.join(QStringLiteral(", ")))};
    }
    if (operation != 0 && (unit->operations & operation) == 0)
        throw UsageError{QStringLiteral("unit %1 does not support %2 (%3)")
                             .arg(name,
                                  operation == ECashControl::Maintenance ? QStringLiteral("maintenance")
                                                                         : operationKey(operation),
                                  ECashControl::operationName(operation))};
    const bool countsCoins = operation == ECashControl::ManualLoad ||
                             operation == ECashControl::ManualPickupSum ||
                             operation == ECashControl::DispensePickupSum;
    if (countsCoins && (unit->denom == 0 || a.amount % unit->denom != 0))
        throw UsageError{QStringLiteral("amount %1 is not a whole number of %2 coins of %3")
                             .arg(formatAmount(a.amount), formatAmount(unit->denom), name)};
    return *unit;
}

int Runner::loan()
{
    connectDevice();
    const CashControlUnit before = requireUnit(a.unit, a.operation);
    driver().loan(a.unit, ECashControl::UnitOperation(a.operation), a.amount);
    const QList<CashControlUnit> list = driver().getUnits();
    const CashControlUnit* after = findUnit(list, a.unit);
    const CashControlUnit afterUnit = after ? *after : before;
    if (console.json()) {
        console.document(
            withCommand({{QStringLiteral("unit"), a.unit},
                         {QStringLiteral("operation"), a.operation},
                         {QStringLiteral("operationName"), ECashControl::operationName(a.operation)},
                         {QStringLiteral("amount"), qint64(a.amount)},
                         {QStringLiteral("before"), unitJson(before)},
                         {QStringLiteral("after"), unitJson(afterUnit)}}));
    } else {
        console.out(QStringLiteral("loan of %1 into %2 (%3)\n")
                        .arg(formatAmount(a.amount), a.unit, ECashControl::operationName(a.operation)) +
                    unitChange(before, afterUnit));
    }
    return 0;
}

int Runner::pickup()
{
    connectDevice();
    const CashControlUnit before = requireUnit(a.unit, a.operation);
    SumDetailed taken;
    {
        const bool dispensing =
            a.operation == ECashControl::DispensePickupAll || a.operation == ECashControl::DispensePickupSum;
        Progress progress(console.progress() && dispensing, QStringLiteral("Emptying %1").arg(a.unit));
        taken = driver().pickup(a.unit, ECashControl::UnitOperation(a.operation), a.amount);
    }
    const QList<CashControlUnit> list = driver().getUnits();
    const CashControlUnit* after = findUnit(list, a.unit);
    const CashControlUnit afterUnit = after ? *after : before;
    if (console.json()) {
        console.document(withCommand(
            {{QStringLiteral("unit"), a.unit},
             {QStringLiteral("operation"), a.operation},
             {QStringLiteral("operationName"), ECashControl::operationName(a.operation)},
             {QStringLiteral("amount"), a.hasAmount ? QJsonValue(qint64(a.amount)) : QJsonValue()},
             {QStringLiteral("taken"), sumJson(taken)},
             {QStringLiteral("before"), unitJson(before)},
             {QStringLiteral("after"), unitJson(afterUnit)}}));
    } else {
        console.out(
            QStringLiteral("pickup from %1 (%2)\n").arg(a.unit, ECashControl::operationName(a.operation)) +
            sumTable(taken) + unitChange(before, afterUnit));
    }
    return 0;
}

int Runner::counters()
{
    connectDevice();
    QJsonObject json;
    QString text;
    for (const int type : a.counters) {
        const SumDetailed counter = driver().getCounter(ECashControl::CounterType(type));
        json.insert(counterKey(type), sumJson(counter));
        if (!text.isEmpty())
            text += QLatin1Char('\n');
        text += QStringLiteral("%1 (%2)\n").arg(counterKey(type), ECashControl::counterName(type)) +
                sumTable(counter);
    }
    if (console.json())
        console.document(withCommand(json));
    else
        console.out(text);
    return 0;
}

int Runner::maintenance()
{
    connectDevice();
    QList<hw::CcUnitMaintenanceInfo> records;
    if (a.unit.isEmpty()) {
        records = driver().maintenanceInfo();
    } else {
        requireUnit(a.unit, ECashControl::Maintenance);
        if (a.done)
            driver().maintenanceDone(a.unit);
        records.append(driver().maintenanceInfo(a.unit));
    }
    if (console.json()) {
        QJsonArray array;
        for (const hw::CcUnitMaintenanceInfo& r : records)
            array.append(maintenanceJson(r));
        console.document(withCommand({{QStringLiteral("done"), a.done}, {QStringLiteral("units"), array}}));
    } else {
        console.out(
            (a.done ? QStringLiteral("maintenance of %1 recorded as done\n").arg(a.unit) : QString()) +
            maintenanceTable(records));
    }
    return 0;
}

int Runner::watch()
{
    connectDevice();
    QEventLoop loop;
    DriverEvents events(host.driverObject());
    QObject::connect(signalWatcher.get(), &SignalWatcher::signalled, &loop, &QEventLoop::quit);
    QTimer rearm;
    rearm.setSingleShot(true);
    rearm.setInterval(watchRearmMs);
    QObject::connect(&rearm, &QTimer::timeout, &loop, [this] {
        try {
            driver().enableAsyncCheck(true);
        } catch (const std::exception& e) {
            console.err(QString::fromUtf8(e.what()) + QLatin1Char('\n'));
        }
    });

    int errors = 0;
    events.onError = [&](const QString& msg) {
        ++errors;
        if (console.json())
            console.event(
                {{QStringLiteral("event"), QStringLiteral("error")}, {QStringLiteral("message"), msg}});
        else
            console.out(QStringLiteral("%1  %2\n")
                            .arg(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), msg));
        rearm.start();
    };

    QElapsedTimer clock;
    clock.start();
    if (console.json())
        console.event({{QStringLiteral("event"), QStringLiteral("watching")},
                       {QStringLiteral("seconds"), a.seconds >= 0 ? QJsonValue(a.seconds) : QJsonValue()}});
    else
        console.out(QStringLiteral("watching the device state (checked every 60 s)%1\n")
                        .arg(a.seconds >= 0 ? QStringLiteral(" for %1 s").arg(a.seconds)
                                            : QStringLiteral(" until Ctrl+C")));
    driver().enableAsyncCheck(true);
    if (a.seconds >= 0)
        QTimer::singleShot(a.seconds * 1000, &loop, &QEventLoop::quit);
    if (signalWatcher->received() == 0)
        loop.exec();
    signalWatcher.reset();
    rearm.stop();
    driver().enableAsyncCheck(false);

    if (console.json())
        console.event(
            {{QStringLiteral("event"), QStringLiteral("stopped")}, {QStringLiteral("errors"), errors}});
    else
        console.out(
            QStringLiteral("stopped after %1 s, %2 error(s)\n").arg(clock.elapsed() / 1000).arg(errors));
    return 0;
}

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
