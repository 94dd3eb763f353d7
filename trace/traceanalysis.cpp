#include "trace/traceanalysis.h"

#include "cctalk/package.h"

#include <algorithm>

namespace trace {

namespace {

using CcTalk::broadcastAddress;
const int shortestFrame = CcTalk::frameOverhead;
const int longestFrame = CcTalk::maxFrameBytes;

int lengthOf(const char* frameStart)
{
    return static_cast<unsigned char>(frameStart[1]) + shortestFrame;
}

// Splits bytes that held no frame the assembly could take into frames whose checksum failed and
// bytes that start no frame. With `tailIsCut` the bytes after the last such frame are the start
// of one that never completed.
void splitDropped(const char* bytes, int size, qint64 us, bool tailIsCut, QList<Piece>& out)
{
    int garbageFrom = 0;
    int pos = 0;
    const auto flushGarbage = [&](int upTo, Piece::Kind kind) {
        if (upTo > garbageFrom)
            out.append(Piece{kind, us, QByteArray(bytes + garbageFrom, upTo - garbageFrom)});
    };
    while (pos < size) {
        if (size - pos >= shortestFrame) {
            const int length = lengthOf(bytes + pos);
            if (length <= longestFrame && length <= size - pos) {
                flushGarbage(pos, Piece::Garbage);
                out.append(Piece{Piece::Corrupt, us, QByteArray(bytes + pos, length)});
                pos += length;
                garbageFrom = pos;
                continue;
            }
        }
        ++pos;
    }
    flushGarbage(size, tailIsCut ? Piece::Cut : Piece::Garbage);
}

qint64 timeAt(const std::vector<int>& chunkEnds, const std::vector<qint64>& chunkTimes, int lastByte)
{
    const auto it = std::upper_bound(chunkEnds.begin(), chunkEnds.end(), lastByte);
    if (it == chunkEnds.end())
        return chunkTimes.empty() ? 0 : chunkTimes.back();
    return chunkTimes[size_t(it - chunkEnds.begin())];
}

qint64 percentile(std::vector<qint64>& values, int percent)
{
    if (values.empty())
        return -1;
    // Nearest rank: the smallest value with at least `percent` per cent of the values at or below it.
    size_t rank = (values.size() * size_t(percent) + 99) / 100;
    rank = std::max<size_t>(rank, 1);
    std::nth_element(values.begin(), values.begin() + long(rank - 1), values.end());
    return values[rank - 1];
}

} // namespace

QString headerName(int header)
{
    const CcTalk::Request request(CcTalk::Header::Type(header & 0xFF), QByteArray());
    const QString name = request.getName();
    // Codes without a ccTalk name have no key.
    return name.startsWith(QLatin1Char(' ')) ? QStringLiteral("unknown") + name : name;
}

QString hexText(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex(' ').toUpper());
}

bool isWholeFrame(const QByteArray& bytes)
{
    return bytes.size() >= shortestFrame && lengthOf(bytes.constData()) == bytes.size();
}

bool checksumGood(const QByteArray& frame)
{
    unsigned char sum = 0;
    for (const char c : frame)
        sum = static_cast<unsigned char>(sum + static_cast<unsigned char>(c));
    return sum == 0;
}

QString describeFrame(const QByteArray& frame)
{
    if (frame.size() < 4)
        return QStringLiteral("%1 byte(s) %2, not a frame").arg(frame.size()).arg(hexText(frame));
    CcTalk::Response parsed;
    parsed.setRawData(frame);
    const QByteArray data = parsed.getData();
    QString text = QStringLiteral("%1 -> %2  %3  data %4")
                       .arg(unsigned(parsed.getSource()))
                       .arg(unsigned(parsed.getDestination()))
                       .arg(headerName(int(parsed.getHeader())))
                       .arg(data.isEmpty() ? QStringLiteral("-") : hexText(data));
    if (!isWholeFrame(frame))
        return text + QStringLiteral("  length byte says %1 bytes, %2 came")
                          .arg(lengthOf(frame.constData()))
                          .arg(frame.size());
    return text + (checksumGood(frame) ? QStringLiteral("  checksum ok") : QStringLiteral("  checksum bad"));
}

QList<Piece> takeApart(const QByteArray& read, const std::vector<int>& chunkEnds,
                       const std::vector<qint64>& chunkTimes, int expectedSource)
{
    QList<Piece> pieces;
    const char* bytes = read.constData();
    const int size = read.size();
    int pos = 0;
    int droppedFrom = -1;
    const auto flushDropped = [&]() {
        if (droppedFrom < 0)
            return;
        splitDropped(bytes + droppedFrom, pos - droppedFrom, timeAt(chunkEnds, chunkTimes, pos - 1), false,
                     pieces);
        droppedFrom = -1;
    };
    bool answered = false;
    while (!answered && size - pos >= shortestFrame) {
        const int length = lengthOf(bytes + pos);
        const int window = length > longestFrame ? shortestFrame : length;
        if (window > size - pos)
            break;
        // Every decision is the driver's: a fresh assembly given exactly the bytes from here to
        // where the length byte says the frame ends.
        CcTalk::Response assembly;
        if (expectedSource >= 0)
            assembly.expectFrom(static_cast<unsigned char>(expectedSource));
        assembly.addRawData(QByteArray::fromRawData(bytes + pos, window));
        if (assembly.droppedBytes() > 0) {
            if (droppedFrom < 0)
                droppedFrom = pos;
            ++pos;
            continue;
        }
        flushDropped();
        const QByteArray frame(bytes + pos, length);
        const qint64 us = timeAt(chunkEnds, chunkTimes, pos + length - 1);
        if (assembly.isValid()) {
            pieces.append(Piece{Piece::Answer, us, frame});
            answered = true;
        } else if (assembly.foreignFrames() > 0) {
            pieces.append(Piece{Piece::Foreign, us, frame});
        } else {
            pieces.append(Piece{Piece::Echo, us, frame});
        }
        pos += length;
    }
    if (answered) {
        if (pos < size)
            pieces.append(Piece{Piece::Ignored, timeAt(chunkEnds, chunkTimes, size - 1), read.mid(pos)});
    } else {
        // Nothing was taken: what the assembly dropped and what it still waited for, shown whole.
        const int from = droppedFrom >= 0 ? droppedFrom : pos;
        if (from < size)
            splitDropped(bytes + from, size - from, timeAt(chunkEnds, chunkTimes, size - 1), true, pieces);
    }
    return pieces;
}

Analyzer::Analyzer(Sink s) : sink(std::move(s)) {}

void Analyzer::add(const Record& record)
{
    if (record.kind == Record::HeaderRecord) {
        close();
        recordings.append(record.header);
        summary.recordings = recordings.size();
        lastUs = -1;
        lastInRecording = false;
        return;
    }
    const Chunk& chunk = record.chunk;
    if (lastUs >= 0 && chunk.us - lastUs > summary.longestSilenceUs) {
        summary.longestSilenceUs = chunk.us - lastUs;
        summary.longestSilenceFromUs = lastUs;
        summary.longestSilenceRecording = summary.recordings;
    }
    lastUs = chunk.us;
    switch (chunk.direction) {
    case Direction::Written:
        close();
        open = true;
        current = Exchange();
        current.number = summary.exchanges + 1;
        current.recording = summary.recordings;
        current.us = chunk.us;
        current.request = chunk.bytes;
        summary.bytesWritten += chunk.bytes.size();
        break;
    case Direction::Read:
        summary.bytesRead += chunk.bytes.size();
        if (!open) {
            // The driver reads only after a request: these bytes belong to no exchange.
            summary.garbageBytes += chunk.bytes.size();
            break;
        }
        read.append(chunk.bytes);
        chunkEnds.push_back(read.size());
        chunkTimes.push_back(chunk.us);
        break;
    case Direction::Discarded:
        summary.discardedBytes += chunk.bytes.size();
        if (open)
            current.discarded.append(chunk.bytes);
        break;
    }
}

void Analyzer::close()
{
    if (!open)
        return;
    open = false;
    Exchange& e = current;
    int expected = -1;
    if (e.request.size() >= 4 && static_cast<unsigned char>(e.request.at(0)) != broadcastAddress)
        expected = static_cast<unsigned char>(e.request.at(0));
    e.line = takeApart(read, chunkEnds, chunkTimes, expected);
    for (const Piece& piece : e.line) {
        switch (piece.kind) {
        case Piece::Answer:
            e.answer = piece.bytes;
            e.answerUs = piece.us;
            break;
        case Piece::Foreign:
            ++summary.foreignFrames;
            break;
        case Piece::Corrupt:
            ++summary.corruptFrames;
            break;
        case Piece::Garbage:
            summary.garbageBytes += piece.bytes.size();
            break;
        default:
            break;
        }
    }
    if (e.answer.isEmpty()) {
        e.outcome = Exchange::Lost;
        ++summary.lost;
    } else {
        ++summary.answered;
        latencies.push_back(e.latencyUs());
        const int header = static_cast<unsigned char>(e.answer.at(3));
        if (header == CcTalk::Header::NAK) {
            e.outcome = Exchange::Nak;
            ++summary.nak;
        } else if (header == CcTalk::Header::BUSY) {
            e.outcome = Exchange::Busy;
            ++summary.busy;
        } else {
            e.outcome = Exchange::Answered;
        }
    }
    e.repeat = lastInRecording && e.request == lastRequest &&
               (lastOutcome == Exchange::Lost || lastOutcome == Exchange::Busy);
    if (e.repeat)
        ++summary.repeats;
    ++summary.exchanges;
    lastRequest = e.request;
    lastOutcome = e.outcome;
    lastInRecording = true;
    read.clear();
    chunkEnds.clear();
    chunkTimes.clear();
    if (sink)
        sink(e);
}

Summary Analyzer::finish()
{
    close();
    Summary s = summary;
    std::vector<qint64> values = latencies;
    s.latencyMedianUs = percentile(values, 50);
    s.latencyP99Us = percentile(values, 99);
    s.latencyMaxUs = values.empty() ? -1 : *std::max_element(values.begin(), values.end());
    return s;
}

} // namespace trace
