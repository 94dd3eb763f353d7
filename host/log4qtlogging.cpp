// The driver's loggers on Log4Qt, the terminal host's logging library. Log4Qt is one shared
// library in the host's process, so the host's configuration (appenders, levels, layouts)
// governs these loggers exactly as its own. Messages go in as QString, decoded from the driver's
// UTF-8 literals explicitly: the host's C-string codec never touches them.
#include "host/logging.h"

#include <log4qt/level.h>
#include <log4qt/logger.h>

#include <QLatin1String>

namespace logging {

LoggerPtr logger(const char* name)
{
    return Log4Qt::Logger::logger(QString(QLatin1String(name)));
}

LoggerPtr rootLogger()
{
    return Log4Qt::Logger::rootLogger();
}

namespace {

void write(const LoggerPtr& logger, Log4Qt::Level level, const QString& text)
{
    if (logger)
        logger->log(level, text);
}

} // namespace

void trace(const LoggerPtr& logger, const QString& text)
{
    write(logger, Log4Qt::Level::TRACE_INT, text);
}

void debug(const LoggerPtr& logger, const QString& text)
{
    write(logger, Log4Qt::Level::DEBUG_INT, text);
}

void info(const LoggerPtr& logger, const QString& text)
{
    write(logger, Log4Qt::Level::INFO_INT, text);
}

void warn(const LoggerPtr& logger, const QString& text)
{
    write(logger, Log4Qt::Level::WARN_INT, text);
}

void error(const LoggerPtr& logger, const QString& text)
{
    write(logger, Log4Qt::Level::ERROR_INT, text);
}

bool isTraceEnabled(const LoggerPtr& logger)
{
    return logger && logger->isTraceEnabled();
}

} // namespace logging
