#pragma once

#include <QString>

namespace hw {

// Maintenance state of one unit.
struct CcUnitMaintenanceInfo
{
    CcUnitMaintenanceInfo() : status(false), cycles(0), interval(0) {}

    QString unitName;
    // true = in order; false = service is due.
    bool status;
    // Ejection cycles since the last service.
    int cycles;
    // Service interval in cycles.
    int interval;
    // What needs service; empty when nothing does.
    QString description;
};

} // namespace hw
