#pragma once

#include "host/logging.h"

#include <log4cxx/level.h>

// Configuring log4cxx for the Qt 5 hosts (the tools, the panel, the example host). With
// log4cxx, while the host has configured no appender that a line would reach, warnings and
// errors go to stderr as UTF-8 ("HH:mm:ss,SSS LEVEL logger - text") and lower levels are
// dropped, so log4cxx never prints "No appender could be found". Once the host adds an
// appender, its configuration alone decides.
namespace logging {

log4cxx::LogString toLogString(const QString& text);
QString fromLogString(const log4cxx::LogString& text);

// Whether log4cxx would hand the logger's events to any appender: one of its own
// or, while additivity holds, one of its ancestors'.
bool reachesAppender(LoggerPtr logger);

// One of "error", "warn", "info", "debug", "trace" (any case); null for anything else.
log4cxx::LevelPtr levelFromName(const QString& name);

// Replaces any configuration: a UTF-8 console appender on stderr, the "cpibcr"
// and "cctalk" loggers at the given level, everything else at warn.
bool configureConsole(const QString& level, QString* error = nullptr);

// Loads a log4cxx properties file. Console appenders and writer appenders that
// name no encoding are switched to UTF-8, so the file cannot make Cyrillic
// depend on the locale.
bool configureFromFile(const QString& path, QString* error = nullptr);

} // namespace logging
