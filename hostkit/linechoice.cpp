#include "linechoice.h"

#include "driverhost.h"

namespace hostkit {

bool LineChoice::choose(const QString& port, const QString& simConfigFile, QString* error)
{
    portPath = port;
    config.reset();
    if (!port.isEmpty())
        return true;
    auto made = std::make_unique<sim::Config>(sim::Config::defaults());
    if (!simConfigFile.isEmpty()) {
        QString why;
        *made = sim::Config::fromJsonFile(simConfigFile, &why);
        if (!why.isEmpty()) {
            *error = why;
            return false;
        }
    }
    config = std::move(made);
    return true;
}

bool LineChoice::startSimulator(DriverHost& host, QString* error) const
{
    return !config || host.startSimulator(*config, error);
}

bool LineChoice::open(DriverHost& host, const QString& pluginPath, QString* error) const
{
    return host.open(pluginPath, portPath, error);
}

} // namespace hostkit
