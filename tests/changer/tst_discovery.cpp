#include "cctalk/exception.h"
#include "support/fakeserialdevice.h"
#include "support/frames.h"
#include "support/logcapture.h"
#include "support/metamethod.h"
#include "support/vtableslot.h"
#include "testchanger.h"

#include <QDateTime>
#include <QMetaMethod>
#include <QtTest>

using namespace changertest;
using testsupport::vtableSlot;

namespace {

// Records which operations the changer calls on itself, and lets each through
// to the real one only when asked to.
class SpyChanger : public RecordingChanger
{
public:
    bool forward = false;
    QStringList calls;

    void resetIfNeeded() override
    {
        record(QStringLiteral("resetIfNeeded"), [this] { Changer::resetIfNeeded(); });
    }
    void commonInit() override
    {
        record(QStringLiteral("commonInit"), [this] { Changer::commonInit(); });
    }
    void setTime() override
    {
        record(QStringLiteral("setTime"), [this] { Changer::setTime(); });
    }
    void checkState() override
    {
        record(QStringLiteral("checkState"), [this] { Changer::checkState(); });
    }
    void loadCashUnits() override
    {
        record(QStringLiteral("loadCashUnits"), [this] { Changer::loadCashUnits(); });
    }
    void waitNotState(int state, int polls, const QString& text, bool checkErrors) override
    {
        record(QStringLiteral("waitNotState(%1, %2, %3, %4)")
                   .arg(QString::number(state), QString::number(polls), text,
                        checkErrors ? QStringLiteral("true") : QStringLiteral("false")),
               [=] { Changer::waitNotState(state, polls, text, checkErrors); });
    }
    void checkMoneyIn() override { calls << QStringLiteral("checkMoneyIn"); }

private:
    // Notes the call, and makes the real one when forwarding.
    template <class Base> void record(const QString& call, Base base)
    {
        calls << call;
        if (forward)
            base();
    }
};

const QList<Hopper> threeHoppers = {
    {"RU100A", 10, 500, true},
    {"RU500A", 20, 600, false},
    {"RU1K0A", 7, 400, true},
};

} // namespace

class TestDiscovery : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    void metaObject();
    void virtualOperationsInSlotOrder();
    void constructorState();
    void timerRunsThePollVirtually();
    void initCallsItsStepsInOrderVirtually();
    void initSequenceOnTheLine();
    void initResetsFirstWhenAFaultAskedForIt();
    void connectPollsThenWaitsForInitialisation();
    void connectChecksErrorsWhileWaiting();
    void getUnitsWaitsWithoutErrorChecks();
    void getUnitsCallsItsStepsVirtually();

    void disabledHopperIsSkipped();
    void noCoinPositionsLeaveNothingAcceptable();
    void hopperCoinUnknownToTheAcceptorIsNotAcceptable();
    void hopperCoinWorthZeroIsStillAUnit();
    void cashboxSumIsLoggedInUnits();
    void unitFieldsOfHopperAndCashbox();
    void unitStatesFromTheErrorStatus();
    void positionsAreOverwrittenNotCleared();
    void identificationLineEndsAtZeroByte();
    void failureKeepsWhatWasFound();

    void getUnitIsCaseSensitive();
    void getUnitBeforeDiscovery();
    void getUnitAndDenomsAskNothing();
};

void TestDiscovery::initTestCase()
{
    qputenv("TZ", "UTC");
}

void TestDiscovery::metaObject()
{
    const QMetaObject& mo = CcTalk::Changer::staticMetaObject;
    QCOMPARE(QByteArray(mo.className()), QByteArray("CcTalk::Changer"));
    QCOMPARE(mo.superClass(), &QObject::staticMetaObject);
    QCOMPARE(testsupport::ownMethods(mo),
             QStringList({QStringLiteral("public signal received(SumDetailed) [sum]"),
                          QStringLiteral("public signal error(QString) [msg]"),
                          QStringLiteral("protected slot checkMoneyIn() []")}));

    RecordingChanger changer;
    QVERIFY(changer.qt_metacast("CcTalk::Changer") == &changer);
    QVERIFY(changer.qt_metacast("QObject") != nullptr);
    QVERIFY(changer.qt_metacast("CcTalk::Device") == nullptr);
}

void TestDiscovery::virtualOperationsInSlotOrder()
{
    using C = CcTalk::Changer;
    const QList<long> order{
        vtableSlot(&C::commonInit),
        vtableSlot(&C::checkState),
        vtableSlot(static_cast<void (C::*)()>(&C::connect)),
        vtableSlot(&C::exec),
        vtableSlot(&C::sleep),
        vtableSlot(&C::init),
        vtableSlot(&C::getUnits),
        vtableSlot(&C::setHopperCount),
        vtableSlot(&C::setCashboxSum),
        vtableSlot(&C::getUnit),
        vtableSlot(&C::getAcceptableDenoms),
        vtableSlot(&C::cashInStart),
        vtableSlot(&C::cashInStop),
        vtableSlot(static_cast<SumDetailed (C::*)(ECashControl::ChangeMode, long long)>(&C::cashOut)),
        vtableSlot(static_cast<SumDetailed (C::*)(SumDetailed)>(&C::cashOut)),
        vtableSlot(static_cast<SumDetailed (C::*)(unsigned char, unsigned int)>(&C::cashOut)),
        vtableSlot(&C::getLastCashOut),
        vtableSlot(&C::getAcceptedCounters),
        vtableSlot(&C::getDispensedCounters),
        vtableSlot(&C::checkError),
        vtableSlot(&C::purge),
        vtableSlot(&C::maintanenceInfo),
        vtableSlot(&C::maintanenceDone),
        vtableSlot(&RecordingChanger::checkMoneyIn),
        vtableSlot(&C::loadCashUnits),
        vtableSlot(&C::getHoppersCounters),
        vtableSlot(&C::resetIfNeeded),
        vtableSlot(&C::setTime),
        vtableSlot(&C::waitNotState),
    };
    QVERIFY(order.first() > 0);
    for (int i = 1; i < order.size(); ++i)
        QCOMPARE(order.at(i), order.first() + i);
    // the first five are those of the bus device
    QCOMPARE(vtableSlot(&CcTalk::Device::commonInit), order.first());
    QCOMPARE(vtableSlot(&CcTalk::Device::sleep), order.first() + 4);
}

void TestDiscovery::constructorState()
{
    QVERIFY(!RecordingChanger::resetPending());
    RecordingChanger changer;
    QVERIFY(QMetaType::type("SumDetailed") != 0);
    QVERIFY(changer.timer() != nullptr);
    QCOMPARE(changer.timer()->parent(), &changer);
    QCOMPARE(changer.timer()->interval(), 200);
    QVERIFY(changer.timer()->isSingleShot());
    QVERIFY(!changer.timer()->isActive());
    QCOMPARE(changer.reservedValue(), -1);
    QVERIFY(!changer.isAccepting());
    QVERIFY(changer.pendingError().isEmpty());
    QVERIFY(changer.cachedUnits().isEmpty());
    QVERIFY(changer.acceptable().isEmpty());
    QVERIFY(changer.positions().isEmpty());
    QVERIFY(changer.lastCounts().isEmpty());
    QVERIFY(changer.lastSnapshot().isEmpty());
    QVERIFY(changer.getName().isEmpty());

    QPointer<Timer> timer = changer.timer();
    {
        auto* owned = new RecordingChanger;
        timer = owned->timer();
        delete owned;
    }
    QVERIFY(timer.isNull());
}

void TestDiscovery::timerRunsThePollVirtually()
{
    SpyChanger changer;
    emit changer.timer()->timeout();
    QCOMPARE(changer.calls, QStringList{QStringLiteral("checkMoneyIn")});
}

void TestDiscovery::initCallsItsStepsInOrderVirtually()
{
    SpyChanger changer;
    changer.init();
    QCOMPARE(changer.calls, QStringList({QStringLiteral("resetIfNeeded"), QStringLiteral("commonInit"),
                                         QStringLiteral("setTime"), QStringLiteral("checkState"),
                                         QStringLiteral("loadCashUnits")}));
}

namespace {

// A recycler that identifies itself and reports no activity, its clock at the host's
// time when the test began.
quint32 prepareInit(SimChangerRig& rig)
{
    const auto now = quint32(QDateTime::currentSecsSinceEpoch());
    rig.device().setWallClock([now] { return qint64(now); });
    return now;
}

sim::Config initRecycler()
{
    sim::Config c = recycler({"RU100A"}, {{"RU100A", 5, 300, true}}, 0);
    c.serialNumber = 12345;
    c.softwareRevision = QStringLiteral("V2.14");
    return c;
}

QList<QByteArray> initRequests()
{
    QList<QByteArray> expected;
    // identification, with the changer's own connect: poll and the initialisation wait
    expected << req(254) << req(123) << req(245) << req(246) << req(244) << req(192) << req(242) << req(241);
    // clock
    expected << req(115);
    // state check: connect, still accepting?, payout wait, fault check
    expected << req(254) << req(123) << req(123) << req(123) << req(123);
    expected << discoveryRequests(1, {{"RU100A", 5, 300, true}});
    return expected;
}

} // namespace

void TestDiscovery::initSequenceOnTheLine()
{
    SimChangerRig rig(initRecycler());
    const quint32 now = prepareInit(rig);
    testsupport::LogCapture log;
    rig.changer.init();

    QCOMPARE(rig.writes(), initRequests());
    QCOMPARE(rig.refusals(), 0);
    QVERIFY(rig.changer.sleeps.isEmpty());

    const QStringList info = log.texts(QStringLiteral("INFO"));
    QCOMPARE(
        info.mid(0, 9),
        QStringList({
            QStringLiteral("адрес на шине ccTalk - 55"),
            QStringLiteral("Проверка соединения с устройством"),
            QStringLiteral("тип устройства - Changer"),
            QStringLiteral("производитель - CPI"),
            QStringLiteral("модель - BCR"),
            QStringLiteral("сборка - BCR330"),
            QStringLiteral("серийный номер - 12345"),
            QStringLiteral("версия прошивки - V2.14"),
            QStringLiteral("Время в устройстве: ") +
                QDateTime::fromSecsSinceEpoch(now, Qt::UTC).toString(QStringLiteral("dd.MM.yyyy hh:mm:ss")),
        }));
    QCOMPARE(info.mid(9, 3), QStringList({QStringLiteral("Проверка состояния устройства"),
                                          QStringLiteral("Проверка соединения с устройством"),
                                          QStringLiteral("Получение информации о модулях")}));
    QCOMPARE(rig.changer.cachedUnits().size(), 2);
}

void TestDiscovery::initResetsFirstWhenAFaultAskedForIt()
{
    SimChangerRig rig(initRecycler());
    prepareInit(rig);
    RecordingChanger::setResetPending(true);
    testsupport::LogCapture log;
    rig.changer.init();
    QCOMPARE(rig.writes(), QList<QByteArray>{req(1)} + initRequests());
    QCOMPARE(rig.changer.sleeps, QList<int>{5000});
    QVERIFY(!RecordingChanger::resetPending());
    QCOMPARE(log.texts(QStringLiteral("INFO")).first(), QStringLiteral("Выполняется сброс"));
}

void TestDiscovery::connectPollsThenWaitsForInitialisation()
{
    SimChangerRig rig;
    rig.activitySequence({64, 64, 64, 0, 0});
    testsupport::LogCapture log;
    rig.changer.connect();
    QCOMPARE(rig.writes(), QList<QByteArray>({req(254), req(123), req(123), req(123), req(123), req(123)}));
    QCOMPARE(rig.changer.sleeps, QList<int>({1000, 1000}));
    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList({QStringLiteral("Проверка соединения с устройством"),
                          QStringLiteral("Выполняется ожидание завершения инициализации устройства...")}));

    SpyChanger recording;
    testsupport::FakeSerialDevice line;
    line.setResponder([](const QByteArray&) { return QList<QByteArray>{testsupport::reply()}; });
    recording.setSerial(&line);
    recording.connect();
    QCOMPARE(recording.calls,
             QStringList{QStringLiteral("waitNotState(64, 300, завершения инициализации устройства, true)")});
}

void TestDiscovery::connectChecksErrorsWhileWaiting()
{
    SimChangerRig rig;
    rig.activitySequence({64, 64 | 16});
    rig.device().setErrorStatus(3, 2);
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.connect(); }),
             QStringLiteral("Хоппер 3, заклинивание"));
    QCOMPARE(rig.writes(), QList<QByteArray>({req(254), req(123), req(123), req(122), req(232)}));
    QCOMPARE(log.texts(QStringLiteral("ERROR")), QStringList{QStringLiteral("Хоппер 3, заклинивание")});
    QVERIFY(RecordingChanger::resetPending());
}

void TestDiscovery::getUnitsWaitsWithoutErrorChecks()
{
    SimChangerRig rig(recycler({"RU100A"}, {{"RU100A", 5, 300, true}}, 100));
    rig.activitySequence({64, 64 | 16, 0});
    testsupport::LogCapture log;
    const QList<CashControlUnit> units = rig.changer.getUnits();
    QList<QByteArray> expected{req(123), req(123), req(123)};
    expected << discoveryRequests(1, {{"RU100A", 5, 300, true}});
    QCOMPARE(rig.writes(), expected);
    QCOMPARE(rig.changer.sleeps, QList<int>({1000, 1000}));
    QCOMPARE(log.texts(QStringLiteral("INFO")).first(),
             QStringLiteral("Выполняется ожидание завершения инициализации устройства..."));
    QCOMPARE(units.size(), 2);
    QCOMPARE(units.at(0).name, QStringLiteral("hopper1"));
    QCOMPARE(units.at(1).name, QStringLiteral("cashbox"));
    QCOMPARE(units.at(1).sum, 100LL);
}

void TestDiscovery::getUnitsCallsItsStepsVirtually()
{
    SpyChanger changer;
    changer.getUnits();
    QCOMPARE(changer.calls,
             QStringList({QStringLiteral("waitNotState(64, 300, завершения инициализации устройства, false)"),
                          QStringLiteral("loadCashUnits")}));
}

void TestDiscovery::disabledHopperIsSkipped()
{
    SimChangerRig rig(recycler({"RU100A", "RU500A", "RU1K0A"}, threeHoppers, 12550));
    testsupport::LogCapture log;
    rig.changer.loadCashUnits();

    QCOMPARE(rig.writes(), discoveryRequests(3, threeHoppers));
    // hopper 3 is unit 5 of the manifest
    QVERIFY(rig.writes().contains(req(84, bytes({5, 0}))));
    QVERIFY(rig.writes().contains(req(84, bytes({5, 8}))));
    QVERIFY(!rig.writes().contains(req(119, bytes({2}))));
    QCOMPARE(rig.refusals(), 0);

    const QList<CashControlUnit> units = rig.changer.cachedUnits();
    QCOMPARE(units.size(), 3);
    QCOMPARE(units.at(0).name, QStringLiteral("hopper1"));
    QCOMPARE(units.at(1).name, QStringLiteral("hopper3"));
    QCOMPARE(units.at(2).name, QStringLiteral("cashbox"));

    QCOMPARE(log.texts(QStringLiteral("INFO")),
             QStringList({
                 QStringLiteral("Получение информации о модулях"),
                 QStringLiteral("Приемник монет"),
                 QStringLiteral(" модель: C2-RU, прошивка: 5.31, серия: 734112"),
                 QStringLiteral(" валюты: 1 - RU100A, 2 - RU500A, 3 - RU1K0A"),
                 QStringLiteral("Хоппер 1"),
                 QStringLiteral(" модель: MH1, прошивка: 2.01, серия: 1001"),
                 QStringLiteral(" валюта: RU100A, кол-во: 10, емкость: 500"),
                 QStringLiteral("Хоппер 2 отключен"),
                 QStringLiteral("Хоппер 3"),
                 QStringLiteral(" модель: MH3, прошивка: 2.03, серия: 1003"),
                 QStringLiteral(" валюта: RU1K0A, кол-во: 7, емкость: 400"),
                 QStringLiteral("Кэшбокс"),
                 QStringLiteral(" сумма: 125.50"),
             }));
    QCOMPARE(rig.changer.getAcceptableDenoms(), QSet<unsigned int>({100, 1000}));
    QCOMPARE(rig.changer.positions(), (QMap<unsigned char, unsigned int>{{1, 100}, {2, 500}, {3, 1000}}));
}

void TestDiscovery::noCoinPositionsLeaveNothingAcceptable()
{
    SimChangerRig rig(recycler({}, {{"RU100A", 5, 300, true}, {"RU500A", 5, 300, true}}, 0));
    testsupport::LogCapture log;
    rig.changer.loadCashUnits();
    QCOMPARE(rig.writes(), discoveryRequests(0, {{"RU100A", 5, 300, true}, {"RU500A", 5, 300, true}}));
    QVERIFY(rig.changer.getAcceptableDenoms().isEmpty());
    QCOMPARE(rig.changer.cachedUnits().size(), 3);
    QVERIFY(log.texts(QStringLiteral("INFO")).contains(QStringLiteral(" валюты: ")));
}

void TestDiscovery::hopperCoinUnknownToTheAcceptorIsNotAcceptable()
{
    SimChangerRig rig(
        recycler({"RU100A", "RU200A"}, {{"RU100A", 5, 300, true}, {"RU500A", 9, 300, true}}, 0));
    rig.changer.loadCashUnits();
    const QList<CashControlUnit> units = rig.changer.cachedUnits();
    QCOMPARE(units.size(), 3);
    QCOMPARE(coinsOf(units.at(1)), QStringLiteral("hopper2: 9 x 500"));
    QCOMPARE(rig.changer.getAcceptableDenoms(), QSet<unsigned int>{100});
}

void TestDiscovery::hopperCoinWorthZeroIsStillAUnit()
{
    sim::Config config = recycler({"RU100A"}, {{"RU10A", 4, 300, true}}, 0);
    // a five-character id padded with a zero byte
    config.hoppers[0].coinId = QString::fromLatin1("RU10A\0", 6);
    SimChangerRig rig(config);
    testsupport::LogCapture log;
    rig.changer.loadCashUnits();
    const QList<CashControlUnit> units = rig.changer.cachedUnits();
    QCOMPARE(units.size(), 2);
    QCOMPARE(coinsOf(units.at(0)), QStringLiteral("hopper1: 4 x 0"));
    QVERIFY(rig.changer.getAcceptableDenoms().isEmpty());
    QVERIFY(log.texts(QStringLiteral("INFO"))
                .contains(QStringLiteral(" валюта: RU10A, кол-во: 4, емкость: 300")));
}

void TestDiscovery::cashboxSumIsLoggedInUnits()
{
    SimChangerRig rig(recycler({}, {}, 12550));
    testsupport::LogCapture log;
    rig.changer.loadCashUnits();
    QCOMPARE(rig.writes(), discoveryRequests(0, {}));
    QCOMPARE(log.texts(QStringLiteral("INFO")).last(), QStringLiteral(" сумма: 125.50"));
    QCOMPARE(rig.changer.cachedUnits().size(), 1);
    QCOMPARE(rig.changer.cachedUnits().at(0).sum, 12550LL);

    SimChangerRig large(recycler({}, {}, 0xFFFFFFFFu));
    large.changer.loadCashUnits();
    QCOMPARE(large.changer.cachedUnits().at(0).sum, 4294967295LL);
}

void TestDiscovery::unitFieldsOfHopperAndCashbox()
{
    SimChangerRig rig(recycler({"RU500A"}, {{"RU500A", 300, 1200, true}}, 700));
    rig.changer.loadCashUnits();
    const QList<CashControlUnit> units = rig.changer.cachedUnits();
    QCOMPARE(units.size(), 2);

    QCOMPARE(
        testsupport::unitFields(units.at(0)),
        QStringLiteral("name \"hopper1\", type 1, operations 0x8021330, flag 1, denom 500, count 300, sum 0, "
                       "capacity 1200, reserve1 0, denoms {}, reserve2 0, state 0, title \"\", "
                       "limits -1 -1 50 -1"));
    QCOMPARE(testsupport::unitFields(units.at(1)),
             QStringLiteral("name \"cashbox\", type 3, operations 0x10, flag 0, denom 0, count 0, sum 700, "
                            "capacity 0, reserve1 0, denoms {}, reserve2 0, state 0, title \"\", "
                            "limits -1 -1 -1 -1"));
}

void TestDiscovery::unitStatesFromTheErrorStatus()
{
    const QList<Hopper> hoppers{{"RU100A", 1, 100, true}, {"RU200A", 1, 100, true}, {"RU500A", 1, 100, true}};
    {
        SimChangerRig rig(recycler({"RU100A"}, hoppers, 0));
        rig.device().setErrorStatus(3, 2);
        rig.changer.loadCashUnits();
        const QList<CashControlUnit> units = rig.changer.cachedUnits();
        QCOMPARE(units.size(), 4);
        QCOMPARE(units.at(0).state, 0);
        QCOMPARE(units.at(1).state, 0);
        QCOMPARE(units.at(2).state, 3);
        QCOMPARE(units.at(3).state, 0);
    }
    {
        // an empty hopper is reported but does not mark the unit
        SimChangerRig rig(recycler({"RU100A"}, hoppers, 0));
        rig.device().setErrorStatus(2, 1);
        rig.changer.loadCashUnits();
        for (const CashControlUnit& unit : rig.changer.cachedUnits())
            QCOMPARE(unit.state, 0);
    }
    {
        SimChangerRig rig(recycler({"RU100A"}, hoppers, 0));
        rig.device().setErrorStatus(1, 251);
        rig.changer.loadCashUnits();
        const QList<CashControlUnit> units = rig.changer.cachedUnits();
        QCOMPARE(units.at(0).state, 0);
        QCOMPARE(units.at(3).name, QStringLiteral("cashbox"));
        QCOMPARE(units.at(3).state, 3);
    }
}

void TestDiscovery::positionsAreOverwrittenNotCleared()
{
    SimChangerRig rig(recycler({"RU100A", "RU200A", "RU500A"}, {{"RU500A", 1, 100, true}}, 0));
    rig.changer.loadCashUnits();
    QCOMPARE(rig.changer.getAcceptableDenoms(), QSet<unsigned int>{500});

    // the recycler now knows one coin: the changer talks to one made so
    SimChangerRig renewed(recycler({"RU1K0A"}, {{"RU500A", 1, 100, true}}, 0));
    rig.changer.setSerial(&renewed.line);
    rig.changer.runOn(renewed.line);
    rig.changer.loadCashUnits();
    QCOMPARE(rig.changer.positions(), (QMap<unsigned char, unsigned int>{{1, 1000}, {2, 200}, {3, 500}}));
    // position 3 is still remembered from the first discovery
    QCOMPARE(rig.changer.getAcceptableDenoms(), QSet<unsigned int>{500});
}

void TestDiscovery::identificationLineEndsAtZeroByte()
{
    sim::Config config = recycler({}, {}, 0);
    config.acceptorModel = QString::fromLatin1("C2\0RU", 5);
    SimChangerRig rig(config);
    testsupport::LogCapture log;
    rig.changer.loadCashUnits();
    QCOMPARE(log.texts(QStringLiteral("INFO")).at(2), QStringLiteral(" модель: C2734112"));
}

void TestDiscovery::failureKeepsWhatWasFound()
{
    SimChangerRig rig(
        recycler({"RU100A", "RU500A"}, {{"RU100A", 1, 100, true}, {"RU200A", 1, 100, true}}, 0));
    rig.beforeAnswer(119, [&rig](const QByteArray& request) {
        if (request == req(119, bytes({2})))
            rig.line.nakNext();
    });
    QCOMPARE(thrownText<CcTalk::NakException>([&] { rig.changer.loadCashUnits(); }),
             QStringLiteral("Ошибка выполнения команды"));
    QCOMPARE(rig.changer.cachedUnits().size(), 1);
    QCOMPARE(rig.changer.cachedUnits().at(0).name, QStringLiteral("hopper1"));
    // not yet reduced to what the acceptor recognises
    QCOMPARE(rig.changer.acceptable(), QSet<unsigned int>{100});
    QCOMPARE(rig.changer.positions().size(), 2);
    QCOMPARE(rig.writes().last(), req(119, bytes({2})));
}

void TestDiscovery::getUnitIsCaseSensitive()
{
    SimChangerRig rig(recycler({"RU100A"}, {{"RU100A", 1, 100, true}}, 0));
    rig.discover();
    testsupport::LogCapture log;
    const auto e = thrown<CcTalk::Exception>([&] { rig.changer.getUnit(QStringLiteral("Hopper1")); });
    QVERIFY(e);
    QCOMPARE(QByteArray(e->what()), QStringLiteral("Модуль не найден").toUtf8());
    QCOMPARE(log.formatted(), QStringList{QStringLiteral("ERROR Модуль не найден")});
    QCOMPARE(rig.changer.getUnit(QStringLiteral("hopper1")).denom, 100u);
    QCOMPARE(rig.changer.getUnit(QStringLiteral("cashbox")).type, 3);
}

void TestDiscovery::getUnitBeforeDiscovery()
{
    SimChangerRig rig;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.getUnit(QStringLiteral("cashbox")); }),
             QStringLiteral("Модуль не найден"));
    QVERIFY(rig.writes().isEmpty());
}

void TestDiscovery::getUnitAndDenomsAskNothing()
{
    SimChangerRig rig(
        recycler({"RU100A", "RU500A"}, {{"RU100A", 1, 100, true}, {"RU500A", 1, 100, true}}, 0));
    rig.discover();
    QCOMPARE(rig.changer.getAcceptableDenoms(), QSet<unsigned int>({100, 500}));
    QCOMPARE(rig.changer.getUnit(QStringLiteral("hopper2")).denom, 500u);
    QVERIFY(rig.writes().isEmpty());
}

QTEST_GUILESS_MAIN(TestDiscovery)
#include "tst_discovery.moc"
