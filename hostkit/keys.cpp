#include "keys.h"

#include "cashcontrol/ecashcontrol.h"

namespace hostkit {

namespace {

struct NamedOperation
{
    const char* key;
    int value;
};

const NamedOperation namedOperations[] = {
    {"manual-load", ECashControl::ManualLoad},         {"manual-all", ECashControl::ManualPickupAll},
    {"manual-sum", ECashControl::ManualPickupSum},     {"dispense-all", ECashControl::DispensePickupAll},
    {"dispense-sum", ECashControl::DispensePickupSum},
};

const int knownOperations[] = {
    ECashControl::PickupAllToCashbox, ECashControl::PickupToMinimumToCashbox,
    ECashControl::PickupSumToCashbox, ECashControl::ManualPickupAll,
    ECashControl::ManualPickupSum,    ECashControl::DispensePickupAll,
    ECashControl::DispensePickupSum,  ECashControl::LoadMainAcceptor,
    ECashControl::LoadLoader,         ECashControl::ManualLoad,
    ECashControl::EnableUnit,         ECashControl::DisableUnit,
    ECashControl::Maintenance,
};

} // namespace

bool parseOperation(const QString& text, int* operation, QString* error)
{
    for (const NamedOperation& named : namedOperations) {
        if (text == QLatin1String(named.key)) {
            *operation = named.value;
            return true;
        }
    }
    bool ok = false;
    const bool hex = text.startsWith(QLatin1String("0x")) || text.startsWith(QLatin1String("0X"));
    const int value = hex ? text.mid(2).toInt(&ok, 16) : text.toInt(&ok, 10);
    if (ok && !text.startsWith(QLatin1Char('+')) && !text.startsWith(QLatin1Char('-'))) {
        for (const int known : knownOperations) {
            if (value == known) {
                *operation = value;
                return true;
            }
        }
    }
    *error = QStringLiteral("unknown operation \"%1\" (manual-load, manual-all, manual-sum, dispense-all, "
                            "dispense-sum, or a unit operation number such as 0x200)")
                 .arg(text);
    return false;
}

QString operationKey(int operation)
{
    for (const NamedOperation& named : namedOperations)
        if (operation == named.value)
            return QLatin1String(named.key);
    return QStringLiteral("0x%1").arg(operation, 0, 16);
}

bool parseMode(const QString& text, int* mode, QString* error)
{
    if (text == QLatin1String("optimal")) {
        *mode = ECashControl::Optimal;
        return true;
    }
    if (text == QLatin1String("minimum")) {
        *mode = ECashControl::Minimum;
        return true;
    }
    *error = QStringLiteral("unknown change mode \"%1\" (optimal or minimum)").arg(text);
    return false;
}

QString modeKey(int mode)
{
    return mode == ECashControl::Minimum ? QStringLiteral("minimum") : QStringLiteral("optimal");
}

QString counterKey(int counter)
{
    return counter == ECashControl::Dispensed ? QStringLiteral("dispensed") : QStringLiteral("accepted");
}

} // namespace hostkit
