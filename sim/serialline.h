#pragma once

#include <QString>

namespace sim {

// A pseudo-terminal pair in raw mode at this baud rate; the slave's path in `path`. The caller
// owns both descriptors.
bool openRawPty(int baud, int* master, int* slave, QString* path, QString* error);
// An existing serial device opened without blocking, put in raw mode when it is a terminal;
// -1 on failure.
int openRawDevice(const QString& path, int baud, QString* error);

} // namespace sim
