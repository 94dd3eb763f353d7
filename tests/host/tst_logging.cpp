#include "host/logsetup.h"
#include "support/logcapture.h"

#include <log4cxx/logmanager.h>

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <clocale>
#include <fcntl.h>
#include <unistd.h>

using testsupport::LogCapture;

namespace {

// Runs body with fd 2 redirected to a file and returns what was written there.
template <class Body> QByteArray capturedStderr(Body body)
{
    QTemporaryDir dir;
    const QByteArray path = QFile::encodeName(dir.filePath(QStringLiteral("stderr.txt")));
    const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (file < 0)
        return QByteArray("cannot open capture file");
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(file, STDERR_FILENO);
    ::close(file);
    body();
    log4cxx::LogManager::resetConfiguration();
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    QFile out(QString::fromLocal8Bit(path));
    out.open(QIODevice::ReadOnly);
    return out.readAll();
}

const char startLine[] =
    "\xD0\xA1\xD1\x82\xD0\xB0\xD1\x80\xD1\x82 \xD0\xBF\xD1\x80\xD0\xB8\xD0\xB5\xD0\xBC\xD0\xB0 "
    "\xD0\xBC\xD0\xBE\xD0\xBD\xD0\xB5\xD1\x82";

} // namespace

class TestLogging : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // A POS service often runs with no locale at all.
        QVERIFY(std::setlocale(LC_ALL, "C"));
        QCOMPARE(QByteArray(std::setlocale(LC_CTYPE, nullptr)), QByteArray("C"));
    }

    void cyrillicIsUtf8UnderCLocale()
    {
        LogCapture log;
        logging::error(logging::logger("cctalk"), QStringLiteral("Нет связи"));
        QCOMPARE(log.lines().size(), 1);
        QCOMPARE(log.lines().at(0).raw,
                 QByteArray("\xD0\x9D\xD0\xB5\xD1\x82 \xD1\x81\xD0\xB2\xD1\x8F\xD0\xB7\xD0\xB8"));
        QCOMPARE(log.lines().at(0).level, QStringLiteral("ERROR"));
        QCOMPARE(log.lines().at(0).logger, QStringLiteral("cctalk"));
    }

    // What the adapter avoids: log4cxx decodes a narrow string with the C locale.
    void naiveNarrowStringIsGarbledUnderCLocale()
    {
        LogCapture log;
        logging::logger("cctalk")->info(std::string("\xD0\x9D\xD0\xB5\xD1\x82"));
        QCOMPARE(log.lines().size(), 1);
        QVERIFY(log.lines().at(0).raw != QByteArray("\xD0\x9D\xD0\xB5\xD1\x82"));
    }

    void levelsReachTheirLogger()
    {
        LogCapture log;
        const auto l = logging::logger("cpibcr");
        logging::trace(l, QStringLiteral("т"));
        logging::debug(l, QStringLiteral("д"));
        logging::info(l, QStringLiteral("и"));
        logging::warn(l, QStringLiteral("п"));
        logging::error(l, QStringLiteral("о"));
        QCOMPARE(log.formatted(),
                 QStringList({QStringLiteral("TRACE т"), QStringLiteral("DEBUG д"), QStringLiteral("INFO и"),
                              QStringLiteral("WARN п"), QStringLiteral("ERROR о")}));
        QVERIFY(logging::isTraceEnabled(l));
    }

    void disabledLevelIsDropped()
    {
        LogCapture log;
        const auto l = logging::logger("cctalk");
        l->setLevel(log4cxx::Level::getInfo());
        logging::debug(l, QStringLiteral("скрыто"));
        logging::info(l, QStringLiteral("видно"));
        QVERIFY(!logging::isTraceEnabled(l));
        l->setLevel(log4cxx::LevelPtr());
        QCOMPARE(log.texts(), QStringList(QStringLiteral("видно")));
    }

    void levelNames()
    {
        QCOMPARE(logging::levelFromName(QStringLiteral("TRACE")), log4cxx::Level::getTrace());
        QCOMPARE(logging::levelFromName(QStringLiteral("warn")), log4cxx::Level::getWarn());
        QVERIFY(!logging::levelFromName(QStringLiteral("loud")));
        QString error;
        QVERIFY(!logging::configureConsole(QStringLiteral("loud"), &error));
        QVERIFY(error.contains(QStringLiteral("loud")));
    }

    // A properties file that names no encoding still writes UTF-8 bytes under the C locale.
    void fileAppenderWritesUtf8()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString logPath = dir.filePath(QStringLiteral("out.log"));
        const QString configPath = dir.filePath(QStringLiteral("log.properties"));
        QFile config(configPath);
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("log4j.rootLogger=INFO, F\n"
                     "log4j.appender.F=org.apache.log4j.FileAppender\n"
                     "log4j.appender.F.File=" +
                     logPath.toUtf8() +
                     "\n"
                     "log4j.appender.F.layout=org.apache.log4j.PatternLayout\n"
                     "log4j.appender.F.layout.ConversionPattern=%m%n\n");
        config.close();
        QVERIFY(logging::configureFromFile(configPath));
        logging::info(logging::logger("cpibcr"), QStringLiteral("Выдано 15.50"));
        log4cxx::LogManager::resetConfiguration();

        QFile out(logPath);
        QVERIFY(out.open(QIODevice::ReadOnly));
        QCOMPARE(out.readAll(), QByteArray("\xD0\x92\xD1\x8B\xD0\xB4\xD0\xB0\xD0\xBD\xD0\xBE 15.50\n"));
    }

    // The console configuration of the tools writes UTF-8 to stderr under the C locale.
    void consoleWritesUtf8ToStderr()
    {
        bool configured = false;
        const QByteArray text = capturedStderr([&] {
            configured = logging::configureConsole(QStringLiteral("info"));
            logging::info(logging::logger("cpibcr"), QStringLiteral("Старт приема монет"));
            logging::debug(logging::logger("cpibcr"), QStringLiteral("скрыто"));
        });
        QVERIFY(configured);
        QVERIFY2(text.endsWith(QByteArray(" INFO  cpibcr - ") + startLine + '\n'), text.constData());
        QCOMPARE(text.count('\n'), 1);
    }

    // A console appender declared in a properties file is made UTF-8 as well.
    void configuredConsoleAppenderWritesUtf8()
    {
        QTemporaryDir dir;
        const QString configPath = dir.filePath(QStringLiteral("console.properties"));
        QFile config(configPath);
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("log4j.rootLogger=INFO, C\n"
                     "log4j.appender.C=org.apache.log4j.ConsoleAppender\n"
                     "log4j.appender.C.Target=System.err\n"
                     "log4j.appender.C.layout=org.apache.log4j.PatternLayout\n"
                     "log4j.appender.C.layout.ConversionPattern=%m%n\n");
        config.close();
        bool configured = false;
        const QByteArray text = capturedStderr([&] {
            configured = logging::configureFromFile(configPath);
            logging::info(logging::logger("cpibcr"), QStringLiteral("Старт приема монет"));
        });
        QVERIFY(configured);
        QCOMPARE(text, QByteArray(startLine) + '\n');
    }

    void missingConfigFileIsRefused()
    {
        QString error;
        QVERIFY(!logging::configureFromFile(QStringLiteral("/nonexistent/log.properties"), &error));
        QVERIFY(error.contains(QStringLiteral("/nonexistent/log.properties")));
    }
};

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
