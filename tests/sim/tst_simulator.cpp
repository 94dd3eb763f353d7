#include "simulator.h"
#include "support/columns.h"
#include "support/ptyrig.h"

#include <QElapsedTimer>
#include <QtTest>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <random>
#include <termios.h>
#include <unistd.h>

namespace {

QByteArray hex(const QByteArray& b)
{
    return b.toHex(' ').toUpper();
}

// The host side of the line, with nothing but termios, read and write.
using Port = testsupport::RawPort;

using testsupport::fastConfig;

const QByteArray POLL_ECHO_ACK = "37 00 01 FE CA 01 00 37 00 C8";

// Sends a simple poll and returns what comes back: its echo, then the answer.
QByteArray polled(Port& port)
{
    if (!port.send("37 00 01 FE CA"))
        return QByteArray();
    return hex(port.read(10));
}

enum Fault { Nak, CorruptChecksum, Garbage, Silent };

} // namespace

class TestSimulator : public QObject
{
    Q_OBJECT

private slots:
    void simplePollOverPseudoTerminal();
    void echoOff();
    void droppedAnswerStillReachedTheDeviceOnce();
    void busyAnswersDoNotCarryTheCommandOut();
    void faultThenAPlainPoll_data();
    void faultThenAPlainPoll();
    void answerInPieces();
    void babble();
    void pacing();
    void coinsInsertedFromTheApi();
    void randomBytesOnTheLine();
    void framesForOtherAddressesAreEchoedOnly();
    void servesAnExistingDevice();
    void stopClosesThePort();
};

void TestSimulator::simplePollOverPseudoTerminal()
{
    sim::Simulator s(fastConfig());
    QString error;
    QVERIFY2(s.openPty(&error), qPrintable(error));
    QVERIFY(s.portPath().startsWith(QStringLiteral("/dev/pts/")));
    Port port(s.portPath());
    QVERIFY(port.isOpen());
    QCOMPARE(polled(port), POLL_ECHO_ACK);
    QCOMPARE(s.countHeader(254), 1);
    const QList<sim::Transaction> log = s.transactions();
    QCOMPARE(log.size(), 1);
    QCOMPARE(hex(log.at(0).frame), QByteArray("37 00 01 FE CA"));
    QCOMPARE(hex(log.at(0).answer), QByteArray("01 00 37 00 C8"));
    QVERIFY(log.at(0).msecsSinceStart >= 0);
}

void TestSimulator::echoOff()
{
    sim::Config c = fastConfig();
    c.echo = false;
    sim::Simulator s(c);
    QVERIFY(s.openPty());
    Port port(s.portPath());
    QVERIFY(port.send("37 00 01 FE CA"));
    QCOMPARE(hex(port.read(5)), QByteArray("01 00 37 00 C8"));
    s.setEcho(true);
    QCOMPARE(polled(port), POLL_ECHO_ACK);
}

void TestSimulator::droppedAnswerStillReachedTheDeviceOnce()
{
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    Port port(s.portPath());
    s.dropAnswers(1);
    port.send("37 02 01 55 04 01 6C"); // dispense one coin from hopper 4
    QCOMPARE(hex(port.read(7)), QByteArray("37 02 01 55 04 01 6C"));
    QCOMPARE(s.countHeader(85), 1);
    QCOMPARE(s.transactions().last().answer, QByteArray());
    // The coin leaves the hopper after its payout time.
    QTRY_COMPARE_WITH_TIMEOUT(s.hopperCount(4), 399, 60000);
    QCOMPARE(s.auditCounter(80, 4), 1u);
    QCOMPARE(polled(port), POLL_ECHO_ACK);
    QCOMPARE(s.countHeader(85), 1);
    s.clearTransactions();
    QCOMPARE(s.countHeader(85), 0);
    QVERIFY(s.transactions().isEmpty());
}

void TestSimulator::busyAnswersDoNotCarryTheCommandOut()
{
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    Port port(s.portPath());
    s.answerBusy(2);
    const char* setCashbox = "37 04 01 76 40 E2 01 00 2B";
    QVERIFY(port.send(setCashbox));
    QCOMPARE(hex(port.read(14)), QByteArray("37 04 01 76 40 E2 01 00 2B 01 00 37 06 C2"));
    QVERIFY(port.send(setCashbox));
    QCOMPARE(hex(port.read(14)), QByteArray("37 04 01 76 40 E2 01 00 2B 01 00 37 06 C2"));
    QCOMPARE(s.cashbox(), 0u);
    QVERIFY(port.send(setCashbox));
    QCOMPARE(hex(port.read(14)), QByteArray("37 04 01 76 40 E2 01 00 2B 01 00 37 00 C8"));
    QCOMPARE(s.cashbox(), 123456u);
    QCOMPARE(s.countHeader(118), 3);
}

// One command under a line fault, then a poll answered as usual.
void TestSimulator::faultThenAPlainPoll_data()
{
    testsupport::columns<int, QByteArray, int, QByteArray>("fault", "command", "header", "onTheLine");
    const QByteArray poll = "37 00 01 FE CA";
    const QByteArray setCashbox = "37 04 01 76 40 E2 01 00 2B";
    QTest::newRow("nak next") << int(Nak) << setCashbox << 118
                              << QByteArray("37 04 01 76 40 E2 01 00 2B 01 00 37 05 C3");
    QTest::newRow("corrupted checksum")
        << int(CorruptChecksum) << poll << 254 << QByteArray("37 00 01 FE CA 01 00 37 00 92");
    QTest::newRow("garbage before the answer")
        << int(Garbage) << poll << 254 << QByteArray("37 00 01 FE CA AA BB 01 01 00 37 00 C8");
    QTest::newRow("silent device") << int(Silent) << setCashbox << 118
                                   << QByteArray("37 04 01 76 40 E2 01 00 2B");
}

void TestSimulator::faultThenAPlainPoll()
{
    QFETCH(int, fault);
    QFETCH(QByteArray, command);
    QFETCH(int, header);
    QFETCH(QByteArray, onTheLine);
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    Port port(s.portPath());
    switch (Fault(fault)) {
    case Nak:
        s.nakNext();
        break;
    case CorruptChecksum:
        s.corruptChecksumNext();
        break;
    case Garbage:
        s.garbageBeforeNext(QByteArray::fromHex("AA BB 01"));
        break;
    case Silent:
        s.setSilent(true);
        break;
    }
    QVERIFY(port.send(command.constData()));
    QCOMPARE(hex(port.read((onTheLine.size() + 1) / 3)), onTheLine);
    QCOMPARE(s.countHeader(quint8(header)), 1);
    // Neither a refused nor an unanswered cashbox command sets the cashbox.
    QCOMPARE(s.cashbox(), 0u);
    s.setSilent(false);
    QCOMPARE(polled(port), POLL_ECHO_ACK);
}

void TestSimulator::answerInPieces()
{
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    Port port(s.portPath());
    s.splitNext(3, 60);
    QElapsedTimer timer;
    timer.start();
    port.send("37 00 01 F5 D3"); // the answer "Changer" has 12 bytes: three pieces of 4
    const QByteArray got = port.read(17);
    const qint64 elapsed = timer.elapsed();
    QCOMPARE(hex(got), QByteArray("37 00 01 F5 D3 01 07 37 00 43 68 61 6E 67 65 72 09"));
    // Two pauses of 60 ms between the pieces: never sooner, however fast the machine.
    QVERIFY2(elapsed >= 110, qPrintable(QString::number(elapsed)));
}

void TestSimulator::babble()
{
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    Port port(s.portPath());
    s.setBabble(true);
    QVERIFY(port.read(1).size() > 0);
    s.setBabble(false);
    // Noise put on the line before the stop comes ahead of the answer.
    QVERIFY(port.pollUntilAnswered());
    QCOMPARE(polled(port), POLL_ECHO_ACK);
}

void TestSimulator::pacing()
{
    sim::Config c = fastConfig();
    c.baudRate = 9600; // about 1 ms a byte
    sim::Simulator s(c);
    QVERIFY(s.openPty());
    Port port(s.portPath());
    s.setPacing(true);
    QElapsedTimer timer;
    timer.start();
    port.send("37 00 01 52 76"); // coins in by type: 37 answer bytes
    const QByteArray got = port.read(42);
    const qint64 elapsed = timer.elapsed();
    QCOMPARE(got.size(), 42);
    QCOMPARE(hex(got.right(37)).left(11), QByteArray("01 20 37 00"));
    QVERIFY2(elapsed >= 35, qPrintable(QString::number(elapsed)));
}

void TestSimulator::coinsInsertedFromTheApi()
{
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    Port port(s.portPath());
    QVERIFY(port.send("37 02 01 E7 05 00 DA"));
    QCOMPARE(hex(port.read(12)), QByteArray("37 02 01 E7 05 00 DA 01 00 37 00 C8"));
    QCOMPARE(s.inhibitMask(), quint16(5));
    s.insertCoin(1);
    s.insertCoin(3);
    s.insertCoin(2);
    QTRY_COMPARE_WITH_TIMEOUT(s.valueAccepted(), quint64(600), 60000);
    QVERIFY(port.send("37 00 01 52 76"));
    QCOMPARE(
        hex(port.read(42)),
        QByteArray(
            "37 00 01 52 76 01 20 37 00 01 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 00 00 00 00 00 00 A6"));
    QCOMPARE(s.hopperCount(4), 401);
    QCOMPARE(s.hopperCount(2), 251);
}

void TestSimulator::randomBytesOnTheLine()
{
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    Port port(s.portPath());
    std::mt19937 rng(99);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int burst = 0; burst < 20; ++burst) {
        QByteArray noise;
        for (int i = 0; i < 100; ++i)
            noise.append(char(byte(rng)));
        QVERIFY(port.send(noise));
        QVERIFY(port.read(noise.size()).size() >= noise.size());
    }
    QVERIFY(port.pollUntilAnswered());
    QVERIFY(s.isRunning());
    QCOMPARE(polled(port), POLL_ECHO_ACK);
}

void TestSimulator::framesForOtherAddressesAreEchoedOnly()
{
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    Port port(s.portPath());
    QVERIFY(port.send("28 00 01 FE D9"));
    QCOMPARE(hex(port.read(5)), QByteArray("28 00 01 FE D9"));
    QCOMPARE(s.transactions().size(), 0);
    // Nothing else came: the next bytes are the echo and answer of a poll.
    QCOMPARE(polled(port), POLL_ECHO_ACK);
}

void TestSimulator::servesAnExistingDevice()
{
    int master = -1, slave = -1;
    QCOMPARE(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    termios t{};
    tcgetattr(slave, &t);
    cfmakeraw(&t);
    tcsetattr(slave, TCSANOW, &t);
    const QString path = QString::fromLocal8Bit(ttyname(slave));
    sim::Simulator s(fastConfig());
    QString error;
    QVERIFY2(s.openDevice(path, &error), qPrintable(error));
    QCOMPARE(s.portPath(), path);
    Port host(master);
    QCOMPARE(polled(host), POLL_ECHO_ACK);
    s.stop();
    ::close(slave);

    // A device that goes away ends the serving thread instead of spinning on the error.
    QCOMPARE(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    QVERIFY(s.openDevice(QString::fromLocal8Bit(ttyname(slave))));
    ::close(slave);
    QVERIFY(s.isRunning());
    ::close(master);
    QTRY_VERIFY_WITH_TIMEOUT(!s.isRunning(), 60000);
    s.stop();

    QVERIFY(!s.openDevice(QStringLiteral("/nonexistent/tty"), &error));
    QVERIFY(error.contains(QStringLiteral("/nonexistent/tty")));
}

void TestSimulator::stopClosesThePort()
{
    sim::Simulator s(fastConfig());
    QVERIFY(s.openPty());
    QVERIFY(s.isRunning());
    Port port(s.portPath());
    s.stop();
    QVERIFY(!s.isRunning());
    // The master side is gone: the host's port reports an I/O error.
    QCOMPARE(port.tryWrite(QByteArray::fromHex("37 00 01 FE CA")), ssize_t(-1));
    // Controls and observation still work on the model.
    s.setHopperCount(1, 5);
    QCOMPARE(s.hopperCount(1), 5);
}

QTEST_GUILESS_MAIN(TestSimulator)
#include "tst_simulator.moc"
