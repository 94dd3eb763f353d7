#pragma once

#include <QString>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace tool {

// A spinner with a message and the seconds elapsed, on stderr, while the main thread is
// blocked in a driver call. Shown only when enabled (stderr is a terminal and the output is
// not JSON); the line is wiped when the object goes.
class Progress
{
public:
    Progress(bool enabled, const QString& message);
    ~Progress();
    Q_DISABLE_COPY(Progress)

    // Whether stderr is a terminal.
    static bool stderrIsTerminal();

private:
    void run();

    QByteArray text;
    std::mutex mutex;
    std::condition_variable wake;
    bool stopping = false;
    std::thread worker;
};

} // namespace tool
