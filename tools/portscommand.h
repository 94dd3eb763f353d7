#pragma once

#include "console.h"

namespace tool {

struct Arguments;

// `cpibcr ports`: the machine's serial ports, none of them opened. Exit status 0.
int listPorts(const Arguments& a, const Console& console);

} // namespace tool
