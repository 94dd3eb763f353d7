#include "cashcontrol/basiccashcontrol.h"
#include "support/columns.h"
#include "support/logcapture.h"
#include "support/metamethod.h"
#include "support/thrown.h"
#include "support/vtableslot.h"
#include "testcashcontrol.h"

#include <QMetaMethod>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QtTest>

#include <clocale>

using testsupport::LogCapture;
using testsupport::thrown;

namespace {

struct OtherExc : std::exception
{
    explicit OtherExc(const QByteArray& bytes) : text(bytes) {}
    const char* what() const noexcept override { return text.constData(); }
    QByteArray text;
};

using testsupport::vtableSlot;

// Opens a protected QObject virtual to taking its address.
struct QObjectSlots : QObject
{
    static long lastSlot() { return vtableSlot(&QObjectSlots::disconnectNotify); }
};

} // namespace

class Receiver : public QObject
{
    Q_OBJECT
public:
    QList<SumDetailed> sums;
public slots:
    void onReceived(SumDetailed sum) { sums << sum; }
};

class TestBasicCashControl : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(std::setlocale(LC_ALL, "C")); }

    void constructionDefaults()
    {
        QObject parent;
        auto* driver = new TestCashControl(&parent);
        QCOMPARE(driver->parent(), &parent);
        QCOMPARE(driver->getType(), 0);
        QCOMPARE(driver->optionBits(), 0);
        QCOMPARE(driver->getLogger(), logging::rootLogger());
        QVERIFY(QMetaType::type("SumDetailed") != QMetaType::UnknownType);
    }

    void descriptive_data()
    {
        testsupport::columns<int, QString, QString, QString, QString>("type", "typeName", "name", "singular",
                                                                      "plural");
        QTest::newRow("coins") << 1 << QStringLiteral("coins") << QStringLiteral("Монетоприемник")
                               << QStringLiteral("монет") << QStringLiteral("монеты");
        QTest::newRow("type 2") << 2 << QStringLiteral("bills") << QStringLiteral("Купюроприемник")
                                << QStringLiteral("купюр") << QStringLiteral("купюры");
        QTest::newRow("type 0") << 0 << QStringLiteral("bills") << QStringLiteral("Купюроприемник")
                                << QStringLiteral("купюр") << QStringLiteral("купюры");
        QTest::newRow("type -1") << -1 << QStringLiteral("bills") << QStringLiteral("Купюроприемник")
                                 << QStringLiteral("купюр") << QStringLiteral("купюры");
    }

    void descriptive()
    {
        QFETCH(int, type);
        const TestCashControl driver(type);
        QCOMPARE(driver.getType(), type);
        QTEST(driver.getTypeName(), "typeName");
        QTEST(driver.name(), "name");
        QTEST(driver.denomName(false), "singular");
        QTEST(driver.denomName(true), "plural");
    }

    void descriptiveThroughInterface()
    {
        TestCashControl driver(2);
        const hw::AbstractCashControl& iface = driver;
        QCOMPARE(iface.getTypeName(), QStringLiteral("bills"));
        QCOMPARE(iface.name().toUtf8(),
                 QByteArray("\xD0\x9A\xD1\x83\xD0\xBF\xD1\x8E\xD1\x80\xD0\xBE\xD0\xBF\xD1\x80\xD0\xB8\xD0\xB5"
                            "\xD0\xBC\xD0\xBD\xD0\xB8\xD0\xBA"));
        QCOMPARE(iface.denomName(false).toUtf8(), QByteArray("\xD0\xBA\xD1\x83\xD0\xBF\xD1\x8E\xD1\x80"));
    }

    void checkOption_data()
    {
        testsupport::columns<int, int, bool>("bits", "option", "expected");
        QTest::newRow("0 in empty set") << 0 << 0 << true;
        QTest::newRow("0 with an option set") << 1 << 0 << false;
        QTest::newRow("1 set") << 1 << 1 << true;
        QTest::newRow("1 not set") << 0 << 1 << false;
        QTest::newRow("3 with only 1 set") << 1 << 3 << false;
        QTest::newRow("3 with both set") << 3 << 3 << true;
        QTest::newRow("2 within 3") << 3 << 2 << true;
    }

    void checkOption()
    {
        QFETCH(int, bits);
        QFETCH(int, option);
        TestCashControl driver(1);
        driver.setOptionBits(bits);
        QTEST(driver.checkOption(ECashControl::Option(option)), "expected");
    }

    void checkOptionZeroUntilAnOptionIsSet()
    {
        TestCashControl driver(1);
        QVERIFY(driver.checkOption(ECashControl::Option(0)));
        driver.setOption(ECashControl::Option1, true);
        QVERIFY(!driver.checkOption(ECashControl::Option(0)));
        QVERIFY(driver.checkOption(ECashControl::Option1));
        QCOMPARE(driver.optionBits(), 1);
    }

    void setOption_data()
    {
        testsupport::columns<int, int, bool, int>("bits", "option", "on", "expected");
        QTest::newRow("set 1") << 0 << 1 << true << 1;
        QTest::newRow("add 2") << 1 << 2 << true << 3;
        QTest::newRow("set 3") << 0 << 3 << true << 3;
        QTest::newRow("clear 3 with only 1 set: unchanged") << 1 << 3 << false << 1;
        QTest::newRow("clear 3 with both set: both cleared") << 3 << 3 << false << 0;
        QTest::newRow("clear 3 with 7 set") << 7 << 3 << false << 4;
        QTest::newRow("clear 1") << 1 << 1 << false << 0;
        QTest::newRow("clear 1 of 3") << 3 << 1 << false << 2;
        QTest::newRow("clear 1 not set") << 2 << 1 << false << 2;
        QTest::newRow("clear 0 changes nothing") << 3 << 0 << false << 3;
        QTest::newRow("set 0 changes nothing") << 2 << 0 << true << 2;
    }

    void setOption()
    {
        QFETCH(int, bits);
        QFETCH(int, option);
        QFETCH(bool, on);
        TestCashControl driver(1);
        driver.setOptionBits(bits);
        driver.setOption(ECashControl::Option(option), on);
        QTEST(driver.optionBits(), "expected");
    }

    void throwErrorLogsAndThrows_data()
    {
        testsupport::columns<int, QString, bool, QString>("type", "message", "log", "expected");
        QTest::newRow("coin, X, logged")
            << 1 << QStringLiteral("X") << true << QStringLiteral("Монетоприемник: X");
        QTest::newRow("coin, X, not logged")
            << 1 << QStringLiteral("X") << false << QStringLiteral("Монетоприемник: X");
        QTest::newRow("coin, Russian") << 1 << QStringLiteral("Невозможно выдать сумму") << true
                                       << QStringLiteral("Монетоприемник: Невозможно выдать сумму");
        QTest::newRow("note device") << 2 << QStringLiteral("X") << true
                                     << QStringLiteral("Купюроприемник: X");
        QTest::newRow("placeholder in the message stays")
            << 1 << QStringLiteral("сумма %1 %2") << false << QStringLiteral("Монетоприемник: сумма %1 %2");
        QTest::newRow("empty message") << 1 << QString() << true << QStringLiteral("Монетоприемник: ");
    }

    void throwErrorLogsAndThrows()
    {
        QFETCH(int, type);
        QFETCH(QString, message);
        QFETCH(bool, log);
        QFETCH(QString, expected);
        TestCashControl driver(type);
        LogCapture capture;
        const auto e = thrown([&] { driver.throwError(message, log); });
        QVERIFY(e);
        QCOMPARE(QByteArray(e->what()), expected.toUtf8());
        QCOMPARE(e->message(), expected);
        if (log) {
            QCOMPARE(capture.formatted(), QStringList{QStringLiteral("ERROR ") + message});
            QCOMPARE(capture.lines().at(0).raw, message.toUtf8());
        } else {
            QVERIFY(capture.lines().isEmpty());
        }
    }

    void throwErrorExactBytes()
    {
        TestCashControl driver(1);
        LogCapture capture;
        const auto e = thrown([&] { driver.throwError(QStringLiteral("X"), true); });
        QVERIFY(e);
        QCOMPARE(QByteArray(e->what()),
                 QByteArray("\xD0\x9C\xD0\xBE\xD0\xBD\xD0\xB5\xD1\x82\xD0\xBE\xD0\xBF\xD1\x80\xD0\xB8\xD0\xB5"
                            "\xD0\xBC\xD0\xBD\xD0\xB8\xD0\xBA: X"));
        QCOMPARE(capture.lines().size(), 1);
        QCOMPARE(capture.lines().at(0).level, QStringLiteral("ERROR"));
        QCOMPARE(capture.lines().at(0).raw, QByteArray("X"));
    }

    void throwErrorUsesTheDriversLogger()
    {
        TestCashControl driver(1);
        driver.setLogger(logging::logger("cpibcr"));
        LogCapture capture;
        QVERIFY_EXCEPTION_THROWN(driver.throwError(QStringLiteral("Нет связи"), true), CashControlExc);
        QCOMPARE(capture.lines().size(), 1);
        QCOMPARE(capture.lines().at(0).logger, QStringLiteral("cpibcr"));
        QCOMPARE(capture.lines().at(0).text, QStringLiteral("Нет связи"));
    }

    void throwErrorOtherException()
    {
        TestCashControl driver(1);
        LogCapture capture;
        const auto e = thrown<OtherExc>([&] { driver.throwError<OtherExc>(QStringLiteral("Y"), false); });
        QVERIFY(e);
        QCOMPARE(e->text, QStringLiteral("Монетоприемник: Y").toUtf8());
        QVERIFY(capture.lines().isEmpty());
    }

    void metaObject()
    {
        const QMetaObject& mo = hw::BasicCashControl::staticMetaObject;
        QCOMPARE(QByteArray(mo.className()), QByteArray("hw::BasicCashControl"));
        QCOMPARE(mo.superClass(), &QObject::staticMetaObject);
        QCOMPARE(testsupport::ownMethods(mo),
                 QStringList({QStringLiteral("public signal received(SumDetailed) [sum]"),
                              QStringLiteral("public signal error(QString) [msg]"),
                              QStringLiteral("public signal moneyWereTaken() []")}));

        QCOMPARE(mo.propertyCount() - mo.propertyOffset(), 1);
        const QMetaProperty hardwareClass = mo.property(mo.propertyOffset());
        QCOMPARE(QByteArray(hardwareClass.name()), QByteArray("hardwareClass"));
        QCOMPARE(hardwareClass.userType(), int(QMetaType::Int));
        QVERIFY(hardwareClass.isReadable());
        QVERIFY(!hardwareClass.isWritable());
    }

    void hardwareClassProperty()
    {
        TestCashControl driver(1);
        QCOMPARE(driver.getHardwareClass(), 512);
        QCOMPARE(driver.property("hardwareClass"), QVariant(512));
        QVERIFY(!driver.setProperty("hardwareClass", 7));
        QCOMPARE(driver.property("hardwareClass").toInt(), 512);
    }

    void castsByName_data()
    {
        testsupport::columns<QByteArray, bool>("className", "interfacePart");
        QTest::newRow("hw::BasicCashControl") << QByteArray("hw::BasicCashControl") << false;
        QTest::newRow("AbstractCashControl") << QByteArray("AbstractCashControl") << true;
        QTest::newRow("kelvorin.AbstractCashControl") << QByteArray("kelvorin.AbstractCashControl") << true;
    }

    void castsByName()
    {
        QFETCH(QByteArray, className);
        QFETCH(bool, interfacePart);
        TestCashControl driver(1);
        QObject* object = &driver;
        void* const objectPart = static_cast<void*>(static_cast<hw::BasicCashControl*>(&driver));
        void* const ifacePart = static_cast<void*>(static_cast<hw::AbstractCashControl*>(&driver));
        QVERIFY(objectPart != ifacePart);
        QCOMPARE(object->qt_metacast(className.constData()), interfacePart ? ifacePart : objectPart);
    }

    void castsThatMustFail()
    {
        TestCashControl driver(1);
        QCOMPARE(driver.qt_metacast("kelvorin.AbstractSerialDevice/4.4.5"), nullptr);
        QCOMPARE(driver.qt_metacast("BasicCashControl"), nullptr);
        QCOMPARE(driver.qt_metacast(nullptr), nullptr);
        QCOMPARE(driver.qt_metacast("QObject"), static_cast<void*>(static_cast<QObject*>(&driver)));
    }

    void qobjectCastToInterface()
    {
        TestCashControl driver(1);
        QObject* object = &driver;
        hw::AbstractCashControl* iface = qobject_cast<hw::AbstractCashControl*>(object);
        QCOMPARE(iface, static_cast<hw::AbstractCashControl*>(&driver));
        QCOMPARE(QByteArray(qobject_interface_iid<hw::AbstractCashControl*>()),
                 QByteArray("kelvorin.AbstractCashControl"));
        QCOMPARE(qobject_cast<hw::BasicCashControl*>(object), static_cast<hw::BasicCashControl*>(&driver));
    }

    // The host calls through the interface's table: the operations' order is binary interface.
    void interfaceSlotOrder()
    {
        using A = hw::AbstractCashControl;
        const QList<long> order = {
            vtableSlot(&A::checkOption),
            vtableSlot(&A::connect),
            vtableSlot(&A::checkState),
            vtableSlot(&A::cashInStart),
            vtableSlot(&A::cashInEnd),
            vtableSlot(&A::cashInRollback),
            vtableSlot(&A::cashInStop),
            vtableSlot(&A::cashOut),
            vtableSlot(&A::cashOutCheck),
            vtableSlot(&A::isNeedToTakeMoney),
            vtableSlot(&A::getUnits),
            vtableSlot(&A::getAcceptableDenoms),
            vtableSlot(&A::pickup),
            vtableSlot(&A::loan),
            vtableSlot(&A::getCounter),
            vtableSlot(&A::getType),
            vtableSlot(&A::getTypeName),
            vtableSlot(&A::name),
            vtableSlot(&A::denomName),
            vtableSlot(&A::enableAsyncCheck),
            vtableSlot(&A::enableUnit),
            vtableSlot(static_cast<hw::CcUnitMaintenanceInfo (A::*)(const QString&)>(&A::maintenanceInfo)),
            vtableSlot(&A::maintenanceDone),
            vtableSlot(static_cast<QList<hw::CcUnitMaintenanceInfo> (A::*)()>(&A::maintenanceInfo)),
            vtableSlot(&A::park),
            vtableSlot(&A::diagFile),
        };
        // Slots 0 and 1 hold the two destructor entries.
        for (int i = 0; i < order.size(); ++i) {
            QCOMPARE(order.at(i), long(i + 2));
        }
    }

    void baseSlotOrder()
    {
        using B = hw::BasicCashControl;
        const QList<long> order = {
            vtableSlot(&B::getType),
            vtableSlot(&B::getTypeName),
            vtableSlot(&B::name),
            vtableSlot(&B::denomName),
            vtableSlot(&B::checkOption),
            vtableSlot(static_cast<void (B::*)()>(&B::connect)),
            vtableSlot(&B::checkState),
            vtableSlot(&B::cashInStart),
            vtableSlot(&B::cashInEnd),
            vtableSlot(&B::cashInRollback),
            vtableSlot(&B::cashInStop),
            vtableSlot(&B::cashOut),
            vtableSlot(&B::cashOutCheck),
            vtableSlot(&B::isNeedToTakeMoney),
            vtableSlot(&B::getUnits),
            vtableSlot(&B::getAcceptableDenoms),
            vtableSlot(&B::pickup),
            vtableSlot(&B::loan),
            vtableSlot(&B::getCounter),
            vtableSlot(&B::enableAsyncCheck),
            vtableSlot(&B::enableUnit),
            vtableSlot(static_cast<hw::CcUnitMaintenanceInfo (B::*)(const QString&)>(&B::maintenanceInfo)),
            vtableSlot(&B::maintenanceDone),
            vtableSlot(static_cast<QList<hw::CcUnitMaintenanceInfo> (B::*)()>(&B::maintenanceInfo)),
            vtableSlot(&B::park),
            vtableSlot(&B::diagFile),
        };
        // Directly after QObject's own virtual functions.
        const long first = QObjectSlots::lastSlot() + 1;
        for (int i = 0; i < order.size(); ++i) {
            QCOMPARE(order.at(i), first + i);
        }
    }

    void signalsCarryTheirValues()
    {
        TestCashControl driver(1);
        QSignalSpy receivedSpy(&driver, SIGNAL(received(SumDetailed)));
        QSignalSpy errorSpy(&driver, SIGNAL(error(QString)));
        QSignalSpy takenSpy(&driver, SIGNAL(moneyWereTaken()));
        QVERIFY(receivedSpy.isValid());
        QVERIFY(errorSpy.isValid());
        QVERIFY(takenSpy.isValid());

        SumDetailed sum;
        sum.denoms.insert(500, 2);
        sum.rest = 7;
        emit driver.received(sum);
        emit driver.error(QStringLiteral("Монетоприемник: Нет связи"));
        emit driver.moneyWereTaken();

        QCOMPARE(receivedSpy.count(), 1);
        const SumDetailed got = receivedSpy.at(0).at(0).value<SumDetailed>();
        QCOMPARE(got.denoms, sum.denoms);
        QCOMPARE(got.rest, 7LL);
        QCOMPARE(errorSpy.count(), 1);
        QCOMPARE(errorSpy.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Нет связи"));
        QCOMPARE(takenSpy.count(), 1);
    }

    void queuedSignalArrivesIntact()
    {
        TestCashControl driver(1);
        Receiver receiver;
        QVERIFY(QObject::connect(&driver, SIGNAL(received(SumDetailed)), &receiver,
                                 SLOT(onReceived(SumDetailed)), Qt::QueuedConnection));
        SumDetailed sum;
        sum.denoms.insert(100, 3);
        sum.denoms.insert(1000, 1);
        sum.rest = 50;
        sum.extra = 11;
        emit driver.received(sum);
        sum.denoms[100] = 99;
        QVERIFY(receiver.sums.isEmpty());
        QCoreApplication::sendPostedEvents(&receiver, QEvent::MetaCall);
        QCOMPARE(receiver.sums.size(), 1);
        const SumDetailed& got = receiver.sums.at(0);
        QCOMPARE(got.denoms, (QMap<unsigned int, long long>{{100, 3}, {1000, 1}}));
        QCOMPARE(got.rest, 50LL);
        QCOMPARE(got.extra, 11LL);
        QCOMPARE(got.toString(), QStringLiteral("13.50. номиналы: 1.00 x 3, 10.00 x 1"));
    }

    void sortRecyclersDescending()
    {
        CashControlUnit small;
        small.denom = 100;
        CashControlUnit large;
        large.denom = 1000;
        CashControlUnit top;
        top.denom = 0x80000000u;
        QVERIFY(hw::sortRecyclers(large, small));
        QVERIFY(!hw::sortRecyclers(small, large));
        // Unsigned: a denomination above INT_MAX is still the largest.
        QVERIFY(hw::sortRecyclers(top, large));
        QVERIFY(!hw::sortRecyclers(small, small));
    }
};

QTEST_GUILESS_MAIN(TestBasicCashControl)
#include "tst_basiccashcontrol.moc"
