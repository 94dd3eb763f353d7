#include "cctalk/package.h"

#include "host/qtcompat.h"

#include <QMetaEnum>
#include <QVarLengthArray>

#include <limits>

namespace CcTalk {

namespace {

const QMetaEnum& headerEnum()
{
    static const QMetaEnum e =
        Header::staticMetaObject.enumerator(Header::staticMetaObject.indexOfEnumerator("Type"));
    return e;
}

inline int lengthByte(const QByteArray& bytes, int offset)
{
    return quint8(bytes.at(offset + 1));
}

unsigned char checksumOf(const char* bytes, int size)
{
    const qint8 k = qint8(quint8(size & 0xFF));
    if (k <= 0)
        return 0;
    quint8 sum = 0;
    for (int i = 0; i < k; ++i)
        sum = quint8(sum + quint8(bytes[i]));
    return quint8(256 - sum);
}

} // namespace

Package::Package() : dest(0), src(1), header(Header::answer) {}

Package::~Package() = default;

void Package::assign(const Package& other)
{
    dest = other.dest;
    src = other.src;
    header = other.header;
    data = other.data;
}

Header::Type Package::getHeader() const
{
    return Header::Type(header);
}

bool Package::operator==(const Package& other) const
{
    if (this == &other)
        return true;
    return dest == other.dest && header == other.header && src == other.src && data == other.data;
}

Package::operator QByteArray() const
{
    QByteArray bytes;
    bytes.reserve(data.size() + frameOverhead);
    bytes.append(char(dest));
    bytes.append(char(data.size() & 0xFF));
    bytes.append(char(src));
    bytes.append(char(int(header) & 0xFF));
    bytes.append(data);
    bytes.append(char(calkCrc(bytes)));
    return bytes;
}

void Package::setRawData(const QByteArray& raw)
{
    if (raw.size() < 4)
        return;
    dest = quint8(raw.at(0));
    src = quint8(raw.at(2));
    header = Header::Type(quint8(raw.at(3)));
    data = raw.mid(4, lengthByte(raw, 0));
}

unsigned char Package::calkCrc(const QByteArray& bytes) const
{
    return checksumOf(bytes.constData(), bytes.size());
}

QString Package::getName() const
{
    return QStringLiteral("%1 (%2)")
        .arg(QString::fromLatin1(headerEnum().valueToKey(int(header))))
        .arg(int(header));
}

QString Package::toLog() const
{
    QString hex;
    if (!data.isEmpty())
        hex = QLatin1Char(' ') + qtcompat::toHex(data, ' ');
    return QStringLiteral("%1, data ='%2', src = %3, dest = %4")
        .arg(getName(), hex)
        .arg(unsigned(src))
        .arg(unsigned(dest));
}

QString AnswerLength::toLog() const
{
    if (most == least)
        return QString::number(least);
    return QStringLiteral("не менее %1").arg(least);
}

Request::Request() = default;

Request::Request(Header::Type type, const QByteArray& bytes, AnswerLength answerLength) : answer(answerLength)
{
    header = type;
    data = bytes;
}

Request::~Request() = default;

void Request::setAddress(unsigned char address) const
{
    dest = address;
}

void Request::setUint(unsigned int value, int pos, int count)
{
    for (int i = 0; i < count; ++i) {
        const qint64 wide = qint64(pos) + i;
        if (wide < 0 || wide >= std::numeric_limits<int>::max())
            continue;
        const int at = int(wide);
        if (at >= data.size())
            data.append(QByteArray(at - data.size() + 1, '\0'));
        data[at] = char(i < 4 ? (value >> (8 * i)) & 0xFF : 0);
    }
}

bool Request::canBeSentAgain() const
{
    return true;
}

Response::Response() : valid(false) {}

Response::Response(const Response& other)
    : Package(), valid(other.valid), expectedSource(other.expectedSource), foreign(other.foreign),
      dropped(other.dropped)
{
    assign(other);
}

Response& Response::operator=(const Response& other)
{
    if (this != &other) {
        assign(other);
        buffer.clear();
        valid = other.valid;
        expectedSource = other.expectedSource;
        foreign = other.foreign;
        dropped = other.dropped;
    }
    return *this;
}

Response::~Response() = default;

void Response::addRawData(const QByteArray& raw)
{
    valid = false;
    // A private buffer with room for a frame takes the following pieces without
    // reallocating.
    if (buffer.isEmpty())
        buffer.reserve(qMax(raw.size(), 64));
    buffer.append(raw);

    // Bytes before pos are consumed; the buffer is compacted once at the end so that
    // resynchronising over a long run of garbage stays linear. The checksum of a window
    // is the difference of two running 8-bit sums, filled in as far as the scan needs.
    const char* const bytes = buffer.constData();
    const int size = buffer.size();
    QVarLengthArray<quint8, 1024> sums(size + 1);
    sums[0] = 0;
    int summed = 0;
    int pos = 0;
    while (size - pos > 4) {
        // A frame's checksum covers all of it, whatever its length. Length bytes above
        // 250 announce more than the 255 bytes a frame can have: noise, dropped like it
        // (a run of 0xFF on the line is then passed over at once).
        const int expected = lengthByte(buffer, pos) + frameOverhead;
        if (expected > maxFrameBytes) {
            ++pos;
            ++dropped;
            continue;
        }
        if (expected > size - pos)
            break;
        for (; summed < pos + expected; ++summed)
            sums[summed + 1] = quint8(sums[summed] + quint8(bytes[summed]));
        if (sums[pos + expected] != sums[pos]) {
            ++pos;
            ++dropped;
            continue;
        }
        const quint8 to = quint8(bytes[pos]);
        const quint8 from = quint8(bytes[pos + 2]);
        if (from == hostAddress) {
            // Our own frame heard back on the single-wire bus.
            pos += expected;
            continue;
        }
        if (to != hostAddress || (expectedSource >= 0 && from != expectedSource)) {
            // Traffic between other stations, or noise that happens to add up: it is
            // not the answer, whatever it carries.
            pos += expected;
            ++foreign;
            continue;
        }
        // Only the first frame is taken; what follows it is dropped with the buffer.
        dest = to;
        src = from;
        header = Header::Type(quint8(bytes[pos + 3]));
        data = buffer.mid(pos + 4, lengthByte(buffer, pos));
        buffer.clear();
        valid = true;
        return;
    }
    if (pos > 0) {
        // What is left is less than one frame; a small buffer is reused, a large one
        // is not kept alive for it.
        if (buffer.capacity() <= 4096)
            buffer.remove(0, pos);
        else
            buffer = buffer.mid(pos);
    }
}

void Response::expectFrom(unsigned char address)
{
    expectedSource = address;
}

bool Response::isValid() const
{
    return valid;
}

bool Response::isNAK() const
{
    return header == Header::NAK;
}

bool Response::isBUSY() const
{
    return header == Header::BUSY;
}

unsigned int Response::getUint(int pos, int count) const
{
    const qint64 n = qMin(qint64(count), qint64(data.size()) - pos);
    unsigned int result = 0;
    // Bytes beyond the fourth do not fit the result.
    for (int i = 0; i < n && i < 4; ++i)
        result += unsigned(getByte(int(qint64(pos) + i))) << (8 * i);
    return result;
}

unsigned char Response::getByte(int index) const
{
    if (index < 0 || index >= data.size())
        return 0;
    return quint8(data.at(index));
}

Response::operator QByteArray() const
{
    return data;
}

Response Response::fromHex(const QString& text)
{
    Response response;
    response.setRawData(QByteArray::fromHex(text.toUtf8()));
    response.valid = true;
    return response;
}

} // namespace CcTalk
