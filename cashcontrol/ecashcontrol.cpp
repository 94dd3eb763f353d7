#include "cashcontrol/ecashcontrol.h"

#include "host/qtcompat.h"

namespace ECashControl {

namespace {

QString unknownName()
{
    return QStringLiteral("неизвестный");
}

} // namespace

QString modeName(int mode)
{
    switch (mode) {
    case Optimal:
        return QStringLiteral("оптимальный");
    case Minimum:
        return QStringLiteral("минимум");
    default:
        return unknownName();
    }
}

QString counterName(int counter)
{
    switch (counter) {
    case Accepted:
        return QStringLiteral("внесений");
    case Dispensed:
        return QStringLiteral("выдачи");
    default:
        return unknownName();
    }
}

QString operationName(int operation)
{
    switch (operation) {
    case PickupAllToCashbox:
        return QStringLiteral("выем в кэшбокс всего");
    case PickupToMinimumToCashbox:
        return QStringLiteral("выем в кэшбокс до мин уровня");
    case PickupSumToCashbox:
        return QStringLiteral("выем в кэшбокс суммы");
    case ManualPickupAll:
        return QStringLiteral("выем всего вручную");
    case ManualPickupSum:
        return QStringLiteral("выем суммы вручную");
    case DispensePickupAll:
        return QStringLiteral("выем всего через устройство выдачи");
    case DispensePickupSum:
        return QStringLiteral("выем суммы через устройство выдачи");
    case LoadMainAcceptor:
        return QStringLiteral("внесение через основной приемник");
    case LoadLoader:
        return QStringLiteral("внесение через лоадер");
    case ManualLoad:
        return QStringLiteral("внесение вручную");
    case EnableUnit:
        return QStringLiteral("включение модуля");
    case DisableUnit:
        return QStringLiteral("выключение модуля");
    case Maintenance:
        return QStringLiteral("техобслуживание модуля");
    default:
        return unknownName();
    }
}

} // namespace ECashControl
