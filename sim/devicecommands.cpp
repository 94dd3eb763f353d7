#include "changesearch.h"
#include "device.h"

#include <algorithm>
#include <iterator>
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

QByteArray twoBytes(const QPair<quint8, quint8>& p)
{
    return QByteArray(1, char(p.first)) + QByteArray(1, char(p.second));
}

int byteAt(const QByteArray& data, int pos)
{
    return int(quint8(data.at(pos)));
}

} // namespace

const Device::Command Device::commands_[] = {
    {cmd::Reset, 0, &Device::onReset},
    {cmd::SetChangeAlgorithm, 1, &Device::onSetChangeAlgorithm},
    {cmd::ReqCoinsInByType, 0, &Device::onReqCoinsInByType},
    {cmd::ReqControllerManifest, 2, &Device::onReqControllerManifest},
    {cmd::DispenseHopperPattern, -1, &Device::onDispenseHopperPattern},
    {cmd::ReqAuditCounter, 2, &Device::onReqAuditCounter},
    {cmd::ClearAuditCounter, 2, &Device::onClearAuditCounter},
    {cmd::ReqRealTimeClock, 0, &Device::onReqRealTimeClock},
    {cmd::ModRealTimeClock, 4, &Device::onModRealTimeClock},
    {cmd::ReqCashboxValue, 0, &Device::onReqCashboxValue},
    {cmd::ModCashboxValue, 4, &Device::onModCashboxValue},
    {cmd::ReqHopperBalance, 1, &Device::onReqHopperBalance},
    {cmd::ModHopperBalance, 3, &Device::onModHopperBalance},
    {cmd::PurgeHopper, 2, &Device::onPurgeHopper},
    {cmd::ReqErrorStatus, 0, &Device::onReqErrorStatus},
    {cmd::ReqActivityReg, 0, &Device::onReqActivityReg},
    {cmd::VerifyMoneyOut, 0, &Device::onVerifyMoneyOut},
    {cmd::PayMoneyOut, 4, &Device::onPayMoneyOut},
    {cmd::ModVarSet, 1, &Device::onModVarSet},
    {cmd::ReqCoinId, 1, &Device::onReqCoinId},
    {cmd::ReqBuildCode, 0, &Device::onReqBuildCode},
    {cmd::ModInhibitStatus, 2, &Device::onModInhibitStatus},
    {cmd::PerformSelfcheck, 0, &Device::onPerformSelfcheck},
    {cmd::ReadInputLines, 0, &Device::onReadInputLines},
    {cmd::ReqSoftwareRevision, 0, &Device::onReqSoftwareRevision},
    {cmd::ReqSerialNumber, 0, &Device::onReqSerialNumber},
    {cmd::ReqProductCode, 0, &Device::onReqProductCode},
    {cmd::ReqEquipmentCategoryId, 0, &Device::onReqEquipmentCategoryId},
    {cmd::ReqManufacturerId, 0, &Device::onReqManufacturerId},
    {cmd::ReqVarSet, 0, &Device::onReqVarSet},
    {cmd::SimplePoll, 0, &Device::onSimplePoll},
};
const int Device::commandCount_ = int(std::size(Device::commands_));

QByteArray Device::onSimplePoll(quint8 src, const QByteArray&)
{
    return ack(src);
}

QByteArray Device::onReset(quint8 src, const QByteArray&)
{
    const QByteArray a = ack(src);
    reset();
    return a;
}

QByteArray Device::onReqEquipmentCategoryId(quint8 src, const QByteArray&)
{
    return ack(src, text(config_.equipmentCategory));
}

QByteArray Device::onReqManufacturerId(quint8 src, const QByteArray&)
{
    return ack(src, text(config_.manufacturer));
}

QByteArray Device::onReqProductCode(quint8 src, const QByteArray&)
{
    return ack(src, text(config_.productCode));
}

QByteArray Device::onReqBuildCode(quint8 src, const QByteArray&)
{
    return ack(src, text(config_.buildCode));
}

QByteArray Device::onReqSoftwareRevision(quint8 src, const QByteArray&)
{
    return ack(src, text(config_.softwareRevision));
}

QByteArray Device::onReqSerialNumber(quint8 src, const QByteArray&)
{
    return ack(src, le(config_.serialNumber, 3));
}

QByteArray Device::onReqVarSet(quint8 src, const QByteArray&)
{
    const int positions = config_.coinIds.isEmpty() ? 0 : std::min(16, config_.coinIds.lastKey());
    QByteArray v;
    v.append(char(positions));
    v.append(char(hoppers_.size()));
    return ack(src, v);
}

QByteArray Device::onModVarSet(quint8 src, const QByteArray& data)
{
    if (byteAt(data, 0) != 0 && byteAt(data, 0) != 255)
        return nak(src);
    fast_ = byteAt(data, 0) == 255;
    return ack(src);
}

QByteArray Device::manifest(quint8 unit, quint8 info) const
{
    const int h = int(unit) - unitinfo::CoinAcceptor;
    if (unit != unitinfo::CoinAcceptor && !validHopper(h))
        return QByteArray();
    // The coin acceptor answers from the configuration's acceptor items, a hopper from its own.
    const HopperConfig* hopper = unit == unitinfo::CoinAcceptor ? nullptr : &hoppers_[h - 1].cfg;
    switch (info) {
    case unitinfo::Enabled:
        return QByteArray(1, char(!hopper || hopper->enabled ? 1 : 0));
    case unitinfo::Firmware:
        return text(hopper ? hopper->firmware : config_.acceptorFirmware);
    case unitinfo::Model:
        return text(hopper ? hopper->model : config_.acceptorModel);
    case unitinfo::SerialNumber:
        return le(hopper ? hopper->serial : config_.acceptorSerial, 3);
    case unitinfo::Capacity:
        if (hopper)
            return le(quint32(std::clamp(hopper->capacity, 0, 65535)), 2);
        break;
    }
    return QByteArray();
}

QByteArray Device::onReqControllerManifest(quint8 src, const QByteArray& data)
{
    const QByteArray m = manifest(quint8(data.at(0)), quint8(data.at(1)));
    return m.isEmpty() ? nak(src) : ack(src, m);
}

QByteArray Device::onReqCoinId(quint8 src, const QByteArray& data)
{
    if (byteAt(data, 0) < 1 || byteAt(data, 0) > 16)
        return nak(src);
    return ack(src, coinIdBytes(config_.coinIds.value(byteAt(data, 0))));
}

QByteArray Device::onReqHopperBalance(quint8 src, const QByteArray& data)
{
    if (!validHopper(byteAt(data, 0)))
        return nak(src);
    const Hopper& h = hoppers_[byteAt(data, 0) - 1];
    return ack(src, coinIdBytes(h.cfg.coinId) + le(quint32(h.count), 2));
}

QByteArray Device::onModHopperBalance(quint8 src, const QByteArray& data)
{
    if (!validHopper(byteAt(data, 0)))
        return nak(src);
    setHopperCount(byteAt(data, 0), int(fromLe(data, 1, 2)));
    return ack(src);
}

QByteArray Device::onReqCashboxValue(quint8 src, const QByteArray&)
{
    return ack(src, le(cashbox_, 4));
}

QByteArray Device::onModCashboxValue(quint8 src, const QByteArray& data)
{
    cashbox_ = fromLe(data, 0, 4);
    return ack(src);
}

QByteArray Device::onModInhibitStatus(quint8 src, const QByteArray& data)
{
    const quint16 mask = quint16(fromLe(data, 0, 2));
    if (inhibitMask_ == 0 && mask != 0)
        std::fill(std::begin(coinsIn_), std::end(coinsIn_), 0);
    inhibitMask_ = mask;
    return ack(src);
}

QByteArray Device::onReqCoinsInByType(quint8 src, const QByteArray&)
{
    QByteArray counts;
    for (quint16 c : coinsIn_)
        counts.append(le(c, 2));
    return ack(src, counts);
}

QByteArray Device::onReqActivityReg(quint8 src, const QByteArray&)
{
    return ack(src, le(activityRegister(), 2));
}

QByteArray Device::onReqErrorStatus(quint8 src, const QByteArray&)
{
    return ack(src, twoBytes(errorStatus()));
}

QByteArray Device::onPerformSelfcheck(quint8 src, const QByteArray&)
{
    return ack(src, twoBytes(selfCheck()));
}

QByteArray Device::onReadInputLines(quint8 src, const QByteArray&)
{
    return ack(src, QByteArray(1, char(faults_.doorOpen() ? 1 : 0)));
}

QByteArray Device::onSetChangeAlgorithm(quint8 src, const QByteArray& data)
{
    if (data.at(0) != changealgorithm::LargestFirst && data.at(0) != changealgorithm::Balanced)
        return nak(src);
    algorithm_ = data.at(0);
    return ack(src);
}

QByteArray Device::onPayMoneyOut(quint8 src, const QByteArray& data)
{
    if (faults_.doorOpen())
        return nak(src);
    if (!canStartPayout())
        return busy(src);
    const quint32 amount = fromLe(data, 0, 4);
    QVector<int> coins(hoppers_.size(), 0);
    if (!planPayout(amount, coins))
        return nak(src);
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

QByteArray Device::onVerifyMoneyOut(quint8 src, const QByteArray&)
{
    const quint32 unpaid = jobs_.isEmpty() && lastPayByAmount_ ? lastPayRequested_ - lastPayPaid_ : 0;
    return ack(src, QByteArray(1, char(payEvents_)) + le(lastPayPaid_, 4) + le(unpaid, 4));
}

QByteArray Device::onDispenseHopperPattern(quint8 src, const QByteArray& data)
{
    if (data.size() % 2 != 0 || faults_.doorOpen())
        return nak(src);
    QList<Job> jobs;
    for (int i = 0; i < data.size(); i += 2) {
        const int h = byteAt(data, i);
        if (!validHopper(h) || !hoppers_[h - 1].cfg.enabled)
            return nak(src);
        if (byteAt(data, i + 1) > 0)
            jobs.append(Job{h, byteAt(data, i + 1), false, false});
    }
    if (!canStartPayout())
        return busy(src);
    lastPayByAmount_ = false;
    startJobs(jobs);
    return ack(src);
}

QByteArray Device::onPurgeHopper(quint8 src, const QByteArray& data)
{
    const int h = byteAt(data, 0);
    if (!validHopper(h) || !hoppers_[h - 1].cfg.enabled || faults_.doorOpen())
        return nak(src);
    if (!canStartPayout())
        return busy(src);
    const int count = byteAt(data, 1);
    lastPayByAmount_ = false;
    startJobs({Job{h, count, true, count == 0}});
    return ack(src);
}

QByteArray Device::onReqAuditCounter(quint8 src, const QByteArray& data)
{
    const quint32* counter = auditSlot(quint8(data.at(0)), quint8(data.at(1)));
    return counter ? ack(src, le(*counter, 4)) : nak(src);
}

QByteArray Device::onClearAuditCounter(quint8 src, const QByteArray& data)
{
    quint32* counter = auditSlot(quint8(data.at(0)), quint8(data.at(1)));
    if (!counter)
        return nak(src);
    *counter = 0;
    return ack(src);
}

QByteArray Device::onReqRealTimeClock(quint8 src, const QByteArray&)
{
    return ack(src, le(quint32(deviceClock()), 4));
}

QByteArray Device::onModRealTimeClock(quint8 src, const QByteArray& data)
{
    clockOffset_ = qint64(fromLe(data, 0, 4)) - wallClock_();
    return ack(src);
}

} // namespace sim
