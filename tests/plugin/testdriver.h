#pragma once

#include "recycler.h"

#include "cashcontrol/cashcontrolexc.h"
#include "changer/changer.h"
#include "host/timer.h"
#include "plugin/cpibcrcashcontrol.h"
#include "support/fakeserialdevice.h"
#include "support/logcapture.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

namespace plugintest {

// The changer with its pauses recorded instead of waited. On a simulated line
// onPause moves the line's virtual clock.
class RecordingChanger : public CcTalk::Changer
{
public:
    RecordingChanger()
    {
        setSleeper([this](int msecs) {
            sleeps.append(msecs);
            if (onPause)
                onPause(msecs);
        });
    }

    // The reset request is class-wide; each test starts without one.
    static void clearResetRequest() { needReset = false; }
    static bool resetRequested() { return needReset; }

    Timer* timer() const { return pollTimer; }

    QList<int> sleeps;
    std::function<void(int)> onPause;
};

// The driver with the test's changer and a view of its parts.
class TestDriver : public hw::CpiBcrCashControl
{
public:
    explicit TestDriver(RecordingChanger* device = new RecordingChanger)
        : CpiBcrCashControl(nullptr, device), recorder(device)
    {
    }

    using CpiBcrCashControl::asyncCheckState;

    Timer* checkTimer() const { return timer; }
    bool asyncCheckEnabled() const { return asyncEnabled; }
    CcTalk::Changer* device() const { return changer; }
    hw::AbstractSerialDevice* serialDevice() const { return serial; }

    RecordingChanger* recorder;
};

// A driver wired to the recycler model through the fake serial line.
struct Rig
{
    Rig() : model(Recycler::standard())
    {
        RecordingChanger::clearResetRequest();
        line.setResponder(model.responder());
        driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&line));
    }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    // init() and connect() as the host does, then forgets what they sent.
    void connectDevice()
    {
        driver.init();
        driver.connect();
        forget();
    }

    void forget()
    {
        model.requests.clear();
        line.writes.clear();
        driver.recorder->sleeps.clear();
    }

    Recycler model;
    testsupport::FakeSerialDevice line;
    TestDriver driver;
};

// The host's view of a failure: the text of the CashControlExc, or an empty
// string when the call returned normally.
inline QString failureOf(const std::function<void()>& call)
{
    try {
        call();
    } catch (const CashControlExc& e) {
        return QString::fromUtf8(e.what());
    }
    return QString();
}

// "LEVEL text" of the lines at info level and above: what an operator reads,
// without the link's per-command debug and trace lines.
inline QStringList significant(const testsupport::LogCapture& log)
{
    QStringList out;
    for (const testsupport::LogLine& line : log.lines()) {
        if (line.level != QLatin1String("DEBUG") && line.level != QLatin1String("TRACE")) {
            out << line.level + QLatin1Char(' ') + line.text;
        }
    }
    return out;
}

// "LEVEL text" of the lines the given logger wrote.
inline QStringList linesOf(const testsupport::LogCapture& log, const QString& logger)
{
    QStringList out;
    for (const testsupport::LogLine& line : log.lines()) {
        if (line.logger == logger) {
            out << line.level + QLatin1Char(' ') + line.text;
        }
    }
    return out;
}

} // namespace plugintest
