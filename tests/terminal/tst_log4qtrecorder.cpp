// The driver's line recorder on the terminal's Log4Qt: silent unless "cpibcr.line" is enabled,
// the shipped Log4Qt snippet writing the same lines as log4cxx and rotating without losing one,
// and a recorder that cannot write (a full disk, a folder that cannot be made) stopping with one
// warning while the line goes on.
#include "host/abstractserialdevice.h"
#include "host/logging.h"
#include "plugin/recordedline.h"
#include "support/recordedexchange.h"
#include "tracewrite/tracewrite.h"

#include <log4qt/level.h>
#include <log4qt/logger.h>
#include <log4qt/loggingevent.h>
#include <log4qt/logmanager.h>
#include <log4qt/propertyconfigurator.h>
#include <log4qt/varia/listappender.h>

#include <QDir>
#include <QFile>
#include <QStringList>
#include <QtTest>

namespace {

const QByteArray poll = QByteArray::fromHex("370001feca");
const QByteArray answer = QByteArray::fromHex("01003700c8");

// A line that echoes each write and answers it, one read a chunk.
class EchoLine : public hw::AbstractSerialDevice
{
public:
    bool setBaudRate(const QString&) override { return true; }
    bool setDataBits(const QString&) override { return true; }
    bool setParity(const QString&) override { return true; }
    bool setStopBits(const QString&) override { return true; }
    bool setFlowControl(const QString&) override { return true; }
    void discardInput() override { pending.clear(); }
    void write(const QByteArray& data) override
    {
        writes << data;
        pending << data << answer;
    }
    bool waitForInput(int) override { return !pending.isEmpty(); }
    QByteArray read(int) override { return pending.isEmpty() ? QByteArray() : pending.takeFirst(); }

    QList<QByteArray> writes;
    QList<QByteArray> pending;
};

using testsupport::exchange;
using testsupport::numbered;

// The chunk lines of a trace without their times: "> 37 00 01 FE CA".
QList<QByteArray> withoutTimes(const QByteArray& text)
{
    QList<QByteArray> lines;
    const QList<QByteArray> all = text.split('\n');
    for (int i = 0; i < all.size(); ++i) {
        if (!all.at(i).isEmpty() && !all.at(i).startsWith(trace::magic))
            lines << all.at(i).mid(all.at(i).indexOf(' ') + 1);
    }
    return lines;
}

QByteArray expectedLine(trace::Direction direction, const QByteArray& bytes)
{
    trace::Chunk chunk;
    chunk.direction = direction;
    chunk.bytes = bytes;
    const QByteArray line = trace::chunkLine(chunk);
    return line.mid(line.indexOf(' ') + 1, line.size() - line.indexOf(' ') - 2);
}

} // namespace

class tst_Log4QtRecorder : public QObject
{
    Q_OBJECT

    Log4Qt::ListAppender* warnings = nullptr;
    QString folder;

    // The shipped Log4Qt snippet with its file at FILE and MAX bytes a file, and the root taking
    // warnings into a list.
    bool configure(const QString& file, const QString& maxSize)
    {
        QFile snippet(QString::fromLatin1(CPIBCR_LOG4QT_SNIPPET));
        if (!snippet.open(QIODevice::ReadOnly))
            return false;
        QString text = QString::fromUtf8(snippet.readAll().constData());
        text.replace(QString::fromLatin1("/var/log/pos/cpibcr-line.trace"), file);
        text.replace(QString::fromLatin1("MaxFileSize=10MB"), QString::fromLatin1("MaxFileSize=") + maxSize);
        text.replace(QString::fromLatin1("MaxBackupIndex=9"), QString::fromLatin1("MaxBackupIndex=50"));
        const QString path = folder + QString::fromLatin1("/log4qt.properties");
        QFile properties(path);
        if (!properties.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        properties.write(text.toUtf8());
        properties.close();
        Log4Qt::LogManager::resetConfiguration();
        const bool ok = Log4Qt::PropertyConfigurator::configure(path);
        warnings = new Log4Qt::ListAppender;
        warnings->setName(QString::fromLatin1("warnings"));
        warnings->activateOptions();
        Log4Qt::Logger::rootLogger()->addAppender(warnings);
        Log4Qt::Logger::rootLogger()->setLevel(Log4Qt::Level::WARN_INT);
        return ok;
    }

    QStringList warned()
    {
        QStringList lines;
        const QList<Log4Qt::LoggingEvent> events = warnings->list();
        for (int i = 0; i < events.size(); ++i) {
            // Log4Qt reports its own troubles under "Log4Qt"; the driver's are asked for here.
            if (!events.at(i).loggerName().startsWith(QLatin1String("Log4Qt")))
                lines << events.at(i).loggerName() + QString::fromLatin1(" - ") + events.at(i).message();
        }
        return lines;
    }

private slots:
    void initTestCase()
    {
        folder = QDir::tempPath() +
                 QString::fromLatin1("/tst_log4qtrecorder-%1").arg(QCoreApplication::applicationPid());
        QVERIFY(QDir().mkpath(folder));
    }

    void cleanupTestCase()
    {
        Log4Qt::LogManager::resetConfiguration();
        const QStringList names = QDir(folder).entryList(QDir::Files);
        for (int i = 0; i < names.size(); ++i)
            QFile::remove(folder + QLatin1Char('/') + names.at(i));
        QDir().rmdir(folder);
    }

    void silentUnlessEnabled()
    {
        Log4Qt::LogManager::resetConfiguration();
        Log4Qt::ListAppender* all = new Log4Qt::ListAppender;
        all->setName(QString::fromLatin1("all"));
        all->activateOptions();
        Log4Qt::Logger::rootLogger()->addAppender(all);
        Log4Qt::Logger::rootLogger()->setLevel(Log4Qt::Level::TRACE_INT);
        hw::RecordedLine line;
        EchoLine device;
        line.setDevice(&device, QString::fromLatin1("ttyS0"));
        exchange(line, poll);
        QCOMPARE(device.writes.size(), 1);
        QCOMPARE(all->list().size(), 0);
        // "log4j.logger.cpibcr.line" in a Log4Qt properties file is Log4Qt's "cpibcr::line".
        QCOMPARE(logging::logger("cpibcr.line"), Log4Qt::Logger::logger(QString::fromLatin1("cpibcr::line")));
        QVERIFY(Log4Qt::Logger::logger(QString::fromLatin1("cpibcr::line"))->level() ==
                Log4Qt::Level::OFF_INT);
    }

    void rotatedFilesHoldEveryChunkInOrder()
    {
        const QString file = folder + QString::fromLatin1("/line.trace");
        QVERIFY(configure(file, QString::fromLatin1("2KB")));
        hw::RecordedLine line;
        EchoLine device;
        line.setDevice(&device, QString::fromLatin1("ttyS0"));
        QVERIFY(line.setBaudRate(QString::fromLatin1("115200")));
        line.beginRecording();
        QList<QByteArray> expected;
        for (int i = 0; i < 150; ++i) {
            exchange(line, numbered(i));
            expected << expectedLine(trace::Direction::Written, numbered(i))
                     << expectedLine(trace::Direction::Read, numbered(i))
                     << expectedLine(trace::Direction::Read, answer);
        }
        QVERIFY(!line.stopped());
        QVERIFY(warned().isEmpty());
        // Closes the files; the list appender goes with the configuration.
        Log4Qt::LogManager::resetConfiguration();
        QByteArray all;
        int files = 0;
        for (int n = 50; n >= 0; --n) {
            QFile f(n == 0 ? file : file + QLatin1Char('.') + QString::number(n));
            if (!f.open(QIODevice::ReadOnly))
                continue;
            ++files;
            all += f.readAll();
        }
        QVERIFY(files > 3);
        QVERIFY(all.startsWith(QByteArray(trace::magic) + " 1 recorder=cpibcr-plugin/"));
        QVERIFY(all.contains(" port=ttyS0 baud=115200 "));
        QCOMPARE(withoutTimes(all), expected);
    }

    void fullDiskStopsWithOneWarning()
    {
        QVERIFY(configure(QString::fromLatin1("/dev/full"), QString::fromLatin1("10MB")));
        hw::RecordedLine line;
        EchoLine device;
        line.setDevice(&device, QString::fromLatin1("ttyS0"));
        line.beginRecording();
        for (int i = 0; i < 5; ++i)
            exchange(line, poll);
        QVERIFY(line.stopped());
        QCOMPARE(device.writes.size(), 5);
        QCOMPARE(warned(), QStringList() << QString::fromUtf8(
                               "cpibcr - Запись линии остановлена: журнал cpibcr.line "
                               "не принимает записи, работа с устройством продолжается"));
    }

    void unwritableFolderStopsWithOneWarning()
    {
        QFile plain(folder + QString::fromLatin1("/plain"));
        QVERIFY(plain.open(QIODevice::WriteOnly));
        plain.close();
        // Log4Qt reports the file it cannot open as a failed configuration.
        QVERIFY(!configure(folder + QString::fromLatin1("/plain/line.trace"), QString::fromLatin1("10MB")));
        hw::RecordedLine line;
        EchoLine device;
        line.setDevice(&device, QString::fromLatin1("ttyS0"));
        line.beginRecording();
        for (int i = 0; i < 3; ++i)
            exchange(line, poll);
        QVERIFY(line.stopped());
        QCOMPARE(device.writes.size(), 3);
        QCOMPARE(warned().size(), 1);
    }
};

QTEST_MAIN(tst_Log4QtRecorder)
#include "tst_log4qtrecorder.moc"
