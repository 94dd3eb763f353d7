#include "progress.h"

#include <chrono>
#include <cstdio>
#include <unistd.h>

namespace tool {

Progress::Progress(bool enabled, const QString& message) : text(message.toUtf8())
{
    if (enabled)
        worker = std::thread(&Progress::run, this);
}

Progress::~Progress()
{
    if (!worker.joinable())
        return;
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    worker.join();
}

bool Progress::stderrIsTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

void Progress::run()
{
    static const char frames[] = {'|', '/', '-', '\\'};
    const auto start = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(mutex);
    // Quick calls finish without a flicker on the terminal.
    if (wake.wait_for(lock, std::chrono::milliseconds(250), [this] { return stopping; }))
        return;
    for (int tick = 0; !stopping; ++tick) {
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start)
                .count();
        std::fprintf(stderr, "\r%c %s (%llds)\033[K", frames[tick % 4], text.constData(),
                     static_cast<long long>(elapsed));
        std::fflush(stderr);
        wake.wait_for(lock, std::chrono::milliseconds(125), [this] { return stopping; });
    }
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
}

} // namespace tool
