#pragma once

#include <QString>

// The names the host programs give the driver's unit operations, change modes and counters, as
// typed on cpibcr's command line and shown by both programs.
namespace hostkit {

// "manual-load", "manual-all", "manual-sum", "dispense-all", "dispense-sum", or a number
// (decimal or 0x hexadecimal) that is one of the unit operations.
bool parseOperation(const QString& text, int* operation, QString* error);
// The name of an operation: one of the names above, or the number in hexadecimal.
QString operationKey(int operation);

bool parseMode(const QString& text, int* mode, QString* error);
// "optimal" or "minimum".
QString modeKey(int mode);
// "accepted" or "dispensed".
QString counterKey(int counter);

} // namespace hostkit
