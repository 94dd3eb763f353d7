#pragma once

#include "settingsrecorder.h"
#include "sim/device.h"
#include "sim/linefaults.h"
#include "sim/simulator.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QStringList>

#include <deque>
#include <functional>
#include <random>

class Timer;

namespace CcTalk {
class Device;
}

namespace testsupport {

// The simulated recycler on an in-process line with virtual time. write() hands the
// request to the simulator's device model and queues the echo and the answer at the
// moments a real line would carry them; waitForInput() and the driver's pauses move
// the virtual clock, and with it the model (coins landing, hoppers paying). Nothing
// waits in real time, so a result never depends on the speed or load of the machine.
// The line faults, controls and observation mirror sim::Simulator's.
class SimLine : public QObject, public SettingsRecorder
{
    Q_OBJECT
    Q_INTERFACES(hw::AbstractSerialDevice)
public:
    explicit SimLine(const sim::Config& config = sim::Config::defaults(), QObject* parent = nullptr);

    sim::Device& device() { return model; }
    const sim::Device& device() const { return model; }
    const sim::Config& config() const { return model.config(); }

    // Virtual milliseconds since the line was made.
    qint64 now() const { return nowMs; }
    // Moves the virtual clock: scheduled actions run and the model advances.
    void advance(qint64 msecs);
    void advanceTo(qint64 ms);
    // Runs the action when the virtual clock reaches `ms`.
    void at(qint64 ms, std::function<void()> action);
    // Moves the clock by `msecs`, firing the timer whenever its interval elapses while it
    // is active, as the host's event loop would.
    void runTimer(Timer* timer, qint64 msecs);
    // The same for several timers, each on its own beat.
    void runTimers(const QList<Timer*>& timers, qint64 msecs);
    // The bus device's clock and pauses run on this line's virtual clock.
    void attach(CcTalk::Device& device);

    // Called with every request frame before the model sees it (to arm faults on it).
    void setRequestHook(std::function<void(const QByteArray& frame)> hook) { requestHook = std::move(hook); }

    // Line faults, as sim::Simulator has them.
    void dropAnswers(int n)
    {
        faults.drop += n;
        faults.dropHeader = -1;
    }
    void dropAnswersTo(quint8 header, int n)
    {
        faults.drop += n;
        faults.dropHeader = header;
    }
    void answerBusy(int n) { faults.busy += n; }
    void nakNext(int n = 1) { faults.nak += n; }
    void corruptChecksumNext(int n = 1) { faults.corrupt += n; }
    // The next n answers each lose their last data byte, checksum kept right; an answer
    // without data goes out whole and uses one up.
    void shortenNext(int n = 1) { faults.shorten += n; }
    void foreignFrameBeforeNext(int n = 1) { faults.foreign += n; }
    void badFrameBeforeNext(int n = 1) { faults.badFrame += n; }
    void garbageBeforeNext(const QByteArray& bytes) { faults.garbage += bytes; }
    void splitNext(int pieces, int pauseMs);
    void setBabble(bool on);
    void setSilent(bool on) { silent = on; }
    void setEcho(bool on) { echo = on; }
    void clearLineFaults();
    bool babbling() const { return babble; }

    // Requests addressed to the device with what went back for each.
    QList<sim::Transaction> transactions() const { return log; }
    int countHeader(quint8 header) const;
    void clearTransactions() { log.clear(); }

    void discardInput() override;
    void write(const QByteArray& data) override;
    bool waitForInput(int msecs) override;
    QByteArray read(int maxSize) override;

    long long framesWritten = 0;
    long long waitsTimedOut = 0;
    QList<int> pauses;

private:
    struct Out
    {
        qint64 due;
        QByteArray bytes;
    };
    struct Scheduled
    {
        qint64 due;
        std::function<void()> action;
    };

    void enqueue(qint64 due, const QByteArray& bytes);
    void handleFrame(const QByteArray& frame);
    qint64 nextInputMs() const;
    void deliver();

    sim::Device model;
    qint64 nowMs = 0;
    std::deque<Out> out;
    QList<QByteArray> arrived;
    QList<Scheduled> scheduled;
    QList<sim::Transaction> log;
    std::function<void(const QByteArray&)> requestHook;

    sim::LineFaults faults;
    bool babble = false, silent = false, echo = true;
    qint64 nextBabbleMs = -1;
    std::mt19937 rng{20240607};
};

} // namespace testsupport
