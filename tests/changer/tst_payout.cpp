#include "cctalk/exception.h"
#include "devicemodel.h"
#include "support/logcapture.h"
#include "testchanger.h"

#include <QtTest>

#include <climits>

using namespace changertest;

namespace {

SumDetailed coins(std::initializer_list<std::pair<const unsigned int, long long>> items)
{
    SumDetailed sum;
    sum.denoms = denoms(items);
    return sum;
}

QByteArray pattern(const QList<QPair<int, int>>& pairs)
{
    QByteArray out;
    for (const auto& p : pairs) {
        out.append(char(p.first));
        out.append(char(p.second));
    }
    return out;
}

// Reads of one hopper's two dispense counters: the first pair before the payout,
// the second after it.
QList<QByteArray> counterReads(const QList<int>& hoppers)
{
    QList<QByteArray> out;
    for (int h : hoppers)
        out << req(86, bytes({80, h})) << req(86, bytes({87, h}));
    return out;
}

// hopper1 holds 10.00, hopper2 5.00.
QList<CashControlUnit> payoutUnits()
{
    return {hopperUnit(QStringLiteral("hopper1"), 1000), hopperUnit(QStringLiteral("hopper2"), 500),
            cashboxUnit()};
}

// Hopper1 has counted 100 + 4 coins out and hopper2 50 + 0, before and after a payout.
void prepare(Rig& rig)
{
    rig.changer.setUnits(payoutUnits());
    rig.model.setAudits(80, {{1, 100}, {2, 50}});
    rig.model.setAudits(87, {{1, 4}, {2, 0}});
    rig.model.setActivity(0);
    rig.model.onAny(80, DeviceModel::data(QByteArray()));
    rig.model.onAny(85, DeviceModel::data(QByteArray()));
    rig.model.onAny(125, DeviceModel::data(QByteArray()));
}

// The simulated recycler: hopper1 with 10.00, hopper2 with 5.00, hopper5 with 0.50 for
// amounts in kopecks. A coin a millisecond and answers 50 ms late: a payout of a few dozen
// coins is over before the changer next asks.
sim::Config payoutRecycler(int count2 = 250)
{
    sim::Config c = sim::Config::defaults();
    c.payoutMsPerCoin = 1;
    c.answerDelayMs = 50;
    c.hoppers[1].count = count2;
    c.hoppers[4].enabled = true;
    c.hoppers[4].count = 100;
    return c;
}

// Before a payout hopper1 has counted 100 coins paid out and 4 purged, hopper2 50 and 0.
sim::Config countedRecycler()
{
    sim::Config c = payoutRecycler();
    c.auditCounters[80] = {{1, 100}, {2, 50}};
    c.auditCounters[87] = {{1, 4}, {2, 0}};
    return c;
}

struct PayoutRig : SimChangerRig
{
    explicit PayoutRig(const sim::Config& config = payoutRecycler()) : SimChangerRig(config)
    {
        changer.setUnits(payoutUnits());
    }
    // The activity register shows a payout running, whatever the device does.
    void stuckPaying() { activitySequence({8}); }
    // The answer to the first request with this header is lost; the device still acts on it.
    void loseFirstAnswerTo(quint8 header)
    {
        beforeAnswer(header, [this, header, n = 0]() mutable {
            if (n++ == 0)
                line.dropAnswersTo(header, 1);
        });
    }
};

class SpyChanger : public RecordingChanger
{
public:
    QStringList calls;

    QMap<unsigned int, long long> getHoppersCounters() override
    {
        calls << QStringLiteral("getHoppersCounters");
        return Changer::getHoppersCounters();
    }
    void waitNotState(int state, int polls, const QString& text, bool checkErrors) override
    {
        calls << QStringLiteral("waitNotState(%1, %2, %3, %4)")
                     .arg(QString::number(state), QString::number(polls), text,
                          checkErrors ? QStringLiteral("true") : QStringLiteral("false"));
    }
    SumDetailed getLastCashOut() override
    {
        calls << QStringLiteral("getLastCashOut");
        return Changer::getLastCashOut();
    }
};

} // namespace

class TestPayout : public QObject
{
    Q_OBJECT
private slots:
    void cleanup() { RecordingChanger::setResetPending(false); }

    void patternOfOneDenomination();
    void patternWaitsTwoPollsPerCoin();
    void emptyPatternIsStillSent();
    void sameDenominationInTwoHoppersGoesToTheFirst();
    void sameDenominationSplitByWhatEachHopperHolds();
    void denominationWithoutHopperIsIgnored();
    void oneHopperPatternSplitsIntoPairs();
    void amountByMinimumAndOptimalModes();
    void amountWaitsUpToThreeHundredPolls();
    void purgeEmptiesOneHopper();
    void purgeWithLostAnswerWhileThePurgeRuns();
    void purgeWithLostAnswerAfterThePurgeEnded();
    void purgeWithLostAnswerThatNeverArrived();
    void counterGoingDownIsUnknown();
    void lastCashOutKeepsItsSnapshot();
    void lostPatternAnswerIsNotRepeated();
    void lostAmountAnswerIsNotRepeated();
    void faultDuringThePayoutWait();
    void payoutsCallTheirStepsVirtually();

    void refusesNegativeCounts();
    void refusesPatternsLongerThanOneFrame();
    void longestPatternStillGoes();
    void refusesLongSingleHopperPayout();
    void refusesAmountsOutsideThirtyTwoBits();
    void unrelatedFaultDuringAFullPayout();
    void counterAcrossItsWrap();
    void countersOfOneDenominationDifferPerHopper();
    void refusedPayoutCommandPaidNothing();
    void countersUnreadableAfterThePayout();
    void waitGaveUpWhileTheDevicePaid();
    void purgeEndedByARestart();
};

void TestPayout::patternOfOneDenomination()
{
    PayoutRig rig(countedRecycler());
    testsupport::LogCapture log;
    const SumDetailed paid = rig.changer.cashOut(coins({{1000, 3}, {500, 0}}));
    QCOMPARE(rig.writes(),
             counterReads({1, 2}) + frames({req(85, bytes({0x01, 0x03})), req(123)}) + counterReads({1, 2}));
    QCOMPARE(paid.denoms, denoms({{500, 0}, {1000, 3}}));
    QCOMPARE(paid.rest, 0LL);
    QCOMPARE(significant(log),
             QStringList({QStringLiteral("INFO Счетчики хопперов: 10.00 x 104, 5.00 x 50"),
                          QStringLiteral("INFO Счетчики хопперов: 10.00 x 107, 5.00 x 50")}));
    QCOMPARE(rig.changer.lastSnapshot(), denoms({{500, 50}, {1000, 104}}));
}

void TestPayout::patternWaitsTwoPollsPerCoin()
{
    PayoutRig rig(countedRecycler());
    rig.stuckPaying();
    QCOMPARE(thrownText<CcTalk::Exception>([&] {
                 rig.changer.cashOut(coins({{1000, 3}, {500, 0}}));
             }),
             QStringLiteral("Таймаут ожидания завершения выдачи монет; выдано не менее 30.00"));
    QCOMPARE(rig.changer.sleeps.size(), 66);
    QVERIFY(rig.writes().contains(req(85, bytes({0x01, 0x03}))));
    // the snapshot stays for a later look at what came out
    QCOMPARE(rig.changer.lastSnapshot(), denoms({{500, 50}, {1000, 104}}));
    QCOMPARE(rig.changer.getLastCashOut().denoms, denoms({{500, 0}, {1000, 3}}));
}

void TestPayout::emptyPatternIsStillSent()
{
    PayoutRig rig;
    rig.stuckPaying();
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(SumDetailed()), CcTalk::Exception);
    QCOMPARE(rig.writes().mid(4, 1), QList<QByteArray>{req(85)});
    QCOMPARE(rig.changer.sleeps.size(), 60);

    PayoutRig quiet;
    const SumDetailed paid = quiet.changer.cashOut(SumDetailed());
    QCOMPARE(paid.denoms, denoms({{500, 0}, {1000, 0}}));
}

void TestPayout::sameDenominationInTwoHoppersGoesToTheFirst()
{
    // Without counts the first hopper in unit order is asked for everything.
    sim::Config config = payoutRecycler();
    config.hoppers[0].coinId = QStringLiteral("RU500A");
    PayoutRig rig(config);
    rig.changer.setUnits({hopperUnit(QStringLiteral("hopper2"), 500),
                          hopperUnit(QStringLiteral("hopper1"), 500), cashboxUnit()});
    rig.stuckPaying();
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(coins({{500, 4}})), CcTalk::Exception);
    QCOMPARE(rig.writes().mid(0, 5), counterReads({2, 1}) + frames({req(85, bytes({2, 4}))}));
    QCOMPARE(rig.changer.sleeps.size(), 68);
}

void TestPayout::sameDenominationSplitByWhatEachHopperHolds()
{
    const QList<CashControlUnit> units = {hopperUnit(QStringLiteral("hopper2"), 500, 3),
                                          hopperUnit(QStringLiteral("hopper1"), 500, 5), cashboxUnit()};
    sim::Config config = payoutRecycler();
    config.hoppers[0].coinId = QStringLiteral("RU500A");
    // unit order, each at most what it holds
    PayoutRig minimum(config);
    minimum.changer.setUnits(units);
    minimum.changer.cashOut(coins({{500, 6}}));
    QCOMPARE(minimum.writes().at(4), req(85, bytes({2, 3, 1, 3})));
    QCOMPARE(minimum.changer.sleeps.size(), 0);
    PayoutRig plain(config);
    plain.changer.setUnits(units);
    plain.changer.cashOut(coins({{500, 6}}), ECashControl::Minimum);
    QCOMPARE(plain.writes().at(4), req(85, bytes({2, 3, 1, 3})));

    // the fuller hopper first
    PayoutRig optimal(config);
    optimal.changer.setUnits(units);
    optimal.changer.cashOut(coins({{500, 6}}), ECashControl::Optimal);
    QCOMPARE(optimal.writes().at(4), req(85, bytes({1, 5, 2, 1})));

    // more than both hold: the rest goes to the first, and the device pays what it can
    PayoutRig more(config);
    more.changer.setUnits(units);
    more.changer.cashOut(coins({{500, 10}}), ECashControl::Optimal);
    QCOMPARE(more.writes().at(4), req(85, bytes({1, 7, 2, 3})));
}

void TestPayout::denominationWithoutHopperIsIgnored()
{
    PayoutRig rig;
    const SumDetailed paid = rig.changer.cashOut(coins({{200, 5}, {500, 2}, {1000, 1}}));
    QCOMPARE(rig.writes().at(4), req(85, bytes({1, 1, 2, 2})));
    QCOMPARE(paid.denoms, denoms({{500, 2}, {1000, 1}}));
}

void TestPayout::oneHopperPatternSplitsIntoPairs()
{
    PayoutRig rig(payoutRecycler(750));
    rig.stuckPaying();
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(2, 700), CcTalk::Exception);
    QCOMPARE(rig.writes().mid(0, 6),
             counterReads({1, 2}) + frames({req(85, bytes({0x02, 0xFF, 0x02, 0xFF, 0x02, 0xBE})), req(123)}));
    QCOMPARE(rig.changer.sleeps.size(), 1460);

    PayoutRig quiet(payoutRecycler(750));
    QCOMPARE(quiet.changer.cashOut(2, 700).denoms, denoms({{500, 700}, {1000, 0}}));

    // no coins: a pattern without data
    PayoutRig none;
    none.changer.cashOut(1, 0);
    QCOMPARE(none.writes().at(4), req(85));
}

void TestPayout::amountByMinimumAndOptimalModes()
{
    // 15.50: hopper5 pays the 0.50, a hopper without a unit
    PayoutRig rig;
    const SumDetailed paid = rig.changer.cashOut(ECashControl::Minimum, 1550);
    QCOMPARE(rig.writes(),
             counterReads({1, 2}) +
                 frames({req(80, bytes({0x00})), req(125, bytes({0x0E, 0x06, 0, 0})), req(123)}) +
                 counterReads({1, 2}));
    QCOMPARE(paid.denoms, denoms({{500, 1}, {1000, 1}}));

    PayoutRig optimal;
    optimal.changer.cashOut(ECashControl::Optimal, 1550);
    QCOMPARE(optimal.writes().mid(4, 2),
             QList<QByteArray>({req(80, bytes({0x02})), req(125, bytes({0x0E, 0x06, 0, 0}))}));

    PayoutRig unknown;
    unknown.changer.cashOut(ECashControl::ChangeMode(7), 100);
    QCOMPARE(unknown.writes().mid(4, 2),
             QList<QByteArray>({req(80, bytes({0x00})), req(125, bytes({0x64, 0, 0, 0}))}));
}

void TestPayout::amountWaitsUpToThreeHundredPolls()
{
    PayoutRig rig;
    rig.stuckPaying();
    testsupport::LogCapture log;
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(ECashControl::Optimal, 500), CcTalk::Exception);
    QCOMPARE(rig.changer.sleeps.size(), 300);
    QVERIFY(significant(log).contains(QStringLiteral("ERROR Таймаут ожидания завершения выдачи монет")));
}

void TestPayout::purgeEmptiesOneHopper()
{
    PayoutRig rig(payoutRecycler(37));
    const SumDetailed paid = rig.changer.purge(2);
    // after the wait one more look: a restart of the device would have ended the purge
    QCOMPARE(rig.writes(), counterReads({1, 2}) + frames({req(121, bytes({2, 0})), req(123), req(123)}) +
                               counterReads({1, 2}));
    QCOMPARE(paid.denoms, denoms({{500, 37}, {1000, 0}}));

    PayoutRig slow;
    slow.stuckPaying();
    QVERIFY_EXCEPTION_THROWN(slow.changer.purge(1), CcTalk::Exception);
    QCOMPARE(slow.changer.sleeps.size(), 2000);
    QCOMPARE(slow.writes().at(4), req(121, bytes({1, 0})));
}

// The purge's answer is lost but the device shows a payout in progress: the command
// went through, so it is not sent again; the wait and the counters tell what it did.
void TestPayout::purgeWithLostAnswerWhileThePurgeRuns()
{
    PayoutRig rig(payoutRecycler(37));
    rig.loseFirstAnswerTo(121);
    rig.activitySequence({8, 8, 0});
    testsupport::LogCapture log;
    const SumDetailed paid = rig.changer.purge(2);
    // The activity reads: the check after the lost answer, the wait's first read, the
    // error check after its pause, the wait's next read.
    QCOMPARE(rig.writes(),
             counterReads({1, 2}) +
                 frames({req(121, bytes({2, 0})), req(123), req(123), req(123), req(123), req(123)}) +
                 counterReads({1, 2}));
    QCOMPARE(paid.denoms, denoms({{500, 37}, {1000, 0}}));
    QCOMPARE(rig.changer.sleeps, QList<int>({200, 1000}));
    QVERIFY(significant(log).contains(QStringLiteral("ERROR Нет связи")));
    QVERIFY(
        significant(log).contains(QStringLiteral("WARN Ответ на команду потерян, устройство ее выполняет")));
}

// A short purge may be over before the device is asked: its counters have moved.
void TestPayout::purgeWithLostAnswerAfterThePurgeEnded()
{
    PayoutRig rig(payoutRecycler(6));
    rig.loseFirstAnswerTo(121);
    const SumDetailed paid = rig.changer.purge(2);
    QCOMPARE(rig.writes().count(req(121, bytes({2, 0}))), 1);
    QCOMPARE(paid.denoms, denoms({{500, 6}, {1000, 0}}));
}

// Nothing moved and nothing runs: the command did not reach the device. The purge
// fails without a second transmission; purging again later is safe.
void TestPayout::purgeWithLostAnswerThatNeverArrived()
{
    PayoutRig rig;
    // the line drops the purge before the device sees it
    rig.beforeAnswer(121, [&rig] { rig.line.setSilent(true); });
    rig.beforeAnswer(123, [&rig] { rig.line.setSilent(false); });
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.purge(2); }),
             QStringLiteral("Нет связи; выдано 0.00"));
    // the counters read once more for the log of what came out
    QCOMPARE(rig.writes(), counterReads({1, 2}) + frames({req(121, bytes({2, 0})), req(123)}) +
                               counterReads({1, 2}) + frames({req(123)}) + counterReads({1, 2}));
    QCOMPARE(rig.changer.sleeps, QList<int>({200}));
    QCOMPARE(log.texts(QStringLiteral("WARN")), QStringList{QStringLiteral("Выдано 0.00")});
}

void TestPayout::counterGoingDownIsUnknown()
{
    PayoutRig rig(countedRecycler());
    // hopper1's counter reads 100 before the payout and 90 after it: the device lost its
    // counters, and nothing tells how many of hopper1's coins went
    rig.beforeAnswer(85, [&rig] { rig.device().setAuditCounter(80, 1, 90); });
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] {
                 rig.changer.cashOut(coins({{500, 2}}));
             }),
             QStringLiteral("Счетчики выдачи сброшены устройством; выдано: неизвестно"));
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral("Выдано: неизвестно, счетчики хопперов сброшены")});
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.getLastCashOut(); }),
             QStringLiteral("Счетчики выдачи сброшены устройством"));
}

void TestPayout::lastCashOutKeepsItsSnapshot()
{
    PayoutRig rig;
    QCOMPARE(rig.changer.cashOut(1, 2).denoms, denoms({{500, 0}, {1000, 2}}));
    QCOMPARE(rig.changer.getLastCashOut().denoms, denoms({{500, 0}, {1000, 2}}));
    QCOMPARE(rig.changer.getLastCashOut().denoms, denoms({{500, 0}, {1000, 2}}));

    // a denomination missing from the snapshot counts from zero
    sim::Config config = payoutRecycler();
    config.auditCounters[80][1] = 6;
    config.auditCounters[87][1] = 1;
    PayoutRig fresh(config);
    fresh.changer.setUnits({hopperUnit(QStringLiteral("hopper1"), 1000)});
    QCOMPARE(fresh.changer.getLastCashOut().denoms, denoms({{1000, 7}}));
    QCOMPARE(fresh.writes(), counterReads({1}));
}

// The payout's answer is lost: the command is not sent again, the device pays anyway, and
// what came out is the plan, so the payout succeeds with a warning.
void TestPayout::lostPatternAnswerIsNotRepeated()
{
    PayoutRig rig;
    rig.loseFirstAnswerTo(85);
    testsupport::LogCapture log;
    QCOMPARE(rig.changer.cashOut(coins({{1000, 3}})).denoms, denoms({{500, 0}, {1000, 3}}));
    QCOMPARE(rig.writes().count(req(85, bytes({1, 3}))), 1);
    // no payout runs any more; the counters tell what came out
    QCOMPARE(rig.writes().mid(4), frames({req(85, bytes({1, 3})), req(123)}) + counterReads({1, 2}));
    QCOMPARE(rig.changer.sleeps, QList<int>{200});
    QCOMPARE(significant(log).count(QStringLiteral("ERROR Нет связи")), 1);
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral("Выдача выполнена полностью, несмотря на ошибку: Нет связи")});
}

// The same for the amount left to the device's own split: the amount came out.
void TestPayout::lostAmountAnswerIsNotRepeated()
{
    PayoutRig rig;
    rig.loseFirstAnswerTo(125);
    QCOMPARE(rig.changer.cashOut(ECashControl::Minimum, 1000).sum(), 1000LL);
    QCOMPARE(rig.writes().mid(4),
             frames({req(80, bytes({0})), req(125, bytes({0xE8, 0x03, 0, 0})), req(123)}) +
                 counterReads({1, 2}));
    QCOMPARE(rig.changer.sleeps, QList<int>{200});

    // a payout that came out short is still a failure, with what came out
    PayoutRig shortRig(payoutRecycler(0));
    shortRig.loseFirstAnswerTo(85);
    QCOMPARE(thrownText<CcTalk::Exception>([&] {
                 shortRig.changer.cashOut(coins({{500, 2}}));
             }),
             QStringLiteral("Нет связи; выдано 0.00"));
}

void TestPayout::faultDuringThePayoutWait()
{
    sim::Config config = payoutRecycler();
    config.payoutMsPerCoin = 10;
    PayoutRig rig(config);
    // The jam after the first coin ends the payout.
    rig.beforeAnswer(85, [&rig] { rig.line.at(rig.line.now() + 15, [&rig] { rig.device().jamHopper(1); }); });
    rig.activitySequence({8, 8 | 16, 16});
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.cashOut(1, 5); }),
             QStringLiteral("Хоппер 1, заклинивание; выдано 10.00"));
    QVERIFY(RecordingChanger::resetPending());
    QCOMPARE(rig.writes().mid(4),
             frames({req(85, bytes({1, 5})), req(123), req(123), req(122), req(232), req(123)}) +
                 counterReads({1, 2}));
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral("Выдано 10.00. номиналы: 10.00 x 1")});
}

void TestPayout::payoutsCallTheirStepsVirtually()
{
    SimRigOf<SpyChanger> rig;
    rig.changer.cashOut(coins({{1000, 3}}));
    rig.changer.cashOut(1, 3);
    rig.changer.cashOut(ECashControl::Optimal, 100);
    rig.changer.purge(4);
    // The snapshot keeps each hopper's own counters; the sums per denomination would lose a
    // counter's wrap.
    const QString wait = QStringLiteral("waitNotState(8, %1, завершения выдачи монет, true)");
    QCOMPARE(rig.changer.calls,
             QStringList({wait.arg(60), QStringLiteral("getLastCashOut"), wait.arg(66),
                          QStringLiteral("getLastCashOut"), wait.arg(300), QStringLiteral("getLastCashOut"),
                          wait.arg(2000), QStringLiteral("getLastCashOut")}));
    // no hopper units: the coins were for nobody and the pattern went out empty
    QCOMPARE(rig.writes().first(), req(85));
    QCOMPARE(rig.refusals(), 0);
}

void TestPayout::refusesNegativeCounts()
{
    SimChangerRig rig;
    rig.changer.setUnits(payoutUnits());
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] {
                 rig.changer.cashOut(coins({{1000, 1}, {500, -1}}));
             }),
             QStringLiteral("Некорректная сумма"));
    // also for a denomination that no hopper holds
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(coins({{200, -3}})), CcTalk::Exception);
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(coins({{1000, LLONG_MIN}})), CcTalk::Exception);
    QVERIFY(rig.writes().isEmpty());
    QCOMPARE(significant(log), QStringList({QStringLiteral("ERROR Некорректная сумма"),
                                            QStringLiteral("ERROR Некорректная сумма"),
                                            QStringLiteral("ERROR Некорректная сумма")}));
}

void TestPayout::refusesPatternsLongerThanOneFrame()
{
    SimChangerRig rig;
    rig.changer.setUnits(payoutUnits());
    testsupport::LogCapture log;
    // 62 pairs: 124 data bytes
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(coins({{1000, 61 * 255 + 1}})), CcTalk::Exception);
    // 30 + 32 pairs over two hoppers
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(coins({{1000, 30 * 255}, {500, 31 * 255 + 1}})),
                             CcTalk::Exception);
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(coins({{1000, LLONG_MAX}})), CcTalk::Exception);
    QVERIFY(rig.writes().isEmpty());
    QCOMPARE(significant(log).count(QStringLiteral("ERROR Некорректная сумма")), 3);
    QCOMPARE(significant(log).size(), 3);
}

void TestPayout::longestPatternStillGoes()
{
    sim::Config config = payoutRecycler();
    for (sim::HopperConfig& hopper : config.hoppers)
        hopper.count = hopper.capacity = 16000;
    PayoutRig rig(config);
    QList<QPair<int, int>> pairs;
    for (int i = 0; i < 30; ++i)
        pairs << qMakePair(1, 255);
    for (int i = 0; i < 30; ++i)
        pairs << qMakePair(2, 255);
    pairs << qMakePair(2, 1);
    rig.changer.cashOut(coins({{1000, 30 * 255}, {500, 30 * 255 + 1}}));
    QCOMPARE(rig.writes().at(4), req(85, pattern(pairs)));
    QCOMPARE(pattern(pairs).size(), 122);

    PayoutRig single(config);
    single.changer.cashOut(1, 61 * 255);
    QCOMPARE(single.writes().at(4).size(), 5 + 122);
}

void TestPayout::refusesLongSingleHopperPayout()
{
    SimChangerRig rig;
    rig.changer.setUnits(payoutUnits());
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.cashOut(1, 61 * 255 + 1); }),
             QStringLiteral("Некорректная сумма"));
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(2, 0xFFFFFFFFu), CcTalk::Exception);
    QVERIFY(rig.writes().isEmpty());
    QCOMPARE(significant(log), QStringList({QStringLiteral("ERROR Некорректная сумма"),
                                            QStringLiteral("ERROR Некорректная сумма")}));
}

// Scripted: the device takes 0xFFFFFFFF, an amount the simulator refuses as unpayable.
void TestPayout::refusesAmountsOutsideThirtyTwoBits()
{
    Rig rig;
    prepare(rig);
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.cashOut(ECashControl::Optimal, -500); }),
             QStringLiteral("Некорректная сумма"));
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(ECashControl::Minimum, -1), CcTalk::Exception);
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(ECashControl::Minimum, 0x100000000LL), CcTalk::Exception);
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashOut(ECashControl::Minimum, LLONG_MIN), CcTalk::Exception);
    QVERIFY(rig.serial.writes.isEmpty());
    QCOMPARE(significant(log).count(QStringLiteral("ERROR Некорректная сумма")), 4);

    // the bounds themselves still go
    rig.changer.cashOut(ECashControl::Minimum, 0xFFFFFFFFLL);
    QCOMPARE(rig.serial.writes.at(5), req(125, bytes({0xFF, 0xFF, 0xFF, 0xFF})));
    rig.serial.writes.clear();
    rig.changer.cashOut(ECashControl::Minimum, 0);
    QCOMPARE(rig.serial.writes.at(5), req(125, bytes({0, 0, 0, 0})));
}

// An open door flagged while the coins go out: the payout came out as planned, so it is a
// payout; the fault is a warning.
void TestPayout::unrelatedFaultDuringAFullPayout()
{
    sim::Config config = payoutRecycler();
    config.payoutMsPerCoin = 400;
    PayoutRig rig(config);
    rig.beforeAnswer(85, [&rig] { rig.line.at(rig.line.now() + 100, [&rig] { rig.device().openDoor(); }); });
    testsupport::LogCapture log;
    const SumDetailed paid = rig.changer.cashOut(coins({{1000, 3}}));
    QCOMPARE(paid.denoms, denoms({{500, 0}, {1000, 3}}));
    QCOMPARE(rig.line.countHeader(85), 1);
    const QStringList warnings = log.texts(QStringLiteral("WARN"));
    QCOMPARE(warnings.size(), 1);
    QVERIFY2(warnings.at(0).startsWith(QStringLiteral("Выдача выполнена полностью, несмотря на ошибку: ")),
             qPrintable(warnings.at(0)));
}

// Each dispense counter is taken on its own, modulo 2^32: two coins across the wrap are
// two coins.
void TestPayout::counterAcrossItsWrap()
{
    sim::Config config = payoutRecycler();
    config.auditCounters[80] = {{1, 0xFFFFFFFFu}, {2, 3}};
    config.auditCounters[87] = {{1, 0xFFFFFFFEu}};
    PayoutRig rig(config);
    QCOMPARE(rig.changer.cashOut(coins({{1000, 2}})).denoms, denoms({{500, 0}, {1000, 2}}));
    QCOMPARE(rig.device().auditCounter(80, 1), 1u);
    // the purge counter wraps during the purge
    const long long held = rig.device().hopperCount(1);
    QVERIFY(held > 2);
    QCOMPARE(rig.changer.purge(1).denoms, denoms({{500, 0}, {1000, held}}));
    QCOMPARE(rig.device().auditCounter(87, 1), quint32(held - 2));
}

// Two hoppers of one denomination: one counter near its wrap, the other far from it. A sum
// over the hoppers taken before subtracting would lose the carry.
void TestPayout::countersOfOneDenominationDifferPerHopper()
{
    sim::Config config = payoutRecycler();
    config.hoppers[1].coinId = config.hoppers[0].coinId;
    config.auditCounters[80] = {{1, 0xFFFFFFFFu}, {2, 0x7FFFFFFFu}};
    PayoutRig rig(config);
    rig.changer.setUnits(
        {hopperUnit(QStringLiteral("hopper1"), 1000, 10), hopperUnit(QStringLiteral("hopper2"), 1000, 10)});
    QCOMPARE(rig.changer.cashOut(coins({{1000, 14}})).denoms, denoms({{1000, 14}}));
}

void TestPayout::refusedPayoutCommandPaidNothing()
{
    PayoutRig rig;
    rig.refuse(85);
    QCOMPARE(thrownText<CcTalk::Exception>([&] {
                 rig.changer.cashOut(coins({{1000, 2}}));
             }),
             QStringLiteral("Ошибка выполнения команды; выдано 0.00"));
    QCOMPARE(rig.line.countHeader(85), 1);
    QCOMPARE(rig.device().hopperCount(1), rig.line.config().hoppers.at(0).count);
}

// The coins went out, but the counters that tell how many cannot be read.
void TestPayout::countersUnreadableAfterThePayout()
{
    PayoutRig rig;
    bool sent = false;
    rig.beforeAnswer(85, [&sent] { sent = true; });
    rig.beforeAnswer(86, [&rig, &sent] {
        if (sent)
            rig.line.nakNext();
    });
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] {
                 rig.changer.cashOut(coins({{1000, 2}}));
             }),
             QStringLiteral("Ошибка выполнения команды; выдано: неизвестно"));
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral("Выдано: неизвестно, счетчики хопперов не прочитаны")});
    QCOMPARE(rig.line.countHeader(85), 1);
}

// The wait ran out of polls while the device still paid: the message says what came out
// so far as a lower bound, and the next operation that finds the payout over logs the
// final figure once.
void TestPayout::waitGaveUpWhileTheDevicePaid()
{
    sim::Config config = payoutRecycler();
    config.payoutMsPerCoin = 30000;
    PayoutRig rig(config);
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] {
                 rig.changer.cashOut(coins({{1000, 3}}));
             }),
             QStringLiteral("Таймаут ожидания завершения выдачи монет; выдано не менее 20.00"));
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral("Выдано не менее 20.00. номиналы: 10.00 x 2")});
    QVERIFY(rig.changer.payoutOpen());
    rig.line.advance(60000);
    testsupport::LogCapture later;
    rig.changer.checkState();
    rig.changer.checkState();
    QCOMPARE(later.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral("Выдача завершена, выдано 30.00. номиналы: 10.00 x 3")});
    QVERIFY(!rig.changer.payoutOpen());
}

// The device restarts in the middle of a purge: the purge ends, but the hopper is not empty.
// The call fails with what came out, so nobody writes the hopper's count as 0.
void TestPayout::purgeEndedByARestart()
{
    sim::Config config = payoutRecycler(40);
    config.payoutMsPerCoin = 100;
    PayoutRig rig(config);
    rig.beforeAnswer(121,
                     [&rig] { rig.line.at(rig.line.now() + 1050, [&rig] { rig.device().powerCycle(); }); });
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.purge(2); }),
             QStringLiteral("Выдача прервана перезапуском устройства; выдано 50.00"));
    QCOMPARE(rig.device().hopperCount(2), 30);
    QCOMPARE(rig.line.countHeader(121), 1);
}

QTEST_GUILESS_MAIN(TestPayout)
#include "tst_payout.moc"
