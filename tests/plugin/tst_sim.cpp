// The driver object end to end against the simulated recycler, on an in-process
// line in virtual time.
#include "support/columns.h"
#include "testdriver.h"

#include "simrig.h"

#include <QSignalSpy>
#include <QtTest>

#include <limits>

using namespace plugintest;

namespace {

const unsigned int hopperDenoms[] = {1000, 500, 200, 100};

} // namespace

class TestSim : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { RecordingChanger::setResetPending(false); }

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
    rig.start();
    const QList<CashControlUnit> units = rig.driver.getUnits();
    QCOMPARE(units.size(), 5);
    for (int h = 1; h <= 4; ++h) {
        const CashControlUnit& unit = units.at(h - 1);
        QCOMPARE(unit.name, QStringLiteral("hopper%1").arg(h));
        QCOMPARE(unit.type, 1);
        QCOMPARE(unit.denom, hopperDenoms[h - 1]);
        QCOMPARE(unit.count, static_cast<long long>(rig.device().hopperCount(h)));
        QCOMPARE(unit.operations, 0x8021330);
    }
    QCOMPARE(units.at(4).name, QStringLiteral("cashbox"));
    QCOMPARE(units.at(4).sum, static_cast<long long>(rig.device().cashbox()));
    QCOMPARE(rig.driver.getAcceptableDenoms(), QSet<unsigned int>({100, 200, 500, 1000}));
    rig.driver.checkState();
}

void TestSim::cashOutInBothModesMatchesTheHoppers_data()
{
    testsupport::columns<int, qlonglong>("mode", "amount");
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
    rig.start();
    QVERIFY(rig.driver.cashOutCheck(ECashControl::ChangeMode(mode), amount));
    QCOMPARE(rig.moves(), 0);

    const QList<int> before = rig.hopperCounts();
    const quint64 paidBefore = rig.device().coinsPaidOut();
    rig.line.clearTransactions();
    const SumDetailed paid = rig.driver.cashOut(ECashControl::ChangeMode(mode), amount);
    QCOMPARE(paid.sum(), static_cast<long long>(amount));
    const QList<int> after = rig.hopperCounts();
    for (int h = 0; h < 4; ++h) {
        QCOMPARE(static_cast<long long>(before.at(h) - after.at(h)), paid.denoms.value(hopperDenoms[h]));
    }
    QCOMPARE(rig.device().coinsPaidOut() - paidBefore, static_cast<quint64>(amount));
    // One payout command, never repeated; no other money moved.
    QCOMPARE(rig.line.countHeader(85), 1);
    QCOMPARE(rig.moves(), 1);
}

void TestSim::impossibleAmountPaysNothing()
{
    SimRig rig;
    rig.start();
    const QList<int> before = rig.hopperCounts();
    rig.line.clearTransactions();
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Optimal, 1750));
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Optimal, 1750); }),
             QStringLiteral("Монетоприемник: Невозможно выдать сумму"));
    QCOMPARE(rig.moves(), 0);
    QCOMPARE(rig.hopperCounts(), before);
}

void TestSim::pickupAndLoan()
{
    SimRig rig;
    rig.start();
    const QList<int> start = rig.hopperCounts();

    // Through the dispenser: 5 coins of 1.00.
    const SumDetailed five =
        rig.driver.pickup(QStringLiteral("hopper4"), ECashControl::DispensePickupSum, 500);
    QCOMPARE(five.sum(), 500LL);
    QCOMPARE(five.denoms.value(100), 5LL);
    QCOMPARE(rig.device().hopperCount(4), start.at(3) - 5);

    // The whole hopper through the dispenser, then its count set to 0.
    rig.line.clearTransactions();
    const SumDetailed purged =
        rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::DispensePickupAll, 0);
    QCOMPARE(purged.denoms.value(200), static_cast<long long>(start.at(2)));
    QCOMPARE(rig.device().hopperCount(3), 0);
    QCOMPARE(rig.line.countHeader(121), 1);
    QCOMPARE(rig.line.countHeader(120), 1);

    // Loaded by hand: the count written is the device's count plus the coins loaded, even
    // when the device's count changed behind the driver's unit list.
    rig.driver.getUnits();
    rig.device().setHopperCount(3, 4);
    rig.driver.loan(QStringLiteral("hopper3"), ECashControl::ManualLoad, 2000);
    QCOMPARE(rig.device().hopperCount(3), 14);

    // Taken by hand: only the balance changes, no coin leaves through the dispenser.
    const quint64 paidOut = rig.device().coinsPaidOut();
    rig.driver.getUnits();
    const SumDetailed byHand =
        rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::ManualPickupSum, 1000);
    QCOMPARE(byHand.denoms.value(500), 2LL);
    QCOMPARE(rig.device().hopperCount(2), start.at(1) - 2);
    QCOMPARE(rig.device().coinsPaidOut(), paidOut);

    rig.device().setCashbox(12550);
    rig.driver.getUnits();
    const SumDetailed cashbox =
        rig.driver.pickup(QStringLiteral("cashbox"), ECashControl::ManualPickupAll, 0);
    QCOMPARE(cashbox.rest, 12550LL);
    QCOMPARE(rig.device().cashbox(), 0u);
}

void TestSim::acceptedAndDispensedCounters()
{
    SimRig rig;
    rig.start();
    QSignalSpy received(&rig.driver, &hw::BasicCashControl::received);
    rig.driver.cashInStart(false, {});
    rig.device().insertCoin(1);
    rig.device().insertCoin(4);
    rig.device().insertCoin(4);
    rig.line.runTimer(rig.driver.recorder->timer(), 2000);
    QCOMPARE(rig.device().valueAccepted(), quint64(2100));
    rig.driver.cashInStop();
    long long arrived = 0;
    for (const QList<QVariant>& signal : received) {
        arrived += signal.at(0).value<SumDetailed>().sum();
    }
    QCOMPARE(arrived, 2100LL);

    const SumDetailed accepted = rig.driver.getCounter(ECashControl::Accepted);
    QCOMPARE(accepted.denoms.value(100), static_cast<long long>(rig.device().auditCounter(70, 1)));
    QCOMPARE(accepted.denoms.value(1000), static_cast<long long>(rig.device().auditCounter(70, 4)));
    QCOMPARE(accepted.sum(), 2100LL);

    rig.driver.cashOut(ECashControl::Minimum, 1700);
    const SumDetailed dispensed = rig.driver.getCounter(ECashControl::Dispensed);
    for (int h = 1; h <= 4; ++h) {
        QCOMPARE(dispensed.denoms.value(hopperDenoms[h - 1]),
                 static_cast<long long>(rig.device().auditCounter(80, quint8(h)) +
                                        rig.device().auditCounter(87, quint8(h))));
    }
    QCOMPARE(dispensed.sum(), 1700LL);
}

void TestSim::refusedRequestsMoveNothing()
{
    SimRig rig;
    rig.start();
    // A hopper that holds more coins than one payout frame can name.
    rig.device().setHopperCount(4, 20000);
    rig.driver.getUnits();
    const QList<int> before = rig.hopperCounts();
    const quint32 cashboxBefore = rig.device().cashbox();
    rig.line.clearTransactions();

    const QString refused = QStringLiteral("Монетоприемник: Некорректная сумма");
    const long long maxAmount = std::numeric_limits<long long>::max();
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Minimum, -500); }), refused);
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Optimal, -1); }), refused);
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, -500));
    for (ECashControl::UnitOperation op :
         {ECashControl::ManualPickupAll, ECashControl::ManualPickupSum, ECashControl::DispensePickupAll,
          ECashControl::DispensePickupSum}) {
        QCOMPARE(thrownText([&] { rig.driver.pickup(QStringLiteral("hopper1"), op, -100); }), refused);
    }
    QCOMPARE(thrownText([&] { rig.driver.loan(QStringLiteral("hopper1"), ECashControl::ManualLoad, -1000); }),
             refused);
    QCOMPARE(rig.line.transactions().size(), 0);

    // 65536 coins would wrap to 0 in the 16-bit balance.
    QCOMPARE(thrownText([&] {
                 rig.driver.loan(QStringLiteral("hopper4"), ECashControl::ManualLoad,
                                 (65536LL - 20000) * 100);
             }),
             refused);
    QCOMPARE(thrownText([&] { rig.driver.loan(QStringLiteral("cashbox"), ECashControl::ManualLoad, 100); }),
             QStringLiteral("Монетоприемник: Операция не поддерживается"));
    // 2^32 + 5 coins would reach the payout as 5; 20000 coins need more than one frame.
    QCOMPARE(thrownText([&] {
                 rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::DispensePickupSum,
                                   500LL * (4294967296LL + 5));
             }),
             refused);
    QCOMPARE(thrownText([&] {
                 rig.driver.pickup(QStringLiteral("hopper4"), ECashControl::DispensePickupSum, 100LL * 20000);
             }),
             refused);
    QCOMPARE(thrownText([&] {
                 rig.driver.pickup(QStringLiteral("hopper4"), ECashControl::DispensePickupSum, maxAmount);
             }),
             refused);
    QCOMPARE(
        thrownText([&] { rig.driver.pickup(QStringLiteral("cashbox"), ECashControl::ManualPickupSum, 100); }),
        QStringLiteral("Монетоприемник: Операция не поддерживается"));
    // An exact plan whose pattern would not fit one frame.
    QCOMPARE(
        thrownText([&] { rig.driver.cashOut(ECashControl::Minimum, 200000 + 125000 + 60000 + 1900000); }),
        refused);

    QCOMPARE(rig.moves(), 0);
    QCOMPARE(rig.hopperCounts(), before);
    QCOMPARE(rig.device().cashbox(), cashboxBefore);
}

QTEST_GUILESS_MAIN(TestSim)
#include "tst_sim.moc"
