#include "cashcontrol/units.h"
#include "support/columns.h"

#include <QtTest>

namespace {

CashControlUnit unit(int type, unsigned int denom)
{
    CashControlUnit u;
    u.type = type;
    u.denom = denom;
    return u;
}

} // namespace

class TestUnits : public QObject
{
    Q_OBJECT

private slots:
    void operationSets();
    void kinds();
    void wholeCoins_data();
    void wholeCoins();
    void denominationZero();
    void value_data();
    void value();
    void driverText();
};

void TestUnits::operationSets()
{
    QCOMPARE(cashunits::hopperOperations, 0x8021330);
    QCOMPARE(cashunits::cashboxOperations, 0x10);
    QCOMPARE(cashunits::hopperType, 1);
    QCOMPARE(cashunits::cashboxType, 3);
    QCOMPARE(cashunits::coinDevice, 1);
}

void TestUnits::kinds()
{
    QVERIFY(cashunits::isHopper(unit(1, 500)));
    QVERIFY(!cashunits::isCashbox(unit(1, 500)));
    QVERIFY(cashunits::isCashbox(unit(3, 0)));
    QVERIFY(!cashunits::isHopper(unit(3, 0)));
    QVERIFY(!cashunits::isHopper(unit(7, 0)));
    QVERIFY(!cashunits::isCashbox(unit(7, 0)));
}

// Every operation against a hopper of 5.00 coins: 12.00 is two coins and a part, 15.00 three coins.
void TestUnits::wholeCoins_data()
{
    testsupport::columns<int, bool, bool>("operation", "counts", "inHopper");
    QTest::newRow("PickupAllToCashbox") << int(ECashControl::PickupAllToCashbox) << false << false;
    QTest::newRow("PickupToMinimumToCashbox")
        << int(ECashControl::PickupToMinimumToCashbox) << false << false;
    QTest::newRow("PickupSumToCashbox") << int(ECashControl::PickupSumToCashbox) << false << false;
    QTest::newRow("ManualPickupAll") << int(ECashControl::ManualPickupAll) << false << true;
    QTest::newRow("ManualPickupSum") << int(ECashControl::ManualPickupSum) << false << true;
    QTest::newRow("DispensePickupAll") << int(ECashControl::DispensePickupAll) << false << true;
    QTest::newRow("DispensePickupSum") << int(ECashControl::DispensePickupSum) << true << true;
    QTest::newRow("LoadMainAcceptor") << int(ECashControl::LoadMainAcceptor) << false << true;
    QTest::newRow("LoadLoader") << int(ECashControl::LoadLoader) << false << false;
    QTest::newRow("ManualLoad") << int(ECashControl::ManualLoad) << true << true;
    QTest::newRow("EnableUnit") << int(ECashControl::EnableUnit) << false << false;
    QTest::newRow("DisableUnit") << int(ECashControl::DisableUnit) << false << false;
    QTest::newRow("Maintenance") << int(ECashControl::Maintenance) << false << true;
}

void TestUnits::wholeCoins()
{
    QFETCH(int, operation);
    QFETCH(bool, counts);
    QFETCH(bool, inHopper);
    QCOMPARE(cashunits::countsWholeCoins(operation), counts);
    const CashControlUnit hopper = unit(cashunits::hopperType, 500);
    QCOMPARE(cashunits::refusesPartCoins(hopper, operation, 1200), counts);
    QCOMPARE(cashunits::refusesPartCoins(hopper, operation, 1), counts);
    QVERIFY(!cashunits::refusesPartCoins(hopper, operation, 1500));
    QVERIFY(!cashunits::refusesPartCoins(hopper, operation, 0));
    QCOMPARE((cashunits::hopperOperations & operation) != 0, inHopper);
    QCOMPARE((cashunits::cashboxOperations & operation) != 0, operation == ECashControl::ManualPickupAll);
}

void TestUnits::denominationZero()
{
    const CashControlUnit none = unit(cashunits::hopperType, 0);
    QVERIFY(!cashunits::isWholeCoins(none, 0));
    QVERIFY(!cashunits::isWholeCoins(none, 500));
    QVERIFY(cashunits::refusesPartCoins(none, ECashControl::ManualLoad, 500));
    QVERIFY(cashunits::refusesPartCoins(none, ECashControl::DispensePickupSum, 0));
    QVERIFY(!cashunits::refusesPartCoins(none, ECashControl::ManualPickupSum, 500));
    QVERIFY(cashunits::isWholeCoins(unit(cashunits::hopperType, 500), 0));
}

void TestUnits::value_data()
{
    testsupport::columns<int, uint, qlonglong, qlonglong, qlonglong>("type", "denom", "count", "sum",
                                                                     "value");
    QTest::newRow("hopper") << 1 << 500U << 250LL << 0LL << 125000LL;
    QTest::newRow("empty hopper") << 1 << 500U << 0LL << 0LL << 0LL;
    // The coins are what is there; a sum a hopper reports is not added to them.
    QTest::newRow("hopper reporting a sum") << 1 << 500U << 3LL << 9999LL << 1500LL;
    QTest::newRow("negative count") << 1 << 500U << -4LL << 0LL << 0LL;
    QTest::newRow("hopper without denomination") << 1 << 0U << 10LL << 0LL << 0LL;
    // Denominations are unsigned 32-bit; the product must not wrap.
    QTest::newRow("largest hopper") << 1 << 4000000000U << 65535LL << 0LL << 4000000000LL * 65535;
    QTest::newRow("cashbox") << 3 << 0U << 0LL << 12550LL << 12550LL;
    QTest::newRow("cashbox with a count") << 3 << 100U << 7LL << 300LL << 300LL;
    QTest::newRow("largest cashbox") << 3 << 0U << 0LL << 4294967295LL << 4294967295LL;
    QTest::newRow("unknown kind") << 7 << 0U << 0LL << 300LL << 300LL;
}

void TestUnits::value()
{
    QFETCH(int, type);
    QFETCH(uint, denom);
    QFETCH(qlonglong, count);
    QFETCH(qlonglong, sum);
    QFETCH(qlonglong, value);
    CashControlUnit u = unit(type, denom);
    u.count = count;
    u.sum = sum;
    QCOMPARE(cashunits::unitValue(u), value);
}

void TestUnits::driverText()
{
    QCOMPARE(cashunits::badAmountText(), QStringLiteral("Некорректная сумма"));
    QCOMPARE(cashunits::deviceName(cashunits::coinDevice), QStringLiteral("Монетоприемник"));
    QCOMPARE(cashunits::deviceName(2), QStringLiteral("Купюроприемник"));
    QCOMPARE(
        cashunits::deviceMessage(cashunits::deviceName(cashunits::coinDevice), cashunits::badAmountText()),
        QStringLiteral("Монетоприемник: Некорректная сумма"));
}

QTEST_GUILESS_MAIN(TestUnits)
#include "tst_units.moc"
