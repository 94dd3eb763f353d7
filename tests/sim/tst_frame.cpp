#include "frame.h"

#include <QtTest>
#include <random>

using sim::FrameReader;

namespace {

QByteArray bytes(const char* hex)
{
    return QByteArray::fromHex(hex);
}
QByteArray hex(const QByteArray& b)
{
    return b.toHex(' ').toUpper();
}

} // namespace

class TestFrame : public QObject
{
    Q_OBJECT

private slots:
    void makeAndChecksum();
    void isComplete();
    void readerWholeFrame();
    void readerPieces();
    void readerBackToBack();
    void readerDropsBadChecksum();
    void readerResynchronisesAfterGarbage();
    void readerGivesUpTruncatedFrame();
    void readerRandomBytes();
};

void TestFrame::makeAndChecksum()
{
    QCOMPARE(hex(sim::frame::make(0x37, 1, 254)), QByteArray("37 00 01 FE CA"));
    QCOMPARE(hex(sim::frame::make(1, 0x37, 0)), QByteArray("01 00 37 00 C8"));
    QCOMPARE(hex(sim::frame::make(0x37, 1, 120, bytes("03 E8 03"))), QByteArray("37 03 01 78 03 E8 03 5F"));
    QCOMPARE(hex(sim::frame::make(1, 0x37, 0, "Changer")), QByteArray("01 07 37 00 43 68 61 6E 67 65 72 09"));
    QCOMPARE(sim::frame::checksum(bytes("37 00 01 FE")), quint8(0xCA));
    QCOMPARE(sim::frame::checksum(QByteArray()), quint8(0));
    QCOMPARE(sim::frame::checksum(bytes("80 80")), quint8(0));
}

void TestFrame::isComplete()
{
    QVERIFY(sim::frame::isComplete(bytes("37 00 01 FE CA")));
    QVERIFY(!sim::frame::isComplete(bytes("37 00 01 FE CB")));
    QVERIFY(!sim::frame::isComplete(bytes("37 00 01 FE")));
    QVERIFY(!sim::frame::isComplete(bytes("37 00 01 FE CA 00")));
    QVERIFY(!sim::frame::isComplete(bytes("37 01 01 FE CA")));
    QVERIFY(sim::frame::isComplete(bytes("37 03 01 78 03 E8 03 5F")));
}

void TestFrame::readerWholeFrame()
{
    FrameReader r(50);
    const auto frames = r.feed(bytes("37 00 01 FE CA"), 0);
    QCOMPARE(frames.size(), 1);
    QCOMPARE(hex(frames.at(0)), QByteArray("37 00 01 FE CA"));
    QVERIFY(r.pending().isEmpty());
    QCOMPARE(r.deadline(), qint64(-1));
}

void TestFrame::readerPieces()
{
    FrameReader r(50);
    QVERIFY(r.feed(bytes("37"), 0).isEmpty());
    QVERIFY(r.feed(bytes("03 01"), 10).isEmpty());
    QVERIFY(r.feed(bytes("78 03 E8"), 20).isEmpty());
    QCOMPARE(r.deadline(), qint64(71));
    const auto frames = r.feed(bytes("03 5F"), 30);
    QCOMPARE(frames.size(), 1);
    QCOMPARE(hex(frames.at(0)), QByteArray("37 03 01 78 03 E8 03 5F"));
}

void TestFrame::readerBackToBack()
{
    FrameReader r(50);
    const auto frames = r.feed(bytes("37 00 01 FE CA 37 00 01 7B 4D 37 02"), 0);
    QCOMPARE(frames.size(), 2);
    QCOMPARE(hex(frames.at(1)), QByteArray("37 00 01 7B 4D"));
    QCOMPARE(hex(r.pending()), QByteArray("37 02"));
}

void TestFrame::readerDropsBadChecksum()
{
    FrameReader r(50);
    // Bad checksum: the frame's bytes are dropped one by one while the search goes on.
    QVERIFY(r.feed(bytes("37 00 01 FE CB"), 0).isEmpty());
    QVERIFY(r.discardedBytes() >= 1);
    // After a pause longer than the inter-byte time-out the next frame is read normally.
    const auto frames = r.feed(bytes("37 00 01 FE CA"), 100);
    QCOMPARE(frames.size(), 1);
    QCOMPARE(hex(frames.at(0)), QByteArray("37 00 01 FE CA"));
}

void TestFrame::readerResynchronisesAfterGarbage()
{
    FrameReader r(50);
    // 12 00 34 56 78 cannot be a frame; 00 34 promises 57 bytes that never come.
    QVERIFY(r.feed(bytes("12 00 34 56 78 37 00 01 FE CA"), 0).isEmpty());
    QVERIFY(r.expire(50).isEmpty()); // not stale yet
    const auto frames = r.expire(51);
    QCOMPARE(frames.size(), 1);
    QCOMPARE(hex(frames.at(0)), QByteArray("37 00 01 FE CA"));
    QVERIFY(r.pending().isEmpty());
    QCOMPARE(r.discardedBytes(), quint64(5));
}

void TestFrame::readerGivesUpTruncatedFrame()
{
    FrameReader r(50);
    QVERIFY(r.feed(bytes("37 04 01 7D A4"), 0).isEmpty());
    const auto frames = r.feed(bytes("37 00 01 FE CA"), 200);
    QCOMPARE(frames.size(), 1);
    QCOMPARE(hex(frames.at(0)), QByteArray("37 00 01 FE CA"));
    // Without the pause the truncated frame swallows the next one, as on a real line.
    FrameReader tight(50);
    QVERIFY(tight.feed(bytes("37 04 01 7D A4"), 0).isEmpty());
    QVERIFY(tight.feed(bytes("37 00 01 FE CA"), 1).isEmpty());
}

void TestFrame::readerRandomBytes()
{
    FrameReader r(5);
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> byte(0, 255), len(0, 40);
    qint64 now = 0;
    int found = 0;
    for (int i = 0; i < 5000; ++i) {
        QByteArray chunk;
        for (int n = len(rng); n > 0; --n)
            chunk.append(char(byte(rng)));
        if (i % 10 == 0)
            chunk.append(bytes("37 00 01 FE CA"));
        now += byte(rng) % 8;
        for (const QByteArray& f : r.feed(chunk, now)) {
            QVERIFY(sim::frame::isComplete(f));
            ++found;
        }
        QVERIFY(r.pending().size() <= 260);
    }
    QVERIFY(found > 0);
}

QTEST_GUILESS_MAIN(TestFrame)
#include "tst_frame.moc"
