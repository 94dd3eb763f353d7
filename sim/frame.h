#pragma once

#include <QByteArray>
#include <QList>

namespace sim {

// Bytes of a ccTalk frame: [dest][data length N][src][header][N data bytes][checksum].
// The checksum makes the sum of all bytes of the frame 0 modulo 256.
namespace frame {
enum : quint8 { Ack = 0, Nak = 5, Busy = 6 };

quint8 checksum(const QByteArray& bytesWithoutChecksum);
QByteArray make(quint8 dest, quint8 src, quint8 header, const QByteArray& data = QByteArray());
// True when the bytes are exactly one frame whose length byte and checksum agree.
bool isComplete(const QByteArray& bytes);
inline quint8 dest(const QByteArray& f)
{
    return quint8(f.at(0));
}
inline quint8 source(const QByteArray& f)
{
    return quint8(f.at(2));
}
inline quint8 header(const QByteArray& f)
{
    return quint8(f.at(3));
}
inline QByteArray data(const QByteArray& f)
{
    return f.mid(4, quint8(f.at(1)));
}
QByteArray toHex(const QByteArray& bytes); // "37 00 01 FE CA"
} // namespace frame

// Splits a byte stream into checksum-correct frames. A byte that cannot start a frame is dropped
// and the search goes on from the next one. A partial frame that has not grown for the
// inter-byte time-out is given up: its bytes are searched for a frame that starts later and the
// rest is discarded, as a device does when a transmission is cut off.
class FrameReader
{
public:
    explicit FrameReader(int interByteTimeoutMs = 50) : timeoutMs_(interByteTimeoutMs) {}

    void setInterByteTimeout(int ms) { timeoutMs_ = ms; }
    QList<QByteArray> feed(const QByteArray& bytes, qint64 nowMs);
    // Gives up a stale partial frame; call when no byte has arrived until deadline().
    QList<QByteArray> expire(qint64 nowMs);
    // Time at which the pending bytes go stale, or -1 when nothing is pending.
    qint64 deadline() const;
    QByteArray pending() const { return buffer_; }
    quint64 discardedBytes() const { return discarded_; }
    void clear() { buffer_.clear(); }

private:
    void extract(bool stale, QList<QByteArray>& out);

    QByteArray buffer_;
    qint64 lastByteMs_ = 0;
    int timeoutMs_;
    quint64 discarded_ = 0;
};

} // namespace sim
