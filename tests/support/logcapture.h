#pragma once

#include <log4cxx/appenderskeleton.h>

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

namespace testsupport {

// The log4cxx object macros name these namespaces unqualified.
namespace helpers = ::log4cxx::helpers;

struct LogLine
{
    QString level;  // "TRACE", "DEBUG", "INFO", "WARN", "ERROR"
    QString logger; // logger name
    QString text;   // message decoded from UTF-8
    QByteArray raw; // message bytes exactly as log4cxx holds them
};

// Appender that keeps every event in memory.
class CaptureAppender : public log4cxx::AppenderSkeleton
{
public:
    DECLARE_LOG4CXX_OBJECT(CaptureAppender)
    BEGIN_LOG4CXX_CAST_MAP()
    LOG4CXX_CAST_ENTRY(CaptureAppender)
    LOG4CXX_CAST_ENTRY_CHAIN(AppenderSkeleton)
    END_LOG4CXX_CAST_MAP()

    void close() override {}
    bool requiresLayout() const override { return false; }

    QList<LogLine> lines;

protected:
    void append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& pool) override;
};

// Captures everything logged while it lives: attaches to the root logger at
// trace level, resets "cctalk" and "cpibcr" to inherit, detaches on destruction.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    Q_DISABLE_COPY(LogCapture)

    const QList<LogLine>& lines() const { return appender->lines; }
    // "LEVEL text" per line, the form most assertions compare with.
    QStringList formatted() const;
    QStringList texts(const QString& level = QString()) const;
    void clear() { appender->lines.clear(); }

private:
    std::shared_ptr<CaptureAppender> appender;
};

// "LEVEL text" of every line above debug level: what an operator reads, without the
// link's per-command debug and trace lines. A line of any other level stays in, so
// that an unexpected one shows in the comparison.
QStringList significant(const LogCapture& log);

} // namespace testsupport
