#pragma once

#include "sim/config.h"

#include <QString>

#include <memory>

namespace hostkit {

class DriverHost;

// The line a host program drives the plug-in on: the serial port it was given or, without one,
// the built-in simulator, configured from a JSON file or with its defaults.
class LineChoice
{
public:
    // Without a port, reads the simulator's configuration. False with *error why the file cannot
    // be used; the caller names where the file came from.
    bool choose(const QString& port, const QString& simConfigFile, QString* error);

    // Null with a port.
    const sim::Config* simulatorConfig() const { return config.get(); }
    // With the simulator, starts it on a pseudo-terminal that becomes the host's port; with a
    // port, does nothing.
    bool startSimulator(DriverHost& host, QString* error) const;
    // Loads the plug-in into the host and opens the chosen line (after startSimulator()).
    bool open(DriverHost& host, const QString& pluginPath, QString* error) const;

private:
    QString portPath;
    std::unique_ptr<sim::Config> config;
};

} // namespace hostkit
