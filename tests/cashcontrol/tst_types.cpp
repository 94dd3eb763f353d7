#include "cashcontrol/cashcontrolexc.h"
#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/ccunitmaintenanceinfo.h"
#include "cashcontrol/ecashcontrol.h"
#include "cashcontrol/sumdetailed.h"
#include "support/columns.h"
#include "support/units.h"

#include <QtTest>

#include <climits>
#include <clocale>

using Denoms = QMap<unsigned int, long long>;
Q_DECLARE_METATYPE(Denoms)

namespace {

using testsupport::sumOf;

// The name a function gives the row's value, against the row's expected text.
void compareName(QString (*name)(int))
{
    QFETCH(int, value);
    QFETCH(QString, expected);
    QCOMPARE(name(value), expected);
}

} // namespace

class TestTypes : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // A POS service often runs without a locale; nothing here may depend on it.
        QVERIFY(std::setlocale(LC_ALL, "C"));
    }

    void defaultSumDetailed()
    {
        const SumDetailed s;
        QVERIFY(s.denoms.isEmpty());
        QCOMPARE(s.rest, 0LL);
        QCOMPARE(s.extra, 0LL);
        QCOMPARE(s.sum(), 0LL);
        QCOMPARE(s.toString(), QStringLiteral("0.00"));
    }

    void sum_data()
    {
        testsupport::columns<Denoms, long long, long long, long long>("denoms", "rest", "extra", "expected");

        QTest::newRow("empty") << Denoms() << 0LL << 0LL << 0LL;
        QTest::newRow("two denominations") << Denoms{{500, 2}, {1000, 1}} << 0LL << 0LL << 2000LL;
        QTest::newRow("count 0 adds nothing") << Denoms{{500, 0}, {100, 3}} << 0LL << 0LL << 300LL;
        QTest::newRow("only count 0") << Denoms{{500, 0}} << 0LL << 0LL << 0LL;
        QTest::newRow("rest added") << Denoms{{100, 1}} << 50LL << 0LL << 150LL;
        QTest::newRow("extra ignored") << Denoms{{100, 1}} << 0LL << 999LL << 100LL;
        QTest::newRow("negative count") << Denoms{{100, -2}} << 0LL << 0LL << -200LL;
        QTest::newRow("largest denomination")
            << Denoms{{UINT_MAX, 2}} << 0LL << 0LL << 2LL * static_cast<long long>(UINT_MAX);
        QTest::newRow("rest LLONG_MAX") << Denoms() << LLONG_MAX << 0LL << LLONG_MAX;
    }

    void sum()
    {
        QFETCH(Denoms, denoms);
        QFETCH(long long, rest);
        QFETCH(long long, extra);
        QFETCH(long long, expected);
        QCOMPARE(sumOf(denoms, rest, extra).sum(), expected);
    }

    void toString_data()
    {
        testsupport::columns<Denoms, long long, long long, QString>("denoms", "rest", "extra", "expected");

        QTest::newRow("empty") << Denoms() << 0LL << 0LL << QStringLiteral("0.00");
        QTest::newRow("two coins of 500 and one of 1000")
            << Denoms{{500, 2}, {1000, 1}} << 0LL << 0LL
            << QStringLiteral("20.00. номиналы: 5.00 x 2, 10.00 x 1");
        QTest::newRow("ascending whatever the insertion")
            << Denoms{{1000, 1}, {1, 3}, {50, 1}} << 0LL << 0LL
            << QStringLiteral("10.53. номиналы: 0.01 x 3, 0.50 x 1, 10.00 x 1");
        QTest::newRow("count 0 left out")
            << Denoms{{500, 0}, {100, 3}} << 0LL << 0LL << QStringLiteral("3.00. номиналы: 1.00 x 3");
        QTest::newRow("only count 0 gives no list")
            << Denoms{{500, 0}} << 0LL << 0LL << QStringLiteral("0.00");
        QTest::newRow("rest 1550") << Denoms() << 1550LL << 0LL << QStringLiteral("15.50");
        QTest::newRow("rest and a coin")
            << Denoms{{100, 1}} << 50LL << 0LL << QStringLiteral("1.50. номиналы: 1.00 x 1");
        QTest::newRow("extra not printed") << Denoms() << 0LL << 999LL << QStringLiteral("0.00");
        QTest::newRow("negative rest") << Denoms() << -500LL << 0LL << QStringLiteral("-5.00");
        QTest::newRow("negative kopecks") << Denoms() << -5LL << 0LL << QStringLiteral("-0.05");
        QTest::newRow("negative count")
            << Denoms{{100, -2}} << 0LL << 0LL << QStringLiteral("-2.00. номиналы: 1.00 x -2");
        QTest::newRow("LLONG_MAX exact")
            << Denoms() << LLONG_MAX << 0LL << QStringLiteral("92233720368547758.07");
        QTest::newRow("LLONG_MIN exact")
            << Denoms() << LLONG_MIN << 0LL << QStringLiteral("-92233720368547758.08");
        QTest::newRow("largest denomination") << Denoms{{UINT_MAX, 1}} << 0LL << 0LL
                                              << QStringLiteral("42949672.95. номиналы: 42949672.95 x 1");
    }

    void toString()
    {
        QFETCH(Denoms, denoms);
        QFETCH(long long, rest);
        QFETCH(long long, extra);
        QFETCH(QString, expected);
        QCOMPARE(sumOf(denoms, rest, extra).toString(), expected);
    }

    void toStringBytes()
    {
        const SumDetailed s = sumOf(Denoms{{500, 2}, {1000, 1}});
        QCOMPARE(s.toString().toUtf8(),
                 QByteArray("20.00. \xD0\xBD\xD0\xBE\xD0\xBC\xD0\xB8\xD0\xBD\xD0\xB0\xD0\xBB\xD1\x8B: "
                            "5.00 x 2, 10.00 x 1"));
    }

    void copyDetachesMap()
    {
        SumDetailed a = sumOf(Denoms{{100, 1}}, 7, 9);
        SumDetailed b = a;
        b.denoms[100] = 5;
        b.rest = 0;
        QCOMPARE(a.denoms.value(100), 1LL);
        QCOMPARE(a.rest, 7LL);
        QCOMPARE(b.extra, 9LL);
        QCOMPARE(b.denoms.value(100), 5LL);
    }

    void modeName_data()
    {
        testsupport::columns<int, QString>("value", "expected");
        QTest::newRow("0") << 0 << QStringLiteral("оптимальный");
        QTest::newRow("1") << 1 << QStringLiteral("минимум");
        QTest::newRow("2") << 2 << QStringLiteral("неизвестный");
        QTest::newRow("-1") << -1 << QStringLiteral("неизвестный");
        QTest::newRow("INT_MIN") << INT_MIN << QStringLiteral("неизвестный");
    }

    void modeName() { compareName(ECashControl::modeName); }

    void modeNameEnumerators()
    {
        QCOMPARE(int(ECashControl::Optimal), 0);
        QCOMPARE(int(ECashControl::Minimum), 1);
        QCOMPARE(ECashControl::modeName(ECashControl::Minimum).toUtf8(),
                 QByteArray("\xD0\xBC\xD0\xB8\xD0\xBD\xD0\xB8\xD0\xBC\xD1\x83\xD0\xBC"));
    }

    void counterName_data()
    {
        testsupport::columns<int, QString>("value", "expected");
        QTest::newRow("0") << 0 << QStringLiteral("внесений");
        QTest::newRow("1") << 1 << QStringLiteral("выдачи");
        QTest::newRow("2") << 2 << QStringLiteral("неизвестный");
        QTest::newRow("-1") << -1 << QStringLiteral("неизвестный");
    }

    void counterName() { compareName(ECashControl::counterName); }

    void counterEnumerators()
    {
        QCOMPARE(int(ECashControl::Accepted), 0);
        QCOMPARE(int(ECashControl::Dispensed), 1);
    }

    void operationName_data()
    {
        testsupport::columns<int, QString>("value", "expected");
        using namespace ECashControl;
        QTest::newRow("0x1") << int(PickupAllToCashbox) << QStringLiteral("выем в кэшбокс всего");
        QTest::newRow("0x2") << int(PickupToMinimumToCashbox)
                             << QStringLiteral("выем в кэшбокс до мин уровня");
        QTest::newRow("0x4") << int(PickupSumToCashbox) << QStringLiteral("выем в кэшбокс суммы");
        QTest::newRow("0x10") << int(ManualPickupAll) << QStringLiteral("выем всего вручную");
        QTest::newRow("0x20") << int(ManualPickupSum) << QStringLiteral("выем суммы вручную");
        QTest::newRow("0x100") << int(DispensePickupAll)
                               << QStringLiteral("выем всего через устройство выдачи");
        QTest::newRow("0x200") << int(DispensePickupSum)
                               << QStringLiteral("выем суммы через устройство выдачи");
        QTest::newRow("0x1000") << int(LoadMainAcceptor)
                                << QStringLiteral("внесение через основной приемник");
        QTest::newRow("0x10000") << int(LoadLoader) << QStringLiteral("внесение через лоадер");
        QTest::newRow("0x20000") << int(ManualLoad) << QStringLiteral("внесение вручную");
        QTest::newRow("0x1000000") << int(EnableUnit) << QStringLiteral("включение модуля");
        QTest::newRow("0x2000000") << int(DisableUnit) << QStringLiteral("выключение модуля");
        QTest::newRow("0x8000000") << int(Maintenance) << QStringLiteral("техобслуживание модуля");
        QTest::newRow("0") << 0 << QStringLiteral("неизвестный");
        QTest::newRow("0x8 unused bit") << 0x8 << QStringLiteral("неизвестный");
        QTest::newRow("0x4000000 unused bit") << 0x4000000 << QStringLiteral("неизвестный");
        QTest::newRow("-1") << -1 << QStringLiteral("неизвестный");
        QTest::newRow("combined 0x3") << 0x3 << QStringLiteral("неизвестный");
        QTest::newRow("combined 0x30") << 0x30 << QStringLiteral("неизвестный");
        QTest::newRow("combined 0x200 | 0x20000") << 0x20200 << QStringLiteral("неизвестный");
        QTest::newRow("hopper operations 0x8021330") << 0x8021330 << QStringLiteral("неизвестный");
    }

    void operationName() { compareName(ECashControl::operationName); }

    void operationNameBytes()
    {
        QCOMPARE(
            ECashControl::operationName(0x3).toUtf8(),
            QByteArray(
                "\xD0\xBD\xD0\xB5\xD0\xB8\xD0\xB7\xD0\xB2\xD0\xB5\xD1\x81\xD1\x82\xD0\xBD\xD1\x8B\xD0\xB9"));
    }

    void operationValues()
    {
        using namespace ECashControl;
        const int all = PickupAllToCashbox | PickupToMinimumToCashbox | PickupSumToCashbox | ManualPickupAll |
                        ManualPickupSum | DispensePickupAll | DispensePickupSum | LoadMainAcceptor |
                        LoadLoader | ManualLoad | EnableUnit | DisableUnit | Maintenance;
        QCOMPARE(all, 0xB031337);
        QCOMPARE(ManualPickupAll | ManualPickupSum | DispensePickupAll | DispensePickupSum |
                     LoadMainAcceptor | ManualLoad | Maintenance,
                 0x8021330);
        QCOMPARE(int(Option1), 1);
    }

    void cashControlUnitDefaults()
    {
        QCOMPARE(
            testsupport::unitFields(CashControlUnit()),
            QStringLiteral("name \"\", type 0, operations 0x0, flag 0, denom 0, count 0, sum 0, capacity 0, "
                           "reserve1 0, denoms {}, reserve2 0, state 0, title \"\", limits -1 -1 -1 -1"));
    }

    void cashControlUnitCopy()
    {
        CashControlUnit a = testsupport::hopper(3, 500, 42, 700, 3);
        a.sum = 21000;
        a.denoms.insert(500, 42);
        a.title = QStringLiteral("т");
        CashControlUnit b = a;
        b.denoms[500] = 1;
        b.name += QLatin1Char('x');
        QCOMPARE(a.denoms.value(500), 42LL);
        QCOMPARE(a.name, QStringLiteral("hopper3"));
        QCOMPARE(
            testsupport::unitFields(b),
            QStringLiteral("name \"hopper3x\", type 1, operations 0x8021330, flag 1, denom 500, count 42, "
                           "sum 21000, capacity 700, reserve1 0, denoms {500 x 1}, reserve2 0, state 3, "
                           "title \"т\", limits -1 -1 50 -1"));
    }

    void maintenanceInfoDefaults()
    {
        const hw::CcUnitMaintenanceInfo m;
        QVERIFY(m.unitName.isEmpty());
        QCOMPARE(m.status, false);
        QCOMPARE(m.cycles, 0);
        QCOMPARE(m.interval, 0);
        QVERIFY(m.description.isEmpty());
        QCOMPARE(sizeof(m.status), sizeof(char));
    }

    void exceptionHoldsUtf8()
    {
        const QString text = QStringLiteral("Монетоприемник: Невозможно выдать сумму");
        try {
            throw CashControlExc(text.toUtf8());
        } catch (const std::exception& e) {
            QCOMPARE(QByteArray(e.what()), text.toUtf8());
            const auto* exc = dynamic_cast<const CashControlExc*>(&e);
            QVERIFY(exc);
            QCOMPARE(exc->message(), text);
        }
        const CashControlExc fromText(QStringLiteral("Купюроприемник: X"));
        QCOMPARE(QByteArray(fromText.what()),
                 QByteArray("\xD0\x9A\xD1\x83\xD0\xBF\xD1\x8E\xD1\x80\xD0\xBE\xD0\xBF\xD1\x80\xD0\xB8\xD0\xB5"
                            "\xD0\xBC\xD0\xBD\xD0\xB8\xD0\xBA: X"));
        const CashControlExc copy = fromText;
        QCOMPARE(copy.message(), QStringLiteral("Купюроприемник: X"));
    }
};

QTEST_GUILESS_MAIN(TestTypes)
#include "tst_types.moc"
