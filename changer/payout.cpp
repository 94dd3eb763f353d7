// Payouts: the split over the hoppers, the payout commands and what came out.
#include "changer/changer.h"

#include "cashcontrol/units.h"
#include "cctalk/commands.h"
#include "changer/changerdetail.h"

#include <QPair>

#include <algorithm>

namespace CcTalk {

using namespace changer;

namespace {

// Longest data for which a frame carries the ordinary ccTalk checksum.
const int maxFrameData = 123;
const long long coinsPerPair = 255;

QString payoutWaitText()
{
    return QStringLiteral("завершения выдачи монет");
}

bool timedOut(const Exception& e)
{
    return QString::fromUtf8(e.what()) == QStringLiteral("Таймаут ожидания ") + payoutWaitText();
}

// Data bytes of a dispense pattern asking a hopper for count coins.
long long patternBytes(long long count)
{
    if (count <= 0)
        return count == 0 ? 0 : 2;
    return 2 * (count / coinsPerPair + (count % coinsPerPair != 0 ? 1 : 0));
}

} // namespace

void Changer::refuseAmount() const
{
    throwError<Exception>(QStringLiteral("Некорректная сумма"));
}

SumDetailed Changer::cashOut(ECashControl::ChangeMode mode, long long sum)
{
    // The payout command carries the amount in 32 bits.
    if (sum < 0 || sum > 0xFFFFFFFFLL)
        refuseAmount();
    takeSnapshot();
    exec(SetChangeAlgorithm(mode == ECashControl::Optimal ? SetChangeAlgorithm::Balanced
                                                          : SetChangeAlgorithm::LargestFirst));
    PayoutPlan plan;
    plan.amount = sum;
    return payOut(PayMoneyOut(static_cast<unsigned int>(sum)), payoutEndPolls, plan);
}

SumDetailed Changer::cashOut(SumDetailed coins)
{
    return cashOut(coins, ECashControl::Minimum);
}

namespace {

// Fill relative to capacity, compared without division; without a capacity on either
// side the counts decide.
bool fuller(const CashControlUnit& a, const CashControlUnit& b)
{
    if (a.capacity > 0 && b.capacity > 0)
        return a.count * b.capacity > b.count * a.capacity;
    return a.count > b.count;
}

} // namespace

SumDetailed Changer::cashOut(SumDetailed coins, ECashControl::ChangeMode mode)
{
    for (auto it = coins.denoms.constBegin(); it != coins.denoms.constEnd(); ++it) {
        if (it.value() < 0)
            refuseAmount();
    }
    // Hoppers by denomination, the denominations in the order their first hopper is listed.
    QList<unsigned int> order;
    QMap<unsigned int, QList<CashControlUnit>> byDenom;
    const QList<CashControlUnit> known = units;
    for (const CashControlUnit& unit : known) {
        if (unit.type != cashunits::hopperType || coins.denoms.value(unit.denom, 0) == 0)
            continue;
        if (!byDenom.contains(unit.denom))
            order.append(unit.denom);
        byDenom[unit.denom].append(unit);
    }
    // The pattern is planned before anything is sent, so that a request too long for
    // one frame never reaches the device.
    QList<QPair<unsigned char, long long>> pairs;
    PayoutPlan plan;
    long long bytes = 0;
    for (const unsigned int denom : order) {
        QList<CashControlUnit> hoppers = byDenom.value(denom);
        if (mode == ECashControl::Optimal)
            std::stable_sort(hoppers.begin(), hoppers.end(), fuller);
        QList<long long> counts;
        long long left = coins.denoms.value(denom);
        plan.coins.denoms[denom] = left;
        for (const CashControlUnit& hopper : hoppers) {
            const long long n = std::min(left, std::max(hopper.count, 0LL));
            counts.append(n);
            left -= n;
        }
        counts[0] += left;
        for (int i = 0; i < hoppers.size(); ++i) {
            if (counts.at(i) == 0)
                continue;
            bytes += patternBytes(counts.at(i));
            if (bytes > maxFrameData)
                refuseAmount();
            pairs.append(qMakePair(hopperNumber(hoppers.at(i).name), counts.at(i)));
        }
    }

    takeSnapshot();
    DispenseHopperPattern pattern;
    unsigned long long asked = 0;
    for (const auto& entry : pairs) {
        pattern.addCount(entry.first, entry.second);
        asked += entry.second;
    }
    return payOut(pattern, payoutPolls(asked), plan);
}

SumDetailed Changer::cashOut(unsigned char hopper, unsigned int count)
{
    if (patternBytes(count) > maxFrameData)
        refuseAmount();
    takeSnapshot();
    DispenseHopperPattern pattern;
    pattern.addCount(hopper, count);
    PayoutPlan plan;
    const QList<CashControlUnit> known = units;
    for (const CashControlUnit& unit : known) {
        if (unit.type == cashunits::hopperType && hopperNumber(unit.name) == hopper)
            plan.coins.denoms[unit.denom] = count;
    }
    return payOut(pattern, payoutPolls(count), plan);
}

bool Changer::PayoutPlan::matches(const SumDetailed& paid) const
{
    if (amount >= 0)
        return paid.sum() == amount;
    if (coins.denoms.isEmpty())
        return false;
    QMap<unsigned int, long long> all = paid.denoms;
    for (auto it = coins.denoms.constBegin(); it != coins.denoms.constEnd(); ++it)
        all[it.key()];
    for (auto it = all.constBegin(); it != all.constEnd(); ++it) {
        if (it.value() != coins.denoms.value(it.key(), 0))
            return false;
    }
    return true;
}

void Changer::takeSnapshot()
{
    reportFinishedPayout();
    // Its coins would count for the next payout.
    if (payoutUnfinished)
        throwError<Exception>(QStringLiteral("Предыдущая выдача не завершена"));
    snapshot = readDispenseCounters();
}

SumDetailed Changer::payOut(const Request& command, int polls, const PayoutPlan& plan)
{
    QString failure;
    bool paying = false;
    try {
        sendPayout(command);
        waitNotState(ReqActivityRegResp::Payout, polls, payoutWaitText(), true);
        // A purge runs until the hopper is empty, so its end tells nothing of its own; a
        // restart of the device ends it as well.
        if (plan.untilEmpty && restarting())
            throwError<Exception>(QStringLiteral("Выдача прервана перезапуском устройства"));
        return getLastCashOut();
    } catch (const Exception& e) {
        failure = e.message();
        // A wait that ran out its polls is not repeated.
        paying = timedOut(e);
    }
    return afterFailedPayout(failure, paying, polls, plan);
}

void Changer::sendPayout(const Request& command)
{
    try {
        exec(command);
    } catch (const NakException&) {
        throw;
    } catch (const BusyException&) {
        throw;
    } catch (const Exception&) {
        // The answer was lost, not necessarily the command, and the command is never sent
        // twice. A purge's end is not known in advance: the device tells whether it is
        // purging or has purged.
        if (command.getHeader() != Header::purgeHopper)
            throw;
        bool purging = false;
        try {
            purging = payoutSeen();
        } catch (const Exception&) {
        }
        if (!purging)
            throw;
        logWarn(QStringLiteral("Ответ на команду потерян, устройство ее выполняет"));
    }
}

SumDetailed Changer::afterFailedPayout(const QString& failure, bool paying, int polls, const PayoutPlan& plan)
{
    // Measured from the counters once the device has stopped paying.
    if (!paying)
        paying = !waitPayoutEnd(polls);
    DispenseCounters::Difference paid;
    bool read = true;
    try {
        paid = readDispenseCounters().since(snapshot);
    } catch (const Exception&) {
        read = false;
    }
    if (!read || !paid.known) {
        logWarn(read ? QStringLiteral("Выдано: неизвестно, счетчики хопперов сброшены")
                     : QStringLiteral("Выдано: неизвестно, счетчики хопперов не прочитаны"));
        throw Exception(failure + cashcontrol::paidUnknownSuffix(), getName());
    }
    if (paying) {
        payoutUnfinished = true;
        logWarn(QStringLiteral("Выдано не менее ") + paid.coins.toString());
        throw Exception(failure + cashcontrol::paidAtLeastSuffix(paid.coins.sum()), getName());
    }
    if (plan.matches(paid.coins)) {
        logWarn(QStringLiteral("Выдача выполнена полностью, несмотря на ошибку: ") + failure);
        return paid.coins;
    }
    logWarn(QStringLiteral("Выдано ") + paid.coins.toString());
    throw Exception(failure + cashcontrol::paidSuffix(paid.coins.sum()), getName());
}

bool Changer::waitPayoutEnd(int polls)
{
    try {
        waitNotState(ReqActivityRegResp::Payout, polls, payoutWaitText(), false);
        return true;
    } catch (const Exception&) {
        return false;
    }
}

void Changer::reportFinishedPayout()
{
    if (!payoutUnfinished)
        return;
    const ReqActivityRegResp activity(exec(ReqActivityReg()));
    if (activity.checkFlag(ReqActivityRegResp::Payout))
        return;
    const DispenseCounters::Difference paid = readDispenseCounters().since(snapshot);
    payoutUnfinished = false;
    if (paid.known)
        logWarn(QStringLiteral("Выдача завершена, выдано ") + paid.coins.toString());
    else
        logWarn(QStringLiteral("Выдача завершена, выдано: неизвестно, счетчики хопперов сброшены"));
}

SumDetailed Changer::purge(unsigned char hopper)
{
    takeSnapshot();
    PayoutPlan plan;
    plan.untilEmpty = true;
    return payOut(PurgeHopper(hopper, 0), purgePolls, plan);
}

bool Changer::restarting()
{
    const ReqActivityRegResp activity(exec(ReqActivityReg()));
    return activity.checkFlag(ReqActivityRegResp::Initialisation);
}

bool Changer::payoutSeen()
{
    const ReqActivityRegResp activity(exec(ReqActivityReg()));
    if (activity.checkFlag(ReqActivityRegResp::Payout))
        return true;
    const DispenseCounters::Difference paid = readDispenseCounters().since(snapshot);
    return !paid.known || paid.coins.sum() != 0;
}

SumDetailed Changer::getLastCashOut()
{
    const DispenseCounters::Difference paid = readDispenseCounters().since(snapshot);
    if (!paid.known)
        throwError<Exception>(QStringLiteral("Счетчики выдачи сброшены устройством"));
    return paid.coins;
}

} // namespace CcTalk
