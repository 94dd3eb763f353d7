#include "changer/coincounts.h"

namespace CcTalk {

namespace {

// Far above what a coin path passes (a few coins a second), far below the differences
// a restarted or garbled counter gives.
const unsigned int coinsPerSecond = 25;
const unsigned int burstCoins = 25;

const unsigned int counterRange = 0x10000;
const qint64 maxStep = counterRange / 2 - 1;

} // namespace

unsigned int CoinCounts::maxCoins(qint64 elapsedMsecs)
{
    const qint64 seconds = qMax<qint64>(0, elapsedMsecs) / 1000;
    // Half the counter's range at most: past it a counter that went down would read
    // as coins.
    return static_cast<unsigned int>(qMin<qint64>(burstCoins + coinsPerSecond * seconds, maxStep));
}

void CoinCounts::clear()
{
    baseline.clear();
    lastAt = 0;
}

CoinCounts::Step CoinCounts::update(const Counters& counts, qint64 atMsecs)
{
    Step step;
    const bool first = baseline.isEmpty();
    const unsigned int limit = maxCoins(atMsecs - lastAt);
    for (auto it = counts.constBegin(); it != counts.constEnd(); ++it) {
        const unsigned int now = it.value() % counterRange;
        if (first || !baseline.contains(it.key())) {
            baseline[it.key()] = now;
            continue;
        }
        const unsigned int before = baseline.value(it.key());
        const unsigned int added = (now + counterRange - before) % counterRange;
        baseline[it.key()] = now;
        if (added == 0)
            continue;
        if (added > limit)
            step.rebased[it.key()] = qMakePair(before, now);
        else
            step.added[it.key()] = added;
    }
    lastAt = atMsecs;
    return step;
}

} // namespace CcTalk
