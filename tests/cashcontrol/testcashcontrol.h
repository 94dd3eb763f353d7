#pragma once

#include "cashcontrol/basiccashcontrol.h"

// A driver with no device: the abstract operations do nothing, so the common
// base can be exercised on its own.
class TestCashControl : public hw::BasicCashControl
{
public:
    // Leaves type, options and logger as the base sets them.
    explicit TestCashControl(QObject* parent = nullptr) : hw::BasicCashControl(parent) {}
    explicit TestCashControl(int kind) : hw::BasicCashControl(nullptr) { type = kind; }

    int optionBits() const { return options; }
    void setOptionBits(int bits) { options = bits; }
    void setLogger(const logging::LoggerPtr& l) { logger = l; }
    logging::LoggerPtr getLogger() const { return logger; }

    void connect() override {}
    void checkState() override {}
    void cashInStart(bool, const QSet<unsigned int>&) override {}
    void cashInEnd() override {}
    SumDetailed cashInRollback() override { return SumDetailed(); }
    void cashInStop() override {}
    SumDetailed cashOut(ECashControl::ChangeMode, long long) override { return SumDetailed(); }
    bool cashOutCheck(ECashControl::ChangeMode, long long) override { return false; }
    bool isNeedToTakeMoney() override { return false; }
    QList<CashControlUnit> getUnits() override { return {}; }
    QSet<unsigned int> getAcceptableDenoms() override { return {}; }
    SumDetailed pickup(const QString&, ECashControl::UnitOperation, long long) override
    {
        return SumDetailed();
    }
    void loan(const QString&, ECashControl::UnitOperation, long long) override {}
    SumDetailed getCounter(ECashControl::CounterType) override { return SumDetailed(); }
    void enableAsyncCheck(bool) override {}
    void enableUnit(const QString&, bool) override {}
    hw::CcUnitMaintenanceInfo maintenanceInfo(const QString&) override { return {}; }
    void maintenanceDone(const QString&) override {}
    QList<hw::CcUnitMaintenanceInfo> maintenanceInfo() override { return {}; }
    void park() override {}
    QString diagFile() override { return QString(); }
};
