#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

// The line recording ("trace"): plain text, one record a line, each line ended by a line feed.
//
//   cpibcr-trace 1 recorder=cpibcr/1.0.0 port=/dev/ttyUSB0 baud=115200 data=8 parity=none stop=1 flow=none
//       started=2026-11-23T19:45:12.345Z                                  (one line)
//   1532 > 37 00 01 FE CA
//   1790 < 37 00 01 FE CA 01 00 37 00 C8
//   1203554 ~ 01 00
//
// A header line starts every recording; a file may hold several, one after the other. A chunk
// line is the time in microseconds since the recording started (monotonic clock, never going
// back), the direction (> written by the host, < read by the host, ~ read from the port and
// thrown away by the host before a request) and the bytes in hexadecimal.
//
// This is the writing side: value types and pure functions on QtCore alone, built for Qt 4 and
// Qt 5, so that the plug-in and the host's serial port object write the same lines. Reading is
// trace/traceformat.h.
namespace trace {

enum class Direction : char { Written = '>', Read = '<', Discarded = '~' };

struct Header
{
    int version = 1;
    QString recorder; // program and version, "cpibcr/1.0.0"
    QString port;
    qint32 baudRate = 0;
    int dataBits = 0;
    QString parity;    // none, even, odd, space, mark
    QString stopBits;  // 1, 1.5, 2
    QString flow;      // none, hardware, software
    QDateTime started; // UTC, at time 0 of the recording

    bool operator==(const Header& o) const
    {
        return version == o.version && recorder == o.recorder && port == o.port && baudRate == o.baudRate &&
               dataBits == o.dataBits && parity == o.parity && stopBits == o.stopBits && flow == o.flow &&
               started == o.started;
    }
};

struct Chunk
{
    qint64 us = 0;
    Direction direction = Direction::Written;
    QByteArray bytes;

    bool operator==(const Chunk& o) const
    {
        return us == o.us && direction == o.direction && bytes == o.bytes;
    }
};

extern const char magic[];      // "cpibcr-trace"
extern const char timeFormat[]; // of "started", QDateTime's form, always UTC
const int formatVersion = 1;

// The lines, line feed included.
QByteArray headerLine(const Header& header);
void appendChunkLine(QByteArray& out, const Chunk& chunk);
QByteArray chunkLine(const Chunk& chunk);

} // namespace trace
