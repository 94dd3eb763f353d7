#pragma once

#include <QByteArray>

namespace sim {

// What a non-blocking descriptor holds now: read until it would block, ends or fails.
QByteArray readAvailable(int fd);

// What writing does when a non-blocking descriptor cannot take more bytes.
enum class WhenFull { Wait, GiveUp };

// Writes every byte, again after an interruption. False when the descriptor failed, or was full
// and whenFull gives up, before the last byte.
bool writeAll(int fd, const QByteArray& bytes, WhenFull whenFull);

} // namespace sim
