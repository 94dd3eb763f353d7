// The driver and its port on a worker thread: queued calls in, results and failures out as signals.
#pragma once

#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/ccunitmaintenanceinfo.h"
#include "cashcontrol/sumdetailed.h"

#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class QTimer;

namespace sim {
class Simulator;
}

namespace hostkit {
class DriverHost;
}

namespace panel {

// Where the driver is: the plug-in file, the port (empty: the built-in simulator) and the
// simulator's configuration file (empty: its defaults).
struct Connection
{
    QString plugin;
    QString port;
    QString simConfig;
    QString trace; // record the line to this file from the start (empty: not)
};

// The driver and its port on the thread this object lives in, which runs its own event loop
// for the driver's timers (acceptance poll, background state check). Every slot is meant to be
// invoked through a queued connection; each call runs to its end before the next one starts,
// and a failure is reported with the driver's own message and never repeated by the worker.
class DriverWorker : public QObject
{
    Q_OBJECT
public:
    explicit DriverWorker(QObject* parent = nullptr);
    ~DriverWorker() override;

    // The built-in simulator, null when a port was given. Its members are thread-safe; valid
    // from the signal connected() until shutdown().
    sim::Simulator* simulator() const;

public slots:
    // Loads the plug-in, opens the port (or starts the simulator), connects to the device,
    // reads its units and denominations and, when supervising, starts the background check.
    void open(const panel::Connection& connection);
    void refreshUnits();
    void checkState();
    void startAcceptance(bool fast, const QList<uint>& excluded);
    void stopAcceptance();
    void checkChange(int mode, qint64 amount);
    void payChange(int mode, qint64 amount);
    void loan(const QString& unit, int operation, qint64 amount);
    void pickup(const QString& unit, int operation, qint64 amount);
    void readCounters();
    void readMaintenance();
    void maintenanceDone(const QString& unit);
    // The background state check (on after open() unless switched off before).
    void setSupervision(bool on);
    // While a fault is shown, how often the state is checked again to see it gone.
    void setRecheckInterval(int msecs);
    // Records the line to this trace file (appended to), now and after every (re)connection;
    // an empty path stops recording.
    void setRecording(const QString& path);
    // Deletes the driver, the port and the simulator on this thread.
    void shutdown();

signals:
    void busy(const QString& what);
    // A request has run to its end: every result and failure it has was emitted before.
    void idle();
    void connected(const QString& device, const QString& port, bool simulated);
    void unitsRead(const QList<CashControlUnit>& units);
    void denominationsRead(const QList<uint>& denominations);
    void acceptanceChanged(bool running);
    void coinsReceived(const SumDetailed& coins);
    void changeChecked(qint64 amount, int mode, bool possible);
    void changePaid(qint64 amount, int mode, const SumDetailed& paid);
    void loanDone(const QString& unit, int operation, qint64 amount);
    void pickupDone(const QString& unit, int operation, const SumDetailed& taken);
    void countersRead(const SumDetailed& accepted, const SumDetailed& dispensed);
    void maintenanceRead(const QList<hw::CcUnitMaintenanceInfo>& records);
    // A fault the device reports: from the background check, the acceptance poll or a state check.
    void deviceFault(const QString& message);
    // A state check passed after a fault was reported.
    void stateGood();
    // A call failed; message is the driver's own text.
    void failed(const QString& what, const QString& message);
    // The line recording started or stopped; `error` says why it could not start or went off.
    void recordingChanged(bool on, const QString& path, const QString& error);

private slots:
    void onReceived(const SumDetailed& coins);
    void onDriverError(const QString& message);
    void recheck();

private:
    class Activity;

    // Runs one driver call after busy(); a thrown failure becomes failed().
    bool run(const QString& what, const std::function<void()>& call);
    void emitUnits();
    void raiseFault(const QString& message);
    void startRecording();
    // Reports a recording the port stopped by itself (the disk full).
    void checkRecording();

    std::unique_ptr<hostkit::DriverHost> host;
    QTimer* recheckTimer;
    bool supervising = true;
    bool faulted = false;
    bool accepting = false;
    int activeDepth = 0;
    QString recordPath;
    bool recordingNow = false;
};

void registerMetaTypes();

} // namespace panel

Q_DECLARE_METATYPE(panel::Connection)
Q_DECLARE_METATYPE(CashControlUnit)
Q_DECLARE_METATYPE(hw::CcUnitMaintenanceInfo)
