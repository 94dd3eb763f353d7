#include "fdio.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace sim {

QByteArray readAvailable(int fd)
{
    QByteArray bytes;
    char buf[512];
    for (;;) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n > 0)
            bytes.append(buf, int(n));
        else if (n < 0 && errno == EINTR)
            continue;
        else
            break;
    }
    return bytes;
}

bool writeAll(int fd, const QByteArray& bytes, WhenFull whenFull)
{
    const char* p = bytes.constData();
    size_t left = size_t(bytes.size());
    while (left > 0) {
        const ssize_t n = ::write(fd, p, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN && whenFull == WhenFull::Wait) {
            pollfd out{fd, POLLOUT, 0};
            ::poll(&out, 1, 100);
            continue;
        }
        if (n <= 0)
            return false;
        p += n;
        left -= size_t(n);
    }
    return true;
}

} // namespace sim
