#include "cctalk/exception.h"
#include "devicemodel.h"
#include "support/logcapture.h"
#include "testchanger.h"

#include <QSignalSpy>
#include <QtTest>

using namespace changertest;
using Hopper = DeviceModel::Hopper;

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
    void firstPollComparesWithZero();
    void unchangedCountersReportNothing();
    void positionsOfOneDenominationAddUp();
    void counterGoingDownIsReportedUnsigned();
    void unknownPositionCountsForDenominationZero();
    void restartReportsTheCountersAgain();
    void stopReportsCoinsSinceTheLastPoll();
    void stopWithoutPollingMakesNoFinalPoll();
    void stopWaitsForAcceptanceToEnd();
    void pollFailureEmitsErrorAndStopsPolling();
    void faultDuringAcceptanceAfterCoinsWereReported();
    void pollWithoutAcceptingDoesNotRearm();
    void timerDrivesThePolls();
    void receivedCanBeQueued();
};

void TestAcceptance::startEnablesEachRecycledDenominationOnce()
{
    Rig rig;
    rig.model.recycler({"RU1K0A", "RU1K0A"}, {{"RU1K0A", 10, 500, true}}, 0);
    rig.discover();
    rig.model.on(165, bytes({0}), QByteArray());
    rig.model.on(231, bytes({3, 0}), QByteArray());
    testsupport::LogCapture log;
    rig.changer.cashInStart(false, {});
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(165, bytes({0})), req(231, bytes({0x03, 0x00}))}));
    QCOMPARE(log.texts(QStringLiteral("INFO")), QStringList({QStringLiteral("Режим приема монет: нормальный"),
                                                             QStringLiteral("Доступные номиналы: 10.00")}));
    QVERIFY(rig.changer.isAccepting());
    QVERIFY(rig.changer.timer()->isActive());
    QVERIFY(rig.changer.lastCounts().isEmpty());
    QVERIFY(rig.changer.sleeps.isEmpty());
}

void TestAcceptance::startFastWithAnExcludedDenomination()
{
    Rig rig;
    // position 5 (0.50) has no hopper and is never enabled
    rig.model.recycler({"RU100A", "RU500A", "RU500A", "RU1K0A", "RU050A"},
                       {{"RU100A", 10, 500, true}, {"RU500A", 10, 500, true}, {"RU1K0A", 10, 500, true}}, 0);
    rig.discover();
    rig.model.on(165, bytes({255}), QByteArray());
    rig.model.on(231, bytes({0x09, 0x00}), QByteArray());
    testsupport::LogCapture log;
    rig.changer.cashInStart(true, {500});
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(165, bytes({0xFF})), req(231, bytes({0x09, 0x00}))}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList({QStringLiteral("Режим приема монет: ускоренный"),
                          QStringLiteral("Доступные номиналы: 1.00, 10.00")}));

    // nothing acceptable: an empty list and every position inhibited
    Rig none;
    none.model.recycler({"RU100A"}, {{"RU100A", 10, 500, true}}, 0);
    none.discover();
    none.model.on(165, bytes({0}), QByteArray());
    none.model.on(231, bytes({0, 0}), QByteArray());
    testsupport::LogCapture log2;
    none.changer.cashInStart(false, {100});
    QCOMPARE(none.serial.writes.last(), req(231, bytes({0, 0})));
    QCOMPARE(log2.texts(QStringLiteral("INFO")).last(), QStringLiteral("Доступные номиналы: "));
}

void TestAcceptance::positionsBeyondTheRegisterAreNotEnabled()
{
    Rig rig;
    QList<QByteArray> coins;
    for (int p = 1; p <= 17; ++p)
        coins << QByteArray(p == 16 || p == 17 ? "RU200A" : "RU001A");
    rig.model.recycler(coins, {{"RU200A", 10, 500, true}}, 0);
    rig.discover();
    rig.model.on(165, bytes({0}), QByteArray());
    rig.model.on(231, bytes({0x00, 0x80}), QByteArray());
    testsupport::LogCapture log;
    rig.changer.cashInStart(false, {});
    QCOMPARE(rig.serial.writes.last(), req(231, bytes({0x00, 0x80})));
    QCOMPARE(log.texts(QStringLiteral("INFO")).last(), QStringLiteral("Доступные номиналы: 2.00"));
}

void TestAcceptance::startFailureLeavesAcceptanceNotStarted()
{
    Rig rig;
    standard(rig);
    rig.model.on(231, bytes({0x0F, 0x00}), DeviceModel::nak());
    try {
        rig.changer.cashInStart(false, {});
        QFAIL("no exception");
    } catch (const CcTalk::NakException& e) {
        QCOMPARE(QString::fromUtf8(e.what()), QStringLiteral("Ошибка выполнения команды"));
    }
    QVERIFY(!rig.changer.isAccepting());
    QVERIFY(!rig.changer.timer()->isActive());

    rig.model.on(165, bytes({255}), DeviceModel::nak());
    QVERIFY_EXCEPTION_THROWN(rig.changer.cashInStart(true, {}), CcTalk::NakException);
    QCOMPARE(rig.serial.writes.last(), req(165, bytes({255})));
    QVERIFY(!rig.changer.timer()->isActive());
}

void TestAcceptance::firstPollComparesWithZero()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.serial.writes.clear();
    rig.model.setCoinsIn({{2, 2}, {1, 1}});
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    testsupport::LogCapture log;
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(82), req(123)}));
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
    QCOMPARE(rig.changer.lastCounts().value(2), 2u);
}

void TestAcceptance::unchangedCountersReportNothing()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsIn({{2, 7}});
    rig.changer.checkMoneyIn();
    rig.serial.writes.clear();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(82), req(123)}));
    QCOMPARE(received.size(), 0);
    QVERIFY(log.texts(QStringLiteral("INFO")).isEmpty());
    QVERIFY(rig.changer.timer()->isActive());
}

void TestAcceptance::positionsOfOneDenominationAddUp()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsInSequence({{{3, 10}, {4, 20}}, {{3, 11}, {4, 22}}});
    rig.changer.checkMoneyIn();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{200, 3}}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList{QStringLiteral("Принято: 6.00. номиналы: 2.00 x 3")});
}

void TestAcceptance::counterGoingDownIsReportedUnsigned()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsInSequence({{{1, 65535}}, {{1, 0}}});
    rig.changer.checkMoneyIn();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 4294901761LL}}));
}

void TestAcceptance::unknownPositionCountsForDenominationZero()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsIn({{9, 3}, {1, 1}});
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{0, 3}, {100, 1}}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList{QStringLiteral("Принято: 1.00. номиналы: 0.00 x 3, 1.00 x 1")});
}

void TestAcceptance::restartReportsTheCountersAgain()
{
    Rig rig;
    standard(rig);
    rig.model.setCoinsIn({{1, 5}});
    rig.changer.cashInStart(false, {});
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    rig.changer.checkMoneyIn();
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    rig.changer.cashInStart(false, {});
    QVERIFY(rig.changer.lastCounts().isEmpty());
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 2);
    QCOMPARE(sumOf(received.at(1).at(0)).denoms, denoms({{100, 5}}));
}

void TestAcceptance::stopReportsCoinsSinceTheLastPoll()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsInSequence({{{1, 1}}, {{1, 1}, {2, 1}}});
    rig.changer.checkMoneyIn();
    QVERIFY(rig.changer.timer()->isActive());
    rig.serial.writes.clear();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    testsupport::LogCapture log;
    rig.changer.cashInStop();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(231, bytes({0, 0})), req(123), req(82), req(123)}));
    QCOMPARE(received.size(), 1);
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{1000, 1}}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList{QStringLiteral("Принято: 10.00. номиналы: 10.00 x 1")});
    QVERIFY(!rig.changer.isAccepting());
    QVERIFY(!rig.changer.timer()->isActive());
}

void TestAcceptance::stopWithoutPollingMakesNoFinalPoll()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStop();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(231, bytes({0, 0})), req(123)}));
    QVERIFY(!rig.changer.isAccepting());
}

void TestAcceptance::stopWaitsForAcceptanceToEnd()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsIn({});
    rig.model.setActivitySequence({4, 4, 4, 0, 0});
    rig.serial.writes.clear();
    testsupport::LogCapture log;
    rig.changer.cashInStop();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(231, bytes({0, 0})), req(123), req(123), req(123),
                                                   req(123), req(123), req(82), req(123)}));
    QCOMPARE(rig.changer.sleeps, QList<int>({1000, 1000}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList{QStringLiteral("Выполняется ожидание завершения приема монет...")});
}

void TestAcceptance::pollFailureEmitsErrorAndStopsPolling()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.model.on(82, QByteArray(), DeviceModel::nak());
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Ошибка выполнения команды"));
    QVERIFY(!rig.changer.timer()->isActive());
    QVERIFY(rig.changer.isAccepting());
    // Longer than one poll interval: a re-armed timer would have polled again.
    rig.serial.writes.clear();
    QTest::qWait(250);
    QVERIFY(rig.serial.writes.isEmpty());
    QCOMPARE(received.size(), 0);

    // stalled: the stop makes no final poll
    rig.serial.writes.clear();
    rig.changer.cashInStop();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(231, bytes({0, 0})), req(123)}));

    // only a new start brings the polls back
    rig.model.setCoinsIn({{1, 2}});
    rig.changer.cashInStart(false, {});
    QVERIFY(rig.changer.timer()->isActive());
    rig.changer.checkMoneyIn();
    QCOMPARE(received.size(), 1);
    QCOMPARE(errors.size(), 1);
}

void TestAcceptance::faultDuringAcceptanceAfterCoinsWereReported()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsIn({{3, 1}});
    rig.model.setActivity(16);
    rig.model.setErrorStatus(3, 2);
    rig.model.setSelfcheck(0, 0);
    rig.serial.writes.clear();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    testsupport::LogCapture log;
    rig.changer.timer()->stop();
    rig.changer.checkMoneyIn();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(82), req(123), req(122), req(232)}));
    QCOMPARE(received.size(), 1);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Хоппер 3, заклинивание"));
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Принято: 2.00. номиналы: 2.00 x 1"),
                                            QStringLiteral("ERROR Хоппер 3, заклинивание")}));
    QVERIFY(!rig.changer.timer()->isActive());
    QCOMPARE(rig.changer.lastCounts().value(3), 1u);
    QVERIFY(TestChanger::resetPending());
}

void TestAcceptance::pollWithoutAcceptingDoesNotRearm()
{
    Rig rig;
    standard(rig);
    rig.model.setCoinsIn({});
    rig.changer.checkMoneyIn();
    QCOMPARE(rig.serial.writes, QList<QByteArray>({req(82), req(123)}));
    QVERIFY(!rig.changer.timer()->isActive());
}

void TestAcceptance::timerDrivesThePolls()
{
    Rig rig;
    standard(rig);
    rig.model.setCoinsInSequence({{}, {{1, 1}}, {{1, 1}}, {{1, 3}}});
    rig.changer.cashInStart(false, {});
    rig.changer.timer()->setInterval(2);
    rig.changer.timer()->start();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QVERIFY(received.wait(2000));
    if (received.size() < 2)
        QVERIFY(received.wait(2000));
    QCOMPARE(sumOf(received.at(0).at(0)).denoms, denoms({{100, 1}}));
    QCOMPARE(sumOf(received.at(1).at(0)).denoms, denoms({{100, 2}}));
    QVERIFY(rig.model.received.count(QByteArray(1, char(82))) >= 4);
    rig.changer.cashInStop();
    const int polls = rig.model.received.count(QByteArray(1, char(82)));
    QTest::qWait(10);
    QCOMPARE(rig.model.received.count(QByteArray(1, char(82))), polls);
}

void TestAcceptance::receivedCanBeQueued()
{
    Rig rig;
    standard(rig);
    rig.changer.cashInStart(false, {});
    rig.model.setCoinsIn({{2, 1}});
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

QTEST_GUILESS_MAIN(TestAcceptance)
#include "tst_acceptance.moc"
