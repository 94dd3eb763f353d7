#pragma once

#include "recycler.h"

#include "support/fakeserialdevice.h"
#include "support/logcapture.h"
#include "support/recordingdriver.h"
#include "support/thrown.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace plugintest {

using testsupport::RecordingChanger;
using testsupport::RecordingDriver;
using testsupport::significant;
using testsupport::thrown;
using testsupport::thrownText;

// A driver wired to the recycler model through the fake serial line.
struct Rig
{
    Rig() : model(Recycler::standard())
    {
        RecordingChanger::setResetPending(false);
        line.setResponder(model.responder());
        driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&line));
    }
    Q_DISABLE_COPY(Rig)

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
    RecordingDriver driver;
};

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
