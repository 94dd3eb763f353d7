#pragma once

#include "cashcontrol/sumdetailed.h"

#include <QList>
#include <QMap>
#include <QtGlobal>

namespace CcTalk {

// The hoppers' two dispense counters (audit groups 80 and 87) as read at one moment, and
// the coins that left the hoppers between two readings. Each counter is 32 bits wide and
// counts up, wrapping to 0, so a hopper's coins out are the difference of each counter on
// its own, modulo 2^32. A difference no payout can make (more than a hopper's 16-bit count
// holds) is a counter that went down, as after a power cycle of a device whose counters
// do not survive it: what came out is then unknown, never 0.
class DispenseCounters
{
public:
    struct Hopper
    {
        unsigned char number = 0;
        unsigned int denom = 0;
        quint32 paidOut = 0;
        quint32 purged = 0;
    };

    // Coins out between two readings, by denomination; not known when a counter went down.
    struct Difference
    {
        bool known = true;
        SumDetailed coins;
    };

    // The most coins one hopper can pay between two readings.
    static const quint32 maxStep = 0xFFFF;

    void add(const Hopper& hopper) { hoppers.append(hopper); }
    bool isEmpty() const { return hoppers.isEmpty(); }
    // Both counters of each hopper added up, by denomination.
    QMap<unsigned int, long long> totals() const;
    // What left the hoppers from `before` to this reading. A hopper missing from `before`
    // counts from 0; every denomination of this reading has an entry, 0 included.
    Difference since(const DispenseCounters& before) const;

private:
    const Hopper* find(unsigned char number) const;

    QList<Hopper> hoppers;
};

} // namespace CcTalk
