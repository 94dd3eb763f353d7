#pragma once

#include <QByteArray>
#include <QString>

// Frame builders for tests, written independently of the driver's frame classes
// so that a mistake in those cannot hide in the expected bytes.
namespace testsupport {

inline QByteArray frame(quint8 dest, quint8 src, quint8 header, const QByteArray& data = QByteArray())
{
    QByteArray f;
    f.append(char(dest));
    f.append(char(data.size()));
    f.append(char(src));
    f.append(char(header));
    f.append(data);
    quint8 sum = 0;
    for (char c : f)
        sum = quint8(sum + quint8(c));
    f.append(char(quint8(256 - sum)));
    return f;
}

// A request from the host (address 1) to the changer at 55.
inline QByteArray request(quint8 header, const QByteArray& data = QByteArray())
{
    return frame(55, 1, header, data);
}

// The changer's answer to the host.
inline QByteArray reply(const QByteArray& data = QByteArray())
{
    return frame(1, 55, 0, data);
}

inline QByteArray nak()
{
    return frame(1, 55, 5);
}

inline QByteArray busy()
{
    return frame(1, 55, 6);
}

// Whether the bytes are one whole frame, its checksum the one frame() gives.
inline bool isFrame(const QByteArray& bytes)
{
    if (bytes.size() < 5 || bytes.size() != quint8(bytes.at(1)) + 5)
        return false;
    return frame(quint8(bytes.at(0)), quint8(bytes.at(2)), quint8(bytes.at(3)),
                 bytes.mid(4, bytes.size() - 5)) == bytes;
}

// Whether the bytes are one whole frame from the changer to the host.
inline bool isReply(const QByteArray& bytes)
{
    return isFrame(bytes) && quint8(bytes.at(0)) == 1 && quint8(bytes.at(2)) == 55;
}

inline QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text));
}

} // namespace testsupport
