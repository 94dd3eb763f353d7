#include "ptyrig.h"

#include <QElapsedTimer>
#include <QThread>

#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace testsupport {

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
    QByteArray out;
    QElapsedTimer clock;
    clock.start();
    while (out.size() < expected && clock.elapsed() < timeoutMs) {
        pollfd p{master, POLLIN, 0};
        if (::poll(&p, 1, int(timeoutMs - clock.elapsed())) <= 0)
            continue;
        char buf[256];
        const ssize_t n = ::read(master, buf, sizeof buf);
        if (n > 0)
            out.append(buf, int(n));
    }
    return out;
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

} // namespace testsupport
