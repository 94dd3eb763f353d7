#pragma once

#include <QString>
#include <vector>

namespace sim {

class Simulator;

// The line-based command channel of the simulator: one command per line, one reply per command.
// A reply is "ok", "error: ..." or the requested values; it may span several lines.
class ControlChannel
{
public:
    explicit ControlChannel(Simulator& simulator) : sim_(simulator) {}

    QString execute(const QString& line);
    bool quitRequested() const { return quit_; }
    static QString help();

private:
    struct Command;
    struct Handlers;
    // One row a usage line of the help, in its order; the commands and the help come from it.
    static const std::vector<Command>& commands();
    QString quit();
    QString status() const;
    QString transactions(int last) const;

    Simulator& sim_;
    bool quit_ = false;
};

} // namespace sim
