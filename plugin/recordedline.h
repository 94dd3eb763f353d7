#pragma once

#include "host/abstractserialdevice.h"
#include "host/logging.h"
#include "tracewrite/tracewrite.h"

#include <QByteArray>
#include <QDateTime>
#include <QElapsedTimer>
#include <QString>

namespace hw {

// The driver's own recording of its serial line, switched on and routed by the host's logging
// configuration. It stands between the driver and the serial object the host handed over and
// forwards every call unchanged. While the logger "cpibcr.line" is enabled for TRACE, every
// chunk the driver writes, reads and throws away goes to that logger as one trace line
// ("1532 > 37 00 01 FE CA"), after the recording's header line; the host's appender, with the
// layout "%m%n", makes the file `cpibcr trace` reads. Off, a transfer costs one level check.
//
// When the logging library cannot write a line (a full or failing disk) the recording stops
// with one warning on "cpibcr" and the driver's work goes on; the next connection tries again.
class RecordedLine : public AbstractSerialDevice
{
public:
    RecordedLine();

    // The host's serial object (null: none), and the name the header gives its port.
    void setDevice(AbstractSerialDevice* device, const QString& portName);
    AbstractSerialDevice* device() const { return inner; }

    // A new recording: time 0 is now, and the header line goes out before the next chunk.
    void beginRecording();
    bool stopped() const { return failed; }

    bool setBaudRate(const QString& value) override;
    bool setDataBits(const QString& value) override;
    bool setParity(const QString& value) override;
    bool setStopBits(const QString& value) override;
    bool setFlowControl(const QString& value) override;

    void discardInput() override;
    void write(const QByteArray& data) override;
    bool waitForInput(int msecs) override;
    QByteArray read(int maxSize) override;

    static const char loggerName[]; // "cpibcr.line"

private:
    void record(trace::Direction direction, const QByteArray& bytes);
    bool put(const QByteArray& line);

    AbstractSerialDevice* inner = nullptr;
    logging::LoggerPtr line;
    logging::LoggerPtr driverLog;
    trace::Header header;
    // Monotonic; QtCore's, since std::chrono's clock would ask the terminal for a newer libstdc++.
    QElapsedTimer zero;
    bool headerDue = true;
    bool failed = false;
    QByteArray text;
};

} // namespace hw
