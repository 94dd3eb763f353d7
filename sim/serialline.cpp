#include "serialline.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

namespace sim {

namespace {

speed_t speedFor(int baud)
{
    switch (baud) {
    case 1200:
        return B1200;
    case 2400:
        return B2400;
    case 4800:
        return B4800;
    case 9600:
        return B9600;
    case 19200:
        return B19200;
    case 38400:
        return B38400;
    case 57600:
        return B57600;
    case 230400:
        return B230400;
    case 460800:
        return B460800;
    case 921600:
        return B921600;
    }
    return B115200;
}

bool makeRaw(int fd, int baud, QString* error)
{
    termios t{};
    if (tcgetattr(fd, &t) != 0) {
        if (error)
            *error = QStringLiteral("tcgetattr: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    cfmakeraw(&t);
    t.c_cflag |= CLOCAL | CREAD;
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    cfsetispeed(&t, speedFor(baud));
    cfsetospeed(&t, speedFor(baud));
    if (tcsetattr(fd, TCSANOW, &t) != 0) {
        if (error)
            *error = QStringLiteral("tcsetattr: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    return true;
}

} // namespace

bool openRawPty(int baud, int* master, int* slave, QString* path, QString* error)
{
    if (openpty(master, slave, nullptr, nullptr, nullptr) != 0) {
        if (error)
            *error = QStringLiteral("openpty: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    if (!makeRaw(*slave, baud, error)) {
        ::close(*master);
        ::close(*slave);
        return false;
    }
    fcntl(*master, F_SETFD, FD_CLOEXEC);
    fcntl(*slave, F_SETFD, FD_CLOEXEC);
    const char* name = ttyname(*slave);
    *path = QString::fromLocal8Bit(name ? name : "");
    return true;
}

int openRawDevice(const QString& path, int baud, QString* error)
{
    const int fd = ::open(path.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        if (error)
            *error = QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(strerror(errno)));
        return -1;
    }
    if (isatty(fd) && !makeRaw(fd, baud, error)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace sim
