// The plug-in loaded by a host that never configured log4cxx: the driver's
// warnings and errors reach stderr as UTF-8 and log4cxx's "No appender" notice
// never appears. Each case runs in a child process of this program, so that
// log4cxx starts unconfigured, under the C locale, in an empty directory.
#include "cashcontrol/abstractcashcontrol.h"
#include "cashcontrol/cashcontrolexc.h"
#include "host/logsetup.h"

#include <log4cxx/logmanager.h>
#include <log4cxx/propertyconfigurator.h>

#include <QCoreApplication>
#include <QFile>
#include <QPluginLoader>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <clocale>
#include <cstdio>

namespace {

const char childVariable[] = "CPIBCR_DEFAULTLOGGING_CHILD";
const char logFileVariable[] = "CPIBCR_DEFAULTLOGGING_FILE";

// "Операция подготовки к транспортировке не поддерживается"
const QByteArray
    parkWarning("\xD0\x9E\xD0\xBF\xD0\xB5\xD1\x80\xD0\xB0\xD1\x86\xD0\xB8\xD1\x8F "
                "\xD0\xBF\xD0\xBE\xD0\xB4\xD0\xB3\xD0\xBE"
                "\xD1\x82\xD0\xBE\xD0\xB2\xD0\xBA\xD0\xB8 \xD0\xBA "
                "\xD1\x82\xD1\x80\xD0\xB0\xD0\xBD\xD1\x81\xD0\xBF\xD0\xBE"
                "\xD1\x80\xD1\x82\xD0\xB8\xD1\x80\xD0\xBE\xD0\xB2\xD0\xBA\xD0\xB5 \xD0\xBD\xD0\xB5 "
                "\xD0\xBF\xD0\xBE\xD0\xB4"
                "\xD0\xB4\xD0\xB5\xD1\x80\xD0\xB6\xD0\xB8\xD0\xB2\xD0\xB0\xD0\xB5\xD1\x82\xD1\x81\xD1\x8F");
// "Некорректная сумма"
const QByteArray
    amountError("\xD0\x9D\xD0\xB5\xD0\xBA\xD0\xBE\xD1\x80\xD1\x80\xD0\xB5\xD0\xBA\xD1\x82\xD0\xBD"
                "\xD0\xB0\xD1\x8F \xD1\x81\xD1\x83\xD0\xBC\xD0\xBC\xD0\xB0");
// "Выдача монет -1.00, режим оптимальный": the info line cashOut logs first.
const QByteArray
    cashOutInfo("\xD0\x92\xD1\x8B\xD0\xB4\xD0\xB0\xD1\x87\xD0\xB0 \xD0\xBC\xD0\xBE\xD0\xBD\xD0\xB5"
                "\xD1\x82 -1.00, \xD1\x80\xD0\xB5\xD0\xB6\xD0\xB8\xD0\xBC \xD0\xBE\xD0\xBF\xD1\x82"
                "\xD0\xB8\xD0\xBC\xD0\xB0\xD0\xBB\xD1\x8C\xD0\xBD\xD1\x8B\xD0\xB9");

// What a host does with the driver here: one warning (park), one refused
// payout (an error line and the exception). Prints the exception text on stdout.
int runHost(bool configureLater)
{
    if (!std::setlocale(LC_ALL, "C"))
        return 10;
    QPluginLoader loader(QStringLiteral(CPIBCR_PLUGIN_FILE));
    QObject* factory = loader.instance();
    if (!factory)
        return 11;
    QVariant made;
    if (!QMetaObject::invokeMethod(factory, "getObject", Q_RETURN_ARG(QVariant, made)))
        return 12;
    QObject* object = made.value<QObject*>();
    auto* cash = qobject_cast<hw::AbstractCashControl*>(object);
    if (!cash)
        return 13;

    // The host configures log4cxx only after it has made the driver.
    if (configureLater) {
        const QByteArray file = qgetenv(logFileVariable);
        QTemporaryDir dir;
        const QString properties = dir.filePath(QStringLiteral("log.properties"));
        QFile out(properties);
        if (!out.open(QIODevice::WriteOnly))
            return 14;
        out.write("log4j.rootLogger=INFO, file\n"
                  "log4j.appender.file=org.apache.log4j.FileAppender\n"
                  "log4j.appender.file.File=" +
                  file +
                  "\n"
                  "log4j.appender.file.Encoding=UTF-8\n"
                  "log4j.appender.file.layout=org.apache.log4j.PatternLayout\n"
                  "log4j.appender.file.layout.ConversionPattern=%p %c - %m%n\n");
        out.close();
        log4cxx::PropertyConfigurator::configure(log4cxx::File(properties.toStdString()));
    }

    cash->park();
    try {
        cash->cashOut(ECashControl::Optimal, -100);
    } catch (const CashControlExc& e) {
        std::printf("%s\n", e.what());
    }
    delete object;
    return 0;
}

// Loads the example configuration with its file in the given place and its sizes
// made small, and writes 100 lines of about 60 bytes: more than the current file
// and both backups hold.
int runRotation()
{
    QFile example(QStringLiteral(CPIBCR_LOG_EXAMPLE));
    if (!example.open(QIODevice::ReadOnly))
        return 20;
    QByteArray text = example.readAll();
    for (const char* line : {"=/var/log/cpibcr/cpibcr.log\n", "MaxFileSize=10MB\n", "MaxBackupIndex=5\n"}) {
        if (!text.contains(line))
            return 21;
    }
    text.replace("=/var/log/cpibcr/cpibcr.log\n", "=" + qgetenv(logFileVariable) + "\n");
    text.replace("MaxFileSize=10MB\n", "MaxFileSize=1KB\n");
    text.replace("MaxBackupIndex=5\n", "MaxBackupIndex=2\n");
    QTemporaryDir dir;
    const QString properties = dir.filePath(QStringLiteral("log.properties"));
    QFile out(properties);
    if (!out.open(QIODevice::WriteOnly))
        return 22;
    out.write(text);
    out.close();

    log4cxx::PropertyConfigurator::configure(log4cxx::File(properties.toStdString()));
    const auto logger = logging::logger("cpibcr");
    for (int i = 0; i < 100; ++i)
        logging::info(logger, QStringLiteral("Строка %1").arg(i));
    log4cxx::LogManager::resetConfiguration();
    return 0;
}

struct Run
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run runChild(const QString& mode, const QString& workDir, const QString& logFile = QString())
{
    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QString::fromLatin1(childVariable), mode);
    env.insert(QString::fromLatin1(logFileVariable), logFile);
    env.insert(QStringLiteral("LANG"), QStringLiteral("C"));
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    env.remove(QStringLiteral("LOG4CXX_CONFIGURATION"));
    // log4cxx 1.0 deletes its rolling file appender's private part through a base
    // of another size; nothing of this project is involved.
    if (mode == QLatin1String("rotate"))
        env.insert(QStringLiteral("ASAN_OPTIONS"),
                   env.value(QStringLiteral("ASAN_OPTIONS")) + QStringLiteral(":new_delete_type_mismatch=0"));
    child.setProcessEnvironment(env);
    child.setWorkingDirectory(workDir);
    child.start(QCoreApplication::applicationFilePath(), QStringList());
    Run run;
    if (!child.waitForFinished(-1) || child.exitStatus() != QProcess::NormalExit)
        return run;
    run.exitCode = child.exitCode();
    run.out = child.readAllStandardOutput();
    run.err = child.readAllStandardError();
    return run;
}

// "HH:mm:ss,SSS " in front of each console line.
QList<QByteArray> withoutTime(const QByteArray& text)
{
    QList<QByteArray> lines;
    const QRegularExpression time(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d,\\d\\d\\d $"));
    for (const QByteArray& line : text.split('\n')) {
        if (line.isEmpty())
            continue;
        if (line.size() < 13 || !time.match(QString::fromLatin1(line.left(13))).hasMatch())
            lines << "NO TIME: " + line;
        else
            lines << line.mid(13);
    }
    return lines;
}

} // namespace

class TestDefaultLogging : public QObject
{
    Q_OBJECT
private slots:
    void warningsAndErrorsReachStderrWithoutConfiguration()
    {
        QTemporaryDir dir;
        const Run run = runChild(QStringLiteral("bare"), dir.path());
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(!run.err.contains("No appender"), run.err.constData());
        QVERIFY2(!run.err.contains("log4cxx"), run.err.constData());
        const QList<QByteArray> expected{"WARN  cpibcr - " + parkWarning, "ERROR cpibcr - " + amountError};
        QCOMPARE(withoutTime(run.err), expected);
        // The exception carries the same UTF-8 text, with the driver's name in front.
        QCOMPARE(run.out,
                 QByteArray("\xD0\x9C\xD0\xBE\xD0\xBD\xD0\xB5\xD1\x82\xD0\xBE\xD0\xBF\xD1\x80\xD0\xB8\xD0"
                            "\xB5\xD0\xBC\xD0\xBD\xD0\xB8\xD0\xBA: ") +
                     amountError + "\n");
    }

    void hostConfigurationKeepsFullControl()
    {
        QTemporaryDir dir;
        const QString logFile = dir.filePath(QStringLiteral("host.log"));
        const Run run = runChild(QStringLiteral("configured"), dir.path(), logFile);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.err, QByteArray());
        QFile file(logFile);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QList<QByteArray> expected{"WARN cpibcr - " + parkWarning, "INFO cpibcr - " + cashOutInfo,
                                         "ERROR cpibcr - " + amountError, ""};
        QCOMPARE(file.readAll().split('\n'), expected);
    }

    // The example configuration shipped for hosts: a UTF-8 file rotated by size.
    void exampleConfigurationRotatesBySize()
    {
        QTemporaryDir dir;
        const QString log = dir.filePath(QStringLiteral("cpibcr.log"));
        const Run run = runChild(QStringLiteral("rotate"), dir.path(), log);
        QCOMPARE(run.err, QByteArray());
        QCOMPARE(run.exitCode, 0);

        for (const QString& name :
             {QStringLiteral("cpibcr.log"), QStringLiteral("cpibcr.log.1"), QStringLiteral("cpibcr.log.2")}) {
            QFile file(dir.filePath(name));
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(name));
            QVERIFY2(file.size() <= 1024 + 100, qPrintable(name));
            QVERIFY(
                file.readAll().contains(" INFO  cpibcr - \xD0\xA1\xD1\x82\xD1\x80\xD0\xBE\xD0\xBA\xD0\xB0 "));
        }
        QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("cpibcr.log.3"))));
        QFile last(dir.filePath(QStringLiteral("cpibcr.log")));
        QVERIFY(last.open(QIODevice::ReadOnly));
        QVERIFY(
            last.readAll().endsWith(" INFO  cpibcr - \xD0\xA1\xD1\x82\xD1\x80\xD0\xBE\xD0\xBA\xD0\xB0 99\n"));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QByteArray mode = qgetenv(childVariable);
    if (mode == "bare")
        return runHost(false);
    if (mode == "configured")
        return runHost(true);
    if (mode == "rotate")
        return runRotation();
    TestDefaultLogging test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_defaultlogging.moc"
