#pragma once

#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/ccunitmaintenanceinfo.h"
#include "cashcontrol/ecashcontrol.h"
#include "cashcontrol/sumdetailed.h"
#include "host/interfaceids.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QtPlugin>

namespace hw {

// The host's cash-control interface. Every operation reports failure by
// throwing CashControlExc; none returns an error code. The slot order is
// part of the binary interface with the host. Like every header a host
// compiles, it is C++98: a Qt 4.8 host builds with -std=gnu++98.
class AbstractCashControl
{
public:
    virtual ~AbstractCashControl() {}

    virtual bool checkOption(ECashControl::Option option) const = 0;
    virtual void connect() = 0;
    virtual void checkState() = 0;
    virtual void cashInStart(bool fast, const QSet<unsigned int>& excludedDenoms) = 0;
    virtual void cashInEnd() = 0;
    virtual SumDetailed cashInRollback() = 0;
    virtual void cashInStop() = 0;
    virtual SumDetailed cashOut(ECashControl::ChangeMode mode, long long amount) = 0;
    virtual bool cashOutCheck(ECashControl::ChangeMode mode, long long amount) = 0;
    virtual bool isNeedToTakeMoney() = 0;
    virtual QList<CashControlUnit> getUnits() = 0;
    virtual QSet<unsigned int> getAcceptableDenoms() = 0;
    virtual SumDetailed pickup(const QString& unitName, ECashControl::UnitOperation operation,
                               long long amount) = 0;
    virtual void loan(const QString& unitName, ECashControl::UnitOperation operation, long long amount) = 0;
    virtual SumDetailed getCounter(ECashControl::CounterType counter) = 0;
    virtual int getType() const = 0;
    virtual QString getTypeName() const = 0;
    virtual QString name() const = 0;
    virtual QString denomName(bool plural) const = 0;
    virtual void enableAsyncCheck(bool enable) = 0;
    virtual void enableUnit(const QString& unitName, bool enable) = 0;
    virtual CcUnitMaintenanceInfo maintenanceInfo(const QString& unitName) = 0;
    virtual void maintenanceDone(const QString& unitName) = 0;
    virtual QList<CcUnitMaintenanceInfo> maintenanceInfo() = 0;
    virtual void park() = 0;
    virtual QString diagFile() = 0;
};

} // namespace hw

Q_DECLARE_INTERFACE(hw::AbstractCashControl, KELVORIN_CASH_CONTROL_IID)
