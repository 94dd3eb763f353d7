// The driver's logging on the terminal: Log4Qt's own loggers, so that the host's
// configuration governs them, and Cyrillic handed over intact whatever C-string codec the
// host chose.
#include "cashcontrol/cashcontrolexc.h"
#include "host/logging.h"
#include "plugin/cpibcrcashcontrol.h"

#include <log4qt/level.h>
#include <log4qt/logger.h>
#include <log4qt/loggingevent.h>
#include <log4qt/varia/listappender.h>

#include <QTextCodec>
#include <QtTest>

#include <memory>

class tst_Log4QtLogging : public QObject
{
    Q_OBJECT

    Log4Qt::ListAppender* appender = nullptr;

    QStringList taken()
    {
        QStringList lines;
        const QList<Log4Qt::LoggingEvent> events = appender->clearList();
        for (const Log4Qt::LoggingEvent& event : events)
            lines << event.level().toString() + QLatin1Char(' ') + event.loggerName() + QLatin1String(" - ") +
                         event.message();
        return lines;
    }

private slots:
    void init()
    {
        appender = new Log4Qt::ListAppender;
        appender->setName(QLatin1String("list"));
        appender->activateOptions();
        Log4Qt::Logger::rootLogger()->addAppender(appender);
        Log4Qt::Logger::rootLogger()->setLevel(Log4Qt::Level::TRACE_INT);
    }

    void cleanup()
    {
        Log4Qt::Logger::rootLogger()->removeAllAppenders();
        QTextCodec::setCodecForCStrings(nullptr);
    }

    void loggersAreTheHostsOwn()
    {
        QCOMPARE(logging::logger("cpibcr"), Log4Qt::Logger::logger(QLatin1String("cpibcr")));
        QCOMPARE(logging::logger("cctalk"), Log4Qt::Logger::logger(QLatin1String("cctalk")));
        QCOMPARE(logging::rootLogger(), Log4Qt::Logger::rootLogger());
        QCOMPARE(logging::logger("cpibcr")->name(), QString::fromLatin1("cpibcr"));
    }

    void levelsReachTheHostsAppenders_data()
    {
        QTest::addColumn<QByteArray>("codec");
        QTest::newRow("no C-string codec") << QByteArray();
        QTest::newRow("UTF-8") << QByteArray("UTF-8");
        QTest::newRow("ISO-8859-1") << QByteArray("ISO-8859-1");
        QTest::newRow("KOI8-R") << QByteArray("KOI8-R");
    }

    void levelsReachTheHostsAppenders()
    {
        QFETCH(QByteArray, codec);
        if (!codec.isEmpty()) {
            QVERIFY(QTextCodec::codecForName(codec.constData()));
            QTextCodec::setCodecForCStrings(QTextCodec::codecForName(codec.constData()));
        }
        const logging::LoggerPtr log = logging::logger("cpibcr");
        logging::trace(log, QString::fromUtf8("трассировка"));
        logging::debug(log, QString::fromUtf8("отладка"));
        logging::info(log, QString::fromUtf8("Монетоприемник: проверка"));
        logging::warn(log, QString::fromUtf8("предупреждение"));
        logging::error(log, QString::fromUtf8("ошибка"));
        const QStringList expected = QStringList()
                                     << QString::fromUtf8("TRACE cpibcr - трассировка")
                                     << QString::fromUtf8("DEBUG cpibcr - отладка")
                                     << QString::fromUtf8("INFO cpibcr - Монетоприемник: проверка")
                                     << QString::fromUtf8("WARN cpibcr - предупреждение")
                                     << QString::fromUtf8("ERROR cpibcr - ошибка");
        QCOMPARE(taken(), expected);
        // The bytes of one line, as the host's UTF-8 appender writes them.
        logging::info(log, QString::fromUtf8("Выдано 2.00"));
        QCOMPARE(appender->list().value(0).message().toUtf8(),
                 QByteArray("\xd0\x92\xd1\x8b\xd0\xb4\xd0\xb0\xd0\xbd\xd0\xbe 2.00"));
    }

    void hostsLevelGoverns()
    {
        const logging::LoggerPtr log = logging::logger("cctalk");
        log->setLevel(Log4Qt::Level::WARN_INT);
        QVERIFY(!logging::isTraceEnabled(log));
        logging::info(log, QString::fromLatin1("dropped"));
        logging::warn(log, QString::fromLatin1("kept"));
        QCOMPARE(taken(), QStringList() << QString::fromLatin1("WARN cctalk - kept"));
        log->setLevel(Log4Qt::Level::TRACE_INT);
        QVERIFY(logging::isTraceEnabled(log));
        log->setLevel(Log4Qt::Level::NULL_INT);
        QVERIFY(!logging::isTraceEnabled(nullptr));
        logging::error(nullptr, QString::fromLatin1("nowhere"));
        QCOMPARE(taken(), QStringList());
    }

    // The driver itself, built for Qt 4, under "cpibcr", with the host's C strings in Latin-1.
    void driverLogsUnderCpibcr()
    {
        QTextCodec::setCodecForCStrings(QTextCodec::codecForName("ISO-8859-1"));
        std::unique_ptr<hw::CpiBcrCashControl> driver(new hw::CpiBcrCashControl);
        try {
            driver->connect();
            QFAIL("connect() without a port did not throw");
        } catch (const CashControlExc& e) {
            QCOMPARE(QByteArray(e.what()), QByteArray("Монетоприемник: Не настроен порт"));
            QCOMPARE(e.message(), QString::fromUtf8("Монетоприемник: Не настроен порт"));
        }
        const QStringList lines = taken();
        QVERIFY2(lines.contains(QString::fromUtf8("INFO cpibcr - Инициализация устройства")),
                 qPrintable(lines.join(QLatin1String("\n"))));
        QVERIFY2(lines.contains(QString::fromUtf8("ERROR cpibcr - Не настроен порт")),
                 qPrintable(lines.join(QLatin1String("\n"))));
    }
};

QTEST_MAIN(tst_Log4QtLogging)
#include "tst_log4qtlogging.moc"
