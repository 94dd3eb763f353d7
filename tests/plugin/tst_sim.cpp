// The driver object end to end: a real pseudo-terminal through the host's serial
// port object to the simulated recycler.
#include "testdriver.h"

#include "host/serialport.h"
#include "sim/simulator.h"

#include <QSignalSpy>
#include <QtTest>

#include <limits>

using namespace plugintest;

namespace {

sim::Config fastConfig()
{
    sim::Config c = sim::Config::defaults();
    c.coinAcceptMs = 5;
    c.coinAcceptFastMs = 3;
    c.payoutMsPerCoin = 1;
    c.resetInitMs = 20;
    c.answerDelayMs = 0;
    c.interByteTimeoutMs = 10;
    return c;
}

struct SimRig
{
    SimRig() : simulator(fastConfig()) { RecordingChanger::clearResetRequest(); }

    bool start(QString* error)
    {
        if (!simulator.openPty(error)) {
            return false;
        }
        if (!port.open(simulator.portPath())) {
            *error = port.errorString();
            return false;
        }
        driver.recorder->realPauseMsecs = 2;
        driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&port));
        driver.init();
        driver.connect();
        return true;
    }

    int moves() const
    {
        return simulator.countHeader(85) + simulator.countHeader(125) + simulator.countHeader(121) +
               simulator.countHeader(120) + simulator.countHeader(118);
    }

    QList<int> hopperCounts() const
    {
        QList<int> counts;
        for (int h = 1; h <= 4; ++h) {
            counts << simulator.hopperCount(h);
        }
        return counts;
    }

    sim::Simulator simulator;
    hw::SerialPort port;
    TestDriver driver;
};

const unsigned int hopperDenoms[] = {1000, 500, 200, 100};

} // namespace

class TestSim : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { RecordingChanger::clearResetRequest(); }

    void connectListsTheUnits();
    void cashOutInBothModesMatchesTheHoppers_data();
    void cashOutInBothModesMatchesTheHoppers();
    void impossibleAmountPaysNothing();
    void pickupAndLoan();
    void acceptedAndDispensedCounters();
    void refusedRequestsMoveNothing();
};

void TestSim::connectListsTheUnits()
{
    SimRig rig;
    QString error;
    QVERIFY2(rig.start(&error), qPrintable(error));
    const QList<CashControlUnit> units = rig.driver.getUnits();
    QCOMPARE(units.size(), 5);
    for (int h = 1; h <= 4; ++h) {
        const CashControlUnit& unit = units.at(h - 1);
        QCOMPARE(unit.name, QStringLiteral("hopper%1").arg(h));
        QCOMPARE(unit.type, 1);
        QCOMPARE(unit.denom, hopperDenoms[h - 1]);
        QCOMPARE(unit.count, static_cast<long long>(rig.simulator.hopperCount(h)));
        QCOMPARE(unit.operations, 0x8021330);
    }
    QCOMPARE(units.at(4).name, QStringLiteral("cashbox"));
    QCOMPARE(units.at(4).sum, static_cast<long long>(rig.simulator.cashbox()));
    QCOMPARE(rig.driver.getAcceptableDenoms(), QSet<unsigned int>({100, 200, 500, 1000}));
    rig.driver.checkState();
}

void TestSim::cashOutInBothModesMatchesTheHoppers_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<qlonglong>("amount");
    QTest::newRow("minimum 17.00") << int(ECashControl::Minimum) << 1700LL;
    QTest::newRow("optimal 17.00") << int(ECashControl::Optimal) << 1700LL;
    QTest::newRow("minimum 38.00") << int(ECashControl::Minimum) << 3800LL;
    QTest::newRow("optimal 38.00") << int(ECashControl::Optimal) << 3800LL;
    QTest::newRow("optimal 0.00") << int(ECashControl::Optimal) << 0LL;
}

void TestSim::cashOutInBothModesMatchesTheHoppers()
{
    QFETCH(int, mode);
    QFETCH(qlonglong, amount);
    SimRig rig;
    QString error;
    QVERIFY2(rig.start(&error), qPrintable(error));
    QVERIFY(rig.driver.cashOutCheck(ECashControl::ChangeMode(mode), amount));
    QCOMPARE(rig.moves(), 0);

    const QList<int> before = rig.hopperCounts();
    const quint64 paidBefore = rig.simulator.coinsPaidOut();
    rig.simulator.clearTransactions();
    const SumDetailed paid = rig.driver.cashOut(ECashControl::ChangeMode(mode), amount);
    QCOMPARE(paid.sum(), static_cast<long long>(amount));
    const QList<int> after = rig.hopperCounts();
    for (int h = 0; h < 4; ++h) {
        QCOMPARE(static_cast<long long>(before.at(h) - after.at(h)), paid.denoms.value(hopperDenoms[h]));
    }
    QCOMPARE(rig.simulator.coinsPaidOut() - paidBefore, static_cast<quint64>(amount));
    // One payout command, never repeated; no other money moved.
    QCOMPARE(rig.simulator.countHeader(85), 1);
    QCOMPARE(rig.moves(), 1);
}

void TestSim::impossibleAmountPaysNothing()
{
    SimRig rig;
    QString error;
    QVERIFY2(rig.start(&error), qPrintable(error));
    const QList<int> before = rig.hopperCounts();
    rig.simulator.clearTransactions();
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Optimal, 1750));
    QCOMPARE(failureOf([&] { rig.driver.cashOut(ECashControl::Optimal, 1750); }),
             QStringLiteral("Монетоприемник: Невозможно выдать сумму"));
    QCOMPARE(rig.moves(), 0);
    QCOMPARE(rig.hopperCounts(), before);
}

void TestSim::pickupAndLoan()
{
    SimRig rig;
    QString error;
    QVERIFY2(rig.start(&error), qPrintable(error));
    const QList<int> start = rig.hopperCounts();

    // Through the dispenser: 5 coins of 1.00.
    const SumDetailed five =
        rig.driver.pickup(QStringLiteral("hopper4"), ECashControl::DispensePickupSum, 500);
    QCOMPARE(five.sum(), 500LL);
    QCOMPARE(five.denoms.value(100), 5LL);
    QCOMPARE(rig.simulator.hopperCount(4), start.at(3) - 5);

    // The whole hopper through the dispenser, then its count set to 0.
    rig.simulator.clearTransactions();
    const SumDetailed purged =
        rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::DispensePickupAll, 0);
    QCOMPARE(purged.denoms.value(200), static_cast<long long>(start.at(2)));
    QCOMPARE(rig.simulator.hopperCount(3), 0);
    QCOMPARE(rig.simulator.countHeader(121), 1);
    QCOMPARE(rig.simulator.countHeader(120), 1);

    // Loaded by hand: the count is read from the unit list the host last asked for.
    rig.driver.getUnits();
    rig.driver.loan(QStringLiteral("hopper3"), ECashControl::ManualLoad, 2000);
    QCOMPARE(rig.simulator.hopperCount(3), 10);

    // Taken by hand: only the balance changes, no coin leaves through the dispenser.
    const quint64 paidOut = rig.simulator.coinsPaidOut();
    rig.driver.getUnits();
    const SumDetailed byHand =
        rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::ManualPickupSum, 1000);
    QCOMPARE(byHand.denoms.value(500), 2LL);
    QCOMPARE(rig.simulator.hopperCount(2), start.at(1) - 2);
    QCOMPARE(rig.simulator.coinsPaidOut(), paidOut);

    rig.simulator.setCashbox(12550);
    rig.driver.getUnits();
    const SumDetailed cashbox =
        rig.driver.pickup(QStringLiteral("cashbox"), ECashControl::ManualPickupAll, 0);
    QCOMPARE(cashbox.rest, 12550LL);
    QCOMPARE(rig.simulator.cashbox(), 0u);
}

void TestSim::acceptedAndDispensedCounters()
{
    SimRig rig;
    QString error;
    QVERIFY2(rig.start(&error), qPrintable(error));
    QSignalSpy received(&rig.driver, &hw::BasicCashControl::received);
    rig.driver.cashInStart(false, {});
    rig.simulator.insertCoin(1);
    rig.simulator.insertCoin(4);
    rig.simulator.insertCoin(4);
    QTRY_COMPARE_WITH_TIMEOUT(rig.simulator.valueAccepted(), quint64(2100), 2000);
    rig.driver.cashInStop();
    long long arrived = 0;
    for (const QList<QVariant>& signal : received) {
        arrived += signal.at(0).value<SumDetailed>().sum();
    }
    QCOMPARE(arrived, 2100LL);

    const SumDetailed accepted = rig.driver.getCounter(ECashControl::Accepted);
    QCOMPARE(accepted.denoms.value(100), static_cast<long long>(rig.simulator.auditCounter(70, 1)));
    QCOMPARE(accepted.denoms.value(1000), static_cast<long long>(rig.simulator.auditCounter(70, 4)));
    QCOMPARE(accepted.sum(), 2100LL);

    rig.driver.cashOut(ECashControl::Minimum, 1700);
    const SumDetailed dispensed = rig.driver.getCounter(ECashControl::Dispensed);
    for (int h = 1; h <= 4; ++h) {
        QCOMPARE(dispensed.denoms.value(hopperDenoms[h - 1]),
                 static_cast<long long>(rig.simulator.auditCounter(80, quint8(h)) +
                                        rig.simulator.auditCounter(87, quint8(h))));
    }
    QCOMPARE(dispensed.sum(), 1700LL);
}

void TestSim::refusedRequestsMoveNothing()
{
    SimRig rig;
    QString error;
    QVERIFY2(rig.start(&error), qPrintable(error));
    // A hopper that holds more coins than one payout frame can name.
    rig.simulator.setHopperCount(4, 20000);
    rig.driver.getUnits();
    const QList<int> before = rig.hopperCounts();
    const quint32 cashboxBefore = rig.simulator.cashbox();
    rig.simulator.clearTransactions();

    const QString refused = QStringLiteral("Монетоприемник: Некорректная сумма");
    const long long maxAmount = std::numeric_limits<long long>::max();
    QCOMPARE(failureOf([&] { rig.driver.cashOut(ECashControl::Minimum, -500); }), refused);
    QCOMPARE(failureOf([&] { rig.driver.cashOut(ECashControl::Optimal, -1); }), refused);
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, -500));
    for (ECashControl::UnitOperation op :
         {ECashControl::ManualPickupAll, ECashControl::ManualPickupSum, ECashControl::DispensePickupAll,
          ECashControl::DispensePickupSum}) {
        QCOMPARE(failureOf([&] { rig.driver.pickup(QStringLiteral("hopper1"), op, -100); }), refused);
    }
    QCOMPARE(failureOf([&] { rig.driver.loan(QStringLiteral("hopper1"), ECashControl::ManualLoad, -1000); }),
             refused);
    QCOMPARE(rig.simulator.transactions().size(), 0);

    // 65536 coins would wrap to 0 in the 16-bit balance.
    QCOMPARE(failureOf([&] {
                 rig.driver.loan(QStringLiteral("hopper4"), ECashControl::ManualLoad,
                                 (65536LL - 20000) * 100);
             }),
             refused);
    QCOMPARE(failureOf([&] { rig.driver.loan(QStringLiteral("cashbox"), ECashControl::ManualLoad, 100); }),
             refused);
    // 2^32 + 5 coins would reach the payout as 5; 20000 coins need more than one frame.
    QCOMPARE(failureOf([&] {
                 rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::DispensePickupSum,
                                   500LL * (4294967296LL + 5));
             }),
             refused);
    QCOMPARE(failureOf([&] {
                 rig.driver.pickup(QStringLiteral("hopper4"), ECashControl::DispensePickupSum, 100LL * 20000);
             }),
             refused);
    QCOMPARE(failureOf([&] {
                 rig.driver.pickup(QStringLiteral("hopper4"), ECashControl::DispensePickupSum, maxAmount);
             }),
             refused);
    QCOMPARE(
        failureOf([&] { rig.driver.pickup(QStringLiteral("cashbox"), ECashControl::ManualPickupSum, 100); }),
        refused);
    // An exact plan whose pattern would not fit one frame.
    QCOMPARE(failureOf([&] { rig.driver.cashOut(ECashControl::Minimum, 200000 + 125000 + 60000 + 1900000); }),
             refused);

    QCOMPARE(rig.moves(), 0);
    QCOMPARE(rig.hopperCounts(), before);
    QCOMPARE(rig.simulator.cashbox(), cashboxBefore);
}

QTEST_GUILESS_MAIN(TestSim)
#include "tst_sim.moc"
