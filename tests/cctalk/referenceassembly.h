#pragma once

#include <QByteArray>

namespace testsupport {

inline bool sumsToZero(const QByteArray& bytes)
{
    unsigned sum = 0;
    for (char c : bytes)
        sum += quint8(c);
    return (sum & 0xFF) == 0;
}

// The answer assembly rules written out plainly, one byte removed at a time, to check the
// driver's single-pass scan against: the host's own echo is skipped, frames to other nodes or
// from another device count as foreign, a bad length or checksum drops one byte, and the first
// good frame to the host wins.
struct ReferenceAssembly
{
    static constexpr quint8 host = 1;

    int expectedSource = -1;
    QByteArray buffer;
    bool valid = false;
    QByteArray frame;
    int foreign = 0;
    int dropped = 0;

    void add(const QByteArray& piece)
    {
        valid = false;
        buffer.append(piece);
        while (buffer.size() > 4) {
            const int expected = quint8(buffer.at(1)) + 5;
            if (expected > 255) {
                buffer.remove(0, 1);
                ++dropped;
                continue;
            }
            if (expected > buffer.size())
                return;
            if (!sumsToZero(buffer.left(expected))) {
                buffer.remove(0, 1);
                ++dropped;
                continue;
            }
            const quint8 dest = quint8(buffer.at(0));
            const quint8 src = quint8(buffer.at(2));
            if (src == host) {
                buffer.remove(0, expected);
                continue;
            }
            if (dest != host || (expectedSource >= 0 && src != expectedSource)) {
                buffer.remove(0, expected);
                ++foreign;
                continue;
            }
            frame = buffer.left(expected);
            buffer.clear();
            valid = true;
            return;
        }
    }
};

} // namespace testsupport
