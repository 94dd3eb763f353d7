#include "hostkit/amount.h"
#include "tools/report.h"

#include "cashcontrol/units.h"
#include "support/units.h"

#include <QJsonDocument>
#include <QtTest>

using testsupport::cashbox;
using testsupport::hopper;
using testsupport::sumOf;

class TestToolReport : public QObject
{
    Q_OBJECT

private slots:
    void tableAlignment();
    void unitsTable();
    void unitJson();
    void unknownUnitKindAndState();
    void denoms();
    void sumTable();
    void sumTableWithRest();
    void emptySum();
    void sumJson();
    void maintenance();
};

void TestToolReport::tableAlignment()
{
    const QString table = tool::renderTable({QStringLiteral("a"), QStringLiteral("number")},
                                            {{QStringLiteral("long text"), QStringLiteral("1")},
                                             {QStringLiteral("x"), QStringLiteral("12345678")}},
                                            {tool::Align::Left, tool::Align::Right});
    QCOMPARE(table, QStringLiteral("a            number\n"
                                   "long text         1\n"
                                   "x          12345678\n"));
}

void TestToolReport::unitsTable()
{
    const QString table =
        tool::unitsTable({hopper(1, 1000, 200, 800), hopper(2, 50, 7, 1200, 3), cashbox(12550)});
    QCOMPARE(table, QStringLiteral("unit     kind     denomination  count  capacity      sum  state\n"
                                   "hopper1  hopper          10.00    200       800  2000.00  ok\n"
                                   "hopper2  hopper           0.50      7      1200     3.50  fault\n"
                                   "cashbox  cashbox             -      -         -   125.50  ok\n"));
}

void TestToolReport::unitJson()
{
    QCOMPARE(QJsonDocument(tool::unitJson(hopper(3, 200, 300, 1000))).toJson(QJsonDocument::Compact),
             "{\"capacity\":1000,\"count\":300,\"denom\":200,\"kind\":\"hopper\",\"name\":\"hopper3\","
             "\"operations\":" +
                 QByteArray::number(0x8021330) + ",\"state\":0,\"sum\":60000,\"type\":1}");

    const QJsonObject c = tool::unitJson(cashbox(4294967295LL));
    QCOMPARE(c.value(QStringLiteral("kind")).toString(), QStringLiteral("cashbox"));
    QCOMPARE(c.value(QStringLiteral("sum")).toVariant().toLongLong(), 4294967295LL);
    QCOMPARE(c.value(QStringLiteral("denom")).toInt(), 0);

    const QJsonArray array = tool::unitsJson({hopper(1, 1000, 1, 10), cashbox(0)});
    QCOMPARE(array.size(), 2);
    QCOMPARE(array.at(1).toObject().value(QStringLiteral("name")).toString(), QStringLiteral("cashbox"));
}

void TestToolReport::unknownUnitKindAndState()
{
    CashControlUnit odd;
    odd.name = QStringLiteral("loader");
    odd.type = 7;
    odd.state = 5;
    odd.sum = 300;
    QCOMPARE(tool::unitKind(odd), QStringLiteral("type 7"));
    QCOMPARE(tool::unitState(odd), QStringLiteral("state 5"));
    QCOMPARE(cashunits::unitValue(odd), 300LL);
    QCOMPARE(cashunits::unitValue(hopper(1, 500, 3, 10)), 1500LL);
}

void TestToolReport::denoms()
{
    const QSet<unsigned int> set{1000, 100, 500, 200};
    QCOMPARE(tool::sortedDenoms(set), (QList<unsigned int>{100, 200, 500, 1000}));
    QCOMPARE(QJsonDocument(tool::denomsJson(set)).toJson(QJsonDocument::Compact),
             QByteArray("[100,200,500,1000]"));
}

void TestToolReport::sumTable()
{
    const SumDetailed s = sumOf({{500, 2}, {1000, 1}, {200, 0}});
    QCOMPARE(tool::sumTable(s), QStringLiteral("denomination  count    sum\n"
                                               "        5.00      2  10.00\n"
                                               "       10.00      1  10.00\n"
                                               "       total         20.00\n"));
    QCOMPARE(hostkit::sumBreakdown(s), QStringLiteral("5.00 x 2, 10.00 x 1"));
}

void TestToolReport::sumTableWithRest()
{
    const SumDetailed s = sumOf({}, 12550);
    QCOMPARE(tool::sumTable(s), QStringLiteral("denomination  count     sum\n"
                                               " not by coin         125.50\n"
                                               "       total         125.50\n"));
}

void TestToolReport::emptySum()
{
    const SumDetailed s;
    QCOMPARE(hostkit::sumBreakdown(s), QStringLiteral("-"));
    QCOMPARE(tool::sumTable(s), QStringLiteral("denomination  count   sum\n"
                                               "       total         0.00\n"));
    QCOMPARE(QJsonDocument(tool::sumJson(s)).toJson(QJsonDocument::Compact),
             QByteArray("{\"denoms\":[],\"rest\":0,\"sum\":0}"));
}

void TestToolReport::sumJson()
{
    const SumDetailed s = sumOf({{100, 7}, {1000, 1}, {50, 0}}, 0, 99);
    QCOMPARE(QJsonDocument(tool::sumJson(s)).toJson(QJsonDocument::Compact),
             QByteArray("{\"denoms\":[{\"count\":7,\"denom\":100},{\"count\":1,\"denom\":1000}],\"rest\":0,"
                        "\"sum\":1700}"));
}

void TestToolReport::maintenance()
{
    hw::CcUnitMaintenanceInfo due;
    due.unitName = QStringLiteral("hopper1");
    due.status = false;
    due.cycles = 120000;
    due.interval = 100000;
    due.description = QStringLiteral("Хоппер 1: требуется обслуживание");
    hw::CcUnitMaintenanceInfo fine;
    fine.unitName = QStringLiteral("hopper2");
    fine.status = true;
    fine.cycles = 12;
    fine.interval = 100000;

    QCOMPARE(tool::maintenanceTable({due, fine}),
             QStringLiteral("unit     status       cycles  interval  description\n"
                            "hopper1  service due  120000    100000  Хоппер 1: требуется обслуживание\n"
                            "hopper2  ok               12    100000  -\n"));
    const QJsonObject json = tool::maintenanceJson(due);
    QCOMPARE(json.value(QStringLiteral("unit")).toString(), QStringLiteral("hopper1"));
    QCOMPARE(json.value(QStringLiteral("ok")).toBool(), false);
    QCOMPARE(json.value(QStringLiteral("cycles")).toInt(), 120000);
    QCOMPARE(json.value(QStringLiteral("interval")).toInt(), 100000);
    QCOMPARE(json.value(QStringLiteral("description")).toString(),
             QStringLiteral("Хоппер 1: требуется обслуживание"));
}

QTEST_APPLESS_MAIN(TestToolReport)
#include "tst_toolreport.moc"
