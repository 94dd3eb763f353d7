#include "cctalk/exception.h"
#include "devicemodel.h"
#include "support/columns.h"
#include "support/logcapture.h"
#include "testchanger.h"

#include <QSignalSpy>
#include <QtTest>

using namespace changertest;

namespace {

SumDetailed sumOf(const QVariant& value)
{
    return value.value<SumDetailed>();
}

// Positions 1..4: 1.00, 10.00, 2.00, 2.00; hoppers for 1.00, 2.00 and 10.00.
void standard(Rig& rig)
{
    rig.model.recycler({"RU100A", "RU1K0A", "RU200A", "RU200A"},
                       {{"RU100A", 10, 500, true}, {"RU200A", 10, 500, true}, {"RU1K0A", 10, 500, true}}, 0);
    rig.discover();
    rig.model.setActivity(0);
    rig.model.on(165, bytes({0}), QByteArray());
    rig.model.on(165, bytes({255}), QByteArray());
    for (int mask = 0; mask < 16; ++mask)
        rig.model.on(231, bytes({mask, 0}), QByteArray());
    rig.model.setCoinsIn({});
}

// The same recycler simulated.
sim::Config standardRecycler()
{
    return recycler({"RU100A", "RU1K0A", "RU200A", "RU200A"},
                    {{"RU100A", 10, 500, true}, {"RU200A", 10, 500, true}, {"RU1K0A", 10, 500, true}}, 0);
}

// The simulated recycler, its units discovered.
struct StandardSimRig : SimChangerRig
{
    explicit StandardSimRig(const sim::Config& config = standardRecycler()) : SimChangerRig(config)
    {
        discover();
    }
};

// The simulated recycler in a session that accepts every denomination, in normal mode.
struct AcceptingRig : StandardSimRig
{
    AcceptingRig() { changer.cashInStart(false, {}); }
};

// Reads of the acceptance audit counters of these positions: as a session opens, and when it
// closes.
QList<QByteArray> audits(const QList<int>& positions)
{
    QList<QByteArray> out;
    for (int p : positions)
        out << req(86, bytes({70, p}));
    return out;
}

const QList<int> allFour{1, 2, 3, 4};

// Coins put into the acceptor at a position, waited for until they have landed.
void land(SimChangerRig& rig, int position, int coins = 1)
{
    for (int i = 0; i < coins; ++i)
        rig.device().insertCoin(position);
    rig.line.advance(rig.line.config().coinAcceptMs);
}

} // namespace

class TestAcceptance : public QObject
{
    Q_OBJECT
private slots:
    void startEnablesEachRecycledDenominationOnce();
    void startFastWithAnExcludedDenomination();
    void positionsBeyondTheRegisterAreNotEnabled();
    void startFailureLeavesAcceptanceNotStarted();
    void baselineFailureEnablesNothing();
    void firstPollCountsFromTheStartOfTheSession();
    void unchangedCountersReportNothing();
    void positionsOfOneDenominationAddUp();
    void counterGoingDownIsTakenAsNewBaseline();
    void corruptedCounterIsNeverReported();
    void longGapBetweenPollsAllowsMoreCoins();
    void onePollReportsTheCoins_data();
    void onePollReportsTheCoins();
    void newSessionNeverReportsEarlierCoins();
    void sessionWithEverythingExcludedReportsNothing();
    void sessionStartedAgainWithoutStop();
    void stopReportsCoinsSinceTheLastPoll();
    void stopWithoutPollingMakesNoFinalPoll();
    void stopWaitsForAcceptanceToEnd();
    void pollFailureEmitsErrorAndStopsPolling();
    void inhibitAfterFailedPollMayFail();
    void faultDuringAcceptanceAfterCoinsWereReported();
    void pollWithoutAcceptingDoesNotRearm();
    void timerDrivesThePolls();
    void receivedCanBeQueued();
    void baselineIsReadBeforeTheEnable();
    void coinDuringARepeatedEnableIsCounted();
    void coinOfferedDuringARepeatedBaselineReadIsRefused();
    void failedEnableLeavesASessionToClose();
    void oddReadingCountsOnlyWhenConfirmed();
    void singleOddReadingIsNeitherCountedNorABaseline();
    void resetClosesAnArmedSessionFirst();
    void hostStartingAgainFromItsSlotKeepsItsSession();
    void hostRestartingFromAPollSlotKeepsItsSession();
    void coinsLostToARestartAreFoundByTheStop();
    void hostStartingAgainDuringTheClosingBeforeAReset();
    void auditCheckThatCannotBeMade();
    void moreReportedThanTheAuditCounted();
};

void TestAcceptance::startEnablesEachRecycledDenominationOnce()
{
    // The simulator restarts its counters at 0 when a session enables acceptance.
    Rig rig;
    rig.model.recycler({"RU1K0A", "RU1K0A"}, {{"RU1K0A", 10, 500, true}}, 0);
    rig.discover();
    rig.model.on(165, bytes({0}), QByteArray());
    rig.model.on(231, bytes({3, 0}), QByteArray());
    rig.model.setCoinsIn({{1, 4}, {2, 9}});
    testsupport::LogCapture log;
    rig.changer.cashInStart(false, {});
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(165, bytes({0})), req(82)}) + audits({1, 2}) +
                                    QList<QByteArray>({req(231, bytes({0x03, 0x00})), req(82)}));
    QCOMPARE(log.texts(QStringLiteral("INFO")), QStringList({QStringLiteral("Режим приема монет: нормальный"),
                                                             QStringLiteral("Доступные номиналы: 10.00")}));
    QVERIFY(rig.changer.isAccepting());
    QVERIFY(rig.changer.timer()->isActive());
    QCOMPARE(rig.changer.lastCounts().size(), 16);
    QCOMPARE(rig.changer.lastCounts().value(1), 4u);
    QCOMPARE(rig.changer.lastCounts().value(2), 9u);
    QVERIFY(rig.changer.sleeps.isEmpty());
}

void TestAcceptance::startFastWithAnExcludedDenomination()
{
    // position 5 (0.50) has no hopper and is never enabled
    SimChangerRig rig(
        recycler({"RU100A", "RU500A", "RU500A", "RU1K0A", "RU050A"},
                 {{"RU100A", 10, 500, true}, {"RU500A", 10, 500, true}, {"RU1K0A", 10, 500, true}}, 0));
    rig.discover();
    testsupport::LogCapture log;
    rig.changer.cashInStart(true, {500});
    QCOMPARE(rig.writes(), QList<QByteArray>({req(165, bytes({0xFF})), req(82)}) + audits({1, 4}) +
                               QList<QByteArray>({req(231, bytes({0x09, 0x00})), req(82)}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList({QStringLiteral("Режим приема монет: ускоренный"),
                          QStringLiteral("Доступные номиналы: 1.00, 10.00")}));

    // nothing acceptable: an empty list and every position inhibited
    SimChangerRig none(recycler({"RU100A"}, {{"RU100A", 10, 500, true}}, 0));
    none.discover();
    testsupport::LogCapture log2;
    none.changer.cashInStart(false, {100});
    QCOMPARE(none.writes().mid(none.writes().size() - 2),
             QList<QByteArray>({req(231, bytes({0, 0})), req(82)}));
    QCOMPARE(log2.texts(QStringLiteral("INFO")).last(), QStringLiteral("Доступные номиналы: "));
}

void TestAcceptance::positionsBeyondTheRegisterAreNotEnabled()
{
    // The simulator has at most 16 coin positions.
    Rig rig;
    QList<QByteArray> coins;
    for (int p = 1; p <= 17; ++p)
        coins << QByteArray(p == 16 || p == 17 ? "RU200A" : "RU001A");
    rig.model.recycler(coins, {{"RU200A", 10, 500, true}}, 0);
    rig.discover();
    rig.model.on(165, bytes({0}), QByteArray());
    rig.model.on(231, bytes({0x00, 0x80}), QByteArray());
    rig.model.setCoinsIn({});
    testsupport::LogCapture log;
    rig.changer.cashInStart(false, {});
    QCOMPARE(rig.serial.writes.at(rig.serial.writes.size() - 2), req(231, bytes({0x00, 0x80})));
    QCOMPARE(log.texts(QStringLiteral("INFO")).last(), QStringLiteral("Доступные номиналы: 2.00"));
}

void TestAcceptance::startFailureLeavesAcceptanceNotStarted()
{
    StandardSimRig rig;
    rig.refuse(231);
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::NakException>([&] { rig.changer.cashInStart(false, {}); }),
             QStringLiteral("Ошибка выполнения команды"));
    QVERIFY(!rig.changer.isAccepting());
    QVERIFY(!rig.changer.timer()->isActive());
    // A NAK may refuse only the repeat of an enable whose answer was lost: the session stays
    // open for the closing, and every position is refused again at once.
    QVERIFY(rig.changer.sessionOpen());
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral("Прием монет не запрещен: Ошибка выполнения команды")});
    rig.removeHook(231);
    rig.changer.cashInStop();
    QVERIFY(!rig.changer.sessionOpen());

    rig.refuse(165);
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashInStart(true, {}), CcTalk::NakException);
    QCOMPARE(rig.writes().last(), req(165, bytes({255})));
    QVERIFY(!rig.changer.timer()->isActive());
}

// Without a baseline the session would count coins nobody can account for: it is read
// before anything is enabled, and when it fails nothing is.
void TestAcceptance::baselineFailureEnablesNothing()
{
    StandardSimRig rig;
    rig.refuse(82);
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashInStart(false, {}), CcTalk::NakException);
    QCOMPARE(rig.writes(), QList<QByteArray>({req(165, bytes({0})), req(82)}));
    QVERIFY(!rig.changer.isAccepting());
    QVERIFY(!rig.changer.timer()->isActive());
    QVERIFY(!rig.changer.sessionOpen());
}

// The counters the device holds when the session starts are not the session's coins.
void TestAcceptance::firstPollCountsFromTheStartOfTheSession()
{
    // The simulator restarts its counters at 0 when a session enables acceptance.
    Rig rig;
    standard(rig);
    rig.model.setCoinsIn({{2, 2}, {1, 1}});
    rig.changer.cashInStart(false, {});
    rig.serial.writes.clear();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    testsupport::LogCapture log;
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(82), req(123)}));
    QCOMPARE(received.size(), 0);
    QVERIFY(log.texts(QStringLiteral("INFO")).isEmpty());

    rig.model.setCoinsIn({{2, 4}, {1, 2}});
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    const SumDetailed sum = sumOf(received.at(0).at(0));
    QCOMPARE(sum.denoms, denoms({{100, 1}, {1000, 2}}));
    QCOMPARE(sum.rest, 0LL);
    QCOMPARE(sum.extra, 0LL);
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList{QStringLiteral("Принято: 21.00. номиналы: 1.00 x 1, 10.00 x 2")});
    QCOMPARE(errors.size(), 0);
    QVERIFY(rig.changer.timer()->isActive());
    QCOMPARE(rig.changer.lastCounts().size(), 16);
    QCOMPARE(rig.changer.lastCounts().value(2), 4u);
}

void TestAcceptance::unchangedCountersReportNothing()
{
    AcceptingRig rig;
    land(rig, 2, 7);
    rig.changer.checkMoneyIn();
    rig.line.clearTransactions();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(82), req(123)}));
    QCOMPARE(received.size(), 0);
    QVERIFY(log.texts(QStringLiteral("INFO")).isEmpty());
    QVERIFY(rig.changer.timer()->isActive());
}

void TestAcceptance::positionsOfOneDenominationAddUp()
{
    AcceptingRig rig;
    land(rig, 3, 10);
    land(rig, 4, 20);
    rig.changer.checkMoneyIn();
    land(rig, 3);
    land(rig, 4, 2);
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{200, 3}}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList{QStringLiteral("Принято: 6.00. номиналы: 2.00 x 3")});
}

// A device that restarts its counters during acceptance: no coins, a warning, and
// counting goes on from the new values.
void TestAcceptance::counterGoingDownIsTakenAsNewBaseline()
{
    AcceptingRig rig;
    land(rig, 1, 57);
    land(rig, 2, 12);
    land(rig, 3, 4);
    rig.line.advance(60000);
    rig.changer.checkMoneyIn();
    // the acceptor restarts; position 3 takes as many coins again
    rig.device().restartCoinCounters();
    land(rig, 3, 4);
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    testsupport::LogCapture log;
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 0);
    QCOMPARE(significant(log), QStringList{QStringLiteral(
                                   "WARN Счетчики монет взяты за новую точку отсчета (сброс устройства или "
                                   "искаженный ответ): позиция 1: 57 -> 0, позиция 2: 12 -> 0")});
    QVERIFY(rig.changer.timer()->isActive());

    land(rig, 1);
    land(rig, 3);
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 1}, {200, 1}}));
    QCOMPARE(errors.size(), 0);
}

// A garbled answer that jumps far up is not coins, and neither is the way back.
void TestAcceptance::corruptedCounterIsNeverReported()
{
    // The simulator's counters start at 0 and grow by the coins it takes.
    Rig rig;
    standard(rig);
    rig.model.setCoinsIn({{1, 10}});
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsInSequence({{{1, 40000}}, {{1, 10}}, {{1, 11}}});
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    // the odd reading is read again at once, and the second reading does not confirm it
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 0);
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral(
                 "Показание счетчиков монет не подтверждено, отброшено: позиция 1: 10 -> 40000")});
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 1}}));
}

// The bound grows with the time between two readings: 200 coins in 10 seconds are
// coins, 200 coins between two readings a moment apart are not.
void TestAcceptance::longGapBetweenPollsAllowsMoreCoins()
{
    StandardSimRig rig;
    qint64 now = 1000;
    rig.changer.setClock([&now] { return now; });
    rig.changer.cashInStart(false, {});
    land(rig, 1, 200);
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    now += 10000;
    rig.changer.checkMoneyIn();
    land(rig, 1, 200);
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 200}}));
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(rig.changer.lastCounts().value(1), 400u);
}

using Counts = QMap<int, quint16>;
using Denoms = QMap<unsigned int, long long>;

// One poll on the modelled device after the session started at the counts `before`.
void TestAcceptance::onePollReportsTheCoins_data()
{
    testsupport::columns<Counts, Counts, Denoms, QString, QStringList>("before", "after", "denoms", "level",
                                                                       "lines");
    // The counters are 16 bits wide: 65535 then 1 is two coins. The simulator's counters start
    // at 0 and grow by the coins it takes.
    QTest::newRow("rollOverCountsTheCoinsThatWentIn")
        << Counts{{1, 65535}} << Counts{{1, 1}} << denoms({{100, 2}}) << QStringLiteral("WARN")
        << QStringList();
    // The simulator reports every position it takes a coin at.
    QTest::newRow("unknownPositionCountsForDenominationZero")
        << Counts() << Counts{{9, 3}, {1, 1}} << denoms({{0, 3}, {100, 1}}) << QStringLiteral("INFO")
        << QStringList{QStringLiteral("Принято: 1.00. номиналы: 0.00 x 3, 1.00 x 1")};
}

void TestAcceptance::onePollReportsTheCoins()
{
    QFETCH(Counts, before);
    QFETCH(Counts, after);
    QFETCH(Denoms, denoms);
    QFETCH(QString, level);
    QFETCH(QStringList, lines);
    Rig rig;
    standard(rig);
    rig.model.setCoinsIn(before);
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsIn(after);
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms);
    QCOMPARE(log.texts(level), lines);
}

void TestAcceptance::newSessionNeverReportsEarlierCoins()
{
    // The simulator takes no coins before the session enables their positions.
    Rig rig;
    standard(rig);
    rig.model.setCoinsIn({{1, 5}});
    rig.changer.cashInStart(false, {});
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    rig.model.setCoinsIn({{1, 6}});
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    rig.changer.cashInStop();
    QCOMPARE(received.size(), 1);

    // A coin counted while no session ran belongs to no session.
    rig.model.setCoinsIn({{1, 7}});
    rig.changer.cashInStart(false, {});
    QCOMPARE(rig.changer.lastCounts().value(1), 7u);
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    rig.model.setCoinsIn({{1, 8}});
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 2);
    QCOMPARE(sumOf(received.at(1).at(0)).denoms, denoms({{100, 1}}));
}

// Every denomination excluded: mask 0, the device keeps its counters, and the previous
// session's coins are not reported again.
void TestAcceptance::sessionWithEverythingExcludedReportsNothing()
{
    AcceptingRig rig;
    for (int position = 1; position <= 3; ++position)
        land(rig, position, position);
    rig.changer.cashInStop();
    testsupport::LogCapture log;
    rig.changer.cashInStart(false, {100, 200, 1000});
    QCOMPARE(rig.writes().mid(rig.writes().size() - 2),
             QList<QByteArray>({req(231, bytes({0, 0})), req(82)}));
    QCOMPARE(log.texts(QStringLiteral("INFO")).last(), QStringLiteral("Доступные номиналы: "));
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    rig.changer.checkMoneyIn();
    rig.changer.cashInStop();
    QCOMPARE(received.size(), 0);
}

void TestAcceptance::sessionStartedAgainWithoutStop()
{
    AcceptingRig rig;
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    land(rig, 2);
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    // the coin counted since the last poll is read before the new baseline
    land(rig, 2);
    rig.line.clearTransactions();
    rig.changer.cashInStart(true, {});
    QCOMPARE(rig.writes().mid(0, 8), QList<QByteArray>({req(231, bytes({0, 0})), req(123), req(82)}) +
                                         audits(allFour) + QList<QByteArray>{req(123)});
    QCOMPARE(received.size(), 2);
    QCOMPARE(sumOf(received.at(1).at(0)).denoms, denoms({{1000, 1}}));
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 2);
    land(rig, 2);
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 3);
    QCOMPARE(sumOf(received.at(2).at(0)).denoms, denoms({{1000, 1}}));
}

void TestAcceptance::stopReportsCoinsSinceTheLastPoll()
{
    AcceptingRig rig;
    land(rig, 1);
    rig.changer.checkMoneyIn();
    land(rig, 2);
    QVERIFY(rig.changer.timer()->isActive());
    rig.line.clearTransactions();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.cashInStop();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(231, bytes({0, 0})), req(123), req(82)}) + audits(allFour) +
                               QList<QByteArray>{req(123)});
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{1000, 1}}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList{QStringLiteral("Принято: 10.00. номиналы: 10.00 x 1")});
    QVERIFY(!rig.changer.isAccepting());
    QVERIFY(!rig.changer.timer()->isActive());
}

void TestAcceptance::stopWithoutPollingMakesNoFinalPoll()
{
    StandardSimRig rig;
    rig.changer.cashInStop();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(231, bytes({0, 0})), req(123)}));
    QVERIFY(!rig.changer.isAccepting());
}

void TestAcceptance::stopWaitsForAcceptanceToEnd()
{
    AcceptingRig rig;
    rig.activitySequence({4, 4, 4, 0, 0});
    rig.line.clearTransactions();
    testsupport::LogCapture log;
    rig.changer.cashInStop();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(231, bytes({0, 0})), req(123), req(123), req(123), req(123),
                                              req(123), req(82)}) +
                               audits(allFour) + QList<QByteArray>{req(123)});
    QCOMPARE(rig.changer.sleeps, QList<int>({1000, 1000}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList{QStringLiteral("Выполняется ожидание завершения приема монет...")});
}

void TestAcceptance::pollFailureEmitsErrorAndStopsPolling()
{
    AcceptingRig rig;
    land(rig, 1, 2);
    rig.refuse(82);
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    rig.changer.timer()->stop();
    rig.line.clearTransactions();
    rig.changer.checkMoneyIn();
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Ошибка выполнения команды"));
    // every position inhibited at once
    QCOMPARE(rig.writes(), QList<QByteArray>({req(82), req(231, bytes({0, 0}))}));
    QVERIFY(!rig.changer.timer()->isActive());
    QVERIFY(rig.changer.isAccepting());
    QCOMPARE(received.size(), 0);

    // stalled: the stop still reads the counters; while they cannot be read the stop
    // fails and the coins stay pending
    rig.line.clearTransactions();
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashInStop(), CcTalk::NakException);
    QCOMPARE(rig.writes(), QList<QByteArray>({req(231, bytes({0, 0})), req(123), req(82)}));
    QVERIFY(!rig.changer.isAccepting());

    // the repeated stop reports what came in since the last good poll, once
    rig.removeHook(82);
    rig.line.clearTransactions();
    rig.changer.cashInStop();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(231, bytes({0, 0})), req(123), req(82)}) + audits(allFour) +
                               QList<QByteArray>{req(123)});
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 2}}));
    rig.line.clearTransactions();
    rig.changer.cashInStop();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(231, bytes({0, 0})), req(123)}));
    QCOMPARE(received.size(), 1);

    // only a new start brings the polls back
    rig.changer.cashInStart(false, {});
    QVERIFY(rig.changer.timer()->isActive());
    land(rig, 1, 2);
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 2);
    QCOMPARE(errors.size(), 1);
}

// The link is gone: the inhibit fails quietly, with a warning, and polling ends.
void TestAcceptance::inhibitAfterFailedPollMayFail()
{
    AcceptingRig rig;
    rig.refuse(82);
    rig.refuse(231);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    rig.changer.timer()->stop();
    testsupport::LogCapture log;
    rig.changer.checkMoneyIn();
    QCOMPARE(errors.size(), 1);
    QCOMPARE(significant(log),
             QStringList({QStringLiteral("ERROR Ошибка выполнения команды"),
                          QStringLiteral("ERROR Ошибка выполнения команды"),
                          QStringLiteral("WARN Прием монет не запрещен: Ошибка выполнения команды")}));
    QVERIFY(!rig.changer.timer()->isActive());
    QVERIFY(rig.changer.isAccepting());
}

void TestAcceptance::faultDuringAcceptanceAfterCoinsWereReported()
{
    AcceptingRig rig;
    rig.device().insertCoin(3);
    rig.line.advance(rig.line.config().coinAcceptMs);
    rig.device().setActivityBits(16);
    rig.device().setErrorStatus(3, 2);
    rig.line.clearTransactions();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    testsupport::LogCapture log;
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QCOMPARE(rig.writes(),
             QList<QByteArray>({req(82), req(123), req(122), req(232), req(231, bytes({0, 0}))}));
    QCOMPARE(received.size(), 1);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Хоппер 3, заклинивание"));
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Принято: 2.00. номиналы: 2.00 x 1"),
                                            QStringLiteral("ERROR Хоппер 3, заклинивание")}));
    QVERIFY(!rig.changer.timer()->isActive());
    QCOMPARE(rig.changer.lastCounts().value(3), 1u);
    QVERIFY(RecordingChanger::resetPending());
}

void TestAcceptance::pollWithoutAcceptingDoesNotRearm()
{
    StandardSimRig rig;
    rig.changer.checkMoneyIn();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(82), req(123)}));
    QVERIFY(!rig.changer.timer()->isActive());
}

void TestAcceptance::timerDrivesThePolls()
{
    sim::Config config = standardRecycler();
    config.coinAcceptMs = 1;
    StandardSimRig rig(config);
    // Coins land a millisecond after they are put in, within the answer that follows: the
    // counter reads 0 before and after the enable, then 1, 1 and 3.
    rig.beforeAnswer(82, [&rig, n = 0]() mutable {
        const int coins = n == 1 ? 1 : n == 3 ? 2 : 0;
        for (int i = 0; i < coins; ++i)
            rig.device().insertCoin(1);
        ++n;
    });
    rig.changer.cashInStart(false, {});
    rig.changer.timer()->setInterval(2);
    rig.changer.timer()->start();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QVERIFY(received.wait(60000));
    if (received.size() < 2)
        QVERIFY(received.wait(60000));
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 1}}));
    QCOMPARE(sumOf(received.at(1).at(0)).denoms, denoms({{100, 2}}));
    QVERIFY(rig.line.countHeader(82) >= 4);
    rig.changer.cashInStop();
    const int polls = rig.line.countHeader(82);
    QTest::qWait(10);
    QCOMPARE(rig.line.countHeader(82), polls);
}

void TestAcceptance::receivedCanBeQueued()
{
    AcceptingRig rig;
    land(rig, 2);
    QList<SumDetailed> delivered;
    QObject::connect(
        &rig.changer, &CcTalk::Changer::received, &rig.changer, [&](SumDetailed sum) { delivered << sum; },
        Qt::QueuedConnection);
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QVERIFY(delivered.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(delivered.size(), 1);
    QCOMPARE(delivered.at(0).denoms, denoms({{1000, 1}}));
}

// Every position is still inhibited when the baseline is read; the reading after the
// enable shows a device that restarts its counters on enable.
void TestAcceptance::baselineIsReadBeforeTheEnable()
{
    AcceptingRig rig;
    land(rig, 1, 3);
    rig.changer.cashInStop();
    rig.line.clearTransactions();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.cashInStart(false, {});
    QCOMPARE(rig.writes(), QList<QByteArray>({req(165, bytes({0})), req(82)}) + audits(allFour) +
                               QList<QByteArray>({req(231, bytes({0x0F, 0})), req(82), req(82)}));
    // the simulator restarted its counters on the enable: the second reading confirms it
    QCOMPARE(rig.changer.lastCounts().value(1), 0u);
    QCOMPARE(received.size(), 0);
    QVERIFY(log.texts(QStringLiteral("WARN")).isEmpty());
    QCOMPARE(log.texts(QStringLiteral("INFO")).last(),
             QStringLiteral("Счетчики монет начаты устройством заново при разрешении приема"));
    land(rig, 1);
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 1}}));
}

// The enable's answer is lost and a coin lands while the driver waits to repeat it: the
// coin is the session's, counted from the restarted counter.
void TestAcceptance::coinDuringARepeatedEnableIsCounted()
{
    AcceptingRig rig;
    land(rig, 1, 3);
    rig.changer.cashInStop();
    rig.beforeAnswer(231, [&rig, n = 0]() mutable {
        if (n++ != 0)
            return;
        rig.line.dropAnswersTo(231, 1);
        rig.line.at(rig.line.now() + 10, [&rig] { rig.device().insertCoin(2); });
    });
    const quint32 before = rig.device().auditCounter(70, 2);
    rig.line.clearTransactions();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    rig.changer.cashInStart(false, {});
    QCOMPARE(rig.line.countHeader(231), 2);
    QCOMPARE(rig.device().auditCounter(70, 2) - before, 1u);
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{1000, 1}}));
    QVERIFY(rig.changer.timer()->isActive());
    rig.changer.cashInStop();
    QCOMPARE(received.size(), 1);
}

// While the baseline read is repeated every position is still inhibited: a coin offered
// then is refused by the device, and nothing is reported.
void TestAcceptance::coinOfferedDuringARepeatedBaselineReadIsRefused()
{
    StandardSimRig rig;
    rig.beforeAnswer(82, [&rig, n = 0]() mutable {
        if (n++ != 0)
            return;
        rig.line.dropAnswersTo(82, 1);
        rig.line.at(rig.line.now() + 10, [&rig] { rig.device().insertCoin(2); });
    });
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    rig.changer.cashInStart(false, {});
    rig.line.advance(1000);
    rig.changer.checkMoneyIn();
    rig.changer.cashInStop();
    QCOMPARE(rig.device().auditCounter(70, 2), 0u);
    QCOMPARE(received.size(), 0);
}

// The enable may have reached the device although its answer never came: the start fails,
// every position is inhibited again, and the session stays open until the usual closing
// reads what it took.
void TestAcceptance::failedEnableLeavesASessionToClose()
{
    StandardSimRig rig;
    rig.beforeAnswer(231, [&rig, n = 0]() mutable {
        if (n == 0) {
            rig.line.dropAnswersTo(231, 1);
            rig.line.at(rig.line.now() + 10, [&rig] { rig.device().insertCoin(2); });
        } else if (n == 1) {
            rig.line.setSilent(true);
        }
        ++n;
    });
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.cashInStart(false, {}); }),
             QStringLiteral("Нет связи"));
    QVERIFY(rig.changer.sessionOpen());
    QVERIFY(!rig.changer.timer()->isActive());
    rig.line.setSilent(false);
    rig.removeHook(231);
    rig.changer.checkState();
    QVERIFY(!rig.changer.sessionOpen());
    QCOMPARE(rig.device().auditCounter(70, 2), 1u);
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{1000, 1}}));
    QCOMPARE(rig.device().inhibitMask(), quint16(0));
}

// A restart of the counters in the middle of a session is believed only once a second
// reading right after it agrees.
void TestAcceptance::oddReadingCountsOnlyWhenConfirmed()
{
    AcceptingRig rig;
    land(rig, 1, 5);
    rig.changer.checkMoneyIn();
    rig.device().restartCoinCounters();
    rig.line.clearTransactions();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(82), req(82), req(123)}));
    QCOMPARE(received.size(), 0);
    QCOMPARE(significant(log),
             QStringList{QStringLiteral("WARN Счетчики монет взяты за новую точку отсчета "
                                        "(сброс устройства или искаженный ответ): позиция 1: 5 -> 0")});
    QCOMPARE(rig.changer.lastCounts().value(1), 0u);
}

// A stale answer (counts lower than the last ones) between two true ones: the coins are
// counted once, and the stale reading is dropped with a warning.
void TestAcceptance::singleOddReadingIsNeitherCountedNorABaseline()
{
    Rig rig;
    standard(rig);
    rig.model.setCoinsIn({{1, 10}});
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsInSequence({{{1, 12}}, {{1, 9}}, {{1, 13}}, {{1, 13}}});
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.checkMoneyIn();
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 2);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 2}}));
    QCOMPARE(sumOf(received.at(1).at(0)).denoms, denoms({{100, 1}}));
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{
                 QStringLiteral("Показание счетчиков монет не подтверждено, отброшено: позиция 1: 12 -> 9")});
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 2);
    QCOMPARE(rig.changer.lastCounts().value(1), 13u);
}

// A fault found outside the polls asks for a reset while a session is armed: the session
// is closed, its last coins read and reported, before the reset restarts the counters.
void TestAcceptance::resetClosesAnArmedSessionFirst()
{
    AcceptingRig rig;
    land(rig, 2, 2);
    QVERIFY(rig.changer.timer()->isActive());
    RecordingChanger::setResetPending(true);
    rig.line.clearTransactions();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    rig.changer.checkState();
    const QList<QByteArray> writes = rig.writes();
    QCOMPARE(writes.mid(0, 8), QList<QByteArray>({req(231, bytes({0, 0})), req(123), req(82)}) +
                                   audits(allFour) + QList<QByteArray>{req(1)});
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{1000, 2}}));
    QVERIFY(!rig.changer.sessionOpen());
    QVERIFY(!rig.changer.timer()->isActive());
    QVERIFY(!RecordingChanger::resetPending());
}

// The host starts acceptance again from its received() slot during a stop: the stop leaves
// the new session as the slot made it, and its coins are read.
void TestAcceptance::hostStartingAgainFromItsSlotKeepsItsSession()
{
    AcceptingRig rig;
    land(rig, 2);
    QList<SumDetailed> reports;
    bool restarted = false;
    QObject::connect(&rig.changer, &CcTalk::Changer::received, &rig.changer, [&](SumDetailed sum) {
        reports << sum;
        if (!restarted) {
            restarted = true;
            rig.changer.cashInStart(false, {});
        }
    });
    rig.changer.cashInStop();
    QCOMPARE(reports.size(), 1);
    QVERIFY(rig.changer.sessionOpen());
    QVERIFY(rig.changer.isAccepting());
    QVERIFY(rig.changer.timer()->isActive());
    QCOMPARE(rig.device().inhibitMask(), quint16(0x0F));
    land(rig, 1);
    rig.changer.cashInStop();
    QCOMPARE(reports.size(), 2);
    QCOMPARE(reports.at(1).denoms, denoms({{100, 1}}));
    QVERIFY(!rig.changer.sessionOpen());
}

// The same from a poll: the poll that emitted leaves the session its slot started alone,
// even when a fault it would have found is flagged.
void TestAcceptance::hostRestartingFromAPollSlotKeepsItsSession()
{
    AcceptingRig rig;
    land(rig, 2);
    QList<SumDetailed> reports;
    QObject::connect(&rig.changer, &CcTalk::Changer::received, &rig.changer, [&](SumDetailed sum) {
        reports << sum;
        if (reports.size() == 1) {
            rig.changer.cashInStop();
            rig.changer.cashInStart(false, {});
            rig.device().setActivityBits(16);
            rig.device().setErrorStatus(3, 2);
        }
    });
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QCOMPARE(reports.size(), 1);
    QCOMPARE(errors.size(), 0);
    QVERIFY(rig.changer.sessionOpen());
    QVERIFY(rig.changer.timer()->isActive());
    QCOMPARE(rig.device().inhibitMask(), quint16(0x0F));
}

// A coin lands, then the acceptor restarts its counters before the next poll: no reading of
// the coins-in counters shows it, and the stop finds it in the audit counters.
void TestAcceptance::coinsLostToARestartAreFoundByTheStop()
{
    AcceptingRig rig;
    land(rig, 2);
    rig.device().restartCoinCounters();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 0);
    testsupport::LogCapture log;
    rig.changer.cashInStop();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{1000, 1}}));
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral("Монеты найдены по счетчикам аудита приема: позиция 2: 1")});
    QCOMPARE(log.texts(QStringLiteral("INFO")).last(), QStringLiteral("Принято: 10.00. номиналы: 10.00 x 1"));
}

// The closing before a reset reports, and the host's slot checks the state and starts
// again, which resets the device itself: the outer reset is not sent into the new session.
void TestAcceptance::hostStartingAgainDuringTheClosingBeforeAReset()
{
    AcceptingRig rig;
    land(rig, 2);
    RecordingChanger::setResetPending(true);
    bool again = true;
    QObject::connect(&rig.changer, &CcTalk::Changer::received, &rig.changer, [&](SumDetailed) {
        if (again) {
            again = false;
            rig.changer.checkState();
            rig.changer.cashInStart(false, {});
        }
    });
    rig.line.clearTransactions();
    rig.changer.checkState();
    QCOMPARE(rig.line.countHeader(1), 1);
    QVERIFY(rig.changer.sessionOpen());
    QVERIFY(rig.changer.timer()->isActive());
    QCOMPARE(rig.device().inhibitMask(), quint16(0x0F));
    land(rig, 1);
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    rig.changer.cashInStop();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 1}}));
}

// The audit counters cannot be read at the stop: the stop ends as before, with a warning.
void TestAcceptance::auditCheckThatCannotBeMade()
{
    AcceptingRig rig;
    land(rig, 2);
    rig.refuse(86);
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.cashInStop();
    QCOMPARE(received.size(), 1);
    QVERIFY(!rig.changer.sessionOpen());
    QCOMPARE(log.texts(QStringLiteral("WARN")),
             QStringList{QStringLiteral(
                 "Счетчики аудита приема не прочитаны, сверка не выполнена: Ошибка выполнения команды")});
}

// The modelled device's coins-in counters show a coin its audit counter never counted:
// the report cannot be taken back, and the stop says so.
void TestAcceptance::moreReportedThanTheAuditCounted()
{
    Rig rig;
    standard(rig);
    rig.model.setCoinsIn({{1, 5}});
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsIn({{1, 6}});
    rig.changer.checkMoneyIn();
    testsupport::LogCapture log;
    rig.changer.cashInStop();
    QCOMPARE(log.texts(QStringLiteral("ERROR")),
             QStringList{
                 QStringLiteral("Сообщено больше монет, чем принято по счетчикам аудита: позиция 1: 1 > 0")});
}

QTEST_GUILESS_MAIN(TestAcceptance)
#include "tst_acceptance.moc"
