#pragma once

#include "host/serialport.h"
#include "sim/simulator.h"

#include <QByteArray>
#include <QString>

namespace testsupport {

// The simulator served on a pseudo-terminal by its own I/O thread, and the host's serial
// port opened on it at 115200 8N1: the real line, for the few tests and benchmarks that
// need real I/O. Everything else runs on SimLine. Without the port, another process or
// a plain file descriptor takes the terminal.
struct PtyRig
{
    enum PortMode { OpenPort, LeavePortClosed };
    explicit PtyRig(const sim::Config& config = sim::Config::defaults(), PortMode mode = OpenPort);
    PtyRig(const PtyRig&) = delete;
    PtyRig& operator=(const PtyRig&) = delete;

    bool opened() const { return error.isEmpty(); }
    QString path() const { return simulator.portPath(); }

    sim::Simulator simulator;
    hw::SerialPort port;
    QString error;
};

// A bare pseudo-terminal pair in raw mode: the test plays the far end on the master
// side, the code under test opens the slave's path.
struct PtyPair
{
    PtyPair();
    ~PtyPair();
    PtyPair(const PtyPair&) = delete;
    PtyPair& operator=(const PtyPair&) = delete;

    // Reads from the master until `expected` bytes came or the time-out, which only
    // ends a hung test, ran out.
    QByteArray readMaster(int expected, int timeoutMs = 60000);
    // Waits until the slave side holds at least `bytes` unread bytes.
    bool waitUntilSlaveHolds(int bytes, int timeoutMs = 60000);

    int master = -1;
    int slave = -1;
    QString path;
};

} // namespace testsupport
