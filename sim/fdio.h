#pragma once

#include <QByteArray>

namespace sim {

// What a non-blocking descriptor holds now: read until it would block, ends or fails.
QByteArray readAvailable(int fd);

} // namespace sim
