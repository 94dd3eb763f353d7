// The host's serial port recording its line: every chunk written, read and thrown away, with
// its direction, in order and byte for byte; a file that cannot take more stops the recording
// with one warning and never the line.
#include "host/serialport.h"
#include "support/logcapture.h"
#include "support/ptyrig.h"
#include "trace/traceformat.h"

#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <chrono>
#include <fcntl.h>
#include <future>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeMaster(int fd, const QByteArray& bytes)
{
    return ::write(fd, bytes.constData(), size_t(bytes.size())) == bytes.size();
}

} // namespace

class TestLineRecorder : public QObject
{
    Q_OBJECT
private slots:
    void recordsEveryChunkAsItPassed()
    {
        testsupport::PtyPair pty;
        QVERIFY(!pty.path.isEmpty());
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("line.trace"));
        const QByteArray poll = QByteArray::fromHex("370001FECA");
        const QByteArray echoAndAck = QByteArray::fromHex("370001FECA01003700C8");
        {
            hw::SerialPort port;
            QVERIFY(port.open(pty.path));
            QString error;
            QVERIFY2(port.startRecording(file, QStringLiteral("test/1.2.3"), &error), qPrintable(error));
            QVERIFY(port.setBaudRate(QStringLiteral("19200")));

            // Stale bytes, thrown away before the request.
            QVERIFY(writeMaster(pty.master, QByteArray::fromHex("AABB")));
            QVERIFY(pty.waitUntilSlaveHolds(2));
            port.discardInput();
            port.write(poll);
            QCOMPARE(pty.readMaster(poll.size()), poll);
            // The answer in two pieces, read as two chunks.
            QVERIFY(writeMaster(pty.master, echoAndAck.left(7)));
            QVERIFY(port.waitForInput(10000));
            QCOMPARE(port.read(0), echoAndAck.left(7));
            QVERIFY(writeMaster(pty.master, echoAndAck.mid(7)));
            QVERIFY(port.waitForInput(10000));
            QCOMPARE(port.read(0), echoAndAck.mid(7));
            QVERIFY(port.isRecording());
        }
        const trace::Document doc = trace::parse(readFile(file));
        QVERIFY2(doc.error.isEmpty(), qPrintable(doc.error));
        QCOMPARE(doc.records.size(), 5);
        const trace::Header& h = doc.records.at(0).header;
        QCOMPARE(h.recorder, QStringLiteral("test/1.2.3"));
        QCOMPARE(h.port, pty.path);
        // The settings of the first transfer, not those of the moment recording started.
        QCOMPARE(h.baudRate, 19200);
        QCOMPARE(h.dataBits, 8);
        QCOMPARE(h.parity, QStringLiteral("none"));
        QVERIFY(qAbs(h.started.secsTo(QDateTime::currentDateTimeUtc())) < 600);
        const QList<trace::Direction> directions{trace::Direction::Discarded, trace::Direction::Written,
                                                 trace::Direction::Read, trace::Direction::Read};
        const QList<QByteArray> bytes{QByteArray::fromHex("AABB"), poll, echoAndAck.left(7),
                                      echoAndAck.mid(7)};
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(doc.records.at(i + 1).chunk.direction, directions.at(i));
            QCOMPARE(doc.records.at(i + 1).chunk.bytes, bytes.at(i));
        }

        // A second recording is appended to the same file.
        {
            hw::SerialPort port;
            QVERIFY(port.open(pty.path));
            QVERIFY(port.startRecording(file, QStringLiteral("test/1.2.3"), nullptr));
            port.write(poll);
            QCOMPARE(pty.readMaster(poll.size()), poll);
        }
        const trace::Document both = trace::parse(readFile(file));
        QVERIFY2(both.error.isEmpty(), qPrintable(both.error));
        QCOMPARE(both.records.size(), 7);
        QCOMPARE(both.records.at(5).kind, trace::Record::HeaderRecord);
        QCOMPARE(both.records.at(6).chunk.bytes, poll);
    }

    void fullDiskStopsTheRecordingNotTheLine()
    {
        testsupport::PtyPair pty;
        testsupport::LogCapture log;
        hw::SerialPort port;
        QVERIFY(port.open(pty.path));
        // Every write to /dev/full fails with ENOSPC.
        QVERIFY(port.startRecording(QStringLiteral("/dev/full"), QStringLiteral("test/1"), nullptr));
        const QByteArray poll = QByteArray::fromHex("370001FECA");
        for (int i = 0; i < 50; ++i) {
            port.write(poll);
            QCOMPARE(pty.readMaster(poll.size()), poll);
        }
        QTRY_VERIFY_WITH_TIMEOUT(!port.isRecording(), 30000);
        for (int i = 0; i < 5; ++i) {
            port.write(poll);
            QCOMPARE(pty.readMaster(poll.size()), poll);
        }
        QVERIFY(writeMaster(pty.master, poll));
        QVERIFY(port.waitForInput(10000));
        QCOMPARE(port.read(0), poll);
        port.stopRecording();
        QStringList warnings;
        for (const testsupport::LogLine& line : log.lines())
            if (line.level == QLatin1String("WARN") || line.level == QLatin1String("ERROR"))
                warnings << line.text;
        QCOMPARE(warnings.size(), 1);
        QVERIFY2(warnings.first().startsWith(QStringLiteral("line recording to /dev/full stopped: ")),
                 qPrintable(warnings.first()));
        QVERIFY2(warnings.first().endsWith(QStringLiteral("; the session goes on")),
                 qPrintable(warnings.first()));
    }

    // A file that takes nothing (a FIFO nobody reads) while the line goes on: the line never
    // waits for it, and once more than the queue's limit waits, the recording stops.
    void diskThatCannotKeepUp()
    {
        QTemporaryDir dir;
        const QByteArray fifo = dir.filePath(QStringLiteral("slow.trace")).toLocal8Bit();
        QVERIFY(::mkfifo(fifo.constData(), 0600) == 0);
        // The read end, opened first so that the recorder's open does not wait; read only at the end.
        const int reader = ::open(fifo.constData(), O_RDONLY | O_NONBLOCK);
        QVERIFY(reader >= 0);
        testsupport::LogCapture log;
        hw::LineRecorder recorder;
        QVERIFY(recorder.start(QString::fromLocal8Bit(fifo), nullptr));
        recorder.header(trace::Header());
        const QByteArray chunk(4096, '\x37');
        int queued = 0;
        while (recorder.isRecording() && queued < 10000) {
            recorder.chunk(trace::Direction::Read, chunk);
            ++queued;
        }
        QVERIFY(!recorder.isRecording());
        // A 64 KiB pipe and 8 MiB of queue hold about 700 chunks of this size as text.
        QVERIFY2(queued > 500 && queued < 2000, qPrintable(QString::number(queued)));
        QStringList warnings;
        for (const testsupport::LogLine& line : log.lines())
            if (line.level == QLatin1String("WARN"))
                warnings << line.text;
        QCOMPARE(warnings,
                 QStringList{QStringLiteral("line recording to %1 stopped: the disk cannot keep up with "
                                            "the line; the session goes on")
                                 .arg(QString::fromLocal8Bit(fifo))});
        // The writer is still inside a write to the full pipe: drain it so that stop() returns.
        auto stopped = std::async(std::launch::async, [&] { recorder.stop(); });
        char buf[65536];
        while (stopped.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready) {
            if (::read(reader, buf, sizeof buf) <= 0)
                QThread::msleep(1);
        }
        ::close(reader);
    }

    void unwritableFileIsRefusedAtTheStart()
    {
        hw::SerialPort port;
        QString error;
        QVERIFY(!port.startRecording(QStringLiteral("/nonexistent-folder/line.trace"), QStringLiteral("t"),
                                     &error));
        QCOMPARE(error,
                 QStringLiteral(
                     "cannot write the trace /nonexistent-folder/line.trace: No such file or directory"));
        QVERIFY(!port.isRecording());
    }
};

QTEST_GUILESS_MAIN(TestLineRecorder)
#include "tst_linerecorder.moc"
