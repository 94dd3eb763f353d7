#pragma once

#include <QByteArray>
#include <QString>

#ifdef CPIBCR_LOG4QT
namespace Log4Qt {
class Logger;
}
#else
#include <log4cxx/logger.h>
#endif

// The driver's logging: named loggers and the five levels, on the host's logging library.
// The terminal's Qt 4 host logs through Log4Qt, the Qt 5 tools through log4cxx; the driver's
// code sees only this. Text is handed over as UTF-16, so neither the process locale nor the
// host's C-string codec touches Cyrillic on the way.
namespace logging {

#ifdef CPIBCR_LOG4QT
using LoggerPtr = Log4Qt::Logger*;
#else
using LoggerPtr = log4cxx::LoggerPtr;
#endif

LoggerPtr logger(const char* name);
LoggerPtr rootLogger();

void trace(const LoggerPtr& logger, const QString& text);
void debug(const LoggerPtr& logger, const QString& text);
void info(const LoggerPtr& logger, const QString& text);
void warn(const LoggerPtr& logger, const QString& text);
void error(const LoggerPtr& logger, const QString& text);
bool isTraceEnabled(const LoggerPtr& logger);

// One line of a recording (ASCII, no line feed), at trace level and as it stands: the host's
// layout adds the line end. False when an appender of the logger could not write it, a full or
// failing disk; the caller stops writing then.
bool writeLine(const LoggerPtr& logger, const QByteArray& line);
// Sets the logger OFF unless the host's configuration gave it a level of its own, so that it
// stays silent when an ancestor ("cpibcr") is turned up.
void silenceUnlessSet(const LoggerPtr& logger);

} // namespace logging
