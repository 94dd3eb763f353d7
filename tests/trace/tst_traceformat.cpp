// The trace's text format: lines written from records and read back, and every kind of damaged
// file refused at its first bad line.
#include "support/columns.h"
#include "trace/traceformat.h"

#include <QtTest>

Q_DECLARE_METATYPE(trace::Chunk)

namespace {

const QByteArray header =
    "cpibcr-trace 1 recorder=cpibcr/1.0.0 port=/dev/ttyUSB0 baud=115200 data=8 parity=none "
    "stop=1 flow=none started=2026-11-23T19:45:12.345Z\n";

trace::Chunk chunk(qint64 us, trace::Direction direction, const char* hex)
{
    return trace::Chunk{us, direction, QByteArray::fromHex(hex)};
}

} // namespace

class TestTraceFormat : public QObject
{
    Q_OBJECT
private slots:
    void chunkLines_data()
    {
        testsupport::columns<trace::Chunk, QByteArray>("chunk", "line");
        QTest::newRow("written") << chunk(1532, trace::Direction::Written, "370001FECA")
                                 << QByteArray("1532 > 37 00 01 FE CA\n");
        QTest::newRow("read") << chunk(0, trace::Direction::Read, "0100370 0C8")
                              << QByteArray("0 < 01 00 37 00 C8\n");
        QTest::newRow("discarded") << chunk(1203554, trace::Direction::Discarded, "ff")
                                   << QByteArray("1203554 ~ FF\n");
        QTest::newRow("large time") << chunk(86400000000LL, trace::Direction::Read, "00")
                                    << QByteArray("86400000000 < 00\n");
    }
    void chunkLines()
    {
        QFETCH(trace::Chunk, chunk);
        QFETCH(QByteArray, line);
        QCOMPARE(trace::chunkLine(chunk), line);
        trace::Chunk parsed;
        QString why;
        QVERIFY2(trace::parseChunkLine(line.constData(), line.constData() + line.size() - 1, &parsed, &why),
                 qPrintable(why));
        QCOMPARE(parsed, chunk);
    }

    void headerRoundTrip()
    {
        trace::Header h;
        h.recorder = QStringLiteral("cpibcr-panel/1.0.0");
        h.port = QStringLiteral("/dev/serial/by-id/usb FTDI 100%=ok");
        h.baudRate = 115200;
        h.dataBits = 8;
        h.parity = QStringLiteral("none");
        h.stopBits = QStringLiteral("1.5");
        h.flow = QStringLiteral("none");
        h.started = QDateTime(QDate(2026, 11, 23), QTime(19, 45, 12, 345), Qt::UTC);
        const QByteArray line = trace::headerLine(h);
        QVERIFY(line.endsWith('\n'));
        QCOMPARE(line.count('\n'), 1);
        QVERIFY(line.contains("port=/dev/serial/by-id/usb%20FTDI%20100%25%3Dok "));
        trace::Header parsed;
        QString why;
        QVERIFY2(trace::parseHeaderLine(line.constData(), line.constData() + line.size() - 1, &parsed, &why),
                 qPrintable(why));
        QCOMPARE(parsed, h);
    }

    void wholeFile()
    {
        const QByteArray text = header + "10 > 37 00 01 FE CA\n15 < 37 00 01 FE CA 01 00 37 00 C8\n" +
                                header + "3 > 37 00 01 FE CA\n";
        const trace::Document doc = trace::parse(text);
        QVERIFY2(doc.error.isEmpty(), qPrintable(doc.error));
        QCOMPARE(doc.records.size(), 5);
        QCOMPARE(doc.records.at(0).kind, trace::Record::HeaderRecord);
        QCOMPARE(doc.records.at(0).header.port, QStringLiteral("/dev/ttyUSB0"));
        QCOMPARE(doc.records.at(0).header.started,
                 QDateTime(QDate(2026, 11, 23), QTime(19, 45, 12, 345), Qt::UTC));
        QCOMPARE(doc.records.at(2).chunk, chunk(15, trace::Direction::Read, "370001FECA0100370 0C8"));
        QCOMPARE(doc.records.at(3).kind, trace::Record::HeaderRecord);
        // A new recording starts its own time.
        QCOMPARE(doc.records.at(4).chunk.us, 3);
    }

    void damagedFiles_data()
    {
        testsupport::columns<QByteArray, qint64, QString>("text", "line", "message");
        QTest::newRow("empty") << QByteArray() << qint64(1) << "line 1: empty file, not a trace";
        QTest::newRow("no header") << QByteArray("10 > 37 00 01 FE CA\n") << qint64(1)
                                   << "line 1: not a trace: the first line is not a \"cpibcr-trace\" header";
        QTest::newRow("later version") << QByteArray("cpibcr-trace 2 port=x\n") << qint64(1)
                                       << "line 1: format version 2, this program reads version 1";
        QTest::newRow("header field") << QByteArray("cpibcr-trace 1 port\n") << qint64(1)
                                      << "line 1: header field \"port\" is not key=value";
        QTest::newRow("bad start time") << QByteArray("cpibcr-trace 1 started=yesterday\n") << qint64(1)
                                        << "line 1: header field started is not a UTC time: \"yesterday\"";
        QTest::newRow("cut off inside a byte") << header + "10 > 37 00 01 FE CA\n12 < 37 00 0" << qint64(3)
                                               << "line 3: cut off: the file ends inside the line";
        QTest::newRow("cut off after a byte") << header + "10 > 37 00 01 FE CA\n12 < 37 00" << qint64(3)
                                              << "line 3: cut off: the file ends inside the line";
        QTest::newRow("half a byte")
            << header + "10 > 37 00 01 FE C\n"
            << qint64(2)
            << "line 2: bytes are a blank and two hexadecimal digits each (the line may "
               "be cut off)";
        QTest::newRow("not hexadecimal")
            << header + "10 > 37 00 01 FE CX\n"
            << qint64(2) << "line 2: byte 5 is not a blank and two hexadecimal digits: \" CX\"";
        QTest::newRow("two blanks") << header + "10 >  37 00 01 FE C\n"
                                    << qint64(2)
                                    << "line 2: byte 1 is not a blank and two hexadecimal digits: \"  3\"";
        QTest::newRow("unknown direction")
            << header + "10 = 37\n"
            << qint64(2) << "line 2: after the time comes a blank and the direction >, < or ~";
        QTest::newRow("no time") << header + "> 37\n"
                                 << qint64(2) << "line 2: a chunk starts with its time in microseconds";
        QTest::newRow("negative time") << header + "-5 > 37\n"
                                       << qint64(2) << "line 2: a chunk starts with its time in microseconds";
        QTest::newRow("no bytes") << header + "10 <\n" << qint64(2) << "line 2: a chunk without bytes";
        QTest::newRow("empty line") << header + "10 > 37\n\n11 < 37\n"
                                    << qint64(3) << "line 3: a chunk starts with its time in microseconds";
        QTest::newRow("time goes back")
            << header + "10 > 37\n9 < 37\n"
            << qint64(3) << "line 3: time 9 us goes back (the line before says 10 us)";
        QTest::newRow("windows line end") << header + "10 > 37\r\n"
                                          << qint64(2)
                                          << "line 2: bytes are a blank and two hexadecimal digits each (the "
                                             "line may be cut off)";
    }
    void damagedFiles()
    {
        QFETCH(QByteArray, text);
        QFETCH(qint64, line);
        QFETCH(QString, message);
        const trace::Document doc = trace::parse(text);
        QCOMPARE(doc.error, message);
        QCOMPARE(doc.errorLine, line);
        // Nothing from the bad line on is taken.
        QCOMPARE(doc.records.size(), int(line - 1));
    }
};

QTEST_APPLESS_MAIN(TestTraceFormat)
#include "tst_traceformat.moc"
