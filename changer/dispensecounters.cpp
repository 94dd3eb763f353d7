#include "changer/dispensecounters.h"

namespace CcTalk {

namespace {

// Coins counted from one reading of a counter to the next, modulo 2^32.
quint32 step(quint32 before, quint32 now)
{
    return now - before;
}

} // namespace

QMap<unsigned int, long long> DispenseCounters::totals() const
{
    QMap<unsigned int, long long> out;
    for (const Hopper& h : hoppers)
        out[h.denom] += static_cast<long long>(h.paidOut) + h.purged;
    return out;
}

const DispenseCounters::Hopper* DispenseCounters::find(unsigned char number) const
{
    for (const Hopper& h : hoppers) {
        if (h.number == number)
            return &h;
    }
    return nullptr;
}

DispenseCounters::Difference DispenseCounters::since(const DispenseCounters& before) const
{
    Difference out;
    for (const Hopper& h : hoppers) {
        const Hopper* earlier = before.find(h.number);
        const quint32 paid = step(earlier ? earlier->paidOut : 0, h.paidOut);
        const quint32 purged = step(earlier ? earlier->purged : 0, h.purged);
        if (paid > maxStep || purged > maxStep)
            out.known = false;
        out.coins.denoms[h.denom] += static_cast<long long>(paid) + purged;
    }
    return out;
}

} // namespace CcTalk
