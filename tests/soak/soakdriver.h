#pragma once

#include "changer/changer.h"
#include "host/timer.h"
#include "plugin/cpibcrcashcontrol.h"

#include <QList>
#include <QMap>
#include <QSet>
#include <QThread>

#include <algorithm>

namespace soak {

// The changer with its pauses shortened: a pause of n ms takes n/250 ms of real
// time (1000 ms polls take 4 ms, the 5 s reset pause 20 ms), so the simulator's
// clock still moves while the driver waits. Pauses are counted for the time bounds.
class SoakChanger : public CcTalk::Changer
{
public:
    static constexpr int timeScale = 250;

    static unsigned long realPause(int msecs)
    {
        return msecs <= 0 ? 0 : static_cast<unsigned long>(std::max(1, msecs / timeScale));
    }

    void sleep(int msecs) const override
    {
        ++pauses;
        QThread::msleep(realPause(msecs));
    }

    // The reset request is class-wide: a run starts without one.
    static void clearResetRequest() { needReset = false; }

    bool isAccepting() const { return accepting; }
    bool isPolling() const { return pollTimer->isActive(); }
    QMap<unsigned char, unsigned int> lastCounts() const { return lastCoinCounts; }
    QMap<unsigned char, unsigned int> positions() const { return coinDenoms; }
    QList<CashControlUnit> cachedUnits() const { return units; }
    QSet<unsigned int> cachedAcceptable() const { return acceptableDenoms; }

    mutable long long pauses = 0;
};

// The driver object as the factory makes it, with the soak's changer inside.
class SoakDriver : public hw::CpiBcrCashControl
{
public:
    explicit SoakDriver(SoakChanger* device) : CpiBcrCashControl(nullptr, device), changerUnderTest(device) {}

    SoakChanger* changerUnderTest;
};

} // namespace soak
