#pragma once

#include "changer/changer.h"
#include "devicemodel.h"
#include "host/timer.h"
#include "support/fakeserialdevice.h"
#include "support/logcapture.h"

#include <QList>
#include <QStringList>

#include <functional>

namespace changertest {

// The changer with its pauses recorded instead of waited, and its state open to
// the tests. On a simulated line onPause moves the line's virtual clock.
class TestChanger : public CcTalk::Changer
{
public:
    explicit TestChanger(QObject* parent = nullptr) : Changer(parent)
    {
        setSleeper([this](int msecs) {
            sleeps.append(msecs);
            if (onPause)
                onPause(msecs);
        });
    }

    QList<int> sleeps;
    std::function<void(int)> onPause;

    using Changer::checkMoneyIn;

    Timer* timer() const { return pollTimer; }
    bool isAccepting() const { return accepting; }
    QString pendingError() const { return delayedError; }
    QList<CashControlUnit> cachedUnits() const { return units; }
    void setUnits(const QList<CashControlUnit>& value) { units = value; }
    QSet<unsigned int> acceptable() const { return acceptableDenoms; }
    QMap<unsigned char, unsigned int> positions() const { return coinDenoms; }
    void setPositions(const QMap<unsigned char, unsigned int>& value) { coinDenoms = value; }
    QMap<unsigned char, unsigned int> lastCounts() const { return lastCoinCounts.values(); }
    QMap<unsigned int, long long> lastSnapshot() const { return snapshot; }
    int reservedValue() const { return reserved; }

    static bool resetPending() { return needReset; }
    static void setResetPending(bool value) { needReset = value; }
};

// A changer at address 55 on the fake serial line, answered by the device model.
struct Rig
{
    Rig()
    {
        changer.setAddress(55);
        changer.setSerial(&serial);
        serial.setResponder(model.responder());
        TestChanger::setResetPending(false);
    }
    ~Rig() { TestChanger::setResetPending(false); }

    // Runs a discovery of the model's recycler and forgets its traffic.
    void discover()
    {
        changer.loadCashUnits();
        serial.writes.clear();
        model.received.clear();
    }

    testsupport::FakeSerialDevice serial;
    DeviceModel model;
    TestChanger changer;
};

// A unit as discovery makes it: a hopper (type 1) of one denomination, or the cashbox.
inline CashControlUnit hopperUnit(const QString& name, unsigned int denom, long long count = 0)
{
    CashControlUnit unit;
    unit.name = name;
    unit.type = 1;
    unit.operations = 0x8021330;
    unit.flag = 1;
    unit.denom = denom;
    unit.count = count;
    unit.limit3 = 50;
    return unit;
}

inline CashControlUnit cashboxUnit(long long sum = 0)
{
    CashControlUnit unit;
    unit.name = QStringLiteral("cashbox");
    unit.type = 3;
    unit.operations = 0x10;
    unit.sum = sum;
    return unit;
}

// "LEVEL text" of the lines at info level and above: what an operator reads.
inline QStringList significant(const testsupport::LogCapture& log)
{
    QStringList out;
    for (const QString& line : log.formatted()) {
        if (line.startsWith(QLatin1String("INFO ")) || line.startsWith(QLatin1String("WARN ")) ||
            line.startsWith(QLatin1String("ERROR ")))
            out << line;
    }
    return out;
}

} // namespace changertest
