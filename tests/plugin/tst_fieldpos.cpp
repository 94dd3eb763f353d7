// One driver object kept through a working day, as a POS keeps it: acceptance sessions
// one after another, a device that restarts its counters, foreign frames and noise on
// the line, coins loaded and taken by hand after coins moved, a lost purge answer and
// more BUSY answers than one exchange may wait out. The real driver on the host's
// serial port, over a pseudo-terminal, against the simulated recycler.
#include "testdriver.h"

#include "support/ptyrig.h"

#include <QSignalSpy>
#include <QThread>
#include <QtTest>

using namespace plugintest;

namespace {

// Generous: it only ends a hung test.
const int hangMsecs = 60000;

} // namespace

class TestFieldPos : public QObject
{
    Q_OBJECT

    testsupport::PtyRig* rig = nullptr;
    TestDriver* driver = nullptr;
    long long reported = 0;
    QStringList errors;
    quint64 acceptedAtStart = 0;

    // Waits until the driver has polled the coin counters n more times.
    void waitForPolls(int n)
    {
        const int target = rig->simulator.countHeader(82) + n;
        QTRY_VERIFY_WITH_TIMEOUT(rig->simulator.countHeader(82) >= target, hangMsecs);
    }

    void waitForReported(long long amount) { QTRY_COMPARE_WITH_TIMEOUT(reported, amount, hangMsecs); }

    long long acceptedBySimulator() const
    {
        return static_cast<long long>(rig->simulator.valueAccepted() - acceptedAtStart);
    }

private slots:
    void init()
    {
        RecordingChanger::clearResetRequest();
        rig = new testsupport::PtyRig(testsupport::fastConfig());
        QVERIFY2(rig->opened(), qPrintable(rig->error));
        driver = new TestDriver;
        // The driver's pauses are a second at a time; the quick recycler needs far less.
        driver->recorder->onPause = [](int msecs) {
            QThread::msleep(static_cast<unsigned long>(qMin(msecs, 10)));
        };
        reported = 0;
        errors.clear();
        QObject::connect(driver, &hw::BasicCashControl::received,
                         [this](SumDetailed sum) { reported += sum.sum(); });
        QObject::connect(driver, &hw::BasicCashControl::error, [this](QString msg) { errors << msg; });
        driver->setProperty("serialObj", QVariant::fromValue<QObject*>(&rig->port));
        driver->init();
        driver->connect();
        acceptedAtStart = rig->simulator.valueAccepted();
    }

    void cleanup()
    {
        delete driver;
        delete rig;
        driver = nullptr;
        rig = nullptr;
        RecordingChanger::clearResetRequest();
    }

    void acceptanceSessionsOneAfterAnother()
    {
        // 10.00 twice.
        driver->cashInStart(false, {});
        rig->simulator.insertCoin(4);
        rig->simulator.insertCoin(4);
        waitForReported(2000);
        driver->cashInStop();
        QCOMPARE(acceptedBySimulator(), 2000LL);

        // Between sessions the acceptor is inhibited: the coin is refused, nothing counts.
        rig->simulator.insertCoin(4);
        QCOMPARE(rig->simulator.inhibitMask(), quint16(0));

        // Every denomination excluded: the device keeps its counters and enables nothing;
        // the previous session's coins are not reported again.
        driver->cashInStart(false, driver->getAcceptableDenoms());
        QCOMPARE(rig->simulator.inhibitMask(), quint16(0));
        waitForPolls(3);
        QCOMPARE(reported, 2000LL);
        driver->cashInStop();

        // The device restarts its counters during acceptance; then a foreign frame and a
        // 130-byte frame with a wrong checksum come before answers. No coin is invented.
        driver->cashInStart(false, {});
        waitForPolls(1);
        rig->simulator.restartCoinCounters();
        waitForPolls(2);
        rig->simulator.foreignFrameBeforeNext(3);
        waitForPolls(4);
        rig->simulator.badFrameBeforeNext(3);
        waitForPolls(4);
        QCOMPARE(reported, 2000LL);
        rig->simulator.insertCoin(1);
        waitForReported(2100);

        // Started again without a stop: counting goes on from the device's counters.
        driver->cashInStart(true, {});
        waitForPolls(2);
        QCOMPARE(reported, 2100LL);
        rig->simulator.insertCoin(2);
        waitForReported(2300);
        driver->cashInStop();

        QCOMPARE(reported, acceptedBySimulator());
        QVERIFY2(errors.isEmpty(), qPrintable(errors.join(QLatin1Char('|'))));
    }

    void handWorkAfterCoinsMoved()
    {
        // Two 10.00 coins go into hopper1 (200 -> 202) after discovery.
        driver->cashInStart(false, {});
        rig->simulator.insertCoin(4);
        rig->simulator.insertCoin(4);
        waitForReported(2000);
        driver->cashInStop();
        QCOMPARE(rig->simulator.hopperCount(1), 202);

        // A manual load of one coin writes the device's count plus one.
        driver->loan(QStringLiteral("hopper1"), ECashControl::ManualLoad, 1000);
        QCOMPARE(rig->simulator.hopperCount(1), 203);

        // Change paid out of the hoppers, then five coins taken out by hand.
        const quint64 paidBefore = rig->simulator.coinsPaidOut();
        const SumDetailed change = driver->cashOut(ECashControl::Optimal, 3500);
        QCOMPARE(change.sum(), 3500LL);
        QCOMPARE(static_cast<long long>(rig->simulator.coinsPaidOut() - paidBefore), 3500LL);
        const int held = rig->simulator.hopperCount(1);
        const SumDetailed taken =
            driver->pickup(QStringLiteral("hopper1"), ECashControl::ManualPickupSum, 5000);
        QCOMPARE(taken.denoms, (QMap<unsigned int, long long>{{1000, 5}}));
        QCOMPARE(rig->simulator.hopperCount(1), held - 5);
        QCOMPARE(rig->simulator.countHeader(120), 2);
    }

    // The purge's answer is lost: it is not sent again, and what it paid is reported.
    void lostPurgeAnswer()
    {
        const int held = rig->simulator.hopperCount(2);
        const quint64 paidBefore = rig->simulator.coinsPaidOut();
        rig->simulator.dropAnswersTo(121, 1);
        const SumDetailed purged =
            driver->pickup(QStringLiteral("hopper2"), ECashControl::DispensePickupAll, 0);
        QCOMPARE(rig->simulator.countHeader(121), 1);
        QCOMPARE(purged.denoms.value(500), static_cast<long long>(held));
        QCOMPARE(static_cast<long long>(rig->simulator.coinsPaidOut() - paidBefore), purged.sum());
        QCOMPARE(rig->simulator.hopperCount(2), 0);
    }

    // Sixty BUSY answers in all used to exhaust a driver object for good.
    void busyAnswersSpreadOverOperations()
    {
        rig->simulator.answerBusy(45);
        QCOMPARE(driver->getUnits().size(), 5);
        rig->simulator.answerBusy(45);
        QVERIFY(driver->cashOutCheck(ECashControl::Optimal, 1500));
        rig->simulator.answerBusy(45);
        const quint64 paidBefore = rig->simulator.coinsPaidOut();
        const SumDetailed paid = driver->cashOut(ECashControl::Minimum, 1500);
        QCOMPARE(paid.sum(), 1500LL);
        QCOMPARE(rig->simulator.coinsPaidOut() - paidBefore, quint64(1500));
        int busyAnswers = 0;
        for (const sim::Transaction& t : rig->simulator.transactions()) {
            if (t.answer.size() == 5 && quint8(t.answer.at(3)) == 6)
                ++busyAnswers;
        }
        QCOMPARE(busyAnswers, 135);
    }
};

QTEST_GUILESS_MAIN(TestFieldPos)
#include "tst_fieldpos.moc"
