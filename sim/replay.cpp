#include "replay.h"

#include "frame.h"
#include "trace/traceanalysis.h"

#include <cmath>

namespace sim {

namespace {

const quint8 modRealTimeClock = 116;

bool isClockSet(const QByteArray& frame)
{
    return frame.size() >= 4 && quint8(frame.at(3)) == modRealTimeClock;
}

} // namespace

QList<ReplayStep> replaySteps(const QList<trace::Record>& records)
{
    QList<ReplayStep> steps;
    qint64 number = 0;
    int recording = 0;
    bool open = false;
    for (const trace::Record& record : records) {
        if (record.kind == trace::Record::HeaderRecord) {
            ++recording;
            open = false;
            continue;
        }
        const trace::Chunk& chunk = record.chunk;
        if (chunk.direction == trace::Direction::Written) {
            ReplayStep step;
            step.number = ++number;
            step.recording = recording;
            step.us = chunk.us;
            step.request = chunk.bytes;
            steps.append(step);
            open = true;
        } else if (chunk.direction == trace::Direction::Read && open) {
            steps.last().replies.append(ReplayStep::Reply{chunk.us - steps.last().us, chunk.bytes});
        }
    }
    return steps;
}

Replay::Replay(QList<ReplayStep> recorded, double factor) : steps(std::move(recorded)), speed(factor)
{
    // Whether the recorded line repeated the host's bytes, as the single-wire bus does.
    for (const ReplayStep& step : steps) {
        if (!step.replies.isEmpty()) {
            echoing = step.replies.first().bytes.startsWith(step.request);
            break;
        }
    }
}

QStringList Replay::takeNotes()
{
    QStringList taken;
    taken.swap(notes);
    return taken;
}

qint64 Replay::deadline() const
{
    if (pending.isEmpty() || diverged())
        return -1;
    return lastByteUs + qint64(interByteTimeoutMs) * 1000;
}

QList<Replay::Out> Replay::receive(const QByteArray& bytes, qint64 nowUs)
{
    QList<Out> out;
    if (diverged())
        return out;
    pending.append(bytes);
    lastByteUs = nowUs;
    while (!diverged() && pending.size() >= 2) {
        const int length = quint8(pending.at(1)) + 5;
        if (pending.size() < length)
            break;
        const QByteArray frame = pending.left(length);
        pending.remove(0, length);
        out += handle(frame, nowUs);
    }
    return out;
}

QList<Replay::Out> Replay::expire(qint64 nowUs)
{
    const qint64 due = deadline();
    if (due < 0 || nowUs < due)
        return {};
    const QByteArray frame = pending;
    pending.clear();
    return handle(frame, nowUs);
}

QList<Replay::Out> Replay::handle(const QByteArray& frame, qint64 nowUs)
{
    QList<Out> out;
    if (next >= steps.size()) {
        divergenceText = QStringLiteral("the host sent a request after the last one of the recording (%1):\n"
                                        "  received: %2\n")
                             .arg(steps.size())
                             .arg(trace::describeFrame(frame));
        return out;
    }
    const ReplayStep& step = steps.at(next);
    // Setting the clock carries the host's own time, which no recording can match: header and
    // length must.
    const bool same = frame == step.request ||
                      (isClockSet(frame) && isClockSet(step.request) && frame.size() == step.request.size());
    if (same) {
        for (const ReplayStep::Reply& reply : step.replies)
            out.append(Out{nowUs + qint64(std::llround(double(reply.afterUs) / speed)), reply.bytes});
        ++next;
        return out;
    }
    if (isClockSet(frame) && !isClockSet(step.request) && frame::isComplete(frame)) {
        // The recorded clock answer is older now than it was at the site, so this host finds the
        // device's clock wrong where the recorded host did not. The device takes the time.
        notes.append(QStringLiteral("before request %1 the host set the device's clock, which the recorded "
                                    "host did not (the recorded clock is older now); answered ACK")
                         .arg(step.number));
        if (echoing)
            out.append(Out{nowUs, frame});
        out.append(Out{nowUs, frame::make(frame::source(frame), frame::dest(frame), frame::Ack)});
        return out;
    }
    divergenceText = QStringLiteral("divergence at request %1 of %2 (recording %3, %4 s):\n"
                                    "  recorded: %5\n"
                                    "  received: %6\n")
                         .arg(step.number)
                         .arg(steps.size())
                         .arg(step.recording)
                         .arg(QString::number(double(step.us) / 1e6, 'f', 6),
                              trace::describeFrame(step.request), trace::describeFrame(frame));
    return out;
}

} // namespace sim
