// Playing back the recycler's side of a trace, without I/O: what goes back for each request and
// when, requests that stand for the recorded ones, and the first divergence.
#include "replay.h"
#include "support/frames.h"

#include <QtTest>

using testsupport::frame;
using testsupport::reply;
using testsupport::request;

namespace {

trace::Record chunkRecord(qint64 us, trace::Direction direction, const QByteArray& bytes)
{
    trace::Record r;
    r.chunk = trace::Chunk{us, direction, bytes};
    return r;
}

trace::Record headerRecord()
{
    trace::Record r;
    r.kind = trace::Record::HeaderRecord;
    return r;
}

const QByteArray poll = request(254);
const QByteArray balance2 = request(119, QByteArray(1, '\x02'));
const QByteArray balanceAnswer = reply(QByteArray::fromHex("52553530304100FA"));

// Poll answered at once; hopper balance answered in two pieces 3 ms apart after a foreign frame;
// then, in a second recording, a poll answered BUSY and the same poll answered.
QList<trace::Record> recording()
{
    return {headerRecord(),
            chunkRecord(1000, trace::Direction::Written, poll),
            chunkRecord(1100, trace::Direction::Read, poll),
            chunkRecord(3000, trace::Direction::Read, reply()),
            chunkRecord(10000, trace::Direction::Written, balance2),
            chunkRecord(10100, trace::Direction::Read, balance2 + frame(2, 3, 0)),
            chunkRecord(12000, trace::Direction::Read, balanceAnswer.left(4)),
            chunkRecord(15000, trace::Direction::Read, balanceAnswer.mid(4)),
            chunkRecord(20000, trace::Direction::Discarded, QByteArray::fromHex("AA")),
            headerRecord(),
            chunkRecord(500, trace::Direction::Written, poll),
            chunkRecord(600, trace::Direction::Read, poll + frame(1, 55, 6)),
            chunkRecord(1600000, trace::Direction::Written, poll),
            chunkRecord(1602000, trace::Direction::Read, poll + reply())};
}

QString outs(const QList<sim::Replay::Out>& list)
{
    QStringList text;
    for (const sim::Replay::Out& o : list)
        text << QStringLiteral("%1:%2").arg(o.dueUs).arg(QString::fromLatin1(o.bytes.toHex()));
    return text.join(QLatin1Char(' '));
}

} // namespace

class TestReplay : public QObject
{
    Q_OBJECT
private slots:
    void stepsFromTheRecording()
    {
        const QList<sim::ReplayStep> steps = sim::replaySteps(recording());
        QCOMPARE(steps.size(), 4);
        QCOMPARE(steps.at(1).number, 2);
        QCOMPARE(steps.at(1).request, balance2);
        QCOMPARE(steps.at(1).replies.size(), 3);
        QCOMPARE(steps.at(1).replies.at(2).afterUs, 5000);
        QCOMPARE(steps.at(2).recording, 2);
        QCOMPARE(steps.at(3).replies.first().afterUs, 2000);
    }

    void sameRequestsGetTheRecordedAnswersAtTheirTimes_data()
    {
        QTest::addColumn<double>("speed");
        QTest::newRow("recorded speed") << 1.0;
        QTest::newRow("four times faster") << 4.0;
        QTest::newRow("half speed") << 0.5;
    }
    void sameRequestsGetTheRecordedAnswersAtTheirTimes()
    {
        QFETCH(double, speed);
        sim::Replay replay(sim::replaySteps(recording()), speed);
        const auto at = [&](qint64 base, qint64 after) { return base + qint64(after / speed); };
        QCOMPARE(outs(replay.receive(poll, 50000)), QStringLiteral("%1:%2 %3:%4")
                                                        .arg(at(50000, 100))
                                                        .arg(QString::fromLatin1(poll.toHex()))
                                                        .arg(at(50000, 2000))
                                                        .arg(QString::fromLatin1(reply().toHex())));
        // The request may come in pieces; the answer counts from its last byte.
        QVERIFY(replay.receive(balance2.left(3), 90000).isEmpty());
        const QList<sim::Replay::Out> second = replay.receive(balance2.mid(3), 91000);
        QCOMPARE(second.size(), 3);
        QCOMPARE(second.at(1).dueUs, at(91000, 2000));
        QCOMPARE(second.at(2).dueUs, at(91000, 5000));
        QCOMPARE(second.at(1).bytes + second.at(2).bytes, balanceAnswer);
        // The next recording goes on where the host opens the port again.
        QCOMPARE(replay.receive(poll, 200000).last().bytes, poll + frame(1, 55, 6));
        QVERIFY(!replay.complete());
        QCOMPARE(replay.receive(poll, 1300000).size(), 1);
        QVERIFY(replay.complete());
        QCOMPARE(replay.matched(), 4);
        QVERIFY(!replay.diverged());
        QVERIFY(replay.takeNotes().isEmpty());
    }

    void divergenceNamesBothRequests()
    {
        sim::Replay replay(sim::replaySteps(recording()), 1);
        QCOMPARE(replay.receive(poll, 0).size(), 2);
        QVERIFY(replay.receive(request(119, QByteArray(1, '\x03')), 10).isEmpty());
        QVERIFY(replay.diverged());
        QCOMPARE(replay.divergence(),
                 QStringLiteral("divergence at request 2 of 4 (recording 1, 0.010000 s):\n"
                                "  recorded: 1 -> 55  reqHopperBalance (119)  data 02  checksum ok\n"
                                "  received: 1 -> 55  reqHopperBalance (119)  data 03  checksum ok\n"));
        QCOMPARE(replay.matched(), 1);
        // Nothing more is answered once the host went its own way.
        QVERIFY(replay.receive(balance2, 20).isEmpty());
    }

    void requestAfterTheEnd()
    {
        sim::Replay replay(sim::replaySteps(recording().mid(0, 4)), 1);
        replay.receive(poll, 0);
        QVERIFY(replay.complete());
        replay.receive(poll, 10);
        QCOMPARE(replay.divergence(),
                 QStringLiteral("the host sent a request after the last one of the recording (1):\n"
                                "  received: 1 -> 55  simplePoll (254)  data -  checksum ok\n"));
    }

    void partialFrameIsComparedAfterTheInterByteTimeOut()
    {
        sim::Replay replay(sim::replaySteps(recording()), 1);
        QVERIFY(replay.receive(poll.left(3), 1000).isEmpty());
        QCOMPARE(replay.deadline(), 1000 + 50000);
        QVERIFY(replay.expire(50999).isEmpty());
        QVERIFY(!replay.diverged());
        replay.expire(51000);
        QVERIFY(replay.diverged());
        QVERIFY(replay.divergence().contains(QStringLiteral("received: 3 byte(s) 37 00 01, not a frame")));
    }

    void clockSetCarriesTheHostsTime()
    {
        const QByteArray recordedSet = request(116, QByteArray::fromHex("00100000"));
        const QList<trace::Record> records{headerRecord(),
                                           chunkRecord(0, trace::Direction::Written, recordedSet),
                                           chunkRecord(100, trace::Direction::Read, recordedSet + reply()),
                                           chunkRecord(1000, trace::Direction::Written, poll),
                                           chunkRecord(1100, trace::Direction::Read, poll + reply())};
        sim::Replay replay(sim::replaySteps(records), 1);
        // Another time in the same request stands for the recorded one.
        const QByteArray laterSet = request(116, QByteArray::fromHex("05200000"));
        QCOMPARE(replay.receive(laterSet, 0).size(), 1);
        QVERIFY(!replay.diverged());
        // A clock set the recording does not have is answered, and noted; the recording waits.
        const QList<sim::Replay::Out> extra = replay.receive(laterSet, 500);
        QCOMPARE(outs(extra),
                 QStringLiteral("500:%1 500:%2")
                     .arg(QString::fromLatin1(laterSet.toHex()), QString::fromLatin1(reply().toHex())));
        QCOMPARE(
            replay.takeNotes(),
            QStringList{QStringLiteral("before request 2 the host set the device's clock, which the recorded "
                                       "host did not (the recorded clock is older now); answered ACK")});
        QCOMPARE(replay.matched(), 1);
        QCOMPARE(replay.receive(poll, 600).size(), 1);
        QVERIFY(replay.complete());
        // Any other request must match byte for byte.
        sim::Replay strict(sim::replaySteps(records), 1);
        strict.receive(request(116, QByteArray::fromHex("001000")), 0);
        QVERIFY(strict.diverged());
    }
};

QTEST_APPLESS_MAIN(TestReplay)
#include "tst_replay.moc"
