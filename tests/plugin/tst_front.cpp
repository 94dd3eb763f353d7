#include "freshdrivers.h"
#include "simrig.h"
#include "testdriver.h"

#include "plugin/cpibcrcashcontrolfactory.h"
#include "plugin/recordedline.h"
#include "support/frames.h"

#include <QMetaClassInfo>
#include <QMetaMethod>
#include <QMetaProperty>
#include <QPointer>
#include <QSignalSpy>
#include <QtTest>

using namespace plugintest;
using testsupport::LogCapture;

namespace {

QByteArray utf8(const QString& text)
{
    return text.toUtf8();
}

QStringList names(const QList<CashControlUnit>& units)
{
    QStringList out;
    for (const CashControlUnit& unit : units) {
        out << unit.name;
    }
    return out;
}

QList<quint8> headers(const QList<QByteArray>& requests)
{
    QList<quint8> out;
    for (const QByteArray& r : requests) {
        out << quint8(r.at(0));
    }
    return out;
}

} // namespace

class TestFront : public QObject
{
    Q_OBJECT

private slots:
    void init() { RecordingChanger::setResetPending(false); }
    void cleanup() { RecordingChanger::setResetPending(false); }

    void classInformationByteForByte();
    void methodsAndProperty();
    void baseMetaObject();
    void castsByName();
    void describesACoinDevice();
    void constructionSetsUpChangerAndTimer();
    void factoryMakesDistinctDriversWithoutParent();

    void serialObjectTakesTheSerialInterface();
    void serialObjectRejectsEverythingElse();
    void initWithoutSerialDeviceHasNoEffect();
    void initConfiguresTheLineInOrder();

    void connectWithoutPortFails();
    void connectIdentifiesAndDiscovers();
    void connectPassesLinkFailureOnWithoutLoggingAgain();
    void nakReachesHostWithName();
    void checkStateWithDeviceFault();

    void cashInStartChecksStateFirst();
    void cashInStopReconnectsFirst();
    void changerSignalsAreForwarded();
    void trivialOperations();
    void unsupportedOperationsWarn();

    void maintenanceInfoOfOneUnit();
    void maintenanceInfoOfUnknownUnit();
    void maintenanceInfoOfAllUnits();
    void maintenanceDone();

    void enableAsyncCheckTwiceChecksOnce();
    void timerExpiryRepeatsTheCheck();
    void disabledCheckDoesNothingOnExpiry();
    void failedCheckStopsUntilEnabledAgain();
};

void TestFront::classInformationByteForByte()
{
    const QMetaObject& mo = hw::CpiBcrCashControl::staticMetaObject;
    QCOMPARE(QByteArray(mo.className()), QByteArray("hw::CpiBcrCashControl"));
    QCOMPARE(mo.classInfoCount() - mo.classInfoOffset(), 7);
    const int first = mo.classInfoOffset();
    const QList<QPair<QByteArray, QByteArray>> expected = {
        {"type", utf8(QStringLiteral("Монетоприемник"))},
        {"name", QByteArray("\x43\x50\x49\x20\x42\xD0\xA1\x52")},
        {"devices", QByteArray("")},
        {"info", utf8(QStringLiteral("Драйвер монетоприемника CPI BCR"))},
        {"serialObj:name", utf8(QStringLiteral("Порт"))},
        {"serialObj:type", QByteArray("port")},
        {"serialObj:info", utf8(QStringLiteral("Порт к которому подключено устройство"))},
    };
    for (int i = 0; i < expected.size(); ++i) {
        QCOMPARE(QByteArray(mo.classInfo(first + i).name()), expected.at(i).first);
        QCOMPARE(QByteArray(mo.classInfo(first + i).value()), expected.at(i).second);
    }
    // The Es of "name" is Cyrillic; "info" keeps the Latin C.
    QCOMPARE(QString::fromUtf8(mo.classInfo(first + 1).value()).at(5), QChar(0x0421));
    QVERIFY(QByteArray(mo.classInfo(first + 3).value()).endsWith("CPI BCR"));
}

void TestFront::methodsAndProperty()
{
    const QMetaObject& mo = hw::CpiBcrCashControl::staticMetaObject;
    QCOMPARE(mo.methodCount() - mo.methodOffset(), 2);
    const QMetaMethod check = mo.method(mo.methodOffset());
    QCOMPARE(check.methodSignature(), QByteArray("asyncCheckState()"));
    QCOMPARE(check.methodType(), QMetaMethod::Slot);
    QCOMPARE(check.access(), QMetaMethod::Protected);
    const QMetaMethod init = mo.method(mo.methodOffset() + 1);
    QCOMPARE(init.methodSignature(), QByteArray("init()"));
    QCOMPARE(init.methodType(), QMetaMethod::Method);
    QCOMPARE(init.access(), QMetaMethod::Public);

    QCOMPARE(mo.propertyCount() - mo.propertyOffset(), 1);
    const QMetaProperty p = mo.property(mo.propertyOffset());
    QCOMPARE(QByteArray(p.name()), QByteArray("serialObj"));
    QCOMPARE(QByteArray(p.typeName()), QByteArray("QVariant"));
    QVERIFY(p.isReadable());
    QVERIFY(p.isWritable());
    QVERIFY(p.isDesignable());
    QVERIFY(p.isScriptable());
    QVERIFY(p.isStored());
    QCOMPARE(mo.enumeratorCount() - mo.enumeratorOffset(), 0);
}

void TestFront::baseMetaObject()
{
    const QMetaObject* base = hw::CpiBcrCashControl::staticMetaObject.superClass();
    QVERIFY(base);
    QCOMPARE(QByteArray(base->className()), QByteArray("hw::BasicCashControl"));
    QCOMPARE(QByteArray(base->superClass()->className()), QByteArray("QObject"));
    QCOMPARE(base->classInfoCount() - base->classInfoOffset(), 0);
    QCOMPARE(base->methodCount() - base->methodOffset(), 3);
    const QMetaMethod received = base->method(base->methodOffset());
    QCOMPARE(received.methodSignature(), QByteArray("received(SumDetailed)"));
    QCOMPARE(received.methodType(), QMetaMethod::Signal);
    QCOMPARE(received.parameterNames(), QList<QByteArray>({"sum"}));
    const QMetaMethod error = base->method(base->methodOffset() + 1);
    QCOMPARE(error.methodSignature(), QByteArray("error(QString)"));
    QCOMPARE(error.parameterNames(), QList<QByteArray>({"msg"}));
    QCOMPARE(base->method(base->methodOffset() + 2).methodSignature(), QByteArray("moneyWereTaken()"));
    QCOMPARE(base->propertyCount() - base->propertyOffset(), 1);
    const QMetaProperty hardware = base->property(base->propertyOffset());
    QCOMPARE(QByteArray(hardware.name()), QByteArray("hardwareClass"));
    QCOMPARE(QByteArray(hardware.typeName()), QByteArray("int"));
    QVERIFY(!hardware.isWritable());
}

void TestFront::castsByName()
{
    RecordingDriver driver;
    QVERIFY(driver.qt_metacast("hw::CpiBcrCashControl"));
    QVERIFY(driver.qt_metacast("hw::BasicCashControl"));
    hw::AbstractCashControl* viaIid =
        static_cast<hw::AbstractCashControl*>(driver.qt_metacast(KELVORIN_CASH_CONTROL_IID));
    QVERIFY(viaIid);
    QCOMPARE(viaIid, static_cast<hw::AbstractCashControl*>(&driver));
    QCOMPARE(static_cast<hw::AbstractCashControl*>(driver.qt_metacast("AbstractCashControl")), viaIid);
    QCOMPARE(qobject_cast<hw::AbstractCashControl*>(&driver), viaIid);
    QVERIFY(!driver.qt_metacast("hw::CpiBcrCashControlFactory"));
}

void TestFront::describesACoinDevice()
{
    RecordingDriver driver;
    QCOMPARE(driver.getType(), 1);
    QCOMPARE(driver.getTypeName(), QStringLiteral("coins"));
    QCOMPARE(driver.name(), QStringLiteral("Монетоприемник"));
    QCOMPARE(driver.denomName(false), QStringLiteral("монет"));
    QCOMPARE(driver.denomName(true), QStringLiteral("монеты"));
    QVERIFY(driver.checkOption(ECashControl::Option(1)));
    QVERIFY(!driver.checkOption(ECashControl::Option(0)));
    QCOMPARE(driver.property("hardwareClass"), QVariant(512));
}

void TestFront::constructionSetsUpChangerAndTimer()
{
    RecordingDriver driver;
    CcTalk::Changer* changer = driver.device();
    QCOMPARE(changer, driver.recorder);
    QCOMPARE(changer->parent(), &driver);
    QCOMPARE(int(changer->getAddress()), 55);
    QCOMPARE(changer->getLogger(), logging::logger("cpibcr"));
    QVERIFY(changer->getName().isEmpty());
    QVERIFY(!changer->getSerial());

    Timer* timer = driver.checkTimer();
    QCOMPARE(timer->parent(), &driver);
    QCOMPARE(timer->interval(), 60000);
    QVERIFY(timer->isSingleShot());
    QVERIFY(!timer->isActive());
    QVERIFY(!driver.asyncCheckEnabled());
    QVERIFY(!driver.serialDevice());
    QCOMPARE(driver.findChildren<QObject*>(QString(), Qt::FindDirectChildrenOnly).size(), 2);

    // The public constructor makes its own changer the same way.
    QPointer<QObject> child;
    {
        QObject parent;
        auto* plain = new hw::CpiBcrCashControl(&parent);
        QCOMPARE(plain->parent(), &parent);
        const QList<CcTalk::Changer*> changers =
            plain->findChildren<CcTalk::Changer*>(QString(), Qt::FindDirectChildrenOnly);
        QCOMPARE(changers.size(), 1);
        QCOMPARE(int(changers.at(0)->getAddress()), 55);
        QCOMPARE(changers.at(0)->getLogger(), logging::logger("cpibcr"));
        QCOMPARE(plain->findChildren<Timer*>(QString(), Qt::FindDirectChildrenOnly).size(), 1);
        child = changers.at(0);
    }
    QVERIFY(child.isNull());
}

void TestFront::factoryMakesDistinctDriversWithoutParent()
{
    hw::CpiBcrCashControlFactory factory;
    const QMetaObject& mo = hw::CpiBcrCashControlFactory::staticMetaObject;
    QCOMPARE(QByteArray(mo.className()), QByteArray("hw::CpiBcrCashControlFactory"));
    QCOMPARE(mo.classInfoCount(), 0);
    QCOMPARE(mo.propertyCount() - mo.propertyOffset(), 0);
    QCOMPARE(mo.methodCount() - mo.methodOffset(), 1);
    const QMetaMethod getObject = mo.method(mo.methodOffset());
    QCOMPARE(getObject.methodSignature(), QByteArray("getObject()"));
    QCOMPARE(getObject.methodType(), QMetaMethod::Slot);
    QCOMPARE(getObject.access(), QMetaMethod::Public);
    QCOMPARE(QByteArray(getObject.typeName()), QByteArray("QVariant"));

    const QVariant first = factory.getObject();
    const QVariant second = factory.getObject();
    QCOMPARE(first.userType(), int(QMetaType::QObjectStar));
    QObject* a = first.value<QObject*>();
    QObject* b = second.value<QObject*>();
    plugintest::checkTwoFreshDrivers(a, b);
    delete a;
    delete b;
}

void TestFront::serialObjectTakesTheSerialInterface()
{
    RecordingDriver driver;
    const QVariant none = driver.property("serialObj");
    QCOMPARE(none.userType(), int(QMetaType::QObjectStar));
    QVERIFY(!none.value<QObject*>());

    testsupport::FakeSerialDevice line;
    QVERIFY(driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&line)));
    QCOMPARE(driver.serialDevice(), static_cast<hw::AbstractSerialDevice*>(&line));
    // The changer talks through the driver's line recorder, which forwards to the host's object.
    const auto* recorded = dynamic_cast<hw::RecordedLine*>(driver.device()->getSerial());
    QVERIFY(recorded);
    QCOMPARE(recorded->device(), static_cast<hw::AbstractSerialDevice*>(&line));
    const QVariant back = driver.property("serialObj");
    QCOMPARE(back.userType(), int(QMetaType::QObjectStar));
    QCOMPARE(back.value<QObject*>(), static_cast<QObject*>(&line));

    // A pointer of the derived type converts to QObject* as well.
    RecordingDriver other;
    other.setSerialObject(QVariant::fromValue(&line));
    QCOMPARE(other.serialDevice(), static_cast<hw::AbstractSerialDevice*>(&line));
}

void TestFront::serialObjectRejectsEverythingElse()
{
    testsupport::FakeSerialDevice line;
    QObject notSerial;
    const QList<QVariant> values = {QVariant(42), QVariant(QStringLiteral("/dev/ttyS0")), QVariant(),
                                    QVariant::fromValue<QObject*>(&notSerial),
                                    QVariant::fromValue<QObject*>(nullptr)};
    for (const QVariant& value : values) {
        RecordingDriver driver;
        driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&line));
        driver.setSerialObject(value);
        QVERIFY(!driver.serialDevice());
        QVERIFY(!driver.device()->getSerial());
        QVERIFY(!driver.property("serialObj").value<QObject*>());
        QCOMPARE(thrownText([&] { driver.connect(); }), QStringLiteral("Монетоприемник: Не настроен порт"));
    }
    QVERIFY(line.writes.isEmpty());
    QVERIFY(line.settings.isEmpty());
}

void TestFront::initWithoutSerialDeviceHasNoEffect()
{
    LogCapture log;
    testsupport::FakeSerialDevice line;
    RecordingDriver driver;
    // A device that was set and then taken away again must not be configured.
    driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&line));
    QVERIFY(driver.serialDevice());
    driver.setProperty("serialObj", QVariant());
    QVERIFY(!driver.serialDevice());
    QVERIFY(QMetaObject::invokeMethod(&driver, "init"));
    driver.init();
    QVERIFY(line.settings.isEmpty());
    QVERIFY(line.writes.isEmpty());
    QVERIFY(log.lines().isEmpty());
}

void TestFront::initConfiguresTheLineInOrder()
{
    LogCapture log;
    testsupport::FakeSerialDevice line;
    RecordingDriver driver;
    driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&line));
    QVERIFY(QMetaObject::invokeMethod(&driver, "init"));
    QCOMPARE(line.settings, QStringList({QStringLiteral("baud=115200"), QStringLiteral("data=8"),
                                         QStringLiteral("parity=None"), QStringLiteral("stop=1"),
                                         QStringLiteral("flow=Disable")}));
    // Neither the port nor the device is touched.
    QVERIFY(line.writes.isEmpty());
    QCOMPARE(line.discards, 0);
    QCOMPARE(line.reads, 0);
    QVERIFY(log.lines().isEmpty());
}

void TestFront::connectWithoutPortFails()
{
    LogCapture log;
    RecordingDriver driver;
    QCOMPARE(thrownText([&] { driver.connect(); }), QStringLiteral("Монетоприемник: Не настроен порт"));
    QCOMPARE(linesOf(log, QStringLiteral("cpibcr")),
             QStringList({QStringLiteral("INFO Инициализация устройства"),
                          QStringLiteral("ERROR Не настроен порт")}));
    QCOMPARE(log.lines().size(), 2);

    // The host's C-string codec is UTF-8: the exception carries those bytes.
    QCOMPARE(thrownText([&] { driver.connect(); }), QStringLiteral("Монетоприемник: Не настроен порт"));
}

void TestFront::connectIdentifiesAndDiscovers()
{
    StandardRig rig;
    LogCapture log;
    rig.driver.init();
    rig.driver.connect();
    QVERIFY(rig.refusedRequests().isEmpty());
    QCOMPARE(log.formatted().value(0), QStringLiteral("INFO Инициализация устройства"));
    const QList<quint8> sent = headers(rig.requests());
    // Identification first, discovery last.
    QVERIFY(sent.contains(245));
    QVERIFY(sent.contains(242));
    QVERIFY(sent.indexOf(245) < sent.indexOf(247));
    QCOMPARE(sent.last(), quint8(117));
    QVERIFY(!sent.contains(1));
    QVERIFY(rig.driver.recorder->sleeps.isEmpty());

    rig.forget();
    const QList<CashControlUnit> units = rig.driver.getUnits();
    QCOMPARE(names(units), QStringList({QStringLiteral("hopper1"), QStringLiteral("hopper2"),
                                        QStringLiteral("hopper3"), QStringLiteral("cashbox")}));
    QCOMPARE(units.at(1).denom, 500u);
    QCOMPARE(units.at(1).count, 20LL);
    QCOMPARE(units.at(3).sum, 12550LL);
    QCOMPARE(rig.driver.getAcceptableDenoms(), QSet<unsigned int>({100, 500, 1000}));
}

void TestFront::connectPassesLinkFailureOnWithoutLoggingAgain()
{
    LogCapture log;
    testsupport::FakeSerialDevice silent;
    RecordingDriver driver;
    driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&silent));
    QCOMPARE(thrownText([&] { driver.connect(); }), QStringLiteral("Монетоприемник: Нет связи"));
    // Five attempts of the first command, each logged by the link; nothing more.
    QCOMPARE(silent.writes.size(), 5);
    const QString lost = QStringLiteral("Нет связи");
    QCOMPARE(log.texts(QStringLiteral("ERROR")), QStringList({lost, lost, lost, lost, lost}));
    QCOMPARE(driver.recorder->sleeps, QList<int>({200, 200, 200, 200, 200}));
}

void TestFront::nakReachesHostWithName()
{
    StandardRig rig;
    rig.nakHeaders({254});
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.connect(); }),
             QStringLiteral("Монетоприемник: Ошибка выполнения команды"));
    QCOMPARE(log.texts(QStringLiteral("ERROR")), QStringList({QStringLiteral("Ошибка выполнения команды")}));
    QCOMPARE(rig.count(254), 1);
    QCOMPARE(rig.refusedRequests(), QList<QByteArray>{testsupport::hex("FE")});
}

void TestFront::checkStateWithDeviceFault()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    rig.driver.checkState();
    QVERIFY(rig.count(123) > 0);
    QVERIFY(!log.formatted().contains(QStringLiteral("INFO Инициализация устройства")));

    rig.device().setActivityBits(16);
    rig.device().setErrorStatus(1, 2);
    log.clear();
    QCOMPARE(thrownText([&] { rig.driver.checkState(); }),
             QStringLiteral("Монетоприемник: Хоппер 1, заклинивание"));
    QCOMPARE(log.texts(QStringLiteral("ERROR")), QStringList({QStringLiteral("Хоппер 1, заклинивание")}));
}

void TestFront::cashInStartChecksStateFirst()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    rig.driver.cashInStart(false, {500});
    QCOMPARE(log.formatted().value(0), QStringLiteral("INFO Старт приема монет"));
    QVERIFY(log.texts().contains(QStringLiteral("Проверка состояния устройства")));
    const QList<quint8> sent = headers(rig.requests());
    QCOMPARE(sent.first(), quint8(254));
    QVERIFY(sent.indexOf(123) < sent.indexOf(231));
    // Positions 1 (100) and 4 (1000); 500 is excluded and 200 has no hopper.
    QCOMPARE(rig.dataOf(231), QList<QByteArray>({testsupport::hex("0900")}));
    rig.driver.cashInStop();
}

void TestFront::cashInStopReconnectsFirst()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    rig.driver.cashInStop();
    QCOMPARE(log.formatted().value(0), QStringLiteral("INFO Остановка приема монет"));
    QVERIFY(!log.texts().contains(QStringLiteral("Проверка состояния устройства")));
    QVERIFY(log.texts().contains(QStringLiteral("Проверка соединения с устройством")));
    const QList<quint8> sent = headers(rig.requests());
    QCOMPARE(sent.mid(0, 3), QList<quint8>({254, 123, 231}));
    QCOMPARE(rig.dataOf(231), QList<QByteArray>({testsupport::hex("0000")}));

    rig.nakHeaders({231});
    QCOMPARE(thrownText([&] { rig.driver.cashInStop(); }),
             QStringLiteral("Монетоприемник: Ошибка выполнения команды"));
}

void TestFront::changerSignalsAreForwarded()
{
    RecordingDriver driver;
    QSignalSpy received(&driver, &hw::BasicCashControl::received);
    QSignalSpy errors(&driver, &hw::BasicCashControl::error);
    SumDetailed sum;
    sum.denoms[500] = 2;
    emit driver.device()->received(sum);
    emit driver.device()->error(QStringLiteral("Монетоприемник: Нет связи"));
    QCOMPARE(received.size(), 1);
    QCOMPARE(received.at(0).at(0).value<SumDetailed>().denoms, sum.denoms);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Нет связи"));
}

void TestFront::trivialOperations()
{
    StandardRig rig;
    LogCapture log;
    rig.driver.cashInEnd();
    const SumDetailed rollback = rig.driver.cashInRollback();
    QVERIFY(rollback.denoms.isEmpty());
    QCOMPARE(rollback.rest, 0LL);
    QCOMPARE(rollback.extra, 0LL);
    QVERIFY(!rig.driver.isNeedToTakeMoney());
    QVERIFY(rig.line.transactions().isEmpty());
    QVERIFY(log.lines().isEmpty());
}

void TestFront::unsupportedOperationsWarn()
{
    StandardRig rig;
    LogCapture log;
    rig.driver.enableUnit(QStringLiteral("hopper1"), false);
    rig.driver.park();
    QCOMPARE(rig.driver.diagFile(), QStringLiteral("операция не поддерживается"));
    QCOMPARE(
        log.formatted(),
        QStringList({QStringLiteral("WARN Операция отключения модулей не поддерживается"),
                     QStringLiteral("WARN Операция подготовки к транспортировке не поддерживается"),
                     QStringLiteral("WARN Операция создания диагностического файла не поддерживается")}));
    QVERIFY(rig.line.transactions().isEmpty());
}

void TestFront::maintenanceInfoOfOneUnit()
{
    // Modelled: the simulator's audit counters cannot be set, only counted up by payouts.
    Rig rig;
    rig.connectDevice();
    rig.model.hoppers[1].dispensed = 500000;
    rig.model.hoppers[2].dispensed = 500001;
    LogCapture log;
    const hw::CcUnitMaintenanceInfo ok = rig.driver.maintenanceInfo(QStringLiteral("hopper2"));
    QCOMPARE(log.formatted().value(0),
             QStringLiteral("INFO Получение информации о тех. обслуживании для модуля hopper2"));
    QCOMPARE(ok.unitName, QStringLiteral("hopper2"));
    QVERIFY(ok.status);
    QCOMPARE(ok.cycles, 500000);
    QCOMPARE(ok.interval, 500000);
    QVERIFY(ok.description.isEmpty());
    QCOMPARE(rig.model.dataOf(86), QList<QByteArray>({testsupport::hex("5002")}));

    const hw::CcUnitMaintenanceInfo worn = rig.driver.maintenanceInfo(QStringLiteral("hopper3"));
    QVERIFY(!worn.status);
    QCOMPARE(worn.cycles, 500001);
    QCOMPARE(worn.description, QStringLiteral("износ выбрасывающего механизма"));
}

void TestFront::maintenanceInfoOfUnknownUnit()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.maintenanceInfo(QStringLiteral("Hopper1")); }),
             QStringLiteral("Монетоприемник: Модуль не найден"));
    QCOMPARE(log.formatted(),
             QStringList({QStringLiteral("INFO Получение информации о тех. обслуживании для модуля Hopper1"),
                          QStringLiteral("ERROR Модуль не найден")}));
    QVERIFY(rig.line.transactions().isEmpty());
}

void TestFront::maintenanceInfoOfAllUnits()
{
    // Modelled: the simulator's audit counters cannot be set, only counted up by payouts.
    Rig rig;
    rig.connectDevice();
    rig.model.hoppers[0].dispensed = 7;
    LogCapture log;
    const QList<hw::CcUnitMaintenanceInfo> records = rig.driver.maintenanceInfo();
    QCOMPARE(records.size(), 3);
    QCOMPARE(records.at(0).unitName, QStringLiteral("hopper1"));
    QCOMPARE(records.at(0).cycles, 7);
    QCOMPARE(records.at(1).unitName, QStringLiteral("hopper2"));
    QCOMPARE(records.at(2).unitName, QStringLiteral("hopper3"));
    QStringList asked;
    for (const QString& text : log.texts(QStringLiteral("INFO"))) {
        if (text.startsWith(QStringLiteral("Получение информации о тех. обслуживании"))) {
            asked << text;
        }
    }
    QCOMPARE(asked,
             QStringList({QStringLiteral("Получение информации о тех. обслуживании для модуля hopper1"),
                          QStringLiteral("Получение информации о тех. обслуживании для модуля hopper2"),
                          QStringLiteral("Получение информации о тех. обслуживании для модуля hopper3")}));
    // The units are read from the device again before the records.
    QCOMPARE(rig.model.count(117), 1);
    QCOMPARE(rig.model.dataOf(86), QList<QByteArray>({testsupport::hex("5001"), testsupport::hex("5002"),
                                                      testsupport::hex("5003")}));
}

void TestFront::maintenanceDone()
{
    // Modelled: the simulator's audit counters cannot be set, only counted up by payouts.
    Rig rig;
    rig.connectDevice();
    rig.model.hoppers[0].dispensed = 600000;
    LogCapture log;
    rig.driver.maintenanceDone(QStringLiteral("hopper1"));
    QCOMPARE(log.formatted().value(0),
             QStringLiteral("INFO Сброс состояния тех. обслуживания для модуля hopper1"));
    QCOMPARE(rig.model.dataOf(87), QList<QByteArray>({testsupport::hex("5001")}));
    QCOMPARE(rig.model.hoppers.at(0).dispensed, 0u);

    rig.model.nakHeaders = {87};
    QCOMPARE(thrownText([&] { rig.driver.maintenanceDone(QStringLiteral("hopper1")); }),
             QStringLiteral("Монетоприемник: Ошибка выполнения команды"));
}

void TestFront::enableAsyncCheckTwiceChecksOnce()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    rig.driver.enableAsyncCheck(true);
    QVERIFY(rig.driver.asyncCheckEnabled());
    QVERIFY(rig.driver.checkTimer()->isActive());
    QCOMPARE(rig.requests(), QList<QByteArray>({testsupport::hex("7B")}));
    rig.driver.enableAsyncCheck(true);
    QCOMPARE(rig.requests().size(), 1);
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Старт асинхронной проверки состояния"),
                                            QStringLiteral("INFO Старт асинхронной проверки состояния")}));
    QVERIFY(rig.driver.checkTimer()->isActive());
}

void TestFront::timerExpiryRepeatsTheCheck()
{
    StandardRig rig;
    rig.connectDevice();
    rig.driver.enableAsyncCheck(true);
    rig.forget();
    rig.driver.checkTimer()->stop();
    emit rig.driver.checkTimer()->timeout();
    QCOMPARE(rig.requests(), QList<QByteArray>({testsupport::hex("7B")}));
    QVERIFY(rig.driver.checkTimer()->isActive());
    QCOMPARE(rig.driver.checkTimer()->interval(), 60000);

    // A warning-class fault is only logged: the check goes on.
    rig.device().setActivityBits(4096);
    rig.device().setErrorStatus(3, 1);
    QSignalSpy errors(&rig.driver, &hw::BasicCashControl::error);
    LogCapture log;
    rig.driver.checkTimer()->stop();
    emit rig.driver.checkTimer()->timeout();
    QCOMPARE(errors.size(), 0);
    QCOMPARE(significant(log), QStringList({QStringLiteral("WARN Хоппер 3 пустой")}));
    QVERIFY(rig.driver.checkTimer()->isActive());
}

void TestFront::disabledCheckDoesNothingOnExpiry()
{
    StandardRig rig;
    rig.connectDevice();
    rig.driver.enableAsyncCheck(true);
    LogCapture log;
    rig.driver.enableAsyncCheck(false);
    QCOMPARE(log.formatted(), QStringList({QStringLiteral("INFO Остановка асинхронной проверки состояния")}));
    QVERIFY(!rig.driver.asyncCheckEnabled());
    // Switching off leaves the timer running; its expiry finds the flag off.
    QVERIFY(rig.driver.checkTimer()->isActive());
    rig.forget();
    rig.driver.checkTimer()->stop();
    emit rig.driver.checkTimer()->timeout();
    QVERIFY(rig.line.transactions().isEmpty());
    QVERIFY(!rig.driver.checkTimer()->isActive());
}

void TestFront::failedCheckStopsUntilEnabledAgain()
{
    StandardRig rig;
    rig.connectDevice();
    rig.device().setActivityBits(16);
    rig.device().setErrorStatus(2, 4);
    QSignalSpy errors(&rig.driver, &hw::BasicCashControl::error);
    LogCapture log;
    rig.driver.enableAsyncCheck(true);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Хоппер 2 неисправен"));
    QVERIFY(!rig.driver.checkTimer()->isActive());
    // Logged once, where the fault was raised.
    QCOMPARE(log.texts(QStringLiteral("ERROR")), QStringList({QStringLiteral("Хоппер 2 неисправен")}));
    QCOMPARE(rig.requests(),
             QList<QByteArray>({testsupport::hex("7B"), testsupport::hex("7A"), testsupport::hex("E8")}));

    // No expiry is pending; a timer event would find nothing to do.
    rig.forget();
    QTest::qWait(1);
    QVERIFY(rig.line.transactions().isEmpty());

    rig.device().setActivityBits(0);
    rig.driver.enableAsyncCheck(true);
    QCOMPARE(errors.size(), 1);
    QVERIFY(rig.driver.checkTimer()->isActive());
    // The fault asked for a reset; the background check does not do it.
    QCOMPARE(rig.requests(), QList<QByteArray>({testsupport::hex("7B")}));
}

QTEST_GUILESS_MAIN(TestFront)
#include "tst_front.moc"
