// poshost: a small point-of-sale host for the CPI BCR coin recycler driver.
//
// It does what a POS application does with the plug-in: loads it, hands the
// driver a serial port, connects, takes coins for a price with the Qt event loop
// running, stops acceptance, pays the change and shows the counters. Built
// against the development package only: find_package(cpibcr), target cpibcr::host.
//
//   poshost [--plugin FILE] --port DEVICE [--price AMOUNT] [--seconds N]
//           [--log LEVEL | --log-config FILE]
#include <cashcontrol/abstractcashcontrol.h>
#include <cashcontrol/cashcontrolexc.h>
#include <cashcontrol/sumdetailed.h>
#include <cashcontrol/units.h>
#include <host/logsetup.h>
#include <host/serialport.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPluginLoader>
#include <QPointer>
#include <QRegularExpression>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace {

void say(const QString& line)
{
    std::fputs(line.toUtf8().append('\n').constData(), stdout);
    std::fflush(stdout);
}

void fail(const QString& line)
{
    std::fputs(QStringLiteral("poshost: %1\n").arg(line).toUtf8().constData(), stderr);
}

// "13", "13.5", "13.50" -> 1350 minor units; -1 for anything else.
long long parseAmount(const QString& text)
{
    const QRegularExpression form(QStringLiteral("^(\\d{1,8})(?:\\.(\\d{1,2}))?$"));
    const QRegularExpressionMatch m = form.match(text);
    if (!m.hasMatch())
        return -1;
    return m.captured(1).toLongLong() * 100 + m.captured(2).leftJustified(2, QLatin1Char('0')).toLongLong();
}

// "15.00 (5.00 x 1, 10.00 x 1)"
QString describe(const SumDetailed& sum)
{
    QStringList items;
    for (auto it = sum.denoms.constBegin(); it != sum.denoms.constEnd(); ++it) {
        if (it.value() != 0)
            items << QStringLiteral("%1 x %2").arg(cashcontrol::formatAmount(it.key())).arg(it.value());
    }
    QString text = cashcontrol::formatAmount(sum.sum());
    if (!items.isEmpty())
        text += QStringLiteral(" (%1)").arg(items.join(QStringLiteral(", ")));
    return text;
}

// Receives the driver's signals. They are connected by their signatures: the
// driver's class lives inside the plug-in and is not known to the host.
class Sale : public QObject
{
    Q_OBJECT
public:
    explicit Sale(long long due) : price(due) {}

    long long price;
    SumDetailed total;
    QString failure;

signals:
    void settled();

public slots:
    // Emitted by the driver's 200 ms poll while the event loop runs, and once
    // more from inside cashInStop() for coins that came after the last poll.
    void onReceived(const SumDetailed& sum)
    {
        for (auto it = sum.denoms.constBegin(); it != sum.denoms.constEnd(); ++it)
            total.denoms[it.key()] += it.value();
        total.rest += sum.rest;
        say(QStringLiteral("received %1, total %2")
                .arg(describe(sum), cashcontrol::formatAmount(total.sum())));
        if (total.sum() >= price)
            emit settled();
    }

    // A fault seen by the poll: acceptance has stopped polling.
    void onError(const QString& message)
    {
        failure = message;
        emit settled();
    }
};

int run(QCoreApplication& app)
{
    QCommandLineParser args;
    args.setApplicationDescription(QStringLiteral("A small POS host for the CPI BCR coin recycler driver."));
    args.addHelpOption();
    args.addOptions({
        {QStringLiteral("plugin"), QStringLiteral("The plug-in file."), QStringLiteral("FILE"),
         QStringLiteral(CPIBCR_PLUGIN_PATH)},
        {QStringLiteral("port"), QStringLiteral("Serial port of the recycler or of cpibcr-sim."),
         QStringLiteral("DEVICE")},
        {QStringLiteral("price"), QStringLiteral("Amount due, for example 13.00."), QStringLiteral("AMOUNT"),
         QStringLiteral("13.00")},
        {QStringLiteral("seconds"), QStringLiteral("How long to wait for coins."), QStringLiteral("N"),
         QStringLiteral("60")},
        {QStringLiteral("log"), QStringLiteral("Level of the loggers cpibcr and cctalk on stderr."),
         QStringLiteral("LEVEL"), QStringLiteral("warn")},
        {QStringLiteral("log-config"), QStringLiteral("A log4cxx properties file instead."),
         QStringLiteral("FILE")},
    });
    args.process(app);

    const long long price = parseAmount(args.value(QStringLiteral("price")));
    const int seconds = args.value(QStringLiteral("seconds")).toInt();
    if (price <= 0 || seconds <= 0 || !args.isSet(QStringLiteral("port"))) {
        fail(QStringLiteral("need --port, a price above 0 and a number of seconds above 0"));
        return 2;
    }

    // Logging first: the driver's loggers "cpibcr" and "cctalk" write UTF-8 whatever the locale.
    QString why;
    const bool logged = args.isSet(QStringLiteral("log-config"))
                            ? logging::configureFromFile(args.value(QStringLiteral("log-config")), &why)
                            : logging::configureConsole(args.value(QStringLiteral("log")), &why);
    if (!logged) {
        fail(why);
        return 2;
    }

    // The port is the host's object; the driver only borrows it, so it is
    // declared first and outlives the driver.
    hw::SerialPort port;

    // 1. The plug-in's factory makes a driver object; the host owns it.
    QPluginLoader loader(args.value(QStringLiteral("plugin")));
    QObject* factory = loader.instance();
    if (!factory) {
        fail(loader.errorString());
        return 1;
    }
    QVariant made;
    QMetaObject::invokeMethod(factory, "getObject", Q_RETURN_ARG(QVariant, made));
    std::unique_ptr<QObject> object(made.value<QObject*>());
    auto* cash = qobject_cast<hw::AbstractCashControl*>(object.get());
    if (!cash) {
        fail(QStringLiteral("the plug-in made no %1").arg(QLatin1String(KELVORIN_CASH_CONTROL_IID)));
        return 1;
    }

    // 2. Open the port and hand it over; init() sets 115200 8N1.
    if (!port.open(args.value(QStringLiteral("port")))) {
        fail(port.errorString());
        return 1;
    }
    object->setProperty("serialObj", QVariant::fromValue<QObject*>(&port));
    QMetaObject::invokeMethod(object.get(), "init");
    say(QStringLiteral("port %1").arg(args.value(QStringLiteral("port"))));

    Sale sale(price);
    QObject::connect(object.get(), SIGNAL(received(SumDetailed)), &sale, SLOT(onReceived(SumDetailed)));
    QObject::connect(object.get(), SIGNAL(error(QString)), &sale, SLOT(onError(QString)));

    int status = 0;
    try {
        // 3. Connect: identification, clock, state check, unit discovery.
        cash->connect();
        say(QStringLiteral("connected to %1 (%2)").arg(cash->name(), cash->getTypeName()));
        for (const CashControlUnit& unit : cash->getUnits()) {
            if (unit.type == cashunits::hopperType)
                say(QStringLiteral("%1: %2 x %3 of %4")
                        .arg(unit.name, cashcontrol::formatAmount(unit.denom))
                        .arg(unit.count)
                        .arg(unit.capacity));
            else
                say(QStringLiteral("%1: %2").arg(unit.name, cashcontrol::formatAmount(unit.sum)));
        }

        // 4. Acceptance. The driver polls the device from a timer, so coins are
        // reported only while this thread runs its event loop.
        QStringList accepted;
        QList<unsigned int> denoms = cash->getAcceptableDenoms().values();
        std::sort(denoms.begin(), denoms.end());
        for (unsigned int d : denoms)
            accepted << cashcontrol::formatAmount(d);
        cash->cashInStart(false, QSet<unsigned int>());
        say(QStringLiteral("due %1: insert coins (%2)")
                .arg(cashcontrol::formatAmount(price), accepted.join(QStringLiteral(", "))));
        QEventLoop loop;
        QObject::connect(&sale, &Sale::settled, &loop, &QEventLoop::quit);
        QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
        loop.exec();
        cash->cashInStop();
        if (!sale.failure.isEmpty())
            say(QStringLiteral("acceptance stopped by a fault: %1").arg(sale.failure));
        say(QStringLiteral("accepted %1").arg(describe(sale.total)));

        // 5. Change: what was paid beyond the price, or everything if the sale
        // did not reach it (accepted coins cannot be handed back as they were).
        const long long paid = sale.total.sum();
        const long long change = paid >= price ? paid - price : paid;
        if (paid < price)
            say(QStringLiteral("sale cancelled: %1 short").arg(cashcontrol::formatAmount(price - paid)));
        if (change > 0) {
            if (!cash->cashOutCheck(ECashControl::Optimal, change)) {
                fail(QStringLiteral("%1 cannot be paid as change").arg(cashcontrol::formatAmount(change)));
                return 1;
            }
            say(QStringLiteral("change %1 paid %2")
                    .arg(cashcontrol::formatAmount(change),
                         describe(cash->cashOut(ECashControl::Optimal, change))));
        } else {
            say(QStringLiteral("no change"));
        }
        say(QStringLiteral("counter accepted %1").arg(describe(cash->getCounter(ECashControl::Accepted))));
        say(QStringLiteral("counter dispensed %1").arg(describe(cash->getCounter(ECashControl::Dispensed))));
        if (!sale.failure.isEmpty() || paid < price)
            status = 1;
    } catch (const CashControlExc& e) {
        // The message is UTF-8 with the driver's name in front: "Монетоприемник: ...".
        fail(QString::fromUtf8(e.what()));
        status = 1;
    }
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    return run(app);
}

#include "main.moc"
