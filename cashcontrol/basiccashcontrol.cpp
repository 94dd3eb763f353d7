#include "cashcontrol/basiccashcontrol.h"

#include "cashcontrol/units.h"
#include "host/qtcompat.h"

#include <QMetaType>

#include <algorithm>
#include <limits>

namespace hw {

namespace {

// The balancing constants: denomination ratio beyond which no balancing is
// tried, margin in coins a smaller hopper must exceed the equal-fill count by,
// largest quotient left entirely to the smaller hopper, most coins one shift moves.
const long long balanceRatio = 5;
const long double fillMargin = 5.0L;
const long long leaveQuotient = 5;
const long long shiftCoins = 5;

long long available(const CashControlUnit& unit)
{
    return std::max(unit.count, 0LL);
}

void take(SumDetailed& plan, long long& remaining, unsigned int denom, long long n)
{
    if (n <= 0) {
        return;
    }
    plan.denoms[denom] += n;
    remaining -= n * static_cast<long long>(denom);
}

SumDetailed largestFirst(const QList<CashControlUnit>& hoppers, long long amount)
{
    SumDetailed plan;
    long long remaining = amount;
    for (const CashControlUnit& hopper : hoppers) {
        const long long d = hopper.denom;
        take(plan, remaining, hopper.denom, std::min(remaining / d, available(hopper)));
    }
    return plan;
}

// Count hopper j would hold at the fill ratio of hopper i, plus the margin.
// Without a capacity of hopper i the ratio is infinite, or undefined when the
// product is 0; either way hopper j does not count as clearly fuller.
long double equalFillCount(const CashControlUnit& j, long long countI, int capacityI)
{
    const long double product = static_cast<long double>(j.capacity) * static_cast<long double>(countI);
    if (capacityI == 0) {
        if (product == 0) {
            return std::numeric_limits<long double>::quiet_NaN();
        }
        return product > 0 ? std::numeric_limits<long double>::infinity()
                           : -std::numeric_limits<long double>::infinity();
    }
    return product / capacityI + fillMargin;
}

SumDetailed balanced(const QList<CashControlUnit>& hoppers, long long amount)
{
    SumDetailed plan;
    long long remaining = amount;
    const int last = hoppers.size() - 1;
    for (int i = 0; i <= last; ++i) {
        const CashControlUnit& hopper = hoppers.at(i);
        const long long d = hopper.denom;
        const long long c = available(hopper);
        long long n = std::min(remaining / d, c);
        if (n <= 0) {
            continue;
        }

        int fuller = -1;
        for (int j = i + 1; j <= last; ++j) {
            const CashControlUnit& next = hoppers.at(j);
            if (d / static_cast<long long>(next.denom) > balanceRatio) {
                break;
            }
            // Written as "count >= t" so that an undefined t never makes hopper j fuller.
            if (static_cast<long double>(available(next)) >= equalFillCount(next, c, hopper.capacity)) {
                fuller = j;
                break;
            }
        }

        if (fuller >= 0) {
            const CashControlUnit& next = hoppers.at(fuller);
            const long long dj = next.denom;
            if (remaining % dj == 0 && remaining / dj <= leaveQuotient) {
                continue;
            }
            const long long x = std::min(available(next), shiftCoins);
            long long y = x * dj / d;
            if (d % dj != 0) {
                --y;
            }
            // A negative shift would add coins beyond the remainder or the hopper's count.
            y = std::clamp(y, 0LL, n);
            n -= y;
        }
        take(plan, remaining, hopper.denom, n);
    }
    if (remaining != 0) {
        return largestFirst(hoppers, amount);
    }
    return plan;
}

} // namespace

BasicCashControl::BasicCashControl(QObject* parent)
    : QObject(parent), logger(logging::rootLogger()), type(0), options(0)
{
    if (!QMetaType::type("SumDetailed"))
        qRegisterMetaType<SumDetailed>("SumDetailed");
}

int BasicCashControl::getType() const
{
    return type;
}

QString BasicCashControl::getTypeName() const
{
    return type == cashunits::coinDevice ? QStringLiteral("coins") : QStringLiteral("bills");
}

QString BasicCashControl::name() const
{
    return cashunits::deviceName(type);
}

QString BasicCashControl::denomName(bool plural) const
{
    QString word = type == cashunits::coinDevice ? QStringLiteral("монет") : QStringLiteral("купюр");
    if (plural) {
        word += QStringLiteral("ы");
    }
    return word;
}

bool BasicCashControl::checkOption(ECashControl::Option option) const
{
    if (option == 0) {
        return options == 0;
    }
    return (options & option) == option;
}

void BasicCashControl::setOption(ECashControl::Option option, bool on)
{
    if (on) {
        options |= option;
    } else if (option != 0 && (options & option) == option) {
        options &= ~option;
    }
}

SumDetailed BasicCashControl::calcDenomSums(const QList<CashControlUnit>& units, long long amount,
                                            ECashControl::ChangeMode mode)
{
    if (amount <= 0) {
        return SumDetailed();
    }
    // A hopper without a denomination cannot pay and would divide by zero.
    QList<CashControlUnit> hoppers;
    for (const CashControlUnit& unit : units) {
        if (unit.type == cashunits::hopperType && unit.denom != 0) {
            hoppers << unit;
        }
    }
    std::sort(hoppers.begin(), hoppers.end(), sortRecyclers);
    return mode == ECashControl::Optimal ? balanced(hoppers, amount) : largestFirst(hoppers, amount);
}

bool sortRecyclers(const CashControlUnit& a, const CashControlUnit& b)
{
    return a.denom > b.denom;
}

} // namespace hw
