#include "cctalk/package.h"
#include "support/frames.h"

#include <QtTest>

#include <limits>
#include <random>

using testsupport::frame;
using testsupport::hex;
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

// The assembly rules written out plainly, one byte removed at a time, to check the
// driver's single-pass scan against.
struct ReferenceAssembly
{
    QByteArray buffer;
    QByteArray taken;
    bool valid = false;

    static int crc(const QByteArray& a)
    {
        const qint8 k = qint8(quint8(a.size() & 0xff));
        if (k <= 0)
            return 0;
        quint8 sum = 0;
        for (int i = 0; i < k; ++i)
            sum = quint8(sum + quint8(a.at(i)));
        return quint8(256 - sum);
    }

    void add(const QByteArray& raw)
    {
        valid = false;
        buffer.append(raw);
        for (;;) {
            if (buffer.size() <= 4)
                return;
            const int e = (quint8(buffer.at(1)) + 5) & 0xff;
            if (e > buffer.size())
                return;
            if (crc(buffer.left(e)) != 0) {
                buffer.remove(0, 1);
                continue;
            }
            if (quint8(buffer.at(2)) == 1) {
                buffer.remove(0, e > 0 ? e : 1);
                continue;
            }
            taken = buffer;
            buffer.clear();
            valid = true;
            return;
        }
    }
};

QByteArray randomStream(std::mt19937& random, int size)
{
    QByteArray s;
    while (s.size() < size) {
        QByteArray data(int(random() % 8), '\0');
        for (char& c : data)
            c = char(random() & 0xff);
        switch (random() % 6) {
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
            // Length bytes from 251 on wrap the expected length.
            QByteArray odd;
            odd.append(char(random() % 3));
            odd.append(char(251 + random() % 5));
            odd.append(char(random() % 2 ? 1 : 55));
            odd.append(data);
            s += odd;
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
        QTest::addColumn<int>("dest");
        QTest::addColumn<int>("header");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QByteArray>("expected");

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
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("checksum");
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
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("crc");
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
        QTest::addColumn<QByteArray>("raw");
        QTest::addColumn<int>("dest");
        QTest::addColumn<int>("src");
        QTest::addColumn<int>("header");
        QTest::addColumn<QByteArray>("data");
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
        QTest::addColumn<QByteArray>("raw");
        QTest::addColumn<QString>("text");
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
        QTest::addColumn<QByteArray>("initial");
        QTest::addColumn<uint>("value");
        QTest::addColumn<int>("pos");
        QTest::addColumn<int>("count");
        QTest::addColumn<QByteArray>("data");
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
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("pos");
        QTest::addColumn<int>("count");
        QTest::addColumn<uint>("value");
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
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("value");
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
        QTest::addColumn<int>("first");
        QTest::addColumn<int>("second");
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
        QTest::newRow("several") << hex("ffff00");
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
        r.addRawData(hex("ffff"));
        QCOMPARE(r.pending(), hex("ffff"));
        r.addRawData(hex("010237"));
        QVERIFY(!r.isValid());
        QCOMPARE(r.pending(), hex("ff010237"));
        r.addRawData(hex("00"));
        QVERIFY(!r.isValid());
        QCOMPARE(r.pending(), hex("ff01023700"));
        r.addRawData(hex("0a"));
        QVERIFY(!r.isValid());
        QCOMPARE(r.pending(), hex("010237000a"));
        r.addRawData(hex("0bb1"));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("0a0b"));
        QVERIFY(r.pending().isEmpty());
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

    // A length byte of 251 gives an expected length of 0 (8-bit arithmetic): any 5
    // bytes from another station complete the frame, the data cut to what is there.
    void lengthByteWraps_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<int>("header");
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("251, five bytes") << hex("01fb3700aa") << true << 0 << hex("aa");
        QTest::newRow("251, seven bytes") << hex("01fb3700aabbcc") << true << 0 << hex("aabbcc");
        QTest::newRow("251, four bytes") << hex("01fb3700") << false << 0 << QByteArray();
        QTest::newRow("252 covers one byte") << hex("00fc370011") << true << 0 << hex("11");
        QTest::newRow("252, first byte not zero") << hex("01fc370011") << false << 0 << QByteArray();
        QTest::newRow("253 covers two bytes") << hex("03fd370011") << true << 0 << hex("11");
        QTest::newRow("255 covers four bytes") << hex("01ff37c9ab") << true << 201 << hex("ab");
        QTest::newRow("255, bad sum") << hex("01ff37c8ab") << false << 0 << QByteArray();
    }

    void lengthByteWraps()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, valid);
        QFETCH(int, header);
        QFETCH(QByteArray, data);
        CcTalk::Response r;
        r.addRawData(bytes);
        QCOMPARE(r.isValid(), valid);
        if (valid) {
            QCOMPARE(int(r.getHeader()), header);
            QCOMPARE(QByteArray(r), data);
            QCOMPARE(int(r.getSource()), 55);
        }
    }

    // The host's own frame with length byte 251 would never move the scan on; it is
    // dropped like garbage and the answer behind it is still found.
    void ownFrameOfLengthZeroDoesNotHang()
    {
        OpenResponse r;
        r.addRawData(hex("37fb010000"));
        QVERIFY(!r.isValid());
        QCOMPARE(r.pending(), hex("fb010000"));
        r.addRawData(reply(hex("77")));
        QVERIFY(r.isValid());
        QCOMPARE(QByteArray(r), hex("77"));
    }

    void frameOf128To255BytesAlwaysPasses()
    {
        // 130 data bytes: 135 bytes in all, the checksum rule sees a negative count.
        QByteArray bytes = hex("0182370a") + QByteArray(130, '\x5a') + hex("00");
        CcTalk::Response r;
        r.addRawData(bytes);
        QVERIFY(r.isValid());
        QCOMPARE(int(r.getHeader()), 10);
        QCOMPARE(QByteArray(r), QByteArray(130, '\x5a'));
    }

    void anyAddressCompletes()
    {
        CcTalk::Response r;
        r.addRawData(frame(9, 40, 0, hex("01")));
        QVERIFY(r.isValid());
        QCOMPARE(int(r.getDestination()), 9);
        QCOMPARE(int(r.getSource()), 40);
    }

    void nakAndBusyAreValid_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("nak");
        QTest::addColumn<bool>("busy");
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
            const bool freshAfterAnswer = round % 2 == 0;
            for (int at = 0; at < stream.size();) {
                const int n = 1 + int(random() % (round % 3 == 0 ? 300 : 24));
                const QByteArray piece = stream.mid(at, n);
                at += n;
                r.addRawData(piece);
                model.add(piece);
                QCOMPARE(r.isValid(), model.valid);
                QCOMPARE(r.pending(), model.buffer);
                if (!model.valid)
                    continue;
                ++completed;
                CcTalk::Package expected;
                expected.setRawData(model.taken);
                QVERIFY(r == expected);
                if (freshAfterAnswer) {
                    r = OpenResponse();
                    model = ReferenceAssembly();
                }
            }
        }
        QVERIFY(completed > 1000);
    }

    void fromHex_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("src");
        QTest::addColumn<int>("header");
        QTest::addColumn<QByteArray>("data");
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
