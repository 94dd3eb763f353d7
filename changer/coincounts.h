#pragma once

#include <QMap>
#include <QPair>
#include <QtGlobal>

namespace CcTalk {

// The acceptor's coins-in counters, one per coin position, turned into coins taken in.
// Each counter is 16 bits wide and counts up, wrapping from 65535 to 0, so the coins
// between two readings are the difference modulo 65536. A difference that no acceptor
// could produce in the time between the readings (a counter that went down, a device
// that restarted its counters, a stale or corrupted answer) is not counted. Such a
// reading becomes the new baseline only when the next reading is the same; a single odd
// reading is neither counted nor taken as the baseline.
class CoinCounts
{
public:
    using Counters = QMap<unsigned char, unsigned int>;
    // Position to (baseline, reading), for counters that jumped.
    using Jumps = QMap<unsigned char, QPair<unsigned int, unsigned int>>;

    struct Step
    {
        // Position to coins taken in since the previous reading; only positions that rose.
        Counters added;
        // Counters taken as a new baseline: a jump the reading before this one showed too.
        Jumps rebased;
        // This reading jumped and waits for the next one to confirm it; nothing of it counted.
        Jumps unconfirmed;
        // The odd reading before this one, which this one did not confirm.
        Jumps discarded;
        // While acceptance opened, the counters were seen to restart: `added` counts from 0.
        bool restarted = false;
    };

    // The most coins one position can take in within the given milliseconds.
    static unsigned int maxCoins(qint64 elapsedMsecs);

    // Forgets the baseline; the next reading sets it.
    void clear();
    bool hasBaseline() const { return !baseline.isEmpty(); }
    const Counters& values() const { return baseline; }
    // A reading waits for confirmation.
    bool pending() const { return !candidate.isEmpty(); }

    // How a confirmed jump down is taken: as the new baseline, or (while acceptance opens,
    // on a device that restarts its counters when positions are enabled) as a restart of
    // every counter, each reading then being the coins taken in since.
    enum Restart { FromReading, FromZero };

    // Takes a reading made at the given time (milliseconds on any monotonic scale) and
    // returns what it adds to the baseline. The first reading only sets the baseline, as
    // does a position that had none.
    Step update(const Counters& counts, qint64 atMsecs, Restart restart = FromReading);

private:
    void accept(const Counters& counts, qint64 atMsecs);

    Counters baseline;
    qint64 lastAt = 0;
    Counters candidate;
    Jumps candidateJumps;
};

} // namespace CcTalk
