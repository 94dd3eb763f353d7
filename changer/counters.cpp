// Counters: coins accepted and paid out, and the balances the device cannot measure.
#include "changer/changer.h"

#include "cashcontrol/units.h"
#include "cctalk/commands.h"
#include "changer/changerdetail.h"

#include <QStringList>

namespace CcTalk {

using namespace changer;

SumDetailed Changer::getAcceptedCounters()
{
    waitNotState(ReqActivityRegResp::CoinAcceptance, acceptanceEndBeforeCountersPolls,
                 QStringLiteral("завершения приема монет"), true);
    SumDetailed accepted;
    for (auto it = coinDenoms.constBegin(); it != coinDenoms.constEnd(); ++it) {
        const ReqAuditCounterResp counter(exec(ReqAuditCounter(acceptedGroup, it.key())));
        accepted.denoms[it.value()] += counter.value();
    }
    return accepted;
}

QMap<unsigned int, long long> Changer::getHoppersCounters()
{
    return readDispenseCounters().totals();
}

DispenseCounters Changer::readDispenseCounters()
{
    DispenseCounters counters;
    QStringList entries;
    const QList<CashControlUnit> known = units;
    for (const CashControlUnit& unit : known) {
        if (unit.type != cashunits::hopperType)
            continue;
        DispenseCounters::Hopper hopper;
        hopper.number = hopperNumber(unit.name);
        hopper.denom = unit.denom;
        hopper.paidOut = ReqAuditCounterResp(exec(ReqAuditCounter(paidOutGroup, hopper.number))).value();
        hopper.purged = ReqAuditCounterResp(exec(ReqAuditCounter(purgedGroup, hopper.number))).value();
        counters.add(hopper);
        const long long total = static_cast<long long>(hopper.paidOut) + hopper.purged;
        entries << QStringLiteral("%1 x %2").arg(amountText(unit.denom), QString::number(total));
    }
    logInfo(QStringLiteral("Счетчики хопперов: ") + entries.join(QStringLiteral(", ")));
    return counters;
}

SumDetailed Changer::getDispensedCounters()
{
    waitNotState(ReqActivityRegResp::Payout, payoutEndPolls, QStringLiteral("завершения выема монет"), true);
    SumDetailed dispensed;
    dispensed.denoms = getHoppersCounters();
    return dispensed;
}

void Changer::setCashboxSum(unsigned int sum)
{
    exec(ModifyCashboxValue(sum));
}

void Changer::setHopperCount(unsigned char hopper, unsigned short count)
{
    exec(ModHopperBalance(hopper, count));
}

unsigned int Changer::getHopperCount(unsigned char hopper)
{
    const ReqHopperBalanceResp balance(exec(ReqHopperBalance(hopper)));
    return balance.getCount();
}

unsigned int Changer::getCashboxSum()
{
    const ReqCashboxValueResp cashbox(exec(ReqCashboxValue()));
    return cashbox.getSum();
}

} // namespace CcTalk
