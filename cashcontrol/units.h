#pragma once

// What a cash unit is, what may be done with it and what it holds: the one set of rules the
// driver, the tool, the panel and a host share. QtCore alone and C++98, for Qt 4.8 and Qt 5 hosts alike.
#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/ecashcontrol.h"

#include <QString>

namespace cashunits {

// CashControlUnit::type of a hopper (a recycler, the only kind change is paid from) and of the cashbox.
const int hopperType = 1;
const int cashboxType = 3;

inline bool isHopper(const CashControlUnit& unit)
{
    return unit.type == hopperType;
}

inline bool isCashbox(const CashControlUnit& unit)
{
    return unit.type == cashboxType;
}

// The device kind a driver reports (getType()) for a coin device; any other value is a note device.
const int coinDevice = 1;

// A hopper is emptied or filled by hand, emptied through the dispenser, filled from the main
// acceptor, and has maintenance records; the cashbox is only emptied by hand.
const int hopperOperations = ECashControl::ManualPickupAll | ECashControl::ManualPickupSum |
                             ECashControl::DispensePickupAll | ECashControl::DispensePickupSum |
                             ECashControl::LoadMainAcceptor | ECashControl::ManualLoad |
                             ECashControl::Maintenance;
const int cashboxOperations = ECashControl::ManualPickupAll;

// The operations that move an exact number of coins: a manual load writes the count raised by
// amount / denomination, a pick-up through the dispenser pays that many coins. A part coin
// would be lost silently or fail half-way, so the amount must be whole coins. A manual sum
// pick-up takes the whole coins the amount covers.
inline bool countsWholeCoins(int operation)
{
    return operation == ECashControl::ManualLoad || operation == ECashControl::DispensePickupSum;
}

// Whether the amount is a whole number of the unit's coins; never for a unit without a denomination.
inline bool isWholeCoins(const CashControlUnit& unit, long long amount)
{
    return unit.denom != 0 && amount % unit.denom == 0;
}

// Whether the driver refuses this amount for this operation on this unit as not whole coins.
inline bool refusesPartCoins(const CashControlUnit& unit, int operation, long long amount)
{
    return countsWholeCoins(operation) && !isWholeCoins(unit, amount);
}

// The driver's text for an amount it refuses.
inline QString badAmountText()
{
    return QString::fromUtf8("Некорректная сумма");
}

// "Монетоприемник" or "Купюроприемник": the device a driver of this kind speaks for.
inline QString deviceName(int deviceType)
{
    return QString::fromUtf8(deviceType == coinDevice ? "Монетоприемник" : "Купюроприемник");
}

// A driver's failure as the host sees it: "<device>: <message>".
inline QString deviceMessage(const QString& device, const QString& message)
{
    return QString::fromLatin1("%1: %2").arg(device, message);
}

// The money in the unit. A hopper holds its coins: count x denomination, whatever sum it
// reports (the driver reports 0) and nothing for a negative count. Any other unit holds
// the sum it reports.
inline long long unitValue(const CashControlUnit& unit)
{
    if (isHopper(unit))
        return unit.count > 0 ? unit.count * static_cast<long long>(unit.denom) : 0;
    return unit.sum;
}

} // namespace cashunits
