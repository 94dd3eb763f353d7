#pragma once

#include <QMap>
#include <QString>

// One cash unit as a driver reports it to the host: a hopper or the cashbox.
struct CashControlUnit
{
    // "hopper" followed by the hopper's bus index, or "cashbox".
    QString name;
    // cashunits::hopperType or cashunits::cashboxType (cashcontrol/units.h).
    int type = 0;
    // Bit set of ECashControl::UnitOperation the host may request.
    int operations = 0;
    int flag = 0;
    // The single denomination a hopper holds; 0 for the cashbox.
    unsigned int denom = 0;
    long long count = 0;
    long long sum = 0;
    // Capacity in coins; fill levels compare as count relative to capacity.
    int capacity = 0;
    int reserve1 = 0;
    QMap<unsigned int, long long> denoms;
    int reserve2 = 0;
    // 0 = in order, 3 = the device reports a fault of this unit.
    int state = 0;
    QString title;
    // Thresholds; -1 = not set.
    int limit1 = -1;
    int limit2 = -1;
    int limit3 = -1;
    int limit4 = -1;
};
