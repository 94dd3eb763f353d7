#include "cctalk/exception.h"
#include "devicemodel.h"
#include "support/columns.h"
#include "support/frames.h"
#include "support/logcapture.h"
#include "testchanger.h"

#include <QDateTime>
#include <QtTest>

using namespace changertest;

namespace {

// Looks units up in a list of its own, to show that the maintenance operations
// ask getUnit through the virtual table.
class LookupChanger : public RecordingChanger
{
public:
    QList<CashControlUnit> known;
    QStringList asked;

    CashControlUnit getUnit(const QString& unitName) override
    {
        asked << unitName;
        for (const CashControlUnit& unit : known) {
            if (unit.name == unitName)
                return unit;
        }
        return Changer::getUnit(unitName);
    }
};

struct ClockRun
{
    QList<QByteArray> writes;
    QStringList log;
    quint32 deviceSecs = 0;
    qint64 hostSecs = 0;
};

// One setTime() against a device clock `offset` whole seconds from the host's,
// as the changer computes the difference (truncated toward zero). A run in which
// the host clock crosses a second boundary while the answer is on its way is
// repeated, so that the difference seen is exactly the offset.
ClockRun runClock(int offset)
{
    for (int attempt = 0; attempt < 20; ++attempt) {
        sim::Config config = sim::Config::defaults();
        config.clockOffsetSecs = offset + (offset > 0 ? 1 : 0);
        SimChangerRig rig(config);
        qint64 answeredAt = 0;
        rig.beforeAnswer(115, [&] { answeredAt = QDateTime::currentMSecsSinceEpoch(); });
        rig.device().setWallClock([&] { return answeredAt / 1000; });
        testsupport::LogCapture log;
        rig.changer.setTime();
        const qint64 finishedAt = QDateTime::currentMSecsSinceEpoch();
        if (answeredAt % 1000 == 0 || answeredAt / 1000 != finishedAt / 1000)
            continue;
        ClockRun run;
        run.writes = rig.writes();
        run.log = significant(log);
        run.deviceSecs = quint32(answeredAt / 1000 + config.clockOffsetSecs);
        run.hostSecs = answeredAt / 1000;
        return run;
    }
    return ClockRun();
}

QString shown(quint32 secs)
{
    return QDateTime::fromSecsSinceEpoch(secs, Qt::UTC).toString(QStringLiteral("dd.MM.yyyy hh:mm:ss"));
}

} // namespace

class TestMaintenance : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    void counterAgainstTheInterval_data();
    void counterAgainstTheInterval();
    void counterAboveSignedRangeIsInOrder();
    void cashboxSendsNothingAndStillLogs();
    void hopperNumberFromTheName();
    void unknownUnitFails();
    void doneClearsTheHopperCounter();
    void doneRefusesAnAckWithData();
    void doneOnANonHopperSendsNothing();
    void counterFailurePassesThrough();

    void clockSetOnlyElevenSecondsAway_data();
    void clockSetOnlyElevenSecondsAway();
    void clockSetFailurePassesThrough();
};

void TestMaintenance::initTestCase()
{
    qputenv("TZ", "UTC");
}

// A hopper is in order up to 500000 coins paid out, its counter at group 80.
void TestMaintenance::counterAgainstTheInterval_data()
{
    testsupport::columns<QString, int, quint32, bool, QString, QString>("unit", "hopper", "cycles", "status",
                                                                        "description", "logged");
    QTest::newRow("at the interval: in order")
        << QStringLiteral("hopper1") << 1 << 500000u << true << QString()
        << QStringLiteral("INFO hopper1, статус OK, кол-во циклов 500000, интервал обслуживания 500000");
    QTest::newRow("past the interval: needs service")
        << QStringLiteral("hopper2") << 2 << 500001u << false
        << QStringLiteral("износ выбрасывающего механизма")
        << QStringLiteral("INFO hopper2, статус износ выбрасывающего механизма, кол-во циклов 500001, "
                          "интервал обслуживания 500000");
}

void TestMaintenance::counterAgainstTheInterval()
{
    QFETCH(QString, unit);
    QFETCH(int, hopper);
    QFETCH(quint32, cycles);
    QFETCH(bool, status);
    QFETCH(QString, description);
    QFETCH(QString, logged);
    SimChangerRig rig;
    rig.changer.setUnits({hopperUnit(QStringLiteral("hopper1"), 100),
                          hopperUnit(QStringLiteral("hopper2"), 500), cashboxUnit()});
    QVERIFY(rig.device().setAuditCounter(80, quint8(hopper), cycles));
    testsupport::LogCapture log;
    const hw::CcUnitMaintenanceInfo info = rig.changer.maintanenceInfo(unit);
    QCOMPARE(rig.writes(), QList<QByteArray>{req(86, bytes({80, hopper}))});
    QCOMPARE(info.unitName, unit);
    QCOMPARE(info.status, status);
    QCOMPARE(info.cycles, int(cycles));
    QCOMPARE(info.interval, 500000);
    QCOMPARE(info.description, description);
    QCOMPARE(significant(log), QStringList{logged});
}

void TestMaintenance::counterAboveSignedRangeIsInOrder()
{
    sim::Config config = sim::Config::defaults();
    config.auditCounters[80][1] = 0x80000000u;
    SimChangerRig rig(config);
    rig.changer.setUnits({hopperUnit(QStringLiteral("hopper1"), 100)});
    const hw::CcUnitMaintenanceInfo info = rig.changer.maintanenceInfo(QStringLiteral("hopper1"));
    QCOMPARE(info.cycles, int(0x80000000u));
    QCOMPARE(info.status, true);
}

void TestMaintenance::cashboxSendsNothingAndStillLogs()
{
    SimChangerRig rig;
    rig.changer.setUnits({hopperUnit(QStringLiteral("hopper1"), 100), cashboxUnit(500)});
    testsupport::LogCapture log;
    const hw::CcUnitMaintenanceInfo info = rig.changer.maintanenceInfo(QStringLiteral("cashbox"));
    QVERIFY(rig.writes().isEmpty());
    QVERIFY(info.unitName.isEmpty());
    QCOMPARE(info.status, false);
    QCOMPARE(info.cycles, 0);
    QCOMPARE(info.interval, 0);
    QVERIFY(info.description.isEmpty());
    QCOMPARE(significant(log),
             QStringList{QStringLiteral("INFO , статус , кол-во циклов 0, интервал обслуживания 0")});
}

void TestMaintenance::hopperNumberFromTheName()
{
    // Names give hoppers 0 and 44, which a simulated recycler (hoppers 1 to 16) cannot have.
    LookupChanger changer;
    testsupport::FakeSerialDevice serial;
    DeviceModel model;
    changer.setAddress(55);
    changer.setSerial(&serial);
    serial.setResponder(model.responder());
    changer.known = {hopperUnit(QStringLiteral("hopper2"), 100), hopperUnit(QStringLiteral("hopper"), 200),
                     hopperUnit(QStringLiteral("hopper300"), 500),
                     hopperUnit(QStringLiteral("hopperX"), 1000),
                     hopperUnit(QStringLiteral("hopper1hopper2"), 1000)};
    model.setAudits(80, {{2, 7}, {0, 8}, {44, 9}, {12, 10}});
    QCOMPARE(changer.maintanenceInfo(QStringLiteral("hopper2")).cycles, 7);
    QCOMPARE(changer.maintanenceInfo(QStringLiteral("hopper")).cycles, 8);
    // the low 8 bits of 300
    QCOMPARE(changer.maintanenceInfo(QStringLiteral("hopper300")).cycles, 9);
    QCOMPARE(changer.maintanenceInfo(QStringLiteral("hopperX")).cycles, 8);
    // every occurrence of the word goes
    QCOMPARE(changer.maintanenceInfo(QStringLiteral("hopper1hopper2")).cycles, 10);
    QCOMPARE(serial.writes,
             QList<QByteArray>({req(86, bytes({80, 2})), req(86, bytes({80, 0})), req(86, bytes({80, 44})),
                                req(86, bytes({80, 0})), req(86, bytes({80, 12}))}));
    model.on(87, bytes({80, 0}), QByteArray());
    changer.maintanenceDone(QStringLiteral("hopper"));
    QCOMPARE(serial.writes.last(), req(87, bytes({80, 0})));
    QCOMPARE(changer.asked, QStringList({QStringLiteral("hopper2"), QStringLiteral("hopper"),
                                         QStringLiteral("hopper300"), QStringLiteral("hopperX"),
                                         QStringLiteral("hopper1hopper2"), QStringLiteral("hopper")}));
}

void TestMaintenance::unknownUnitFails()
{
    SimChangerRig rig;
    rig.changer.setUnits({hopperUnit(QStringLiteral("hopper1"), 100)});
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.maintanenceInfo(QStringLiteral("Hopper1")); }),
             QStringLiteral("Модуль не найден"));
    QVERIFY_EXCEPTION_THROWN(rig.changer.maintanenceDone(QStringLiteral("hopper9")), CcTalk::Exception);
    QVERIFY(rig.writes().isEmpty());
    QCOMPARE(significant(log), QStringList({QStringLiteral("ERROR Модуль не найден"),
                                            QStringLiteral("ERROR Модуль не найден")}));
}

void TestMaintenance::doneClearsTheHopperCounter()
{
    SimChangerRig rig;
    rig.changer.setUnits(
        {hopperUnit(QStringLiteral("hopper1"), 100), hopperUnit(QStringLiteral("hopper2"), 500)});
    testsupport::LogCapture log;
    rig.changer.maintanenceDone(QStringLiteral("hopper2"));
    QCOMPARE(rig.writes(), QList<QByteArray>{req(87, bytes({80, 2}))});
    QVERIFY(rig.line.transactions().first().answer.endsWith(testsupport::reply()));
    QVERIFY(significant(log).isEmpty());
}

// A cleared counter is answered with a bare ACK. An ACK that carries data is a stale or
// mangled answer: asked again like a lost one, and in the end no link.
void TestMaintenance::doneRefusesAnAckWithData()
{
    Rig rig;
    rig.changer.setUnits({hopperUnit(QStringLiteral("hopper1"), 100)});
    rig.model.on(87, bytes({80, 1}), bytes({1, 2, 3}));
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.maintanenceDone(QStringLiteral("hopper1")); }),
             QStringLiteral("Нет связи"));
    QList<QByteArray> cleared;
    QStringList warnings;
    for (int i = 0; i < 5; ++i) {
        cleared << req(87, bytes({80, 1}));
        warnings << QStringLiteral("Ответ неверной длины на команду clearAuditCounter (87): байт данных: 3, "
                                   "ожидалось: 0");
    }
    QCOMPARE(rig.serial.writes, cleared);
    QCOMPARE(log.texts(QStringLiteral("WARN")), warnings);
}

void TestMaintenance::doneOnANonHopperSendsNothing()
{
    SimChangerRig rig;
    rig.changer.setUnits({hopperUnit(QStringLiteral("hopper1"), 100), cashboxUnit()});
    testsupport::LogCapture log;
    rig.changer.maintanenceDone(QStringLiteral("cashbox"));
    QVERIFY(rig.writes().isEmpty());
    QVERIFY(significant(log).isEmpty());
}

void TestMaintenance::counterFailurePassesThrough()
{
    SimChangerRig rig;
    rig.changer.setUnits({hopperUnit(QStringLiteral("hopper1"), 100)});
    rig.refuse(86);
    testsupport::LogCapture log;
    QVERIFY_EXCEPTION_THROWN(rig.changer.maintanenceInfo(QStringLiteral("hopper1")), CcTalk::NakException);
    QCOMPARE(significant(log), QStringList{QStringLiteral("ERROR Ошибка выполнения команды")});
}

// Ten seconds apart the device clock is left alone, from eleven on it is set.
void TestMaintenance::clockSetOnlyElevenSecondsAway_data()
{
    testsupport::columns<int, bool>("offset", "set");
    QTest::newRow("10 behind") << -10 << false;
    QTest::newRow("10 ahead") << 10 << false;
    QTest::newRow("same") << 0 << false;
    QTest::newRow("11 behind") << -11 << true;
    QTest::newRow("11 ahead") << 11 << true;
    QTest::newRow("far ahead") << 86400 << true;
}

void TestMaintenance::clockSetOnlyElevenSecondsAway()
{
    QFETCH(int, offset);
    QFETCH(bool, set);
    const ClockRun run = runClock(offset);
    QVERIFY(run.deviceSecs != 0);
    QList<QByteArray> writes{req(115)};
    QStringList log{QStringLiteral("INFO Время в устройстве: ") + shown(run.deviceSecs)};
    if (set) {
        writes << req(116, DeviceModel::le(quint32(run.hostSecs), 4));
        log << QStringLiteral("INFO Установка времени");
    }
    QCOMPARE(run.writes, writes);
    QCOMPARE(run.log, log);
}

void TestMaintenance::clockSetFailurePassesThrough()
{
    SimChangerRig rig;
    rig.device().setWallClock([] { return qint64(1000000000); });
    rig.refuse(116);
    testsupport::LogCapture log;
    QVERIFY_EXCEPTION_THROWN(rig.changer.setTime(), CcTalk::NakException);
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Время в устройстве: 09.09.2001 01:46:40"),
                                            QStringLiteral("INFO Установка времени"),
                                            QStringLiteral("ERROR Ошибка выполнения команды")}));
    QCOMPARE(rig.writes().size(), 2);
}

QTEST_GUILESS_MAIN(TestMaintenance)
#include "tst_maintenance.moc"
