#include "replayserver.h"

#include "fdio.h"

#include "host/fdwrite.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <poll.h>

namespace sim {

namespace {

qint64 nowUs(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
        .count();
}

} // namespace

int serveReplay(Replay& replay, int fd, int stopFd, int quietMs,
                const std::function<void(const QString&)>& say,
                const std::function<void(const QString&)>& complain)
{
    const auto start = std::chrono::steady_clock::now();
    std::deque<Replay::Out> queue;
    qint64 quietSince = -1;
    const auto take = [&](const QList<Replay::Out>& outs) {
        for (const Replay::Out& o : outs) {
            // In recorded order: a chunk never overtakes the one before it.
            const qint64 due = queue.empty() ? o.dueUs : std::max(o.dueUs, queue.back().dueUs);
            queue.push_back(Replay::Out{due, o.bytes});
        }
        for (const QString& note : replay.takeNotes())
            say(QStringLiteral("note: %1").arg(note));
    };
    for (;;) {
        qint64 now = nowUs(start);
        qint64 timeoutUs = 1000000;
        const auto consider = [&](qint64 due) {
            if (due >= 0)
                timeoutUs = std::min(timeoutUs, std::max<qint64>(0, due - now));
        };
        consider(queue.empty() ? -1 : queue.front().dueUs);
        consider(replay.deadline());
        consider(quietSince < 0 ? -1 : quietSince + qint64(quietMs) * 1000);
        pollfd fds[2] = {{fd, POLLIN, 0}, {stopFd, POLLIN, 0}};
        const timespec ts{time_t(timeoutUs / 1000000), long(timeoutUs % 1000000) * 1000};
        const int ready = ppoll(fds, stopFd >= 0 ? 2 : 1, &ts, nullptr);
        if (ready < 0 && errno != EINTR)
            break;
        if (stopFd >= 0 && (fds[1].revents & POLLIN)) {
            say(QStringLiteral("replay stopped after %1 of %2 requests")
                    .arg(replay.matched())
                    .arg(replay.total()));
            return replay.complete() ? 0 : 1;
        }
        if (fds[0].revents & (POLLERR | POLLNVAL))
            break;
        const QByteArray incoming = (fds[0].revents & (POLLIN | POLLHUP)) ? readAvailable(fd) : QByteArray();
        now = nowUs(start);
        if (!incoming.isEmpty()) {
            quietSince = -1;
            take(replay.receive(incoming, now));
        }
        take(replay.expire(now));
        if (replay.diverged()) {
            complain(replay.divergence());
            return 1;
        }
        while (!queue.empty() && queue.front().dueUs <= now) {
            if (!hw::writeAll(fd, queue.front().bytes, hw::WhenFull::Wait)) {
                complain(QStringLiteral("the line was lost"));
                return 1;
            }
            queue.pop_front();
        }
        if (replay.complete() && queue.empty() && replay.deadline() < 0) {
            if (quietSince < 0)
                quietSince = now;
            else if (now - quietSince >= qint64(quietMs) * 1000) {
                say(QStringLiteral("replay complete: all %1 requests of the recording matched")
                        .arg(replay.total()));
                return 0;
            }
        }
    }
    complain(QStringLiteral("the line was lost after %1 of %2 requests")
                 .arg(replay.matched())
                 .arg(replay.total()));
    return 1;
}

} // namespace sim
