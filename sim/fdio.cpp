#include "fdio.h"

#include <cerrno>
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

} // namespace sim
