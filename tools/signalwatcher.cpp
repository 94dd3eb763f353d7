#include "signalwatcher.h"

#include <QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace tool {

int SignalWatcher::pipeFds[2] = {-1, -1};

SignalWatcher::SignalWatcher(QObject* parent) : QObject(parent)
{
    if (::pipe2(pipeFds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    notifier = new QSocketNotifier(pipeFds[0], QSocketNotifier::Read, this);
    QObject::connect(notifier, &QSocketNotifier::activated, this, &SignalWatcher::drain);

    struct sigaction sa = {};
    sa.sa_handler = &SignalWatcher::handler;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &sa, &oldInt);
    ::sigaction(SIGTERM, &sa, &oldTerm);
}

SignalWatcher::~SignalWatcher()
{
    if (pipeFds[0] < 0)
        return;
    ::sigaction(SIGINT, &oldInt, nullptr);
    ::sigaction(SIGTERM, &oldTerm, nullptr);
    delete notifier;
    ::close(pipeFds[0]);
    ::close(pipeFds[1]);
    pipeFds[0] = pipeFds[1] = -1;
}

void SignalWatcher::handler(int signo)
{
    const int saved = errno;
    const unsigned char byte = static_cast<unsigned char>(signo);
    [[maybe_unused]] const ssize_t n = ::write(pipeFds[1], &byte, 1);
    errno = saved;
}

void SignalWatcher::drain()
{
    unsigned char bytes[16];
    ssize_t n;
    while ((n = ::read(pipeFds[0], bytes, sizeof bytes)) > 0) {
        for (ssize_t i = 0; i < n; ++i) {
            last = bytes[i];
            emit signalled(last);
        }
    }
}

} // namespace tool
