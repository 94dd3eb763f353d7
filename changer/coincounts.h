#pragma once

#include <QMap>
#include <QPair>
#include <QtGlobal>

namespace CcTalk {

// The acceptor's coins-in counters, one per coin position, turned into coins taken in.
// Each counter is 16 bits wide and counts up, wrapping from 65535 to 0, so the coins
// between two readings are the difference modulo 65536. A difference that no acceptor
// could produce in the time between the readings (a counter that went down, a device
// that restarted its counters, a corrupted answer) is not counted: the new value
// becomes the baseline.
class CoinCounts
{
public:
    using Counters = QMap<unsigned char, unsigned int>;

    struct Step
    {
        // Position to coins taken in since the previous reading; only positions that rose.
        Counters added;
        // Position to (previous, new) reading, for counters taken as a new baseline.
        QMap<unsigned char, QPair<unsigned int, unsigned int>> rebased;
    };

    // The most coins one position can take in within the given milliseconds.
    static unsigned int maxCoins(qint64 elapsedMsecs);

    // Forgets the baseline; the next reading sets it.
    void clear();
    bool hasBaseline() const { return !baseline.isEmpty(); }
    const Counters& values() const { return baseline; }

    // Takes a reading made at the given time (milliseconds on any monotonic scale) and
    // returns what it adds to the previous one. The first reading only sets the baseline,
    // as does a position that had none.
    Step update(const Counters& counts, qint64 atMsecs);

private:
    Counters baseline;
    qint64 lastAt = 0;
};

} // namespace CcTalk
