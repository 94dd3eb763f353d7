// The change computation over arbitrary unit lists and amounts. Whatever the units, the plan
// never exceeds the amount, holds only positive counts of denominations the hoppers have, and
// never asks a denomination for more coins than its hoppers hold together. In the minimum mode
// it is the largest-first plan; in the optimal mode it either makes up the amount exactly or
// falls back to that plan.

#include "cashcontrol/basiccashcontrol.h"
#include "fuzzinput.h"

#include <QMap>

#include <algorithm>
#include <map>

namespace {

using fuzz::check;

// Coins per denomination over the hoppers (type 1) that can pay; the cashbox and
// other units never pay change. Wide sums need the alignment QMap does not give them.
using Holdings = std::map<unsigned int, __int128>;

Holdings holdings(const QList<CashControlUnit>& units)
{
    Holdings held;
    for (const CashControlUnit& u : units) {
        if (u.type == 1 && u.denom != 0)
            held[u.denom] += std::max(u.count, 0LL);
    }
    return held;
}

// Largest first over whole denominations: hoppers of one denomination pay together, so the
// order among them does not matter.
QMap<unsigned int, long long> largestFirst(const Holdings& held, long long amount)
{
    QMap<unsigned int, long long> plan;
    if (amount <= 0)
        return plan;
    long long remaining = amount;
    for (auto it = held.rbegin(); it != held.rend(); ++it) {
        const long long d = it->first;
        const __int128 n = std::min<__int128>(remaining / d, it->second);
        if (n > 0) {
            plan[it->first] = static_cast<long long>(n);
            remaining -= static_cast<long long>(n) * d;
        }
    }
    return plan;
}

CashControlUnit unitFrom(fuzz::FuzzInput& input)
{
    CashControlUnit u;
    const uint8_t kind = input.takeByte();
    // Mostly hoppers; now and then a cashbox or a unit of another kind.
    u.type = kind < 200 ? 1 : kind < 230 ? 3 : kind;
    u.name = u.type == 3 ? QStringLiteral("cashbox") : QStringLiteral("hopper%1").arg(kind % 16 + 1);
    const uint8_t width = input.takeByte();
    // Real denominations are small; the full range comes up as well.
    u.denom = width & 0x80 ? input.take<quint32>() : input.take<quint16>();
    u.count = width & 0x40 ? input.take<qint64>() : input.take<quint16>();
    u.capacity = width & 0x20 ? input.take<qint32>() : input.take<quint16>();
    u.state = width & 0x03;
    u.sum = static_cast<long long>(quint64(u.count) * u.denom);
    return u;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    fuzz::FuzzInput input(bytes, size);
    const uint8_t flags = input.takeByte();
    const auto mode = flags & 1 ? ECashControl::Minimum : ECashControl::Optimal;
    const long long amount = flags & 2 ? input.take<qint64>() : input.take<quint32>();
    QList<CashControlUnit> units;
    while (!input.empty() && units.size() < 64)
        units << unitFrom(input);

    const SumDetailed plan = hw::BasicCashControl::calcDenomSums(units, amount, mode);
    const Holdings held = holdings(units);

    check(plan.rest == 0 && plan.extra == 0, "the plan carries a rest or an extra amount");
    __int128 total = 0;
    for (auto it = plan.denoms.cbegin(); it != plan.denoms.cend(); ++it) {
        check(it.value() > 0, "a count in the plan is not positive");
        const auto holding = held.find(it.key());
        check(holding != held.end(), "the plan names a denomination no hopper holds");
        check(it.value() <= holding->second, "more coins than the hoppers hold");
        total += __int128(it.key()) * it.value();
    }
    check(total <= (amount > 0 ? amount : 0), "the plan exceeds the amount");
    check(total == plan.sum(), "sum() differs from the plan");
    if (amount <= 0)
        check(plan.denoms.isEmpty(), "a plan for nothing");

    const QMap<unsigned int, long long> greedy = largestFirst(held, amount);
    if (mode == ECashControl::Minimum)
        check(plan.denoms == greedy, "the minimum mode is not largest first");
    else
        check(total == amount || plan.denoms == greedy, "the optimal mode fell short without the fall-back");
    return 0;
}
