// The driver and its port on a worker thread: queued calls in, results and failures out as signals.
#include "driverworker.h"

#include "cashcontrol/abstractcashcontrol.h"
#include "cashcontrol/cashcontrolexc.h"
#include "hostkit/driverhost.h"
#include "hostkit/linechoice.h"
#include "sim/simulator.h"

#include <QCoreApplication>
#include <QSet>
#include <QTimer>

#include <algorithm>
#include <exception>

namespace panel {

namespace {

const int defaultRecheckMsecs = 10000;

} // namespace

void registerMetaTypes()
{
    qRegisterMetaType<panel::Connection>("panel::Connection");
    qRegisterMetaType<SumDetailed>("SumDetailed");
    qRegisterMetaType<CashControlUnit>("CashControlUnit");
    qRegisterMetaType<QList<CashControlUnit>>("QList<CashControlUnit>");
    qRegisterMetaType<hw::CcUnitMaintenanceInfo>("hw::CcUnitMaintenanceInfo");
    qRegisterMetaType<QList<hw::CcUnitMaintenanceInfo>>("QList<hw::CcUnitMaintenanceInfo>");
    qRegisterMetaType<QList<uint>>("QList<uint>");
}

DriverWorker::DriverWorker(QObject* parent) : QObject(parent), recheckTimer(new QTimer(this))
{
    recheckTimer->setInterval(defaultRecheckMsecs);
    connect(recheckTimer, &QTimer::timeout, this, &DriverWorker::recheck);
}

DriverWorker::~DriverWorker() = default;

sim::Simulator* DriverWorker::simulator() const
{
    return host ? host->simulator() : nullptr;
}

// Brackets one request: idle() follows the request's last result and is emitted once, at the
// end of the outermost request, so the window never shows a half-delivered answer as ready.
class DriverWorker::Activity
{
public:
    explicit Activity(DriverWorker* owner) : worker(owner) { ++worker->activeDepth; }
    ~Activity()
    {
        if (--worker->activeDepth == 0) {
            worker->checkRecording();
            emit worker->idle();
        }
    }
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

private:
    DriverWorker* worker;
};

bool DriverWorker::run(const QString& what, const std::function<void()>& call)
{
    emit busy(what);
    bool ok = false;
    try {
        call();
        ok = true;
    } catch (const CashControlExc& e) {
        emit failed(what, e.message());
    } catch (const std::exception& e) {
        emit failed(what, QString::fromUtf8(e.what()));
    }
    return ok;
}

void DriverWorker::open(const panel::Connection& connection)
{
    const Activity activity(this);
    if (host) {
        emit failed(QStringLiteral("connect"), QStringLiteral("the driver is already loaded"));
        return;
    }
    emit busy(QStringLiteral("Loading the plug-in and connecting"));
    auto made = std::make_unique<hostkit::DriverHost>();
    hostkit::LineChoice line;
    QString error;
    bool ok = line.choose(connection.port, connection.simConfig, &error);
    if (!ok)
        error = QStringLiteral("simulator configuration: %1").arg(error);
    ok = ok && line.startSimulator(*made, &error) && line.open(*made, connection.plugin, &error);
    if (!ok) {
        emit failed(QStringLiteral("connect"), error);
        return;
    }
    host = std::move(made);
    startRecording();
    QObject* driverObject = host->driverObject();
    QObject::connect(driverObject, SIGNAL(received(SumDetailed)), this, SLOT(onReceived(SumDetailed)));
    QObject::connect(driverObject, SIGNAL(error(QString)), this, SLOT(onDriverError(QString)));

    hw::AbstractCashControl* driver = host->driver();
    if (!run(QStringLiteral("Connecting to the device"), [&] { driver->connect(); }))
        return;
    emit connected(QStringLiteral("%1: %2").arg(driver->name(), host->classInfo("info")), host->portPath(),
                   host->simulator() != nullptr);
    emitUnits();
    if (supervising)
        setSupervision(true);
}

void DriverWorker::emitUnits()
{
    if (!host)
        return;
    hw::AbstractCashControl* driver = host->driver();
    QList<CashControlUnit> units;
    QList<uint> denominations;
    if (!run(QStringLiteral("Reading the cash units"), [&] {
            units = driver->getUnits();
            const QSet<unsigned int> set = driver->getAcceptableDenoms();
            denominations = QList<uint>(set.begin(), set.end());
        }))
        return;
    std::sort(denominations.begin(), denominations.end());
    emit unitsRead(units);
    emit denominationsRead(denominations);
}

void DriverWorker::refreshUnits()
{
    const Activity activity(this);
    emitUnits();
}

void DriverWorker::checkState()
{
    const Activity activity(this);
    if (!host)
        return;
    emit busy(QStringLiteral("Checking the device state"));
    try {
        host->driver()->checkState();
    } catch (const CashControlExc& e) {
        raiseFault(e.message());
        return;
    } catch (const std::exception& e) {
        raiseFault(QString::fromUtf8(e.what()));
        return;
    }
    if (faulted) {
        faulted = false;
        recheckTimer->stop();
        emit stateGood();
    }
    if (supervising)
        host->driver()->enableAsyncCheck(true);
}

void DriverWorker::recheck()
{
    // Acceptance is the operator's to stop: a state check would end it.
    if (!faulted || accepting || !supervising)
        return;
    checkState();
}

void DriverWorker::raiseFault(const QString& message)
{
    faulted = true;
    emit deviceFault(message);
    if (supervising && !recheckTimer->isActive())
        recheckTimer->start();
}

void DriverWorker::onDriverError(const QString& message)
{
    raiseFault(message);
}

void DriverWorker::onReceived(const SumDetailed& coins)
{
    emit coinsReceived(coins);
}

void DriverWorker::startAcceptance(bool fast, const QList<uint>& excluded)
{
    const Activity activity(this);
    if (!host)
        return;
    const QSet<unsigned int> set(excluded.begin(), excluded.end());
    if (run(QStringLiteral("Starting acceptance"), [&] { host->driver()->cashInStart(fast, set); })) {
        accepting = true;
        emit acceptanceChanged(true);
    }
}

void DriverWorker::stopAcceptance()
{
    const Activity activity(this);
    if (!host)
        return;
    // Whatever the stop reports, the coins it still finds were emitted before it returned and
    // the session is over from the panel's side.
    run(QStringLiteral("Stopping acceptance"), [&] { host->driver()->cashInStop(); });
    accepting = false;
    emit acceptanceChanged(false);
    emitUnits();
}

void DriverWorker::checkChange(int mode, qint64 amount)
{
    const Activity activity(this);
    if (!host)
        return;
    bool possible = false;
    if (run(QStringLiteral("Checking the change"),
            [&] { possible = host->driver()->cashOutCheck(ECashControl::ChangeMode(mode), amount); }))
        emit changeChecked(amount, mode, possible);
}

void DriverWorker::payChange(int mode, qint64 amount)
{
    const Activity activity(this);
    if (!host)
        return;
    SumDetailed paid;
    if (run(QStringLiteral("Paying change"),
            [&] { paid = host->driver()->cashOut(ECashControl::ChangeMode(mode), amount); }))
        emit changePaid(amount, mode, paid);
    emitUnits();
}

void DriverWorker::loan(const QString& unit, int operation, qint64 amount)
{
    const Activity activity(this);
    if (!host)
        return;
    if (run(QStringLiteral("Loading %1").arg(unit),
            [&] { host->driver()->loan(unit, ECashControl::UnitOperation(operation), amount); }))
        emit loanDone(unit, operation, amount);
    emitUnits();
}

void DriverWorker::pickup(const QString& unit, int operation, qint64 amount)
{
    const Activity activity(this);
    if (!host)
        return;
    SumDetailed taken;
    if (run(QStringLiteral("Picking up from %1").arg(unit),
            [&] { taken = host->driver()->pickup(unit, ECashControl::UnitOperation(operation), amount); }))
        emit pickupDone(unit, operation, taken);
    emitUnits();
}

void DriverWorker::readCounters()
{
    const Activity activity(this);
    if (!host)
        return;
    SumDetailed accepted;
    SumDetailed dispensed;
    if (run(QStringLiteral("Reading the counters"), [&] {
            accepted = host->driver()->getCounter(ECashControl::Accepted);
            dispensed = host->driver()->getCounter(ECashControl::Dispensed);
        }))
        emit countersRead(accepted, dispensed);
}

void DriverWorker::readMaintenance()
{
    const Activity activity(this);
    if (!host)
        return;
    QList<hw::CcUnitMaintenanceInfo> records;
    if (run(QStringLiteral("Reading the maintenance records"),
            [&] { records = host->driver()->maintenanceInfo(); }))
        emit maintenanceRead(records);
}

void DriverWorker::maintenanceDone(const QString& unit)
{
    const Activity activity(this);
    if (!host)
        return;
    run(QStringLiteral("Recording the maintenance of %1").arg(unit),
        [&] { host->driver()->maintenanceDone(unit); });
    readMaintenance();
}

void DriverWorker::setSupervision(bool on)
{
    const Activity activity(this);
    supervising = on;
    if (!on)
        recheckTimer->stop();
    else if (faulted)
        recheckTimer->start();
    if (!host)
        return;
    // A failure of the check is emitted through error(), never thrown.
    emit busy(on ? QStringLiteral("Starting the background state check")
                 : QStringLiteral("Stopping the background state check"));
    host->driver()->enableAsyncCheck(on);
}

void DriverWorker::setRecheckInterval(int msecs)
{
    recheckTimer->setInterval(std::max(1, msecs));
}

void DriverWorker::setRecording(const QString& path)
{
    const Activity activity(this);
    if (host && recordingNow) {
        host->serialPort()->stopRecording();
        recordingNow = false;
        emit recordingChanged(false, recordPath, QString());
    }
    recordPath = path;
    startRecording();
}

void DriverWorker::startRecording()
{
    if (!host || recordPath.isEmpty() || !host->serialPort())
        return;
    QString error;
    recordingNow = host->serialPort()->startRecording(
        recordPath,
        QStringLiteral("%1/%2").arg(QCoreApplication::applicationName(),
                                    QCoreApplication::applicationVersion()),
        &error);
    emit recordingChanged(recordingNow, recordPath, error);
    if (!recordingNow)
        recordPath.clear();
}

void DriverWorker::checkRecording()
{
    if (!recordingNow || !host || host->serialPort()->isRecording())
        return;
    recordingNow = false;
    emit recordingChanged(false, recordPath,
                          QStringLiteral("the recording stopped: the file takes no more (see the log)"));
    recordPath.clear();
}

void DriverWorker::shutdown()
{
    const Activity activity(this);
    recheckTimer->stop();
    if (host && accepting)
        run(QStringLiteral("Stopping acceptance"), [&] { host->driver()->cashInStop(); });
    accepting = false;
    faulted = false;
    recordingNow = false;
    host.reset();
}

} // namespace panel
