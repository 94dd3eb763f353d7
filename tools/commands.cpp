#include "commands.h"

#include "progress.h"
#include "render.h"
#include "report.h"
#include "signalwatcher.h"
#include "simcoins.h"

#include "cashcontrol/cashcontrolexc.h"
#include "cashcontrol/ecashcontrol.h"
#include "cashcontrol/units.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"
#include "sim/simulator.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTime>
#include <QTimer>

#include <memory>

namespace tool {

using hostkit::counterKey;
using hostkit::formatAmount;
using hostkit::modeKey;
using hostkit::operationKey;
using hostkit::sumBreakdown;

namespace {

// Simulated coins drop into the acceptor this far apart, the first one shortly after start.
const int firstCoinMs = 300;
const int coinIntervalMs = 600;
// The driver re-arms its background check only when the host asks again after a failure.
const int watchRearmMs = 60000;

long long coinCount(const SumDetailed& sum)
{
    long long n = 0;
    for (const long long c : sum.denoms)
        n += c;
    return n;
}

void addTo(SumDetailed& total, const SumDetailed& more)
{
    for (auto it = more.denoms.begin(); it != more.denoms.end(); ++it)
        total.denoms[it.key()] += it.value();
    total.rest += more.rest;
}

const CashControlUnit* findUnit(const QList<CashControlUnit>& units, const QString& name)
{
    for (const CashControlUnit& u : units)
        if (u.name == name)
            return &u;
    return nullptr;
}

} // namespace

DriverEvents::DriverEvents(QObject* driver)
{
    QObject::connect(driver, SIGNAL(received(SumDetailed)), this, SLOT(received(SumDetailed)));
    QObject::connect(driver, SIGNAL(error(QString)), this, SLOT(error(QString)));
}

void DriverEvents::received(SumDetailed sum)
{
    if (onReceived)
        onReceived(sum);
}

void DriverEvents::error(QString msg)
{
    if (onError)
        onError(msg);
}

Runner::Runner(const Arguments& args, hostkit::DriverHost& driverHost, const Console& out,
               const sim::Config* config)
    : a(args), host(driverHost), console(out), simConfig(config)
{
}

Runner::~Runner() = default;

template <class Result> int Runner::show(const Result& result) const
{
    if (console.json()) {
        QJsonObject document = toJson(result);
        document.insert(QStringLiteral("command"), a.commandName);
        console.document(document);
    } else {
        console.out(toText(result));
    }
    return 0;
}

template <class Event> void Runner::report(const Event& event) const
{
    if (console.json())
        console.event(toJson(event));
    else
        console.out(toText(event));
}

int Runner::run()
{
    const DeviceHandler handler = commandOf(a.command).run;
    return handler ? (this->*handler)() : 2;
}

void Runner::watchSignals()
{
    signalWatcher = std::make_unique<SignalWatcher>();
}

void Runner::connectDevice()
{
    Progress progress(console.progress(),
                      QStringLiteral("Connecting to the recycler on %1").arg(host.portPath()));
    driver().connect();
}

int Runner::status()
{
    connectDevice();
    driver().checkState();
    StatusResult result;
    result.name = driver().name();
    result.typeName = driver().getTypeName();
    result.model = host.classInfo("name");
    result.driver = host.classInfo("info");
    result.port = host.portPath();
    result.plugin = host.pluginPath();
    result.simulated = host.simulator() != nullptr;
    result.units = driver().getUnits();
    return show(result);
}

int Runner::units()
{
    connectDevice();
    return show(UnitsResult{driver().getUnits()});
}

int Runner::denoms()
{
    connectDevice();
    return show(DenomsResult{driver().getAcceptableDenoms()});
}

SumDetailed Runner::acceptSession(bool fast, const QSet<unsigned int>& excluded, int seconds,
                                  const QList<int>& coinPositions, bool verbose)
{
    QSet<unsigned int> accepted = driver().getAcceptableDenoms();
    accepted.subtract(excluded);

    const QList<long long> coins = simConfig ? coinValues(*simConfig, coinPositions) : QList<long long>();
    SumDetailed total;
    long long coinsReported = 0;
    int coinsInserted = 0;
    long long coinsExpected = 0;
    for (const long long coin : coins)
        if (accepted.contains(static_cast<unsigned int>(coin)))
            ++coinsExpected;

    QEventLoop loop;
    DriverEvents events(host.driverObject());
    std::unique_ptr<SignalWatcher> local;
    SignalWatcher* watcher =
        signalWatcher ? signalWatcher.get() : (local = std::make_unique<SignalWatcher>()).get();
    QObject::connect(watcher, &SignalWatcher::signalled, &loop, &QEventLoop::quit);

    const bool stopWhenAllIn = seconds < 0 && host.simulator() && !coinPositions.isEmpty();
    const auto maybeFinish = [&] {
        if (stopWhenAllIn && coinsInserted == coinPositions.size() && coinsReported >= coinsExpected)
            QTimer::singleShot(coinIntervalMs, &loop, &QEventLoop::quit);
    };
    events.onReceived = [&](const SumDetailed& sum) {
        addTo(total, sum);
        coinsReported += coinCount(sum);
        report(ReceivedEvent{sum, total.sum(), verbose});
        maybeFinish();
    };
    events.onError = [&](const QString& msg) {
        if (console.json())
            console.event(errorEvent(msg));
        else
            console.err(msg + QLatin1Char('\n'));
    };

    driver().cashInStart(fast, excluded);
    report(AcceptingEvent{accepted, fast, seconds, stopWhenAllIn, coins, verbose});

    for (int i = 0; i < coinPositions.size(); ++i) {
        const int position = coinPositions.at(i);
        QTimer::singleShot(firstCoinMs + i * coinIntervalMs, &events, [&, position] {
            host.simulator()->insertCoin(position);
            ++coinsInserted;
            maybeFinish();
        });
    }
    if (seconds >= 0)
        QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    else if (stopWhenAllIn)
        // Coins the recycler refuses are never reported; give up waiting for them.
        QTimer::singleShot(firstCoinMs + int(coinPositions.size()) * coinIntervalMs + 3000, &loop,
                           &QEventLoop::quit);

    if (watcher->received() == 0)
        loop.exec();
    // From here on a second Ctrl+C ends the tool the ordinary way.
    local.reset();
    signalWatcher.reset();
    {
        Progress progress(console.progress(), QStringLiteral("Stopping coin acceptance"));
        driver().cashInStop();
    }
    return total;
}

int Runner::accept()
{
    watchSignals();
    connectDevice();
    QSet<unsigned int> excluded;
    for (const long long amount : a.exclude)
        excluded.insert(static_cast<unsigned int>(amount));
    QSet<unsigned int> accepted = driver().getAcceptableDenoms();
    accepted.subtract(excluded);
    const QList<int> coins = simConfig ? coinsToDrop(*simConfig, a, accepted) : QList<int>();
    report(AcceptedTotal{acceptSession(a.fast, excluded, a.seconds, coins, false)});
    return 0;
}

int Runner::check()
{
    connectDevice();
    return show(
        CheckResult{a.amount, a.mode, driver().cashOutCheck(ECashControl::ChangeMode(a.mode), a.amount)});
}

int Runner::pay()
{
    connectDevice();
    PayResult result{a.amount, a.mode, SumDetailed()};
    {
        Progress progress(console.progress(), QStringLiteral("Paying %1").arg(formatAmount(a.amount)));
        result.paid = driver().cashOut(ECashControl::ChangeMode(a.mode), a.amount);
    }
    return show(result);
}

CashControlUnit Runner::requireUnit(const QString& name, int operation)
{
    const QList<CashControlUnit> list = driver().getUnits();
    const CashControlUnit* unit = findUnit(list, name);
    if (!unit) {
        QStringList names;
        for (const CashControlUnit& u : list)
            names.append(u.name);
        throw UsageError{
            QStringLiteral("unknown unit \"%1\" (the recycler has %2)")
                .arg(name, names.isEmpty() ? QStringLiteral("no units") : names.join(QStringLiteral(", ")))};
    }
    if (operation != 0 && (unit->operations & operation) == 0)
        throw UsageError{QStringLiteral("unit %1 does not support %2 (%3)")
                             .arg(name,
                                  operation == ECashControl::Maintenance ? QStringLiteral("maintenance")
                                                                         : operationKey(operation),
                                  ECashControl::operationName(operation))};
    // Refused as the driver would refuse it, with its text, before anything moves.
    if (cashunits::refusesPartCoins(*unit, operation, a.amount))
        throw CashControlExc(cashunits::deviceMessage(driver().name(), cashunits::badAmountText()));
    return *unit;
}

UnitChange Runner::changeOf(const CashControlUnit& before)
{
    const QList<CashControlUnit> list = driver().getUnits();
    const CashControlUnit* after = findUnit(list, before.name);
    return UnitChange{before, after ? *after : before};
}

int Runner::loan()
{
    connectDevice();
    const CashControlUnit before = requireUnit(a.unit, a.operation);
    driver().loan(a.unit, ECashControl::UnitOperation(a.operation), a.amount);
    return show(LoanResult{a.unit, a.operation, a.amount, changeOf(before)});
}

int Runner::pickup()
{
    connectDevice();
    const CashControlUnit before = requireUnit(a.unit, a.operation);
    PickupResult result;
    result.unit = a.unit;
    result.operation = a.operation;
    result.hasAmount = a.hasAmount;
    result.amount = a.amount;
    {
        const bool dispensing =
            a.operation == ECashControl::DispensePickupAll || a.operation == ECashControl::DispensePickupSum;
        Progress progress(console.progress() && dispensing, QStringLiteral("Emptying %1").arg(a.unit));
        result.taken = driver().pickup(a.unit, ECashControl::UnitOperation(a.operation), a.amount);
    }
    result.change = changeOf(before);
    return show(result);
}

int Runner::counters()
{
    connectDevice();
    CountersResult result;
    for (const int type : a.counters)
        result.counters.append(qMakePair(type, driver().getCounter(ECashControl::CounterType(type))));
    return show(result);
}

int Runner::maintenance()
{
    connectDevice();
    MaintenanceResult result;
    result.done = a.done;
    result.doneUnit = a.unit;
    if (a.unit.isEmpty()) {
        result.records = driver().maintenanceInfo();
    } else {
        requireUnit(a.unit, ECashControl::Maintenance);
        if (a.done)
            driver().maintenanceDone(a.unit);
        result.records.append(driver().maintenanceInfo(a.unit));
    }
    return show(result);
}

int Runner::watch()
{
    watchSignals();
    connectDevice();
    QEventLoop loop;
    DriverEvents events(host.driverObject());
    QObject::connect(signalWatcher.get(), &SignalWatcher::signalled, &loop, &QEventLoop::quit);
    QTimer rearm;
    rearm.setSingleShot(true);
    rearm.setInterval(watchRearmMs);
    QObject::connect(&rearm, &QTimer::timeout, &loop, [this] {
        try {
            driver().enableAsyncCheck(true);
        } catch (const std::exception& e) {
            console.err(QString::fromUtf8(e.what()) + QLatin1Char('\n'));
        }
    });

    int errors = 0;
    events.onError = [&](const QString& msg) {
        ++errors;
        if (console.json())
            console.event(errorEvent(msg));
        else
            console.out(watchErrorText(QTime::currentTime(), msg));
        rearm.start();
    };

    QElapsedTimer clock;
    clock.start();
    report(WatchingEvent{a.seconds});
    driver().enableAsyncCheck(true);
    if (a.seconds >= 0)
        QTimer::singleShot(a.seconds * 1000, &loop, &QEventLoop::quit);
    if (signalWatcher->received() == 0)
        loop.exec();
    signalWatcher.reset();
    rearm.stop();
    driver().enableAsyncCheck(false);

    report(WatchStopped{clock.elapsed() / 1000, errors});
    return 0;
}

} // namespace tool
