#include "config.h"
#include "device.h"
#include "support/columns.h"

#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

class TestConfig : public QObject
{
    Q_OBJECT

private slots:
    void defaultsAreARoubleRecycler();
    void partialFileKeepsDefaults();
    void auditCountersOfThePastLife();
    void badFilesAreRejected_data();
    void badFilesAreRejected();
    void missingFile();
    void roundTrip();
};

void TestConfig::defaultsAreARoubleRecycler()
{
    const sim::Config c = sim::Config::defaults();
    QCOMPARE(c.address, quint8(55));
    QVERIFY(c.echo);
    QCOMPARE(c.coinIds.size(), 8);
    QCOMPARE(c.coinIds.value(1), QStringLiteral("RU100A"));
    QCOMPARE(c.coinIds.value(4), QStringLiteral("RU1K0A"));
    QSet<QString> hopperCoins;
    int enabled = 0;
    for (const sim::HopperConfig& h : c.hoppers) {
        QCOMPARE(h.coinId.size(), 6);
        QVERIFY(h.count <= h.capacity);
        QVERIFY(sim::coinValue(h.coinId) > 0);
        if (h.enabled) {
            ++enabled;
            hopperCoins.insert(h.coinId);
        }
    }
    QVERIFY(enabled >= 4);
    QCOMPARE(hopperCoins.size(), enabled); // each enabled hopper holds another coin
    for (const QString& coin : hopperCoins)
        QVERIFY(c.coinIds.values().contains(coin));
}

void TestConfig::partialFileKeepsDefaults()
{
    QString error;
    const sim::Config c = sim::Config::fromJson(R"({
        "cashbox": 12550,
        "echo": false,
        "coins": {"1": "RU100A", "2": "RU500A"},
        "hoppers": [{"coin": "RU500A", "count": 7, "capacity": 50, "serial": 42},
                    {"coin": "RU100A", "enabled": false}],
        "timings": {"payoutMsPerCoin": 3},
        "identification": {"manufacturer": "Test"}
    })",
                                                &error);
    QCOMPARE(error, QString());
    QCOMPARE(c.cashbox, 12550u);
    QVERIFY(!c.echo);
    QCOMPARE(c.coinIds.size(), 2);
    QCOMPARE(c.hoppers.size(), 2);
    QCOMPARE(c.hoppers.at(0).count, 7);
    QCOMPARE(c.hoppers.at(0).capacity, 50);
    QCOMPARE(c.hoppers.at(0).serial, 42u);
    QVERIFY(c.hoppers.at(0).enabled);
    QVERIFY(!c.hoppers.at(1).enabled);
    QCOMPARE(c.hoppers.at(1).count, 0);
    QCOMPARE(c.payoutMsPerCoin, 3);
    QCOMPARE(c.coinAcceptMs, sim::Config::defaults().coinAcceptMs);
    QCOMPARE(c.manufacturer, QStringLiteral("Test"));
    QCOMPARE(c.productCode, sim::Config::defaults().productCode);
}

void TestConfig::auditCountersOfThePastLife()
{
    QString error;
    const sim::Config c = sim::Config::fromJson(R"({
        "hoppers": [{"coin": "RU500A"}, {"coin": "RU100A"}],
        "auditCounters": {"70": {"1": 11, "16": 0}, "80": {"2": 2147483648}, "87": {"1": 4294967295}}
    })",
                                                &error);
    QCOMPARE(error, QString());
    const QMap<int, QMap<int, quint32>> expected = {
        {70, {{1, 11}, {16, 0}}}, {80, {{2, 0x80000000u}}}, {87, {{1, 0xFFFFFFFFu}}}};
    QCOMPARE(c.auditCounters, expected);
    sim::Device dev(c);
    QCOMPARE(dev.auditCounter(70, 1), 11u);
    QCOMPARE(dev.auditCounter(80, 2), 0x80000000u);
    QCOMPARE(dev.auditCounter(87, 1), 0xFFFFFFFFu);
    QCOMPARE(dev.auditCounter(80, 1), 0u);
}

void TestConfig::badFilesAreRejected_data()
{
    testsupport::columns<QByteArray, QString>("json", "mentions");
    QTest::newRow("not json") << QByteArray("{") << QString();
    QTest::newRow("array") << QByteArray("[]") << QStringLiteral("object");
    QTest::newRow("unknown key") << QByteArray(R"({"cashbx": 1})") << QStringLiteral("cashbx");
    QTest::newRow("short coin id") << QByteArray(R"({"coins": {"1": "RU10A"}})") << QStringLiteral("RU10A");
    QTest::newRow("position 17") << QByteArray(R"({"coins": {"17": "RU100A"}})") << QStringLiteral("17");
    QTest::newRow("negative count") << QByteArray(R"({"hoppers": [{"coin": "RU100A", "count": -1}]})")
                                    << QStringLiteral("count");
    QTest::newRow("hopper without coin")
        << QByteArray(R"({"hoppers": [{"count": 1}]})") << QStringLiteral("coin");
    QTest::newRow("fraction") << QByteArray(R"({"cashbox": 1.5})") << QStringLiteral("cashbox");
    QTest::newRow("string for number")
        << QByteArray(R"({"timings": {"coinAcceptMs": "5"}})") << QStringLiteral("coinAcceptMs");
    QTest::newRow("unknown timing") << QByteArray(R"({"timings": {"coinAcceptSecs": 5}})")
                                    << QStringLiteral("coinAcceptSecs");
    QTest::newRow("echo not bool") << QByteArray(R"({"echo": 1})") << QStringLiteral("echo");
    QTest::newRow("echo not bool, said so")
        << QByteArray(R"({"echo": 1})") << QStringLiteral(R"("echo" must be true or false)");
    QTest::newRow("manufacturer not a string") << QByteArray(R"({"identification": {"manufacturer": 5}})")
                                               << QStringLiteral(R"("manufacturer" must be a string)");
    QTest::newRow("counters not an object")
        << QByteArray(R"({"auditCounters": [1]})") << QStringLiteral(R"("auditCounters" must map groups)");
    QTest::newRow("counter group 71") << QByteArray(R"({"auditCounters": {"71": {"1": 1}}})")
                                      << QStringLiteral(R"(auditCounters: group "71" is not 70, 80 or 87)");
    QTest::newRow("counter group text")
        << QByteArray(R"({"auditCounters": {"paid": {"1": 1}}})") << QStringLiteral(R"(group "paid")");
    QTest::newRow("counter group not an object")
        << QByteArray(R"({"auditCounters": {"80": 5}})")
        << QStringLiteral("auditCounters: group 80 must map indexes to values");
    QTest::newRow("counter position 17") << QByteArray(R"({"auditCounters": {"70": {"17": 1}}})")
                                         << QStringLiteral(R"(group 70 has no index "17" (1 to 16))");
    QTest::newRow("counter position 0") << QByteArray(R"({"auditCounters": {"70": {"0": 1}}})")
                                        << QStringLiteral(R"(group 70 has no index "0")");
    QTest::newRow("counter of hopper 6 of 5") << QByteArray(R"({"auditCounters": {"80": {"6": 1}}})")
                                              << QStringLiteral(R"(group 80 has no index "6" (1 to 5))");
    QTest::newRow("counter of hopper 2 of 1")
        << QByteArray(R"({"hoppers": [{"coin": "RU100A"}], "auditCounters": {"87": {"2": 1}}})")
        << QStringLiteral(R"(group 87 has no index "2" (1 to 1))");
    QTest::newRow("counter negative")
        << QByteArray(R"({"auditCounters": {"80": {"1": -1}}})")
        << QStringLiteral("auditCounters: 80 1 must be an integer from 0 to 4294967295");
    QTest::newRow("counter past 32 bits") << QByteArray(R"({"auditCounters": {"80": {"1": 4294967296}}})")
                                          << QStringLiteral("auditCounters: 80 1 must be an integer");
    QTest::newRow("counter fraction") << QByteArray(R"({"auditCounters": {"70": {"3": 1.5}}})")
                                      << QStringLiteral("auditCounters: 70 3 must be an integer");
    QTest::newRow("counter text") << QByteArray(R"({"auditCounters": {"87": {"1": "5"}}})")
                                  << QStringLiteral("auditCounters: 87 1 must be an integer");
}

void TestConfig::badFilesAreRejected()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, mentions);
    QString error;
    const sim::Config c = sim::Config::fromJson(json, &error);
    QVERIFY(!error.isEmpty());
    QVERIFY2(error.contains(mentions), qPrintable(error));
    QCOMPARE(c.hoppers.size(), sim::Config::defaults().hoppers.size());
}

void TestConfig::missingFile()
{
    QString error;
    sim::Config::fromJsonFile(QStringLiteral("/nonexistent/sim.json"), &error);
    QVERIFY(error.contains(QStringLiteral("/nonexistent/sim.json")));
}

void TestConfig::roundTrip()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    sim::Config c = sim::Config::defaults();
    c.cashbox = 777;
    c.clockOffsetSecs = -3600;
    c.hoppers[2].count = 5;
    c.hoppers[2].model = QStringLiteral("X");
    c.resetInitMs = 9;
    c.echo = false;
    c.auditCounters = {{70, {{1, 11}, {16, 3}}}, {80, {{1, 500000}, {5, 0xFFFFFFFFu}}}, {87, {{2, 0}}}};
    QFile file(dir.filePath(QStringLiteral("sim.json")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(c.toJson());
    file.close();
    QString error;
    const sim::Config back = sim::Config::fromJsonFile(file.fileName(), &error);
    QCOMPARE(error, QString());
    QCOMPARE(back.toJson(), c.toJson());
    QCOMPARE(back.cashbox, 777u);
    QCOMPARE(back.clockOffsetSecs, qint64(-3600));
    QCOMPARE(back.hoppers[2].count, 5);
    QCOMPARE(back.hoppers[2].model, QStringLiteral("X"));
    QCOMPARE(back.resetInitMs, 9);
    QVERIFY(!back.echo);
    QCOMPARE(back.auditCounters, c.auditCounters);
    QCOMPARE(sim::Config::defaults().auditCounters.size(), 0);
}

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
