#pragma once

#include "cctalk/exception.h"
#include "cctalk/package.h"
#include "host/abstractserialdevice.h"
#include "host/logging.h"

#include <QObject>
#include <QString>

#include <functional>

namespace CcTalk {

// One device on the ccTalk bus: address, serial port, name and logger, and the
// exchange of one command with its retries.
class Device : public QObject
{
public:
    // Milliseconds from any fixed origin, never going back.
    using Clock = std::function<qint64()>;
    // Waits the given milliseconds (always positive).
    using Sleeper = std::function<void(int)>;

    explicit Device(QObject* parent = nullptr);
    ~Device() override;

    // Logs the device's identity: address, category, manufacturer, model, build,
    // serial number, firmware.
    virtual void commonInit();
    virtual void checkState();
    // A simple poll; succeeds when the device answers at all.
    virtual void connect();
    // Sends the request and returns the device's answer. Lost answers are retried up
    // to 5 attempts (once for a request that may not be repeated), up to 60 BUSY
    // answers are waited out in each exchange, NAK is never repeated. Only a frame
    // from this device to the host is taken as the answer, and only with the data
    // length the request expects; another length counts as a lost answer.
    virtual Response exec(const Request& request);
    virtual void sleep(int msecs) const;

    unsigned char getAddress() const { return address; }
    void setAddress(unsigned char value) { address = value; }
    hw::AbstractSerialDevice* getSerial() const { return serial; }
    void setSerial(hw::AbstractSerialDevice* value) { serial = value; }
    QString getName() const { return name; }
    void setName(const QString& value) { name = value; }
    logging::LoggerPtr getLogger() const { return logger; }
    void setLogger(logging::LoggerPtr value) { logger = std::move(value); }

    int getBusyRetries() const { return busyRetries; }
    // Time source of the receive bound; a monotonic clock unless replaced.
    void setClock(Clock value);
    // How pauses between attempts, BUSY answers and waits are spent; the calling
    // thread sleeps unless replaced.
    void setSleeper(Sleeper value);

    // Bounds of one receive attempt: past either it ends as a lost answer.
    static constexpr int maxAttemptBytes = 1024;
    static constexpr qint64 maxAttemptMsecs = 5000;

protected:
    // Milliseconds on the clock of the receive bound.
    qint64 msecsNow() const { return clock(); }

    void logDebug(const QString& text) const;
    void logInfo(const QString& text) const;
    void logWarn(const QString& text) const;
    void logError(const QString& text) const;
    QString wrapWithName(const QString& text) const;

    template <class E> [[noreturn]] void throwError(const QString& message) const
    {
        logError(message);
        throw E(message, name);
    }

private:
    Response receive(const Request& request);
    QString identText(const Request& request, const QString& prefix);

    QString name;
    unsigned char address = 0;
    // BUSY answers one exchange may wait out.
    int busyRetries = 60;
    hw::AbstractSerialDevice* serial = nullptr;
    logging::LoggerPtr logger;
    Clock clock;
    Sleeper sleeper;
};

} // namespace CcTalk
