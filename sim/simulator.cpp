#include "simulator.h"

#include "fdio.h"
#include "frame.h"
#include "linefaults.h"
#include "serialline.h"

#include <QMap>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <random>
#include <thread>
#include <unistd.h>

namespace sim {

struct Simulator::Private
{
    explicit Private(const Config& c)
        : config(c), device(c), reader(c.interByteTimeoutMs), echo(c.echo),
          start(std::chrono::steady_clock::now())
    {
    }

    struct Out
    {
        qint64 dueUs;
        QByteArray bytes;
    };

    qint64 nowUs() const
    {
        return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
            .count();
    }
    void catchUp() { device.advanceTo(nowUs() / 1000); }
    void wake() const
    {
        if (wakePipe[1] >= 0) {
            const char b = 1;
            [[maybe_unused]] const ssize_t n = ::write(wakePipe[1], &b, 1);
        }
    }
    template <typename F> void control(F&& f)
    {
        {
            std::lock_guard<std::mutex> lock(m);
            catchUp();
            f();
        }
        wake();
    }
    // The next n requests meet this line fault.
    void countNext(int LineFaults::*fault, int n)
    {
        control([&] { faults.*fault = std::max(0, n); });
    }
    // The answers to the next n requests with this header (-1: any) are lost.
    void dropNext(int n, int header)
    {
        control([&] {
            faults.drop = std::max(0, n);
            faults.dropHeader = header;
        });
    }
    template <typename F> auto read(F&& f)
    {
        std::lock_guard<std::mutex> lock(m);
        catchUp();
        return f();
    }
    qint64 byteUs() const { return std::max<qint64>(1, 10000000LL / std::max(1, config.baudRate)); }

    void enqueue(qint64 dueUs, const QByteArray& bytes);
    void handleFrame(const QByteArray& f, qint64 nowUs);
    void run();
    bool start_(int ioFd, QString* error);
    void flush(qint64 nowUs);

    mutable std::mutex m;
    Config config;
    Device device;
    FrameReader reader;

    int fd = -1;
    int slaveFd = -1;
    int wakePipe[2] = {-1, -1};
    QString path;
    std::thread thread;
    std::atomic<bool> running{false};

    LineFaults faults;
    QMap<quint8, std::function<void(Device&)>> triggers;
    bool babble = false, silent = false, pacing = false, echo = true;
    qint64 nextBabbleUs = -1;
    std::mt19937 rng{20240607};

    std::deque<Out> out;
    qint64 lastDueUs = 0;
    QList<Transaction> log;
    std::chrono::steady_clock::time_point start;
};

void Simulator::Private::enqueue(qint64 dueUs, const QByteArray& bytes)
{
    if (bytes.isEmpty())
        return;
    dueUs = std::max(dueUs, lastDueUs);
    if (pacing) {
        for (char c : bytes) {
            out.push_back(Out{dueUs, QByteArray(1, c)});
            dueUs += byteUs();
        }
        lastDueUs = dueUs;
    } else {
        out.push_back(Out{dueUs, bytes});
        lastDueUs = dueUs;
    }
}

void Simulator::Private::handleFrame(const QByteArray& f, qint64 now)
{
    if (frame::dest(f) != config.address)
        return;
    Transaction t{now / 1000, frame::header(f), f, QByteArray()};
    if (triggers.contains(frame::header(f)))
        triggers.take(frame::header(f))(device);
    if (silent) {
        log.append(t);
        return;
    }
    const QList<LineFaults::Piece> pieces = faults.respond(
        f, config.address, [this](const QByteArray& request) { return device.handleFrame(request); });
    qint64 due = now + qint64(config.answerDelayMs) * 1000;
    for (const LineFaults::Piece& piece : pieces) {
        if (piece.pauseMs > 0)
            due = lastDueUs + qint64(piece.pauseMs) * 1000;
        enqueue(due, piece.bytes);
        t.answer += piece.bytes;
    }
    log.append(t);
}

void Simulator::Private::flush(qint64 now)
{
    while (!out.empty() && out.front().dueUs <= now) {
        QByteArray& bytes = out.front().bytes;
        const ssize_t n = ::write(fd, bytes.constData(), size_t(bytes.size()));
        if (n < 0 && errno == EINTR)
            continue;
        if (n > 0 && n < bytes.size()) {
            bytes.remove(0, int(n));
            continue;
        }
        out.pop_front();
    }
}

void Simulator::Private::run()
{
    char buf[512];
    while (running) {
        qint64 timeoutUs = 1000000;
        {
            std::lock_guard<std::mutex> lock(m);
            const qint64 now = nowUs();
            auto consider = [&](qint64 dueUs) {
                if (dueUs >= 0)
                    timeoutUs = std::min(timeoutUs, std::max<qint64>(0, dueUs - now));
            };
            const qint64 event = device.nextEventMs();
            consider(event < 0 ? -1 : event * 1000);
            consider(out.empty() ? -1 : out.front().dueUs);
            const qint64 deadline = reader.deadline();
            consider(deadline < 0 ? -1 : deadline * 1000);
            consider(babble ? nextBabbleUs : -1);
        }
        pollfd fds[2] = {{fd, POLLIN, 0}, {wakePipe[0], POLLIN, 0}};
        const timespec ts{time_t(timeoutUs / 1000000), long(timeoutUs % 1000000) * 1000};
        const int ready = ppoll(fds, 2, &ts, nullptr);
        if (ready < 0 && errno != EINTR)
            break;
        if (fds[1].revents & POLLIN)
            while (::read(wakePipe[0], buf, sizeof buf) > 0) {
            }
        // A serial device that went away reports an error or a hang-up without data for ever.
        if (fds[0].revents & (POLLERR | POLLNVAL))
            break;
        const QByteArray incoming = (fds[0].revents & (POLLIN | POLLHUP)) ? readAvailable(fd) : QByteArray();
        if ((fds[0].revents & POLLHUP) && incoming.isEmpty())
            break;
        std::lock_guard<std::mutex> lock(m);
        const qint64 now = nowUs();
        device.advanceTo(now / 1000);
        QList<QByteArray> frames = reader.expire(now / 1000);
        if (!incoming.isEmpty()) {
            if (echo)
                enqueue(now, incoming);
            frames += reader.feed(incoming, now / 1000);
        }
        for (const QByteArray& f : frames)
            handleFrame(f, now);
        if (babble && now >= nextBabbleUs) {
            std::uniform_int_distribution<int> len(1, 8), byte(0, 255);
            QByteArray noise;
            for (int i = len(rng); i > 0; --i)
                noise.append(char(byte(rng)));
            enqueue(now, noise);
            nextBabbleUs = now + qint64(std::max(1, config.babbleIntervalMs)) * 1000;
        }
        flush(now);
    }
    running = false;
}

bool Simulator::Private::start_(int ioFd, QString* error)
{
    if (pipe2(wakePipe, O_NONBLOCK | O_CLOEXEC) != 0) {
        if (error)
            *error = QStringLiteral("pipe: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        ::close(ioFd);
        return false;
    }
    fd = ioFd;
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    running = true;
    thread = std::thread([this] { run(); });
    return true;
}

Simulator::Simulator(const Config& config) : d(new Private(config)) {}

Simulator::~Simulator()
{
    stop();
}

bool Simulator::openPty(QString* error)
{
    stop();
    int master = -1, slave = -1;
    QString name;
    if (!openRawPty(d->config.baudRate, &master, &slave, &name, error))
        return false;
    // The simulator keeps the slave side open so that the master never sees a hang-up while the
    // host closes and reopens the port.
    std::lock_guard<std::mutex> lock(d->m);
    d->slaveFd = slave;
    d->path = name;
    return d->start_(master, error);
}

bool Simulator::openDevice(const QString& path, QString* error)
{
    stop();
    const int fd = openRawDevice(path, d->config.baudRate, error);
    if (fd < 0)
        return false;
    std::lock_guard<std::mutex> lock(d->m);
    d->path = path;
    return d->start_(fd, error);
}

QString Simulator::portPath() const
{
    std::lock_guard<std::mutex> lock(d->m);
    return d->path;
}

bool Simulator::isRunning() const
{
    return d->running;
}

void Simulator::stop()
{
    if (d->thread.joinable()) {
        d->running = false;
        d->wake();
        d->thread.join();
    }
    std::lock_guard<std::mutex> lock(d->m);
    for (int* f : {&d->fd, &d->slaveFd, &d->wakePipe[0], &d->wakePipe[1]}) {
        if (*f >= 0)
            ::close(*f);
        *f = -1;
    }
    d->out.clear();
    d->reader.clear();
}

void Simulator::dropAnswers(int n)
{
    d->dropNext(n, -1);
}
void Simulator::answerBusy(int n)
{
    d->countNext(&LineFaults::busy, n);
}
void Simulator::nakNext(int n)
{
    d->countNext(&LineFaults::nak, n);
}
void Simulator::corruptChecksumNext(int n)
{
    d->countNext(&LineFaults::corrupt, n);
}
void Simulator::shortenNext(int n)
{
    d->countNext(&LineFaults::shorten, n);
}
void Simulator::dropAnswersTo(quint8 header, int n)
{
    d->dropNext(n, header);
}
void Simulator::foreignFrameBeforeNext(int n)
{
    d->countNext(&LineFaults::foreign, n);
}
void Simulator::badFrameBeforeNext(int n)
{
    d->countNext(&LineFaults::badFrame, n);
}
void Simulator::garbageBeforeNext(const QByteArray& bytes)
{
    d->control([&] { d->faults.garbage = bytes; });
}
void Simulator::splitNext(int pieces, int pauseMs)
{
    d->control([&] {
        d->faults.splitPieces = std::max(0, pieces);
        d->faults.splitPauseMs = std::max(0, pauseMs);
    });
}
void Simulator::setBabble(bool on)
{
    d->control([&] {
        d->babble = on;
        d->nextBabbleUs = d->nowUs();
    });
}
void Simulator::setSilent(bool on)
{
    d->control([&] { d->silent = on; });
}
void Simulator::setPacing(bool on)
{
    d->control([&] { d->pacing = on; });
}
void Simulator::setEcho(bool on)
{
    d->control([&] { d->echo = on; });
}
void Simulator::clearLineFaults()
{
    d->control([&] {
        d->faults.clear();
        d->babble = d->silent = d->pacing = false;
    });
}

bool Simulator::setAuditCounter(quint8 group, quint8 index, quint32 value)
{
    bool set = false;
    d->control([&] { set = d->device.setAuditCounter(group, index, value); });
    return set;
}

int Simulator::hopperCount(int hopper) const
{
    return d->read([&] { return d->device.hopperCount(hopper); });
}
quint32 Simulator::cashbox() const
{
    return d->read([&] { return d->device.cashbox(); });
}
quint32 Simulator::auditCounter(quint8 group, quint8 index) const
{
    return d->read([&] { return d->device.auditCounter(group, index); });
}
quint16 Simulator::activityRegister() const
{
    return d->read([&] { return d->device.activityRegister(); });
}
quint16 Simulator::inhibitMask() const
{
    return d->read([&] { return d->device.inhibitMask(); });
}
QPair<quint8, quint8> Simulator::errorStatus() const
{
    return d->read([&] { return d->device.errorStatus(); });
}
QPair<quint8, quint8> Simulator::selfCheck() const
{
    return d->read([&] { return d->device.selfCheck(); });
}
QList<Transaction> Simulator::transactions() const
{
    return d->read([&] { return d->log; });
}
quint64 Simulator::coinsPaidOut() const
{
    return d->read([&] { return d->device.coinsPaidOut(); });
}
quint64 Simulator::valueAccepted() const
{
    return d->read([&] { return d->device.valueAccepted(); });
}

int Simulator::countHeader(quint8 header) const
{
    std::lock_guard<std::mutex> lock(d->m);
    return int(std::count_if(d->log.begin(), d->log.end(),
                             [&](const Transaction& t) { return t.header == header; }));
}

void Simulator::clearTransactions()
{
    std::lock_guard<std::mutex> lock(d->m);
    d->log.clear();
}

void Simulator::whenRequested(quint8 header, const std::function<void(Device&)>& fn)
{
    d->control([&] { d->triggers.insert(header, fn); });
}

void Simulator::withDevice(const std::function<void(Device&)>& fn)
{
    d->control([&] { fn(d->device); });
}

} // namespace sim
