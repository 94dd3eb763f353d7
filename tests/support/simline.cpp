#include "simline.h"

#include "cctalk/device.h"
#include "host/timer.h"
#include "sim/frame.h"

#include <QVector>

#include <algorithm>

namespace testsupport {

SimLine::SimLine(const sim::Config& config, QObject* parent)
    : QObject(parent), model(config), echo(config.echo)
{
}

void SimLine::advance(qint64 msecs)
{
    advanceTo(nowMs + std::max<qint64>(0, msecs));
}

void SimLine::advanceTo(qint64 ms)
{
    for (;;) {
        qint64 next = -1;
        for (const Scheduled& s : qAsConst(scheduled))
            if (next < 0 || s.due < next)
                next = s.due;
        if (babble && (next < 0 || nextBabbleMs < next))
            next = nextBabbleMs;
        if (next < 0 || next > ms)
            break;
        nowMs = std::max(nowMs, next);
        model.advanceTo(nowMs);
        if (babble && nextBabbleMs <= nowMs) {
            std::uniform_int_distribution<int> len(1, 8), byte(0, 255);
            QByteArray noise;
            for (int i = len(rng); i > 0; --i)
                noise.append(char(byte(rng)));
            enqueue(nowMs, noise);
            nextBabbleMs = nowMs + std::max(1, config().babbleIntervalMs);
        }
        for (int i = 0; i < scheduled.size();) {
            if (scheduled.at(i).due <= nowMs) {
                const std::function<void()> action = scheduled.takeAt(i).action;
                action();
            } else {
                ++i;
            }
        }
    }
    nowMs = std::max(nowMs, ms);
    model.advanceTo(nowMs);
    deliver();
}

void SimLine::at(qint64 ms, std::function<void()> action)
{
    scheduled.append(Scheduled{ms, std::move(action)});
}

void SimLine::runTimer(Timer* timer, qint64 msecs)
{
    runTimers({timer}, msecs);
}

void SimLine::runTimers(const QList<Timer*>& timers, qint64 msecs)
{
    const qint64 end = nowMs + msecs;
    // When each timer fires next; -1 while it is stopped. A timer started by a handler
    // counts its interval from then.
    QVector<qint64> fireAt(timers.size(), -1);
    auto refresh = [&] {
        for (int i = 0; i < timers.size(); ++i) {
            if (!timers.at(i)->isActive())
                fireAt[i] = -1;
            else if (fireAt.at(i) < 0)
                fireAt[i] = nowMs + std::max(1, timers.at(i)->interval());
        }
    };
    refresh();
    for (;;) {
        int first = -1;
        for (int i = 0; i < timers.size(); ++i)
            if (fireAt.at(i) >= 0 && fireAt.at(i) <= end && (first < 0 || fireAt.at(i) < fireAt.at(first)))
                first = i;
        if (first < 0)
            break;
        Timer* timer = timers.at(first);
        advanceTo(fireAt.at(first));
        // A single-shot timer is no longer active once it has fired; its handler may
        // start it again. A repeating one keeps its beat.
        if (timer->isSingleShot()) {
            timer->stop();
            fireAt[first] = -1;
        } else {
            fireAt[first] = std::max(fireAt.at(first) + std::max(1, timer->interval()), nowMs);
        }
        emit timer->timeout();
        refresh();
    }
    advanceTo(end);
}

void SimLine::attach(CcTalk::Device& bus)
{
    bus.setClock([this] { return nowMs; });
    bus.setSleeper([this](int msecs) {
        pauses.append(msecs);
        advance(msecs);
    });
}

void SimLine::splitNext(int pieces, int pauseMs)
{
    faults.splitPieces = pieces;
    faults.splitPauseMs = pauseMs;
}

void SimLine::setBabble(bool on)
{
    if (on && !babble)
        nextBabbleMs = nowMs;
    babble = on;
}

void SimLine::clearLineFaults()
{
    faults.clear();
    babble = silent = false;
    echo = config().echo;
}

int SimLine::countHeader(quint8 header) const
{
    return int(std::count_if(log.cbegin(), log.cend(),
                             [header](const sim::Transaction& t) { return t.header == header; }));
}

void SimLine::discardInput()
{
    deliver();
    arrived.clear();
}

void SimLine::write(const QByteArray& data)
{
    ++framesWritten;
    if (echo)
        enqueue(nowMs, data);
    if (sim::frame::isComplete(data))
        handleFrame(data);
    deliver();
}

bool SimLine::waitForInput(int msecs)
{
    deliver();
    if (!arrived.isEmpty())
        return true;
    const qint64 next = nextInputMs();
    if (next >= 0 && next <= nowMs + msecs) {
        advanceTo(next);
        return true;
    }
    advance(msecs);
    ++waitsTimedOut;
    return false;
}

QByteArray SimLine::read(int maxSize)
{
    deliver();
    QByteArray bytes;
    while (!arrived.isEmpty() && (maxSize <= 0 || bytes.size() < maxSize)) {
        QByteArray& first = arrived.first();
        const int take = maxSize <= 0 ? first.size() : std::min(first.size(), maxSize - bytes.size());
        bytes += first.left(take);
        if (take == first.size())
            arrived.removeFirst();
        else
            first.remove(0, take);
    }
    return bytes;
}

void SimLine::enqueue(qint64 due, const QByteArray& bytes)
{
    if (bytes.isEmpty())
        return;
    if (!out.empty())
        due = std::max(due, out.back().due);
    out.push_back(Out{due, bytes});
}

void SimLine::deliver()
{
    while (!out.empty() && out.front().due <= nowMs) {
        arrived.append(out.front().bytes);
        out.pop_front();
    }
}

qint64 SimLine::nextInputMs() const
{
    qint64 next = out.empty() ? -1 : out.front().due;
    if (babble && (next < 0 || nextBabbleMs < next))
        next = nextBabbleMs;
    return next;
}

void SimLine::handleFrame(const QByteArray& f)
{
    const quint8 address = config().address;
    if (sim::frame::dest(f) != address)
        return;
    if (requestHook)
        requestHook(f);
    sim::Transaction t{nowMs, sim::frame::header(f), f, QByteArray()};
    if (silent) {
        log.append(t);
        return;
    }
    const QList<sim::LineFaults::Piece> pieces =
        faults.respond(f, address, [this](const QByteArray& request) { return model.handleFrame(request); });
    qint64 due = nowMs + config().answerDelayMs;
    for (const sim::LineFaults::Piece& piece : pieces) {
        if (piece.pauseMs > 0)
            due = out.back().due + piece.pauseMs;
        enqueue(due, piece.bytes);
        t.answer += piece.bytes;
    }
    log.append(t);
}

} // namespace testsupport
