#include "sim/frame.h"
#include "sim/linefaults.h"
#include "support/frames.h"

#include <QtTest>

using sim::LineFaults;
using testsupport::frame;
using testsupport::hex;

namespace {

const QByteArray request = frame(55, 1, 82);
const QByteArray answer = frame(1, 55, 0, hex("0102"));

// The device of these tests: answers every request with `answer` and counts the calls.
struct CountingDevice
{
    int calls = 0;
    QByteArray operator()(const QByteArray&)
    {
        ++calls;
        return answer;
    }
};

QList<LineFaults::Piece> respond(LineFaults& faults, CountingDevice& device, const QByteArray& req = request)
{
    return faults.respond(req, 55, [&device](const QByteArray& r) { return device(r); });
}

QByteArray joined(const QList<LineFaults::Piece>& pieces)
{
    QByteArray out;
    for (const LineFaults::Piece& p : pieces)
        out += p.bytes;
    return out;
}

} // namespace

class TestLineFaults : public QObject
{
    Q_OBJECT
private slots:
    void cleanLine()
    {
        LineFaults faults;
        CountingDevice device;
        const auto pieces = respond(faults, device);
        QCOMPARE(pieces.size(), 1);
        QCOMPARE(pieces.at(0).pauseMs, 0);
        QCOMPARE(pieces.at(0).bytes, answer);
        QCOMPARE(device.calls, 1);
    }

    // BUSY and NAK stand in for the command: the device never sees it.
    void busyThenNak()
    {
        LineFaults faults;
        faults.busy = 1;
        faults.nak = 1;
        CountingDevice device;
        QCOMPARE(joined(respond(faults, device)), frame(1, 55, 6));
        QCOMPARE(joined(respond(faults, device)), frame(1, 55, 5));
        QCOMPARE(device.calls, 0);
        QCOMPARE(joined(respond(faults, device)), answer);
        QCOMPARE(device.calls, 1);
    }

    void droppedAnswerIsCarriedOut()
    {
        LineFaults faults;
        faults.drop = 1;
        CountingDevice device;
        QVERIFY(respond(faults, device).isEmpty());
        QCOMPARE(device.calls, 1);
        QCOMPARE(joined(respond(faults, device)), answer);
    }

    void dropOnlyForItsHeader()
    {
        LineFaults faults;
        faults.drop = 1;
        faults.dropHeader = 121;
        CountingDevice device;
        QCOMPARE(joined(respond(faults, device)), answer);
        QVERIFY(respond(faults, device, frame(55, 1, 121, hex("0300"))).isEmpty());
        QCOMPARE(faults.drop, 0);
        QCOMPARE(device.calls, 2);
    }

    void corruptChecksum()
    {
        LineFaults faults;
        faults.corrupt = 1;
        CountingDevice device;
        QByteArray spoilt = answer;
        spoilt[spoilt.size() - 1] = char(spoilt.at(spoilt.size() - 1) ^ 0x5A);
        QCOMPARE(joined(respond(faults, device)), spoilt);
        QCOMPARE(joined(respond(faults, device)), answer);
    }

    void decoysInFrontOfTheAnswer()
    {
        LineFaults faults;
        faults.foreign = 1;
        faults.badFrame = 1;
        CountingDevice device;
        QCOMPARE(joined(respond(faults, device)), frame(2, 3, 0, hex("0203")) + answer);
        QByteArray bad = frame(1, 55, 0, hex("0203") + QByteArray(128, '\0'));
        bad[bad.size() - 1] = char(bad.at(bad.size() - 1) ^ 0x5A);
        QCOMPARE(joined(respond(faults, device)), bad + answer);
        QCOMPARE(joined(respond(faults, device)), answer);
    }

    void garbageOnce()
    {
        LineFaults faults;
        faults.garbage = hex("ff00");
        CountingDevice device;
        QCOMPARE(joined(respond(faults, device)), hex("ff00") + answer);
        QCOMPARE(joined(respond(faults, device)), answer);
    }

    void splitWithPauses()
    {
        LineFaults faults;
        faults.splitPieces = 3;
        faults.splitPauseMs = 7;
        CountingDevice device;
        const auto pieces = respond(faults, device);
        QCOMPARE(pieces.size(), 3);
        QCOMPARE(pieces.at(0).pauseMs, 0);
        QCOMPARE(pieces.at(1).pauseMs, 7);
        QCOMPARE(pieces.at(2).pauseMs, 7);
        QCOMPARE(joined(pieces), answer);
        QCOMPARE(respond(faults, device).size(), 1);
    }

    void clearUndoesEverything()
    {
        LineFaults faults;
        faults.busy = faults.nak = faults.drop = faults.corrupt = faults.foreign = faults.badFrame = 3;
        faults.garbage = hex("01");
        faults.splitPieces = 2;
        faults.dropHeader = 121;
        faults.clear();
        CountingDevice device;
        QCOMPARE(joined(respond(faults, device)), answer);
        QCOMPARE(faults.dropHeader, -1);
    }
};

QTEST_GUILESS_MAIN(TestLineFaults)
#include "tst_linefaults.moc"
