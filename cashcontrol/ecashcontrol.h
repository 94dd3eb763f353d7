#pragma once

#include <QString>

namespace ECashControl {

// How change is made up from the hoppers; also the device's change algorithm.
enum ChangeMode { Optimal = 0, Minimum = 1 };

enum CounterType { Accepted = 0, Dispensed = 1 };

// Single bits, combined into CashControlUnit::operations.
enum UnitOperation {
    PickupAllToCashbox = 0x1,
    PickupToMinimumToCashbox = 0x2,
    PickupSumToCashbox = 0x4,
    ManualPickupAll = 0x10,
    ManualPickupSum = 0x20,
    DispensePickupAll = 0x100,
    DispensePickupSum = 0x200,
    LoadMainAcceptor = 0x1000,
    LoadLoader = 0x10000,
    ManualLoad = 0x20000,
    EnableUnit = 0x1000000,
    DisableUnit = 0x2000000,
    Maintenance = 0x8000000
};

// Bits of a driver's option set.
enum Option { Option1 = 1 };

// Russian names for the log; "неизвестный" for any value outside the lists,
// including combinations of operation bits.
QString modeName(int mode);
QString counterName(int counter);
QString operationName(int operation);

} // namespace ECashControl
