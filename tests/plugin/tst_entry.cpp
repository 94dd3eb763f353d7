// The built plug-in as a host meets it: loaded from its file, never linked in.
#include "elffile.h"
#include "freshdrivers.h"

#include "cashcontrol/abstractcashcontrol.h"
#include "cashcontrol/cashcontrolexc.h"
#include "host/interfaceids.h"
#include "support/fakeserialdevice.h"
#include "support/frames.h"
#include "support/thrown.h"

#include <QFile>
#include <QJsonObject>
#include <QLibrary>
#include <QMetaClassInfo>
#include <QPluginLoader>
#include <QPointer>
#include <QSet>
#include <QtTest>

using plugintest::ElfFile;
using testsupport::thrownText;

namespace {

const QString pluginFile = QStringLiteral(CPIBCR_PLUGIN_FILE);

const QByteArray verificationText = QByteArray("pattern=QT_PLUGIN_VERIFICATION_DATA\n"
                                               "version=4.8.6\n"
                                               "debug=false\n"
                                               "buildkey=i386 linux g++-4 full-config");

using InstanceFunction = QObject* (*)();
using TextFunction = const char* (*)();

QObject* newDriver(QObject* factory)
{
    QVariant made;
    if (!QMetaObject::invokeMethod(factory, "getObject", Q_RETURN_ARG(QVariant, made))) {
        return nullptr;
    }
    return made.userType() == QMetaType::QObjectStar ? made.value<QObject*>() : nullptr;
}

} // namespace

class TestEntry : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void loadsWithQt5Metadata();
    void instanceIsOneFactoryUntilDeleted();
    void factoryMetaObject();
    void getObjectMakesDistinctDrivers();
    void driverDescribesItself();
    void driverWorksThroughTheHostInterfaces();
    void verificationDataFunction();
    void verificationSectionInTheFile();
    void onlyTheEntryPointsAreExported();
    void fileIsForThisArchitecture();

private:
    QPluginLoader loader;
    QLibrary library;
    ElfFile elf;
};

void TestEntry::initTestCase()
{
    QVERIFY2(QFile::exists(pluginFile), qPrintable(pluginFile));
    QCOMPARE(QFileInfo(pluginFile).fileName(), QStringLiteral("libcpibcr.so"));
    QFile file(pluginFile);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY2(elf.parse(file.readAll()), qPrintable(elf.error()));
    loader.setFileName(pluginFile);
    library.setFileName(pluginFile);
}

void TestEntry::loadsWithQt5Metadata()
{
    const QJsonObject meta = loader.metaData();
    QCOMPARE(meta.value(QStringLiteral("IID")).toString(), QStringLiteral(KELVORIN_CASH_CONTROL_IID));
    QCOMPARE(meta.value(QStringLiteral("IID")).toString(), QStringLiteral("kelvorin.AbstractCashControl"));
    QCOMPARE(meta.value(QStringLiteral("className")).toString(), QStringLiteral("CpiBcrCashControlFactory"));
    QVERIFY2(loader.load(), qPrintable(loader.errorString()));
    QVERIFY(loader.isLoaded());

    const ElfFile::Section* section = elf.section(".qtmetadata");
    QVERIFY(section);
    QVERIFY(elf.contents(*section).startsWith("QTMETADATA !"));
    QVERIFY(!(section->flags & ElfFile::writeFlag));
}

void TestEntry::instanceIsOneFactoryUntilDeleted()
{
    QVERIFY2(library.load(), qPrintable(library.errorString()));
    const auto instance = reinterpret_cast<InstanceFunction>(library.resolve("qt_plugin_instance"));
    QVERIFY(instance);

    QObject* first = loader.instance();
    QVERIFY(first);
    QCOMPARE(QByteArray(first->metaObject()->className()), QByteArray("hw::CpiBcrCashControlFactory"));
    QVERIFY(!first->parent());
    QCOMPARE(loader.instance(), first);
    QCOMPARE(instance(), first);
    QCOMPARE(instance(), first);

    // The host deletes the factory: the next call makes a fresh one.
    first->setProperty("seenByTest", true);
    QPointer<QObject> watch(first);
    delete first;
    QVERIFY(watch.isNull());
    QObject* second = instance();
    QVERIFY(second);
    QVERIFY(!second->property("seenByTest").isValid());
    QCOMPARE(QByteArray(second->metaObject()->className()), QByteArray("hw::CpiBcrCashControlFactory"));
    QCOMPARE(instance(), second);
    QCOMPARE(loader.instance(), second);
}

void TestEntry::factoryMetaObject()
{
    QObject* factory = loader.instance();
    QVERIFY(factory);
    const QMetaObject* mo = factory->metaObject();
    QCOMPARE(QByteArray(mo->superClass()->className()), QByteArray("QObject"));
    QCOMPARE(mo->classInfoCount(), 0);
    QCOMPARE(mo->propertyCount() - mo->propertyOffset(), 0);
    QCOMPARE(mo->methodCount() - mo->methodOffset(), 1);
    const QMetaMethod getObject = mo->method(mo->methodOffset());
    QCOMPARE(getObject.methodSignature(), QByteArray("getObject()"));
    QCOMPARE(getObject.methodType(), QMetaMethod::Slot);
    QCOMPARE(getObject.access(), QMetaMethod::Public);
    QCOMPARE(getObject.returnType(), int(QMetaType::QVariant));
}

void TestEntry::getObjectMakesDistinctDrivers()
{
    QObject* factory = loader.instance();
    QObject* a = newDriver(factory);
    QObject* b = newDriver(factory);
    plugintest::checkTwoFreshDrivers(a, b);
    // The factory keeps nothing: the drivers belong to the caller.
    QVERIFY(factory->children().isEmpty());
    delete a;
    delete b;
    QCOMPARE(loader.instance(), factory);
}

void TestEntry::driverDescribesItself()
{
    QScopedPointer<QObject> driver(newDriver(loader.instance()));
    QVERIFY(driver);
    const QMetaObject* mo = driver->metaObject();
    QCOMPARE(QByteArray(mo->superClass()->className()), QByteArray("hw::BasicCashControl"));
    const int first = mo->classInfoOffset();
    QCOMPARE(mo->classInfoCount() - first, 7);
    const QList<QPair<QByteArray, QByteArray>> expected = {
        {"type",
         QByteArray("\xD0\x9C\xD0\xBE\xD0\xBD\xD0\xB5\xD1\x82\xD0\xBE\xD0\xBF\xD1\x80\xD0\xB8\xD0\xB5\xD0\xBC"
                    "\xD0\xBD\xD0\xB8\xD0\xBA")},
        {"name", QByteArray("\x43\x50\x49\x20\x42\xD0\xA1\x52")},
        {"devices", QByteArray("")},
        {"info", QStringLiteral("Драйвер монетоприемника CPI BCR").toUtf8()},
        {"serialObj:name", QStringLiteral("Порт").toUtf8()},
        {"serialObj:type", QByteArray("port")},
        {"serialObj:info", QStringLiteral("Порт к которому подключено устройство").toUtf8()},
    };
    for (int i = 0; i < expected.size(); ++i) {
        QCOMPARE(QByteArray(mo->classInfo(first + i).name()), expected.at(i).first);
        QCOMPARE(QByteArray(mo->classInfo(first + i).value()), expected.at(i).second);
    }
    QCOMPARE(QString::fromUtf8(mo->classInfo(first).value()), QStringLiteral("Монетоприемник"));

    QCOMPARE(mo->methodCount() - mo->methodOffset(), 2);
    QCOMPARE(mo->method(mo->methodOffset()).methodSignature(), QByteArray("asyncCheckState()"));
    QCOMPARE(mo->method(mo->methodOffset()).access(), QMetaMethod::Protected);
    QCOMPARE(mo->method(mo->methodOffset() + 1).methodSignature(), QByteArray("init()"));
    QCOMPARE(mo->method(mo->methodOffset() + 1).methodType(), QMetaMethod::Method);
    const QMetaProperty serialObj = mo->property(mo->indexOfProperty("serialObj"));
    QVERIFY(serialObj.isValid());
    QCOMPARE(QByteArray(serialObj.typeName()), QByteArray("QVariant"));
    QVERIFY(serialObj.isWritable() && serialObj.isDesignable() && serialObj.isScriptable() &&
            serialObj.isStored());
    QCOMPARE(driver->property("hardwareClass"), QVariant(512));
}

void TestEntry::driverWorksThroughTheHostInterfaces()
{
    QScopedPointer<QObject> object(newDriver(loader.instance()));
    QVERIFY(object);
    // The host knows the driver only by the interface identifier.
    auto* driver = qobject_cast<hw::AbstractCashControl*>(object.data());
    QVERIFY(driver);
    QVERIFY(object->inherits("hw::BasicCashControl"));
    QCOMPARE(driver->getType(), 1);
    QCOMPARE(driver->name(), QStringLiteral("Монетоприемник"));
    QVERIFY(driver->checkOption(ECashControl::Option(1)));

    QCOMPARE(thrownText([&] { driver->connect(); }), QStringLiteral("Монетоприемник: Не настроен порт"));

    testsupport::FakeSerialDevice line;
    QVERIFY(object->setProperty("serialObj", QVariant::fromValue<QObject*>(&line)));
    QCOMPARE(object->property("serialObj").value<QObject*>(), static_cast<QObject*>(&line));
    QVERIFY(QMetaObject::invokeMethod(object.data(), "init"));
    QCOMPARE(line.settings, QStringList({QStringLiteral("baud=115200"), QStringLiteral("data=8"),
                                         QStringLiteral("parity=None"), QStringLiteral("stop=1"),
                                         QStringLiteral("flow=Disable")}));
    QVERIFY(line.writes.isEmpty());

    // The first command reaches the line addressed to 55; a refusal is passed on
    // (never repeated, so nothing waits).
    line.setResponder([](const QByteArray&) { return QList<QByteArray>({testsupport::nak()}); });
    QCOMPARE(thrownText([&] { driver->connect(); }),
             QStringLiteral("Монетоприемник: Ошибка выполнения команды"));
    QCOMPARE(line.writes, QList<QByteArray>({QByteArray::fromHex("370001FECA")}));
}

void TestEntry::verificationDataFunction()
{
    QVERIFY2(library.load(), qPrintable(library.errorString()));
    const auto query = reinterpret_cast<TextFunction>(library.resolve("qt_plugin_query_verification_data"));
    QVERIFY(query);
    const char* text = query();
    QVERIFY(text);
    QCOMPARE(QByteArray(text), verificationText);
    QCOMPARE(query(), text);
    const auto metadata = reinterpret_cast<TextFunction>(library.resolve("qt_plugin_query_metadata"));
    QVERIFY(metadata);
    QVERIFY(QByteArray(metadata(), 12) == QByteArray("QTMETADATA !"));
}

void TestEntry::verificationSectionInTheFile()
{
    const ElfFile::Section* section = elf.section(".qtplugin");
    QVERIFY(section);
    QCOMPARE(section->type, ElfFile::progbits);
    QVERIFY(section->flags & ElfFile::allocFlag);
    QVERIFY(!(section->flags & ElfFile::writeFlag));
    QVERIFY(!(section->flags & ElfFile::execFlag));
    QCOMPARE(elf.contents(*section), verificationText + '\0');
    QCOMPARE(section->size, quint64(100));
    int named = 0;
    for (const ElfFile::Section& s : elf.sections()) {
        named += s.name == ".qtplugin" ? 1 : 0;
    }
    QCOMPARE(named, 1);
}

void TestEntry::onlyTheEntryPointsAreExported()
{
    QSet<QByteArray> exported;
    for (const ElfFile::Symbol& symbol : elf.dynamicSymbols()) {
        if (symbol.section != 0 && symbol.binding != 0) {
            exported.insert(symbol.name);
        }
    }
    QCOMPARE(exported, QSet<QByteArray>({"qt_plugin_instance", "qt_plugin_query_metadata",
                                         "qt_plugin_query_verification_data"}));
}

void TestEntry::fileIsForThisArchitecture()
{
    // The symbols above were read with the layout of the file's own class; the file is the
    // one this test was built with, on i386 as on amd64.
    QCOMPARE(elf.is64Bit(), sizeof(void*) == 8);
#if defined(__i386__)
    QCOMPARE(elf.machine(), ElfFile::machineI386);
#elif defined(__x86_64__)
    QCOMPARE(elf.machine(), ElfFile::machineX86_64);
#endif
    int entryFunctions = 0;
    for (const ElfFile::Symbol& symbol : elf.dynamicSymbols()) {
        if (symbol.name.startsWith("qt_plugin_")) {
            QCOMPARE(symbol.binding, 1);
            QCOMPARE(symbol.type, 2);
            QVERIFY(symbol.section != 0);
            ++entryFunctions;
        }
    }
    QCOMPARE(entryFunctions, 3);
}

QTEST_GUILESS_MAIN(TestEntry)
#include "tst_entry.moc"
