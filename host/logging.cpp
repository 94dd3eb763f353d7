#include "host/logsetup.h"

#include <log4cxx/consoleappender.h>
#include <log4cxx/file.h>
#include <log4cxx/helpers/bytebuffer.h>
#include <log4cxx/helpers/charsetencoder.h>
#include <log4cxx/helpers/outputstream.h>
#include <log4cxx/helpers/outputstreamwriter.h>
#include <log4cxx/helpers/pool.h>
#include <log4cxx/logmanager.h>
#include <log4cxx/patternlayout.h>
#include <log4cxx/propertyconfigurator.h>
#include <log4cxx/spi/loggingevent.h>
#include <log4cxx/writerappender.h>

#include <QFileInfo>

#include <cerrno>
#include <unistd.h>

namespace logging {

namespace {

const log4cxx::LogString utf8Encoding = LOG4CXX_STR("UTF-8");

// log4cxx's console appender encodes with the C library's locale whatever
// encoding it is given, so console output gets its own byte stream to the
// file descriptor behind a UTF-8 writer.
class DescriptorStream : public log4cxx::helpers::OutputStream
{
public:
    explicit DescriptorStream(int descriptor) : fd(descriptor) {}
    void close(log4cxx::helpers::Pool&) override {}
    void flush(log4cxx::helpers::Pool&) override {}
    void write(log4cxx::helpers::ByteBuffer& buf, log4cxx::helpers::Pool&) override
    {
        const char* data = buf.current();
        size_t left = buf.remaining();
        while (left > 0) {
            const ssize_t n = ::write(fd, data, left);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            data += n;
            left -= size_t(n);
        }
        buf.position(buf.limit());
    }

private:
    const int fd;
};

log4cxx::helpers::WriterPtr utf8Writer(int fd)
{
    log4cxx::helpers::OutputStreamPtr stream = std::make_shared<DescriptorStream>(fd);
    log4cxx::helpers::CharsetEncoderPtr encoder = log4cxx::helpers::CharsetEncoder::getUTF8Encoder();
    return std::make_shared<log4cxx::helpers::OutputStreamWriter>(stream, encoder);
}

void forceUtf8(const LoggerPtr& logger, log4cxx::helpers::Pool& pool)
{
    if (!logger)
        return;
    for (const auto& appender : logger->getAllAppenders()) {
        if (auto console = log4cxx::cast<log4cxx::ConsoleAppender>(appender)) {
            const bool toStdout = console->getTarget() == log4cxx::ConsoleAppender::getSystemOut();
            console->setWriter(utf8Writer(toStdout ? STDOUT_FILENO : STDERR_FILENO));
            continue;
        }
        auto writer = log4cxx::cast<log4cxx::WriterAppender>(appender);
        if (writer && writer->getEncoding().empty()) {
            writer->setEncoding(utf8Encoding);
            writer->activateOptions(pool);
        }
    }
}

// Where the driver's lines go while the host has given log4cxx no appender that
// would receive them. Never destroyed: lines may still come during static
// destruction, after log4cxx's own objects are gone.
const log4cxx::AppenderPtr& fallbackAppender()
{
    static const log4cxx::AppenderPtr* appender = [] {
        auto a = std::make_shared<log4cxx::WriterAppender>();
        a->setName(LOG4CXX_STR("cpibcr-fallback"));
        a->setLayout(
            std::make_shared<log4cxx::PatternLayout>(LOG4CXX_STR("%d{HH:mm:ss,SSS} %-5p %c - %m%n")));
        a->setWriter(utf8Writer(STDERR_FILENO));
        a->setImmediateFlush(true);
        return new log4cxx::AppenderPtr(a);
    }();
    return *appender;
}

void write(const LoggerPtr& logger, const log4cxx::LevelPtr& level, const QString& text)
{
    if (!logger || !logger->isEnabledFor(level))
        return;
    const auto location = log4cxx::spi::LocationInfo::getLocationUnavailable();
    if (reachesAppender(logger)) {
        logger->forcedLogLS(level, toLogString(text), location);
        return;
    }
    // Without an appender log4cxx would drop the line and print "No appender could
    // be found" instead; the operator still needs the warnings and errors.
    if (!level->isGreaterOrEqual(log4cxx::Level::getWarn()))
        return;
    log4cxx::helpers::Pool pool;
    fallbackAppender()->doAppend(
        std::make_shared<log4cxx::spi::LoggingEvent>(logger->getName(), level, toLogString(text), location),
        pool);
}

} // namespace

bool reachesAppender(LoggerPtr logger)
{
    for (; logger; logger = logger->getParent()) {
        if (!logger->getAllAppenders().empty())
            return true;
        if (!logger->getAdditivity())
            return false;
    }
    return false;
}

LoggerPtr logger(const char* name)
{
    return log4cxx::Logger::getLogger(name);
}

LoggerPtr rootLogger()
{
    return log4cxx::Logger::getRootLogger();
}

log4cxx::LogString toLogString(const QString& text)
{
#if LOG4CXX_LOGCHAR_IS_UTF8
    return text.toUtf8().toStdString();
#elif LOG4CXX_LOGCHAR_IS_WCHAR
    return text.toStdWString();
#else
#error "log4cxx character type not supported"
#endif
}

QString fromLogString(const log4cxx::LogString& text)
{
#if LOG4CXX_LOGCHAR_IS_UTF8
    return QString::fromUtf8(text.data(), int(text.size()));
#else
    return QString::fromStdWString(text);
#endif
}

void trace(const LoggerPtr& logger, const QString& text)
{
    write(logger, log4cxx::Level::getTrace(), text);
}

void debug(const LoggerPtr& logger, const QString& text)
{
    write(logger, log4cxx::Level::getDebug(), text);
}

void info(const LoggerPtr& logger, const QString& text)
{
    write(logger, log4cxx::Level::getInfo(), text);
}

void warn(const LoggerPtr& logger, const QString& text)
{
    write(logger, log4cxx::Level::getWarn(), text);
}

void error(const LoggerPtr& logger, const QString& text)
{
    write(logger, log4cxx::Level::getError(), text);
}

bool isTraceEnabled(const LoggerPtr& logger)
{
    return logger && logger->isTraceEnabled();
}

bool writeLine(const LoggerPtr& logger, const QByteArray& line)
{
    if (!logger)
        return true;
    try {
#if LOG4CXX_LOGCHAR_IS_UTF8
        log4cxx::LogString text(line.constData(), size_t(line.size()));
#else
        const log4cxx::LogString text = toLogString(QString::fromLatin1(line.constData(), line.size()));
#endif
        logger->forcedLogLS(log4cxx::Level::getTrace(), text,
                            log4cxx::spi::LocationInfo::getLocationUnavailable());
    } catch (const std::exception&) {
        // log4cxx's file appenders throw what the disk refused.
        return false;
    }
    return true;
}

void silenceUnlessSet(const LoggerPtr& logger)
{
    if (logger && !logger->getLevel())
        logger->setLevel(log4cxx::Level::getOff());
}

log4cxx::LevelPtr levelFromName(const QString& name)
{
    const QString n = name.trimmed().toLower();
    if (n == QLatin1String("error"))
        return log4cxx::Level::getError();
    if (n == QLatin1String("warn") || n == QLatin1String("warning"))
        return log4cxx::Level::getWarn();
    if (n == QLatin1String("info"))
        return log4cxx::Level::getInfo();
    if (n == QLatin1String("debug"))
        return log4cxx::Level::getDebug();
    if (n == QLatin1String("trace"))
        return log4cxx::Level::getTrace();
    return log4cxx::LevelPtr();
}

bool configureConsole(const QString& level, QString* error)
{
    const log4cxx::LevelPtr lvl = levelFromName(level);
    if (!lvl) {
        if (error)
            *error = QStringLiteral("unknown log level \"%1\" (error, warn, info, debug, trace)").arg(level);
        return false;
    }
    log4cxx::LogManager::resetConfiguration();
    auto layout = std::make_shared<log4cxx::PatternLayout>(LOG4CXX_STR("%d{HH:mm:ss,SSS} %-5p %c - %m%n"));
    auto appender = std::make_shared<log4cxx::WriterAppender>();
    appender->setName(LOG4CXX_STR("stderr"));
    appender->setLayout(layout);
    appender->setWriter(utf8Writer(STDERR_FILENO));
    appender->setImmediateFlush(true);

    auto root = rootLogger();
    root->addAppender(appender);
    root->setLevel(log4cxx::Level::getWarn());
    logger("cpibcr")->setLevel(lvl);
    logger("cctalk")->setLevel(lvl);
    return true;
}

bool configureFromFile(const QString& path, QString* error)
{
    if (!QFileInfo(path).isReadable()) {
        if (error)
            *error = QStringLiteral("cannot read log configuration \"%1\"").arg(path);
        return false;
    }
    log4cxx::LogManager::resetConfiguration();
    log4cxx::PropertyConfigurator::configure(log4cxx::File(toLogString(path)));
    log4cxx::helpers::Pool pool;
    forceUtf8(rootLogger(), pool);
    forceUtf8(logger("cpibcr"), pool);
    forceUtf8(logger("cctalk"), pool);
    return true;
}

} // namespace logging
