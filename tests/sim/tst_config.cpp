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
}

QTEST_GUILESS_MAIN(TestConfig)
#include "tst_config.moc"
