#pragma once

#include "settingsrecorder.h"

#include <QList>
#include <QObject>
#include <QStringList>

#include <functional>

namespace testsupport {

// Scripted stand-in for the host's serial port. It records every write and,
// for each write, replays what the script says the line carries back: the echo
// of the written bytes (the single-wire bus hears itself), then the reply as
// one or more separate reads. Nothing waits: waitForInput answers at once.
class FakeSerialDevice : public QObject, public SettingsRecorder
{
    Q_OBJECT
    Q_INTERFACES(hw::AbstractSerialDevice)
public:
    // Chunks to deliver after one write; each chunk is one read.
    using Responder = std::function<QList<QByteArray>(const QByteArray& written)>;

    explicit FakeSerialDevice(QObject* parent = nullptr);

    // Script, consumed one entry per write; once it is empty the responder
    // (if any) answers, otherwise the line stays silent.
    void setEcho(bool on) { echo = on; }
    void queueReply(const QByteArray& bytes);
    void queueChunks(const QList<QByteArray>& chunks);
    void queueSilence(int writes = 1);
    void setResponder(Responder r) { responder = std::move(r); }
    // Bytes that are already waiting on the line before the next write.
    void injectStale(const QByteArray& bytes);

    void discardInput() override;
    void write(const QByteArray& data) override;
    bool waitForInput(int msecs) override;
    QByteArray read(int maxSize) override;

    // Observation.
    QList<QByteArray> writes;
    QList<int> waitTimeouts;
    int discards = 0;
    int reads = 0;
    int pendingChunks() const { return pending.size(); }
    int scriptLeft() const { return script.size(); }

private:
    bool echo = true;
    QList<QList<QByteArray>> script;
    QList<QByteArray> pending;
    Responder responder;
};

} // namespace testsupport
