#pragma once

#include <QObject>

#include <csignal>

class QSocketNotifier;

namespace tool {

// Turns SIGINT and SIGTERM into a Qt signal delivered by the event loop (self-pipe), so that
// acceptance can be stopped properly instead of the process dying with coins in flight.
// The previous handlers come back when the object goes. One instance at a time.
class SignalWatcher : public QObject
{
    Q_OBJECT
public:
    explicit SignalWatcher(QObject* parent = nullptr);
    ~SignalWatcher() override;

    // The last signal received, 0 when none.
    int received() const { return last; }

signals:
    void signalled(int signo);

private slots:
    void drain();

private:
    static void handler(int signo);

    static int pipeFds[2];
    QSocketNotifier* notifier = nullptr;
    struct sigaction oldInt = {};
    struct sigaction oldTerm = {};
    int last = 0;
};

} // namespace tool
