#include "config.h"
#include "support/columns.h"
#include "support/ptyrig.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

namespace {

QByteArray hex(const QByteArray& b)
{
    return b.toHex(' ').toUpper();
}

QByteArray transfer(testsupport::RawPort& port, const char* hexFrame, int expect)
{
    if (!port.send(hexFrame))
        return QByteArray();
    return hex(port.read(expect));
}

// Reads the simulator's standard output up to a line that starts with prefix.
QString lineStartingWith(QProcess& p, const QString& prefix)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 60000) {
        while (p.canReadLine()) {
            const QString line = QString::fromUtf8(p.readLine()).trimmed();
            if (line.startsWith(prefix))
                return line;
        }
        p.waitForReadyRead(100);
    }
    return QString();
}

QString command(QProcess& p, const QString& line, const QString& replyPrefix)
{
    p.write((line + QLatin1Char('\n')).toUtf8());
    p.waitForBytesWritten(1000);
    return lineStartingWith(p, replyPrefix);
}

// Runs the simulator with these arguments to its end.
bool runToTheEnd(QProcess& p, const QStringList& arguments)
{
    p.start(QStringLiteral(CPIBCR_SIM_EXE), arguments);
    return p.waitForFinished(60000);
}

} // namespace

class TestExecutable : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void servesAPseudoTerminalWithControls();
    void controlThroughAFifo();
    void dumpConfig();
    void badConfigurationIsRefused();
    void commandLineRefusals_data();
    void commandLineRefusals();

private:
    QTemporaryDir dir_;
    QString configPath_;
};

void TestExecutable::initTestCase()
{
    QVERIFY(dir_.isValid());
    QVERIFY(QFileInfo(QStringLiteral(CPIBCR_SIM_EXE)).isExecutable());
    configPath_ = dir_.filePath(QStringLiteral("sim.json"));
    QFile f(configPath_);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(
        R"({"timings": {"coinAcceptMs": 2, "payoutMsPerCoin": 2, "resetInitMs": 10, "answerDelayMs": 0}})");
}

void TestExecutable::servesAPseudoTerminalWithControls()
{
    const QString link = dir_.filePath(QStringLiteral("ttyBCR"));
    const QString socketPath = dir_.filePath(QStringLiteral("ctl"));
    QProcess p;
    p.start(QStringLiteral(CPIBCR_SIM_EXE),
            {QStringLiteral("--config"), configPath_, QStringLiteral("--link"), link,
             QStringLiteral("--control"), socketPath});
    QVERIFY(p.waitForStarted());
    const QString portLine = lineStartingWith(p, QStringLiteral("port: "));
    QVERIFY2(portLine.startsWith(QStringLiteral("port: /dev/pts/")), qPrintable(portLine));
    QVERIFY(!lineStartingWith(p, QStringLiteral("control: ")).isEmpty());
    QCOMPARE(QFileInfo(link).symLinkTarget(), portLine.mid(6));

    testsupport::RawPort tty(link);
    QVERIFY(tty.isOpen());
    QCOMPARE(transfer(tty, "37 00 01 FE CA", 10), QByteArray("37 00 01 FE CA 01 00 37 00 C8"));

    QCOMPARE(command(p, QStringLiteral("nak"), QStringLiteral("ok")), QStringLiteral("ok"));
    QCOMPARE(transfer(tty, "37 00 01 FE CA", 10), QByteArray("37 00 01 FE CA 01 00 37 05 C3"));
    QCOMPARE(command(p, QStringLiteral("echo off"), QStringLiteral("ok")), QStringLiteral("ok"));
    QCOMPARE(transfer(tty, "37 02 01 E7 01 00 DE", 5), QByteArray("01 00 37 00 C8")); // enable position 1

    // The same channel on the Unix socket.
    const int sock = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, socketPath.toLocal8Bit().constData(), sizeof addr.sun_path - 1);
    QCOMPARE(::connect(sock, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    const QByteArray coins = "coin 1 2\n";
    QCOMPARE(::write(sock, coins.constData(), size_t(coins.size())), ssize_t(coins.size()));
    QCOMPARE(testsupport::readBytes(sock, 3), QByteArray("ok\n"));
    // The coins land after their flight through the acceptor.
    const QByteArray counter = "counter 70 1\n";
    QByteArray landed;
    QElapsedTimer flight;
    flight.start();
    while (landed != "2\n" && flight.elapsed() < 60000) {
        QCOMPARE(::write(sock, counter.constData(), size_t(counter.size())), ssize_t(counter.size()));
        landed = testsupport::readBytes(sock, 2);
    }
    QCOMPARE(landed, QByteArray("2\n"));
    ::close(sock);

    const QString logLine = command(p, QStringLiteral("log 1"), QString());
    QVERIFY2(logLine.endsWith(QStringLiteral("header 231: 37 02 01 E7 01 00 DE -> 01 00 37 00 C8")),
             qPrintable(logLine));
    QVERIFY(!command(p, QStringLiteral("status"), QStringLiteral("hopper 4: RU100A count 402")).isEmpty());

    p.write("quit\n");
    QVERIFY(p.waitForFinished(60000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 0);
    QVERIFY(!QFileInfo::exists(link));
    QVERIFY(!QFileInfo::exists(socketPath));
}

void TestExecutable::controlThroughAFifo()
{
    const QString fifo = dir_.filePath(QStringLiteral("fifo"));
    QCOMPARE(::mkfifo(fifo.toLocal8Bit().constData(), 0600), 0);
    QProcess p;
    p.start(QStringLiteral(CPIBCR_SIM_EXE),
            {QStringLiteral("--config"), configPath_, QStringLiteral("--control"), fifo});
    QVERIFY(p.waitForStarted());
    QVERIFY(!lineStartingWith(p, QStringLiteral("control: ")).isEmpty());
    const int w = ::open(fifo.toLocal8Bit().constData(), O_WRONLY | O_CLOEXEC);
    QVERIFY(w >= 0);
    const QByteArray line = "hopper 3 7\n";
    QCOMPARE(::write(w, line.constData(), size_t(line.size())), ssize_t(line.size()));
    ::close(w);
    QCOMPARE(lineStartingWith(p, QStringLiteral("ok")), QStringLiteral("ok"));
    QVERIFY(!command(p, QStringLiteral("status"), QStringLiteral("hopper 3: RU200A count 7 ")).isEmpty());
    p.terminate();
    QVERIFY(p.waitForFinished(60000));
    QCOMPARE(p.exitCode(), 0);
}

void TestExecutable::dumpConfig()
{
    QProcess p;
    QVERIFY(runToTheEnd(p, {QStringLiteral("--dump-config")}));
    QCOMPARE(p.exitCode(), 0);
    QString error;
    const sim::Config c = sim::Config::fromJson(p.readAllStandardOutput(), &error);
    QCOMPARE(error, QString());
    QCOMPARE(c.toJson(), sim::Config::defaults().toJson());
}

void TestExecutable::badConfigurationIsRefused()
{
    const QString bad = dir_.filePath(QStringLiteral("bad.json"));
    QFile f(bad);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(R"({"hoppers": [{"coin": "RU1"}]})");
    f.close();
    QProcess p;
    QVERIFY(runToTheEnd(p, {QStringLiteral("--config"), bad}));
    QCOMPARE(p.exitCode(), 2);
    QVERIFY(p.readAllStandardError().contains("RU1"));
}

// Each refusal exits 2 with its exact message on standard error; an unknown option adds the usage.
void TestExecutable::commandLineRefusals_data()
{
    testsupport::columns<QStringList, QByteArray, bool>("arguments", "message", "withUsage");
    for (const char* option : {"--config", "--device", "--link", "--control", "--replay", "--speed"})
        QTest::newRow(option) << QStringList{QLatin1String(option)}
                              << QByteArray("cpibcr-sim: ") + option + " needs a value\n"
                              << false;
    QTest::newRow("unknown") << QStringList{"--no-echo", "--bogus"}
                             << QByteArray("cpibcr-sim: unknown option --bogus\n") << true;
    const QByteArray replayAlone = "cpibcr-sim: --replay plays a recording and takes no --config, --control, "
                                   "--no-echo or --dump-config\n";
    QTest::newRow("replay and no-echo") << QStringList{"--replay", "x", "--no-echo"} << replayAlone << false;
    QTest::newRow("replay and dump") << QStringList{"--replay", "x", "--dump-config"} << replayAlone << false;
    QTest::newRow("speed 0") << QStringList{"--replay", "x", "--speed", "0"}
                             << QByteArray(
                                    "cpibcr-sim: --speed takes a number above 0 and up to 1000, not \"0\"\n")
                             << false;
    QTest::newRow("speed alone") << QStringList{"--speed", "2"}
                                 << QByteArray("cpibcr-sim: --speed goes with --replay\n") << false;
}

void TestExecutable::commandLineRefusals()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, message);
    QFETCH(bool, withUsage);
    QProcess help;
    QVERIFY(runToTheEnd(help, {QStringLiteral("--help")}));
    QCOMPARE(help.exitCode(), 0);
    const QByteArray usage = help.readAllStandardOutput();
    QVERIFY(usage.startsWith("usage: cpibcr-sim [--config FILE]"));
    QProcess p;
    QVERIFY(runToTheEnd(p, arguments));
    QCOMPARE(p.exitCode(), 2);
    QCOMPARE(p.readAllStandardOutput(), QByteArray());
    QCOMPARE(p.readAllStandardError(), withUsage ? message + usage : message);
}

QTEST_GUILESS_MAIN(TestExecutable)
#include "tst_executable.moc"
