#pragma once

#include "changer/changer.h"
#include "host/timer.h"

#include <QList>
#include <QMap>
#include <QSet>
#include <QString>

#include <functional>

namespace testsupport {

// The changer with its pauses recorded instead of waited, and its state open to the
// tests. On a simulated line runOn() puts its clock and its pauses on the line's
// virtual time.
class RecordingChanger : public CcTalk::Changer
{
public:
    explicit RecordingChanger(QObject* parent = nullptr) : Changer(parent)
    {
        setSleeper([this](int msecs) {
            sleeps.append(msecs);
            if (onPause)
                onPause(msecs);
        });
    }

    // Anything with now() and advance(msecs): a SimLine.
    template <class Line> void runOn(Line& line)
    {
        setClock([&line] { return line.now(); });
        onPause = [&line](int msecs) { line.advance(msecs); };
    }

    QList<int> sleeps;
    std::function<void(int)> onPause;

    qint64 sleptMsecs() const
    {
        qint64 total = 0;
        for (int msecs : sleeps)
            total += msecs;
        return total;
    }

    using Changer::checkMoneyIn;

    Timer* timer() const { return pollTimer; }
    bool isPolling() const { return pollTimer->isActive(); }
    bool isAccepting() const { return accepting; }
    QString pendingError() const { return delayedError; }
    QList<CashControlUnit> cachedUnits() const { return units; }
    void setUnits(const QList<CashControlUnit>& value) { units = value; }
    QSet<unsigned int> acceptable() const { return acceptableDenoms; }
    QMap<unsigned char, unsigned int> positions() const { return coinDenoms; }
    void setPositions(const QMap<unsigned char, unsigned int>& value) { coinDenoms = value; }
    QMap<unsigned char, unsigned int> lastCounts() const { return lastCoinCounts.values(); }
    QMap<unsigned int, long long> lastSnapshot() const { return snapshot.totals(); }
    bool sessionOpen() const { return coinsPending; }
    bool payoutOpen() const { return payoutUnfinished; }
    int reservedValue() const { return reserved; }

    // The reset request is class-wide; each test starts without one.
    static bool resetPending() { return needReset; }
    static void setResetPending(bool value) { needReset = value; }
};

} // namespace testsupport
