#include "cctalk/package.h"
#include "referenceassembly.h"
#include "support/columns.h"
#include "support/frames.h"

#include <QtTest>

#include <limits>
#include <random>

using testsupport::frame;
using testsupport::hex;
using testsupport::ReferenceAssembly;
using testsupport::reply;
using testsupport::request;

namespace {

CcTalk::Response received(const QByteArray& bytes)
{
    CcTalk::Response r;
    r.addRawData(bytes);
    return r;
}

// A response that exposes the bytes still waiting for a frame.
class OpenResponse : public CcTalk::Response
{
public:
    QByteArray pending() const { return buffer; }
};

QByteArray randomStream(std::mt19937& random, int size)
{
    QByteArray s;
    while (s.size() < size) {
        QByteArray data(int(random() % 8), '\0');
        for (char& c : data)
            c = char(random() & 0xff);
        switch (random() % 9) {
        case 0:
            s += frame(55, 1, quint8(random()), data);
            break;
        case 1:
            s += frame(1, 55, quint8(random() % 7), data);
            break;
        case 2:
            s += data;
            break;
        case 3:
            s += frame(1, 55, 0, data).left(int(random() % 6));
            break;
        case 4: {
            // Length bytes from 251 on announce frames of 256 to 260 bytes.
            QByteArray odd;
            odd.append(char(random() % 3));
            odd.append(char(251 + random() % 5));
            odd.append(char(random() % 2 ? 1 : 55));
            odd.append(data);
            s += odd;
            break;
        }
        case 5:
            // Other stations talking, and answers from another device.
            s += frame(quint8(random() % 4), quint8(2 + random() % 60), quint8(random()), data);
            break;
        case 6: {
            // A frame for the host with one byte changed.
            QByteArray bad = frame(1, 55, 0, data);
            bad[int(random() % bad.size())] = char(random());
            s += bad;
            break;
        }
        case 7: {
            // Long frames, with their checksum right or wrong.
            QByteArray longFrame = frame(1, 55, 0, QByteArray(int(120 + random() % 136), char(random())));
            if (random() % 2)
                longFrame[longFrame.size() - 1] = char(longFrame.at(longFrame.size() - 1) + 1);
            s += longFrame;
            break;
        }
        default:
            s += QByteArray(int(random() % 300), '\xff');
            break;
        }
    }
    return s;
}

} // namespace

class TestPackage : public QObject
{
    Q_OBJECT
private slots:
    void defaults()
    {
        const CcTalk::Package p;
        QCOMPARE(int(p.getDestination()), 0);
        QCOMPARE(int(p.getSource()), 1);
        QCOMPARE(int(p.getHeader()), 0);
        QVERIFY(p.getData().isEmpty());
        QCOMPARE(QByteArray(p), hex("00000100ff"));

        const CcTalk::Request r(CcTalk::Header::simplePoll, QByteArray());
        QCOMPARE(int(r.getDestination()), 0);
        QCOMPARE(int(r.getSource()), 1);
        QVERIFY(r.canBeSentAgain());

        const CcTalk::Response a;
        QVERIFY(!a.isValid());
        QVERIFY(QByteArray(a).isEmpty());
    }

    void serialise_data()
    {
        testsupport::columns<int, int, QByteArray, QByteArray>("dest", "header", "data", "expected");

        QTest::newRow("simple poll to 55") << 55 << 254 << QByteArray() << hex("370001feca");
        QTest::newRow("simple poll to 0") << 0 << 254 << QByteArray() << hex("000001fe01");
        QTest::newRow("reset to 2") << 2 << 1 << QByteArray() << hex("02000101fc");
        QTest::newRow("mod hopper balance") << 55 << 120 << hex("03e803") << hex("3703017803e8035f");
        QTest::newRow("ten data bytes")
            << 1 << 254 << hex("00010203040506070809") << hex("010a01fe00010203040506070809c9");
        QTest::newRow("independent builder")
            << 55 << 85 << hex("010302ff") << frame(55, 1, 85, hex("010302ff"));
    }

    void serialise()
    {
        QFETCH(int, dest);
        QFETCH(int, header);
        QFETCH(QByteArray, data);
        QFETCH(QByteArray, expected);
        const CcTalk::Request r(CcTalk::Header::Type(header), data);
        r.setAddress(quint8(dest));
        const QByteArray bytes = r;
        QCOMPARE(bytes.toHex(' '), expected.toHex(' '));
        QCOMPARE(bytes, frame(quint8(dest), 1, quint8(header), data));
    }

    // Frames longer than 127 bytes without checksum: the rule takes the low byte of the
    // length as a signed count.
    void longFrames_data()
    {
        testsupport::columns<int, int>("size", "checksum");
        QTest::newRow("122") << 122 << 0x7f;
        QTest::newRow("123") << 123 << 0x7d;
        QTest::newRow("124") << 124 << 0x00;
        QTest::newRow("125") << 125 << 0x00;
        QTest::newRow("200") << 200 << 0x00;
        QTest::newRow("251") << 251 << 0x00;
        QTest::newRow("252") << 252 << 0x00;
        QTest::newRow("253: first byte") << 253 << 0xc9;
        QTest::newRow("254: first 2 bytes") << 254 << 0xcb;
        QTest::newRow("255: first 3 bytes") << 255 << 0xc9;
        QTest::newRow("256: length byte 0, first 4 bytes") << 256 << 0x73;
    }

    void longFrames()
    {
        QFETCH(int, size);
        QFETCH(int, checksum);
        const QByteArray data(size, '\x01');
        const CcTalk::Request r(CcTalk::Header::dispenseHopperPattern, data);
        r.setAddress(55);
        QByteArray expected;
        expected.append('\x37');
        expected.append(char(size & 0xff));
        expected.append('\x01');
        expected.append('\x55');
        expected.append(data);
        expected.append(char(checksum));
        const QByteArray bytes = r;
        QCOMPARE(bytes.size(), size + 5);
        QCOMPARE(bytes, expected);
        if (size <= 123)
            QCOMPARE(bytes, frame(55, 1, 0x55, data));
    }

    void calkCrc_data()
    {
        testsupport::columns<QByteArray, int>("bytes", "crc");
        QTest::newRow("empty") << QByteArray() << 0;
        QTest::newRow("one zero") << hex("00") << 0;
        QTest::newRow("one byte") << hex("02") << 0xfe;
        QTest::newRow("frame without checksum") << hex("370001fe") << 0xca;
        QTest::newRow("whole correct frame") << hex("370001feca") << 0;
        QTest::newRow("whole frame, bad checksum") << hex("370001fecb") << 0xff;
        QTest::newRow("127 bytes") << QByteArray(127, '\x01') << 0x81;
        QTest::newRow("128 bytes") << QByteArray(128, '\x01') << 0;
        QTest::newRow("255 bytes") << QByteArray(255, '\x01') << 0;
        QTest::newRow("256 bytes") << QByteArray(256, '\x01') << 0;
        QTest::newRow("257 bytes: first byte") << QByteArray(257, '\x02') << 0xfe;
        QTest::newRow("383 bytes: first 127") << QByteArray(383, '\x01') << 0x81;
        QTest::newRow("384 bytes") << QByteArray(384, '\x01') << 0;
    }

    void calkCrc()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, crc);
        QCOMPARE(int(CcTalk::Package().calkCrc(bytes)), crc);
    }

    void setRawData_data()
    {
        testsupport::columns<QByteArray, int, int, int, QByteArray>("raw", "dest", "src", "header", "data");
        QTest::newRow("frame") << hex("0103370011223341") << 1 << 55 << 0 << hex("112233");
        QTest::newRow("checksum not checked") << hex("0103370011223300") << 1 << 55 << 0 << hex("112233");
        QTest::newRow("no checksum byte") << hex("01033700112233") << 1 << 55 << 0 << hex("112233");
        QTest::newRow("short of data") << hex("0105370011") << 1 << 55 << 0 << hex("11");
        QTest::newRow("trailing bytes ignored") << hex("01013705aabbccdd") << 1 << 55 << 5 << hex("aa");
        QTest::newRow("exactly 4 bytes") << hex("280228fe") << 40 << 40 << 254 << QByteArray();
        QTest::newRow("header 255") << hex("370001ff") << 55 << 1 << 255 << QByteArray();
    }

    void setRawData()
    {
        QFETCH(QByteArray, raw);
        QFETCH(int, dest);
        QFETCH(int, src);
        QFETCH(int, header);
        QFETCH(QByteArray, data);
        CcTalk::Package p;
        p.setRawData(raw);
        QCOMPARE(int(p.getDestination()), dest);
        QCOMPARE(int(p.getSource()), src);
        QCOMPARE(int(p.getHeader()), header);
        QCOMPARE(p.getData(), data);
    }

    void setRawDataThreeBytesLeavesPackageUnchanged()
    {
        CcTalk::Package p;
        p.setRawData(hex("0102370011"));
        p.setRawData(hex("370001"));
        QCOMPARE(int(p.getDestination()), 1);
        QCOMPARE(int(p.getSource()), 55);
        QCOMPARE(int(p.getHeader()), 0);
        QCOMPARE(p.getData(), hex("11"));
        p.setRawData(QByteArray());
        QCOMPARE(p.getData(), hex("11"));
    }

    void equalityAndAssign()
    {
        CcTalk::Package a;
        a.setRawData(hex("01023700aabb"));
        QVERIFY(a == a);
        CcTalk::Package b;
        QVERIFY(!(a == b));
        b.assign(a);
        QVERIFY(a == b);
        QCOMPARE(QByteArray(b), QByteArray(a));

        CcTalk::Package c;
        c.setRawData(hex("01023700aabc"));
        QVERIFY(!(a == c));
        c.setRawData(hex("01023800aabb"));
        QVERIFY(!(a == c));
        c.setRawData(hex("02023700aabb"));
        QVERIFY(!(a == c));
        c.setRawData(hex("01023701aabb"));
        QVERIFY(!(a == c));
        c.setRawData(hex("01013700aa"));
        QVERIFY(!(a == c));
        c.setRawData(hex("01023700aabb"));
        QVERIFY(a == c);
    }

    void toLog_data()
    {
        testsupport::columns<QByteArray, QString>("raw", "text");
        QTest::newRow("simple poll") << hex("370001fe")
                                     << QStringLiteral("simplePoll (254), data ='', src = 1, dest = 55");
        QTest::newRow("hopper balance")
            << hex("3703017803e803")
            << QStringLiteral("modHopperBalance (120), data =' 03 E8 03', src = 1, dest = 55");
        QTest::newRow("answer") << hex("01023700ab0c")
                                << QStringLiteral("answer (0), data =' AB 0C', src = 55, dest = 1");
        QTest::newRow("no key") << hex("ff01c8cd00")
                                << QStringLiteral(" (205), data =' 00', src = 200, dest = 255");
    }

    void toLog()
    {
        QFETCH(QByteArray, raw);
        QFETCH(QString, text);
        CcTalk::Package p;
        p.setRawData(raw);
        QCOMPARE(p.toLog(), text);
    }

    void requestToLogAfterAddressing()
    {
        const CcTalk::Request r(CcTalk::Header::simplePoll, QByteArray());
        r.setAddress(55);
        QCOMPARE(r.toLog(), QStringLiteral("simplePoll (254), data ='', src = 1, dest = 55"));
        QCOMPARE(QByteArray(r), hex("370001feca"));
    }

    void setUint_data()
    {
        testsupport::columns<QByteArray, uint, int, int, QByteArray>("initial", "value", "pos", "count",
                                                                     "data");
        QTest::newRow("one byte") << QByteArray() << 0x1234u << 0 << 1 << hex("34");
        QTest::newRow("two bytes") << QByteArray() << 0x1234u << 0 << 2 << hex("3412");
        QTest::newRow("four bytes") << QByteArray() << 123456u << 0 << 4 << hex("40e20100");
        QTest::newRow("grows with zeros") << QByteArray() << 0x0102u << 3 << 2 << hex("0000000201");
        QTest::newRow("overwrites") << hex("aabbccdd") << 0x0102u << 1 << 2 << hex("aa0201dd");
        QTest::newRow("overwrites and grows") << hex("aabb") << 0x030201u << 1 << 3 << hex("aa010203");
        QTest::newRow("max") << QByteArray() << 0xffffffffu << 0 << 4 << hex("ffffffff");
        QTest::newRow("negative position skipped") << hex("aa") << 0x0201u << -1 << 2 << hex("02");
        QTest::newRow("count 0") << hex("aa") << 0x0201u << 0 << 0 << hex("aa");
    }

    void setUint()
    {
        QFETCH(QByteArray, initial);
        QFETCH(uint, value);
        QFETCH(int, pos);
        QFETCH(int, count);
        QFETCH(QByteArray, data);
        CcTalk::Request r(CcTalk::Header::modHopperBalance, initial);
        r.setUint(value, pos, count);
        QCOMPARE(r.getData(), data);
    }

    void getUint_data()
    {
        testsupport::columns<QByteArray, int, int, uint>("data", "pos", "count", "value");
        QTest::newRow("0,3 on 01 02 03") << hex("010203") << 0 << 3 << 197121u;
        QTest::newRow("2,4 on 01 02 03") << hex("010203") << 2 << 4 << 3u;
        QTest::newRow("0,1") << hex("010203") << 0 << 1 << 1u;
        QTest::newRow("1,2") << hex("010203") << 1 << 2 << 0x0302u;
        QTest::newRow("at end") << hex("010203") << 3 << 2 << 0u;
        QTest::newRow("past end") << hex("010203") << 7 << 2 << 0u;
        QTest::newRow("count 0") << hex("010203") << 0 << 0 << 0u;
        QTest::newRow("negative count") << hex("010203") << 0 << -2 << 0u;
        QTest::newRow("empty data") << QByteArray() << 0 << 4 << 0u;
        QTest::newRow("32 bits") << hex("40e20100") << 0 << 4 << 123456u;
        QTest::newRow("max") << hex("ffffffff") << 0 << 4 << 0xffffffffu;
        QTest::newRow("16-bit count") << hex("5255303130412c01") << 6 << 2 << 300u;
        QTest::newRow("negative position stays in range") << hex("0102") << -1 << 2 << 0x0100u;
        QTest::newRow("far negative position") << hex("0102") << -10 << 4 << 0u;
        QTest::newRow("most negative position") << hex("0102") << std::numeric_limits<int>::min() << 4 << 0u;
        QTest::newRow("largest position") << hex("0102") << std::numeric_limits<int>::max() << 4 << 0u;
        QTest::newRow("largest count") << hex("0102") << 0 << std::numeric_limits<int>::max() << 0x0201u;
        QTest::newRow("count beyond 4 bytes") << hex("0102030405") << 0 << 5 << 0x04030201u;
    }

    void getUint()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, pos);
        QFETCH(int, count);
        QFETCH(uint, value);
        const CcTalk::Response r = received(reply(data));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), data);
        QCOMPARE(r.getUint(pos, count), value);
    }

    void getByte_data()
    {
        testsupport::columns<int, int>("index", "value");
        QTest::newRow("first") << 0 << 0x01;
        QTest::newRow("high bit unsigned") << 1 << 0xff;
        QTest::newRow("last") << 2 << 0x80;
        QTest::newRow("just past the end") << 3 << 0;
        QTest::newRow("far past the end") << 1000000 << 0;
        QTest::newRow("negative") << -1 << 0;
        QTest::newRow("most negative") << int(0x80000000u) << 0;
    }

    void getByte()
    {
        QFETCH(int, index);
        QFETCH(int, value);
        const CcTalk::Response r = received(reply(hex("01ff80")));
        QCOMPARE(int(r.getByte(index)), value);
        QCOMPARE(int(CcTalk::Response().getByte(index)), 0);
    }

    // Pieces of one exchange as the line delivers them: echo of the request, then the answer.
    void assemblyInOneChunk()
    {
        const QByteArray line = request(254) + reply(hex("0102"));
        OpenResponse r;
        r.addRawData(line);
        QVERIFY(r.isValid());
        QCOMPARE(int(r.getDestination()), 1);
        QCOMPARE(int(r.getSource()), 55);
        QCOMPARE(int(r.getHeader()), 0);
        QCOMPARE(QByteArray(r), hex("0102"));
        QVERIFY(r.pending().isEmpty());
    }

    void assemblySplitAnywhere_data()
    {
        testsupport::columns<int, int>("first", "second");
        const int length = (request(254) + reply(hex("0102"))).size();
        for (int a = 0; a <= length; ++a)
            for (int b = a; b <= length; ++b)
                QTest::newRow(qPrintable(QStringLiteral("%1/%2").arg(a).arg(b))) << a << b;
    }

    void assemblySplitAnywhere()
    {
        QFETCH(int, first);
        QFETCH(int, second);
        const QByteArray line = request(254) + reply(hex("0102"));
        const QByteArray pieces[3] = {line.left(first), line.mid(first, second - first), line.mid(second)};
        CcTalk::Response r;
        for (int i = 0; i < 3; ++i) {
            r.addRawData(pieces[i]);
            const bool lastByteIn =
                (i == 0 && first == line.size()) || (i == 1 && second == line.size()) || i == 2;
            QCOMPARE(r.isValid(), lastByteIn);
            if (lastByteIn)
                break;
        }
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("0102"));
        QCOMPARE(int(r.getSource()), 55);
    }

    void assemblyByteByByte()
    {
        const QByteArray line = request(184, hex("05")) + reply(hex("5255303130410000"));
        CcTalk::Response r;
        for (int i = 0; i < line.size(); ++i) {
            r.addRawData(line.mid(i, 1));
            QCOMPARE(r.isValid(), i == line.size() - 1);
        }
        QCOMPARE(QByteArray(r), hex("5255303130410000"));
    }

    void leadingGarbage_data()
    {
        QTest::addColumn<QByteArray>("garbage");
        QTest::newRow("one byte") << hex("ff");
        QTest::newRow("several") << hex("ff0000");
        QTest::newRow("looks like a frame start") << hex("0101");
        QTest::newRow("long run") << QByteArray(3000, '\xff');
    }

    void leadingGarbage()
    {
        QFETCH(QByteArray, garbage);
        OpenResponse r;
        r.addRawData(garbage);
        QVERIFY(!r.isValid());
        QVERIFY(r.pending().size() <= 259);
        r.addRawData(reply(hex("abcd")));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("abcd"));
        QVERIFY(r.pending().isEmpty());

        CcTalk::Response once;
        once.addRawData(garbage + reply(hex("abcd")));
        QVERIFY(once.isValid());
        QCOMPARE(QByteArray(once), hex("abcd"));
    }

    void garbageIsDroppedOneByteAtATime()
    {
        OpenResponse r;
        r.addRawData(hex("0000"));
        QCOMPARE(r.pending(), hex("0000"));
        r.addRawData(hex("010237"));
        QVERIFY(!r.isValid());
        QCOMPARE(r.pending(), hex("00010237"));
        r.addRawData(hex("00"));
        QVERIFY(!r.isValid());
        QCOMPARE(r.pending(), hex("0001023700"));
        r.addRawData(hex("0a"));
        QVERIFY(!r.isValid());
        QCOMPARE(r.pending(), hex("010237000a"));
        r.addRawData(hex("0bb1"));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("0a0b"));
        QVERIFY(r.pending().isEmpty());
        QCOMPARE(r.droppedBytes(), 2);
        QCOMPARE(r.foreignFrames(), 0);
        QCOMPARE(reply(hex("0a0b")), hex("010237000a0bb1"));
    }

    // A garbage byte whose length field promises more than has come holds the scan:
    // the frame behind it is found only once enough bytes have arrived to rule it out.
    void garbageWithLargeLengthWaits()
    {
        OpenResponse r;
        r.addRawData(hex("ffaa") + reply(hex("abcd")));
        QVERIFY(!r.isValid());
        QCOMPARE(r.pending(), hex("ffaa") + reply(hex("abcd")));
    }

    void bytesAfterAnswerAreDiscarded()
    {
        OpenResponse r;
        r.addRawData(request(254) + reply(hex("11")) + reply(hex("22")) + hex("0102"));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("11"));
        QVERIFY(r.pending().isEmpty());
        r.addRawData(QByteArray());
        QVERIFY(!r.isValid());
        QCOMPARE(QByteArray(r), hex("11"));
    }

    void incomplete_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("exactly 4 bytes") << hex("01003700");
        QTest::newRow("4 bytes of a correct frame") << reply().left(4);
        QTest::newRow("length promises more") << hex("0103370011");
        QTest::newRow("one byte short") << reply(hex("112233")).chopped(1);
        QTest::newRow("echo only") << request(254);
        QTest::newRow("echo and part of answer") << request(254) + reply().left(4);
        QTest::newRow("correct frame from the host") << hex("00000100ff");
    }

    void incomplete()
    {
        QFETCH(QByteArray, bytes);
        CcTalk::Response r;
        r.addRawData(bytes);
        QVERIFY(!r.isValid());
    }

    // A frame is its length byte plus 5 bytes long, 5 to 260, and all of its bytes sum
    // to 0 modulo 256 whatever its length: no length skips the checksum.
    void checksumHoldsAtEveryLength_data()
    {
        QTest::addColumn<int>("size");
        for (int size : {0, 1, 122, 123, 124, 125, 130, 200, 249, 250})
            QTest::newRow(qPrintable(QString::number(size))) << size;
    }

    void checksumHoldsAtEveryLength()
    {
        QFETCH(int, size);
        QByteArray data(size, '\0');
        for (int i = 0; i < size; ++i)
            data[i] = char(i * 7 + 3);
        const QByteArray good = frame(1, 55, 0, data);
        QCOMPARE(good.size(), size + 5);

        CcTalk::Response r;
        r.addRawData(good);
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), data);

        for (const int at : {1 + 2, size + 4}) {
            QByteArray bad = good;
            bad[at] = char(bad.at(at) + 1);
            CcTalk::Response wrong;
            wrong.addRawData(bad);
            QVERIFY2(!wrong.isValid(), qPrintable(QStringLiteral("byte %1 changed").arg(at)));
        }
    }

    // A frame has at most 255 bytes: a length byte above 250 is noise and is dropped
    // at once, so that a run of 0xFF never holds the scan.
    void lengthBytesAbove250AreNoise_data()
    {
        QTest::addColumn<QByteArray>("noise");
        QTest::newRow("251") << hex("00fb");
        QTest::newRow("255") << hex("00ff");
        QTest::newRow("0xFF run") << QByteArray(40, '\xff');
    }

    void lengthBytesAbove250AreNoise()
    {
        QFETCH(QByteArray, noise);
        OpenResponse r;
        r.addRawData(noise + reply(hex("42")));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("42"));
        QCOMPARE(r.droppedBytes(), noise.size());
    }

    // The 130-byte frame with a wrong checksum byte is noise, not an answer.
    void longFrameWithWrongChecksumIsNoAnswer()
    {
        const QByteArray bytes = hex("0182370a") + QByteArray(130, '\x5a') + hex("00");
        OpenResponse r;
        r.addRawData(bytes);
        QVERIFY(!r.isValid());
        QVERIFY(r.droppedBytes() > 0);
        QByteArray fixed = bytes;
        fixed[bytes.size() - 1] = char(frame(1, 55, 10, QByteArray(130, '\x5a')).back());
        CcTalk::Response good;
        good.addRawData(fixed);
        QVERIFY(good.isValid());
        QCOMPARE(QByteArray(good), QByteArray(130, '\x5a'));
    }

    // The host's own frame heard back is skipped whole, at any length.
    void ownLongFrameIsSkippedWhole()
    {
        const QByteArray own = frame(55, 1, 85, QByteArray(250, '\x01'));
        OpenResponse r;
        r.addRawData(own);
        QVERIFY(!r.isValid());
        QVERIFY(r.pending().isEmpty());
        r.addRawData(reply(hex("77")));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("77"));
        QCOMPARE(r.foreignFrames(), 0);
        QCOMPARE(r.droppedBytes(), 0);
    }

    // Destination 2, source 3, checksum right: traffic between two other stations.
    void frameBetweenOtherStationsIsSkipped()
    {
        const QByteArray foreign = frame(2, 3, 0, hex("0a"));
        QCOMPARE(foreign, hex("020103000af0"));
        OpenResponse r;
        r.addRawData(request(82) + foreign);
        QVERIFY(!r.isValid());
        QVERIFY(r.pending().isEmpty());
        QCOMPARE(r.foreignFrames(), 1);
        r.addRawData(reply(hex("0b")));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("0b"));
        QCOMPARE(int(r.getSource()), 55);
    }

    void onlyTheExpectedSourceCompletes_data()
    {
        testsupport::columns<QByteArray, bool>("bytes", "valid");
        QTest::newRow("from 55 to the host") << frame(1, 55, 0, hex("01")) << true;
        QTest::newRow("NAK from 55") << frame(1, 55, 5) << true;
        QTest::newRow("from 56 to the host") << frame(1, 56, 0, hex("01")) << false;
        QTest::newRow("from 55 to 2") << frame(2, 55, 0, hex("01")) << false;
        QTest::newRow("from 55 to 0") << frame(0, 55, 0, hex("01")) << false;
        QTest::newRow("from 3 to 2") << frame(2, 3, 0) << false;
    }

    void onlyTheExpectedSourceCompletes()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, valid);
        CcTalk::Response r;
        r.expectFrom(55);
        r.addRawData(bytes);
        QCOMPARE(r.isValid(), valid);
        QCOMPARE(r.foreignFrames(), valid ? 0 : 1);
    }

    // Without an expected source any station but the host may answer the host.
    void withoutExpectationAnyStationAnswersTheHost()
    {
        CcTalk::Response r;
        r.addRawData(frame(9, 40, 0, hex("01")));
        QVERIFY(!r.isValid());
        r.addRawData(frame(1, 40, 0, hex("02")));
        QVERIFY(r.isValid());
        QCOMPARE(int(r.getDestination()), 1);
        QCOMPARE(int(r.getSource()), 40);
        QCOMPARE(QByteArray(r), hex("02"));
    }

    void nakAndBusyAreValid_data()
    {
        testsupport::columns<QByteArray, bool, bool>("bytes", "nak", "busy");
        QTest::newRow("answer") << reply() << false << false;
        QTest::newRow("NAK") << testsupport::nak() << true << false;
        QTest::newRow("BUSY") << testsupport::busy() << false << true;
        QTest::newRow("NAK after echo")
            << request(125, hex("dc050000")) + testsupport::nak() << true << false;
    }

    void nakAndBusyAreValid()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, nak);
        QFETCH(bool, busy);
        const CcTalk::Response r = received(bytes);
        QVERIFY(r.isValid());
        QCOMPARE(r.isNAK(), nak);
        QCOMPARE(r.isBUSY(), busy);
    }

    void newDataResetsValid()
    {
        CcTalk::Response r;
        r.addRawData(reply(hex("01")));
        QVERIFY(r.isValid());
        r.addRawData(reply(hex("02")).left(3));
        QVERIFY(!r.isValid());
        r.addRawData(reply(hex("02")).mid(3));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("02"));
    }

    void copyStartsWithEmptyBuffer()
    {
        OpenResponse partial;
        partial.addRawData(reply(hex("0102")).left(4));
        QCOMPARE(partial.pending().size(), 4);
        CcTalk::Response copy(partial);
        copy.addRawData(reply(hex("0102")).mid(4));
        QVERIFY(!copy.isValid());

        const CcTalk::Response done = received(reply(hex("0102")));
        const CcTalk::Response again(done);
        QVERIFY(again == done);
        QCOMPARE(QByteArray(again), hex("0102"));
        CcTalk::Response assigned;
        assigned = done;
        QVERIFY(assigned == done);
        QCOMPARE(int(assigned.getSource()), 55);
    }

    void sameResultsAsPlainRules()
    {
        std::mt19937 random(7);
        int completed = 0;
        for (int round = 0; round < 300; ++round) {
            const QByteArray stream = randomStream(random, 1500);
            OpenResponse r;
            ReferenceAssembly model;
            if (round % 4 != 3) {
                r.expectFrom(55);
                model.expectedSource = 55;
            }
            const bool freshAfterAnswer = round % 2 == 0;
            for (int at = 0; at < stream.size();) {
                const int n = 1 + int(random() % (round % 3 == 0 ? 300 : 24));
                const QByteArray piece = stream.mid(at, n);
                at += n;
                r.addRawData(piece);
                model.add(piece);
                QCOMPARE(r.isValid(), model.valid);
                QCOMPARE(r.pending(), model.buffer);
                QCOMPARE(r.foreignFrames(), model.foreign);
                QCOMPARE(r.droppedBytes(), model.dropped);
                if (!model.valid)
                    continue;
                ++completed;
                CcTalk::Package expected;
                expected.setRawData(model.frame);
                QVERIFY(r == expected);
                if (freshAfterAnswer) {
                    const int source = model.expectedSource;
                    r = OpenResponse();
                    model = ReferenceAssembly();
                    if (source >= 0) {
                        r.expectFrom(quint8(source));
                        model.expectedSource = source;
                    }
                }
            }
        }
        QVERIFY2(completed > 500, qPrintable(QString::number(completed)));
    }

    void fromHex_data()
    {
        testsupport::columns<QString, int, int, QByteArray>("text", "src", "header", "data");
        QTest::newRow("correct frame") << QStringLiteral("0102370011ff") << 55 << 0 << hex("11ff");
        QTest::newRow("spaces, no checksum") << QStringLiteral("01 02 37 00 11 FF") << 55 << 0 << hex("11ff");
        QTest::newRow("bad checksum") << QStringLiteral("010137050800") << 55 << 5 << hex("08");
    }

    void fromHex()
    {
        QFETCH(QString, text);
        QFETCH(int, src);
        QFETCH(int, header);
        QFETCH(QByteArray, data);
        const CcTalk::Response r = CcTalk::Response::fromHex(text);
        QVERIFY(r.isValid());
        QCOMPARE(int(r.getSource()), src);
        QCOMPARE(int(r.getHeader()), header);
        QCOMPARE(QByteArray(r), data);
    }

    void fromHexOfTooLittleIsEmptyButValid()
    {
        const CcTalk::Response r = CcTalk::Response::fromHex(QStringLiteral("0102"));
        QVERIFY(r.isValid());
        QVERIFY(QByteArray(r).isEmpty());
        QCOMPARE(int(r.getSource()), 1);
    }
};

QTEST_APPLESS_MAIN(TestPackage)
#include "tst_package.moc"
