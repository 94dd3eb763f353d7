#include "device.h"

#include "frame.h"

#include <QDateTime>
#include <algorithm>
#include <numeric>

namespace sim {

namespace {

QByteArray le(quint32 value, int width)
{
    QByteArray out;
    for (int i = 0; i < width; ++i)
        out.append(char((value >> (8 * i)) & 0xFF));
    return out;
}

quint32 fromLe(const QByteArray& data, int pos, int width)
{
    quint32 v = 0;
    for (int i = 0; i < width && pos + i < data.size(); ++i)
        v |= quint32(quint8(data.at(pos + i))) << (8 * i);
    return v;
}

QByteArray coinIdBytes(const QString& id)
{
    QByteArray b = id.toLatin1().left(6);
    while (b.size() < 6)
        b.append('.');
    return b;
}

// Coins of one country and value share a hopper whatever their issue letter.
bool sameCoin(const QString& a, const QString& b)
{
    return a.size() == 6 && a.left(5) == b.left(5);
}

// Larger amounts are beyond any payout the device would make; the search is bounded by them.
constexpr quint32 kMaxUnits = 1u << 20;

class Reach
{
public:
    explicit Reach(quint32 limit) : limit_(limit), words_((limit >> 6) + 1, 0) { words_[0] = 1; }

    bool has(quint32 amount) const { return amount <= limit_ && (words_[amount >> 6] >> (amount & 63)) & 1; }
    // Adds up to count coins of the given value to every reachable amount.
    void add(quint32 value, int count)
    {
        if (value == 0)
            return;
        quint64 left = std::min<quint64>(quint64(count), limit_ / value);
        for (quint64 k = 1; left > 0; k *= 2) {
            const quint64 take = std::min(k, left);
            shiftOr(quint32(take * value));
            left -= take;
        }
    }

private:
    void shiftOr(quint32 by)
    {
        const size_t wordShift = by >> 6, bitShift = by & 63;
        for (size_t i = words_.size(); i-- > wordShift;) {
            quint64 v = words_[i - wordShift] << bitShift;
            if (bitShift && i - wordShift > 0)
                v |= words_[i - wordShift - 1] >> (64 - bitShift);
            words_[i] |= v;
        }
    }

    quint32 limit_;
    std::vector<quint64> words_;
};

struct Stock
{
    int hopper;
    quint32 value;
    int count;
    int capacity;
};

bool greedyMakes(quint32 amount, QVector<Stock> stock)
{
    std::sort(stock.begin(), stock.end(), [](const Stock& a, const Stock& b) { return a.value > b.value; });
    for (const Stock& s : stock) {
        if (s.value > 0 && s.count > 0)
            amount -= quint32(std::min<quint64>(quint64(s.count), amount / s.value)) * s.value;
    }
    return amount == 0;
}

bool makeable(quint32 amount, const QVector<Stock>& stock)
{
    // Largest coins first settles most amounts at once; the exhaustive search is for the rest.
    if (amount == 0 || greedyMakes(amount, stock))
        return true;
    quint32 g = 0;
    quint64 total = 0;
    for (const Stock& s : stock) {
        if (s.count > 0 && s.value > 0) {
            g = std::gcd(g, s.value);
            total += quint64(s.value) * quint64(s.count);
        }
    }
    if (g == 0 || amount % g != 0 || total < amount || amount / g > kMaxUnits)
        return false;
    Reach reach(amount / g);
    for (const Stock& s : stock)
        if (s.count > 0)
            reach.add(s.value / g, s.count);
    return reach.has(amount / g);
}

// Largest coins first: as many of the largest coin as still leave an amount the smaller coins
// can make up exactly.
bool planLargestFirst(quint32 amount, QVector<Stock> stock, QVector<int>& take)
{
    std::stable_sort(stock.begin(), stock.end(),
                     [](const Stock& a, const Stock& b) { return a.value > b.value; });
    quint32 g = 0;
    for (const Stock& s : stock)
        if (s.count > 0 && s.value > 0)
            g = std::gcd(g, s.value);
    if (amount == 0)
        return true;
    if (g == 0 || amount % g != 0 || amount / g > kMaxUnits)
        return false;
    const quint32 units = amount / g;
    // suffix[i]: amounts the coins of stock[i..] can make.
    std::vector<Reach> suffix(stock.size() + 1, Reach(units));
    for (int i = stock.size() - 1; i >= 0; --i) {
        suffix[i] = suffix[i + 1];
        suffix[i].add(stock[i].value / g, stock[i].count);
    }
    if (!suffix[0].has(units))
        return false;
    quint32 rest = units;
    for (int i = 0; i < stock.size(); ++i) {
        const quint32 v = stock[i].value / g;
        if (v == 0)
            continue;
        int n = int(std::min<quint64>(quint64(stock[i].count), rest / v));
        while (n > 0 && !suffix[i + 1].has(rest - quint32(n) * v))
            --n;
        rest -= quint32(n) * v;
        take[stock[i].hopper - 1] += n;
    }
    return rest == 0;
}

// Fill balancing: coins come from the hopper that is fullest relative to its capacity, in steps
// that bring it down to the next fullest, as long as the rest can still be made up exactly.
bool planBalanced(quint32 amount, QVector<Stock> stock, QVector<int>& take)
{
    if (!makeable(amount, stock))
        return false;
    quint32 rest = amount;
    while (rest > 0) {
        QVector<int> order;
        for (int i = 0; i < stock.size(); ++i)
            if (stock[i].count > 0 && stock[i].value > 0 && stock[i].value <= rest)
                order.append(i);
        auto fill = [&](int i) { return double(stock[i].count) / std::max(1, stock[i].capacity); };
        std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
            if (fill(a) != fill(b))
                return fill(a) > fill(b);
            return stock[a].value > stock[b].value;
        });
        bool progressed = false;
        for (int k = 0; k < order.size() && !progressed; ++k) {
            Stock& s = stock[order[k]];
            int n = 1;
            if (k + 1 < order.size()) {
                const double gap = fill(order[k]) - fill(order[k + 1]);
                n = std::max(1, int(gap * std::max(1, s.capacity)));
            }
            n = int(std::min<quint64>({quint64(n), quint64(s.count), rest / s.value}));
            for (; n > 0; n /= 2) {
                s.count -= n;
                if (makeable(rest - quint32(n) * s.value, stock)) {
                    rest -= quint32(n) * s.value;
                    take[s.hopper - 1] += n;
                    progressed = true;
                    break;
                }
                s.count += n;
            }
        }
        if (!progressed)
            return false;
    }
    return true;
}

} // namespace

quint32 coinValue(const QString& coinId)
{
    if (coinId.size() != 6)
        return 0;
    QString digits = coinId.mid(2, 3);
    quint64 scale = 1;
    for (int i = 0; i < digits.size(); ++i) {
        const QChar c = digits.at(i);
        if (c.isDigit())
            continue;
        if (c == QLatin1Char('K'))
            scale = 1000;
        else if (c == QLatin1Char('M'))
            scale = 1000000;
        else if (c == QLatin1Char('G'))
            scale = 1000000000;
        digits[i] = QLatin1Char('.');
        break;
    }
    bool ok = false;
    const double v = digits.toDouble(&ok);
    if (!ok)
        return 0;
    return quint32(quint64(v * double(scale) + 1e-6));
}

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

QByteArray Device::refuse(quint8 src, quint8 header) const
{
    return frame::make(src, config_.address, header);
}

QByteArray Device::manifest(quint8 unit, quint8 info) const
{
    if (unit == 2) {
        switch (info) {
        case 0:
            return QByteArray(1, char(1));
        case 1:
            return text(config_.acceptorFirmware);
        case 4:
            return text(config_.acceptorModel);
        case 5:
            return le(config_.acceptorSerial, 3);
        }
        return QByteArray();
    }
    const int h = int(unit) - 2;
    if (!validHopper(h))
        return QByteArray();
    const HopperConfig& c = hoppers_[h - 1].cfg;
    switch (info) {
    case 0:
        return QByteArray(1, char(c.enabled ? 1 : 0));
    case 1:
        return text(c.firmware);
    case 4:
        return text(c.model);
    case 5:
        return le(c.serial, 3);
    case 8:
        return le(quint32(std::clamp(c.capacity, 0, 65535)), 2);
    }
    return QByteArray();
}

QByteArray Device::answer(quint8 src, quint8 header, const QByteArray& data)
{
    const QByteArray nak = refuse(src, frame::Nak);
    const QByteArray busy = refuse(src, frame::Busy);
    auto dataIs = [&](int n) { return data.size() == n; };
    auto hopperArg = [&](int pos) { return int(quint8(data.at(pos))); };

    switch (header) {
    case cmd::SimplePoll:
        return dataIs(0) ? ack(src) : nak;
    case cmd::Reset: {
        if (!dataIs(0))
            return nak;
        const QByteArray a = ack(src);
        reset();
        return a;
    }
    case cmd::ReqEquipmentCategoryId:
        return dataIs(0) ? ack(src, text(config_.equipmentCategory)) : nak;
    case cmd::ReqManufacturerId:
        return dataIs(0) ? ack(src, text(config_.manufacturer)) : nak;
    case cmd::ReqProductCode:
        return dataIs(0) ? ack(src, text(config_.productCode)) : nak;
    case cmd::ReqBuildCode:
        return dataIs(0) ? ack(src, text(config_.buildCode)) : nak;
    case cmd::ReqSoftwareRevision:
        return dataIs(0) ? ack(src, text(config_.softwareRevision)) : nak;
    case cmd::ReqSerialNumber:
        return dataIs(0) ? ack(src, le(config_.serialNumber, 3)) : nak;
    case cmd::ReqVarSet: {
        if (!dataIs(0))
            return nak;
        const int positions = config_.coinIds.isEmpty() ? 0 : std::min(16, config_.coinIds.lastKey());
        QByteArray v;
        v.append(char(positions));
        v.append(char(hoppers_.size()));
        return ack(src, v);
    }
    case cmd::ModVarSet:
        if (!dataIs(1) || (quint8(data.at(0)) != 0 && quint8(data.at(0)) != 255))
            return nak;
        fast_ = quint8(data.at(0)) == 255;
        return ack(src);
    case cmd::ReqControllerManifest: {
        if (!dataIs(2))
            return nak;
        const QByteArray m = manifest(quint8(data.at(0)), quint8(data.at(1)));
        return m.isEmpty() ? nak : ack(src, m);
    }
    case cmd::ReqCoinId: {
        if (!dataIs(1) || quint8(data.at(0)) < 1 || quint8(data.at(0)) > 16)
            return nak;
        return ack(src, coinIdBytes(config_.coinIds.value(quint8(data.at(0)))));
    }
    case cmd::ReqHopperBalance: {
        if (!dataIs(1) || !validHopper(hopperArg(0)))
            return nak;
        const Hopper& h = hoppers_[hopperArg(0) - 1];
        return ack(src, coinIdBytes(h.cfg.coinId) + le(quint32(h.count), 2));
    }
    case cmd::ModHopperBalance: {
        if (!dataIs(3) || !validHopper(hopperArg(0)))
            return nak;
        const int h = hopperArg(0);
        setHopperCount(h, int(fromLe(data, 1, 2)));
        return ack(src);
    }
    case cmd::ReqCashboxValue:
        return dataIs(0) ? ack(src, le(cashbox_, 4)) : nak;
    case cmd::ModCashboxValue:
        if (!dataIs(4))
            return nak;
        cashbox_ = fromLe(data, 0, 4);
        return ack(src);
    case cmd::ModInhibitStatus: {
        if (!dataIs(2))
            return nak;
        const quint16 mask = quint16(fromLe(data, 0, 2));
        if (inhibitMask_ == 0 && mask != 0)
            std::fill(std::begin(coinsIn_), std::end(coinsIn_), 0);
        inhibitMask_ = mask;
        return ack(src);
    }
    case cmd::ReqCoinsInByType: {
        if (!dataIs(0))
            return nak;
        QByteArray counts;
        for (quint16 c : coinsIn_)
            counts.append(le(c, 2));
        return ack(src, counts);
    }
    case cmd::ReqActivityReg:
        return dataIs(0) ? ack(src, le(activityRegister(), 2)) : nak;
    case cmd::ReqErrorStatus: {
        if (!dataIs(0))
            return nak;
        const auto e = errorStatus();
        return ack(src, QByteArray(1, char(e.first)) + QByteArray(1, char(e.second)));
    }
    case cmd::PerformSelfcheck: {
        if (!dataIs(0))
            return nak;
        const auto s = selfCheck();
        return ack(src, QByteArray(1, char(s.first)) + QByteArray(1, char(s.second)));
    }
    case cmd::ReadInputLines:
        return dataIs(0) ? ack(src, QByteArray(1, char(doorOpen_ ? 1 : 0))) : nak;
    case cmd::SetChangeAlgorithm:
        if (!dataIs(1) || (data.at(0) != 0 && data.at(0) != 2))
            return nak;
        algorithm_ = data.at(0);
        return ack(src);
    case cmd::PayMoneyOut: {
        if (!dataIs(4) || doorOpen_)
            return nak;
        if (!canStartPayout())
            return busy;
        const quint32 amount = fromLe(data, 0, 4);
        QVector<int> coins(hoppers_.size(), 0);
        if (!planPayout(amount, coins))
            return nak;
        QList<Job> jobs;
        QVector<int> order(hoppers_.size());
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
            return coinValue(hoppers_[a].cfg.coinId) > coinValue(hoppers_[b].cfg.coinId);
        });
        for (int i : order)
            if (coins[i] > 0)
                jobs.append(Job{i + 1, coins[i], false, false});
        ++payEvents_;
        lastPayByAmount_ = true;
        lastPayRequested_ = amount;
        lastPayPaid_ = 0;
        startJobs(jobs);
        return ack(src);
    }
    case cmd::VerifyMoneyOut: {
        if (!dataIs(0))
            return nak;
        const quint32 unpaid = jobs_.isEmpty() && lastPayByAmount_ ? lastPayRequested_ - lastPayPaid_ : 0;
        return ack(src, QByteArray(1, char(payEvents_)) + le(lastPayPaid_, 4) + le(unpaid, 4));
    }
    case cmd::DispenseHopperPattern: {
        if (data.size() % 2 != 0 || doorOpen_)
            return nak;
        QList<Job> jobs;
        for (int i = 0; i < data.size(); i += 2) {
            const int h = hopperArg(i);
            if (!validHopper(h) || !hoppers_[h - 1].cfg.enabled)
                return nak;
            if (quint8(data.at(i + 1)) > 0)
                jobs.append(Job{h, quint8(data.at(i + 1)), false, false});
        }
        if (!canStartPayout())
            return busy;
        lastPayByAmount_ = false;
        startJobs(jobs);
        return ack(src);
    }
    case cmd::PurgeHopper: {
        if (!dataIs(2) || !validHopper(hopperArg(0)) || !hoppers_[hopperArg(0) - 1].cfg.enabled || doorOpen_)
            return nak;
        if (!canStartPayout())
            return busy;
        const int count = quint8(data.at(1));
        lastPayByAmount_ = false;
        startJobs({Job{hopperArg(0), count, true, count == 0}});
        return ack(src);
    }
    case cmd::ReqAuditCounter:
    case cmd::ClearAuditCounter: {
        if (!dataIs(2))
            return nak;
        const quint8 group = quint8(data.at(0)), index = quint8(data.at(1));
        quint32* counter = nullptr;
        if (group == audit::Accepted && index >= 1 && index <= 16)
            counter = &accepted_[index - 1];
        else if (group == audit::PaidOut && validHopper(index))
            counter = &hoppers_[index - 1].paidOut;
        else if (group == audit::Purged && validHopper(index))
            counter = &hoppers_[index - 1].purged;
        if (!counter)
            return nak;
        if (header == cmd::ClearAuditCounter) {
            *counter = 0;
            return ack(src);
        }
        return ack(src, le(*counter, 4));
    }
    case cmd::ReqRealTimeClock:
        return dataIs(0) ? ack(src, le(quint32(deviceClock()), 4)) : nak;
    case cmd::ModRealTimeClock:
        if (!dataIs(4))
            return nak;
        clockOffset_ = qint64(fromLe(data, 0, 4)) - wallClock_();
        return ack(src);
    }
    return nak;
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
    return algorithm_ == 2 ? planBalanced(amount, stock, coins) : planLargestFirst(amount, stock, coins);
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
        eventModule_ = quint8(job.hopper);
        eventCode_ = errcode::HopperJam;
        eventFault_ = true;
        jobs_.clear();
    } else if (h.physical == 0) {
        h.count = 0;
        if (!job.untilEmpty) {
            eventModule_ = quint8(job.hopper);
            eventCode_ = errcode::HopperEmpty;
            eventWarning_ = true;
        }
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
    eventModule_ = eventCode_ = 0;
    eventFault_ = eventWarning_ = false;
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
    forcedModule_ = module;
    forcedCode_ = code;
}

void Device::setSelfCheck(quint8 fault, quint8 subCode)
{
    forcedFault_ = fault;
    forcedSub_ = subCode;
}

void Device::setActivityBits(quint16 bits)
{
    forcedBits_ = bits;
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
    eventModule_ = quint8(hopper);
    eventCode_ = errcode::HopperJam;
    eventFault_ = true;
}

void Device::emptyHopper(int hopper)
{
    if (validHopper(hopper))
        hoppers_[hopper - 1].physical = 0;
}

void Device::openDoor(bool open)
{
    doorOpen_ = open;
}

void Device::setHopperCount(int hopper, int count)
{
    if (!validHopper(hopper))
        return;
    Hopper& h = hoppers_[hopper - 1];
    h.count = h.physical = std::clamp(count, 0, 65535);
    if (eventCode_ == errcode::HopperEmpty && eventModule_ == hopper && h.count > 0) {
        eventModule_ = eventCode_ = 0;
        eventWarning_ = false;
    }
}

void Device::setCashbox(quint32 value)
{
    cashbox_ = value;
}

void Device::clearFaults()
{
    forcedModule_ = forcedCode_ = forcedFault_ = forcedSub_ = 0;
    forcedBits_ = 0;
    eventModule_ = eventCode_ = 0;
    eventFault_ = eventWarning_ = false;
    doorOpen_ = false;
    for (Hopper& h : hoppers_)
        h.jammed = false;
}

int Device::hopperCount(int hopper) const
{
    return validHopper(hopper) ? hoppers_[hopper - 1].count : -1;
}

quint16 Device::activityRegister() const
{
    quint16 bits = forcedBits_;
    if (!inFlight_.isEmpty())
        bits |= activity::Accepting;
    if (!jobs_.isEmpty())
        bits |= activity::Paying;
    if (eventFault_ || doorOpen_)
        bits |= activity::Fault;
    if (initUntil_ >= 0)
        bits |= activity::Initialising;
    if (eventWarning_)
        bits |= activity::Warning;
    return bits;
}

QPair<quint8, quint8> Device::errorStatus() const
{
    if (forcedModule_ || forcedCode_)
        return {forcedModule_, forcedCode_};
    if (eventCode_)
        return {eventModule_, eventCode_};
    if (doorOpen_)
        return {errcode::NeedSelfCheck, errcode::NeedSelfCheck};
    return {0, 0};
}

QPair<quint8, quint8> Device::selfCheck() const
{
    if (forcedFault_)
        return {forcedFault_, forcedSub_};
    if (doorOpen_)
        return {selfcheck::DoorOpen, 0};
    return {0, 0};
}

quint16 Device::coinsInByType(int position) const
{
    return position >= 1 && position <= 16 ? coinsIn_[position - 1] : 0;
}

quint32 Device::auditCounter(quint8 group, quint8 index) const
{
    if (group == audit::Accepted && index >= 1 && index <= 16)
        return accepted_[index - 1];
    if (group == audit::PaidOut && validHopper(index))
        return hoppers_[index - 1].paidOut;
    if (group == audit::Purged && validHopper(index))
        return hoppers_[index - 1].purged;
    return 0;
}

int Device::coinsQueuedForPayout() const
{
    int n = 0;
    for (const Job& j : jobs_)
        n += j.untilEmpty ? hoppers_[j.hopper - 1].physical : j.count;
    return n;
}

} // namespace sim
