#include "tracewrite/tracewrite.h"

namespace trace {

const char magic[] = "cpibcr-trace";
const char timeFormat[] = "yyyy-MM-ddTHH:mm:ss.zzzZ";

namespace {

const char hexDigits[] = "0123456789ABCDEF";

// Header values may not hold blanks, '=' or control characters; they are written as %XX.
bool needsEscape(unsigned char c)
{
    return c <= 0x20 || c == 0x7F || c == '%' || c == '=';
}

QByteArray escaped(const QString& value)
{
    const QByteArray utf8 = value.toUtf8();
    QByteArray out;
    out.reserve(utf8.size());
    for (int i = 0; i < utf8.size(); ++i) {
        const auto u = static_cast<unsigned char>(utf8.at(i));
        if (needsEscape(u)) {
            out.append('%');
            out.append(hexDigits[u >> 4]);
            out.append(hexDigits[u & 0x0F]);
        } else {
            out.append(char(u));
        }
    }
    return out;
}

} // namespace

QByteArray headerLine(const Header& header)
{
    QByteArray line(magic);
    line += ' ' + QByteArray::number(header.version);
    line += " recorder=" + escaped(header.recorder);
    line += " port=" + escaped(header.port);
    line += " baud=" + QByteArray::number(header.baudRate);
    line += " data=" + QByteArray::number(header.dataBits);
    line += " parity=" + escaped(header.parity);
    line += " stop=" + escaped(header.stopBits);
    line += " flow=" + escaped(header.flow);
    line += " started=" + escaped(header.started.toUTC().toString(QString::fromLatin1(timeFormat)));
    line += '\n';
    return line;
}

void appendChunkLine(QByteArray& out, const Chunk& chunk)
{
    char digits[24];
    int n = 0;
    quint64 us = chunk.us < 0 ? 0 : quint64(chunk.us);
    do {
        digits[n++] = char('0' + us % 10);
        us /= 10;
    } while (us != 0);
    const int size = chunk.bytes.size();
    const int start = out.size();
    out.resize(start + n + 2 + size * 3 + 1);
    char* p = out.data() + start;
    while (n > 0)
        *p++ = digits[--n];
    *p++ = ' ';
    *p++ = static_cast<char>(chunk.direction);
    const auto* bytes = reinterpret_cast<const unsigned char*>(chunk.bytes.constData());
    for (int i = 0; i < size; ++i) {
        *p++ = ' ';
        *p++ = hexDigits[bytes[i] >> 4];
        *p++ = hexDigits[bytes[i] & 0x0F];
    }
    *p = '\n';
}

QByteArray chunkLine(const Chunk& chunk)
{
    QByteArray line;
    appendChunkLine(line, chunk);
    return line;
}

} // namespace trace
