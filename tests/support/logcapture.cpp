#include "logcapture.h"

#include <log4cxx/logger.h>

namespace testsupport {

void CaptureAppender::append(const ::log4cxx::spi::LoggingEventPtr& event, ::log4cxx::helpers::Pool&)
{
    const ::log4cxx::LogString& message = event->getMessage();
    const ::log4cxx::LogString levelName = event->getLevel()->toString();
    const ::log4cxx::LogString loggerName = event->getLoggerName();
    LogLine line;
    line.raw = QByteArray(message.data(), int(message.size()));
    line.text = QString::fromUtf8(line.raw);
    line.level = QString::fromUtf8(levelName.data(), int(levelName.size()));
    line.logger = QString::fromUtf8(loggerName.data(), int(loggerName.size()));
    lines.append(line);
}

LogCapture::LogCapture() : appender(std::make_shared<CaptureAppender>())
{
    auto root = ::log4cxx::Logger::getRootLogger();
    root->addAppender(appender);
    root->setLevel(::log4cxx::Level::getTrace());
    ::log4cxx::Logger::getLogger("cctalk")->setLevel(::log4cxx::LevelPtr());
    ::log4cxx::Logger::getLogger("cpibcr")->setLevel(::log4cxx::LevelPtr());
}

LogCapture::~LogCapture()
{
    ::log4cxx::Logger::getRootLogger()->removeAppender(appender);
}

QStringList LogCapture::formatted() const
{
    QStringList out;
    for (const LogLine& l : appender->lines)
        out << l.level + QLatin1Char(' ') + l.text;
    return out;
}

QStringList LogCapture::texts(const QString& level) const
{
    QStringList out;
    for (const LogLine& l : appender->lines)
        if (level.isEmpty() || l.level == level)
            out << l.text;
    return out;
}

QStringList significant(const LogCapture& log)
{
    QStringList out;
    for (const LogLine& l : log.lines())
        if (l.level != QLatin1String("DEBUG") && l.level != QLatin1String("TRACE"))
            out << l.level + QLatin1Char(' ') + l.text;
    return out;
}

// Last in the namespace: the macro opens a nested namespace named log4cxx.
IMPLEMENT_LOG4CXX_OBJECT(CaptureAppender)

} // namespace testsupport
