#pragma once

#include <QString>

namespace tool {

// What --help prints: the global options, then every command of the table with what it does.
QString usageText();
// The global options alone, after a usage error.
QString shortUsage();

} // namespace tool
