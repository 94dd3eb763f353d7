#pragma once

#include <QString>

namespace hw {

// Maintenance state of one unit.
struct CcUnitMaintenanceInfo
{
    QString unitName;
    // true = in order; false = service is due.
    bool status = false;
    // Ejection cycles since the last service.
    int cycles = 0;
    // Service interval in cycles.
    int interval = 0;
    // What needs service; empty when nothing does.
    QString description;
};

} // namespace hw
