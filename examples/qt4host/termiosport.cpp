#include "termiosport.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

QString normalised(const QString& value)
{
    return value.trimmed().toLower();
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace

TermiosPort::TermiosPort(QObject* parent)
    : QObject(parent), fd(-1), speed(B9600), size(CS8), parity(0), stopBits(0), flow(0)
{
}

TermiosPort::~TermiosPort()
{
    close();
}

bool TermiosPort::open(const QString& path)
{
    close();
    fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        lastError = QString::fromLatin1("cannot open %1: %2").arg(path, systemError());
        return false;
    }
    return apply();
}

void TermiosPort::close()
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

bool TermiosPort::refuse(const QString& setting, const QString& value)
{
    lastError = QString::fromLatin1("unknown %1 \"%2\"").arg(setting, value);
    return false;
}

bool TermiosPort::apply()
{
    if (fd < 0)
        return true;
    termios tio;
    if (tcgetattr(fd, &tio) != 0) {
        lastError = QString::fromLatin1("cannot read the line settings: %1").arg(systemError());
        return false;
    }
    cfmakeraw(&tio);
    tio.c_cflag &= ~tcflag_t(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
    tio.c_cflag |= size | parity | stopBits | CREAD | CLOCAL;
    tio.c_iflag &= ~tcflag_t(IXON | IXOFF | IXANY);
    if (flow == CRTSCTS)
        tio.c_cflag |= CRTSCTS;
    else
        tio.c_iflag |= flow;
    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 0;
    cfsetispeed(&tio, speed);
    cfsetospeed(&tio, speed);
    if (tcsetattr(fd, TCSANOW, &tio) != 0) {
        lastError = QString::fromLatin1("cannot set the line: %1").arg(systemError());
        return false;
    }
    return true;
}

bool TermiosPort::setBaudRate(const QString& value)
{
    static const struct
    {
        int rate;
        speed_t code;
    } rates[] = {{1200, B1200},   {2400, B2400},   {4800, B4800},   {9600, B9600},
                 {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}};
    bool ok = false;
    const int rate = value.trimmed().toInt(&ok);
    for (std::size_t i = 0; ok && i < sizeof rates / sizeof rates[0]; ++i) {
        if (rates[i].rate == rate) {
            speed = rates[i].code;
            return apply();
        }
    }
    return refuse(QString::fromLatin1("baud rate"), value);
}

bool TermiosPort::choose(tcflag_t& field, const Spelling* known, std::size_t count, const char* setting,
                         const QString& value)
{
    const QString v = normalised(value);
    for (std::size_t i = 0; i < count; ++i) {
        if (v == QLatin1String(known[i].text)) {
            field = known[i].flags;
            return apply();
        }
    }
    return refuse(QString::fromLatin1(setting), value);
}

bool TermiosPort::setDataBits(const QString& value)
{
    static const Spelling known[] = {{"5", CS5}, {"6", CS6}, {"7", CS7}, {"8", CS8}};
    return choose(size, known, "data bits", value);
}

bool TermiosPort::setParity(const QString& value)
{
    static const Spelling known[] = {{"none", 0},           {"no", 0},     {"n", 0},
                                     {"even", PARENB},      {"e", PARENB}, {"odd", PARENB | PARODD},
                                     {"o", PARENB | PARODD}};
    return choose(parity, known, "parity", value);
}

bool TermiosPort::setStopBits(const QString& value)
{
    static const Spelling known[] = {{"1", 0}, {"2", CSTOPB}};
    return choose(stopBits, known, "stop bits", value);
}

bool TermiosPort::setFlowControl(const QString& value)
{
    static const Spelling known[] = {{"disable", 0},
                                     {"disabled", 0},
                                     {"none", 0},
                                     {"off", 0},
                                     {"hardware", CRTSCTS},
                                     {"rts/cts", CRTSCTS},
                                     {"software", IXON | IXOFF},
                                     {"xon/xoff", IXON | IXOFF}};
    return choose(flow, known, "flow control", value);
}

void TermiosPort::discardInput()
{
    if (fd < 0)
        return;
    tcflush(fd, TCIFLUSH);
    char sink[256];
    while (::read(fd, sink, sizeof sink) > 0) {
    }
}

void TermiosPort::write(const QByteArray& data)
{
    const char* at = data.constData();
    int left = data.size();
    while (fd >= 0 && left > 0) {
        const ssize_t n = ::write(fd, at, size_t(left));
        if (n > 0) {
            at += n;
            left -= int(n);
        } else if (n < 0 && errno == EAGAIN) {
            pollfd p = {fd, POLLOUT, 0};
            ::poll(&p, 1, 100);
        } else if (!(n < 0 && errno == EINTR)) {
            return;
        }
    }
    if (fd >= 0)
        tcdrain(fd);
}

bool TermiosPort::waitForInput(int msecs)
{
    if (fd < 0)
        return false;
    pollfd p = {fd, POLLIN, 0};
    int n;
    do {
        n = ::poll(&p, 1, msecs);
    } while (n < 0 && errno == EINTR);
    return n > 0 && (p.revents & POLLIN);
}

QByteArray TermiosPort::read(int maxSize)
{
    QByteArray data;
    if (fd < 0)
        return data;
    char chunk[512];
    for (;;) {
        int want = int(sizeof chunk);
        if (maxSize > 0)
            want = qMin(want, maxSize - data.size());
        if (want <= 0)
            break;
        const ssize_t n = ::read(fd, chunk, size_t(want));
        if (n <= 0)
            break;
        data.append(chunk, int(n));
    }
    return data;
}
