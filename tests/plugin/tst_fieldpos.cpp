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
    RecordingDriver* driver = nullptr;
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

    // A session in which two 10.00 coins are accepted and reported.
    void acceptTwoTens()
    {
        driver->cashInStart(false, {});
        rig->simulator.insertCoin(4);
        rig->simulator.insertCoin(4);
        waitForReported(2000);
        driver->cashInStop();
    }

    long long acceptedBySimulator() const
    {
        return static_cast<long long>(rig->simulator.valueAccepted() - acceptedAtStart);
    }

    // Patterns of the dispense commands the simulator received, in order.
    QList<QByteArray> patterns() const
    {
        QList<QByteArray> out;
        for (const sim::Transaction& t : rig->simulator.transactions()) {
            if (t.header == 85)
                out << t.frame.mid(4, t.frame.size() - 5);
        }
        return out;
    }

    quint32 paidOutOf(int hopper) const
    {
        return rig->simulator.auditCounter(80, quint8(hopper)) +
               rig->simulator.auditCounter(87, quint8(hopper));
    }

    void start(const sim::Config& config)
    {
        RecordingChanger::setResetPending(false);
        rig = new testsupport::PtyRig(config);
        QVERIFY2(rig->opened(), qPrintable(rig->error));
        driver = new RecordingDriver;
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

private slots:
    void init() { start(testsupport::fastConfig()); }

    void cleanup()
    {
        delete driver;
        delete rig;
        driver = nullptr;
        rig = nullptr;
        RecordingChanger::setResetPending(false);
    }

    void acceptanceSessionsOneAfterAnother()
    {
        // 10.00 twice.
        acceptTwoTens();
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
        acceptTwoTens();
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

    // A hopper jam flagged during acceptance, then a poll whose answers are all lost: each
    // time the acceptor is closed at once and the stop reports every coin taken, once.
    void acceptanceAcrossFailedPolls()
    {
        driver->cashInStart(false, {});
        rig->simulator.insertCoin(4);
        waitForReported(1000);
        rig->simulator.insertCoin(1);
        rig->simulator.flagHopperJam(1);
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, hangMsecs);
        QCOMPARE(errors.at(0), QStringLiteral("Монетоприемник: Хоппер 1, заклинивание"));
        QCOMPARE(rig->simulator.inhibitMask(), quint16(0));
        const long long acceptedAtFailure = acceptedBySimulator();
        rig->simulator.insertCoin(4);
        QCOMPARE(acceptedBySimulator(), acceptedAtFailure);
        rig->simulator.clearFaults();
        driver->cashInStop();
        QCOMPARE(acceptedBySimulator(), 1100LL);
        QCOMPARE(reported, 1100LL);

        // The next session begins with the reset the fault asked for.
        driver->cashInStart(true, {});
        rig->simulator.insertCoin(3);
        waitForReported(1600);
        rig->simulator.dropAnswersTo(82, 5);
        rig->simulator.insertCoin(2);
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 2, hangMsecs);
        QCOMPARE(errors.at(1), QStringLiteral("Монетоприемник: Нет связи"));
        QCOMPARE(rig->simulator.inhibitMask(), quint16(0));
        driver->cashInStop();
        QCOMPARE(acceptedBySimulator(), 1800LL);
        QCOMPARE(reported, 1800LL);
        QCOMPARE(errors.size(), 2);
    }

    // Hoppers 1 and 2 both hold 10.00 coins, 2 and 5 of them; hopper 3 holds three 2.00
    // coins, hopper 4 no 1.00 coin: 76.00 in all.
    void twoHoppersOfOneDenomination()
    {
        cleanup();
        sim::Config config = testsupport::fastConfig();
        config.hoppers[1].coinId = config.hoppers[0].coinId;
        config.hoppers[0].count = 2;
        config.hoppers[1].count = 5;
        config.hoppers[1].capacity = config.hoppers[0].capacity;
        config.hoppers[2].count = 3;
        config.hoppers[3].count = 0;
        start(config);

        QVERIFY(driver->cashOutCheck(ECashControl::Minimum, 7000));
        QVERIFY(driver->cashOutCheck(ECashControl::Optimal, 7000));
        // More 10.00 coins than both hold: refused before anything moves.
        for (ECashControl::ChangeMode mode : {ECashControl::Minimum, ECashControl::Optimal}) {
            QVERIFY(!driver->cashOutCheck(mode, 8000));
            QCOMPARE(thrownText([&] { driver->cashOut(mode, 8000); }),
                     QStringLiteral("Монетоприемник: Невозможно выдать сумму"));
        }
        QCOMPARE(rig->simulator.coinsPaidOut(), quint64(0));
        QVERIFY(patterns().isEmpty());

        const SumDetailed first = driver->cashOut(ECashControl::Minimum, 3000);
        QCOMPARE(first.denoms.value(1000), 3LL);
        QCOMPARE(patterns(), QList<QByteArray>{QByteArray::fromHex("01020201")});
        QCOMPARE(rig->simulator.hopperCount(1), 0);
        QCOMPARE(rig->simulator.hopperCount(2), 4);

        const SumDetailed second = driver->cashOut(ECashControl::Optimal, 3000);
        QCOMPARE(second.denoms.value(1000), 3LL);
        QCOMPARE(patterns().last(), QByteArray::fromHex("0203"));
        QCOMPARE(rig->simulator.hopperCount(2), 1);

        // One 10.00 coin and three 2.00 coins left: 20.00 cannot be paid.
        const quint64 paidBefore = rig->simulator.coinsPaidOut();
        QVERIFY(!driver->cashOutCheck(ECashControl::Optimal, 2000));
        QCOMPARE(thrownText([&] { driver->cashOut(ECashControl::Minimum, 2000); }),
                 QStringLiteral("Монетоприемник: Невозможно выдать сумму"));
        QCOMPARE(rig->simulator.coinsPaidOut(), paidBefore);
        QCOMPARE(patterns().size(), 2);

        // Two coins accepted go into hopper 1, which then is the fuller one.
        acceptTwoTens();
        QCOMPARE(rig->simulator.hopperCount(1), 2);
        const SumDetailed third = driver->cashOut(ECashControl::Optimal, 3000);
        QCOMPARE(third.toString(), QStringLiteral("30.00. номиналы: 10.00 x 3"));
        QCOMPARE(patterns().last(), QByteArray::fromHex("01020201"));
        QCOMPARE(rig->simulator.hopperCount(1), 0);
        QCOMPARE(rig->simulator.hopperCount(2), 0);
        QVERIFY(errors.isEmpty());
    }

    // Hopper 2 is jammed: hopper 1 pays its coins, then the payout stops on the fault. One
    // warning tells what came out, as the simulator counted it.
    void jamMidwayThroughAPayout()
    {
        rig->simulator.jamHopper(2);
        const quint32 ten = paidOutOf(1), five = paidOutOf(2);
        testsupport::LogCapture log;
        QCOMPARE(thrownText([&] { driver->cashOut(ECashControl::Minimum, 3500); }),
                 QStringLiteral("Монетоприемник: Хоппер 2, заклинивание; выдано 30.00"));
        QCOMPARE(patterns(), QList<QByteArray>{QByteArray::fromHex("01030201")});
        SumDetailed measured;
        measured.denoms[1000] = paidOutOf(1) - ten;
        measured.denoms[500] = paidOutOf(2) - five;
        QCOMPARE(measured.sum(), 3000LL);
        QCOMPARE(log.texts(QStringLiteral("WARN")),
                 QStringList{QStringLiteral("Выдано ") + measured.toString()});

        // Freed, the same driver pays again after the reset the fault asked for.
        rig->simulator.jamHopper(2, false);
        const SumDetailed paid = driver->cashOut(ECashControl::Minimum, 500);
        QCOMPARE(paid.denoms.value(500), 1LL);
    }

    // The payout's answer is lost: the command is not sent again, the coins come out, and
    // the cashier gets the change, not an error.
    void lostPayoutAnswerStillPays()
    {
        const quint64 paidBefore = rig->simulator.coinsPaidOut();
        rig->simulator.dropAnswersTo(85, 1);
        const SumDetailed paid = driver->cashOut(ECashControl::Minimum, 1700);
        QCOMPARE(paid.sum(), 1700LL);
        QCOMPARE(rig->simulator.countHeader(85), 1);
        QCOMPARE(rig->simulator.coinsPaidOut() - paidBefore, quint64(1700));
    }

    // Hopper 1's dispense counter stands just below its wrap: two coins are two coins.
    void payoutAcrossTheCounterWrap()
    {
        QVERIFY(rig->simulator.setAuditCounter(80, 1, 0xFFFFFFFFu));
        const SumDetailed paid = driver->cashOut(ECashControl::Minimum, 2000);
        QCOMPARE(paid.denoms.value(1000), 2LL);
        QCOMPARE(rig->simulator.auditCounter(80, 1), 1u);
    }

    // Answers cut short while coins come in: each is asked again, none reads as zeros,
    // and every coin is reported once.
    void shortAnswersWhileAccepting()
    {
        driver->cashInStart(false, {});
        rig->simulator.insertCoin(4);
        rig->simulator.shortenNext(2);
        waitForReported(1000);
        rig->simulator.insertCoin(3);
        rig->simulator.shortenNext(1);
        waitForPolls(3);
        rig->simulator.insertCoin(1);
        rig->simulator.shortenNext(2);
        driver->cashInStop();
        QCOMPARE(acceptedBySimulator(), 1600LL);
        QCOMPARE(reported, 1600LL);
        QVERIFY2(errors.isEmpty(), qPrintable(errors.join(QLatin1Char('|'))));
    }

    // The enable's answer is lost and a coin enters while the driver waits to send it again:
    // the coin is the session's.
    void coinWhileTheEnableIsRepeated()
    {
        acceptTwoTens();
        rig->simulator.dropAnswersTo(231, 1);
        rig->simulator.whenRequested(231, [](sim::Device& device) {
            // The command reaches the device, which enables its positions and takes a coin
            // before the lost answer is missed.
            device.answer(1, 231, QByteArray::fromHex("FFFF"));
            device.insertCoin(4);
        });
        driver->cashInStart(false, {});
        QTRY_COMPARE_WITH_TIMEOUT(reported, 3000LL, hangMsecs);
        driver->cashInStop();
        QCOMPARE(acceptedBySimulator(), 3000LL);
        QCOMPARE(reported, 3000LL);
    }

    // A fault found by the background check asks for a reset while a session is armed and
    // a coin is on its way: the session is closed and the coin reported before the reset.
    void resetWhileASessionIsArmed()
    {
        driver->cashInStart(false, {});
        rig->simulator.insertCoin(4);
        rig->simulator.flagHopperJam(3);
        driver->enableAsyncCheck(true);
        QCOMPARE(errors, QStringList{QStringLiteral("Монетоприемник: Хоппер 3, заклинивание")});
        const int resets = rig->simulator.countHeader(1);
        driver->checkState();
        QCOMPARE(rig->simulator.countHeader(1), resets + 1);
        QCOMPARE(acceptedBySimulator(), 1000LL);
        QCOMPARE(reported, 1000LL);
        QCOMPARE(rig->simulator.inhibitMask(), quint16(0));
    }

    // The host starts acceptance again from its received() slot while a stop reports: the
    // new session is the host's and its coins are read.
    void hostStartsAgainFromItsSlot()
    {
        bool again = true;
        QObject::connect(driver, &hw::BasicCashControl::received, driver, [&](SumDetailed) {
            if (again) {
                again = false;
                driver->cashInStart(false, {});
            }
        });
        driver->cashInStart(false, {});
        // The stop waits for the coin in flight and reports it.
        rig->simulator.insertCoin(4);
        driver->cashInStop();
        QCOMPARE(reported, 1000LL);
        QVERIFY(rig->simulator.inhibitMask() != 0);
        rig->simulator.insertCoin(3);
        waitForReported(1500);
        driver->cashInStop();
        QCOMPARE(acceptedBySimulator(), 1500LL);
        QCOMPARE(reported, 1500LL);
        QCOMPARE(rig->simulator.inhibitMask(), quint16(0));
    }
};

QTEST_GUILESS_MAIN(TestFieldPos)
#include "tst_fieldpos.moc"
