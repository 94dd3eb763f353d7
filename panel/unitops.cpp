// What a unit offers: its load and pick-up operations, its fill level and the amount checks.
#include "unitops.h"

#include "cashcontrol/ecashcontrol.h"
#include "cashcontrol/units.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"

#include <QStringList>

#include <algorithm>

namespace panel {

namespace {

UnitOperation describe(int operation, bool takesAmount)
{
    UnitOperation op;
    op.operation = operation;
    op.key = hostkit::operationKey(operation);
    op.title = ECashControl::operationName(operation);
    op.takesAmount = takesAmount;
    return op;
}

QList<UnitOperation> offered(const CashControlUnit& unit, const QList<QPair<int, bool>>& candidates)
{
    QList<UnitOperation> list;
    for (const auto& candidate : candidates)
        if (unit.operations & candidate.first)
            list.append(describe(candidate.first, candidate.second));
    return list;
}

} // namespace

QList<UnitOperation> loadOperations(const CashControlUnit& unit)
{
    return offered(unit, {{ECashControl::ManualLoad, true},
                          {ECashControl::LoadMainAcceptor, true},
                          {ECashControl::LoadLoader, true}});
}

QList<UnitOperation> pickupOperations(const CashControlUnit& unit)
{
    return offered(unit, {{ECashControl::ManualPickupAll, false},
                          {ECashControl::ManualPickupSum, true},
                          {ECashControl::DispensePickupAll, false},
                          {ECashControl::DispensePickupSum, true},
                          {ECashControl::PickupAllToCashbox, false},
                          {ECashControl::PickupToMinimumToCashbox, false},
                          {ECashControl::PickupSumToCashbox, true}});
}

FillLevel fillLevel(const CashControlUnit& unit)
{
    if (unit.state != 0)
        return FillLevel::Fault;
    QList<int> limits;
    for (const int limit : {unit.limit1, unit.limit2, unit.limit3, unit.limit4})
        if (limit >= 0)
            limits.append(limit);
    if (limits.isEmpty() || cashunits::isCashbox(unit))
        return FillLevel::Normal;
    std::sort(limits.begin(), limits.end());
    if (unit.count <= limits.first())
        return FillLevel::VeryLow;
    if (unit.count <= limits.last())
        return FillLevel::Low;
    return FillLevel::Normal;
}

QColor fillColor(FillLevel level)
{
    switch (level) {
    case FillLevel::Normal:
        return QColor(0x2e, 0x9e, 0x4f);
    case FillLevel::Low:
        return QColor(0xe0, 0x9b, 0x1a);
    case FillLevel::VeryLow:
        return QColor(0xd3, 0x5a, 0x1f);
    case FillLevel::Fault:
        return QColor(0xb0, 0x1e, 0x23);
    }
    return QColor();
}

bool parseMoney(const QString& text, bool requirePositive, long long* minor, QString* error)
{
    long long value = 0;
    const QString trimmed = text.trimmed();
    if (!hostkit::parseAmount(trimmed, &value, error))
        return false;
    if (requirePositive && value == 0) {
        *error = QStringLiteral("the amount must be above 0");
        return false;
    }
    *minor = value;
    return true;
}

bool checkOperationAmount(const CashControlUnit& unit, const UnitOperation& op, const QString& text,
                          long long* minor, QString* error)
{
    if (!op.takesAmount) {
        *minor = 0;
        return true;
    }
    long long value = 0;
    if (!parseMoney(text, true, &value, error))
        return false;
    // The panel drives the coin recycler, whose driver speaks as a coin device.
    if (cashunits::refusesPartCoins(unit, op.operation, value)) {
        *error = cashunits::deviceMessage(cashunits::deviceName(cashunits::coinDevice),
                                          cashunits::badAmountText());
        return false;
    }
    *minor = value;
    return true;
}

} // namespace panel
