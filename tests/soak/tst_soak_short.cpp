// The fault soak, short: a seeded run of the driver object against the simulated
// recycler on an in-process line in virtual time, its invariants checked after every step.
// CPIBCR_SOAK_SEED and CPIBCR_SOAK_STEPS replay or lengthen it.
#include "soak.h"

#include <QtTest>

namespace {

const quint64 defaultSeed = 20240611;
const int defaultSteps = 10000;

QStringList plans(quint64 seed, int steps)
{
    QStringList out;
    for (int step = 0; step < steps; ++step)
        out << soak::planStep(seed, step).describe();
    return out;
}

} // namespace

class TestSoakShort : public QObject
{
    Q_OBJECT

private slots:
    void planDependsOnSeedAndStepOnly();
    void plansCoverEveryOperationAndFault();
    void shortRunHoldsTheInvariants();
};

void TestSoakShort::planDependsOnSeedAndStepOnly()
{
    const QStringList first = plans(defaultSeed, 300);
    QCOMPARE(plans(defaultSeed, 300), first);
    // A step drawn alone is the same as within the sequence.
    QCOMPARE(soak::planStep(defaultSeed, 123).describe(), first.at(123));
    const QStringList other = plans(defaultSeed + 1, 300);
    int differing = 0;
    for (int i = 0; i < first.size(); ++i)
        differing +=
            first.at(i).section(QLatin1Char(':'), 1) != other.at(i).section(QLatin1Char(':'), 1) ? 1 : 0;
    QVERIFY2(differing > 250, qPrintable(QStringLiteral("%1 of 300 plans differ").arg(differing)));
}

void TestSoakShort::plansCoverEveryOperationAndFault()
{
    QSet<QString> ops;
    QSet<QString> faults;
    int payoutTargets = 0;
    int doorWhileAccepting = 0;
    int jamWhileAccepting = 0;
    int coinsWhileOpening = 0;
    for (int step = 0; step < 2000; ++step) {
        const soak::StepPlan plan = soak::planStep(defaultSeed, step);
        ops << soak::opName(plan.op);
        for (const soak::LineFault& f : plan.faults) {
            faults << soak::LineFault::kindName(f.kind);
            payoutTargets += f.atHeader == 85 || f.atHeader == 121 ? 1 : 0;
            QVERIFY(f.count >= 1 && f.count <= 10);
        }
        doorWhileAccepting += plan.doorAtMsecs >= 0 ? 1 : 0;
        if (plan.jamFoundAtMsecs >= 0) {
            ++jamWhileAccepting;
            QVERIFY(plan.jamFoundAtMsecs < plan.pumpMsecs);
            QVERIFY(plan.jamFoundHopper >= 1 && plan.jamFoundHopper <= 5);
        }
        for (const auto& coin : plan.coins) {
            QVERIFY(coin.first >= 0 && coin.first < plan.pumpMsecs);
            QVERIFY(coin.second >= 1 && coin.second <= 8);
        }
        coinsWhileOpening += plan.openingCoins.size();
    }
    QCOMPARE(ops.size(), 12);
    QCOMPARE(faults.size(), 9);
    QVERIFY(faults.contains(QStringLiteral("short answer")));
    QVERIFY(coinsWhileOpening > 50);
    QVERIFY(payoutTargets > 10);
    QVERIFY(doorWhileAccepting > 5);
    QVERIFY(jamWhileAccepting > 5);
}

void TestSoakShort::shortRunHoldsTheInvariants()
{
    soak::Options defaults;
    defaults.seed = defaultSeed;
    defaults.steps = defaultSteps;
    const soak::Options options = soak::Options::fromEnvironment(defaults);
    qInfo().noquote() << QStringLiteral("soak seed %1, %2 steps").arg(options.seed).arg(options.steps);
    soak::Soak soak(options);
    soak.setOutput([](const QString& line) { qInfo().noquote() << line; });
    const bool held = soak.run();
    qInfo().noquote() << soak.figures().toText();
    QVERIFY2(held, qPrintable(soak.failure()));

    const soak::Figures& fig = soak.figures();
    QCOMPARE(fig.stepsRun, options.steps);
    if (options.steps >= 150) {
        // A soak that injected nothing or moved no money would prove nothing.
        QVERIFY(fig.sessionsStarted > 10);
        QVERIFY(fig.valueReported > 0);
        QVERIFY(fig.payoutCalls - fig.payoutCallsFailed > 10);
        QVERIFY(fig.valuePaidOut > 0);
        QVERIFY(fig.payoutCallsFailed > 0);
        QVERIFY(!fig.lineFaultsFired.isEmpty());
        QVERIFY(!fig.deviceFaults.isEmpty());
        QVERIFY(fig.invariantChecks > 20 * fig.stepsRun);
        QCOMPARE(fig.valueUnreported, quint64(0));
        QVERIFY(fig.twinPayouts > 0);
        QVERIFY(fig.reportedAfterPollError > 0);
        QVERIFY(fig.paidLinesChecked > 0);
        QVERIFY(fig.namedAmountsChecked > 0);
        QVERIFY(fig.coinsWhileOpening > 0);
        QVERIFY(fig.lineFaultsFired.value(QStringLiteral("short answer")) > 0);
    }
}

QTEST_GUILESS_MAIN(TestSoakShort)
#include "tst_soak_short.moc"
