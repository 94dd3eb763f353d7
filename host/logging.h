#pragma once

#include <log4cxx/logger.h>

#include <QString>

// Named loggers and levels as the host's logging library offers them. Text goes
// to log4cxx as its own string type, converted from UTF-16 directly: the process
// locale (often "C" in a POS service) never touches Cyrillic on the way.
namespace logging {

using LoggerPtr = log4cxx::LoggerPtr;

LoggerPtr logger(const char* name);
LoggerPtr rootLogger();

log4cxx::LogString toLogString(const QString& text);
QString fromLogString(const log4cxx::LogString& text);

// Whether log4cxx would hand the logger's events to any appender: one of its own
// or, while additivity holds, one of its ancestors'.
bool reachesAppender(LoggerPtr logger);

// While the host has configured no appender that a line would reach, warnings and
// errors go to stderr as UTF-8 ("HH:mm:ss,SSS LEVEL logger - text") and lower
// levels are dropped, so log4cxx never prints "No appender could be found". Once
// the host adds an appender, its configuration alone decides.
void trace(const LoggerPtr& logger, const QString& text);
void debug(const LoggerPtr& logger, const QString& text);
void info(const LoggerPtr& logger, const QString& text);
void warn(const LoggerPtr& logger, const QString& text);
void error(const LoggerPtr& logger, const QString& text);
bool isTraceEnabled(const LoggerPtr& logger);

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
