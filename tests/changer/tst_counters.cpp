#include "cctalk/exception.h"
#include "support/columns.h"
#include "support/logcapture.h"
#include "testchanger.h"

#include <QtTest>

using namespace changertest;

namespace {

// The device sets these audit counters of one group, as its past life left them.
void presetCounters(SimChangerRig& rig, quint8 group, const QMap<quint8, quint32>& values)
{
    for (auto it = values.begin(); it != values.end(); ++it)
        QVERIFY(rig.device().setAuditCounter(group, it.key(), it.value()));
}

// The device answers the nth request with this header from now on with NAK, the others as usual.
void refuseNth(SimChangerRig& rig, quint8 header, int nth)
{
    rig.beforeAnswer(header, [&rig, nth, n = 0]() mutable {
        if (++n == nth)
            rig.line.nakNext();
    });
}

// The device cuts the last data byte of its first answer with this header, checksum kept right.
void shortenFirst(SimChangerRig& rig, quint8 header)
{
    rig.beforeAnswer(header, [&rig, n = 0]() mutable {
        if (++n == 1)
            rig.line.shortenNext();
    });
}

} // namespace

class TestCounters : public QObject
{
    Q_OBJECT
private slots:
    void acceptedCountersAddPositionsOfOneDenomination();
    void acceptedCountersWaitForAcceptanceToEnd();
    void acceptedCountersWithoutPositions();
    void hoppersOfOneDenominationAddUp();
    void hopperThreeOfFiveRoubles();
    void noHopperUnitsStillLogTheHeading();
    void countersAreSixtyFourBitSums();
    void dispensedCountersWaitForThePayout();
    void failureDiscardsThePartialResult();
    void balancesAreWrittenAsGiven();
    void shortAnswerIsAskedAgain_data();
    void shortAnswerIsAskedAgain();
};

void TestCounters::acceptedCountersAddPositionsOfOneDenomination()
{
    SimChangerRig rig;
    rig.changer.setPositions({{1, 100}, {3, 200}, {2, 200}, {4, 1000}});
    presetCounters(rig, 70, {{1, 11}, {2, 5}, {3, 7}, {4, 0}});
    testsupport::LogCapture log;
    const SumDetailed accepted = rig.changer.getAcceptedCounters();
    QCOMPARE(rig.writes(), frames({req(123), req(86, bytes({70, 1})), req(86, bytes({70, 2})),
                                   req(86, bytes({70, 3})), req(86, bytes({70, 4}))}));
    QCOMPARE(accepted.denoms, denoms({{100, 11}, {200, 12}, {1000, 0}}));
    QCOMPARE(accepted.rest, 0LL);
    QVERIFY(significant(log).isEmpty());
}

void TestCounters::acceptedCountersWaitForAcceptanceToEnd()
{
    SimChangerRig rig;
    rig.changer.setPositions({{1, 100}});
    rig.device().setActivityBits(4);
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.getAcceptedCounters(); }),
             QStringLiteral("Таймаут ожидания завершения приема монет"));
    QCOMPARE(rig.changer.sleeps.size(), 10);
    // with the fault check on every poll
    QCOMPARE(rig.writes().size(), 1 + 2 * 10);
    QCOMPARE(significant(log),
             QStringList({QStringLiteral("INFO Выполняется ожидание завершения приема монет..."),
                          QStringLiteral("ERROR Таймаут ожидания завершения приема монет")}));

    SimChangerRig later;
    later.changer.setPositions({{1, 100}});
    later.activitySequence({4, 4, 0});
    presetCounters(later, 70, {{1, 3}});
    QCOMPARE(later.changer.getAcceptedCounters().denoms, denoms({{100, 3}}));
    QCOMPARE(later.changer.sleeps, QList<int>{1000});
}

void TestCounters::acceptedCountersWithoutPositions()
{
    SimChangerRig rig;
    const SumDetailed accepted = rig.changer.getAcceptedCounters();
    QVERIFY(accepted.denoms.isEmpty());
    QCOMPARE(rig.writes(), frames({req(123)}));
}

void TestCounters::hoppersOfOneDenominationAddUp()
{
    SimChangerRig rig;
    rig.changer.setUnits({hopperUnit(QStringLiteral("hopper1"), 500), cashboxUnit(100),
                          hopperUnit(QStringLiteral("hopper2"), 1000),
                          hopperUnit(QStringLiteral("hopper4"), 500)});
    presetCounters(rig, 80, {{1, 10}, {2, 1}, {4, 3}});
    presetCounters(rig, 87, {{1, 5}, {2, 0}, {4, 1}});
    testsupport::LogCapture log;
    const QMap<unsigned int, long long> counters = rig.changer.getHoppersCounters();
    QCOMPARE(counters, denoms({{500, 19}, {1000, 1}}));
    QCOMPARE(rig.writes(),
             frames({req(86, bytes({80, 1})), req(86, bytes({87, 1})), req(86, bytes({80, 2})),
                     req(86, bytes({87, 2})), req(86, bytes({80, 4})), req(86, bytes({87, 4}))}));
    QCOMPARE(significant(log),
             QStringList{QStringLiteral("INFO Счетчики хопперов: 5.00 x 15, 10.00 x 1, 5.00 x 4")});
}

void TestCounters::hopperThreeOfFiveRoubles()
{
    sim::Config config = recycler(
        {"RU500A"}, {{"RU100A", 1, 100, false}, {"RU200A", 1, 100, false}, {"RU500A", 1, 100, true}});
    config.auditCounters[80][3] = 12;
    config.auditCounters[87][3] = 3;
    SimChangerRig rig(config);
    rig.discover();
    testsupport::LogCapture log;
    QCOMPARE(rig.changer.getHoppersCounters(), denoms({{500, 15}}));
    QCOMPARE(rig.writes(), frames({req(86, bytes({80, 3})), req(86, bytes({87, 3}))}));
    QCOMPARE(significant(log), QStringList{QStringLiteral("INFO Счетчики хопперов: 5.00 x 15")});
}

void TestCounters::noHopperUnitsStillLogTheHeading()
{
    SimChangerRig rig;
    rig.changer.setUnits({cashboxUnit(100)});
    testsupport::LogCapture log;
    QVERIFY(rig.changer.getHoppersCounters().isEmpty());
    QVERIFY(rig.writes().isEmpty());
    QCOMPARE(significant(log), QStringList{QStringLiteral("INFO Счетчики хопперов: ")});

    SimChangerRig empty;
    testsupport::LogCapture log2;
    QVERIFY(empty.changer.getHoppersCounters().isEmpty());
    QCOMPARE(significant(log2), QStringList{QStringLiteral("INFO Счетчики хопперов: ")});
}

void TestCounters::countersAreSixtyFourBitSums()
{
    SimChangerRig rig;
    rig.changer.setUnits(
        {hopperUnit(QStringLiteral("hopper1"), 1), hopperUnit(QStringLiteral("hopper2"), 1)});
    presetCounters(rig, 80, {{1, 0xFFFFFFFFu}, {2, 2}});
    presetCounters(rig, 87, {{1, 0xFFFFFFFFu}, {2, 0}});
    testsupport::LogCapture log;
    QCOMPARE(rig.changer.getHoppersCounters(), denoms({{1, 8589934592LL}}));
    QCOMPARE(significant(log),
             QStringList{QStringLiteral("INFO Счетчики хопперов: 0.01 x 8589934590, 0.01 x 2")});
}

void TestCounters::dispensedCountersWaitForThePayout()
{
    SimChangerRig rig;
    rig.changer.setUnits(
        {hopperUnit(QStringLiteral("hopper1"), 500), hopperUnit(QStringLiteral("hopper2"), 1000)});
    rig.activitySequence({8, 0, 0});
    presetCounters(rig, 80, {{1, 10}, {2, 1}});
    presetCounters(rig, 87, {{1, 5}, {2, 2}});
    testsupport::LogCapture log;
    const SumDetailed dispensed = rig.changer.getDispensedCounters();
    QCOMPARE(dispensed.denoms, denoms({{500, 15}, {1000, 3}}));
    QCOMPARE(dispensed.rest, 0LL);
    QCOMPARE(dispensed.extra, 0LL);
    QCOMPARE(rig.writes(),
             frames({req(123), req(123), req(123), req(86, bytes({80, 1})), req(86, bytes({87, 1})),
                     req(86, bytes({80, 2})), req(86, bytes({87, 2}))}));
    QCOMPARE(rig.changer.sleeps, QList<int>{1000});
    QCOMPARE(significant(log),
             QStringList({QStringLiteral("INFO Выполняется ожидание завершения выема монет..."),
                          QStringLiteral("INFO Счетчики хопперов: 5.00 x 15, 10.00 x 3")}));

    SimChangerRig slow;
    slow.device().setActivityBits(8);
    QCOMPARE(thrownText<CcTalk::Exception>([&] { slow.changer.getDispensedCounters(); }),
             QStringLiteral("Таймаут ожидания завершения выема монет"));
    QCOMPARE(slow.changer.sleeps.size(), 300);
}

void TestCounters::failureDiscardsThePartialResult()
{
    SimChangerRig rig;
    rig.changer.setUnits(
        {hopperUnit(QStringLiteral("hopper1"), 500), hopperUnit(QStringLiteral("hopper2"), 1000)});
    presetCounters(rig, 80, {{1, 10}, {2, 1}});
    presetCounters(rig, 87, {{1, 5}});
    refuseNth(rig, 86, 4);
    testsupport::LogCapture log;
    QVERIFY_EXCEPTION_THROWN(rig.changer.getHoppersCounters(), CcTalk::NakException);
    QCOMPARE(significant(log), QStringList{QStringLiteral("ERROR Ошибка выполнения команды")});
    QCOMPARE(rig.writes().last(), req(86, bytes({87, 2})));
    QCOMPARE(rig.refusals(), 1);

    rig.changer.setPositions({{1, 100}, {2, 200}});
    presetCounters(rig, 70, {{1, 4}});
    refuseNth(rig, 86, 2);
    QVERIFY_EXCEPTION_THROWN(rig.changer.getAcceptedCounters(), CcTalk::NakException);
    QCOMPARE(rig.writes().last(), req(86, bytes({70, 2})));
    QCOMPARE(rig.refusals(), 2);
}

void TestCounters::balancesAreWrittenAsGiven()
{
    SimChangerRig rig;
    testsupport::LogCapture log;
    rig.changer.setHopperCount(2, 65535);
    rig.changer.setCashboxSum(0);
    rig.changer.setCashboxSum(123456);
    rig.changer.setHopperCount(3, 1000);
    QCOMPARE(rig.writes(),
             frames({req(120, bytes({0x02, 0xFF, 0xFF})), req(118, bytes({0, 0, 0, 0})),
                     req(118, bytes({0x40, 0xE2, 0x01, 0x00})), req(120, bytes({0x03, 0xE8, 0x03}))}));
    QVERIFY(significant(log).isEmpty());
    QVERIFY(rig.changer.sleeps.isEmpty());
    QCOMPARE(rig.device().hopperCount(3), 1000);
    QCOMPARE(rig.device().cashbox(), quint32(123456));

    rig.refuse(120);
    QVERIFY_EXCEPTION_THROWN(rig.changer.setHopperCount(1, 1), CcTalk::NakException);
}

// A checksum-correct answer one byte short is refused and asked again: the value read is the
// device's, never one whose missing high byte counted as zero (400 coins read as 144, the
// cashbox 16909060 as 131844).
void TestCounters::shortAnswerIsAskedAgain_data()
{
    testsupport::columns<int, QByteArray, QByteArray, unsigned int, QString>("which", "request", "cut",
                                                                             "value", "warning");
    QTest::newRow("hopper 4 balance")
        << 0 << req(119, bytes({4})) << QByteArray("RU100A") + bytes({0x90}) << 400u
        << QStringLiteral("WARN Ответ неверной длины на команду reqHopperBalance "
                          "(119): байт данных: 7, ожидалось: 8");
    QTest::newRow("cashbox value") << 1 << req(117) << bytes({0x04, 0x03, 0x02}) << 0x01020304u
                                   << QStringLiteral(
                                          "WARN Ответ неверной длины на команду reqCashboxValue (117): "
                                          "байт данных: 3, ожидалось: 4");
}

void TestCounters::shortAnswerIsAskedAgain()
{
    QFETCH(int, which);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, cut);
    QFETCH(unsigned int, value);
    QFETCH(QString, warning);
    SimChangerRig rig;
    rig.device().setCashbox(0x01020304);
    shortenFirst(rig, quint8(request.at(3)));
    testsupport::LogCapture log;
    QCOMPARE(which == 0 ? rig.changer.getHopperCount(4) : rig.changer.getCashboxSum(), value);
    QCOMPARE(rig.writes(), frames({request, request}));
    QVERIFY(rig.line.transactions().at(0).answer.endsWith(testsupport::reply(cut)));
    QCOMPARE(significant(log), QStringList({warning, QStringLiteral("ERROR Нет связи")}));
    QCOMPARE(rig.changer.sleeps, QList<int>{200});
}

QTEST_GUILESS_MAIN(TestCounters)
#include "tst_counters.moc"
