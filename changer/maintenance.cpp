// Maintenance of the hoppers and the device clock.
#include "changer/changer.h"

#include "cashcontrol/units.h"
#include "cctalk/commands.h"
#include "changer/changerdetail.h"

#include <QDateTime>

#include <cstdlib>

namespace CcTalk {

using namespace changer;

namespace {

const int serviceInterval = 500000;
const int clockToleranceSecs = 10;

} // namespace

hw::CcUnitMaintenanceInfo Changer::maintanenceInfo(const QString& unitName)
{
    hw::CcUnitMaintenanceInfo info;
    const CashControlUnit unit = getUnit(unitName);
    if (unit.type == cashunits::hopperType) {
        const ReqAuditCounterResp counter(exec(ReqAuditCounter(paidOutGroup, hopperNumber(unit.name))));
        info.unitName = unit.name;
        info.interval = serviceInterval;
        info.status = true;
        info.cycles = static_cast<int>(counter.value());
        if (info.cycles > serviceInterval) {
            info.status = false;
            info.description = QStringLiteral("износ выбрасывающего механизма");
        }
    }
    logInfo(QStringLiteral("%1, статус %3, кол-во циклов %4, интервал обслуживания %5")
                .arg(info.unitName, info.status ? QStringLiteral("OK") : info.description,
                     QString::number(info.cycles), QString::number(info.interval)));
    return info;
}

void Changer::maintanenceDone(const QString& unitName)
{
    const CashControlUnit unit = getUnit(unitName);
    if (unit.type == cashunits::hopperType)
        exec(ClearAuditCounter(paidOutGroup, hopperNumber(unit.name)));
}

void Changer::setTime()
{
    const ReqRealTimeClockResp answer(exec(ReqRealTimeClock()));
    const QDateTime deviceTime = answer.getTime();
    logInfo(QStringLiteral("Время в устройстве: ") +
            deviceTime.toString(QStringLiteral("dd.MM.yyyy hh:mm:ss")));
    const QDateTime now = QDateTime::currentDateTime();
    if (std::llabs(now.secsTo(deviceTime)) > clockToleranceSecs) {
        logInfo(QStringLiteral("Установка времени"));
        exec(ModRealTimeClock(now));
    }
}

} // namespace CcTalk
