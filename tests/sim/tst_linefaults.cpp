#include "sim/frame.h"
#include "sim/linefaults.h"
#include "support/columns.h"
#include "support/frames.h"

#include <QtTest>
#include <functional>

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

using Setup = std::function<void(LineFaults&)>;

} // namespace

Q_DECLARE_METATYPE(Setup)

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

    // Each row: the faults set, then for each request in turn the bytes the host gets and
    // how many commands the device has carried out by then.
    void oneShotFaults_data()
    {
        testsupport::columns<Setup, QList<QByteArray>, QList<int>>("setup", "answers", "calls");
        QByteArray spoilt = answer;
        spoilt[spoilt.size() - 1] = char(spoilt.at(spoilt.size() - 1) ^ 0x5A);
        QByteArray bad = frame(1, 55, 0, hex("0203") + QByteArray(128, '\0'));
        bad[bad.size() - 1] = char(bad.at(bad.size() - 1) ^ 0x5A);

        // BUSY and NAK stand in for the command: the device never sees it.
        QTest::newRow("busy then nak")
            << Setup([](LineFaults& f) { f.busy = f.nak = 1; })
            << QList<QByteArray>{frame(1, 55, 6), frame(1, 55, 5), answer} << QList<int>{0, 0, 1};
        // A dropped answer's command is carried out all the same.
        QTest::newRow("drop") << Setup([](LineFaults& f) { f.drop = 1; })
                              << QList<QByteArray>{QByteArray(), answer} << QList<int>{1, 2};
        QTest::newRow("corrupt checksum") << Setup([](LineFaults& f) { f.corrupt = 1; })
                                          << QList<QByteArray>{spoilt, answer} << QList<int>{1, 2};
        QTest::newRow("decoys in front of the answer")
            << Setup([](LineFaults& f) { f.foreign = f.badFrame = 1; })
            << QList<QByteArray>{frame(2, 3, 0, hex("0203")) + answer, bad + answer, answer}
            << QList<int>{1, 2, 3};
        // The last data byte goes, the length byte and the checksum follow: 01 01 37 00 01 C6.
        const QByteArray cut = frame(1, 55, 0, hex("01"));
        QTest::newRow("shorten") << Setup([](LineFaults& f) { f.shorten = 1; })
                                 << QList<QByteArray>{hex("0101370001c6"), answer} << QList<int>{1, 2};
        QTest::newRow("shorten twice") << Setup([](LineFaults& f) { f.shorten = 2; })
                                       << QList<QByteArray>{cut, cut, answer} << QList<int>{1, 2, 3};
        // A lost answer leaves the fault for the next answer that goes out.
        QTest::newRow("shorten after a lost answer")
            << Setup([](LineFaults& f) { f.drop = f.shorten = 1; })
            << QList<QByteArray>{QByteArray(), cut, answer} << QList<int>{1, 2, 3};
        QTest::newRow("garbage once") << Setup([](LineFaults& f) { f.garbage = hex("ff00"); })
                                      << QList<QByteArray>{hex("ff00") + answer, answer} << QList<int>{1, 2};
    }

    void oneShotFaults()
    {
        QFETCH(Setup, setup);
        QFETCH(QList<QByteArray>, answers);
        QFETCH(QList<int>, calls);
        QCOMPARE(answers.size(), calls.size());
        LineFaults faults;
        setup(faults);
        CountingDevice device;
        for (int i = 0; i < answers.size(); ++i) {
            const auto pieces = respond(faults, device);
            QCOMPARE(pieces.isEmpty(), answers.at(i).isEmpty());
            QCOMPARE(joined(pieces), answers.at(i));
            QCOMPARE(device.calls, calls.at(i));
        }
    }

    // An answer without data has nothing to cut: it goes out whole and uses the fault up,
    // BUSY and NAK included.
    // The device's own answers in turn, and what the host gets for the first request.
    void shortenWithoutDataUsesItUp_data()
    {
        testsupport::columns<Setup, QList<QByteArray>, QByteArray>("setup", "device", "first");
        QTest::newRow("ACK") << Setup([](LineFaults&) {}) << QList<QByteArray>{hex("01003700c8"), answer}
                             << hex("01003700c8");
        QTest::newRow("BUSY") << Setup([](LineFaults& f) { f.busy = 1; }) << QList<QByteArray>{answer}
                              << hex("01003706c2");
        QTest::newRow("NAK") << Setup([](LineFaults& f) { f.nak = 1; }) << QList<QByteArray>{answer}
                             << hex("01003705c3");
    }

    void shortenWithoutDataUsesItUp()
    {
        QFETCH(Setup, setup);
        QFETCH(QList<QByteArray>, device);
        QFETCH(QByteArray, first);
        LineFaults faults;
        setup(faults);
        faults.shorten = 1;
        auto next = [&device](const QByteArray&) { return device.takeFirst(); };
        QCOMPARE(joined(faults.respond(request, 55, next)), first);
        QCOMPARE(faults.shorten, 0);
        QCOMPARE(joined(faults.respond(request, 55, next)), answer);
        QVERIFY(device.isEmpty());
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
        faults.shorten = 3;
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
