#include "panel/unitops.h"

#include "cashcontrol/ecashcontrol.h"
#include "cashcontrol/units.h"
#include "hostkit/amount.h"
#include "support/columns.h"
#include "support/units.h"

#include <QtTest>

using testsupport::cashbox;
using testsupport::hopper;

namespace {

QList<int> operationsOf(const QList<panel::UnitOperation>& list)
{
    QList<int> ops;
    for (const auto& op : list)
        ops.append(op.operation);
    return ops;
}

} // namespace

class TestPanelUnits : public QObject
{
    Q_OBJECT

private slots:
    void hopperOffersItsOperations();
    void cashboxOffersOnlyManualPickupAll();
    void unitWithoutOperationsOffersNothing();
    void sums();
    void fillLevels();
    void fillLevelsWithoutLimits();
    void money_data();
    void money();
    void operationAmounts();
    void partCoinsAsTheDriver_data();
    void partCoinsAsTheDriver();
    void breakdownText();
};

void TestPanelUnits::hopperOffersItsOperations()
{
    const CashControlUnit unit = hopper(2, 500, 250, 800);
    QCOMPARE(operationsOf(panel::loadOperations(unit)),
             (QList<int>{ECashControl::ManualLoad, ECashControl::LoadMainAcceptor}));
    const QList<panel::UnitOperation> pickups = panel::pickupOperations(unit);
    QCOMPARE(operationsOf(pickups),
             (QList<int>{ECashControl::ManualPickupAll, ECashControl::ManualPickupSum,
                         ECashControl::DispensePickupAll, ECashControl::DispensePickupSum}));
    QCOMPARE(pickups.at(0).key, QStringLiteral("manual-all"));
    QCOMPARE(pickups.at(0).title, QStringLiteral("выем всего вручную"));
    QVERIFY(!pickups.at(0).takesAmount);
    QCOMPARE(pickups.at(3).key, QStringLiteral("dispense-sum"));
    QCOMPARE(pickups.at(3).title, QStringLiteral("выем суммы через устройство выдачи"));
    QVERIFY(pickups.at(3).takesAmount);
    QCOMPARE(panel::loadOperations(unit).at(1).key, QStringLiteral("0x1000"));
    QVERIFY(panel::loadOperations(unit).at(0).takesAmount);
}

void TestPanelUnits::cashboxOffersOnlyManualPickupAll()
{
    const CashControlUnit unit = cashbox(1500);
    QVERIFY(panel::loadOperations(unit).isEmpty());
    QCOMPARE(operationsOf(panel::pickupOperations(unit)), QList<int>{ECashControl::ManualPickupAll});
}

void TestPanelUnits::unitWithoutOperationsOffersNothing()
{
    CashControlUnit unit = hopper(2, 100, 10, 100);
    unit.operations = ECashControl::Maintenance;
    QVERIFY(panel::loadOperations(unit).isEmpty());
    QVERIFY(panel::pickupOperations(unit).isEmpty());
    unit.operations = ECashControl::LoadLoader | ECashControl::PickupSumToCashbox;
    QCOMPARE(operationsOf(panel::loadOperations(unit)), QList<int>{ECashControl::LoadLoader});
    QCOMPARE(operationsOf(panel::pickupOperations(unit)), QList<int>{ECashControl::PickupSumToCashbox});
}

void TestPanelUnits::sums()
{
    QCOMPARE(cashunits::unitValue(hopper(2, 500, 250, 800)), 125000LL);
    QCOMPARE(cashunits::unitValue(cashbox(1550)), 1550LL);
    QVERIFY(cashunits::isCashbox(cashbox(0)));
    QVERIFY(!cashunits::isCashbox(hopper(2, 100, 1, 1)));
    // Denominations are unsigned 32-bit; the product must not wrap.
    QCOMPARE(cashunits::unitValue(hopper(2, 4000000000U, 65535, 65535)), 4000000000LL * 65535);
}

void TestPanelUnits::fillLevels()
{
    CashControlUnit unit = hopper(2, 100, 51, 400);
    const auto levelAt = [&unit](long long count) {
        unit.count = count;
        return panel::fillLevel(unit);
    };
    QCOMPARE(levelAt(51), panel::FillLevel::Normal);
    QCOMPARE(levelAt(50), panel::FillLevel::VeryLow);
    unit.limit1 = 100;
    QCOMPARE(levelAt(100), panel::FillLevel::Low);
    QCOMPARE(levelAt(101), panel::FillLevel::Normal);
    QCOMPARE(levelAt(0), panel::FillLevel::VeryLow);
    unit.state = 3;
    QCOMPARE(levelAt(300), panel::FillLevel::Fault);
    QVERIFY(panel::fillColor(panel::FillLevel::Normal) != panel::fillColor(panel::FillLevel::VeryLow));
    QVERIFY(panel::fillColor(panel::FillLevel::Low) != panel::fillColor(panel::FillLevel::VeryLow));
    QVERIFY(panel::fillColor(panel::FillLevel::Fault) != panel::fillColor(panel::FillLevel::Normal));
}

void TestPanelUnits::fillLevelsWithoutLimits()
{
    CashControlUnit unit = hopper(2, 100, 0, 400);
    unit.limit3 = -1;
    QCOMPARE(panel::fillLevel(unit), panel::FillLevel::Normal);
    QCOMPARE(panel::fillLevel(cashbox(0)), panel::FillLevel::Normal);
}

void TestPanelUnits::money_data()
{
    testsupport::columns<QString, bool, bool, qlonglong, QString>("text", "positive", "ok", "minor", "error");
    QTest::newRow("whole") << "15" << true << true << 1500LL << "";
    QTest::newRow("decimals") << " 15.5 " << true << true << 1550LL << "";
    QTest::newRow("zero allowed") << "0" << false << true << 0LL << "";
    QTest::newRow("zero refused") << "0.00" << true << false << 0LL << "the amount must be above 0";
    QTest::newRow("comma") << "15,50" << true << false << 0LL
                           << "amount \"15,50\": use a point for the decimals, as in 15.50";
    QTest::newRow("negative") << "-5" << true << false << 0LL << "amount \"-5\" is negative";
    QTest::newRow("empty") << "" << true << false << 0LL << "an amount is required";
    QTest::newRow("too large")
        << "42949673" << true << false << 0LL
        << "amount \"42949673\" is larger than the device can handle (at most 42949672.95)";
}

void TestPanelUnits::money()
{
    QFETCH(QString, text);
    QFETCH(bool, positive);
    QFETCH(bool, ok);
    QFETCH(qlonglong, minor);
    QFETCH(QString, error);
    long long value = -1;
    QString why;
    QCOMPARE(panel::parseMoney(text, positive, &value, &why), ok);
    QCOMPARE(why, error);
    QCOMPARE(value, ok ? minor : -1LL);
}

void TestPanelUnits::operationAmounts()
{
    const CashControlUnit unit = hopper(2, 200, 300, 1000);
    const QList<panel::UnitOperation> pickups = panel::pickupOperations(unit);
    long long value = -1;
    QString why;
    // manual-all takes no amount: whatever is typed is ignored and 0 is sent.
    QVERIFY(panel::checkOperationAmount(unit, pickups.at(0), QStringLiteral("abc"), &value, &why));
    QCOMPARE(value, 0LL);
    QVERIFY(!panel::checkOperationAmount(unit, pickups.at(3), QStringLiteral("5"), &value, &why));
    QCOMPARE(why, QStringLiteral("Монетоприемник: Некорректная сумма"));
    QVERIFY(panel::checkOperationAmount(unit, pickups.at(3), QStringLiteral("4"), &value, &why));
    QCOMPARE(value, 400LL);
    const panel::UnitOperation manualLoad = panel::loadOperations(unit).at(0);
    QVERIFY(!panel::checkOperationAmount(unit, manualLoad, QStringLiteral("0"), &value, &why));
    QCOMPARE(why, QStringLiteral("the amount must be above 0"));
    // A load through the acceptor changes nothing on the device: any amount above 0.
    const panel::UnitOperation acceptorLoad = panel::loadOperations(unit).at(1);
    QVERIFY(panel::checkOperationAmount(unit, acceptorLoad, QStringLiteral("3"), &value, &why));
    QCOMPARE(value, 300LL);
}

// The rule is the driver's: a manual load and a pick-up through the dispenser need whole
// coins, a manual sum pick-up takes the whole coins the amount covers.
void TestPanelUnits::partCoinsAsTheDriver_data()
{
    testsupport::columns<int, uint, QString, bool, qlonglong, QString>("operation", "denom", "text", "ok",
                                                                       "minor", "error");
    const QString refused = QStringLiteral("Монетоприемник: Некорректная сумма");
    QTest::newRow("manual load, whole coins")
        << int(ECashControl::ManualLoad) << 500U << "50" << true << 5000LL << "";
    QTest::newRow("manual load, part coin")
        << int(ECashControl::ManualLoad) << 500U << "12" << false << 0LL << refused;
    QTest::newRow("dispense sum, part coin")
        << int(ECashControl::DispensePickupSum) << 500U << "12" << false << 0LL << refused;
    QTest::newRow("dispense sum, whole coins")
        << int(ECashControl::DispensePickupSum) << 500U << "15" << true << 1500LL << "";
    QTest::newRow("manual sum, part coin")
        << int(ECashControl::ManualPickupSum) << 500U << "12" << true << 1200LL << "";
    QTest::newRow("sum to the cashbox, part coin")
        << int(ECashControl::PickupSumToCashbox) << 500U << "12" << true << 1200LL << "";
    QTest::newRow("load through the acceptor, part coin")
        << int(ECashControl::LoadMainAcceptor) << 500U << "12" << true << 1200LL << "";
    QTest::newRow("manual load, no denomination")
        << int(ECashControl::ManualLoad) << 0U << "5" << false << 0LL << refused;
    QTest::newRow("dispense sum, no denomination")
        << int(ECashControl::DispensePickupSum) << 0U << "5" << false << 0LL << refused;
}

void TestPanelUnits::partCoinsAsTheDriver()
{
    QFETCH(int, operation);
    QFETCH(uint, denom);
    QFETCH(QString, text);
    QFETCH(bool, ok);
    QFETCH(qlonglong, minor);
    QFETCH(QString, error);
    CashControlUnit unit = hopper(2, denom, 250, 800);
    unit.operations |= operation;
    panel::UnitOperation op;
    op.operation = operation;
    op.takesAmount = true;
    long long value = -1;
    QString why;
    QCOMPARE(panel::checkOperationAmount(unit, op, text, &value, &why), ok);
    QCOMPARE(why, error);
    QCOMPARE(value, ok ? minor : -1LL);
}

void TestPanelUnits::breakdownText()
{
    SumDetailed sum;
    QCOMPARE(hostkit::sumBreakdown(sum), QStringLiteral("-"));
    sum.denoms[500] = 1;
    sum.denoms[200] = 3;
    sum.denoms[1000] = 0;
    QCOMPARE(hostkit::sumBreakdown(sum), QStringLiteral("2.00 x 3, 5.00 x 1"));
}

QTEST_GUILESS_MAIN(TestPanelUnits)
#include "tst_panelunits.moc"
