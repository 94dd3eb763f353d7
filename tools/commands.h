#pragma once

#include "arguments.h"
#include "console.h"
#include "results.h"

#include "cashcontrol/sumdetailed.h"
#include "hostkit/driverhost.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace sim {
struct Config;
} // namespace sim

namespace tool {

class SignalWatcher;

// A usage error found only after connecting (an unknown unit, an operation the unit does
// not support): reported with exit status 2, before any money-moving call.
struct UsageError
{
    QString message;
};

// Receives the driver's signals by name: the driver class lives in the plug-in, the tool
// knows only its interface.
class DriverEvents : public QObject
{
    Q_OBJECT
public:
    explicit DriverEvents(QObject* driver);

    std::function<void(const SumDetailed&)> onReceived;
    std::function<void(const QString&)> onError;

private slots:
    void received(SumDetailed sum);
    void error(QString msg);
};

// Runs one command against a connected driver. Driver failures, and amounts the driver
// would refuse as not whole coins, leave as CashControlExc; usage errors found on the
// device as UsageError.
class Runner
{
public:
    // simConfig is the configuration of the built-in simulator, null with --port.
    Runner(const Arguments& args, hostkit::DriverHost& host, const Console& console,
           const sim::Config* simConfig);
    ~Runner();

    // Exit status of the command.
    int run();

    // The commands, named by their rows of the command table.
    int status();
    int units();
    int denoms();
    int accept();
    int check();
    int pay();
    int loan();
    int pickup();
    int counters();
    int maintenance();
    int watch();
    int demo();

private:
    void connectDevice();
    // Installed before connecting, so that a signal that comes early still ends the session properly.
    void watchSignals();

    // Accepts coins until the time is up, a signal comes or, with simulated coins and no
    // time given, every coin has been reported. Returns what was accepted in total.
    SumDetailed acceptSession(bool fast, const QSet<unsigned int>& excluded, int seconds,
                              const QList<int>& coinPositions, bool verbose);
    CashControlUnit requireUnit(const QString& name, int operation);
    // The unit as it was and as the driver reports it now.
    UnitChange changeOf(const CashControlUnit& before);
    hw::AbstractCashControl& driver() const { return *host.driver(); }
    // The command's result as text, or as one JSON document naming the command; exit status 0.
    template <class Result> int show(const Result& result) const;
    // An event of a running session: a line of text, or one compact JSON line.
    template <class Event> void report(const Event& event) const;

    const Arguments& a;
    hostkit::DriverHost& host;
    const Console& console;
    const sim::Config* simConfig;
    std::unique_ptr<SignalWatcher> signalWatcher;
};

} // namespace tool
