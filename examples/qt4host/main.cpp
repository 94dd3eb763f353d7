// qt4host: a POS host on a Qt 4.8 terminal, as an integrator writes one for the CPI BCR
// coin recycler driver. It sets the C-string codec to UTF-8, configures Log4Qt from a log4j
// properties file, loads the plug-in with Qt 4's QPluginLoader (which checks the verification
// block and the build key), makes one driver object, hands it a termios serial port and
// connects. Then it carries out one command a line from standard input with that same driver
// object, printing one line a result; a driver failure prints "error: " and the driver's text.
//
//   qt4host --plugin FILE --port DEVICE --log-config FILE [--cstring-codec NAME|none]
//
// Commands (amounts with two decimals, modes "optimal" or "minimum"):
//   units | denoms | state | accept [DENOM,...] | wait MS | stop | rollback
//   check MODE AMOUNT | pay MODE AMOUNT | load UNIT OPERATION AMOUNT | pickup UNIT OPERATION AMOUNT
//   counters | maintenance | done UNIT | libraries | memory
#include "termiosport.h"

#include <cashcontrol/abstractcashcontrol.h>
#include <cashcontrol/cashcontrolexc.h>
#include <cashcontrol/sumdetailed.h>
#include <cashcontrol/units.h>

#include <log4qt/logger.h>
#include <log4qt/propertyconfigurator.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QPluginLoader>
#include <QScopedPointer>
#include <QStringList>
#include <QTextCodec>
#include <QTimer>

#include <cstdio>
#include <iostream>
#include <string>

namespace {

void say(const QString& line)
{
    std::fputs(line.toUtf8().append('\n').constData(), stdout);
    std::fflush(stdout);
}

// "13", "13.5", "13.50" -> 1350 minor units; -1 for anything else.
long long parseAmount(const QString& text)
{
    const QStringList parts = text.split(QLatin1Char('.'));
    if (parts.size() > 2 || parts.at(0).isEmpty() || parts.at(0).size() > 8)
        return -1;
    bool ok = true;
    const long long whole = parts.at(0).toLongLong(&ok);
    if (!ok || whole < 0)
        return -1;
    long long cents = 0;
    if (parts.size() == 2) {
        const QString fraction = parts.at(1);
        if (fraction.isEmpty() || fraction.size() > 2)
            return -1;
        cents = fraction.leftJustified(2, QLatin1Char('0')).toLongLong(&ok);
        if (!ok || fraction.at(0) == QLatin1Char('-') || fraction.at(0) == QLatin1Char('+'))
            return -1;
    }
    return whole * 100 + cents;
}

// "15.00 (5.00 x 1, 10.00 x 1)"
QString describe(const SumDetailed& sum)
{
    QStringList items;
    for (QMap<unsigned int, long long>::const_iterator it = sum.denoms.constBegin();
         it != sum.denoms.constEnd(); ++it) {
        if (it.value() != 0)
            items << QString::fromLatin1("%1 x %2").arg(cashcontrol::formatAmount(it.key())).arg(it.value());
    }
    QString text = cashcontrol::formatAmount(sum.sum());
    if (!items.isEmpty())
        text += QString::fromLatin1(" (%1)").arg(items.join(QString::fromLatin1(", ")));
    return text;
}

// The lines of one of this process's files under /proc; none when it cannot be read.
QList<QByteArray> procSelf(const char* name)
{
    QFile file(QString::fromLatin1("/proc/self/") + QString::fromLatin1(name));
    if (!file.open(QIODevice::ReadOnly))
        return QList<QByteArray>();
    return file.readAll().split('\n');
}

// The Qt libraries and logging libraries mapped into this process, by file name.
QString mappedLibraries()
{
    QStringList names;
    const QList<QByteArray> lines = procSelf("maps");
    for (int i = 0; i < lines.size(); ++i) {
        const QByteArray& line = lines.at(i);
        const QByteArray path = line.mid(line.lastIndexOf(' ') + 1);
        const QString file = QString::fromLatin1(path.mid(path.lastIndexOf('/') + 1).constData());
        if ((file.startsWith(QLatin1String("libQt")) || file.contains(QLatin1String("log4"))) &&
            !names.contains(file))
            names << file;
    }
    names.sort();
    return names.join(QString::fromLatin1(" "));
}

// "VmRSS 9876 kB, VmHWM 9900 kB" of this process.
QString residentMemory()
{
    QStringList fields;
    const QList<QByteArray> lines = procSelf("status");
    for (int i = 0; i < lines.size(); ++i) {
        const QByteArray& line = lines.at(i);
        if (line.startsWith("VmRSS:") || line.startsWith("VmHWM:"))
            fields << QString::fromLatin1(line.simplified().replace(":", "").constData());
    }
    return fields.join(QString::fromLatin1(", "));
}

// Receives the driver's signals, connected by signature: the driver's class lives inside the
// plug-in and is unknown to the host.
class Till : public QObject
{
    Q_OBJECT
public:
    SumDetailed total;

public slots:
    void onReceived(const SumDetailed& sum)
    {
        for (QMap<unsigned int, long long>::const_iterator it = sum.denoms.constBegin();
             it != sum.denoms.constEnd(); ++it)
            total.denoms[it.key()] += it.value();
        total.rest += sum.rest;
        say(QString::fromLatin1("received %1, total %2")
                .arg(describe(sum), cashcontrol::formatAmount(total.sum())));
    }

    void onError(const QString& message) { say(QString::fromLatin1("signal error: ") + message); }
};

bool parseMode(const QString& text, ECashControl::ChangeMode* mode)
{
    if (text == QLatin1String("optimal"))
        *mode = ECashControl::Optimal;
    else if (text == QLatin1String("minimum"))
        *mode = ECashControl::Minimum;
    else
        return false;
    return true;
}

void runEventLoop(int msecs)
{
    QEventLoop loop;
    QTimer::singleShot(msecs, &loop, SLOT(quit()));
    loop.exec();
}

void sayUnits(hw::AbstractCashControl* cash)
{
    const QList<CashControlUnit> units = cash->getUnits();
    for (int i = 0; i < units.size(); ++i) {
        const CashControlUnit& unit = units.at(i);
        if (unit.type == cashunits::hopperType)
            say(QString::fromLatin1("%1: %2 x %3 of %4, state %5")
                    .arg(unit.name, cashcontrol::formatAmount(unit.denom))
                    .arg(unit.count)
                    .arg(unit.capacity)
                    .arg(unit.state));
        else
            say(QString::fromLatin1("%1: %2").arg(unit.name, cashcontrol::formatAmount(unit.sum)));
    }
}

void sayDenoms(hw::AbstractCashControl* cash)
{
    QList<unsigned int> denoms = cash->getAcceptableDenoms().toList();
    qSort(denoms);
    QStringList names;
    for (int i = 0; i < denoms.size(); ++i)
        names << cashcontrol::formatAmount(denoms.at(i));
    say(QString::fromLatin1("denoms ") + names.join(QString::fromLatin1(", ")));
}

void sayMaintenance(hw::AbstractCashControl* cash)
{
    const QList<hw::CcUnitMaintenanceInfo> records = cash->maintenanceInfo();
    for (int i = 0; i < records.size(); ++i) {
        const hw::CcUnitMaintenanceInfo& info = records.at(i);
        say(QString::fromLatin1("maintenance %1: %2, cycles %3 of %4%5")
                .arg(info.unitName, QString::fromLatin1(info.status ? "ok" : "due"))
                .arg(info.cycles)
                .arg(info.interval)
                .arg(info.description.isEmpty() ? QString() : QString::fromLatin1(", ") + info.description));
    }
}

// "accept [DENOM,...]": the excluded denominations; false for a malformed list.
bool startAcceptance(hw::AbstractCashControl* cash, Till* till, const QStringList& words)
{
    QSet<unsigned int> excluded;
    if (words.size() == 2) {
        const QStringList amounts = words.at(1).split(QLatin1Char(','));
        for (int i = 0; i < amounts.size(); ++i) {
            const long long denom = parseAmount(amounts.at(i));
            if (denom <= 0)
                return false;
            excluded.insert(unsigned(denom));
        }
    }
    till->total = SumDetailed();
    cash->cashInStart(false, excluded);
    say(QString::fromLatin1("accepting"));
    return true;
}

// "check|pay MODE AMOUNT"
bool payChange(hw::AbstractCashControl* cash, const QStringList& words)
{
    ECashControl::ChangeMode mode = ECashControl::Optimal;
    const long long amount = parseAmount(words.at(2));
    if (!parseMode(words.at(1), &mode) || amount <= 0)
        return false;
    if (words.at(0) == QLatin1String("check"))
        say(QString::fromLatin1("check %1 %2: %3")
                .arg(words.at(1), cashcontrol::formatAmount(amount),
                     QString::fromLatin1(cash->cashOutCheck(mode, amount) ? "yes" : "no")));
    else
        say(QString::fromLatin1("paid %1").arg(describe(cash->cashOut(mode, amount))));
    return true;
}

// "load|pickup UNIT OPERATION AMOUNT"
bool moveCoins(hw::AbstractCashControl* cash, const QStringList& words)
{
    bool ok = false;
    const int operation = words.at(2).toInt(&ok, 0);
    const long long amount = parseAmount(words.at(3));
    if (!ok || amount < 0)
        return false;
    const ECashControl::UnitOperation op = static_cast<ECashControl::UnitOperation>(operation);
    if (words.at(0) == QLatin1String("load")) {
        cash->loan(words.at(1), op, amount);
        say(QString::fromLatin1("loaded %1 into %2").arg(cashcontrol::formatAmount(amount), words.at(1)));
    } else {
        say(QString::fromLatin1("picked up %1 from %2")
                .arg(describe(cash->pickup(words.at(1), op, amount)), words.at(1)));
    }
    return true;
}

// One command line; false when it makes no sense (nothing is sent to the driver then).
bool carryOut(hw::AbstractCashControl* cash, Till* till, const QStringList& words)
{
    const QString command = words.value(0);
    const int count = words.size();
    if (command == QLatin1String("units") && count == 1) {
        sayUnits(cash);
    } else if (command == QLatin1String("denoms") && count == 1) {
        sayDenoms(cash);
    } else if (command == QLatin1String("state") && count == 1) {
        cash->checkState();
        say(QString::fromLatin1("state ok"));
    } else if (command == QLatin1String("accept") && count <= 2) {
        return startAcceptance(cash, till, words);
    } else if (command == QLatin1String("wait") && count == 2) {
        bool ok = false;
        const int msecs = words.at(1).toInt(&ok);
        if (!ok || msecs < 0 || msecs > 600000)
            return false;
        runEventLoop(msecs);
        say(QString::fromLatin1("waited"));
    } else if (command == QLatin1String("stop") && count == 1) {
        cash->cashInStop();
        say(QString::fromLatin1("stopped, total %1").arg(describe(till->total)));
    } else if (command == QLatin1String("rollback") && count == 1) {
        say(QString::fromLatin1("rolled back %1").arg(describe(cash->cashInRollback())));
    } else if ((command == QLatin1String("check") || command == QLatin1String("pay")) && count == 3) {
        return payChange(cash, words);
    } else if ((command == QLatin1String("load") || command == QLatin1String("pickup")) && count == 4) {
        return moveCoins(cash, words);
    } else if (command == QLatin1String("counters") && count == 1) {
        say(QString::fromLatin1("counter accepted %1")
                .arg(describe(cash->getCounter(ECashControl::Accepted))));
        say(QString::fromLatin1("counter dispensed %1")
                .arg(describe(cash->getCounter(ECashControl::Dispensed))));
    } else if (command == QLatin1String("maintenance") && count == 1) {
        sayMaintenance(cash);
    } else if (command == QLatin1String("done") && count == 2) {
        cash->maintenanceDone(words.at(1));
        say(QString::fromLatin1("maintenance done for %1").arg(words.at(1)));
    } else if (command == QLatin1String("libraries") && count == 1) {
        say(QString::fromLatin1("libraries ") + mappedLibraries());
    } else if (command == QLatin1String("memory") && count == 1) {
        say(QString::fromLatin1("memory ") + residentMemory());
    } else {
        return false;
    }
    return true;
}

struct Options
{
    Options() : cstringCodec("UTF-8") {}

    QString pluginPath;
    QString portPath;
    QString logConfig;
    QByteArray cstringCodec;
};

// False, after the usage line, when an option is unknown or missing.
bool parseOptions(const QStringList& args, Options* options)
{
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args.at(i) == QLatin1String("--plugin"))
            options->pluginPath = args.at(i + 1);
        else if (args.at(i) == QLatin1String("--port"))
            options->portPath = args.at(i + 1);
        else if (args.at(i) == QLatin1String("--log-config"))
            options->logConfig = args.at(i + 1);
        else if (args.at(i) == QLatin1String("--cstring-codec"))
            options->cstringCodec = args.at(i + 1).toLatin1();
        else
            options->pluginPath.clear();
    }
    if (args.size() % 2 == 0 || options->pluginPath.isEmpty() || options->portPath.isEmpty() ||
        options->logConfig.isEmpty()) {
        std::fputs(
            "usage: qt4host --plugin FILE --port DEVICE --log-config FILE [--cstring-codec NAME|none]\n",
            stderr);
        return false;
    }
    return true;
}

int run(const QStringList& args)
{
    Options options;
    if (!parseOptions(args, &options))
        return 2;
    const QString& pluginPath = options.pluginPath;
    const QString& portPath = options.portPath;
    const QString& logConfig = options.logConfig;
    const QByteArray& cstringCodec = options.cstringCodec;

    // What a Russian POS host on Qt 4 does first. The driver must not depend on it: its texts
    // are converted explicitly, whatever codec (or none) the host chose for C strings.
    QTextCodec* utf8 = QTextCodec::codecForName("UTF-8");
    QTextCodec::setCodecForLocale(utf8);
    if (cstringCodec != "none")
        QTextCodec::setCodecForCStrings(QTextCodec::codecForName(cstringCodec.constData()));
    Log4Qt::PropertyConfigurator::configure(logConfig);
    Log4Qt::Logger* log = Log4Qt::Logger::logger(QString::fromLatin1("qt4host"));
    log->info(QString::fromUtf8("Касса: загрузка драйвера"));

    // The port outlives the driver, which only borrows it.
    TermiosPort port;
    if (!port.open(portPath)) {
        say(QString::fromLatin1("port failed: ") + port.errorString());
        return 1;
    }

    QPluginLoader loader(pluginPath);
    QObject* factory = loader.instance();
    if (!factory) {
        say(QString::fromLatin1("load failed: ") + loader.errorString());
        return 1;
    }
    QVariant made;
    QMetaObject::invokeMethod(factory, "getObject", Q_RETURN_ARG(QVariant, made));
    QScopedPointer<QObject> object(made.value<QObject*>());
    hw::AbstractCashControl* cash = qobject_cast<hw::AbstractCashControl*>(object.data());
    if (!cash) {
        say(QString::fromLatin1("the plug-in made no ") + QString::fromLatin1(KELVORIN_CASH_CONTROL_IID));
        return 1;
    }
    say(QString::fromLatin1("loaded %1").arg(QString::fromLatin1(object->metaObject()->className())));

    Till till;
    QObject::connect(object.data(), SIGNAL(received(SumDetailed)), &till, SLOT(onReceived(SumDetailed)));
    QObject::connect(object.data(), SIGNAL(error(QString)), &till, SLOT(onError(QString)));
    object->setProperty("serialObj", QVariant::fromValue(static_cast<QObject*>(&port)));
    QMetaObject::invokeMethod(object.data(), "init");
    try {
        cash->connect();
        say(QString::fromLatin1("connected to %1 (%2)").arg(cash->name(), cash->getTypeName()));
    } catch (const CashControlExc& e) {
        say(QString::fromLatin1("error: ") + QString::fromUtf8(e.what()));
        return 1;
    }

    std::string line;
    while (std::getline(std::cin, line)) {
        const QStringList words =
            QString::fromUtf8(line.c_str()).split(QLatin1Char(' '), QString::SkipEmptyParts);
        if (words.isEmpty())
            continue;
        try {
            if (!carryOut(cash, &till, words))
                say(QString::fromLatin1("refused: ") + QString::fromUtf8(line.c_str()));
        } catch (const CashControlExc& e) {
            // what() is UTF-8 whatever the C-string codec.
            say(QString::fromLatin1("error: ") + QString::fromUtf8(e.what()));
        }
    }
    log->info(QString::fromUtf8("Касса: работа завершена"));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    return run(app.arguments());
}

#include "main.moc"
