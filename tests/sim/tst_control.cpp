#include "control.h"
#include "simulator.h"
#include "support/columns.h"
#include "support/ptyrig.h"

#include <QElapsedTimer>
#include <QtTest>
#include <algorithm>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

using testsupport::fastConfig;

using Status = QPair<quint8, quint8>;

QByteArray ask(sim::Simulator& s, const char* hexFrame)
{
    QByteArray answer;
    s.withDevice([&](sim::Device& d) { answer = d.handleFrame(QByteArray::fromHex(hexFrame)); });
    return answer.toHex(' ').toUpper();
}

} // namespace

Q_DECLARE_METATYPE(Status)

class TestControl : public QObject
{
    Q_OBJECT

private slots:
    void helpListsEveryCommand();
    void helpText();
    void deviceCommands();
    void faultCommands_data();
    void faultCommands();
    void lineCommands_data();
    void lineCommands();
    void shortAnswers_data();
    void shortAnswers();
    void babble();
    void observation();
    void badInput_data();
    void badInput();
    void replies_data();
    void replies();
    void quit();
};

void TestControl::helpListsEveryCommand()
{
    sim::Simulator s(fastConfig());
    sim::ControlChannel c(s);
    const QString help = c.execute(QStringLiteral("help"));
    for (const char* word :
         {"coin",   "error", "selfcheck", "activity", "jam",   "empty",   "door",  "hopper", "cashbox",
          "drop",   "busy",  "nak",       "corrupt",  "short", "garbage", "split", "babble", "silent",
          "pacing", "echo",  "status",    "counter",  "log",   "port",    "quit"})
        QVERIFY2(help.contains(QLatin1String(word)), word);
    QCOMPARE(c.execute(QString()), QString());
    QCOMPARE(c.execute(QStringLiteral("   ")), QString());
}

void TestControl::helpText()
{
    const QString expected = QStringLiteral(
        "Device:\n"
        "  coin POS [N]            insert N coins (default 1) at coin position POS\n"
        "  error MODULE CODE       error status answered to header 122 (0 0 = none)\n"
        "  selfcheck FAULT SUB     self-check answer to header 232 (0 0 = none)\n"
        "  activity BITS           extra activity-register bits, or'ed with the model's own\n"
        "  jam HOPPER [on|off]     jam a hopper (or free it)\n"
        "  jam HOPPER now          jam a hopper and raise its fault at once\n"
        "  empty HOPPER            take every coin out of a hopper behind the device's back\n"
        "  door open|close\n"
        "  hopper HOPPER COUNT     set a hopper's coin count\n"
        "  cashbox VALUE           set the cashbox value (minor units)\n"
        "  counter GROUP INDEX N   set an audit counter to N, as the device's past life left it\n"
        "  clear faults            undo error, selfcheck, activity, jam and door\n"
        "  restart counters        the coins-in counters start again from 0\n"
        "Line:\n"
        "  drop N [HEADER]         carry out the next N commands (with that header) but lose\n"
        "                          their answers\n"
        "  busy N                  answer the next N commands BUSY\n"
        "  nak [N]                 answer the next N commands NAK\n"
        "  corrupt [N]             spoil the checksum of the next N answers\n"
        "  short [N]               cut the last data byte of the next N answers, checksum right\n"
        "  garbage HEX...          put these bytes before the next answer\n"
        "  foreign [N]             a frame between two other stations before the next N answers\n"
        "  badframe [N]            a 130-byte frame to the host with a wrong checksum before the\n"
        "                          next N answers\n"
        "  split PIECES PAUSE_MS   send the next answer in pieces with pauses\n"
        "  babble on|off           random bytes on the line\n"
        "  silent on|off           no command is carried out or answered\n"
        "  pacing on|off           bytes leave at the configured baud rate\n"
        "  echo on|off             repeat the host's bytes back\n"
        "  clear line              undo every line fault\n"
        "Observation:\n"
        "  status                  hoppers, cashbox, activity, faults\n"
        "  counter GROUP INDEX     an audit counter (70 accepted, 80 paid out, 87 purged)\n"
        "  log [N]                 the last N received commands (default 20)\n"
        "  clear log               forget the received commands\n"
        "  port                    the serial port served\n"
        "  help\n"
        "  quit");
    QCOMPARE(sim::ControlChannel::help(), expected);
    sim::Simulator s(fastConfig());
    sim::ControlChannel c(s);
    QCOMPARE(c.execute(QStringLiteral("help")), expected);
    QCOMPARE(c.execute(QStringLiteral("? anything")), expected);
    QCOMPARE(c.execute(QStringLiteral("HELP me")), expected);
}

void TestControl::deviceCommands()
{
    sim::Simulator s(fastConfig());
    sim::ControlChannel c(s);
    QCOMPARE(ask(s, "37 02 01 E7 FF 00 E0"), QByteArray("01 00 37 00 C8")); // positions 1 to 8
    QCOMPARE(c.execute(QStringLiteral("coin 4 3")), QStringLiteral("ok"));
    QCOMPARE(c.execute(QStringLiteral("coin 5")), QStringLiteral("ok"));
    QTRY_COMPARE_WITH_TIMEOUT(s.valueAccepted(), quint64(3010), 2000);
    QCOMPARE(s.hopperCount(1), 203);
    QCOMPARE(s.cashbox(), 10u);
    QCOMPARE(c.execute(QStringLiteral("hopper 2 17")), QStringLiteral("ok"));
    QCOMPARE(s.hopperCount(2), 17);
    QCOMPARE(c.execute(QStringLiteral("cashbox 0x100")), QStringLiteral("ok"));
    QCOMPARE(s.cashbox(), 256u);
    QCOMPARE(c.execute(QStringLiteral("counter 70 4")), QStringLiteral("3"));
    QCOMPARE(c.execute(QStringLiteral("counter 99 4")),
             QStringLiteral("error: unknown counter group 99 (70, 80, 87)"));
    QCOMPARE(c.execute(QStringLiteral("counter 80 2 4294967295")), QStringLiteral("ok"));
    QCOMPARE(c.execute(QStringLiteral("counter 80 2")), QStringLiteral("4294967295"));
    QCOMPARE(s.auditCounter(80, 2), 0xFFFFFFFFu);
    QCOMPARE(c.execute(QStringLiteral("counter 70 16 0x80000000")), QStringLiteral("ok"));
    QCOMPARE(ask(s, "37 02 01 56 46 10 1A"), QByteArray("01 04 37 00 00 00 00 80 44"));
}

// Fault commands and what the model shows afterwards, then after "clear faults".
void TestControl::faultCommands_data()
{
    testsupport::columns<QStringList, QByteArray, quint16, Status, Status, int, int>(
        "commands", "payout", "activity", "error", "selfCheck", "hopper", "count");
    const Status none(0, 0);
    QTest::newRow("error") << QStringList{QStringLiteral("error 3 2")} << QByteArray() << quint16(0)
                           << Status(3, 2) << none << 1 << 200;
    QTest::newRow("selfcheck") << QStringList{QStringLiteral("selfcheck 35 2")} << QByteArray() << quint16(0)
                               << none << Status(35, 2) << 1 << 200;
    QTest::newRow("activity") << QStringList{QStringLiteral("activity 4112")} << QByteArray() << quint16(4112)
                              << none << none << 1 << 200;
    QTest::newRow("door open") << QStringList{QStringLiteral("door open")} << QByteArray() << quint16(16)
                               << Status(255, 255) << Status(51, 0) << 1 << 200;
    QTest::newRow("door closed") << QStringList{QStringLiteral("door open"), QStringLiteral("door close")}
                                 << QByteArray() << quint16(0) << none << none << 1 << 200;
    QTest::newRow("jam") << QStringList{QStringLiteral("jam 1")} << QByteArray("37 02 01 55 01 03 6D")
                         << quint16(16) << Status(1, 2) << none << 1 << 200;
    QTest::newRow("jam off") << QStringList{QStringLiteral("jam 1"), QStringLiteral("jam 1 off")}
                             << QByteArray("37 02 01 55 01 03 6D") << quint16(0) << none << none << 1 << 197;
    QTest::newRow("jam now") << QStringList{QStringLiteral("jam 3 now")} << QByteArray() << quint16(16)
                             << Status(3, 2) << none << 3 << 300;
    QTest::newRow("empty") << QStringList{QStringLiteral("empty 4")} << QByteArray("37 02 01 55 04 01 6C")
                           << quint16(4096) << Status(4, 1) << none << 4 << 0;
}

void TestControl::faultCommands()
{
    QFETCH(QStringList, commands);
    QFETCH(QByteArray, payout);
    QFETCH(quint16, activity);
    QFETCH(Status, error);
    QFETCH(Status, selfCheck);
    QFETCH(int, hopper);
    QFETCH(int, count);
    sim::Simulator s(fastConfig());
    sim::ControlChannel c(s);
    for (const QString& command : commands)
        QCOMPARE(c.execute(command), QStringLiteral("ok"));
    if (!payout.isEmpty())
        QCOMPARE(ask(s, payout.constData()), QByteArray("01 00 37 00 C8"));
    QTRY_COMPARE_WITH_TIMEOUT(s.activityRegister(), activity, 2000);
    QTRY_COMPARE_WITH_TIMEOUT(s.hopperCount(hopper), count, 2000);
    QCOMPARE(s.errorStatus(), error);
    QCOMPARE(s.selfCheck(), selfCheck);
    QCOMPARE(c.execute(QStringLiteral("clear faults")), QStringLiteral("ok"));
    QCOMPARE(s.activityRegister(), quint16(0));
    QCOMPARE(s.errorStatus(), Status(0, 0));
    QCOMPARE(s.selfCheck(), Status(0, 0));
}

void TestControl::lineCommands_data()
{
    testsupport::columns<QString, QByteArray>("line", "onTheLine");
    const QByteArray poll = "37 00 01 FE CA";
    QTest::newRow("none") << QString() << poll + " 01 00 37 00 C8";
    QTest::newRow("nak") << QStringLiteral("nak") << poll + " 01 00 37 05 C3";
    QTest::newRow("busy") << QStringLiteral("busy 1") << poll + " 01 00 37 06 C2";
    QTest::newRow("drop") << QStringLiteral("drop 1") << poll;
    QTest::newRow("corrupt") << QStringLiteral("corrupt") << poll + " 01 00 37 00 92";
    QTest::newRow("garbage") << QStringLiteral("garbage AA bb") << poll + " AA BB 01 00 37 00 C8";
    QTest::newRow("split") << QStringLiteral("split 2 10") << poll + " 01 00 37 00 C8";
    QTest::newRow("pacing") << QStringLiteral("pacing on") << poll + " 01 00 37 00 C8";
    QTest::newRow("echo off") << QStringLiteral("echo off") << QByteArray("01 00 37 00 C8");
    QTest::newRow("silent") << QStringLiteral("silent on") << poll;
    QTest::newRow("cleared") << QStringLiteral("clear line") << poll + " 01 00 37 00 C8";
}

void TestControl::lineCommands()
{
    QFETCH(QString, line);
    QFETCH(QByteArray, onTheLine);
    sim::Config config = fastConfig();
    config.answerDelayMs = 0;
    sim::Simulator s(config);
    QVERIFY(s.openPty());
    sim::ControlChannel c(s);
    if (line == QLatin1String("clear line"))
        for (const char* fault : {"nak 5", "busy 5", "drop 5", "silent on", "echo off", "corrupt 5"})
            QCOMPARE(c.execute(QString::fromLatin1(fault)), QStringLiteral("ok"));
    if (!line.isEmpty())
        QCOMPARE(c.execute(line), QStringLiteral("ok"));
    if (line == QLatin1String("clear line"))
        c.execute(QStringLiteral("echo on"));
    testsupport::RawPort port(s.portPath());
    QVERIFY(port.isOpen());
    QVERIFY(port.send("37 00 01 FE CA"));
    QCOMPARE(port.read((onTheLine.size() + 1) / 3).toHex(' ').toUpper(), onTheLine);
}

// Each row: the control line, then the requests sent one after another and what the line
// carries back for each (the echo, then the answer). The serial number 1503278 is 2E F0 16.
void TestControl::shortAnswers_data()
{
    testsupport::columns<QString, QList<QByteArray>, QList<QByteArray>>("control", "requests", "onTheLine");
    const QByteArray serial = "37 00 01 F2 D6";
    const QByteArray whole = serial + " 01 03 37 00 2E F0 16 91";
    const QByteArray cut = serial + " 01 02 37 00 2E F0 A8";
    const QByteArray poll = "37 00 01 FE CA";
    QTest::newRow("short") << QStringLiteral("short") << QList<QByteArray>{serial, serial}
                           << QList<QByteArray>{cut, whole};
    QTest::newRow("short 2") << QStringLiteral("short 2") << QList<QByteArray>{serial, serial, serial}
                             << QList<QByteArray>{cut, cut, whole};
    // An ACK has no data byte to cut: it goes out whole and the fault is used up.
    QTest::newRow("ACK uses it up") << QStringLiteral("short") << QList<QByteArray>{poll, serial}
                                    << QList<QByteArray>{poll + " 01 00 37 00 C8", whole};
    QTest::newRow("short 0") << QStringLiteral("short 0") << QList<QByteArray>{serial}
                             << QList<QByteArray>{whole};
}

void TestControl::shortAnswers()
{
    QFETCH(QString, control);
    QFETCH(QList<QByteArray>, requests);
    QFETCH(QList<QByteArray>, onTheLine);
    sim::Config config = fastConfig();
    config.answerDelayMs = 0;
    sim::Simulator s(config);
    QVERIFY(s.openPty());
    sim::ControlChannel c(s);
    QCOMPARE(c.execute(control), QStringLiteral("ok"));
    testsupport::RawPort port(s.portPath());
    QVERIFY(port.isOpen());
    for (int i = 0; i < requests.size(); ++i) {
        QVERIFY(port.send(requests.at(i).constData()));
        QCOMPARE(port.read((onTheLine.at(i).size() + 1) / 3).toHex(' ').toUpper(), onTheLine.at(i));
    }
}

void TestControl::babble()
{
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    sim::ControlChannel c(s);
    testsupport::RawPort port(s.portPath());
    QVERIFY(port.isOpen());
    QCOMPARE(c.execute(QStringLiteral("babble on")), QStringLiteral("ok"));
    QVERIFY(!port.read(1).isEmpty());
    QCOMPARE(c.execute(QStringLiteral("babble off")), QStringLiteral("ok"));
    // Noise put on the line before the stop comes ahead of the answer; after it, none.
    QVERIFY(port.pollUntilAnswered());
    QVERIFY(port.send("37 00 01 FE CA"));
    QCOMPARE(port.read(10).toHex(' ').toUpper(), QByteArray("37 00 01 FE CA 01 00 37 00 C8"));
}

void TestControl::observation()
{
    sim::Simulator s(fastConfig());
    sim::ControlChannel c(s);
    const QString status = c.execute(QStringLiteral("status"));
    QVERIFY(status.contains(QStringLiteral("hopper 1: RU1K0A count 200 capacity 800")));
    QVERIFY(status.contains(QStringLiteral("hopper 5: RU050B count 0 capacity 1200 disabled")));
    QVERIFY(status.contains(QStringLiteral("cashbox: 0")));
    QCOMPARE(c.execute(QStringLiteral("log")), QStringLiteral("(no commands received)"));
    QCOMPARE(c.execute(QStringLiteral("port")), QString());
}

void TestControl::badInput_data()
{
    QTest::addColumn<QString>("line");
    QTest::newRow("unknown") << QStringLiteral("fly away");
    QTest::newRow("coin 0") << QStringLiteral("coin 0");
    QTest::newRow("coin 17") << QStringLiteral("coin 17");
    QTest::newRow("coin text") << QStringLiteral("coin one");
    QTest::newRow("error 256") << QStringLiteral("error 1 256");
    QTest::newRow("error one arg") << QStringLiteral("error 1");
    QTest::newRow("door ajar") << QStringLiteral("door ajar");
    QTest::newRow("hopper 9") << QStringLiteral("hopper 9 1");
    QTest::newRow("garbage odd") << QStringLiteral("garbage ABC");
    QTest::newRow("garbage not hex") << QStringLiteral("garbage zz");
    QTest::newRow("split one piece") << QStringLiteral("split 1 10");
    QTest::newRow("short text") << QStringLiteral("short one");
    QTest::newRow("short two counts") << QStringLiteral("short 1 2");
    QTest::newRow("babble maybe") << QStringLiteral("babble maybe");
    QTest::newRow("clear all") << QStringLiteral("clear all");
    QTest::newRow("activity big") << QStringLiteral("activity 65536");
}

void TestControl::badInput()
{
    QFETCH(QString, line);
    sim::Simulator s(fastConfig());
    sim::ControlChannel c(s);
    const QString before = c.execute(QStringLiteral("status"));
    QVERIFY(c.execute(line).startsWith(QStringLiteral("error: ")));
    QCOMPARE(c.execute(QStringLiteral("status")), before);
    QVERIFY(!c.quitRequested());
}

void TestControl::replies_data()
{
    testsupport::columns<QString, QString>("line", "reply");
    // Row name, line, reply.
    const char* const rows[][3] = {
        {"unknown", "fly away", "error: unknown command or wrong arguments: fly away (try help)"},
        {"coin 0", "coin 0", "error: coin POS [N]: POS is 1 to 16"},
        {"coin none", "coin 1 0", "error: coin POS [N]: POS is 1 to 16"},
        {"error 256", "error 1 256", "error: two numbers 0 to 255 expected"},
        {"selfcheck text", "selfcheck x 1", "error: two numbers 0 to 255 expected"},
        {"error one arg", "error 1", "error: unknown command or wrong arguments: error 1 (try help)"},
        {"activity big", "activity 65536", "error: a 16-bit number expected"},
        {"jam 0 now", "jam 0 now", "error: jam HOPPER now"},
        {"jam maybe", "jam 1 maybe", "error: jam HOPPER [on|off]"},
        {"jam NOW", "  Jam   1   NOW ", "error: jam HOPPER [on|off]"},
        {"jam three args", "jam 1 now please",
         "error: unknown command or wrong arguments: jam 1 now please (try help)"},
        {"empty 0", "empty 0", "error: empty HOPPER"},
        {"door ajar", "door ajar", "error: door open|close"},
        {"hopper 9", "hopper 9 1", "error: no hopper 9"},
        {"hopper count big", "hopper 1 70000", "error: hopper HOPPER COUNT"},
        {"cashbox negative", "cashbox -1", "error: cashbox VALUE"},
        {"clear all", "clear all", "error: clear faults|line|log"},
        {"clear FAULTS", "clear FAULTS", "error: clear faults|line|log"},
        {"clear alone", "clear", "error: unknown command or wrong arguments: clear (try help)"},
        {"restart now", "restart now", "error: unknown command or wrong arguments: restart now (try help)"},
        {"drop text", "drop x", "error: a count expected"},
        {"drop header big", "drop 1 256", "error: drop N [HEADER]"},
        {"busy text", "busy x", "error: a count expected"},
        {"busy alone", "busy", "error: unknown command or wrong arguments: busy (try help)"},
        {"nak text", "nak x", "error: a count expected"},
        {"badframe two args", "badframe 1 2",
         "error: unknown command or wrong arguments: badframe 1 2 (try help)"},
        {"garbage odd", "garbage ABC", "error: garbage HEX...: hexadecimal bytes expected"},
        {"split one piece", "split 1 10", "error: split PIECES PAUSE_MS"},
        {"BABBLE maybe", "BABBLE maybe", "error: babble on|off"},
        {"echo alone", "echo", "error: unknown command or wrong arguments: echo (try help)"},
        {"counter 71", "counter 71 1", "error: unknown counter group 71 (70, 80, 87)"},
        {"counter text", "counter x 1", "error: counter GROUP INDEX"},
        {"counter set 71", "counter 71 1 5", "error: unknown counter group 71 (70, 80, 87)"},
        {"counter set text", "counter 80 x 5", "error: counter GROUP INDEX N"},
        {"counter set past 32 bits", "counter 80 1 4294967296",
         "error: counter GROUP INDEX N: N is 0 to 4294967295"},
        {"counter set negative", "counter 87 1 -1", "error: counter GROUP INDEX N: N is 0 to 4294967295"},
        {"counter set hopper 9", "counter 80 9 1", "error: no counter 80 9"},
        {"counter set position 0", "counter 70 0 1", "error: no counter 70 0"},
        {"counter four args", "counter 80 1 2 3",
         "error: unknown command or wrong arguments: counter 80 1 2 3 (try help)"},
        {"log 0", "log 0", "error: log [N]"},
        {"status now", "status now", "error: unknown command or wrong arguments: status now (try help)"},
        {"port now", "port now", "error: unknown command or wrong arguments: port now (try help)"},
        {"Exit", "Exit", "bye"},
        {"quit now", "quit now", "bye"},
    };
    for (const auto& row : rows)
        QTest::newRow(row[0]) << QString::fromLatin1(row[1]) << QString::fromLatin1(row[2]);
}

void TestControl::replies()
{
    QFETCH(QString, line);
    QFETCH(QString, reply);
    sim::Simulator s(fastConfig());
    sim::ControlChannel c(s);
    QCOMPARE(c.execute(line), reply);
}

void TestControl::quit()
{
    sim::Simulator s(fastConfig());
    sim::ControlChannel c(s);
    QVERIFY(!c.quitRequested());
    c.execute(QStringLiteral("quit"));
    QVERIFY(c.quitRequested());
}

QTEST_GUILESS_MAIN(TestControl)
#include "tst_control.moc"
