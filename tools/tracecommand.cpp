#include "tracecommand.h"

#include "arguments.h"

#include "trace/tracefiles.h"

#include <QFile>
#include <QJsonArray>

namespace tool {

namespace {

QString seconds(qint64 us)
{
    return QString::number(double(us) / 1e6, 'f', 6);
}

QString milliseconds(qint64 us)
{
    return us < 0 ? QStringLiteral("-") : QString::number(double(us) / 1e3, 'f', 3) + QStringLiteral(" ms");
}

QString pieceName(trace::Piece::Kind kind)
{
    switch (kind) {
    case trace::Piece::Echo:
        return QStringLiteral("echo");
    case trace::Piece::Answer:
        return QStringLiteral("answer");
    case trace::Piece::Foreign:
        return QStringLiteral("foreign");
    case trace::Piece::Corrupt:
        return QStringLiteral("corrupt");
    case trace::Piece::Garbage:
        return QStringLiteral("garbage");
    case trace::Piece::Cut:
        return QStringLiteral("cut off");
    case trace::Piece::Ignored:
        return QStringLiteral("ignored");
    }
    return QString();
}

QString outcomeName(trace::Exchange::Outcome outcome)
{
    switch (outcome) {
    case trace::Exchange::Answered:
        return QStringLiteral("answered");
    case trace::Exchange::Nak:
        return QStringLiteral("NAK");
    case trace::Exchange::Busy:
        return QStringLiteral("BUSY");
    case trace::Exchange::Lost:
        return QStringLiteral("lost");
    }
    return QString();
}

QJsonObject frameJson(const QByteArray& frame)
{
    QJsonObject o{{QStringLiteral("bytes"), trace::hexText(frame)}};
    if (frame.size() >= 4) {
        const auto byte = [&](int i) { return int(static_cast<unsigned char>(frame.at(i))); };
        o.insert(QStringLiteral("destination"), byte(0));
        o.insert(QStringLiteral("source"), byte(2));
        o.insert(QStringLiteral("header"), byte(3));
        o.insert(QStringLiteral("headerName"), trace::headerName(byte(3)));
        o.insert(QStringLiteral("data"), trace::hexText(frame.mid(4, byte(1))));
        o.insert(QStringLiteral("wholeFrame"), trace::isWholeFrame(frame));
        o.insert(QStringLiteral("checksumGood"), trace::checksumGood(frame));
    }
    return o;
}

// A value in microseconds, or null when there is none.
QJsonValue usValue(qint64 us)
{
    return us < 0 ? QJsonValue() : QJsonValue(us);
}

} // namespace

QString recordingText(const trace::Header& header, int number)
{
    if (trace::isContinuation(header))
        return QStringLiteral(
                   "recording %1: begun before these files (its header is not in them), times from an "
                   "unknown start\n")
            .arg(number);
    return QStringLiteral("recording %1: %2, port %3, %4 baud, %5 data bits, parity %6, %7 stop bit(s), "
                          "flow control %8, started %9\n")
        .arg(number)
        .arg(header.recorder.isEmpty() ? QStringLiteral("unknown recorder") : header.recorder, header.port)
        .arg(header.baudRate)
        .arg(header.dataBits)
        .arg(header.parity, header.stopBits, header.flow,
             header.started.isValid()
                 ? header.started.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz 'UTC'"))
                 : QStringLiteral("-"));
}

QString exchangeText(const trace::Exchange& e)
{
    QString text = QStringLiteral("#%1  %2 s  %3%4\n")
                       .arg(e.number)
                       .arg(seconds(e.us), trace::describeFrame(e.request),
                            e.repeat ? QStringLiteral("  (repeat)") : QString());
    for (const trace::Piece& piece : e.line) {
        const QString name = pieceName(piece.kind).leftJustified(9);
        switch (piece.kind) {
        case trace::Piece::Answer:
            text += QStringLiteral("    %1%2  latency %3\n")
                        .arg(name, trace::describeFrame(piece.bytes), milliseconds(e.latencyUs()));
            break;
        case trace::Piece::Foreign:
        case trace::Piece::Corrupt:
            text += QStringLiteral("    %1%2\n").arg(name, trace::describeFrame(piece.bytes));
            break;
        default:
            text += QStringLiteral("    %1%2\n").arg(name, trace::hexText(piece.bytes));
            break;
        }
    }
    if (e.outcome == trace::Exchange::Lost)
        text += QStringLiteral("    lost     no answer\n");
    if (!e.discarded.isEmpty())
        text += QStringLiteral("    discarded %1\n").arg(trace::hexText(e.discarded));
    return text;
}

QString summaryText(const trace::Summary& s)
{
    const auto row = [](const QString& name, const QString& value) {
        return QStringLiteral("  %1%2\n").arg(name.leftJustified(18), value);
    };
    QString text = QStringLiteral("summary\n");
    text += row(QStringLiteral("recordings"), QString::number(s.recordings));
    text += row(QStringLiteral("exchanges"),
                QStringLiteral("%1 (answered %2, lost %3)").arg(s.exchanges).arg(s.answered).arg(s.lost));
    text += row(QStringLiteral("repeats"), QString::number(s.repeats));
    text += row(QStringLiteral("BUSY"), QString::number(s.busy));
    text += row(QStringLiteral("NAK"), QString::number(s.nak));
    text += row(QStringLiteral("lost answers"), QString::number(s.lost));
    text += row(QStringLiteral("foreign frames"), QString::number(s.foreignFrames));
    text += row(QStringLiteral("corrupt frames"), QString::number(s.corruptFrames));
    text += row(QStringLiteral("garbage bytes"), QString::number(s.garbageBytes));
    text += row(QStringLiteral("discarded bytes"), QString::number(s.discardedBytes));
    text += row(QStringLiteral("latency"),
                s.latencyMaxUs < 0 ? QStringLiteral("-")
                                   : QStringLiteral("median %1, p99 %2, max %3")
                                         .arg(milliseconds(s.latencyMedianUs), milliseconds(s.latencyP99Us),
                                              milliseconds(s.latencyMaxUs)));
    text +=
        row(QStringLiteral("longest silence"),
            s.longestSilenceUs <= 0 ? QStringLiteral("-")
                                    : QStringLiteral("%1 s from %2 s in recording %3")
                                          .arg(seconds(s.longestSilenceUs), seconds(s.longestSilenceFromUs))
                                          .arg(s.longestSilenceRecording));
    return text;
}

QJsonObject recordingJson(const trace::Header& header, int number)
{
    return {{QStringLiteral("recording"), number},
            {QStringLiteral("recorder"), header.recorder},
            {QStringLiteral("port"), header.port},
            {QStringLiteral("baudRate"), header.baudRate},
            {QStringLiteral("dataBits"), header.dataBits},
            {QStringLiteral("parity"), header.parity},
            {QStringLiteral("stopBits"), header.stopBits},
            {QStringLiteral("flowControl"), header.flow},
            {QStringLiteral("started"), header.started.isValid()
                                            ? QJsonValue(header.started.toString(Qt::ISODateWithMs))
                                            : QJsonValue()}};
}

QJsonObject exchangeJson(const trace::Exchange& e)
{
    QJsonArray line;
    for (const trace::Piece& piece : e.line) {
        QJsonObject p = piece.kind == trace::Piece::Answer || piece.kind == trace::Piece::Foreign ||
                                piece.kind == trace::Piece::Corrupt || piece.kind == trace::Piece::Echo
                            ? frameJson(piece.bytes)
                            : QJsonObject{{QStringLiteral("bytes"), trace::hexText(piece.bytes)}};
        p.insert(QStringLiteral("kind"), pieceName(piece.kind));
        p.insert(QStringLiteral("us"), piece.us);
        line.append(p);
    }
    return {{QStringLiteral("number"), e.number},
            {QStringLiteral("recording"), e.recording},
            {QStringLiteral("us"), e.us},
            {QStringLiteral("request"), frameJson(e.request)},
            {QStringLiteral("repeat"), e.repeat},
            {QStringLiteral("outcome"), outcomeName(e.outcome)},
            {QStringLiteral("answer"), e.answer.isEmpty() ? QJsonValue() : QJsonValue(frameJson(e.answer))},
            {QStringLiteral("latencyUs"), usValue(e.latencyUs())},
            {QStringLiteral("line"), line},
            {QStringLiteral("discarded"), trace::hexText(e.discarded)}};
}

QJsonObject summaryJson(const trace::Summary& s)
{
    return {{QStringLiteral("recordings"), s.recordings},
            {QStringLiteral("exchanges"), s.exchanges},
            {QStringLiteral("answered"), s.answered},
            {QStringLiteral("repeats"), s.repeats},
            {QStringLiteral("busy"), s.busy},
            {QStringLiteral("nak"), s.nak},
            {QStringLiteral("lost"), s.lost},
            {QStringLiteral("foreignFrames"), s.foreignFrames},
            {QStringLiteral("corruptFrames"), s.corruptFrames},
            {QStringLiteral("garbageBytes"), s.garbageBytes},
            {QStringLiteral("discardedBytes"), s.discardedBytes},
            {QStringLiteral("bytesWritten"), s.bytesWritten},
            {QStringLiteral("bytesRead"), s.bytesRead},
            {QStringLiteral("latencyMedianUs"), usValue(s.latencyMedianUs)},
            {QStringLiteral("latencyP99Us"), usValue(s.latencyP99Us)},
            {QStringLiteral("latencyMaxUs"), usValue(s.latencyMaxUs)},
            {QStringLiteral("longestSilenceUs"), s.longestSilenceUs},
            {QStringLiteral("longestSilenceFromUs"), s.longestSilenceFromUs},
            {QStringLiteral("longestSilenceRecording"), s.longestSilenceRecording}};
}

namespace {

QString skippedText(const trace::Reader& reader)
{
    return QStringLiteral("skipped %1 line(s), %2 byte(s), before the first whole exchange\n")
        .arg(reader.skippedLines())
        .arg(reader.skippedBytes());
}

// Text is shown as it is read, so a damaged trace is checked whole first and refused at its first
// bad line instead of being half printed.
bool checkWhole(const trace::FileSet& files, const Console& console)
{
    trace::Reader check(files.bytes, trace::Reader::AnyPoint);
    trace::Record record;
    trace::Reader::Result result;
    while ((result = check.next(&record)) == trace::Reader::Ok) {
    }
    if (result != trace::Reader::Error)
        return true;
    console.err(QStringLiteral("cpibcr: %1: %2\n").arg(files.where(check.errorLine()), check.reason()));
    return false;
}

QJsonObject traceDocument(const trace::FileSet& files, const trace::Reader& reader,
                          const QList<trace::Header>& headers, const trace::Summary& summary)
{
    QJsonArray recordings;
    for (int i = 0; i < headers.size(); ++i)
        recordings.append(recordingJson(headers.at(i), i + 1));
    return {{QStringLiteral("command"), QStringLiteral("trace")},
            {QStringLiteral("file"), files.paths.value(0)},
            {QStringLiteral("files"), QJsonArray::fromStringList(files.paths)},
            {QStringLiteral("skipped"), QJsonObject{{QStringLiteral("lines"), reader.skippedLines()},
                                                    {QStringLiteral("bytes"), reader.skippedBytes()}}},
            {QStringLiteral("recordings"), recordings},
            {QStringLiteral("summary"), summaryJson(summary)}};
}

} // namespace

int showTrace(const Arguments& a, const Console& console)
{
    const bool summaryOnly = a.summaryOnly;
    trace::FileSet files;
    QString error;
    if (!files.load(a.traceInputs, &error)) {
        console.err(QStringLiteral("cpibcr: %1\n").arg(error));
        return 1;
    }
    const bool json = console.json();
    if (!summaryOnly && !json && !checkWhole(files, console))
        return 1;

    QString text;
    QJsonArray exchanges;
    trace::Analyzer analyzer([&](const trace::Exchange& e) {
        if (summaryOnly)
            return;
        if (json) {
            exchanges.append(exchangeJson(e));
            return;
        }
        text += exchangeText(e);
        if (text.size() > 65536) {
            console.out(text);
            text.clear();
        }
    });
    trace::Reader reader(files.bytes, trace::Reader::AnyPoint);
    trace::Record record;
    trace::Reader::Result result;
    while ((result = reader.next(&record)) == trace::Reader::Ok) {
        analyzer.add(record);
        if (record.kind != trace::Record::HeaderRecord || summaryOnly || json)
            continue;
        if (analyzer.headers().size() == 1 && reader.skippedLines() > 0)
            text += skippedText(reader);
        text += recordingText(record.header, analyzer.headers().size());
    }
    if (result == trace::Reader::Error) {
        console.err(QStringLiteral("cpibcr: %1: %2\n").arg(files.where(reader.errorLine()), reader.reason()));
        return 1;
    }
    const trace::Summary summary = analyzer.finish();
    if (json) {
        QJsonObject document = traceDocument(files, reader, analyzer.headers(), summary);
        if (!summaryOnly)
            document.insert(QStringLiteral("exchanges"), exchanges);
        console.document(document);
        return 0;
    }
    if (summaryOnly && reader.skippedLines() > 0)
        text += skippedText(reader);
    if (!text.isEmpty())
        text += QLatin1Char('\n');
    console.out(text + summaryText(summary));
    return 0;
}

} // namespace tool
