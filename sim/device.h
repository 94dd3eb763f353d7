#pragma once

#include "coinvalue.h"
#include "config.h"
#include "devicefaults.h"
#include "protocol.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QVector>
#include <functional>

namespace sim {

// The recycler as a pure state machine: frames in, frames out, time advanced by the caller in
// milliseconds. No threads, no I/O.
class Device
{
public:
    explicit Device(const Config& config = Config::defaults());

    const Config& config() const { return config_; }

    // A whole frame as received. Returns the answer frame, or nothing when a device would stay
    // silent (bad checksum, wrong length, another destination).
    QByteArray handleFrame(const QByteArray& frame);
    // The answer to one command addressed to this device; empty data means a bare ACK.
    QByteArray answer(quint8 src, quint8 header, const QByteArray& data);

    void advanceTo(qint64 ms);
    void advance(qint64 ms) { advanceTo(now_ + ms); }
    qint64 now() const { return now_; }
    // Time of the next internal event (a coin landing, a coin paid out, the end of
    // initialisation), or -1 when none is due.
    qint64 nextEventMs() const;

    // The host clock in seconds since 1970 UTC; replaceable for tests.
    void setWallClock(std::function<qint64()> secondsSinceEpoch);

    // Controls. Faults set here stay until they are changed here; a reset does not clear them.
    void insertCoin(int position);
    void setErrorStatus(quint8 module, quint8 code);
    void setSelfCheck(quint8 fault, quint8 subCode);
    void setActivityBits(quint16 bits);
    void jamHopper(int hopper, bool jammed = true);
    // Jams the hopper and raises its jam fault at once, as the device does when it finds a
    // hopper jammed outside a payout; a reset clears the fault, the hopper stays jammed.
    void flagHopperJam(int hopper);
    void emptyHopper(int hopper);
    void openDoor(bool open = true);
    void setHopperCount(int hopper, int count);
    void setCashbox(quint32 value);
    // Sets an audit counter as the device's past life left it; false if the device has no such
    // counter. Counting goes on from the value set.
    bool setAuditCounter(quint8 group, quint8 index, quint32 value);
    void clearFaults();
    // The coins-in counters start again from 0, as after a restart of the acceptor.
    void restartCoinCounters();
    // Power lost and back: the device restarts as on the Reset command, without answering
    // anything; hopper contents, the cashbox and the audit counters survive.
    void powerCycle() { reset(); }

    // Observation.
    int hopperCount(int hopper) const;
    int hopperCount() const { return hoppers_.size(); }
    quint32 cashbox() const { return cashbox_; }
    quint16 activityRegister() const;
    quint16 inhibitMask() const { return inhibitMask_; }
    bool fastMode() const { return fast_; }
    int changeAlgorithm() const { return algorithm_; }
    QPair<quint8, quint8> errorStatus() const;
    QPair<quint8, quint8> selfCheck() const;
    quint16 coinsInByType(int position) const;
    quint32 auditCounter(quint8 group, quint8 index) const;
    quint64 coinsPaidOut() const { return valuePaidOut_; }
    quint64 valueAccepted() const { return valueAccepted_; }
    int coinsInFlight() const { return inFlight_.size(); }
    int coinsQueuedForPayout() const;
    qint64 deviceClock() const;
    int resets() const { return resets_; }

private:
    struct Hopper
    {
        HopperConfig cfg;
        int count = 0;    // what the device believes it holds
        int physical = 0; // what it really holds
        bool jammed = false;
        quint32 paidOut = 0; // audit group 80
        quint32 purged = 0;  // audit group 87
    };
    struct Flight
    {
        qint64 landsAt;
        int position;
    };
    struct Job
    {
        int hopper;
        int count;
        bool purge;
        bool untilEmpty;
    };

    // A command's handler, called once the data has the length the table asks for.
    using Handler = QByteArray (Device::*)(quint8 src, const QByteArray& data);
    struct Command
    {
        quint8 header;
        int dataSize; // -1: any
        Handler handle;
    };
    // In devicecommands.cpp, one row a header.
    static const Command commands_[];
    static const int commandCount_;

    QByteArray onSimplePoll(quint8 src, const QByteArray& data);
    QByteArray onReset(quint8 src, const QByteArray& data);
    QByteArray onReqEquipmentCategoryId(quint8 src, const QByteArray& data);
    QByteArray onReqManufacturerId(quint8 src, const QByteArray& data);
    QByteArray onReqProductCode(quint8 src, const QByteArray& data);
    QByteArray onReqBuildCode(quint8 src, const QByteArray& data);
    QByteArray onReqSoftwareRevision(quint8 src, const QByteArray& data);
    QByteArray onReqSerialNumber(quint8 src, const QByteArray& data);
    QByteArray onReqVarSet(quint8 src, const QByteArray& data);
    QByteArray onModVarSet(quint8 src, const QByteArray& data);
    QByteArray onReqControllerManifest(quint8 src, const QByteArray& data);
    QByteArray onReqCoinId(quint8 src, const QByteArray& data);
    QByteArray onReqHopperBalance(quint8 src, const QByteArray& data);
    QByteArray onModHopperBalance(quint8 src, const QByteArray& data);
    QByteArray onReqCashboxValue(quint8 src, const QByteArray& data);
    QByteArray onModCashboxValue(quint8 src, const QByteArray& data);
    QByteArray onModInhibitStatus(quint8 src, const QByteArray& data);
    QByteArray onReqCoinsInByType(quint8 src, const QByteArray& data);
    QByteArray onReqActivityReg(quint8 src, const QByteArray& data);
    QByteArray onReqErrorStatus(quint8 src, const QByteArray& data);
    QByteArray onPerformSelfcheck(quint8 src, const QByteArray& data);
    QByteArray onReadInputLines(quint8 src, const QByteArray& data);
    QByteArray onSetChangeAlgorithm(quint8 src, const QByteArray& data);
    QByteArray onPayMoneyOut(quint8 src, const QByteArray& data);
    QByteArray onVerifyMoneyOut(quint8 src, const QByteArray& data);
    QByteArray onDispenseHopperPattern(quint8 src, const QByteArray& data);
    QByteArray onPurgeHopper(quint8 src, const QByteArray& data);
    QByteArray onReqAuditCounter(quint8 src, const QByteArray& data);
    QByteArray onClearAuditCounter(quint8 src, const QByteArray& data);
    QByteArray onReqRealTimeClock(quint8 src, const QByteArray& data);
    QByteArray onModRealTimeClock(quint8 src, const QByteArray& data);

    QByteArray ack(quint8 src, const QByteArray& data = QByteArray()) const;
    QByteArray nak(quint8 src) const;
    QByteArray busy(quint8 src) const;
    QByteArray text(const QString& s) const { return s.toLatin1(); }
    QByteArray manifest(quint8 unit, quint8 info) const;
    bool validHopper(int hopper) const { return hopper >= 1 && hopper <= hoppers_.size(); }
    quint32* auditSlot(quint8 group, quint8 index);
    bool canStartPayout() const;
    bool planPayout(quint32 amount, QVector<int>& coins) const;
    void startJobs(const QList<Job>& jobs);
    void landCoin(int position);
    void payOneCoin();
    void finishInit();
    void reset();

    Config config_;
    QVector<Hopper> hoppers_;
    quint32 cashbox_ = 0;
    qint64 now_ = 0;
    std::function<qint64()> wallClock_;
    qint64 clockOffset_ = 0;

    quint16 inhibitMask_ = 0;
    bool fast_ = false;
    int algorithm_ = 0;
    quint16 coinsIn_[16] = {};
    quint32 accepted_[16] = {}; // audit group 70
    QList<Flight> inFlight_;

    QList<Job> jobs_;
    qint64 nextCoinAt_ = -1;
    quint32 lastPayRequested_ = 0;
    quint32 lastPayPaid_ = 0;
    quint8 payEvents_ = 0;
    bool lastPayByAmount_ = false;

    qint64 initUntil_ = -1;
    int resets_ = 0;

    DeviceFaults faults_;

    quint64 valuePaidOut_ = 0;
    quint64 valueAccepted_ = 0;
};

} // namespace sim
