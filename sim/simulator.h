#pragma once

#include "config.h"
#include "device.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <functional>
#include <memory>

namespace sim {

struct Transaction
{
    qint64 msecsSinceStart;
    quint8 header;
    QByteArray frame;  // the request as received
    QByteArray answer; // what was put on the line for it (empty when nothing was)
};

// The recycler on a serial line: a Device served on a pseudo-terminal or a serial device by an
// I/O thread of its own, with line faults on top. Every public member is thread-safe.
class Simulator
{
public:
    explicit Simulator(const Config& config = Config::defaults());
    ~Simulator();
    Q_DISABLE_COPY(Simulator)

    bool openPty(QString* error = nullptr);
    bool openDevice(const QString& path, QString* error = nullptr);
    QString portPath() const;
    bool isRunning() const;
    void stop();

    // Device controls: the model's own, under the simulator's lock.
    void insertCoin(int position) { control(&Device::insertCoin, position); }
    void setErrorStatus(quint8 module, quint8 code) { control(&Device::setErrorStatus, module, code); }
    void setSelfCheck(quint8 fault, quint8 subCode) { control(&Device::setSelfCheck, fault, subCode); }
    void setActivityBits(quint16 bits) { control(&Device::setActivityBits, bits); }
    void jamHopper(int hopper, bool jammed = true) { control(&Device::jamHopper, hopper, jammed); }
    void flagHopperJam(int hopper) { control(&Device::flagHopperJam, hopper); }
    void emptyHopper(int hopper) { control(&Device::emptyHopper, hopper); }
    void openDoor(bool open = true) { control(&Device::openDoor, open); }
    void setHopperCount(int hopper, int count) { control(&Device::setHopperCount, hopper, count); }
    void setCashbox(quint32 value) { control(&Device::setCashbox, value); }
    // False if the device has no such counter.
    bool setAuditCounter(quint8 group, quint8 index, quint32 value);
    void clearFaults() { control(&Device::clearFaults); }
    void restartCoinCounters() { control(&Device::restartCoinCounters); }

    // Line faults. Each "next" fault applies to the following requests addressed to the device.
    void dropAnswers(int n); // the command is carried out, its answer is lost
    // The same for the next n commands with this header only.
    void dropAnswersTo(quint8 header, int n);
    void answerBusy(int n);  // BUSY instead of carrying the command out
    void nakNext(int n = 1); // NAK instead of carrying the command out
    void corruptChecksumNext(int n = 1);
    // Each of the next n answers loses its last data byte; length byte and checksum stay
    // right. An answer without data goes out whole and uses one up.
    void shortenNext(int n = 1);
    void garbageBeforeNext(const QByteArray& bytes);
    // Before each of the next n answers, a frame that carries the answer's data with every
    // byte one higher: from station 3 to station 2 with a correct checksum (traffic between
    // other nodes), or from the device to the host, padded to 130 data bytes, with a wrong
    // checksum (noise).
    void foreignFrameBeforeNext(int n = 1);
    void badFrameBeforeNext(int n = 1);
    void splitNext(int pieces, int pauseMs);
    void setBabble(bool on); // random bytes on the line every babbleIntervalMs
    void setSilent(bool on); // the device neither carries out nor answers anything
    void setPacing(bool on); // bytes leave one at a time at the configured baud rate
    void setEcho(bool on);
    void clearLineFaults();

    // Observation.
    int hopperCount(int hopper) const;
    quint32 cashbox() const;
    quint32 auditCounter(quint8 group, quint8 index) const;
    quint16 activityRegister() const;
    quint16 inhibitMask() const;
    QPair<quint8, quint8> errorStatus() const;
    QPair<quint8, quint8> selfCheck() const;
    QList<Transaction> transactions() const;
    int countHeader(quint8 header) const;
    void clearTransactions();
    quint64 coinsPaidOut() const;  // value that left all hoppers, by payout and purge
    quint64 valueAccepted() const; // value of all accepted coins
    // Runs fn on the model under the simulator's lock, with the model's clock brought up to date.
    void withDevice(const std::function<void(Device&)>& fn);
    // Runs fn on the model once, when the next request with this header arrives and before it is
    // carried out: a fault that appears at a chosen step of the host's sequence, whatever the
    // speed of the machine.
    void whenRequested(quint8 header, const std::function<void(Device&)>& fn);

private:
    template <typename... Param, typename... Arg> void control(void (Device::*f)(Param...), Arg... args)
    {
        withDevice([&](Device& device) { (device.*f)(args...); });
    }

    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace sim
