#pragma once

#include "cashcontrol/basiccashcontrol.h"
#include "cctalk/exception.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QVariant>

#include <memory>

class Timer;

namespace CcTalk {
class Changer;
}

namespace hw {

class AbstractSerialDevice;
class RecordedLine;

// The CPI BCR coin recycler as the host sees it. Every operation that reaches
// the device goes through the one changer this object owns; a failure of the
// link reaches the host as CashControlExc "Монетоприемник: <text>".
class CpiBcrCashControl : public BasicCashControl
{
    Q_OBJECT
    // The host's configuration screens match on these texts byte for byte. The
    // "С" in the value of "name" is the Cyrillic capital Es (UTF-8 D0 A1), unlike
    // the Latin letters of "info".
    Q_CLASSINFO("type", "Монетоприемник")
    Q_CLASSINFO("name", "CPI BСR")
    Q_CLASSINFO("devices", "")
    Q_CLASSINFO("info", "Драйвер монетоприемника CPI BCR")
    Q_CLASSINFO("serialObj:name", "Порт")
    Q_CLASSINFO("serialObj:type", "port")
    Q_CLASSINFO("serialObj:info", "Порт к которому подключено устройство")
    Q_PROPERTY(QVariant serialObj READ getSerialObject WRITE setSerialObject
                   DESIGNABLE true SCRIPTABLE true STORED true)

public:
    explicit CpiBcrCashControl(QObject* parent = nullptr);
    ~CpiBcrCashControl() override;

    void connect() override;
    void checkState() override;
    void cashInStart(bool fast, const QSet<unsigned int>& excludedDenoms) override;
    void cashInEnd() override;
    SumDetailed cashInRollback() override;
    void cashInStop() override;
    SumDetailed cashOut(ECashControl::ChangeMode mode, long long amount) override;
    bool cashOutCheck(ECashControl::ChangeMode mode, long long amount) override;
    bool isNeedToTakeMoney() override;
    QList<CashControlUnit> getUnits() override;
    QSet<unsigned int> getAcceptableDenoms() override;
    SumDetailed pickup(const QString& unitName, ECashControl::UnitOperation operation,
                       long long amount) override;
    void loan(const QString& unitName, ECashControl::UnitOperation operation, long long amount) override;
    SumDetailed getCounter(ECashControl::CounterType counter) override;
    void enableAsyncCheck(bool enable) override;
    void enableUnit(const QString& unitName, bool enable) override;
    void park() override;
    QString diagFile() override;
    CcUnitMaintenanceInfo maintenanceInfo(const QString& unitName) override;
    QList<CcUnitMaintenanceInfo> maintenanceInfo() override;
    void maintenanceDone(const QString& unitName) override;

    // The serial object as the host set it: a QObject*, null when none is set.
    QVariant getSerialObject() const;
    // Takes the object's serial interface; anything else leaves no serial device.
    void setSerialObject(const QVariant& value);

    // Configures the line: 115200 baud, 8 data bits, no parity, 1 stop bit, no
    // flow control. Neither opens the port nor talks to the device.
    Q_INVOKABLE void init();

protected slots:
    // The background state check; repeats every 60 seconds while it succeeds.
    virtual void asyncCheckState();

protected:
    // Adopts the given changer (null: creates one) and sets it up as the public
    // constructor does; lets a test supply a changer that records its pauses.
    CpiBcrCashControl(QObject* parent, CcTalk::Changer* device);

    AbstractSerialDevice* serial = nullptr;
    CcTalk::Changer* changer = nullptr;
    bool asyncEnabled = false;
    Timer* timer = nullptr;
    // Between the changer and the host's serial object: the driver's own line recording.
    std::unique_ptr<RecordedLine> line;

private:
    // Runs the changer calls of one operation. A link failure was logged where it
    // was raised; it reaches the host with the driver's name in front, unlogged.
    template <class F> auto guarded(F&& body) -> decltype(body())
    {
        try {
            return body();
        } catch (const CcTalk::Exception& e) {
            throwError(QString::fromUtf8(e.what()), false);
        }
    }

    // A host amount below zero would turn into coin counts the device reads as
    // huge unsigned numbers.
    void refuseNegative(long long amount) const;
    // Sends nothing: an operation the unit does not offer, or an amount that is not a
    // whole number of its coins, is refused before the device is asked anything.
    void refuseOperation(const CashControlUnit& unit, ECashControl::UnitOperation operation) const;
    void refuseFractionalCoins(const CashControlUnit& unit, ECashControl::UnitOperation operation,
                               long long amount) const;
    void reportPaid(const SumDetailed& paid, long long amount) const;
    void checkPaid(const SumDetailed& paid, long long amount) const;
};

} // namespace hw
