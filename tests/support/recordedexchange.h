#pragma once

// What the line-recorder tests of both flavours (Qt 5 and the terminal's Qt 4) send through a
// recorded line.

#include "plugin/recordedline.h"

#include <QByteArray>

namespace testsupport {

// One exchange as the bus device makes it: input discarded, the request written, everything
// read that the line has.
inline void exchange(hw::RecordedLine& line, const QByteArray& request)
{
    line.discardInput();
    line.write(request);
    while (line.waitForInput(1000) && !line.read(0).isEmpty()) {
    }
}

// A request whose two data bytes count the exchanges, so that each one is told apart.
inline QByteArray numbered(int i)
{
    QByteArray frame = QByteArray::fromHex("37010180");
    frame.append(char(i & 0xFF));
    frame.append(char(i >> 8));
    return frame;
}

} // namespace testsupport
