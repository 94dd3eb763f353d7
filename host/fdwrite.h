#pragma once

#include <QByteArray>

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace hw {

// What writing does when a non-blocking descriptor cannot take more bytes.
enum class WhenFull { Wait, GiveUp };

// Writes every byte, again after an interruption. False when the descriptor failed, or was full
// and whenFull gives up, before the last byte; errno then tells why, 0 when nothing was written.
inline bool writeAll(int fd, const QByteArray& bytes, WhenFull whenFull)
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
        if (n == 0)
            errno = 0;
        if (n <= 0)
            return false;
        p += n;
        left -= size_t(n);
    }
    return true;
}

} // namespace hw
