#include "changesearch.h"

#include "protocol.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace sim {

namespace {

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

bool planChange(quint32 amount, const QVector<Stock>& stock, int algorithm, QVector<int>& take)
{
    return algorithm == changealgorithm::Balanced ? planBalanced(amount, stock, take)
                                                  : planLargestFirst(amount, stock, take);
}

} // namespace sim
