#include "trace/traceformat.h"

#include <cstring>

namespace trace {

namespace {

// Value of a hexadecimal digit, -1 for any other character.
struct HexTable
{
    signed char value[256];
    HexTable()
    {
        std::memset(value, -1, sizeof value);
        for (int i = 0; i < 10; ++i)
            value['0' + i] = static_cast<signed char>(i);
        for (int i = 0; i < 6; ++i) {
            value['A' + i] = static_cast<signed char>(10 + i);
            value['a' + i] = static_cast<signed char>(10 + i);
        }
    }
};
const HexTable hex;

inline int hexValue(char c)
{
    return hex.value[static_cast<unsigned char>(c)];
}

bool unescaped(const char* begin, const char* end, QString* value)
{
    QByteArray out;
    out.reserve(int(end - begin));
    for (const char* p = begin; p < end; ++p) {
        if (*p != '%') {
            out.append(*p);
            continue;
        }
        if (end - p < 3 || hexValue(p[1]) < 0 || hexValue(p[2]) < 0)
            return false;
        out.append(char(hexValue(p[1]) * 16 + hexValue(p[2])));
        p += 2;
    }
    *value = QString::fromUtf8(out);
    return true;
}

bool toInt(const QString& text, qint64 min, qint64 max, qint64* value)
{
    bool ok = false;
    const qint64 v = text.toLongLong(&ok);
    if (!ok || v < min || v > max || text.startsWith(QLatin1Char('+')))
        return false;
    *value = v;
    return true;
}

} // namespace

bool parseHeaderLine(const char* begin, const char* end, Header* header, QString* why)
{
    const qsizetype magicSize = qsizetype(std::strlen(magic));
    if (end - begin < magicSize || std::memcmp(begin, magic, size_t(magicSize)) != 0) {
        *why = QStringLiteral("not a header: a recording starts with \"%1 %2\"")
                   .arg(QLatin1String(magic))
                   .arg(formatVersion);
        return false;
    }
    const QList<QByteArray> fields = QByteArray(begin + magicSize, int(end - begin - magicSize)).split(' ');
    if (fields.size() < 2 || !fields.at(0).isEmpty()) {
        *why = QStringLiteral("header without a format version");
        return false;
    }
    Header h;
    qint64 number = 0;
    if (!toInt(QString::fromLatin1(fields.at(1)), 0, 1000000, &number)) {
        *why = QStringLiteral("header with a bad format version \"%1\"").arg(QString::fromUtf8(fields.at(1)));
        return false;
    }
    if (number != formatVersion) {
        *why =
            QStringLiteral("format version %1, this program reads version %2").arg(number).arg(formatVersion);
        return false;
    }
    h.version = int(number);
    for (int i = 2; i < fields.size(); ++i) {
        const QByteArray& field = fields.at(i);
        const int eq = field.indexOf('=');
        if (eq <= 0) {
            *why = QStringLiteral("header field \"%1\" is not key=value").arg(QString::fromUtf8(field));
            return false;
        }
        const QByteArray key = field.left(eq);
        QString value;
        if (!unescaped(field.constData() + eq + 1, field.constData() + field.size(), &value)) {
            *why = QStringLiteral("header field %1 has a bad %-escape").arg(QString::fromUtf8(key));
            return false;
        }
        if (key == "recorder") {
            h.recorder = value;
        } else if (key == "port") {
            h.port = value;
        } else if (key == "baud") {
            if (!toInt(value, 0, 100000000, &number)) {
                *why = QStringLiteral("header field baud is not a number: \"%1\"").arg(value);
                return false;
            }
            h.baudRate = qint32(number);
        } else if (key == "data") {
            if (!toInt(value, 0, 16, &number)) {
                *why = QStringLiteral("header field data is not a number of bits: \"%1\"").arg(value);
                return false;
            }
            h.dataBits = int(number);
        } else if (key == "parity") {
            h.parity = value;
        } else if (key == "stop") {
            h.stopBits = value;
        } else if (key == "flow") {
            h.flow = value;
        } else if (key == "started") {
            h.started = QDateTime::fromString(value, QString::fromLatin1(timeFormat));
            h.started.setTimeSpec(Qt::UTC);
            if (!h.started.isValid()) {
                *why = QStringLiteral("header field started is not a UTC time: \"%1\"").arg(value);
                return false;
            }
        }
        // Keys this version does not know belong to later versions of the recorder.
    }
    *header = h;
    return true;
}

bool parseChunkLine(const char* begin, const char* end, Chunk* chunk, QString* why)
{
    const char* p = begin;
    quint64 us = 0;
    while (p < end && *p >= '0' && *p <= '9') {
        if (us > 922337203685477ULL) {
            *why = QStringLiteral("time out of range");
            return false;
        }
        us = us * 10 + quint64(*p - '0');
        ++p;
    }
    if (p == begin) {
        *why = QStringLiteral("a chunk starts with its time in microseconds");
        return false;
    }
    if (end - p < 2 || p[0] != ' ' || (p[1] != '>' && p[1] != '<' && p[1] != '~')) {
        *why = QStringLiteral("after the time comes a blank and the direction >, < or ~");
        return false;
    }
    const auto direction = static_cast<Direction>(p[1]);
    p += 2;
    const qint64 rest = end - p;
    if (rest == 0) {
        *why = QStringLiteral("a chunk without bytes");
        return false;
    }
    if (rest % 3 != 0) {
        *why = QStringLiteral("bytes are a blank and two hexadecimal digits each (the line may be cut off)");
        return false;
    }
    const int count = int(rest / 3);
    QByteArray bytes(count, Qt::Uninitialized);
    char* out = bytes.data();
    for (int i = 0; i < count; ++i, p += 3) {
        const int hi = hexValue(p[1]);
        const int lo = hexValue(p[2]);
        if (p[0] != ' ' || hi < 0 || lo < 0) {
            *why = QStringLiteral("byte %1 is not a blank and two hexadecimal digits: \"%2\"")
                       .arg(i + 1)
                       .arg(QString::fromLatin1(p, 3));
            return false;
        }
        out[i] = char(hi << 4 | lo);
    }
    chunk->us = qint64(us);
    chunk->direction = direction;
    chunk->bytes = bytes;
    return true;
}

Reader::Reader(const char* bytes, qint64 length, Start start) : data(bytes), size(length), from(start) {}

Reader::Result Reader::fail(const QString& reasonText)
{
    failedLine = line;
    failedWhy = reasonText;
    message = QStringLiteral("line %1: %2").arg(line).arg(reasonText);
    return Error;
}

bool Reader::findStart(Record* record, bool* continuation)
{
    *continuation = false;
    while (pos < size) {
        const char* begin = data + pos;
        const auto* end = static_cast<const char*>(std::memchr(begin, '\n', size_t(size - pos)));
        const char* lineEnd = end ? end : data + size;
        QString ignored;
        if (end && *begin == magic[0] && parseHeaderLine(begin, end, &record->header, &ignored))
            return true;
        if (end && parseChunkLine(begin, end, &record->chunk, &ignored) &&
            record->chunk.direction == Direction::Written) {
            record->kind = Record::HeaderRecord;
            record->header = Header();
            seenHeader = true;
            lastUs = 0;
            *continuation = true;
            return true;
        }
        ++skipLines;
        skipBytes += lineEnd - begin + (end ? 1 : 0);
        ++line;
        pos = lineEnd - data + (end ? 1 : 0);
    }
    line = skipLines + 1;
    fail(skipLines > 0 ? QStringLiteral("no whole exchange: a request written by the host never comes")
                       : QStringLiteral("empty file, not a trace"));
    return false;
}

Reader::Result Reader::next(Record* record)
{
    if (failedLine > 0)
        return Error;
    // A request before any header stands for a recording that began earlier: a continuation
    // header comes first, then the request as the next record.
    if (from == AnyPoint && !seenHeader) {
        bool continuation = false;
        if (!findStart(record, &continuation))
            return Error;
        if (continuation)
            return Ok;
    }
    if (pos >= size) {
        if (!seenHeader) {
            line = 1;
            return fail(QStringLiteral("empty file, not a trace"));
        }
        return End;
    }
    ++line;
    const char* begin = data + pos;
    const auto* newline = static_cast<const char*>(std::memchr(begin, '\n', size_t(size - pos)));
    if (!newline)
        return fail(QStringLiteral("cut off: the file ends inside the line"));
    pos = newline - data + 1;
    QString why;
    if (*begin != magic[0]) {
        if (!seenHeader)
            return fail(QStringLiteral("not a trace: the first line is not a \"%1\" header")
                            .arg(QLatin1String(magic)));
        if (!parseChunkLine(begin, newline, &record->chunk, &why))
            return fail(why);
        if (record->chunk.us < lastUs)
            return fail(QStringLiteral("time %1 us goes back (the line before says %2 us)")
                            .arg(record->chunk.us)
                            .arg(lastUs));
        lastUs = record->chunk.us;
        record->kind = Record::ChunkRecord;
        return Ok;
    }
    if (!parseHeaderLine(begin, newline, &record->header, &why))
        return fail(why);
    seenHeader = true;
    lastUs = 0;
    record->kind = Record::HeaderRecord;
    return Ok;
}

Document parse(const QByteArray& bytes)
{
    Document document;
    Reader reader(bytes);
    Record record;
    for (;;) {
        const Reader::Result result = reader.next(&record);
        if (result == Reader::End)
            break;
        if (result == Reader::Error) {
            document.error = reader.error();
            document.errorLine = reader.errorLine();
            break;
        }
        document.records.append(record);
    }
    return document;
}

} // namespace trace
