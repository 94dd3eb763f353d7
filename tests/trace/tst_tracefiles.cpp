// A size-rotated set of trace files read as one, in the order written, and a reading that starts
// anywhere: at the first header or request, with what came before it skipped and counted.
#include "trace/tracefiles.h"
#include "trace/traceformat.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QByteArray header = "cpibcr-trace 1 recorder=cpibcr-plugin/1.0.0 port=ttyS0 baud=115200 data=8 "
                          "parity=none stop=1 flow=none started=2026-11-24T08:02:11.403Z\n";

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

} // namespace

class TestTraceFiles : public QObject
{
    Q_OBJECT

private slots:
    void rotatedFilesComeOldestFirst()
    {
        const QStringList given{QStringLiteral("/x/line.trace"), QStringLiteral("/x/line.trace.10"),
                                QStringLiteral("/x/line.trace.2"), QStringLiteral("/x/line.trace.1")};
        QCOMPARE(trace::writtenOrder(given),
                 QStringList({QStringLiteral("/x/line.trace.10"), QStringLiteral("/x/line.trace.2"),
                              QStringLiteral("/x/line.trace.1"), QStringLiteral("/x/line.trace")}));
        const QStringList plain{QStringLiteral("b.trace"), QStringLiteral("a.trace")};
        QCOMPARE(trace::writtenOrder(plain), plain);
    }

    void aSetIsOneTraceWithItsFilesNamedInErrors()
    {
        QTemporaryDir dir;
        const QString current = dir.filePath(QStringLiteral("line.trace"));
        const QString older = dir.filePath(QStringLiteral("line.trace.1"));
        QVERIFY(writeFile(older, header + "10 > 37 00 01 FE CA\n20 < 37 00 01 FE CA\n"));
        QVERIFY(writeFile(current, "30 < 01 00 37 00 C8\n40 > 37 00 01 FE XX\n"));
        trace::FileSet files;
        QString error;
        QVERIFY(files.load({current, older}, &error));
        QCOMPARE(files.paths, QStringList({older, current}));
        QCOMPARE(files.ends, QList<qint64>({3, 5}));
        QCOMPARE(files.where(2), older + QStringLiteral(": line 2"));
        QCOMPARE(files.where(5), current + QStringLiteral(": line 2"));

        trace::Reader reader(files.bytes, trace::Reader::AnyPoint);
        trace::Record record;
        int records = 0;
        trace::Reader::Result result;
        while ((result = reader.next(&record)) == trace::Reader::Ok)
            ++records;
        QCOMPARE(result, trace::Reader::Error);
        QCOMPARE(records, 4);
        QCOMPARE(files.where(reader.errorLine()), current + QStringLiteral(": line 2"));

        QVERIFY(!files.load({dir.filePath(QStringLiteral("none.trace"))}, &error));
        QVERIFY(error.startsWith(QStringLiteral("cannot read the trace ")));
    }

    void fromAnyPointStartsAtTheFirstRequest()
    {
        // A cut first line, the end of an exchange, then a request.
        const QByteArray text = "01 FE CA\n120 < 01 00 37 00 C8\n130 ~ 01\n200 > 37 00 01 FE CA\n"
                                "210 < 37 00 01 FE CA 01 00 37 00 C8\n" +
                                header + "5 > 37 00 01 FE CA\n";
        trace::Reader reader(text, trace::Reader::AnyPoint);
        QList<trace::Record> records;
        trace::Record record;
        while (reader.next(&record) == trace::Reader::Ok)
            records.append(record);
        QCOMPARE(reader.error(), QString());
        QCOMPARE(reader.skippedLines(), 3);
        QCOMPARE(reader.skippedBytes(), qint64(text.indexOf("200 >")));
        QCOMPARE(records.size(), 5);
        QCOMPARE(records.at(0).kind, trace::Record::HeaderRecord);
        QVERIFY(trace::isContinuation(records.at(0).header));
        QCOMPARE(records.at(1).chunk.us, 200);
        QCOMPARE(records.at(1).chunk.direction, trace::Direction::Written);
        QCOMPARE(records.at(3).kind, trace::Record::HeaderRecord);
        QVERIFY(!trace::isContinuation(records.at(3).header));
        QCOMPARE(records.at(4).chunk.us, 5);

        // The same text read strictly is refused at its first line.
        trace::Reader strict(text);
        QCOMPARE(strict.next(&record), trace::Reader::Error);
        QCOMPARE(strict.errorLine(), 1);
    }

    void aWholeTraceSkipsNothing()
    {
        const QByteArray text = header + "5 > 37 00 01 FE CA\n9 < 37 00 01 FE CA\n";
        trace::Reader reader(text, trace::Reader::AnyPoint);
        trace::Record record;
        QCOMPARE(reader.next(&record), trace::Reader::Ok);
        QCOMPARE(record.kind, trace::Record::HeaderRecord);
        QCOMPARE(record.header.port, QStringLiteral("ttyS0"));
        QCOMPARE(reader.next(&record), trace::Reader::Ok);
        QCOMPARE(reader.next(&record), trace::Reader::Ok);
        QCOMPARE(reader.next(&record), trace::Reader::End);
        QCOMPARE(reader.skippedLines(), 0);
        QCOMPARE(reader.skippedBytes(), 0);
    }

    void noRequestAtAllIsRefused()
    {
        const QByteArray answersOnly("120 < 01 00 37 00 C8\n130 ~ 01\n");
        trace::Reader reader(answersOnly, trace::Reader::AnyPoint);
        trace::Record record;
        QCOMPARE(reader.next(&record), trace::Reader::Error);
        QCOMPARE(reader.reason(),
                 QStringLiteral("no whole exchange: a request written by the host never comes"));
        const QByteArray nothing;
        trace::Reader empty(nothing, trace::Reader::AnyPoint);
        QCOMPARE(empty.next(&record), trace::Reader::Error);
        QCOMPARE(empty.reason(), QStringLiteral("empty file, not a trace"));
    }
};

QTEST_GUILESS_MAIN(TestTraceFiles)
#include "tst_tracefiles.moc"
