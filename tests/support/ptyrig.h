#pragma once

#include "host/serialport.h"
#include "sim/simulator.h"

#include <QByteArray>
#include <QString>

#include <sys/types.h>

namespace testsupport {

// The default recycler with every delay of its own down to a few milliseconds, for the
// tests that run it in real time on a pseudo-terminal.
sim::Config fastConfig();

// The simulator served on a pseudo-terminal by its own I/O thread, and the host's serial
// port opened on it at 115200 8N1: the real line, for the few tests and benchmarks that
// need real I/O. Everything else runs on SimLine. Without the port, another process or
// a plain file descriptor takes the terminal.
struct PtyRig
{
    enum PortMode { OpenPort, LeavePortClosed };
    explicit PtyRig(const sim::Config& config = sim::Config::defaults(), PortMode mode = OpenPort);
    Q_DISABLE_COPY(PtyRig)

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
    Q_DISABLE_COPY(PtyPair)

    // Reads from the master until `expected` bytes came or the time-out, which only
    // ends a hung test, ran out.
    QByteArray readMaster(int expected, int timeoutMs = 60000);
    // Waits until the slave side holds at least `bytes` unread bytes.
    bool waitUntilSlaveHolds(int bytes, int timeoutMs = 60000);

    int master = -1;
    int slave = -1;
    QString path;
};

// The host side of a line with nothing but termios, read and write: for the tests of
// the simulator's own server, which must not go through the driver's serial port.
class RawPort
{
public:
    // Takes over an open descriptor.
    explicit RawPort(int fd) : descriptor(fd) {}
    // Opens a terminal raw at 115200 baud, without blocking.
    explicit RawPort(const QString& path);
    ~RawPort();
    Q_DISABLE_COPY(RawPort)

    bool isOpen() const { return descriptor >= 0; }
    int fd() const { return descriptor; }

    // True when every byte was written.
    bool send(const QByteArray& bytes);
    bool send(const char* hexBytes) { return send(QByteArray::fromHex(hexBytes)); }
    ssize_t tryWrite(const QByteArray& bytes);
    // Reads until n bytes came; the time-out only ends a hung test.
    QByteArray read(int n, int timeoutMs = 60000);
    // Reads until the bytes read end with `tail`; the time-out only ends a hung test.
    QByteArray readUntil(const QByteArray& tail, int timeoutMs = 60000);
    // Polls the device at 55 until its answer comes: a partial frame that earlier bytes
    // left on the line is given up by the device after its inter-byte time-out.
    bool pollUntilAnswered(int timeoutMs = 60000);

private:
    int descriptor;
};

// Reads from any descriptor until n bytes came or the time-out ran out.
QByteArray readBytes(int fd, int n, int timeoutMs = 60000);

} // namespace testsupport
