#include "frame.h"

namespace sim {
namespace frame {

quint8 checksum(const QByteArray& bytesWithoutChecksum)
{
    quint8 sum = 0;
    for (char c : bytesWithoutChecksum)
        sum = quint8(sum + quint8(c));
    return quint8(0x100 - sum);
}

QByteArray make(quint8 dest, quint8 src, quint8 header, const QByteArray& data)
{
    QByteArray f;
    f.reserve(data.size() + 5);
    f.append(char(dest));
    f.append(char(quint8(data.size())));
    f.append(char(src));
    f.append(char(header));
    f.append(data.left(255));
    f.append(char(checksum(f)));
    return f;
}

bool isComplete(const QByteArray& bytes)
{
    if (bytes.size() < 5 || bytes.size() != quint8(bytes.at(1)) + 5)
        return false;
    quint8 sum = 0;
    for (char c : bytes)
        sum = quint8(sum + quint8(c));
    return sum == 0;
}

QByteArray toHex(const QByteArray& bytes)
{
    return bytes.toHex(' ').toUpper();
}

} // namespace frame

QList<QByteArray> FrameReader::feed(const QByteArray& bytes, qint64 nowMs)
{
    QList<QByteArray> out;
    if (!buffer_.isEmpty() && nowMs - lastByteMs_ > timeoutMs_)
        extract(true, out);
    if (!bytes.isEmpty()) {
        buffer_.append(bytes);
        lastByteMs_ = nowMs;
    }
    extract(false, out);
    return out;
}

QList<QByteArray> FrameReader::expire(qint64 nowMs)
{
    QList<QByteArray> out;
    if (!buffer_.isEmpty() && nowMs - lastByteMs_ > timeoutMs_)
        extract(true, out);
    return out;
}

qint64 FrameReader::deadline() const
{
    return buffer_.isEmpty() ? -1 : lastByteMs_ + timeoutMs_ + 1;
}

void FrameReader::extract(bool stale, QList<QByteArray>& out)
{
    while (!buffer_.isEmpty()) {
        const int expected = buffer_.size() >= 2 ? quint8(buffer_.at(1)) + 5 : 5;
        if (buffer_.size() < expected) {
            if (!stale)
                return;
        } else {
            const QByteArray candidate = buffer_.left(expected);
            if (frame::isComplete(candidate)) {
                out.append(candidate);
                buffer_.remove(0, expected);
                continue;
            }
        }
        buffer_.remove(0, 1);
        ++discarded_;
    }
}

} // namespace sim
