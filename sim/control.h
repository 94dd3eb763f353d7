#pragma once

#include <QString>

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
    QString status() const;
    QString transactions(int last) const;

    Simulator& sim_;
    bool quit_ = false;
};

} // namespace sim
