#include "changer/coincounts.h"

namespace CcTalk {

namespace {

// Far above what a coin path passes (a few coins a second), far below the differences
// a restarted or garbled counter gives.
const unsigned int coinsPerSecond = 25;
const unsigned int burstCoins = 25;

const unsigned int counterRange = 0x10000;
const qint64 maxStep = counterRange / 2 - 1;

bool wentDown(const CoinCounts::Jumps& jumps)
{
    for (auto it = jumps.constBegin(); it != jumps.constEnd(); ++it) {
        if (it.value().second < it.value().first)
            return true;
    }
    return false;
}

// A restart sets every counter to 0 at once: each reading is what came in since, also
// where it happens to equal the counter before the restart.
CoinCounts::Counters countedFromZero(const CoinCounts::Counters& counts, unsigned int limit)
{
    CoinCounts::Counters added;
    for (auto it = counts.constBegin(); it != counts.constEnd(); ++it) {
        const unsigned int now = it.value() % counterRange;
        if (now != 0 && now <= limit)
            added[it.key()] = now;
    }
    return added;
}

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
    candidate.clear();
    candidateJumps.clear();
}

void CoinCounts::accept(const Counters& counts, qint64 atMsecs)
{
    for (auto it = counts.constBegin(); it != counts.constEnd(); ++it)
        baseline[it.key()] = it.value() % counterRange;
    lastAt = atMsecs;
    candidate.clear();
    candidateJumps.clear();
}

CoinCounts::Step CoinCounts::update(const Counters& counts, qint64 atMsecs, Restart restart)
{
    Step step;
    if (baseline.isEmpty()) {
        accept(counts, atMsecs);
        return step;
    }
    const unsigned int limit = maxCoins(atMsecs - lastAt);
    Jumps jumps;
    for (auto it = counts.constBegin(); it != counts.constEnd(); ++it) {
        if (!baseline.contains(it.key()))
            continue;
        const unsigned int now = it.value() % counterRange;
        const unsigned int before = baseline.value(it.key());
        const unsigned int added = (now + counterRange - before) % counterRange;
        if (added > limit)
            jumps[it.key()] = qMakePair(before, now);
        else if (added != 0)
            step.added[it.key()] = added;
    }
    if (!jumps.isEmpty() && counts != candidate) {
        // Held back until the next reading says the same.
        step.discarded = candidateJumps;
        step.added.clear();
        step.unconfirmed = jumps;
        candidate = counts;
        candidateJumps = jumps;
        return step;
    }
    if (counts != candidate)
        step.discarded = candidateJumps;
    step.rebased = jumps;
    if (restart == FromZero && wentDown(jumps)) {
        step.added = countedFromZero(counts, limit);
        step.restarted = true;
    }
    accept(counts, atMsecs);
    return step;
}

} // namespace CcTalk
