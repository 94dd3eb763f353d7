// The driver's log pane: the lines of its loggers at a chosen level, fed by a log4cxx appender.
#pragma once

#include <log4cxx/appenderskeleton.h>

#include <QObject>
#include <QString>
#include <QWidget>

#include <memory>

class QComboBox;
class QPlainTextEdit;

namespace panel {

// The log4cxx object macros name these namespaces unqualified.
namespace helpers = ::log4cxx::helpers;

// Receives log lines on whatever thread logs them and hands them on as a signal, which Qt
// queues to the thread the sink lives in.
class LogSink : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;
    void publish(const QString& line) { emit line_(line); }

signals:
    void line_(const QString& line);
};

// Formats each event as "HH:mm:ss,SSS LEVEL logger - text"; the message reaches Qt as UTF-8.
class SinkAppender : public log4cxx::AppenderSkeleton
{
public:
    DECLARE_LOG4CXX_OBJECT(SinkAppender)
    BEGIN_LOG4CXX_CAST_MAP()
    LOG4CXX_CAST_ENTRY(SinkAppender)
    LOG4CXX_CAST_ENTRY_CHAIN(AppenderSkeleton)
    END_LOG4CXX_CAST_MAP()

    SinkAppender() = default;
    explicit SinkAppender(LogSink* sink) : target(sink) {}

    void close() override {}
    bool requiresLayout() const override { return false; }

protected:
    void append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& pool) override;

private:
    LogSink* target = nullptr;
};

// The driver's own log lines (loggers "cpibcr" and "cctalk") with their level selectable.
// While the pane lives its appender is attached to both loggers, which then stop passing
// lines to the root logger.
class LogPane : public QWidget
{
    Q_OBJECT
public:
    explicit LogPane(QWidget* parent = nullptr);
    ~LogPane() override;

    // error, warn, info, debug or trace.
    void setLevel(const QString& name);
    QString level() const;
    QString text() const;

private:
    void append(const QString& line);

    LogSink* sink;
    std::shared_ptr<SinkAppender> appender;
    QComboBox* levelBox;
    QPlainTextEdit* view;
    bool following = true;
};

} // namespace panel
