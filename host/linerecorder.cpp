#include "host/linerecorder.h"

#include "host/fdwrite.h"
#include "host/logging.h"

#include <QDateTime>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace hw {

namespace {

using Clock = std::chrono::steady_clock;

struct Item
{
    bool isHeader;
    trace::Chunk chunk;
    QByteArray line; // the header line
};

} // namespace

struct LineRecorder::Private
{
    void run();
    // Called with the lock held.
    void failLocked(const QString& why);
    bool writeAll(const QByteArray& bytes, QString* why);

    std::mutex m;
    std::condition_variable wake;
    std::deque<Item> queue;
    qint64 queuedBytes = 0;
    bool stopping = false;
    std::atomic<bool> recording{false};
    bool headerQueued = false;
    int fd = -1;
    QString path;
    Clock::time_point start;
    QDateTime startedUtc;
    std::thread writer;
};

void LineRecorder::Private::failLocked(const QString& why)
{
    if (!recording)
        return;
    recording = false;
    queue.clear();
    queuedBytes = 0;
    logging::warn(logging::logger("cpibcr.trace"),
                  QStringLiteral("line recording to %1 stopped: %2; the session goes on").arg(path, why));
}

bool LineRecorder::Private::writeAll(const QByteArray& bytes, QString* why)
{
    if (hw::writeAll(fd, bytes, hw::WhenFull::GiveUp))
        return true;
    *why = errno ? QString::fromLocal8Bit(std::strerror(errno)) : QStringLiteral("nothing written");
    return false;
}

void LineRecorder::Private::run()
{
    std::unique_lock<std::mutex> lock(m);
    for (;;) {
        wake.wait(lock, [this] { return stopping || !queue.empty(); });
        if (queue.empty() && stopping)
            return;
        std::deque<Item> batch;
        batch.swap(queue);
        queuedBytes = 0;
        lock.unlock();
        QByteArray text;
        for (const Item& item : batch) {
            if (item.isHeader)
                text += item.line;
            else
                trace::appendChunkLine(text, item.chunk);
        }
        QString why;
        const bool written = writeAll(text, &why);
        lock.lock();
        if (!written)
            failLocked(why);
    }
}

LineRecorder::LineRecorder() : d(new Private) {}

LineRecorder::~LineRecorder()
{
    stop();
}

bool LineRecorder::start(const QString& path, QString* error)
{
    stop();
    const int fd = ::open(path.toLocal8Bit().constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) {
        if (error)
            *error = QStringLiteral("cannot write the trace %1: %2")
                         .arg(path, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    std::lock_guard<std::mutex> lock(d->m);
    d->fd = fd;
    d->path = path;
    d->stopping = false;
    d->headerQueued = false;
    d->start = Clock::now();
    d->startedUtc = QDateTime::currentDateTimeUtc();
    d->recording = true;
    d->writer = std::thread([this] { d->run(); });
    return true;
}

void LineRecorder::stop()
{
    {
        std::lock_guard<std::mutex> lock(d->m);
        if (!d->writer.joinable())
            return;
        d->stopping = true;
    }
    d->wake.notify_one();
    d->writer.join();
    std::lock_guard<std::mutex> lock(d->m);
    d->recording = false;
    ::close(d->fd);
    d->fd = -1;
}

bool LineRecorder::isRecording() const
{
    return d->recording;
}

QString LineRecorder::path() const
{
    std::lock_guard<std::mutex> lock(d->m);
    return d->path;
}

bool LineRecorder::hasHeader() const
{
    std::lock_guard<std::mutex> lock(d->m);
    return d->headerQueued;
}

void LineRecorder::header(trace::Header header)
{
    {
        std::lock_guard<std::mutex> lock(d->m);
        if (!d->recording)
            return;
        header.started = d->startedUtc;
        Item item{true, trace::Chunk(), trace::headerLine(header)};
        d->queuedBytes += item.line.size();
        d->queue.push_back(std::move(item));
        d->headerQueued = true;
    }
    d->wake.notify_one();
}

void LineRecorder::chunk(trace::Direction direction, const QByteArray& bytes)
{
    if (!d->recording || bytes.isEmpty())
        return;
    const qint64 us = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - d->start).count();
    {
        std::lock_guard<std::mutex> lock(d->m);
        if (!d->recording)
            return;
        d->queuedBytes += bytes.size() * 3 + 24;
        if (d->queuedBytes > queueLimit) {
            d->failLocked(QStringLiteral("the disk cannot keep up with the line"));
            return;
        }
        d->queue.push_back(Item{false, trace::Chunk{us, direction, bytes}, QByteArray()});
    }
    d->wake.notify_one();
}

} // namespace hw
