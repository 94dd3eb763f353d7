// The driver's log pane: the lines of its loggers at a chosen level, fed by a log4cxx appender.
#include "logpane.h"

#include "host/logsetup.h"

#include <log4cxx/logger.h>
#include <log4cxx/spi/loggingevent.h>

#include <QComboBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QVBoxLayout>

namespace panel {

namespace {

const char* const driverLoggers[] = {"cpibcr", "cctalk"};

} // namespace

void SinkAppender::append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool&)
{
    if (!target)
        return;
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(event->getTimeStamp() / 1000);
    target->publish(QStringLiteral("%1 %2 %3 - %4")
                        .arg(when.toString(QStringLiteral("HH:mm:ss,zzz")),
                             logging::fromLogString(event->getLevel()->toString()).leftJustified(5),
                             logging::fromLogString(event->getLoggerName()),
                             logging::fromLogString(event->getMessage())));
}

LogPane::LogPane(QWidget* parent)
    : QWidget(parent), sink(new LogSink(this)), appender(std::make_shared<SinkAppender>(sink)),
      levelBox(new QComboBox(this)), view(new QPlainTextEdit(this))
{
    setObjectName(QStringLiteral("logPane"));
    levelBox->setObjectName(QStringLiteral("logLevel"));
    view->setObjectName(QStringLiteral("logView"));
    view->setReadOnly(true);
    view->setMaximumBlockCount(5000);
    view->setLineWrapMode(QPlainTextEdit::NoWrap);
    QFont mono(QStringLiteral("Monospace"));
    mono.setStyleHint(QFont::TypeWriter);
    view->setFont(mono);
    for (const char* name : {"error", "warn", "info", "debug", "trace"})
        levelBox->addItem(QString::fromLatin1(name));

    auto* bar = new QHBoxLayout;
    bar->addWidget(new QLabel(QStringLiteral("Driver log (cpibcr, cctalk), level"), this));
    bar->addWidget(levelBox);
    bar->addStretch();
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(bar);
    layout->addWidget(view);

    appender->setName(LOG4CXX_STR("cpibcr-panel"));
    for (const char* name : driverLoggers) {
        auto logger = logging::logger(name);
        logger->addAppender(appender);
        logger->setAdditivity(false);
    }
    connect(sink, &LogSink::line_, this, &LogPane::append);
    // Follows the newest line unless the operator has scrolled back to read. The range grows
    // when the text is laid out, which may be after the line was appended.
    QScrollBar* scroll = view->verticalScrollBar();
    connect(scroll, &QScrollBar::valueChanged, this,
            [this, scroll](int value) { following = value == scroll->maximum(); });
    connect(scroll, &QScrollBar::rangeChanged, this, [this, scroll](int, int maximum) {
        if (following)
            scroll->setValue(maximum);
    });
    connect(levelBox, &QComboBox::currentTextChanged, this, &LogPane::setLevel);
    levelBox->setCurrentText(QStringLiteral("info"));
    setLevel(QStringLiteral("info"));
}

LogPane::~LogPane()
{
    for (const char* name : driverLoggers) {
        auto logger = logging::logger(name);
        logger->removeAppender(appender);
        logger->setAdditivity(true);
    }
}

void LogPane::setLevel(const QString& name)
{
    const log4cxx::LevelPtr level = logging::levelFromName(name);
    if (!level)
        return;
    for (const char* logger : driverLoggers)
        logging::logger(logger)->setLevel(level);
    if (levelBox->currentText() != name)
        levelBox->setCurrentText(name);
}

QString LogPane::level() const
{
    return levelBox->currentText();
}

QString LogPane::text() const
{
    return view->toPlainText();
}

void LogPane::append(const QString& line)
{
    view->appendPlainText(line);
}

// Last in the namespace: the macro opens a nested namespace named log4cxx.
IMPLEMENT_LOG4CXX_OBJECT(SinkAppender)

} // namespace panel
