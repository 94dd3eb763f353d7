// The driver's loggers on Log4Qt, the terminal host's logging library. Log4Qt is one shared
// library in the host's process, so the host's configuration (appenders, levels, layouts)
// governs these loggers exactly as its own. Messages go in as QString, decoded from the driver's
// UTF-8 literals explicitly: the host's C-string codec never touches them.
#include "host/logging.h"

#include <log4qt/level.h>
#include <log4qt/logger.h>
#include <log4qt/writerappender.h>

#include <QFile>
#include <QLatin1String>
#include <QTextStream>

namespace logging {

// The driver names its loggers the log4j way, "cpibcr.line"; Log4Qt's hierarchy separates
// names with "::" and its properties files spell them with dots, so "log4j.logger.cpibcr.line"
// configures Log4Qt's "cpibcr::line", a child of "cpibcr".
LoggerPtr logger(const char* name)
{
    return Log4Qt::Logger::logger(
        QString(QLatin1String(name)).replace(QLatin1Char('.'), QLatin1String("::")));
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

// Log4Qt's writer appenders report a failed write to Log4Qt's own log only, again for every
// line; their stream and file keep the error, and an appender whose file could not be opened
// has no writer.
bool appendersWrite(const LoggerPtr& logger)
{
    const QList<Log4Qt::Appender*> appenders = logger->appenders();
    for (int i = 0; i < appenders.size(); ++i) {
        const auto* appender = qobject_cast<Log4Qt::WriterAppender*>(appenders.at(i));
        if (!appender)
            continue;
        const QTextStream* stream = appender->writer();
        if (!stream || stream->status() != QTextStream::Ok)
            return false;
        const QFile* file = qobject_cast<QFile*>(stream->device());
        if (file && file->error() != QFile::NoError)
            return false;
    }
    return true;
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

bool writeLine(const LoggerPtr& logger, const QByteArray& line)
{
    if (!logger)
        return true;
    if (!appendersWrite(logger))
        return false;
    logger->log(Log4Qt::Level::TRACE_INT, QString::fromLatin1(line.constData(), line.size()));
    return appendersWrite(logger);
}

void silenceUnlessSet(const LoggerPtr& logger)
{
    if (logger && logger->level() == Log4Qt::Level::NULL_INT)
        logger->setLevel(Log4Qt::Level::OFF_INT);
}

} // namespace logging
