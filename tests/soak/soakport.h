#pragma once

#include "support/settingsrecorder.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

namespace testsupport {
class SimLine;
}

namespace soak {

// One fault of the line between host and device, applied by the line to the request
// it arms on and to the ones after it.
struct LineFault
{
    enum Kind { LostAnswers, Busy, Nak, BadChecksum, ShortAnswer, Garbage, Split, Silence, Babble };

    Kind kind = LostAnswers;
    int count = 1;      // answers lost, BUSY, NAK, corrupted or cut short; requests a babble lasts
    QByteArray garbage; // bytes put on the line before the next answer
    int pieces = 2;     // the next answer in this many writes...
    int pauseMs = 0;    // ...this far apart
    int atFrame = 0;    // armed on the request with this index, counted from arming
    int atHeader = -1;  // or on the first request with this header, when not -1
    bool fired = false;

    QString describe() const;
    static QString kindName(Kind kind);
};

// The host's serial port as the driver sees it: every transfer goes to the simulated
// line. It watches the requests the driver writes to arm planned line faults exactly
// on their target request and counts attempts; the line counts frames and lost-answer waits.
class SoakPort : public QObject, public testsupport::SettingsRecorder
{
    Q_OBJECT
    Q_INTERFACES(hw::AbstractSerialDevice)
public:
    explicit SoakPort(testsupport::SimLine* line, QObject* parent = nullptr);

    void discardInput() override;
    void write(const QByteArray& data) override;
    bool waitForInput(int msecs) override;
    QByteArray read(int maxSize) override;

    // Replaces the planned faults; frame indexes count from here.
    void arm(const QList<LineFault>& faults);
    // Forgets the faults not reached yet and returns those that fired.
    QList<LineFault> disarm();

    // A hopper count the driver wrote (ModHopperBalance), with the device's count just
    // before the device received it.
    struct BalanceWrite
    {
        int hopper = 0;
        int before = 0;
        int written = 0;
    };
    QList<BalanceWrite> balanceWrites;

    long long attempts = 0;
    // Attempts begun while the line babbled: each may last the driver's whole 5 s
    // receive bound, since noise keeps input arriving.
    long long attemptsInNoise = 0;

private:
    void apply(const LineFault& fault);

    testsupport::SimLine* line;
    QList<LineFault> planned;
    long long framesSinceArm = 0;
    long long babbleUntil = -1;
};

} // namespace soak
