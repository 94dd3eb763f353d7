#pragma once

#include "cashcontrol/abstractcashcontrol.h"
#include "cashcontrol/cashcontrolexc.h"
#include "cashcontrol/units.h"
#include "host/logging.h"
#include "host/qtcompat.h"

#include <QObject>

namespace hw {

// Common base of cash-control drivers: the logger, the device kind, the option
// set, the host's signals, the descriptive answers and the one way to fail.
class BasicCashControl : public QObject, public AbstractCashControl
{
    Q_OBJECT
    Q_INTERFACES(hw::AbstractCashControl)
    Q_PROPERTY(int hardwareClass READ getHardwareClass)

public:
    explicit BasicCashControl(QObject* parent = nullptr);
    ~BasicCashControl() override = default;

    // The device's connect() below hides QObject's; keep the signal-slot overloads usable.
    using QObject::connect;

    int getType() const override;
    QString getTypeName() const override;
    QString name() const override;
    QString denomName(bool plural) const override;
    bool checkOption(ECashControl::Option option) const override;

    void connect() override = 0;
    void checkState() override = 0;
    void cashInStart(bool fast, const QSet<unsigned int>& excludedDenoms) override = 0;
    void cashInEnd() override = 0;
    SumDetailed cashInRollback() override = 0;
    void cashInStop() override = 0;
    SumDetailed cashOut(ECashControl::ChangeMode mode, long long amount) override = 0;
    bool cashOutCheck(ECashControl::ChangeMode mode, long long amount) override = 0;
    bool isNeedToTakeMoney() override = 0;
    QList<CashControlUnit> getUnits() override = 0;
    QSet<unsigned int> getAcceptableDenoms() override = 0;
    SumDetailed pickup(const QString& unitName, ECashControl::UnitOperation operation,
                       long long amount) override = 0;
    void loan(const QString& unitName, ECashControl::UnitOperation operation, long long amount) override = 0;
    SumDetailed getCounter(ECashControl::CounterType counter) override = 0;
    void enableAsyncCheck(bool enable) override = 0;
    void enableUnit(const QString& unitName, bool enable) override = 0;
    CcUnitMaintenanceInfo maintenanceInfo(const QString& unitName) override = 0;
    void maintenanceDone(const QString& unitName) override = 0;
    QList<CcUnitMaintenanceInfo> maintenanceInfo() override = 0;
    void park() override = 0;
    QString diagFile() override = 0;

    int getHardwareClass() const { return 512; }

    // Adds the option's bits; removes them only when all of them are set.
    void setOption(ECashControl::Option option, bool on);

    // How many coins of each denomination the hoppers pay to make up the amount.
    // Only hoppers with a denomination take part. The plan never holds
    // a count below 1 and never exceeds the amount; it may fall short of it.
    static SumDetailed calcDenomSums(const QList<CashControlUnit>& units, long long amount,
                                     ECashControl::ChangeMode mode);

    // Logs the message at error level when asked (nothing else logged it yet)
    // and throws it to the host as "<name>: <message>".
    template <class E = CashControlExc> [[noreturn]] void throwError(const QString& message, bool log) const
    {
        if (log) {
            logging::error(logger, message);
        }
        throw E(cashunits::deviceMessage(name(), message).toUtf8());
    }

signals:
    void received(SumDetailed sum);
    void error(QString msg);
    void moneyWereTaken();

protected:
    logging::LoggerPtr logger;
    // cashunits::coinDevice, anything else = note device.
    int type;
    // Bit set of ECashControl::Option.
    int options;
};

// Orders units by descending denomination; equal denominations are unordered.
bool sortRecyclers(const CashControlUnit& a, const CashControlUnit& b);

} // namespace hw
