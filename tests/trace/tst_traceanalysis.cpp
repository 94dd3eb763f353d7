// A trace read as ccTalk: what the host read after each request taken apart as the driver's
// assembly takes it apart, the outcome of each exchange and the figures of the summary.
#include "support/columns.h"
#include "support/frames.h"
#include "trace/traceanalysis.h"

#include <QtTest>

using testsupport::frame;
using testsupport::reply;
using testsupport::request;

Q_DECLARE_METATYPE(trace::Exchange::Outcome)

namespace {

const quint8 simplePoll = 254;

trace::Record headerRecord()
{
    trace::Record r;
    r.kind = trace::Record::HeaderRecord;
    r.header.recorder = QStringLiteral("test");
    return r;
}

trace::Record chunkRecord(qint64 us, trace::Direction direction, const QByteArray& bytes)
{
    trace::Record r;
    r.kind = trace::Record::ChunkRecord;
    r.chunk = trace::Chunk{us, direction, bytes};
    return r;
}

QByteArray badChecksum(QByteArray f)
{
    f[f.size() - 1] = char(f.at(f.size() - 1) ^ 0x5A);
    return f;
}

QString kinds(const QList<trace::Piece>& pieces)
{
    static const char* const names[] = {"echo", "answer", "foreign", "corrupt", "garbage", "cut", "ignored"};
    QStringList list;
    for (const trace::Piece& p : pieces)
        list << QLatin1String(names[p.kind]);
    return list.join(QLatin1Char(' '));
}

QList<trace::Exchange> analyse(const QList<trace::Record>& records, trace::Summary* summary = nullptr)
{
    QList<trace::Exchange> exchanges;
    trace::Analyzer analyzer([&](const trace::Exchange& e) { exchanges.append(e); });
    for (const trace::Record& r : records)
        analyzer.add(r);
    const trace::Summary s = analyzer.finish();
    if (summary)
        *summary = s;
    return exchanges;
}

// Every figure of a summary in declaration order, so that one comparison checks them all.
QString summaryFigures(const trace::Summary& s)
{
    QString text;
    QTextStream(&text) << "recordings " << s.recordings << ", exchanges " << s.exchanges << ", answered "
                       << s.answered << ", repeats " << s.repeats << ", busy " << s.busy << ", nak " << s.nak
                       << ", lost " << s.lost << ", foreign frames " << s.foreignFrames << ", corrupt frames "
                       << s.corruptFrames << ", garbage bytes " << s.garbageBytes << ", discarded bytes "
                       << s.discardedBytes << ", bytes written " << s.bytesWritten << ", bytes read "
                       << s.bytesRead << ", latency median " << s.latencyMedianUs << " p99 " << s.latencyP99Us
                       << " max " << s.latencyMaxUs << " us, longest silence " << s.longestSilenceUs
                       << " us from " << s.longestSilenceFromUs << " us in recording "
                       << s.longestSilenceRecording;
    return text;
}

} // namespace

class TestTraceAnalysis : public QObject
{
    Q_OBJECT
private slots:
    void headerNames_data()
    {
        testsupport::columns<int, QString>("header", "name");
        QTest::newRow("answer") << 0 << "answer (0)";
        QTest::newRow("NAK") << 5 << "NAK (5)";
        QTest::newRow("BUSY") << 6 << "BUSY (6)";
        QTest::newRow("simple poll") << 254 << "simplePoll (254)";
        QTest::newRow("dispense pattern") << 85 << "dispenseHopperPattern (85)";
        QTest::newRow("no ccTalk name") << 7 << "unknown (7)";
    }
    void headerNames()
    {
        QFETCH(int, header);
        QFETCH(QString, name);
        QCOMPARE(trace::headerName(header), name);
    }

    void frameTexts_data()
    {
        testsupport::columns<QByteArray, QString>("bytes", "text");
        QTest::newRow("request") << request(119, QByteArray(1, '\x02'))
                                 << "1 -> 55  reqHopperBalance (119)  data 02  checksum ok";
        QTest::newRow("answer") << reply(QByteArray::fromHex("1000"))
                                << "55 -> 1  answer (0)  data 10 00  checksum ok";
        QTest::newRow("bad checksum")
            << badChecksum(request(simplePoll)) << "1 -> 55  simplePoll (254)  data -  checksum bad";
        QTest::newRow("short") << request(simplePoll).left(4)
                               << "1 -> 55  simplePoll (254)  data -  length byte says 5 bytes, 4 came";
        QTest::newRow("three bytes") << QByteArray::fromHex("370001") << "3 byte(s) 37 00 01, not a frame";
    }
    void frameTexts()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, text);
        QCOMPARE(trace::describeFrame(bytes), text);
    }

    // One request at 1000 us and what came back in chunks: the pieces, the outcome, the latency.
    void oneExchange_data()
    {
        QTest::addColumn<QList<QByteArray>>("chunks"); // read 1000 us apart, the first at 2000 us
        testsupport::columns<QString, trace::Exchange::Outcome, qint64>("pieces", "outcome", "latency");
        const QByteArray poll = request(simplePoll);
        const QByteArray ack = reply();
        const QByteArray data = reply(QByteArray::fromHex("01020304"));
        QTest::newRow("echo and answer together")
            << QList<QByteArray>{poll + ack} << "echo answer" << trace::Exchange::Answered << qint64(1000);
        QTest::newRow("answer in pieces")
            << QList<QByteArray>{poll, data.left(2), data.mid(2, 3), data.mid(5)} << "echo answer"
            << trace::Exchange::Answered << qint64(4000);
        QTest::newRow("lost") << QList<QByteArray>{poll} << "echo" << trace::Exchange::Lost << qint64(-1);
        QTest::newRow("nothing at all") << QList<QByteArray>{} << "" << trace::Exchange::Lost << qint64(-1);
        QTest::newRow("BUSY") << QList<QByteArray>{poll, frame(1, 55, 6)} << "echo answer"
                              << trace::Exchange::Busy << qint64(2000);
        QTest::newRow("NAK") << QList<QByteArray>{poll + frame(1, 55, 5)} << "echo answer"
                             << trace::Exchange::Nak << qint64(1000);
        QTest::newRow("foreign frame first")
            << QList<QByteArray>{poll, frame(2, 3, 0, QByteArray::fromHex("0203")) + ack}
            << "echo foreign answer" << trace::Exchange::Answered << qint64(2000);
        QTest::newRow("other device answering the host")
            << QList<QByteArray>{poll + frame(1, 40, 0) + ack} << "echo foreign answer"
            << trace::Exchange::Answered << qint64(1000);
        QTest::newRow("corrupt answer") << QList<QByteArray>{poll, badChecksum(ack)} << "echo corrupt"
                                        << trace::Exchange::Lost << qint64(-1);
        QTest::newRow("garbage first") << QList<QByteArray>{poll + QByteArray(1, '\xFE') + ack}
                                       << "echo garbage answer" << trace::Exchange::Answered << qint64(1000);
        QTest::newRow("bytes after the answer")
            << QList<QByteArray>{poll + ack + QByteArray::fromHex("AABB")} << "echo answer ignored"
            << trace::Exchange::Answered << qint64(1000);
        QTest::newRow("answer cut off")
            << QList<QByteArray>{poll, data.left(6)} << "echo cut" << trace::Exchange::Lost << qint64(-1);
    }
    void oneExchange()
    {
        QFETCH(QList<QByteArray>, chunks);
        QFETCH(QString, pieces);
        QFETCH(trace::Exchange::Outcome, outcome);
        QFETCH(qint64, latency);
        QList<trace::Record> records{headerRecord(),
                                     chunkRecord(1000, trace::Direction::Written, request(simplePoll))};
        qint64 us = 2000;
        for (const QByteArray& c : chunks) {
            records.append(chunkRecord(us, trace::Direction::Read, c));
            us += 1000;
        }
        const QList<trace::Exchange> exchanges = analyse(records);
        QCOMPARE(exchanges.size(), 1);
        const trace::Exchange& e = exchanges.first();
        QCOMPARE(kinds(e.line), pieces);
        QCOMPARE(e.outcome, outcome);
        QCOMPARE(e.latencyUs(), latency);
        QByteArray all;
        for (const trace::Piece& p : e.line)
            all += p.bytes;
        QCOMPARE(all, chunks.isEmpty() ? QByteArray() : QList<QByteArray>(chunks).join());
    }

    void summary()
    {
        const QByteArray poll = request(simplePoll);
        const QByteArray activity = request(123);
        const QList<trace::Record> records{
            headerRecord(),
            // answered after 2 ms
            chunkRecord(0, trace::Direction::Written, poll),
            chunkRecord(2000, trace::Direction::Read, poll + reply()),
            // lost, then the same request again and BUSY, then again and answered after 4 ms
            chunkRecord(10000, trace::Direction::Written, activity),
            chunkRecord(10100, trace::Direction::Read, activity),
            chunkRecord(1210000, trace::Direction::Discarded, QByteArray::fromHex("01")),
            chunkRecord(1210000, trace::Direction::Written, activity),
            chunkRecord(1213000, trace::Direction::Read, activity + frame(1, 55, 6)),
            chunkRecord(2213000, trace::Direction::Written, activity),
            chunkRecord(2217000, trace::Direction::Read, activity + frame(2, 3, 0) + reply(QByteArray(2, 0))),
            // a second recording: NAK after 1 ms, a corrupt answer
            headerRecord(),
            chunkRecord(500, trace::Direction::Written, poll),
            chunkRecord(1500, trace::Direction::Read, poll + frame(1, 55, 5)),
            chunkRecord(3500, trace::Direction::Written, poll),
            chunkRecord(4500, trace::Direction::Read, poll + badChecksum(reply())),
        };
        trace::Summary s;
        const QList<trace::Exchange> exchanges = analyse(records, &s);
        QCOMPARE(exchanges.size(), 6);
        QCOMPARE(exchanges.at(1).repeat, false);
        QCOMPARE(exchanges.at(2).repeat, true);
        QCOMPARE(exchanges.at(3).repeat, true);
        // The same request after an answer is a new exchange, not a repeat; nor is the first
        // request of a recording.
        QCOMPARE(exchanges.at(4).repeat, false);
        QCOMPARE(exchanges.at(5).repeat, false);
        QCOMPARE(exchanges.at(2).discarded, QByteArray());
        QCOMPARE(exchanges.at(1).discarded, QByteArray::fromHex("01"));
        QCOMPARE(exchanges.at(4).recording, 2);
        QCOMPARE(exchanges.at(5).number, 6);
        // Six requests of 5 bytes; latencies 2, 3, 4 and 1 ms; the longest silence from the read
        // at 10.1 ms to the discard at 1210 ms.
        QCOMPARE(summaryFigures(s),
                 QStringLiteral("recordings 2, exchanges 6, answered 4, repeats 2, busy 1, nak 1, lost 2, "
                                "foreign frames 1, corrupt frames 1, garbage bytes 0, discarded bytes 1, "
                                "bytes written 30, bytes read 62, latency median 2000 p99 4000 max 4000 us, "
                                "longest silence 1199900 us from 10100 us in recording 1"));
    }
};

QTEST_APPLESS_MAIN(TestTraceAnalysis)
#include "tst_traceanalysis.moc"
