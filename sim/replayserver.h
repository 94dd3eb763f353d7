#pragma once

#include "replay.h"

#include <functional>

namespace sim {

// Plays `replay` on the line `fd` until every recorded request has been matched and the line has
// stayed quiet for `quietMs` (status 0), the host diverges (status 1, the divergence reported),
// or `stopFd` becomes readable (status 0 when complete, 1 otherwise). `say` gets notes and the
// result, `complain` the divergence.
int serveReplay(Replay& replay, int fd, int stopFd, int quietMs,
                const std::function<void(const QString&)>& say,
                const std::function<void(const QString&)>& complain);

} // namespace sim
