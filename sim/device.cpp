#include "device.h"

#include "changesearch.h"
#include "frame.h"

#include <QDateTime>
#include <algorithm>

namespace sim {

Device::Device(const Config& config)
    : config_(config), cashbox_(config.cashbox),
      wallClock_([] { return QDateTime::currentSecsSinceEpoch(); }), clockOffset_(config.clockOffsetSecs)
{
    for (const HopperConfig& h : config.hoppers) {
        Hopper hopper;
        hopper.cfg = h;
        hopper.count = std::clamp(h.count, 0, 65535);
        hopper.physical = hopper.count;
        hoppers_.append(hopper);
    }
    for (auto group = config.auditCounters.begin(); group != config.auditCounters.end(); ++group)
        for (auto it = group.value().begin(); it != group.value().end(); ++it)
            setAuditCounter(quint8(group.key()), quint8(it.key()), it.value());
}

void Device::setWallClock(std::function<qint64()> secondsSinceEpoch)
{
    wallClock_ = std::move(secondsSinceEpoch);
}

QByteArray Device::handleFrame(const QByteArray& f)
{
    if (!frame::isComplete(f) || frame::dest(f) != config_.address)
        return QByteArray();
    return answer(frame::source(f), frame::header(f), frame::data(f));
}

QByteArray Device::ack(quint8 src, const QByteArray& data) const
{
    return frame::make(src, config_.address, frame::Ack, data);
}

QByteArray Device::nak(quint8 src) const
{
    return frame::make(src, config_.address, frame::Nak);
}

QByteArray Device::busy(quint8 src) const
{
    return frame::make(src, config_.address, frame::Busy);
}

QByteArray Device::answer(quint8 src, quint8 header, const QByteArray& data)
{
    const Command* end = commands_ + commandCount_;
    const Command* c = std::find_if(commands_, end, [&](const Command& row) { return row.header == header; });
    if (c == end || (c->dataSize >= 0 && data.size() != c->dataSize))
        return nak(src);
    return (this->*c->handle)(src, data);
}

qint64 Device::deviceClock() const
{
    return wallClock_() + clockOffset_;
}

bool Device::canStartPayout() const
{
    return jobs_.isEmpty() && initUntil_ < 0;
}

bool Device::planPayout(quint32 amount, QVector<int>& coins) const
{
    QVector<Stock> stock;
    for (int i = 0; i < hoppers_.size(); ++i) {
        const Hopper& h = hoppers_[i];
        if (h.cfg.enabled)
            stock.append(Stock{i + 1, coinValue(h.cfg.coinId), h.count, h.cfg.capacity});
    }
    return planChange(amount, stock, algorithm_, coins);
}

void Device::startJobs(const QList<Job>& jobs)
{
    jobs_ = jobs;
    nextCoinAt_ = jobs_.isEmpty() ? -1 : now_ + std::max(1, config_.payoutMsPerCoin);
}

void Device::payOneCoin()
{
    Job& job = jobs_.first();
    Hopper& h = hoppers_[job.hopper - 1];
    if (h.jammed) {
        faults_.hopperJammed(job.hopper);
        jobs_.clear();
    } else if (h.physical == 0) {
        h.count = 0;
        if (!job.untilEmpty)
            faults_.hopperEmpty(job.hopper);
        const int hopper = job.hopper;
        jobs_.erase(
            std::remove_if(jobs_.begin(), jobs_.end(), [&](const Job& j) { return j.hopper == hopper; }),
            jobs_.end());
    } else {
        const quint32 value = coinValue(h.cfg.coinId);
        --h.physical;
        h.count = std::max(0, h.count - 1);
        ++(job.purge ? h.purged : h.paidOut);
        valuePaidOut_ += value;
        if (lastPayByAmount_)
            lastPayPaid_ += value;
        if (!job.untilEmpty && --job.count <= 0)
            jobs_.removeFirst();
    }
    nextCoinAt_ = jobs_.isEmpty() ? -1 : nextCoinAt_ + std::max(1, config_.payoutMsPerCoin);
}

void Device::landCoin(int position)
{
    const QString id = config_.coinIds.value(position);
    const quint32 value = coinValue(id);
    ++coinsIn_[position - 1];
    ++accepted_[position - 1];
    valueAccepted_ += value;
    for (Hopper& h : hoppers_) {
        if (h.cfg.enabled && sameCoin(id, h.cfg.coinId) && h.count < h.cfg.capacity) {
            ++h.count;
            ++h.physical;
            return;
        }
    }
    cashbox_ += value;
}

void Device::reset()
{
    ++resets_;
    jobs_.clear();
    nextCoinAt_ = -1;
    inFlight_.clear();
    inhibitMask_ = 0;
    fast_ = false;
    algorithm_ = 0;
    std::fill(std::begin(coinsIn_), std::end(coinsIn_), 0);
    faults_.clearRaised();
    initUntil_ = now_ + std::max(1, config_.resetInitMs);
}

void Device::finishInit()
{
    initUntil_ = -1;
}

qint64 Device::nextEventMs() const
{
    qint64 next = -1;
    auto consider = [&](qint64 t) {
        if (t >= 0 && (next < 0 || t < next))
            next = t;
    };
    for (const Flight& f : inFlight_)
        consider(f.landsAt);
    consider(nextCoinAt_);
    consider(initUntil_);
    return next;
}

void Device::advanceTo(qint64 ms)
{
    for (;;) {
        const qint64 next = nextEventMs();
        if (next < 0 || next > ms)
            break;
        now_ = std::max(now_, next);
        if (initUntil_ >= 0 && initUntil_ <= now_) {
            finishInit();
            continue;
        }
        auto flight = std::find_if(inFlight_.begin(), inFlight_.end(),
                                   [&](const Flight& f) { return f.landsAt <= now_; });
        if (flight != inFlight_.end()) {
            const int position = flight->position;
            inFlight_.erase(flight);
            landCoin(position);
            continue;
        }
        if (nextCoinAt_ >= 0 && nextCoinAt_ <= now_)
            payOneCoin();
    }
    now_ = std::max(now_, ms);
}

void Device::restartCoinCounters()
{
    std::fill(std::begin(coinsIn_), std::end(coinsIn_), 0);
}

void Device::insertCoin(int position)
{
    if (position < 1 || position > 16 || initUntil_ >= 0)
        return;
    if (!(inhibitMask_ & (1u << (position - 1))) || !config_.coinIds.contains(position))
        return;
    const int flight = fast_ ? config_.coinAcceptFastMs : config_.coinAcceptMs;
    inFlight_.append(Flight{now_ + std::max(1, flight), position});
}

void Device::setErrorStatus(quint8 module, quint8 code)
{
    faults_.setErrorStatus(module, code);
}

void Device::setSelfCheck(quint8 fault, quint8 subCode)
{
    faults_.setSelfCheck(fault, subCode);
}

void Device::setActivityBits(quint16 bits)
{
    faults_.setActivityBits(bits);
}

void Device::jamHopper(int hopper, bool jammed)
{
    if (validHopper(hopper))
        hoppers_[hopper - 1].jammed = jammed;
}

void Device::flagHopperJam(int hopper)
{
    if (!validHopper(hopper))
        return;
    hoppers_[hopper - 1].jammed = true;
    faults_.hopperJammed(hopper);
}

void Device::emptyHopper(int hopper)
{
    if (validHopper(hopper))
        hoppers_[hopper - 1].physical = 0;
}

void Device::openDoor(bool open)
{
    faults_.openDoor(open);
}

void Device::setHopperCount(int hopper, int count)
{
    if (!validHopper(hopper))
        return;
    Hopper& h = hoppers_[hopper - 1];
    h.count = h.physical = std::clamp(count, 0, 65535);
    if (h.count > 0)
        faults_.hopperRefilled(hopper);
}

void Device::setCashbox(quint32 value)
{
    cashbox_ = value;
}

void Device::clearFaults()
{
    faults_.clear();
    for (Hopper& h : hoppers_)
        h.jammed = false;
}

int Device::hopperCount(int hopper) const
{
    return validHopper(hopper) ? hoppers_[hopper - 1].count : -1;
}

quint16 Device::activityRegister() const
{
    quint16 bits = faults_.activityBits();
    if (!inFlight_.isEmpty())
        bits |= activity::CoinAcceptance;
    if (!jobs_.isEmpty())
        bits |= activity::Payout;
    if (initUntil_ >= 0)
        bits |= activity::Initialisation;
    return bits;
}

QPair<quint8, quint8> Device::errorStatus() const
{
    return faults_.errorStatus();
}

QPair<quint8, quint8> Device::selfCheck() const
{
    return faults_.selfCheck();
}

quint16 Device::coinsInByType(int position) const
{
    return position >= 1 && position <= 16 ? coinsIn_[position - 1] : 0;
}

quint32* Device::auditSlot(quint8 group, quint8 index)
{
    if (group == audit::Accepted && index >= 1 && index <= 16)
        return &accepted_[index - 1];
    if (group == audit::PaidOut && validHopper(index))
        return &hoppers_[index - 1].paidOut;
    if (group == audit::Purged && validHopper(index))
        return &hoppers_[index - 1].purged;
    return nullptr;
}

bool Device::setAuditCounter(quint8 group, quint8 index, quint32 value)
{
    quint32* counter = auditSlot(group, index);
    if (counter)
        *counter = value;
    return counter != nullptr;
}

quint32 Device::auditCounter(quint8 group, quint8 index) const
{
    const quint32* counter = const_cast<Device*>(this)->auditSlot(group, index);
    return counter ? *counter : 0;
}

int Device::coinsQueuedForPayout() const
{
    int n = 0;
    for (const Job& j : jobs_)
        n += j.untilEmpty ? hoppers_[j.hopper - 1].physical : j.count;
    return n;
}

} // namespace sim
