#pragma once

#include <QMap>
#include <QString>

// One cash unit as a driver reports it to the host: a hopper or the cashbox.
struct CashControlUnit
{
    CashControlUnit()
        : type(0), operations(0), flag(0), denom(0), count(0), sum(0), capacity(0), reserve1(0), reserve2(0),
          state(0), limit1(-1), limit2(-1), limit3(-1), limit4(-1)
    {
    }

    // "hopper" followed by the hopper's bus index, or "cashbox".
    QString name;
    // cashunits::hopperType or cashunits::cashboxType (cashcontrol/units.h).
    int type;
    // Bit set of ECashControl::UnitOperation the host may request.
    int operations;
    int flag;
    // The single denomination a hopper holds; 0 for the cashbox.
    unsigned int denom;
    long long count;
    long long sum;
    // Capacity in coins; fill levels compare as count relative to capacity.
    int capacity;
    int reserve1;
    QMap<unsigned int, long long> denoms;
    int reserve2;
    // 0 = in order, 3 = the device reports a fault of this unit.
    int state;
    QString title;
    // Thresholds; -1 = not set.
    int limit1;
    int limit2;
    int limit3;
    int limit4;
};
