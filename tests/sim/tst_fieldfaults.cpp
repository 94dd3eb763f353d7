#include "sim/control.h"
#include "sim/device.h"
#include "sim/frame.h"
#include "support/columns.h"
#include "support/frames.h"
#include "support/ptyrig.h"

#include <QElapsedTimer>
#include <QtTest>
#include <functional>

using testsupport::frame;
using testsupport::hex;

namespace {

// Reads from the host's port until `expected` bytes came; the time-out only ends a
// hung test.
QByteArray readBytes(hw::SerialPort& port, int expected)
{
    QByteArray in;
    QElapsedTimer clock;
    clock.start();
    while (in.size() < expected && clock.elapsed() < 60000) {
        if (port.waitForInput(1000))
            in += port.read(0);
    }
    return in;
}

const QByteArray coinsRequest = frame(55, 1, 82);

using Setup = std::function<void(sim::Simulator&)>;

} // namespace

Q_DECLARE_METATYPE(Setup)

// Faults a recycler meets in the field: counters restarting, foreign frames and
// noise in front of an answer, one command's answer lost.
class TestFieldFaults : public QObject
{
    Q_OBJECT
private slots:
    void restartStartsTheCountersAgain()
    {
        sim::Device device;
        device.handleFrame(frame(55, 1, 231, hex("ffff")));
        device.insertCoin(1);
        device.insertCoin(2);
        device.advance(10000);
        QCOMPARE(int(device.coinsInByType(1)), 1);
        QCOMPARE(int(device.coinsInByType(2)), 1);
        device.restartCoinCounters();
        QCOMPARE(int(device.coinsInByType(1)), 0);
        QCOMPARE(int(device.coinsInByType(2)), 0);
        // The audit counters are not the coins-in counters: they keep what came in.
        QCOMPARE(device.auditCounter(70, 1), 1u);
        const QByteArray answer = device.handleFrame(coinsRequest);
        QCOMPARE(sim::frame::data(answer), QByteArray(32, '\0'));
    }

    void controlCommands_data()
    {
        testsupport::columns<QString, QString>("command", "reply");
        QTest::newRow("restart") << QStringLiteral("restart counters") << QStringLiteral("ok");
        QTest::newRow("restart what") << QStringLiteral("restart hoppers")
                                      << QStringLiteral("error: unknown command or wrong arguments: restart "
                                                        "hoppers (try help)");
        QTest::newRow("foreign") << QStringLiteral("foreign") << QStringLiteral("ok");
        QTest::newRow("foreign 3") << QStringLiteral("foreign 3") << QStringLiteral("ok");
        QTest::newRow("foreign x") << QStringLiteral("foreign x")
                                   << QStringLiteral("error: a count expected");
        QTest::newRow("badframe 2") << QStringLiteral("badframe 2") << QStringLiteral("ok");
        QTest::newRow("drop to a header") << QStringLiteral("drop 1 121") << QStringLiteral("ok");
        QTest::newRow("drop to no header")
            << QStringLiteral("drop 1 300") << QStringLiteral("error: drop N [HEADER]");
    }

    void controlCommands()
    {
        QFETCH(QString, command);
        QFETCH(QString, reply);
        sim::Simulator simulator;
        sim::ControlChannel control(simulator);
        QCOMPARE(control.execute(command), reply);
        QVERIFY(control.help().contains(QStringLiteral("restart counters")));
        QVERIFY(control.help().contains(QStringLiteral("foreign [N]")));
        QVERIFY(control.help().contains(QStringLiteral("badframe [N]")));
        QVERIFY(control.help().contains(QStringLiteral("drop N [HEADER]")));
    }

    // Decoys before the answer: the answer's data, every byte one higher, from station 3 to
    // station 2 with a correct checksum, or a 130-byte frame from the device to the host whose
    // checksum byte is wrong. The next answer comes alone.
    void decoyBeforeTheAnswer_data()
    {
        testsupport::columns<Setup, QByteArray, int>("setup", "decoy", "decoySize");
        QTest::newRow("foreign frame") << Setup([](sim::Simulator& s) { s.foreignFrameBeforeNext(1); })
                                       << frame(2, 3, 0, QByteArray(32, '\1')) << 37;
        QByteArray bad = frame(1, 55, 0, QByteArray(32, '\1') + QByteArray(98, '\0'));
        bad[bad.size() - 1] = char(bad.at(bad.size() - 1) ^ 0x5A);
        QTest::newRow("bad frame") << Setup([](sim::Simulator& s) { s.badFrameBeforeNext(1); }) << bad << 135;
    }

    void decoyBeforeTheAnswer()
    {
        QFETCH(Setup, setup);
        QFETCH(QByteArray, decoy);
        QFETCH(int, decoySize);
        QCOMPARE(decoy.size(), decoySize);
        testsupport::PtyRig rig;
        QVERIFY2(rig.opened(), qPrintable(rig.error));
        setup(rig.simulator);
        rig.port.write(coinsRequest);
        const QByteArray answer = frame(1, 55, 0, QByteArray(32, '\0'));
        const QByteArray expected = coinsRequest + decoy + answer;
        QCOMPARE(readBytes(rig.port, expected.size()), expected);
        QCOMPARE(rig.simulator.transactions().last().answer, decoy + answer);

        rig.port.write(coinsRequest);
        QCOMPARE(readBytes(rig.port, coinsRequest.size() + answer.size()), coinsRequest + answer);
    }

    // Only the purge's answer is lost; the purge itself runs.
    void dropTheAnswerToOneHeader()
    {
        sim::Config config = sim::Config::defaults();
        config.payoutMsPerCoin = 1;
        testsupport::PtyRig rig(config);
        QVERIFY2(rig.opened(), qPrintable(rig.error));
        rig.simulator.dropAnswersTo(121, 1);
        const QByteArray poll = frame(55, 1, 254);
        rig.port.write(poll);
        QCOMPARE(readBytes(rig.port, 10), poll + frame(1, 55, 0));
        const QByteArray purge = frame(55, 1, 121, hex("0300"));
        rig.port.write(purge);
        rig.port.write(poll);
        QCOMPARE(readBytes(rig.port, purge.size() + 10), purge + poll + frame(1, 55, 0));
        QCOMPARE(rig.simulator.transactions().at(1).header, quint8(121));
        QVERIFY(rig.simulator.transactions().at(1).answer.isEmpty());
        QElapsedTimer clock;
        clock.start();
        while (rig.simulator.hopperCount(3) != 0 && clock.elapsed() < 60000)
            QThread::msleep(5);
        QCOMPARE(rig.simulator.hopperCount(3), 0);
    }
};

QTEST_GUILESS_MAIN(TestFieldFaults)
#include "tst_fieldfaults.moc"
