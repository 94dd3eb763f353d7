#pragma once

#include "trace/traceformat.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>
#include <vector>

// A trace read as ccTalk: every request the host wrote, with what the line gave back for it,
// taken apart by the driver's own answer assembly (CcTalk::Response).
namespace trace {

// Something the host read after a request.
struct Piece
{
    enum Kind {
        Echo,    // a frame from the host's own address: its transmission heard back
        Answer,  // the frame the driver takes as the answer
        Foreign, // a checksum-correct frame that is not the answer (other stations)
        Corrupt, // frame-shaped bytes whose checksum fails
        Garbage, // bytes that start no frame
        Cut,     // the start of a frame that never completed
        Ignored  // bytes after the answer, which the assembly drops
    };
    Kind kind = Garbage;
    qint64 us = 0; // when the host read its last byte
    QByteArray bytes;
};

// One request written by the host and everything up to its next request.
struct Exchange
{
    enum Outcome { Answered, Nak, Busy, Lost };

    qint64 number = 0;  // from 1, over the whole file
    int recording = 0;  // from 1
    qint64 us = 0;      // time of the request within its recording
    QByteArray request; // the bytes written
    Outcome outcome = Lost;
    QByteArray answer; // the answer frame; empty when lost
    qint64 answerUs = -1;
    QList<Piece> line;
    QByteArray discarded; // read and thrown away by the host before its next request
    bool repeat = false;  // the same request again after a lost answer or BUSY

    qint64 latencyUs() const { return answerUs < 0 ? -1 : answerUs - us; }
};

struct Summary
{
    int recordings = 0;
    qint64 exchanges = 0;
    qint64 answered = 0; // an answer of any kind, BUSY and NAK included
    qint64 repeats = 0;
    qint64 busy = 0;
    qint64 nak = 0;
    qint64 lost = 0;
    qint64 foreignFrames = 0;
    qint64 corruptFrames = 0;
    qint64 garbageBytes = 0;
    qint64 discardedBytes = 0;
    qint64 bytesWritten = 0;
    qint64 bytesRead = 0;
    qint64 latencyMedianUs = -1;
    qint64 latencyP99Us = -1;
    qint64 latencyMaxUs = -1;
    // The longest time with nothing written or read, within one recording.
    qint64 longestSilenceUs = 0;
    qint64 longestSilenceFromUs = 0;
    int longestSilenceRecording = 0;
};

// Frame texts as the driver's log writes them: "simplePoll (254)".
QString headerName(int header);
// "1 -> 55  reqHopperBalance (119)  data 02  checksum ok"; bytes that are not one whole frame are
// described as such.
QString describeFrame(const QByteArray& frame);
// Whether the bytes are one whole frame (length byte agrees) whose bytes sum to 0 modulo 256.
bool isWholeFrame(const QByteArray& bytes);
bool checksumGood(const QByteArray& frame);
QString hexText(const QByteArray& bytes);

// Takes the lines of what the host read after one request apart, the way the driver's answer
// assembly does. `chunkEnds` and `chunkTimes` give the chunks the bytes came in.
QList<Piece> takeApart(const QByteArray& read, const std::vector<int>& chunkEnds,
                       const std::vector<qint64>& chunkTimes, int expectedSource);

// Reads records in file order and hands out every exchange as soon as it is complete.
class Analyzer
{
public:
    using Sink = std::function<void(const Exchange&)>;
    explicit Analyzer(Sink sink = Sink());

    void add(const Record& record);
    // Completes the last exchange and the figures.
    Summary finish();
    const QList<Header>& headers() const { return recordings; }

private:
    void close();

    Sink sink;
    Summary summary;
    QList<Header> recordings;
    bool open = false;
    Exchange current;
    QByteArray read;
    std::vector<int> chunkEnds;
    std::vector<qint64> chunkTimes;
    QByteArray lastRequest;
    Exchange::Outcome lastOutcome = Exchange::Answered;
    bool lastInRecording = false;
    qint64 lastUs = -1;
    std::vector<qint64> latencies;
};

} // namespace trace
