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

struct Record
{
    enum Kind { HeaderRecord, ChunkRecord };
    Kind kind = ChunkRecord;
    Header header;
    Chunk chunk;
};

extern const char magic[]; // "cpibcr-trace"
const int formatVersion = 1;

// The lines, line feed included.
QByteArray headerLine(const Header& header);
void appendChunkLine(QByteArray& out, const Chunk& chunk);
QByteArray chunkLine(const Chunk& chunk);

// One line without its line feed. On failure `why` says what is wrong with it.
bool parseHeaderLine(const char* begin, const char* end, Header* header, QString* why);
bool parseChunkLine(const char* begin, const char* end, Chunk* chunk, QString* why);

// Walks a whole trace held in memory, record by record, and stops at the first line that is
// not a record: a file that does not start with a header, a malformed line, a time that goes
// back, a last line cut off before its line feed.
class Reader
{
public:
    Reader(const char* data, qint64 size);
    explicit Reader(const QByteArray& bytes) : Reader(bytes.constData(), bytes.size()) {}

    enum Result { Ok, End, Error };
    Result next(Record* record);

    // "line 12: ..." once next() returned Error.
    QString error() const { return message; }
    qint64 errorLine() const { return failedLine; }
    // Bytes consumed so far.
    qint64 position() const { return pos; }

private:
    Result fail(const QString& why);

    const char* data;
    qint64 size;
    qint64 pos = 0;
    qint64 line = 0;
    qint64 lastUs = 0;
    bool seenHeader = false;
    QString message;
    qint64 failedLine = 0;
};

// The whole trace, or the first error.
struct Document
{
    QList<Record> records;
    QString error;
    qint64 errorLine = 0;
};
Document parse(const QByteArray& bytes);

} // namespace trace
