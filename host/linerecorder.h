#pragma once

#include "tracewrite/tracewrite.h"

#include <QByteArray>
#include <QString>

#include <memory>

namespace hw {

// Writes the trace of a serial line to a file from a thread of its own: the line only queues
// its chunks, so a slow or full disk never holds up an exchange. When the file cannot take
// more (a full disk, a write error, or a queue the disk cannot keep up with) the recording
// stops with one warning and the line goes on.
class LineRecorder
{
public:
    LineRecorder();
    ~LineRecorder();
    Q_DISABLE_COPY(LineRecorder)

    // Opens the file for appending; time 0 of the recording is now.
    bool start(const QString& path, QString* error);
    // Writes what is queued and closes the file.
    void stop();
    bool isRecording() const;
    QString path() const;
    bool hasHeader() const;

    // The header is queued before the first chunk; its start time is the recording's.
    void header(trace::Header header);
    void chunk(trace::Direction direction, const QByteArray& bytes);

    // Chunks queued and not yet written above this many bytes stop the recording.
    static const qint64 queueLimit = 8 * 1024 * 1024;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace hw
