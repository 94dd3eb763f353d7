#include "ptyrig.h"

#include <QElapsedTimer>
#include <QThread>

#include <algorithm>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace testsupport {

sim::Config fastConfig()
{
    sim::Config c = sim::Config::defaults();
    c.coinAcceptMs = 5;
    c.coinAcceptFastMs = 3;
    c.payoutMsPerCoin = 2;
    c.resetInitMs = 20;
    c.answerDelayMs = 0;
    c.interByteTimeoutMs = 10;
    c.babbleIntervalMs = 5;
    return c;
}

PtyRig::PtyRig(const sim::Config& config, PortMode mode) : simulator(config)
{
    QString why;
    if (!simulator.openPty(&why)) {
        error = QStringLiteral("no pseudo-terminal: ") + why;
        return;
    }
    if (mode == LeavePortClosed)
        return;
    if (!port.open(simulator.portPath()) || !port.setBaudRate(QStringLiteral("115200")) ||
        !port.setDataBits(QStringLiteral("8")) || !port.setParity(QStringLiteral("None")) ||
        !port.setStopBits(QStringLiteral("1")) || !port.setFlowControl(QStringLiteral("None")))
        error = port.errorString();
}

PtyPair::PtyPair()
{
    char name[128] = {};
    if (openpty(&master, &slave, name, nullptr, nullptr) != 0)
        return;
    termios t{};
    tcgetattr(slave, &t);
    cfmakeraw(&t);
    tcsetattr(slave, TCSANOW, &t);
    path = QString::fromLocal8Bit(name);
}

PtyPair::~PtyPair()
{
    if (slave >= 0)
        ::close(slave);
    if (master >= 0)
        ::close(master);
}

QByteArray PtyPair::readMaster(int expected, int timeoutMs)
{
    return readBytes(master, expected, timeoutMs);
}

bool PtyPair::waitUntilSlaveHolds(int bytes, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        int held = 0;
        if (::ioctl(slave, FIONREAD, &held) == 0 && held >= bytes)
            return true;
        if (clock.elapsed() > timeoutMs)
            return false;
        QThread::msleep(1);
    }
}

RawPort::RawPort(const QString& path)
    : descriptor(::open(path.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
{
    termios t{};
    if (descriptor >= 0 && tcgetattr(descriptor, &t) == 0) {
        cfmakeraw(&t);
        cfsetspeed(&t, B115200);
        tcsetattr(descriptor, TCSANOW, &t);
    }
}

RawPort::~RawPort()
{
    if (descriptor >= 0)
        ::close(descriptor);
}

bool RawPort::send(const QByteArray& bytes)
{
    return tryWrite(bytes) == ssize_t(bytes.size());
}

ssize_t RawPort::tryWrite(const QByteArray& bytes)
{
    return ::write(descriptor, bytes.constData(), size_t(bytes.size()));
}

QByteArray RawPort::read(int n, int timeoutMs)
{
    return readBytes(descriptor, n, timeoutMs);
}

QByteArray RawPort::readUntil(const QByteArray& tail, int timeoutMs)
{
    QByteArray got;
    QElapsedTimer clock;
    clock.start();
    while (!got.endsWith(tail) && clock.elapsed() < timeoutMs)
        got += read(1, int(timeoutMs - clock.elapsed()));
    return got;
}

bool RawPort::pollUntilAnswered(int timeoutMs)
{
    const QByteArray ack = QByteArray::fromHex("01003700C8");
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < timeoutMs) {
        if (!send("37 00 01 FE CA"))
            return false;
        if (readUntil(ack, 200).endsWith(ack))
            return true;
    }
    return false;
}

QByteArray readBytes(int fd, int n, int timeoutMs)
{
    QByteArray got;
    QElapsedTimer clock;
    clock.start();
    while (got.size() < n && clock.elapsed() < timeoutMs) {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, int(timeoutMs - clock.elapsed())) <= 0)
            continue;
        char buf[512];
        const ssize_t r = ::read(fd, buf, size_t(std::min<int>(int(sizeof buf), n - got.size())));
        if (r <= 0)
            break;
        got.append(buf, int(r));
    }
    return got;
}

} // namespace testsupport
