#pragma once

#include "cashcontrol/abstractcashcontrol.h"
#include "host/serialport.h"

#include <QPluginLoader>
#include <QPointer>
#include <QString>

#include <memory>

namespace sim {
class Simulator;
struct Config;
} // namespace sim

namespace hostkit {

// Does what a POS host does with the plug-in: loads it, asks its factory for a driver, hands
// the driver a serial port object and configures the line. Without a port of its own it first
// starts the simulated recycler on a pseudo-terminal in this process.
class DriverHost
{
public:
    DriverHost();
    ~DriverHost();
    Q_DISABLE_COPY(DriverHost)

    // Starts the built-in simulator with this configuration; the port becomes its pseudo-terminal.
    bool startSimulator(const sim::Config& config, QString* error);
    // Records the line to this trace file from the moment open() opens the port; `recorder`
    // names the program in the trace ("cpibcr/1.0.0").
    void recordLine(const QString& tracePath, const QString& recorder);
    // Loads the plug-in, creates the driver, opens the port and runs the driver's init().
    // The device is not talked to yet: that is the driver's connect().
    bool open(const QString& pluginPath, const QString& portPath, QString* error);

    hw::AbstractCashControl* driver() const { return cashControl; }
    QObject* driverObject() const { return driverObj.data(); }
    // Null when running against a port given on the command line.
    sim::Simulator* simulator() const { return sim.get(); }
    QString portPath() const { return port; }
    QString pluginPath() const { return plugin; }
    // A class information value of the driver's meta-object ("info", "name", ...).
    QString classInfo(const char* key) const;
    // The host's serial port object; null before open().
    hw::SerialPort* serialPort() const { return serial.get(); }

private:
    std::unique_ptr<sim::Simulator> sim;
    std::unique_ptr<hw::SerialPort> serial;
    QPluginLoader loader;
    QPointer<QObject> driverObj;
    hw::AbstractCashControl* cashControl = nullptr;
    QString port;
    QString plugin;
    QString tracePath;
    QString traceRecorder;
};

} // namespace hostkit
