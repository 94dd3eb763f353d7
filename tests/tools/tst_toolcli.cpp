// The built `cpibcr` run as a separate process, the way an integrator runs it: against the
// built-in simulator, or with --port against a simulator served by this test on a pty.
#include "sim/device.h"
#include "sim/simulator.h"
#include "support/columns.h"
#include "support/toolprocess.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <csignal>
#include <functional>
#include <memory>
#include <sys/types.h>

namespace {

using Result = testsupport::ProcessResult;
using testsupport::cLocale;

Result runTool(const QStringList& args, int timeoutMs = 60000)
{
    return testsupport::runProgram(QStringLiteral(CPIBCR_TOOL), args, timeoutMs);
}

QString data(const char* name)
{
    return QStringLiteral(CPIBCR_TEST_DATA "/") + QLatin1String(name);
}

std::unique_ptr<sim::Simulator> startSimulator(const char* configName = "fast.json")
{
    QString error;
    const sim::Config config = sim::Config::fromJsonFile(data(configName), &error);
    if (!error.isEmpty())
        return nullptr;
    auto simulator = std::make_unique<sim::Simulator>(config);
    if (!simulator->openPty(&error))
        return nullptr;
    return simulator;
}

QJsonObject document(const QByteArray& bytes)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    return error.error == QJsonParseError::NoError ? doc.object() : QJsonObject();
}

QList<QJsonObject> events(const QByteArray& bytes)
{
    QList<QJsonObject> list;
    for (const QByteArray& line : bytes.split('\n'))
        if (!line.trimmed().isEmpty())
            list.append(document(line));
    return list;
}

QMap<unsigned int, long long> denoms(const QJsonObject& sum)
{
    QMap<unsigned int, long long> map;
    for (const QJsonValue& v : sum.value(QStringLiteral("denoms")).toArray())
        map.insert(unsigned(v.toObject().value(QStringLiteral("denom")).toInt()),
                   v.toObject().value(QStringLiteral("count")).toInt());
    return map;
}

QJsonObject unitNamed(const QJsonArray& units, const QString& name)
{
    for (const QJsonValue& v : units)
        if (v.toObject().value(QStringLiteral("name")).toString() == name)
            return v.toObject();
    return QJsonObject();
}

// Commands that move money or write balances: none of them may reach the device for a refused request.
int moneyCommands(const sim::Simulator& s)
{
    return s.countHeader(sim::cmd::DispenseHopperPattern) + s.countHeader(sim::cmd::PayMoneyOut) +
           s.countHeader(sim::cmd::PurgeHopper) + s.countHeader(sim::cmd::ModHopperBalance) +
           s.countHeader(sim::cmd::ModCashboxValue);
}

QList<int> hopperCounts(const sim::Simulator& s)
{
    QList<int> counts;
    for (int h = 1; h <= 5; ++h)
        counts.append(s.hopperCount(h));
    return counts;
}

// The device's money as a command may change it: the commands that move money it was sent, the
// hoppers' counts and the cashbox sum.
QString money(const sim::Simulator& s)
{
    QStringList counts;
    for (const int count : hopperCounts(s))
        counts << QString::number(count);
    return QStringLiteral("%1 money commands, hoppers %2, cashbox %3")
        .arg(moneyCommands(s))
        .arg(counts.join(QLatin1Char(' ')))
        .arg(s.cashbox());
}

// A simulator with 125.50 in its cashbox, for a command that must leave the money alone.
std::unique_ptr<sim::Simulator> startWithCashbox()
{
    auto s = startSimulator();
    if (s)
        s->setCashbox(12550);
    return s;
}

Result onPort(const sim::Simulator& s, const QStringList& args)
{
    return runTool(QStringList{QStringLiteral("--port"), s.portPath()} + args);
}

Result jsonOnPort(const sim::Simulator& s, const QStringList& args)
{
    return runTool(QStringList{QStringLiteral("--json"), QStringLiteral("--port"), s.portPath()} + args);
}

bool waitForOutput(QProcess& p, QByteArray& seen, const QByteArray& needle, int timeoutMs = 60000)
{
    QElapsedTimer clock;
    clock.start();
    while (!seen.contains(needle)) {
        if (clock.elapsed() > timeoutMs || p.state() == QProcess::NotRunning)
            return false;
        p.waitForReadyRead(50);
        seen += p.readAllStandardOutput();
    }
    return true;
}

const QString usageLine = QStringLiteral("usage: cpibcr [--port DEVICE]");

} // namespace

class TestToolCli : public QObject
{
    Q_OBJECT

private slots:
    void help();
    void usageErrorsNeverReachTheDevice_data();
    void usageErrorsNeverReachTheDevice();
    void refusedOnTheDeviceBeforeMoneyMoves_data();
    void refusedOnTheDeviceBeforeMoneyMoves();
    void badSimulatorConfiguration();
    void pluginAndPortFailures();

    void statusText();
    void statusJsonMatchesSimulator();
    void unitsText();
    void denomsJson();
    void checkPaysNothing();
    void deviceFaultFailsWithDriverMessage();
    void payJsonMatchesSimulator();
    void payImpossibleLeavesHoppersAlone();
    void driverRefusalsMoveNothing_data();
    void driverRefusalsMoveNothing();
    void partCoinsRefusedAsTheDriver_data();
    void partCoinsRefusedAsTheDriver();
    void loanManualLoad();
    void loanOtherOperationChangesNothing();
    void pickupCashbox();
    void pickupManualSumTakesWholeCoinsAtMostTheCount_data();
    void pickupManualSumTakesWholeCoinsAtMostTheCount();
    void pickupThroughTheDispenser();
    void countersJsonAndText();
    void maintenance();

    void acceptWithSimulatedCoins();
    void acceptExcludedDenomination();
    void acceptStopsOnSignal_data();
    void acceptStopsOnSignal();
    void watchReportsFault();

    void traceShowsFrames();
    void logConfigWritesUtf8File();
    void stateAcrossInvocationsOfTheSimulatorProgram();
    void demo();
};

void TestToolCli::help()
{
    const Result r = runTool({QStringLiteral("--help")});
    QCOMPARE(r.status, 0);
    QVERIFY(r.outText().startsWith(usageLine));
    QVERIFY(r.outText().contains(QStringLiteral("\n  pickup UNIT [AMOUNT] [--op OP]")));
    QVERIFY(r.err.isEmpty());
}

void TestToolCli::usageErrorsNeverReachTheDevice_data()
{
    testsupport::columns<QStringList, QString>("args", "message");
    QTest::newRow("unknown command") << QStringList{"dispense", "5"} << "unknown command \"dispense\"";
    QTest::newRow("negative pay") << QStringList{"pay", "-5"} << "amount \"-5\" is negative";
    QTest::newRow("malformed pay") << QStringList{"pay", "5,50"}
                                   << "amount \"5,50\": use a point for the decimals, as in 15.50";
    QTest::newRow("three decimals") << QStringList{"pay", "1.234"}
                                    << "amount \"1.234\" has more than two decimals";
    QTest::newRow("beyond 32 bits")
        << QStringList{"pay", "42949672.96"}
        << "amount \"42949672.96\" is larger than the device can handle (at most 42949672.95)";
    QTest::newRow("negative loan") << QStringList{"loan", "hopper1", "-10"} << "amount \"-10\" is negative";
    QTest::newRow("negative dispense-sum")
        << QStringList{"pickup", "hopper1", "-10", "--op", "dispense-sum"} << "amount \"-10\" is negative";
    QTest::newRow("huge manual-sum")
        << QStringList{"pickup", "hopper1", "99999999999", "--op", "manual-sum"}
        << "amount \"99999999999\" is larger than the device can handle (at most 42949672.95)";
    QTest::newRow("unknown operation") << QStringList{"pickup", "hopper1", "--op", "everything"}
                                       << "unknown operation \"everything\" (manual-load, manual-all, "
                                          "manual-sum, dispense-all, dispense-sum, or a "
                                          "unit operation number such as 0x200)";
    QTest::newRow("bad mode") << QStringList{"pay", "5", "--mode", "fast"}
                              << "unknown change mode \"fast\" (optimal or minimum)";
    QTest::newRow("bad log level") << QStringList{"--log", "loud", "pay", "5"}
                                   << "unknown log level \"loud\" (error, warn, info, debug, trace)";
}

void TestToolCli::usageErrorsNeverReachTheDevice()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    auto s = startSimulator();
    QVERIFY(s);
    const Result r = onPort(*s, args);
    QCOMPARE(r.status, 2);
    QVERIFY(r.out.isEmpty());
    QVERIFY2(r.errText().startsWith(QStringLiteral("cpibcr: ") + message + QStringLiteral("\n") + usageLine),
             r.err.constData());
    QVERIFY(s->transactions().isEmpty());
}

void TestToolCli::refusedOnTheDeviceBeforeMoneyMoves_data()
{
    testsupport::columns<QStringList, QString>("args", "message");
    // The JSON form of a refusal is the same for every kind; two rows show it.
    QTest::addColumn<bool>("json");
    QTest::newRow("unknown unit")
        << QStringList{"loan", "hopper9", "5"}
        << "unknown unit \"hopper9\" (the recycler has hopper1, hopper2, hopper3, hopper4, "
           "cashbox)"
        << true;
    QTest::newRow("unit names are exact")
        << QStringList{"pickup", "Hopper1"}
        << "unknown unit \"Hopper1\" (the recycler has hopper1, hopper2, hopper3, "
           "hopper4, cashbox)"
        << false;
    QTest::newRow("cashbox takes no load")
        << QStringList{"loan", "cashbox", "5"}
        << "unit cashbox does not support manual-load (внесение вручную)" << false;
    QTest::newRow("cashbox has no sum pick-up")
        << QStringList{"pickup", "cashbox", "5", "--op", "manual-sum"}
        << "unit cashbox does not support manual-sum (выем суммы вручную)" << false;
    QTest::newRow("cashbox has no maintenance")
        << QStringList{"maintenance", "cashbox", "--done"}
        << "unit cashbox does not support maintenance (техобслуживание модуля)" << false;
}

void TestToolCli::refusedOnTheDeviceBeforeMoneyMoves()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    auto s = startWithCashbox();
    QVERIFY(s);
    const QString before = money(*s);
    const Result r = onPort(*s, args);
    QCOMPARE(r.status, 2);
    QVERIFY2(r.errText().startsWith(QStringLiteral("cpibcr: ") + message + QStringLiteral("\n") + usageLine),
             r.err.constData());
    QVERIFY(!s->transactions().isEmpty());
    QCOMPARE(money(*s), before);

    QFETCH(bool, json);
    if (!json)
        return;
    const Result inJson = jsonOnPort(*s, args);
    QCOMPARE(inJson.status, 2);
    const QJsonObject doc = document(inJson.out);
    QCOMPARE(doc.value(QStringLiteral("error")).toString(), message);
    QCOMPARE(doc.value(QStringLiteral("exitStatus")).toInt(), 2);
    QCOMPARE(doc.value(QStringLiteral("command")).toString(), args.first());
    QCOMPARE(money(*s), before);
}

void TestToolCli::badSimulatorConfiguration()
{
    const Result r = runTool({QStringLiteral("--sim-config"), data("bad.json"), QStringLiteral("status")});
    QCOMPARE(r.status, 2);
    QVERIFY2(r.errText().startsWith(QStringLiteral("cpibcr: --sim-config: ") + data("bad.json")),
             r.err.constData());

    const Result coin =
        runTool({QStringLiteral("accept"), QStringLiteral("--sim-coins"), QStringLiteral("3")});
    QCOMPARE(coin.status, 2);
    QVERIFY2(
        coin.errText().startsWith(QStringLiteral("cpibcr: --sim-coins: the simulator has no coin of 3.00 (it "
                                                 "knows 0.10, 0.50, 1.00, 2.00, 5.00, 10.00)\n")),
        coin.err.constData());
}

void TestToolCli::pluginAndPortFailures()
{
    const Result plugin = runTool(
        {QStringLiteral("--plugin"), QStringLiteral("/nonexistent/libcpibcr.so"), QStringLiteral("status")});
    QCOMPARE(plugin.status, 1);
    QVERIFY2(plugin.errText().startsWith(
                 QStringLiteral("cpibcr: cannot load the plug-in /nonexistent/libcpibcr.so")),
             plugin.err.constData());

    const Result port =
        runTool({QStringLiteral("--port"), QStringLiteral("/nonexistent/tty"), QStringLiteral("units")});
    QCOMPARE(port.status, 1);
    QVERIFY2(port.errText().startsWith(QStringLiteral("cpibcr: cannot open /nonexistent/tty")),
             port.err.constData());
}

void TestToolCli::statusText()
{
    const Result r = runTool({QStringLiteral("--sim-config"), data("fast.json"), QStringLiteral("status")});
    QCOMPARE(r.status, 0);
    const QStringList lines = r.outText().split(QLatin1Char('\n'));
    QCOMPARE(lines.value(0),
             QStringLiteral("device  Монетоприемник (coins): Драйвер монетоприемника CPI BCR"));
    QVERIFY(lines.value(1).startsWith(QStringLiteral("port    /dev/pts/")));
    QVERIFY(lines.value(1).endsWith(QStringLiteral(" (built-in simulator)")));
    QCOMPARE(lines.value(2), QStringLiteral("state   ok"));
    QCOMPARE(lines.value(4),
             QStringLiteral("unit     kind     denomination  count  capacity      sum  state"));
    QCOMPARE(lines.value(5), QStringLiteral("hopper1  hopper          10.00    200       800  2000.00  ok"));
    QCOMPARE(lines.value(9), QStringLiteral("cashbox  cashbox             -      -         -     0.00  ok"));
    QVERIFY(r.err.isEmpty());
}

void TestToolCli::statusJsonMatchesSimulator()
{
    auto s = startSimulator();
    QVERIFY(s);
    s->setHopperCount(2, 123);
    s->setCashbox(4567);
    const Result r = runTool(
        {QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"), QStringLiteral("status")});
    QCOMPARE(r.status, 0);
    const QJsonObject doc = document(r.out);
    QCOMPARE(doc.value(QStringLiteral("command")).toString(), QStringLiteral("status"));
    QCOMPARE(doc.value(QStringLiteral("state")).toString(), QStringLiteral("ok"));
    const QJsonObject device = doc.value(QStringLiteral("device")).toObject();
    QCOMPARE(device.value(QStringLiteral("name")).toString(), QStringLiteral("Монетоприемник"));
    QCOMPARE(device.value(QStringLiteral("model")).toString(), QString::fromUtf8("CPI B\xd0\xa1R"));
    QCOMPARE(device.value(QStringLiteral("port")).toString(), s->portPath());
    QCOMPARE(device.value(QStringLiteral("simulated")).toBool(), false);

    const QJsonArray units = doc.value(QStringLiteral("units")).toArray();
    QCOMPARE(units.size(), 5);
    for (int h = 1; h <= 4; ++h) {
        const QJsonObject u = unitNamed(units, QStringLiteral("hopper%1").arg(h));
        QCOMPARE(u.value(QStringLiteral("kind")).toString(), QStringLiteral("hopper"));
        QCOMPARE(u.value(QStringLiteral("count")).toInt(), s->hopperCount(h));
        QCOMPARE(u.value(QStringLiteral("sum")).toInt(),
                 s->hopperCount(h) * u.value(QStringLiteral("denom")).toInt());
    }
    QCOMPARE(unitNamed(units, QStringLiteral("hopper2")).value(QStringLiteral("count")).toInt(), 123);
    QCOMPARE(unitNamed(units, QStringLiteral("hopper1")).value(QStringLiteral("denom")).toInt(), 1000);
    QCOMPARE(unitNamed(units, QStringLiteral("hopper5")), QJsonObject());
    const QJsonObject cashbox = unitNamed(units, QStringLiteral("cashbox"));
    QCOMPARE(cashbox.value(QStringLiteral("sum")).toInt(), 4567);
    QCOMPARE(cashbox.value(QStringLiteral("operations")).toInt(), 0x10);
}

void TestToolCli::unitsText()
{
    auto s = startSimulator();
    QVERIFY(s);
    s->setHopperCount(1, 7);
    const Result r = runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("units")});
    QCOMPARE(r.status, 0);
    QCOMPARE(r.outText(), QStringLiteral("unit     kind     denomination  count  capacity      sum  state\n"
                                         "hopper1  hopper          10.00      7       800    70.00  ok\n"
                                         "hopper2  hopper           5.00    250       800  1250.00  ok\n"
                                         "hopper3  hopper           2.00    300      1000   600.00  ok\n"
                                         "hopper4  hopper           1.00    400      1000   400.00  ok\n"
                                         "cashbox  cashbox             -      -         -     0.00  ok\n"));
}

void TestToolCli::denomsJson()
{
    const Result r = runTool({QStringLiteral("--sim-config"), data("fast.json"), QStringLiteral("--json"),
                              QStringLiteral("denoms")});
    QCOMPARE(r.status, 0);
    QCOMPARE(QJsonDocument(document(r.out).value(QStringLiteral("denoms")).toArray())
                 .toJson(QJsonDocument::Compact),
             QByteArray("[100,200,500,1000]"));

    const Result text =
        runTool({QStringLiteral("--sim-config"), data("fast.json"), QStringLiteral("denoms")});
    QCOMPARE(text.outText(), QStringLiteral("1.00\n2.00\n5.00\n10.00\n"));
}

void TestToolCli::checkPaysNothing()
{
    auto s = startSimulator();
    QVERIFY(s);
    const QString before = money(*s);
    const Result yes = runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"),
                                QStringLiteral("check"), QStringLiteral("13")});
    QCOMPARE(yes.status, 0);
    QCOMPARE(document(yes.out), (QJsonObject{{QStringLiteral("command"), QStringLiteral("check")},
                                             {QStringLiteral("amount"), 1300},
                                             {QStringLiteral("mode"), QStringLiteral("optimal")},
                                             {QStringLiteral("payable"), true}}));

    const Result no = runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("check"),
                               QStringLiteral("0.10"), QStringLiteral("--mode"), QStringLiteral("minimum")});
    QCOMPARE(no.status, 0);
    QCOMPARE(no.outText(), QStringLiteral("0.10 cannot be paid as change (minimum)\n"));
    QCOMPARE(money(*s), before);
}

void TestToolCli::deviceFaultFailsWithDriverMessage()
{
    auto s = startSimulator();
    QVERIFY(s);
    s->setActivityBits(16);
    s->setErrorStatus(2, 4);
    const Result r =
        runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("check"), QStringLiteral("5")});
    QCOMPARE(r.status, 1);
    QVERIFY(r.out.isEmpty());
    QVERIFY2(r.err.endsWith(QStringLiteral("\nМонетоприемник: Хоппер 2 неисправен\n").toUtf8()),
             r.err.constData());
    QCOMPARE(moneyCommands(*s), 0);
}

void TestToolCli::payJsonMatchesSimulator()
{
    auto s = startSimulator();
    QVERIFY(s);
    const QList<int> before = hopperCounts(*s);
    const Result r =
        runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"), QStringLiteral("pay"),
                 QStringLiteral("18"), QStringLiteral("--mode"), QStringLiteral("minimum")});
    QCOMPARE(r.status, 0);
    const QJsonObject doc = document(r.out);
    QCOMPARE(doc.value(QStringLiteral("amount")).toInt(), 1800);
    QCOMPARE(doc.value(QStringLiteral("mode")).toString(), QStringLiteral("minimum"));
    const QJsonObject paid = doc.value(QStringLiteral("paid")).toObject();
    QCOMPARE(paid.value(QStringLiteral("sum")).toInt(), 1800);
    const QMap<unsigned int, long long> expected{{1000, 1}, {500, 1}, {200, 1}, {100, 1}};
    QCOMPARE(denoms(paid), expected);
    const QList<int> after = hopperCounts(*s);
    QCOMPARE(after, (QList<int>{before[0] - 1, before[1] - 1, before[2] - 1, before[3] - 1, before[4]}));
    QCOMPARE(s->countHeader(sim::cmd::DispenseHopperPattern), 1);
    QCOMPARE(s->coinsPaidOut(), quint64(1800));
}

void TestToolCli::payImpossibleLeavesHoppersAlone()
{
    auto s = startSimulator();
    QVERIFY(s);
    const QString before = money(*s);
    const Result r =
        runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("pay"), QStringLiteral("0.10")});
    QCOMPARE(r.status, 1);
    QVERIFY(r.out.isEmpty());
    QVERIFY2(r.err.endsWith(QStringLiteral("\nМонетоприемник: Невозможно выдать сумму\n").toUtf8()),
             r.err.constData());

    const Result json = runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"),
                                 QStringLiteral("pay"), QStringLiteral("0.10")});
    QCOMPARE(json.status, 1);
    QCOMPARE(document(json.out), (QJsonObject{{QStringLiteral("command"), QStringLiteral("pay")},
                                              {QStringLiteral("error"),
                                               QStringLiteral("Монетоприемник: Невозможно выдать сумму")},
                                              {QStringLiteral("exitStatus"), 1}}));
    QCOMPARE(money(*s), before);
}

void TestToolCli::driverRefusalsMoveNothing_data()
{
    testsupport::columns<QStringList, QString>("args", "message");
    // 400 coins in the hopper plus 70000 would not fit the device's 16-bit count.
    QTest::newRow("loan beyond the hopper count field")
        << QStringList{"loan", "hopper4", "70000"} << QStringLiteral("Монетоприемник: Некорректная сумма");
    QTest::newRow("largest amount the tool passes")
        << QStringList{"pay", "42949672.95"} << QStringLiteral("Монетоприемник: Невозможно выдать сумму");
}

void TestToolCli::driverRefusalsMoveNothing()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    auto s = startSimulator();
    QVERIFY(s);
    const QString before = money(*s);
    const Result r = onPort(*s, args);
    QCOMPARE(r.status, 1);
    QVERIFY2(r.err.endsWith((QStringLiteral("\n") + message + QStringLiteral("\n")).toUtf8()),
             r.err.constData());
    QCOMPARE(money(*s), before);
}

// A load or a payout that is not whole coins is refused with the driver's own message, before
// anything is sent: the same answer the driver and the panel give.
void TestToolCli::partCoinsRefusedAsTheDriver_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("manual load") << QStringList{"loan", "hopper2", "7"};
    QTest::newRow("dispense sum") << QStringList{"pickup", "hopper1", "3", "--op", "dispense-sum"};
}

void TestToolCli::partCoinsRefusedAsTheDriver()
{
    QFETCH(QStringList, args);
    const QString message = QStringLiteral("Монетоприемник: Некорректная сумма");
    auto s = startWithCashbox();
    QVERIFY(s);
    const QString before = money(*s);
    const Result r = onPort(*s, args);
    QCOMPARE(r.status, 1);
    QVERIFY(r.out.isEmpty());
    QCOMPARE(r.errText(), message + QStringLiteral("\n"));

    const Result inJson = jsonOnPort(*s, args);
    QCOMPARE(inJson.status, 1);
    QCOMPARE(document(inJson.out), (QJsonObject{{QStringLiteral("command"), args.first()},
                                                {QStringLiteral("error"), message},
                                                {QStringLiteral("exitStatus"), 1}}));
    QCOMPARE(money(*s), before);
}

void TestToolCli::loanManualLoad()
{
    auto s = startSimulator();
    QVERIFY(s);
    const Result r = runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"),
                              QStringLiteral("loan"), QStringLiteral("hopper2"), QStringLiteral("50")});
    QCOMPARE(r.status, 0);
    const QJsonObject doc = document(r.out);
    QCOMPARE(doc.value(QStringLiteral("operation")).toInt(), 0x20000);
    QCOMPARE(doc.value(QStringLiteral("operationName")).toString(), QStringLiteral("внесение вручную"));
    QCOMPARE(doc.value(QStringLiteral("before")).toObject().value(QStringLiteral("count")).toInt(), 250);
    QCOMPARE(doc.value(QStringLiteral("after")).toObject().value(QStringLiteral("count")).toInt(), 260);
    QCOMPARE(s->hopperCount(2), 260);

    const Result text = runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("loan"),
                                 QStringLiteral("hopper2"), QStringLiteral("5")});
    QCOMPARE(text.status, 0);
    QCOMPARE(text.outText(),
             QStringLiteral("loan of 5.00 into hopper2 (внесение вручную)\nhopper2: 260 -> 261 coins\n"));
    QCOMPARE(s->hopperCount(2), 261);
}

void TestToolCli::loanOtherOperationChangesNothing()
{
    auto s = startSimulator();
    QVERIFY(s);
    const Result r =
        runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("loan"), QStringLiteral("hopper1"),
                 QStringLiteral("10"), QStringLiteral("--op"), QStringLiteral("0x1000")});
    QCOMPARE(r.status, 0);
    QCOMPARE(
        r.outText(),
        QStringLiteral(
            "loan of 10.00 into hopper1 (внесение через основной приемник)\nhopper1: 200 -> 200 coins\n"));
    QCOMPARE(s->hopperCount(1), 200);
    QCOMPARE(moneyCommands(*s), 0);
}

void TestToolCli::pickupCashbox()
{
    auto s = startSimulator();
    QVERIFY(s);
    s->setCashbox(12550);
    const Result r = runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"),
                              QStringLiteral("pickup"), QStringLiteral("cashbox")});
    QCOMPARE(r.status, 0);
    const QJsonObject doc = document(r.out);
    QCOMPARE(doc.value(QStringLiteral("operationName")).toString(), QStringLiteral("выем всего вручную"));
    QVERIFY(doc.value(QStringLiteral("amount")).isNull());
    const QJsonObject taken = doc.value(QStringLiteral("taken")).toObject();
    QCOMPARE(taken.value(QStringLiteral("rest")).toInt(), 12550);
    QCOMPARE(taken.value(QStringLiteral("sum")).toInt(), 12550);
    QCOMPARE(doc.value(QStringLiteral("after")).toObject().value(QStringLiteral("sum")).toInt(), 0);
    QCOMPARE(s->cashbox(), 0u);
    QCOMPARE(s->countHeader(sim::cmd::ModCashboxValue), 1);
}

// A manual sum pick-up takes the whole coins the amount covers, at most what the hopper holds;
// 12.00 from a hopper of 5.00 coins takes two, as the driver does.
void TestToolCli::pickupManualSumTakesWholeCoinsAtMostTheCount_data()
{
    testsupport::columns<int, int, QString, QString, int>("hopper", "count", "amount", "output", "left");
    QTest::newRow("at most the count") << 1 << 3 << "50"
                                       << "pickup from hopper1 (выем суммы вручную)\n"
                                          "denomination  count    sum\n"
                                          "       10.00      3  30.00\n"
                                          "       total         30.00\n"
                                          "hopper1: 3 -> 0 coins\n"
                                       << 0;
    QTest::newRow("part of a coin") << 2 << 250 << "12"
                                    << "pickup from hopper2 (выем суммы вручную)\n"
                                       "denomination  count    sum\n"
                                       "        5.00      2  10.00\n"
                                       "       total         10.00\n"
                                       "hopper2: 250 -> 248 coins\n"
                                    << 248;
}

void TestToolCli::pickupManualSumTakesWholeCoinsAtMostTheCount()
{
    QFETCH(int, hopper);
    QFETCH(int, count);
    QFETCH(QString, amount);
    QFETCH(QString, output);
    QFETCH(int, left);
    auto s = startSimulator();
    QVERIFY(s);
    s->setHopperCount(hopper, count);
    const Result r = runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("pickup"),
                              QStringLiteral("hopper%1").arg(hopper), amount, QStringLiteral("--op"),
                              QStringLiteral("manual-sum")});
    QCOMPARE(r.status, 0);
    QCOMPARE(r.outText(), output);
    QCOMPARE(s->hopperCount(hopper), left);
    QCOMPARE(s->coinsPaidOut(), quint64(0));
}

void TestToolCli::pickupThroughTheDispenser()
{
    auto s = startSimulator();
    QVERIFY(s);
    const Result sum = runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"),
                                QStringLiteral("pickup"), QStringLiteral("hopper3"), QStringLiteral("4"),
                                QStringLiteral("--op"), QStringLiteral("0x200")});
    QCOMPARE(sum.status, 0);
    const QJsonObject taken = document(sum.out).value(QStringLiteral("taken")).toObject();
    QCOMPARE(denoms(taken), (QMap<unsigned int, long long>{{200, 2}}));
    QCOMPARE(s->hopperCount(3), 298);
    QCOMPARE(s->coinsPaidOut(), quint64(400));
    // Emptying a hopper through the dispenser is the driver's behaviour, checked in process
    // (tests/plugin/tst_sim.cpp); here the operation number reaches it.
}

void TestToolCli::countersJsonAndText()
{
    // What the counters count after coins moved is the driver's behaviour, checked in
    // process (tests/plugin/tst_sim.cpp); here the command's forms.
    auto s = startSimulator();
    QVERIFY(s);
    const QString port = s->portPath();
    const Result both =
        runTool({QStringLiteral("--port"), port, QStringLiteral("--json"), QStringLiteral("counters")});
    QCOMPARE(both.status, 0);
    const QJsonObject zero = document(both.out);
    QCOMPARE(zero.value(QStringLiteral("accepted")).toObject().value(QStringLiteral("sum")).toInt(), 0);
    QCOMPARE(zero.value(QStringLiteral("dispensed")).toObject().value(QStringLiteral("sum")).toInt(), 0);

    const Result dispensed = runTool({QStringLiteral("--port"), port, QStringLiteral("--json"),
                                      QStringLiteral("counters"), QStringLiteral("dispensed")});
    QCOMPARE(dispensed.status, 0);
    const QJsonObject doc = document(dispensed.out);
    QVERIFY(!doc.contains(QStringLiteral("accepted")));
    QVERIFY(doc.contains(QStringLiteral("dispensed")));

    const Result text =
        runTool({QStringLiteral("--port"), port, QStringLiteral("counters"), QStringLiteral("accepted")});
    QCOMPARE(text.outText(),
             QStringLiteral("accepted (внесений)\ndenomination  count   sum\n       total         0.00\n"));
    QCOMPARE(moneyCommands(*s), 0);
}

void TestToolCli::maintenance()
{
    auto s = startSimulator();
    QVERIFY(s);
    const Result r = runTool(
        {QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"), QStringLiteral("maintenance")});
    QCOMPARE(r.status, 0);
    const QJsonArray units = document(r.out).value(QStringLiteral("units")).toArray();
    QCOMPARE(units.size(), 4);
    for (int i = 0; i < 4; ++i)
        QCOMPARE(units.at(i).toObject().value(QStringLiteral("unit")).toString(),
                 QStringLiteral("hopper%1").arg(i + 1));

    const Result done =
        runTool({QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"),
                 QStringLiteral("maintenance"), QStringLiteral("hopper2"), QStringLiteral("--done")});
    QCOMPARE(done.status, 0);
    const QJsonObject doc = document(done.out);
    QCOMPARE(doc.value(QStringLiteral("done")).toBool(), true);
    QCOMPARE(doc.value(QStringLiteral("units")).toArray().size(), 1);
    const QJsonObject record = doc.value(QStringLiteral("units")).toArray().at(0).toObject();
    QCOMPARE(record.value(QStringLiteral("unit")).toString(), QStringLiteral("hopper2"));
    QCOMPARE(record.value(QStringLiteral("ok")).toBool(), true);
    QCOMPARE(record.value(QStringLiteral("cycles")).toInt(), 0);
}

void TestToolCli::acceptWithSimulatedCoins()
{
    const Result r =
        runTool({QStringLiteral("--sim-config"), data("fast.json"), QStringLiteral("--json"),
                 QStringLiteral("accept"), QStringLiteral("--sim-coins"), QStringLiteral("10,2,0.50")});
    QCOMPARE(r.status, 0);
    const QList<QJsonObject> list = events(r.out);
    QVERIFY(list.size() >= 3);
    QCOMPARE(list.first().value(QStringLiteral("event")).toString(), QStringLiteral("accepting"));
    QCOMPARE(
        QJsonDocument(list.first().value(QStringLiteral("denoms")).toArray()).toJson(QJsonDocument::Compact),
        QByteArray("[100,200,500,1000]"));
    QMap<unsigned int, long long> received;
    for (int i = 1; i + 1 < list.size(); ++i) {
        QCOMPARE(list.at(i).value(QStringLiteral("event")).toString(), QStringLiteral("received"));
        for (auto [denom, count] : denoms(list.at(i)).toStdMap())
            received[denom] += count;
    }
    // 0.50 goes to no hopper, so the recycler does not take it.
    QCOMPARE(received, (QMap<unsigned int, long long>{{200, 1}, {1000, 1}}));
    const QJsonObject total = list.last();
    QCOMPARE(total.value(QStringLiteral("event")).toString(), QStringLiteral("total"));
    QCOMPARE(total.value(QStringLiteral("sum")).toInt(), 1200);
    QCOMPARE(denoms(total), received);
}

void TestToolCli::acceptExcludedDenomination()
{
    auto s = startSimulator();
    QVERIFY(s);
    QProcess p;
    p.setProcessEnvironment(cLocale());
    p.start(QStringLiteral(CPIBCR_TOOL),
            {QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"), QStringLiteral("accept"),
             QStringLiteral("--exclude"), QStringLiteral("10")});
    QByteArray seen;
    QVERIFY(waitForOutput(p, seen, "\"event\":\"accepting\""));
    s->insertCoin(4); // 10.00, refused this time
    s->insertCoin(2); // 2.00
    // Both coins are decided together: the refused one never lands.
    QVERIFY(waitForOutput(p, seen, "\"event\":\"received\""));
    QCOMPARE(::kill(pid_t(p.processId()), SIGINT), 0);
    QVERIFY(p.waitForFinished(60000));
    seen += p.readAllStandardOutput();
    QCOMPARE(p.exitCode(), 0);
    const QList<QJsonObject> list = events(seen);
    QCOMPARE(
        QJsonDocument(list.first().value(QStringLiteral("denoms")).toArray()).toJson(QJsonDocument::Compact),
        QByteArray("[100,200,500]"));
    QCOMPARE(list.last().value(QStringLiteral("event")).toString(), QStringLiteral("total"));
    QCOMPARE(denoms(list.last()), (QMap<unsigned int, long long>{{200, 1}}));
    QCOMPARE(s->hopperCount(1), 200);
    QCOMPARE(s->hopperCount(3), 301);
    QCOMPARE(s->inhibitMask(), quint16(0));
}

void TestToolCli::acceptStopsOnSignal_data()
{
    testsupport::columns<int, bool>("signo", "waitForReport");
    QTest::newRow("SIGINT after a report") << int(SIGINT) << true;
    QTest::newRow("SIGTERM after a report") << int(SIGTERM) << true;
    // The coin may still be in the acceptor when the signal comes: the final poll of the stop reports it.
    QTest::newRow("SIGINT with a coin in flight") << int(SIGINT) << false;
}

void TestToolCli::acceptStopsOnSignal()
{
    QFETCH(int, signo);
    QFETCH(bool, waitForReport);
    auto s = startSimulator();
    QVERIFY(s);
    QProcess p;
    p.setProcessEnvironment(cLocale());
    p.start(QStringLiteral(CPIBCR_TOOL),
            {QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"), QStringLiteral("accept")});
    QByteArray seen;
    QVERIFY(waitForOutput(p, seen, "\"event\":\"accepting\""));
    s->insertCoin(4);
    if (waitForReport)
        QVERIFY(waitForOutput(p, seen, "\"event\":\"received\""));
    QCOMPARE(::kill(pid_t(p.processId()), signo), 0);
    QVERIFY(p.waitForFinished(60000));
    seen += p.readAllStandardOutput();
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 0);
    const QList<QJsonObject> list = events(seen);
    QCOMPARE(list.last().value(QStringLiteral("event")).toString(), QStringLiteral("total"));
    QCOMPARE(list.last().value(QStringLiteral("sum")).toInt(), 1000);
    QCOMPARE(s->hopperCount(1), 201);
    QCOMPARE(s->inhibitMask(), quint16(0));
}

void TestToolCli::watchReportsFault()
{
    // The fault appears when connecting reads the cashbox, the last step of its unit discovery:
    // connecting passes, and the first check after it finds the fault.
    auto s = startSimulator("fast.json");
    QVERIFY(s);
    s->whenRequested(sim::cmd::ReqCashboxValue, [](sim::Device& device) {
        device.setActivityBits(16);
        device.setErrorStatus(2, 4);
    });
    QProcess p;
    p.setProcessEnvironment(cLocale());
    p.start(QStringLiteral(CPIBCR_TOOL),
            {QStringLiteral("--port"), s->portPath(), QStringLiteral("--json"), QStringLiteral("watch"),
             QStringLiteral("--seconds"), QStringLiteral("1")});
    QVERIFY(p.waitForFinished(60000));
    QCOMPARE(p.exitCode(), 0);
    const QList<QJsonObject> list = events(p.readAllStandardOutput());
    QCOMPARE(list.size(), 3);
    QCOMPARE(list.at(0), (QJsonObject{{QStringLiteral("event"), QStringLiteral("watching")},
                                      {QStringLiteral("seconds"), 1}}));
    QCOMPARE(list.at(1), (QJsonObject{{QStringLiteral("event"), QStringLiteral("error")},
                                      {QStringLiteral("message"),
                                       QStringLiteral("Монетоприемник: Хоппер 2 неисправен")}}));
    QCOMPARE(list.at(2), (QJsonObject{{QStringLiteral("event"), QStringLiteral("stopped")},
                                      {QStringLiteral("errors"), 1}}));
}

void TestToolCli::traceShowsFrames()
{
    const Result r = runTool({QStringLiteral("--sim-config"), data("fast.json"), QStringLiteral("--log"),
                              QStringLiteral("trace"), QStringLiteral("denoms")});
    QCOMPARE(r.status, 0);
    QVERIFY(r.err.contains(QStringLiteral("Отправка:").toUtf8()));
    QVERIFY(r.err.contains(QStringLiteral("Получено:").toUtf8()));
    QVERIFY(r.err.contains(QStringLiteral("Инициализация устройства").toUtf8()));

    const Result quiet =
        runTool({QStringLiteral("--sim-config"), data("fast.json"), QStringLiteral("denoms")});
    QCOMPARE(quiet.status, 0);
    QVERIFY(quiet.err.isEmpty());
}

void TestToolCli::logConfigWritesUtf8File()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString logFile = dir.filePath(QStringLiteral("cpibcr.log"));
    QFile example(QStringLiteral(CPIBCR_LOG_CONFIG_EXAMPLE));
    QVERIFY(example.open(QIODevice::ReadOnly));
    QString properties = QString::fromUtf8(example.readAll());
    properties.replace(QStringLiteral("/var/log/cpibcr/cpibcr.log"), logFile);
    QFile config(dir.filePath(QStringLiteral("log.properties")));
    QVERIFY(config.open(QIODevice::WriteOnly));
    config.write(properties.toUtf8());
    config.close();

    const Result r = runTool({QStringLiteral("--sim-config"), data("fast.json"),
                              QStringLiteral("--log-config"), config.fileName(), QStringLiteral("units")});
    QCOMPARE(r.status, 0);
    QFile written(logFile);
    QVERIFY(written.open(QIODevice::ReadOnly));
    const QByteArray text = written.readAll();
    QVERIFY2(text.contains(QStringLiteral("INFO  cpibcr - Инициализация устройства").toUtf8()),
             text.constData());

    const Result missing = runTool(
        {QStringLiteral("--log-config"), dir.filePath(QStringLiteral("none")), QStringLiteral("units")});
    QCOMPARE(missing.status, 2);
    QVERIFY(missing.errText().startsWith(QStringLiteral("cpibcr: cannot read log configuration")));
}

void TestToolCli::stateAcrossInvocationsOfTheSimulatorProgram()
{
#ifdef CPIBCR_SIM_PROGRAM
    QProcess simulator;
    simulator.start(QStringLiteral(CPIBCR_SIM_PROGRAM), {QStringLiteral("--config"), data("fast.json")});
    QByteArray seen;
    QVERIFY(waitForOutput(simulator, seen, "\n"));
    QVERIFY2(seen.startsWith("port: "), seen.constData());
    const QString port = QString::fromUtf8(seen.mid(6, seen.indexOf('\n') - 6));

    QCOMPARE(runTool({QStringLiteral("--port"), port, QStringLiteral("loan"), QStringLiteral("hopper1"),
                      QStringLiteral("100")})
                 .status,
             0);
    // The second run starts from what the first one left.
    const Result pickup = runTool({QStringLiteral("--port"), port, QStringLiteral("--json"),
                                   QStringLiteral("pickup"), QStringLiteral("hopper1"), QStringLiteral("30"),
                                   QStringLiteral("--op"), QStringLiteral("manual-sum")});
    QCOMPARE(pickup.status, 0);
    QCOMPARE(denoms(document(pickup.out).value(QStringLiteral("taken")).toObject()),
             (QMap<unsigned int, long long>{{1000, 3}}));

    seen.clear();
    simulator.write("status\n");
    QVERIFY(waitForOutput(simulator, seen, "accepted value"));
    QVERIFY2(seen.contains("hopper 1: RU1K0A count 207 capacity 800"), seen.constData());

    const Result units =
        runTool({QStringLiteral("--port"), port, QStringLiteral("--json"), QStringLiteral("units")});
    QCOMPARE(
        unitNamed(document(units.out).value(QStringLiteral("units")).toArray(), QStringLiteral("hopper1"))
            .value(QStringLiteral("count"))
            .toInt(),
        207);
    simulator.write("quit\n");
    QVERIFY(simulator.waitForFinished(10000));
#else
    QSKIP("the cpibcr-sim program is not built");
#endif
}

void TestToolCli::demo()
{
    const Result r = runTool({QStringLiteral("--sim-config"), data("fast.json"), QStringLiteral("demo")});
    QCOMPARE(r.status, 0);
    const QString text = r.outText();
    for (const QString& part :
         {QStringLiteral("== 1. Connect and check the device\n"
                         "Монетоприемник (coins): Драйвер монетоприемника CPI BCR, state ok\n"),
          QStringLiteral("\n== 2. Cash units\nunit     kind     denomination"),
          QStringLiteral(
              "  Accepting 1.00, 2.00, 5.00, 10.00; the simulator drops in 10.00, 5.00, 2.00, 2.00\n"),
          QStringLiteral("  accepted 19.00  (2.00 x 2, 5.00 x 1, 10.00 x 1)\n"),
          QStringLiteral("  can 13.00 be paid? yes\n  paid 13.00  ("),
          QStringLiteral("  accepted  19.00  (2.00 x 2, 5.00 x 1, 10.00 x 1)\n  dispensed 13.00  ("),
          QStringLiteral("== 6. Cash units afterwards\n"),
          QStringLiteral("hopper1  hopper          10.00    201       800  2010.00  ok\n")})
        QVERIFY2(text.contains(part), qPrintable(text));
    QVERIFY(r.err.isEmpty());
}

QTEST_GUILESS_MAIN(TestToolCli)
#include "tst_toolcli.moc"
