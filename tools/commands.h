#pragma once

#include "arguments.h"
#include "console.h"

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

// Runs one command against a connected driver. Driver failures leave as CashControlExc,
// usage errors found on the device as UsageError.
class Runner
{
public:
    // simConfig is the configuration of the built-in simulator, null with --port.
    Runner(const Arguments& args, hostkit::DriverHost& host, const Console& console,
           const sim::Config* simConfig);
    ~Runner();

    // Exit status of the command.
    int run();

private:
    void connectDevice();
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

    // The coins the built-in simulator drops into the acceptor during accept.
    QList<int> simulatedCoins(const QSet<unsigned int>& accepted) const;
    // Accepts coins until the time is up, a signal comes or, with simulated coins and no
    // time given, every coin has been reported. Returns what was accepted in total.
    SumDetailed acceptSession(bool fast, const QSet<unsigned int>& excluded, int seconds,
                              const QList<int>& coinPositions, bool verbose);
    CashControlUnit requireUnit(const QString& name, int operation);
    hw::AbstractCashControl& driver() const { return *host.driver(); }
    QJsonObject withCommand(QJsonObject object) const;

    const Arguments& a;
    hostkit::DriverHost& host;
    const Console& console;
    const sim::Config* simConfig;
    std::unique_ptr<SignalWatcher> signalWatcher;
};

// Coin position of the simulator that recognises this amount, 0 when none does.
int simulatorCoinPosition(const sim::Config& config, long long amount);

} // namespace tool
