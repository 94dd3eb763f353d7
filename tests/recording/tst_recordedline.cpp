// The driver's line recorder on log4cxx: silent unless "cpibcr.line" is enabled, every chunk
// written, read and thrown away as one trace line when it is, the header again at each
// connection, rotation by the shipped properties snippet read back whole and from any point,
// and a recorder that cannot write leaving the line alone.
#include "host/logsetup.h"
#include "plugin/recordedline.h"
#include "support/fakeserialdevice.h"
#include "support/logcapture.h"
#include "support/recordedexchange.h"
#include "trace/tracefiles.h"
#include "trace/traceformat.h"

#include <log4cxx/logmanager.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QByteArray poll = QByteArray::fromHex("370001feca");
const QByteArray answer = QByteArray::fromHex("01003700c8");

using testsupport::numbered;

// One exchange on the recorded line: the request, its echo and the answer in one read.
void exchange(hw::RecordedLine& line, testsupport::FakeSerialDevice& device, const QByteArray& request,
              const QByteArray& reply)
{
    device.queueReply(reply);
    testsupport::exchange(line, request);
}

QList<trace::Record> readAll(const QByteArray& bytes, trace::Reader::Start start,
                             trace::Reader* out = nullptr)
{
    trace::Reader reader(bytes, start);
    QList<trace::Record> records;
    trace::Record record;
    trace::Reader::Result result;
    while ((result = reader.next(&record)) == trace::Reader::Ok)
        records.append(record);
    if (result == trace::Reader::Error)
        qWarning("%s", qPrintable(reader.error()));
    if (out)
        *out = reader;
    return records;
}

QList<trace::Chunk> chunks(const QList<trace::Record>& records)
{
    QList<trace::Chunk> list;
    for (const trace::Record& record : records) {
        if (record.kind == trace::Record::ChunkRecord)
            list.append(record.chunk);
    }
    return list;
}

} // namespace

class TestRecordedLine : public QObject
{
    Q_OBJECT

private:
    // The shipped log4cxx snippet with its file in `folder`, MAX bytes a file, and a root
    // appender that takes warnings.
    bool configure(const QString& file, const QString& maxSize = QStringLiteral("10MB"));
    QTemporaryDir dir;

private slots:
    void init() { log4cxx::LogManager::resetConfiguration(); }
    void cleanupTestCase() { log4cxx::LogManager::resetConfiguration(); }
    void silentUnlessEnabled();
    void recordsEveryChunkWithItsDirection();
    void eachConnectionWritesTheHeaderAgain();
    void rotatedFilesReadBackWhole();
    void readingFromAnyPoint();
    void fullDiskStopsWithOneWarning();
    void unwritableFolderLeavesTheLineAlone();
};

bool TestRecordedLine::configure(const QString& file, const QString& maxSize)
{
    QFile snippet(QStringLiteral(CPIBCR_LINE_SNIPPET));
    if (!snippet.open(QIODevice::ReadOnly))
        return false;
    QString text = QString::fromUtf8(snippet.readAll());
    text.replace(QStringLiteral("/var/log/pos/cpibcr-line.trace"), file);
    text.replace(QStringLiteral("MaxFileSize=10MB"), QStringLiteral("MaxFileSize=") + maxSize);
    text.replace(QStringLiteral("MaxBackupIndex=9"), QStringLiteral("MaxBackupIndex=12"));
    QFile properties(dir.filePath(QStringLiteral("log.properties")));
    if (!properties.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    properties.write(text.toUtf8());
    properties.close();
    return logging::configureFromFile(properties.fileName());
}

void TestRecordedLine::silentUnlessEnabled()
{
    testsupport::LogCapture log; // the root and "cpibcr" at trace
    hw::RecordedLine line;
    testsupport::FakeSerialDevice device;
    line.setDevice(&device, QStringLiteral("ttyS0"));
    exchange(line, device, poll, answer);
    QCOMPARE(device.writes, QList<QByteArray>{poll});
    QCOMPARE(device.discards, 1);
    for (const testsupport::LogLine& l : log.lines())
        QVERIFY2(l.logger != QLatin1String("cpibcr.line"), qPrintable(l.text));
    QCOMPARE(log4cxx::Logger::getLogger("cpibcr.line")->getLevel(), log4cxx::Level::getOff());

    // A level the host's configuration gives it is kept.
    log4cxx::Logger::getLogger("cpibcr.line")->setLevel(log4cxx::Level::getTrace());
    hw::RecordedLine second;
    QCOMPARE(log4cxx::Logger::getLogger("cpibcr.line")->getLevel(), log4cxx::Level::getTrace());
}

void TestRecordedLine::recordsEveryChunkWithItsDirection()
{
    QVERIFY(dir.isValid());
    const QString file = dir.filePath(QStringLiteral("chunks.trace"));
    QVERIFY(configure(file));
    hw::RecordedLine line;
    testsupport::FakeSerialDevice device;
    line.setDevice(&device, QStringLiteral("ttyS0"));
    QVERIFY(line.setBaudRate(QStringLiteral("115200")));
    QVERIFY(line.setDataBits(QStringLiteral("8")));
    QVERIFY(line.setParity(QStringLiteral("None")));
    QVERIFY(line.setStopBits(QStringLiteral("1")));
    QVERIFY(line.setFlowControl(QStringLiteral("Disable")));
    QCOMPARE(device.settings.size(), 5);

    line.beginRecording();
    device.injectStale(QByteArray::fromHex("0100"));
    exchange(line, device, poll, answer);
    QCOMPARE(device.writes, QList<QByteArray>{poll});

    QFile f(file);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QList<trace::Record> records = readAll(f.readAll(), trace::Reader::AtHeader);
    QCOMPARE(records.size(), 5);
    const trace::Header& h = records.at(0).header;
    QCOMPARE(records.at(0).kind, trace::Record::HeaderRecord);
    QCOMPARE(h.port, QStringLiteral("ttyS0"));
    QCOMPARE(h.baudRate, 115200);
    QCOMPARE(h.dataBits, 8);
    QCOMPARE(h.parity, QStringLiteral("none"));
    QCOMPARE(h.stopBits, QStringLiteral("1"));
    QCOMPARE(h.flow, QStringLiteral("none"));
    QVERIFY(h.recorder.startsWith(QLatin1String("cpibcr-plugin/")));
    QVERIFY(h.started.isValid());
    const QList<trace::Chunk> c = chunks(records);
    QCOMPARE(c.at(0).direction, trace::Direction::Discarded);
    QCOMPARE(c.at(0).bytes, QByteArray::fromHex("0100"));
    QCOMPARE(c.at(1).direction, trace::Direction::Written);
    QCOMPARE(c.at(1).bytes, poll);
    // The echo and the answer, one read each as the device delivered them.
    QCOMPARE(c.at(2).direction, trace::Direction::Read);
    QCOMPARE(c.at(2).bytes, poll);
    QCOMPARE(c.at(3).direction, trace::Direction::Read);
    QCOMPARE(c.at(3).bytes, answer);
    QVERIFY(c.at(0).us <= c.at(1).us && c.at(1).us <= c.at(2).us && c.at(2).us <= c.at(3).us);
}

void TestRecordedLine::eachConnectionWritesTheHeaderAgain()
{
    const QString file = dir.filePath(QStringLiteral("connections.trace"));
    QVERIFY(configure(file));
    hw::RecordedLine line;
    testsupport::FakeSerialDevice device;
    line.setDevice(&device, QStringLiteral("ttyS0"));
    for (int connection = 0; connection < 3; ++connection) {
        line.beginRecording();
        exchange(line, device, poll, answer);
    }
    QFile f(file);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QList<trace::Record> records = readAll(f.readAll(), trace::Reader::AtHeader);
    QCOMPARE(records.size(), 12);
    for (int i = 0; i < 12; i += 4) {
        QCOMPARE(records.at(i).kind, trace::Record::HeaderRecord);
        QCOMPARE(records.at(i + 1).chunk.bytes, poll);
    }
}

void TestRecordedLine::rotatedFilesReadBackWhole()
{
    QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("line.trace"));
    QVERIFY(configure(file, QStringLiteral("2KB")));
    hw::RecordedLine line;
    testsupport::FakeSerialDevice device;
    line.setDevice(&device, QStringLiteral("ttyS0"));
    QList<QByteArray> expected;
    for (int i = 0; i < 150; ++i) {
        if (i % 50 == 0)
            line.beginRecording();
        const QByteArray reply = QByteArray::fromHex("0102370080") + numbered(i).right(2);
        exchange(line, device, numbered(i), reply);
        expected << numbered(i) << numbered(i) << reply;
    }
    log4cxx::LogManager::resetConfiguration();

    QStringList names = QDir(folder.path()).entryList({QStringLiteral("line.trace*")}, QDir::Files);
    QVERIFY2(names.size() > 3, qPrintable(names.join(QLatin1Char(' '))));
    std::reverse(names.begin(), names.end());
    QStringList paths;
    for (const QString& name : names)
        paths << folder.filePath(name);
    trace::FileSet files;
    QString error;
    QVERIFY2(files.load(paths, &error), qPrintable(error));
    QCOMPARE(files.paths.last(), file);
    QCOMPARE(files.paths.first(), file + QLatin1Char('.') + QString::number(names.size() - 1));

    const QByteArray none;
    trace::Reader reader(none, trace::Reader::AnyPoint);
    const QList<trace::Record> records = readAll(files.bytes, trace::Reader::AnyPoint, &reader);
    QCOMPARE(reader.skippedLines(), 0);
    QList<QByteArray> got;
    int headers = 0;
    for (const trace::Record& record : records) {
        if (record.kind == trace::Record::HeaderRecord)
            ++headers;
        else
            got << record.chunk.bytes;
    }
    QCOMPARE(headers, 3);
    QCOMPARE(got, expected);
}

void TestRecordedLine::readingFromAnyPoint()
{
    QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("line.trace"));
    QVERIFY(configure(file, QStringLiteral("2KB")));
    hw::RecordedLine line;
    testsupport::FakeSerialDevice device;
    line.setDevice(&device, QStringLiteral("ttyS0"));
    line.beginRecording();
    for (int i = 0; i < 120; ++i)
        exchange(line, device, numbered(i), answer);
    log4cxx::LogManager::resetConfiguration();

    // The newest rotated file and the current one: their recording began in older files.
    QVERIFY(QFile::exists(file + QStringLiteral(".2")));
    trace::FileSet files;
    QString error;
    QVERIFY2(files.load({file, file + QStringLiteral(".1")}, &error), qPrintable(error));
    const QByteArray bytes = files.bytes;
    QVERIFY(!bytes.startsWith(trace::magic));
    const QByteArray none;
    trace::Reader reader(none, trace::Reader::AnyPoint);
    QList<trace::Record> records = readAll(bytes, trace::Reader::AnyPoint, &reader);
    QVERIFY(records.size() > 3);
    QVERIFY(trace::isContinuation(records.at(0).header));
    QCOMPARE(records.at(1).chunk.direction, trace::Direction::Written);
    const qint64 firstRequest = bytes.indexOf(" > ");
    const qint64 lineStart = bytes.lastIndexOf('\n', int(firstRequest)) + 1;
    QCOMPARE(reader.skippedBytes(), lineStart);
    QCOMPARE(reader.skippedLines(), qint64(bytes.left(int(lineStart)).count('\n')));
    QCOMPARE(chunks(records).last().bytes, answer);
    QCOMPARE(chunks(records).at(chunks(records).size() - 3).bytes, numbered(119));

    // Cut in the middle of a line: the piece is skipped with the rest before the next request.
    const QByteArray cut = bytes.mid(int(lineStart) + 7);
    records = readAll(cut, trace::Reader::AnyPoint, &reader);
    QVERIFY(records.size() > 3);
    QVERIFY(reader.skippedLines() >= 1);
    QCOMPARE(records.at(1).chunk.direction, trace::Direction::Written);
    const trace::Chunk firstWhole = records.at(1).chunk;
    QVERIFY(cut.mid(int(reader.skippedBytes())).startsWith(trace::chunkLine(firstWhole)));
    QCOMPARE(chunks(records).size(), chunks(readAll(bytes, trace::Reader::AnyPoint)).size() - 3);
}

void TestRecordedLine::fullDiskStopsWithOneWarning()
{
    QVERIFY(configure(QStringLiteral("/dev/full")));
    testsupport::LogCapture log;
    hw::RecordedLine line;
    testsupport::FakeSerialDevice device;
    line.setDevice(&device, QStringLiteral("ttyS0"));
    line.beginRecording();
    for (int i = 0; i < 5; ++i)
        exchange(line, device, poll, answer);
    QVERIFY(line.stopped());
    QCOMPARE(device.writes.size(), 5);
    QCOMPARE(
        log.texts(QStringLiteral("WARN")),
        QStringList{QStringLiteral("Запись линии остановлена: журнал cpibcr.line не принимает записи, работа "
                                   "с устройством продолжается")});

    // The next connection tries again, and warns again when the disk still refuses.
    line.beginRecording();
    QVERIFY(!line.stopped());
    exchange(line, device, poll, answer);
    QVERIFY(line.stopped());
    QCOMPARE(log.texts(QStringLiteral("WARN")).size(), 2);
}

void TestRecordedLine::unwritableFolderLeavesTheLineAlone()
{
    // log4cxx makes a missing folder; one below a plain file it cannot make.
    QFile plain(dir.filePath(QStringLiteral("plain")));
    QVERIFY(plain.open(QIODevice::WriteOnly));
    plain.close();
    const QString file = dir.filePath(QStringLiteral("plain/line.trace"));
    QVERIFY(configure(file));
    hw::RecordedLine line;
    testsupport::FakeSerialDevice device;
    line.setDevice(&device, QStringLiteral("ttyS0"));
    line.beginRecording();
    device.queueReply(answer);
    line.discardInput();
    line.write(poll);
    QVERIFY(line.waitForInput(1000));
    QCOMPARE(line.read(0), poll);
    QCOMPARE(line.read(0), answer);
    QCOMPARE(device.writes, QList<QByteArray>{poll});
    QVERIFY(!QFile::exists(file));
}

QTEST_GUILESS_MAIN(TestRecordedLine)
#include "tst_recordedline.moc"
