#include "hostkit/amount.h"
#include "hostkit/keys.h"
#include "tools/arguments.h"
#include "tools/commandtable.h"
#include "tools/usage.h"

#include "cashcontrol/ecashcontrol.h"
#include "support/columns.h"

#include <QtTest>

using tool::Command;
using tool::ParseResult;

Q_DECLARE_METATYPE(tool::Command)

class TestToolArguments : public QObject
{
    Q_OBJECT

private slots:
    void parseAmount_data();
    void parseAmount();
    void refusedAmountKeepsOutput();
    void formatAmount_data();
    void formatAmount();
    void amountRoundTrip();
    void parseAmountList();
    void parseOperation_data();
    void parseOperation();
    void operationFamilies();
    void parseMode();

    void commands_data();
    void commands();
    void usageErrors_data();
    void usageErrors();
    void help();
    void globalOptionsAnywhere();
    void acceptOptions();
    void loanDefaults();
    void pickupDefaultsAndAmounts();
    void countersSelection();
    void maintenanceArguments();
    void traceArguments();
};

void TestToolArguments::parseAmount_data()
{
    testsupport::columns<QString, bool, qlonglong, QString>("text", "ok", "minor", "error");

    QTest::newRow("whole") << "15" << true << 1500LL << QString();
    QTest::newRow("two decimals") << "15.50" << true << 1550LL << QString();
    QTest::newRow("one decimal") << "15.5" << true << 1550LL << QString();
    QTest::newRow("one kopeck") << "0.01" << true << 1LL << QString();
    QTest::newRow("zero") << "0" << true << 0LL << QString();
    QTest::newRow("leading zeros") << "0007.05" << true << 705LL << QString();
    QTest::newRow("largest") << "42949672.95" << true << 4294967295LL << QString();
    QTest::newRow("largest with leading zeros") << "00000042949672.95" << true << 4294967295LL << QString();
    QTest::newRow("negative") << "-1" << false << 0LL << QStringLiteral("amount \"-1\" is negative");
    QTest::newRow("three decimals") << "1.234" << false << 0LL
                                    << QStringLiteral("amount \"1.234\" has more than two decimals");
    QTest::newRow("letters") << "abc" << false << 0LL
                             << QStringLiteral("amount \"abc\" is not a number such as 15 or 15.50");
    QTest::newRow("empty") << "" << false << 0LL << QStringLiteral("an amount is required");
    QTest::newRow("one kopeck too many")
        << "42949672.96" << false << 0LL
        << QStringLiteral(
               "amount \"42949672.96\" is larger than the device can handle (at most 42949672.95)");
    QTest::newRow("nine digits") << "100000000" << false << 0LL
                                 << QStringLiteral(
                                        "amount \"100000000\" is larger than the device can handle "
                                        "(at most 42949672.95)");
    QTest::newRow("beyond 64 bits") << "99999999999999999999999" << false << 0LL
                                    << QStringLiteral("amount \"99999999999999999999999\" is larger than the "
                                                      "device can handle (at most 42949672.95)");
    QTest::newRow("comma") << "15,50" << false << 0LL
                           << QStringLiteral("amount \"15,50\": use a point for the decimals, as in 15.50");
    const QList<QPair<const char*, QString>> notNumbers = {
        {"trailing point", QStringLiteral("15.")},
        {"leading point", QStringLiteral(".5")},
        {"plus sign", QStringLiteral("+5")},
        {"blank", QStringLiteral(" 5")},
        {"exponent", QStringLiteral("1e3")},
        {"two points", QStringLiteral("1.2.3")},
        {"arabic-indic digits", QString::fromUtf8("\xd9\xa1\xd9\xa2")},
    };
    for (const auto& row : notNumbers)
        QTest::newRow(row.first)
            << row.second << false << 0LL
            << QStringLiteral("amount \"%1\" is not a number such as 15 or 15.50").arg(row.second);
}

void TestToolArguments::parseAmount()
{
    QFETCH(QString, text);
    QFETCH(bool, ok);
    QFETCH(qlonglong, minor);
    QFETCH(QString, error);

    long long value = -42;
    QString why;
    QCOMPARE(hostkit::parseAmount(text, &value, &why), ok);
    if (ok) {
        QCOMPARE(value, minor);
        QVERIFY(why.isEmpty());
    } else {
        QCOMPARE(why, error);
    }
}

void TestToolArguments::refusedAmountKeepsOutput()
{
    long long value = 777;
    QString why;
    QVERIFY(!hostkit::parseAmount(QStringLiteral("42949672.96"), &value, &why));
    QCOMPARE(value, 777LL);
}

void TestToolArguments::formatAmount_data()
{
    testsupport::columns<qlonglong, QString>("minor", "text");
    QTest::newRow("zero") << 0LL << "0.00";
    QTest::newRow("kopeck") << 1LL << "0.01";
    QTest::newRow("ten kopecks") << 10LL << "0.10";
    QTest::newRow("fifteen fifty") << 1550LL << "15.50";
    QTest::newRow("largest device amount") << 4294967295LL << "42949672.95";
    QTest::newRow("negative") << -5LL << "-0.05";
    QTest::newRow("negative whole") << -1500LL << "-15.00";
    QTest::newRow("smallest long long") << std::numeric_limits<long long>::min() << "-92233720368547758.08";
    QTest::newRow("largest long long") << std::numeric_limits<long long>::max() << "92233720368547758.07";
}

void TestToolArguments::formatAmount()
{
    QFETCH(qlonglong, minor);
    QFETCH(QString, text);
    QCOMPARE(hostkit::formatAmount(minor), text);
}

void TestToolArguments::amountRoundTrip()
{
    for (long long v : {0LL, 1LL, 99LL, 100LL, 101LL, 1550LL, 123456789LL, hostkit::maxAmount}) {
        long long back = -1;
        QString why;
        QVERIFY2(hostkit::parseAmount(hostkit::formatAmount(v), &back, &why), qPrintable(why));
        QCOMPARE(back, v);
    }
}

void TestToolArguments::parseAmountList()
{
    QList<long long> values;
    QString why;
    QVERIFY(hostkit::parseAmountList(QStringLiteral("10,5, 0.50"), &values, &why));
    QCOMPARE(values, (QList<long long>{1000, 500, 50}));

    values = {1};
    QVERIFY(!hostkit::parseAmountList(QStringLiteral("10,,5"), &values, &why));
    QCOMPARE(why, QStringLiteral("an amount is required"));
    QCOMPARE(values, QList<long long>{1});
    QVERIFY(!hostkit::parseAmountList(QStringLiteral("10,-5"), &values, &why));
    QCOMPARE(why, QStringLiteral("amount \"-5\" is negative"));
}

void TestToolArguments::parseOperation_data()
{
    testsupport::columns<QString, bool, int>("text", "ok", "operation");

    QTest::newRow("manual-load") << "manual-load" << true << 0x20000;
    QTest::newRow("manual-all") << "manual-all" << true << 0x10;
    QTest::newRow("manual-sum") << "manual-sum" << true << 0x20;
    QTest::newRow("dispense-all") << "dispense-all" << true << 0x100;
    QTest::newRow("dispense-sum") << "dispense-sum" << true << 0x200;
    QTest::newRow("hex") << "0x200" << true << 0x200;
    QTest::newRow("upper hex") << "0X20000" << true << 0x20000;
    QTest::newRow("decimal") << "512" << true << 0x200;
    QTest::newRow("maintenance bit") << "0x8000000" << true << 0x8000000;
    QTest::newRow("two bits") << "0x30" << false << 0;
    QTest::newRow("unknown bit") << "0x8" << false << 0;
    QTest::newRow("zero") << "0" << false << 0;
    QTest::newRow("negative") << "-512" << false << 0;
    QTest::newRow("case matters") << "Manual-Load" << false << 0;
    QTest::newRow("word") << "load" << false << 0;
    QTest::newRow("empty") << "" << false << 0;
    QTest::newRow("bad hex") << "0xZZ" << false << 0;
}

void TestToolArguments::parseOperation()
{
    QFETCH(QString, text);
    QFETCH(bool, ok);
    QFETCH(int, operation);
    int value = -1;
    QString why;
    QCOMPARE(hostkit::parseOperation(text, &value, &why), ok);
    if (ok) {
        QCOMPARE(value, operation);
    } else {
        QCOMPARE(value, -1);
        QCOMPARE(why, QStringLiteral("unknown operation \"%1\" (manual-load, manual-all, manual-sum, "
                                     "dispense-all, dispense-sum, or a unit operation number such as 0x200)")
                          .arg(text));
    }
}

void TestToolArguments::operationFamilies()
{
    QVERIFY(tool::isLoadOperation(ECashControl::ManualLoad));
    QVERIFY(tool::isLoadOperation(ECashControl::LoadMainAcceptor));
    QVERIFY(tool::isLoadOperation(ECashControl::LoadLoader));
    QVERIFY(!tool::isLoadOperation(ECashControl::ManualPickupAll));
    QVERIFY(!tool::isLoadOperation(ECashControl::Maintenance));

    for (int op : {0x1, 0x2, 0x4, 0x10, 0x20, 0x100, 0x200})
        QVERIFY2(tool::isPickupOperation(op), qPrintable(QString::number(op, 16)));
    for (int op : {0x1000, 0x10000, 0x20000, 0x1000000, 0x2000000, 0x8000000, 0x30})
        QVERIFY2(!tool::isPickupOperation(op), qPrintable(QString::number(op, 16)));

    QVERIFY(tool::operationTakesAmount(ECashControl::ManualPickupSum));
    QVERIFY(tool::operationTakesAmount(ECashControl::DispensePickupSum));
    QVERIFY(tool::operationTakesAmount(ECashControl::PickupSumToCashbox));
    QVERIFY(!tool::operationTakesAmount(ECashControl::ManualPickupAll));
    QVERIFY(!tool::operationTakesAmount(ECashControl::DispensePickupAll));

    QCOMPARE(hostkit::operationKey(0x20000), QStringLiteral("manual-load"));
    QCOMPARE(hostkit::operationKey(0x200), QStringLiteral("dispense-sum"));
    QCOMPARE(hostkit::operationKey(0x1000), QStringLiteral("0x1000"));
}

void TestToolArguments::parseMode()
{
    int mode = -1;
    QString why;
    QVERIFY(hostkit::parseMode(QStringLiteral("optimal"), &mode, &why));
    QCOMPARE(mode, int(ECashControl::Optimal));
    QVERIFY(hostkit::parseMode(QStringLiteral("minimum"), &mode, &why));
    QCOMPARE(mode, int(ECashControl::Minimum));
    QVERIFY(!hostkit::parseMode(QStringLiteral("fast"), &mode, &why));
    QCOMPARE(why, QStringLiteral("unknown change mode \"fast\" (optimal or minimum)"));
    QCOMPARE(hostkit::modeKey(ECashControl::Optimal), QStringLiteral("optimal"));
    QCOMPARE(hostkit::modeKey(ECashControl::Minimum), QStringLiteral("minimum"));
}

void TestToolArguments::commands_data()
{
    testsupport::columns<QStringList, Command>("args", "command");
    QTest::newRow("status") << QStringList{"status"} << Command::Status;
    QTest::newRow("units") << QStringList{"units"} << Command::Units;
    QTest::newRow("denoms") << QStringList{"denoms"} << Command::Denoms;
    QTest::newRow("accept") << QStringList{"accept"} << Command::Accept;
    QTest::newRow("check") << QStringList{"check", "5"} << Command::Check;
    QTest::newRow("pay") << QStringList{"pay", "5"} << Command::Pay;
    QTest::newRow("loan") << QStringList{"loan", "hopper1", "10"} << Command::Loan;
    QTest::newRow("pickup") << QStringList{"pickup", "cashbox"} << Command::Pickup;
    QTest::newRow("counters") << QStringList{"counters"} << Command::Counters;
    QTest::newRow("maintenance") << QStringList{"maintenance"} << Command::Maintenance;
    QTest::newRow("watch") << QStringList{"watch"} << Command::Watch;
    QTest::newRow("demo") << QStringList{"demo"} << Command::Demo;
    QTest::newRow("ports") << QStringList{"ports"} << Command::Ports;
    QTest::newRow("trace") << QStringList{"trace", "site.trace"} << Command::Trace;
}

void TestToolArguments::commands()
{
    QFETCH(QStringList, args);
    QFETCH(Command, command);
    const ParseResult r = tool::parseArguments(args);
    QCOMPARE(r.status, ParseResult::Ok);
    QCOMPARE(r.args.command, command);
    QCOMPARE(r.args.commandName, args.first());
    QCOMPARE(tool::commandOf(command).command, command);
    QCOMPARE(QLatin1String(tool::commandOf(command).name), args.first());
    QVERIFY(r.args.port.isEmpty());
    QVERIFY(!r.args.json);
}

void TestToolArguments::usageErrors_data()
{
    testsupport::columns<QStringList, QString>("args", "error");
    QTest::newRow("nothing") << QStringList{} << "no command given";
    QTest::newRow("unknown command") << QStringList{"dispense"} << "unknown command \"dispense\"";
    QTest::newRow("unknown option") << QStringList{"status", "--colour"} << "unknown option --colour";
    QTest::newRow("option of another command")
        << QStringList{"status", "--mode", "optimal"} << "--mode is not an option of status";
    QTest::newRow("missing value") << QStringList{"status", "--port"} << "--port needs a value";
    QTest::newRow("value for a flag") << QStringList{"status", "--json=yes"} << "--json takes no value";
    QTest::newRow("trace without a file") << QStringList{"trace"} << "trace: missing arguments";
    QTest::newRow("trace of a port")
        << QStringList{"trace", "a.trace", "--port", "/dev/ttyUSB0"}
        << "trace reads a recording and takes no --port, --plugin, --sim-config or "
           "--trace";
    QTest::newRow("trace while tracing")
        << QStringList{"--trace", "b.trace", "trace", "a.trace"}
        << "trace reads a recording and takes no --port, --plugin, --sim-config "
           "or --trace";
    QTest::newRow("summary of another command")
        << QStringList{"status", "--summary"} << "--summary is not an option of status";
    QTest::newRow("recording ports") << QStringList{"ports", "--trace", "a.trace"}
                                     << "ports opens no port and has no line to record";
    QTest::newRow("trace without a file name") << QStringList{"status", "--trace="} << "--trace needs a file";
    QTest::newRow("bad log level") << QStringList{"--log", "verbose", "status"}
                                   << "unknown log level \"verbose\" (error, warn, info, debug, trace)";
    QTest::newRow("pay without amount") << QStringList{"pay"} << "pay: missing arguments";
    QTest::newRow("pay two amounts") << QStringList{"pay", "1", "2"} << "pay: unexpected argument \"2\"";
    QTest::newRow("pay negative") << QStringList{"pay", "-1"} << "amount \"-1\" is negative";
    QTest::newRow("pay negative fraction") << QStringList{"pay", "-0.5"} << "amount \"-0.5\" is negative";
    QTest::newRow("pay zero") << QStringList{"pay", "0"} << "amount \"0\" must be greater than zero";
    QTest::newRow("pay three decimals")
        << QStringList{"pay", "1.234"} << "amount \"1.234\" has more than two decimals";
    QTest::newRow("pay malformed") << QStringList{"pay", "abc"}
                                   << "amount \"abc\" is not a number such as 15 or 15.50";
    QTest::newRow("pay too large")
        << QStringList{"pay", "42949672.96"}
        << "amount \"42949672.96\" is larger than the device can handle (at most 42949672.95)";
    QTest::newRow("pay bad mode") << QStringList{"pay", "5", "--mode", "greedy"}
                                  << "unknown change mode \"greedy\" (optimal or minimum)";
    QTest::newRow("check negative") << QStringList{"check", "-5"} << "amount \"-5\" is negative";
    QTest::newRow("loan negative") << QStringList{"loan", "hopper1", "-5"} << "amount \"-5\" is negative";
    QTest::newRow("loan without amount") << QStringList{"loan", "hopper1"} << "loan: missing arguments";
    QTest::newRow("loan with a pick-up operation")
        << QStringList{"loan", "hopper1", "5", "--op", "manual-all"}
        << "loan: manual-all is not a load operation (manual-load, 0x1000, 0x10000)";
    QTest::newRow("loan unknown operation") << QStringList{"loan", "hopper1", "5", "--op", "0x3"}
                                            << "unknown operation \"0x3\" (manual-load, manual-all, "
                                               "manual-sum, dispense-all, dispense-sum, or a unit "
                                               "operation number such as 0x200)";
    QTest::newRow("pickup with a load operation") << QStringList{"pickup", "hopper1", "--op", "manual-load"}
                                                  << "pickup: manual-load is not a pick-up operation "
                                                     "(manual-all, manual-sum, dispense-all, dispense-sum, "
                                                     "0x1, 0x2, 0x4)";
    QTest::newRow("pickup sum without amount")
        << QStringList{"pickup", "hopper1", "--op", "dispense-sum"} << "pickup: dispense-sum needs an AMOUNT";
    QTest::newRow("pickup all with amount")
        << QStringList{"pickup", "hopper1", "5"} << "pickup: manual-all takes everything and no AMOUNT";
    QTest::newRow("pickup negative") << QStringList{"pickup", "hopper1", "-5", "--op", "0x200"}
                                     << "amount \"-5\" is negative";
    QTest::newRow("pickup too large")
        << QStringList{"pickup", "hopper1", "50000000", "--op", "manual-sum"}
        << "amount \"50000000\" is larger than the device can handle (at most 42949672.95)";
    QTest::newRow("counters unknown")
        << QStringList{"counters", "paid"} << "unknown counter \"paid\" (accepted or dispensed)";
    QTest::newRow("maintenance done without unit")
        << QStringList{"maintenance", "--done"} << "maintenance --done needs a UNIT";
    QTest::newRow("accept bad seconds")
        << QStringList{"accept", "--seconds", "soon"}
        << "--seconds takes a whole number of seconds from 0 to 86400, not \"soon\"";
    QTest::newRow("accept negative seconds")
        << QStringList{"accept", "--seconds=-1"}
        << "--seconds takes a whole number of seconds from 0 to 86400, not \"-1\"";
    QTest::newRow("accept bad exclude") << QStringList{"accept", "--exclude", "5,x"}
                                        << "--exclude: amount \"x\" is not a number such as 15 or 15.50";
    QTest::newRow("sim coins with a port")
        << QStringList{"--port", "/dev/ttyS0", "accept", "--sim-coins", "10"}
        << "--sim-coins is for the built-in simulator and cannot go with --port";
    QTest::newRow("sim config with a port")
        << QStringList{"--port", "/dev/ttyS0", "--sim-config", "x.json", "status"}
        << "--sim-config is for the built-in simulator and cannot go with --port";
    QTest::newRow("demo with a port") << QStringList{"--port", "/dev/ttyS0", "demo"}
                                      << "demo runs against the built-in simulator and cannot go with --port";
    QTest::newRow("demo as json") << QStringList{"--json", "demo"} << "demo has no JSON form";
    QTest::newRow("status with argument")
        << QStringList{"status", "now"} << "status: unexpected argument \"now\"";
}

void TestToolArguments::usageErrors()
{
    QFETCH(QStringList, args);
    QFETCH(QString, error);
    const ParseResult r = tool::parseArguments(args);
    QCOMPARE(r.status, ParseResult::Error);
    QCOMPARE(r.error, error);
}

void TestToolArguments::help()
{
    for (const QStringList& args :
         {QStringList{"--help"}, QStringList{"-h"}, QStringList{"help"}, QStringList{"pay", "--help"}}) {
        QCOMPARE(tool::parseArguments(args).status, ParseResult::Help);
    }
    // The whole text: it is made from the command table, and a new row must not move the others.
    const char* const expected =
        "usage: cpibcr [--port DEVICE] [--json] [--log LEVEL] [--log-config FILE] [--plugin PATH]\n"
        "              [--sim-config FILE] [--trace FILE] COMMAND [ARGS]\n"
        "\n"
        "Without --port the tool runs against the built-in simulated recycler.\n"
        "\n"
        "commands:\n"
        "  status                               connect, check the state, list the units\n"
        "  units                                the cash units\n"
        "  denoms                               the denominations the recycler accepts\n"
        "  accept [--fast] [--exclude AMOUNT,...] [--seconds N] [--sim-coins AMOUNT,...]\n"
        "                                       accept coins until N seconds pass or Ctrl+C\n"
        "  check AMOUNT [--mode optimal|minimum]  whether the amount can be paid as change\n"
        "  pay AMOUNT [--mode optimal|minimum]  pay change\n"
        "  loan UNIT AMOUNT [--op OP]           load a unit (OP defaults to manual-load)\n"
        "  pickup UNIT [AMOUNT] [--op OP]       empty a unit (OP defaults to manual-all)\n"
        "  counters [accepted|dispensed]        the counters of coins taken in and paid out\n"
        "  maintenance [UNIT] [--done]          the maintenance records, or reset one\n"
        "  watch [--seconds N]                  the background state check, printing each error\n"
        "  demo                                 a short session against the built-in simulator\n"
        "  ports                                the serial ports of this machine (no device is opened)\n"
        "  trace FILE... [--summary]            a line recording read as ccTalk, and its summary; several\n"
        "                                       files are read in the order written (FILE.2, FILE.1, FILE)\n"
        "\n"
        "--trace FILE records every byte written to and read from the line into FILE (appended).\n"
        "AMOUNT is money with at most two decimals (15, 15.50). OP is manual-load, manual-all,\n"
        "manual-sum, dispense-all, dispense-sum or a number such as 0x200.\n"
        "LEVEL is error, warn, info, debug or trace.\n"
        "--version prints the version.\n";
    QCOMPARE(tool::usageText(), QString::fromUtf8(expected));
}

void TestToolArguments::globalOptionsAnywhere()
{
    const ParseResult before = tool::parseArguments(
        {"--port", "/dev/ttyUSB0", "--json", "--log", "trace", "--plugin=/x/libcpibcr.so", "units"});
    QCOMPARE(before.status, ParseResult::Ok);
    QCOMPARE(before.args.port, QStringLiteral("/dev/ttyUSB0"));
    QVERIFY(before.args.json);
    QCOMPARE(before.args.logLevel, QStringLiteral("trace"));
    QCOMPARE(before.args.plugin, QStringLiteral("/x/libcpibcr.so"));

    const ParseResult after = tool::parseArguments(
        {"pay", "15.50", "--json", "--mode", "minimum", "--log-config", "/etc/log.properties"});
    QCOMPARE(after.status, ParseResult::Ok);
    QVERIFY(after.args.json);
    QCOMPARE(after.args.amount, 1550LL);
    QVERIFY(after.args.hasAmount);
    QCOMPARE(after.args.mode, int(ECashControl::Minimum));
    QCOMPARE(after.args.logConfig, QStringLiteral("/etc/log.properties"));

    const ParseResult sim = tool::parseArguments({"--sim-config", "fast.json", "status"});
    QCOMPARE(sim.status, ParseResult::Ok);
    QCOMPARE(sim.args.simConfig, QStringLiteral("fast.json"));
    QCOMPARE(sim.args.mode, int(ECashControl::Optimal));
}

void TestToolArguments::acceptOptions()
{
    const ParseResult plain = tool::parseArguments({"accept"});
    QCOMPARE(plain.status, ParseResult::Ok);
    QVERIFY(!plain.args.fast);
    QVERIFY(plain.args.exclude.isEmpty());
    QCOMPARE(plain.args.seconds, -1);
    QVERIFY(!plain.args.hasSimCoins);

    const ParseResult full = tool::parseArguments(
        {"accept", "--fast", "--exclude", "5,0.50", "--seconds", "3", "--sim-coins=10,10,2"});
    QCOMPARE(full.status, ParseResult::Ok);
    QVERIFY(full.args.fast);
    QCOMPARE(full.args.exclude, (QList<long long>{500, 50}));
    QCOMPARE(full.args.seconds, 3);
    QVERIFY(full.args.hasSimCoins);
    QCOMPARE(full.args.simCoins, (QList<long long>{1000, 1000, 200}));
}

void TestToolArguments::loanDefaults()
{
    const ParseResult r = tool::parseArguments({"loan", "hopper2", "50"});
    QCOMPARE(r.status, ParseResult::Ok);
    QCOMPARE(r.args.unit, QStringLiteral("hopper2"));
    QCOMPARE(r.args.operation, int(ECashControl::ManualLoad));
    QCOMPARE(r.args.amount, 5000LL);

    const ParseResult other = tool::parseArguments({"loan", "hopper2", "50", "--op", "0x1000"});
    QCOMPARE(other.status, ParseResult::Ok);
    QCOMPARE(other.args.operation, int(ECashControl::LoadMainAcceptor));
}

void TestToolArguments::pickupDefaultsAndAmounts()
{
    const ParseResult all = tool::parseArguments({"pickup", "cashbox"});
    QCOMPARE(all.status, ParseResult::Ok);
    QCOMPARE(all.args.unit, QStringLiteral("cashbox"));
    QCOMPARE(all.args.operation, int(ECashControl::ManualPickupAll));
    QVERIFY(!all.args.hasAmount);

    const ParseResult sum = tool::parseArguments({"pickup", "hopper1", "20", "--op", "dispense-sum"});
    QCOMPARE(sum.status, ParseResult::Ok);
    QCOMPARE(sum.args.operation, int(ECashControl::DispensePickupSum));
    QVERIFY(sum.args.hasAmount);
    QCOMPARE(sum.args.amount, 2000LL);

    const ParseResult purge = tool::parseArguments({"pickup", "hopper1", "--op", "dispense-all"});
    QCOMPARE(purge.status, ParseResult::Ok);
    QCOMPARE(purge.args.operation, int(ECashControl::DispensePickupAll));
}

void TestToolArguments::countersSelection()
{
    QCOMPARE(tool::parseArguments({"counters"}).args.counters,
             (QList<int>{ECashControl::Accepted, ECashControl::Dispensed}));
    QCOMPARE(tool::parseArguments({"counters", "accepted"}).args.counters,
             QList<int>{ECashControl::Accepted});
    QCOMPARE(tool::parseArguments({"counters", "dispensed"}).args.counters,
             QList<int>{ECashControl::Dispensed});
}

void TestToolArguments::maintenanceArguments()
{
    const ParseResult list = tool::parseArguments({"maintenance"});
    QCOMPARE(list.status, ParseResult::Ok);
    QVERIFY(list.args.unit.isEmpty());
    QVERIFY(!list.args.done);

    const ParseResult reset = tool::parseArguments({"maintenance", "hopper3", "--done"});
    QCOMPARE(reset.status, ParseResult::Ok);
    QCOMPARE(reset.args.unit, QStringLiteral("hopper3"));
    QVERIFY(reset.args.done);
}

void TestToolArguments::traceArguments()
{
    ParseResult r = tool::parseArguments({"--port", "/dev/ttyUSB0", "pay", "5", "--trace", "site.trace"});
    QCOMPARE(r.status, ParseResult::Ok);
    QCOMPARE(r.args.traceFile, QStringLiteral("site.trace"));
    QCOMPARE(r.args.port, QStringLiteral("/dev/ttyUSB0"));
    r = tool::parseArguments({"trace", "site.trace", "--summary", "--json"});
    QCOMPARE(r.status, ParseResult::Ok);
    QCOMPARE(r.args.traceInput, QStringLiteral("site.trace"));
    QVERIFY(r.args.summaryOnly);
    QVERIFY(r.args.json);
    QVERIFY(r.args.traceFile.isEmpty());
}

QTEST_APPLESS_MAIN(TestToolArguments)
#include "tst_toolarguments.moc"
