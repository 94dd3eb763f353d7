#pragma once

#include "tracewrite/tracewrite.h"

#include <QList>
#include <QString>

// Reading line recordings; the format and its writing side are tracewrite/tracewrite.h.
namespace trace {

struct Record
{
    enum Kind { HeaderRecord, ChunkRecord };
    Kind kind = ChunkRecord;
    Header header;
    Chunk chunk;
};

// One line without its line feed. On failure `why` says what is wrong with it.
bool parseHeaderLine(const char* begin, const char* end, Header* header, QString* why);
bool parseChunkLine(const char* begin, const char* end, Chunk* chunk, QString* why);

// A recording whose header is not in what was read: the files start inside it (a log appender's
// rotation cut it). Its line settings and start time are unknown; its times are its own.
inline bool isContinuation(const Header& header)
{
    return !header.started.isValid();
}

// Walks a whole trace held in memory, record by record, and stops at the first line that is
// not a record: a file that does not start with a header, a malformed line, a time that goes
// back, a last line cut off before its line feed.
//
// From any point (AnyPoint): what comes before the first header or the first request written
// (a whole exchange) is skipped and counted, a cut-off first line included; a request comes
// first as a recording of its own, whose header is a continuation. From there on the same
// checks hold.
class Reader
{
public:
    enum Start { AtHeader, AnyPoint };
    Reader(const char* data, qint64 size, Start start = AtHeader);
    // Reads the bytes in place: they must outlive the reader.
    explicit Reader(const QByteArray& bytes, Start start = AtHeader)
        : Reader(bytes.constData(), bytes.size(), start)
    {
    }
    Reader(QByteArray&&, Start = AtHeader) = delete;

    enum Result { Ok, End, Error };
    Result next(Record* record);

    // "line 12: ..." once next() returned Error.
    QString error() const { return message; }
    qint64 errorLine() const { return failedLine; }
    // What is wrong with that line, without its number.
    QString reason() const { return failedWhy; }
    // Bytes consumed so far.
    qint64 position() const { return pos; }
    // Lines and bytes skipped before the first whole exchange (AnyPoint).
    qint64 skippedLines() const { return skipLines; }
    qint64 skippedBytes() const { return skipBytes; }

private:
    Result fail(const QString& why);
    // Skips to the first header or request; false when there is none. `continuation` when a
    // request comes first: `record` is then its recording's continuation header.
    bool findStart(Record* record, bool* continuation);

    const char* data;
    qint64 size;
    Start from;
    qint64 skipLines = 0;
    qint64 skipBytes = 0;
    QString failedWhy;
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
