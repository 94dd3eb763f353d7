// What a unit offers: its load and pick-up operations, its fill level and the amount checks.
#pragma once

#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/sumdetailed.h"

#include <QColor>
#include <QList>
#include <QString>

namespace panel {

// One load or pick-up operation as the panel offers it for a unit.
struct UnitOperation
{
    int operation = 0; // one ECashControl::UnitOperation bit
    QString key;       // the name cpibcr uses: manual-load, dispense-sum, ...
    QString title;     // the driver's Russian name of the operation
    bool takesAmount = false;
};

// The operations of each kind that the unit offers: exactly the bits of its `operations`,
// so an operation the driver would refuse for this unit is never shown.
QList<UnitOperation> loadOperations(const CashControlUnit& unit);
QList<UnitOperation> pickupOperations(const CashControlUnit& unit);

enum class FillLevel { Normal, Low, VeryLow, Fault };

// Where the count stands against the unit's limits (in coins; -1 = not set). At or below the
// lowest set limit the unit is very low, at or below any higher one low; a unit the device
// reports faulty is a fault whatever its count.
FillLevel fillLevel(const CashControlUnit& unit);
QColor fillColor(FillLevel level);

// Amount checks made before anything is sent. The text is read as cpibcr reads an AMOUNT;
// requirePositive refuses 0. On failure returns false with *error set.
bool parseMoney(const QString& text, bool requirePositive, long long* minor, QString* error);

// The operation's amount rule for this unit: loads and the sum pick-ups need an amount above 0,
// and an amount the driver refuses as not whole coins (cashunits::refusesPartCoins) is refused
// here with the driver's own message.
bool checkOperationAmount(const CashControlUnit& unit, const UnitOperation& op, const QString& text,
                          long long* minor, QString* error);

} // namespace panel
