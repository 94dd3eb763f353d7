#include "plugin/recordedline.h"

#include "host/qtcompat.h"

namespace hw {

namespace {

// The host's spellings of a setting, as the trace header writes them.
QString spelled(const QString& value, const char* const (*names)[2], int count)
{
    const QString text = value.trimmed().toLower();
    for (int i = 0; i < count; ++i) {
        if (text == QLatin1String(names[i][0]))
            return QString::fromLatin1(names[i][1]);
    }
    return text;
}

const char* const parities[][2] = {{"no", "none"}, {"n", "none"},  {"e", "even"},
                                   {"o", "odd"},   {"s", "space"}, {"m", "mark"}};
const char* const flows[][2] = {{"disable", "none"},
                                {"disabled", "none"},
                                {"off", "none"},
                                {"rts/cts", "hardware"},
                                {"xon/xoff", "software"}};

// A line that keeps babbling is not read dry before a request; the host's discard drops the rest.
const int maxDiscardReads = 16;

} // namespace

const char RecordedLine::loggerName[] = "cpibcr.line";

RecordedLine::RecordedLine() : line(logging::logger(loggerName)), driverLog(logging::logger("cpibcr"))
{
    logging::silenceUnlessSet(line);
    header.recorder = QStringLiteral("cpibcr-plugin/%1").arg(QLatin1String(CPIBCR_VERSION));
    beginRecording();
}

void RecordedLine::setDevice(AbstractSerialDevice* device, const QString& portName)
{
    inner = device;
    header.port = portName;
}

void RecordedLine::beginRecording()
{
    zero.start();
    header.started = QDateTime::currentDateTimeUtc();
    headerDue = true;
    failed = false;
}

bool RecordedLine::setBaudRate(const QString& value)
{
    const bool ok = inner && inner->setBaudRate(value);
    if (ok)
        header.baudRate = value.trimmed().toInt();
    return ok;
}

bool RecordedLine::setDataBits(const QString& value)
{
    const bool ok = inner && inner->setDataBits(value);
    if (ok)
        header.dataBits = value.trimmed().toInt();
    return ok;
}

bool RecordedLine::setParity(const QString& value)
{
    const bool ok = inner && inner->setParity(value);
    if (ok)
        header.parity = spelled(value, parities, int(sizeof parities / sizeof parities[0]));
    return ok;
}

bool RecordedLine::setStopBits(const QString& value)
{
    const bool ok = inner && inner->setStopBits(value);
    if (ok)
        header.stopBits = value.trimmed();
    return ok;
}

bool RecordedLine::setFlowControl(const QString& value)
{
    const bool ok = inner && inner->setFlowControl(value);
    if (ok)
        header.flow = spelled(value, flows, int(sizeof flows / sizeof flows[0]));
    return ok;
}

void RecordedLine::discardInput()
{
    // What is thrown away is read first, so that the recording shows it; the host's discard
    // then drops whatever came after.
    if (logging::isTraceEnabled(line) && !failed) {
        QByteArray dropped;
        for (int i = 0; i < maxDiscardReads && inner->waitForInput(0); ++i) {
            const QByteArray bytes = inner->read(0);
            if (bytes.isEmpty())
                break;
            dropped += bytes;
        }
        record(trace::Direction::Discarded, dropped);
    }
    inner->discardInput();
}

void RecordedLine::write(const QByteArray& data)
{
    if (logging::isTraceEnabled(line))
        record(trace::Direction::Written, data);
    inner->write(data);
}

bool RecordedLine::waitForInput(int msecs)
{
    return inner->waitForInput(msecs);
}

QByteArray RecordedLine::read(int maxSize)
{
    const QByteArray bytes = inner->read(maxSize);
    if (logging::isTraceEnabled(line))
        record(trace::Direction::Read, bytes);
    return bytes;
}

void RecordedLine::record(trace::Direction direction, const QByteArray& bytes)
{
    if (failed || bytes.isEmpty())
        return;
    const qint64 us = zero.nsecsElapsed() / 1000;
    if (headerDue) {
        QByteArray first = trace::headerLine(header);
        first.chop(1);
        if (!put(first))
            return;
        headerDue = false;
    }
    text.clear();
    trace::Chunk chunk;
    chunk.us = us;
    chunk.direction = direction;
    chunk.bytes = bytes;
    trace::appendChunkLine(text, chunk);
    text.chop(1);
    put(text);
}

bool RecordedLine::put(const QByteArray& record)
{
    if (logging::writeLine(line, record))
        return true;
    failed = true;
    logging::warn(driverLog, QStringLiteral("Запись линии остановлена: журнал %1 не принимает записи, "
                                            "работа с устройством продолжается")
                                 .arg(QLatin1String(loggerName)));
    return false;
}

} // namespace hw
