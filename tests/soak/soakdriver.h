#pragma once

#include "changer/changer.h"
#include "host/timer.h"
#include "plugin/cpibcrcashcontrol.h"
#include "support/simline.h"

#include <QList>
#include <QMap>
#include <QSet>

namespace soak {

// The changer on the simulated line: its pauses move the line's virtual clock and
// are counted for the time bounds.
class SoakChanger : public CcTalk::Changer
{
public:
    explicit SoakChanger(testsupport::SimLine* line)
    {
        setClock([line] { return line->now(); });
        setSleeper([this, line](int msecs) {
            ++pauses;
            pausedMsecs += msecs;
            line->advance(msecs);
        });
    }

    // The reset request is class-wide: a run starts without one.
    static void clearResetRequest() { needReset = false; }

    bool isAccepting() const { return accepting; }
    bool isPolling() const { return pollTimer->isActive(); }
    QMap<unsigned char, unsigned int> lastCounts() const { return lastCoinCounts.values(); }
    QMap<unsigned char, unsigned int> positions() const { return coinDenoms; }
    QList<CashControlUnit> cachedUnits() const { return units; }
    QSet<unsigned int> cachedAcceptable() const { return acceptableDenoms; }

    Timer* pollTimerOf() const { return pollTimer; }

    long long pauses = 0;
    qint64 pausedMsecs = 0;
};

// The driver object as the factory makes it, with the soak's changer inside.
class SoakDriver : public hw::CpiBcrCashControl
{
public:
    explicit SoakDriver(SoakChanger* device) : CpiBcrCashControl(nullptr, device), changerUnderTest(device) {}

    Timer* checkTimerOf() const { return timer; }

    SoakChanger* changerUnderTest;
};

} // namespace soak
