#include "cctalk/commands.h"
#include "support/columns.h"
#include "support/frames.h"

#include <QtTest>

#include <functional>
#include <memory>

using testsupport::hex;
using testsupport::reply;

namespace {

using Make = std::function<std::unique_ptr<CcTalk::Request>()>;

template <class R, class... A> Make make(A... args)
{
    return [=] { return std::unique_ptr<CcTalk::Request>(new R(args...)); };
}

struct RequestRow
{
    const char* name;
    Make build;
    int header;
    const char* data;
    bool repeatable;
    // The data length of a well-formed answer.
    CcTalk::AnswerLength answer;
};

CcTalk::AnswerLength exact(int n)
{
    return CcTalk::AnswerLength::exactly(n);
}

CcTalk::AnswerLength least(int n)
{
    return CcTalk::AnswerLength::atLeast(n);
}

const QList<RequestRow>& requestRows()
{
    using namespace CcTalk;
    static const QList<RequestRow> rows = {
        {"Reset", make<Reset>(), 1, "", true, exact(0)},
        {"SimplePoll", make<SimplePoll>(), 254, "", true, exact(0)},
        {"ReqManufacturerId", make<ReqManufacturerId>(), 246, "", true, least(1)},
        {"ReqEquipmentCategoryId", make<ReqEquipmentCategoryId>(), 245, "", true, least(1)},
        {"ReqProductCode", make<ReqProductCode>(), 244, "", true, least(1)},
        {"ReqSerialNumber", make<ReqSerialNumber>(), 242, "", true, exact(3)},
        {"ReqSoftwareRevision", make<ReqSoftwareRevision>(), 241, "", true, least(1)},
        {"ReqBuildCode", make<ReqBuildCode>(), 192, "", true, least(1)},
        {"ReqVarSet", make<ReqVarSet>(), 247, "", true, least(2)},
        {"ModVarSet", make<ModVarSet>((unsigned char)0x2a), 165, "2a", true, exact(0)},
        {"ReqActivityReg", make<ReqActivityReg>(), 123, "", true, exact(2)},
        {"ReqErrorStatus", make<ReqErrorStatus>(), 122, "", true, exact(2)},
        {"Selfcheck", make<Selfcheck>(), 232, "", true, exact(2)},
        {"ReqUnitInfo acceptor serial",
         make<ReqUnitInfo>(ReqUnitInfo::CoinAcceptor, ReqUnitInfo::SerialNumber), 84, "0205", true, exact(3)},
        {"ReqUnitInfo acceptor firmware", make<ReqUnitInfo>(ReqUnitInfo::CoinAcceptor, ReqUnitInfo::Firmware),
         84, "0201", true, least(1)},
        {"ReqUnitInfo hopper 1 enabled", make<ReqUnitInfo>(ReqUnitInfo::Unit(1 + 2), ReqUnitInfo::Enabled),
         84, "0300", true, least(1)},
        {"ReqUnitInfo hopper 3 model", make<ReqUnitInfo>(ReqUnitInfo::Unit(3 + 2), ReqUnitInfo::Model), 84,
         "0504", true, least(1)},
        {"ReqUnitInfo hopper 6 capacity", make<ReqUnitInfo>(ReqUnitInfo::Unit(6 + 2), ReqUnitInfo::Capacity),
         84, "0808", true, exact(2)},
        {"ReqUnitInfo other info type", make<ReqUnitInfo>(ReqUnitInfo::Unit(1 + 2), ReqUnitInfo::InfoType(7)),
         84, "0307", true, AnswerLength::any()},
        {"ReqCoinId", make<ReqCoinId>((unsigned char)5), 184, "05", true, exact(6)},
        {"ReqCoinId 16", make<ReqCoinId>((unsigned char)16), 184, "10", true, exact(6)},
        {"ReqHopperBalance", make<ReqHopperBalance>(3), 119, "03", true, exact(8)},
        {"ReqHopperBalance low 8 bits", make<ReqHopperBalance>(0x104), 119, "04", true, exact(8)},
        {"ModHopperBalance", make<ModHopperBalance>((unsigned char)3, (unsigned short)1000), 120, "03e803",
         true, exact(0)},
        {"ModHopperBalance max", make<ModHopperBalance>((unsigned char)8, (unsigned short)0xffff), 120,
         "08ffff", true, exact(0)},
        {"ReqCashboxValue", make<ReqCashboxValue>(), 117, "", true, exact(4)},
        {"ModifyCashboxValue", make<ModifyCashboxValue>(123456u), 118, "40e20100", true, exact(0)},
        {"ReqCoinsInByType", make<ReqCoinsInByType>(), 82, "", true, exact(32)},
        {"ModInhibitStatus", make<ModInhibitStatus>((unsigned short)0x0005), 231, "0500", true, exact(0)},
        {"ModInhibitStatus all", make<ModInhibitStatus>((unsigned short)0xffff), 231, "ffff", true, exact(0)},
        {"SetChangeAlgorithm balanced", make<SetChangeAlgorithm>(SetChangeAlgorithm::Balanced), 80, "02",
         true, exact(0)},
        {"SetChangeAlgorithm largest first", make<SetChangeAlgorithm>(SetChangeAlgorithm::LargestFirst), 80,
         "00", true, exact(0)},
        {"PayMoneyOut", make<PayMoneyOut>(1500u), 125, "dc050000", false, exact(0)},
        {"DispenseHopperPattern", make<DispenseHopperPattern>(), 85, "", false, exact(0)},
        {"ReqRealTimeClock", make<ReqRealTimeClock>(), 115, "", true, exact(4)},
        {"ModRealTimeClock", make<ModRealTimeClock>(QDateTime(QDate(2024, 3, 1), QTime(12, 0), Qt::UTC)), 116,
         "40c3e165", true, exact(0)},
        {"ModRealTimeClock local time",
         make<ModRealTimeClock>(QDateTime(QDate(2024, 3, 1), QTime(15, 0), Qt::OffsetFromUTC, 3 * 3600)), 116,
         "40c3e165", true, exact(0)},
        {"ReqAuditCounter", make<ReqAuditCounter>((unsigned char)70, (unsigned char)3), 86, "4603", true,
         exact(4)},
        {"ClearAuditCounter", make<ClearAuditCounter>((unsigned char)80, (unsigned char)2), 87, "5002", true,
         exact(0)},
        {"PurgeHopper", make<PurgeHopper>((unsigned char)2, (unsigned char)0), 121, "0200", false, exact(0)},
    };
    return rows;
}

template <class R> R answer(const char* data)
{
    CcTalk::Response r;
    r.addRawData(reply(hex(data)));
    return R(r);
}

} // namespace

class TestCommands : public QObject
{
    Q_OBJECT
private slots:
    void requests_data()
    {
        QTest::addColumn<int>("row");
        for (int i = 0; i < requestRows().size(); ++i)
            QTest::newRow(requestRows().at(i).name) << i;
    }

    void requests()
    {
        QFETCH(int, row);
        const RequestRow& expected = requestRows().at(row);
        const std::unique_ptr<CcTalk::Request> request = expected.build();
        QCOMPARE(int(request->getHeader()), expected.header);
        QCOMPARE(request->getData().toHex(), QByteArray(expected.data));
        QCOMPARE(request->canBeSentAgain(), expected.repeatable);
        QCOMPARE(request->answerLength().minimum(), expected.answer.minimum());
        QCOMPARE(request->answerLength().maximum(), expected.answer.maximum());
        QCOMPARE(int(request->getSource()), 1);
        request->setAddress(55);
        QCOMPARE(QByteArray(*request), testsupport::request(quint8(expected.header), hex(expected.data)));
    }

    // kind: 0 exactly n, 1 at least n, 2 any.
    void answerLength_data()
    {
        testsupport::columns<int, int, int, bool>("kind", "n", "size", "fits");
        QTest::newRow("exactly 8, 7") << 0 << 8 << 7 << false;
        QTest::newRow("exactly 8, 8") << 0 << 8 << 8 << true;
        QTest::newRow("exactly 8, 9") << 0 << 8 << 9 << false;
        QTest::newRow("exactly 0, 0") << 0 << 0 << 0 << true;
        QTest::newRow("exactly 0, 1") << 0 << 0 << 1 << false;
        QTest::newRow("at least 2, 1") << 1 << 2 << 1 << false;
        QTest::newRow("at least 2, 2") << 1 << 2 << 2 << true;
        QTest::newRow("at least 2, 255") << 1 << 2 << 255 << true;
        QTest::newRow("any, 0") << 2 << 0 << 0 << true;
        QTest::newRow("any, 255") << 2 << 0 << 255 << true;
    }

    void answerLength()
    {
        QFETCH(int, kind);
        QFETCH(int, n);
        QFETCH(int, size);
        QFETCH(bool, fits);
        const CcTalk::AnswerLength length = kind == 0   ? CcTalk::AnswerLength::exactly(n)
                                            : kind == 1 ? CcTalk::AnswerLength::atLeast(n)
                                                        : CcTalk::AnswerLength::any();
        QCOMPARE(length.fits(size), fits);
    }

    void answerLengthForTheLog()
    {
        QCOMPARE(CcTalk::AnswerLength::exactly(8).toLog(), QStringLiteral("8"));
        QCOMPARE(CcTalk::AnswerLength::exactly(0).toLog(), QStringLiteral("0"));
        QCOMPARE(CcTalk::AnswerLength::atLeast(2).toLog(), QStringLiteral("не менее 2"));
    }

    // The expectation is plain data of the frame: copies carry it, a bare request has none.
    void expectationTravelsWithTheRequest()
    {
        const CcTalk::Request copy = CcTalk::ReqHopperBalance(3);
        QVERIFY(copy.answerLength() == CcTalk::AnswerLength::exactly(8));
        CcTalk::Request assigned;
        QVERIFY(assigned.answerLength() == CcTalk::AnswerLength::any());
        assigned = CcTalk::ReqVarSet();
        QVERIFY(assigned.answerLength() == CcTalk::AnswerLength::atLeast(2));
        const CcTalk::Request bare(CcTalk::Header::reqHopperBalance, hex("03"));
        QVERIFY(bare.answerLength() == CcTalk::AnswerLength::any());
        QVERIFY(CcTalk::AnswerLength::exactly(2) != CcTalk::AnswerLength::atLeast(2));
    }

    void enumerations()
    {
        QCOMPARE(int(CcTalk::ReqActivityRegResp::CoinAcceptance), 4);
        QCOMPARE(int(CcTalk::ReqActivityRegResp::Payout), 8);
        QCOMPARE(int(CcTalk::ReqActivityRegResp::Fault), 16);
        QCOMPARE(int(CcTalk::ReqActivityRegResp::Initialisation), 64);
        QCOMPARE(int(CcTalk::ReqActivityRegResp::Warning), 4096);
        QCOMPARE(int(CcTalk::ReqUnitInfo::CoinAcceptor), 2);
        QCOMPARE(int(CcTalk::ReqUnitInfo::Enabled), 0);
        QCOMPARE(int(CcTalk::ReqUnitInfo::Firmware), 1);
        QCOMPARE(int(CcTalk::ReqUnitInfo::Model), 4);
        QCOMPARE(int(CcTalk::ReqUnitInfo::SerialNumber), 5);
        QCOMPARE(int(CcTalk::ReqUnitInfo::Capacity), 8);
        QCOMPARE(int(CcTalk::SetChangeAlgorithm::LargestFirst), 0);
        QCOMPARE(int(CcTalk::SetChangeAlgorithm::Balanced), 2);
        QCOMPARE(int(CcTalk::ReqErrorStatusResp::Hopper), 0);
        QCOMPARE(int(CcTalk::ReqErrorStatusResp::CoinAcceptor), 1);
        QCOMPARE(int(CcTalk::ReqErrorStatusResp::Cashbox), 2);
    }

    void dispensePattern_data()
    {
        testsupport::columns<QList<int>, QList<qlonglong>, QByteArray>("hoppers", "counts", "data");
        QTest::newRow("1x3 then 2x255") << QList<int>{1, 2} << QList<qlonglong>{3, 255}
                                        << hex("0103"
                                               "02ff");
        QTest::newRow("zero adds nothing") << QList<int>{2} << QList<qlonglong>{0} << QByteArray();
        QTest::newRow("zero between") << QList<int>{1, 2, 3} << QList<qlonglong>{3, 0, 4}
                                      << hex("0103"
                                             "0304");
        QTest::newRow("600 in three pairs") << QList<int>{4} << QList<qlonglong>{600}
                                            << hex("04ff"
                                                   "04ff"
                                                   "045a");
        QTest::newRow("510 in two pairs") << QList<int>{4} << QList<qlonglong>{510}
                                          << hex("04ff"
                                                 "04ff");
        QTest::newRow("256") << QList<int>{1} << QList<qlonglong>{256}
                             << hex("01ff"
                                    "0101");
        QTest::newRow("1") << QList<int>{6} << QList<qlonglong>{1} << hex("0601");
        QTest::newRow("negative: one pair of the low byte")
            << QList<int>{5} << QList<qlonglong>{-1} << hex("05ff");
        QTest::newRow("negative large") << QList<int>{5} << QList<qlonglong>{-300} << hex("05d4");
        QTest::newRow("call order kept") << QList<int>{3, 1, 3} << QList<qlonglong>{2, 1, 5}
                                         << hex("0302"
                                                "0101"
                                                "0305");
    }

    void dispensePattern()
    {
        QFETCH(QList<int>, hoppers);
        QFETCH(QList<qlonglong>, counts);
        QFETCH(QByteArray, data);
        CcTalk::DispenseHopperPattern pattern;
        for (int i = 0; i < hoppers.size(); ++i)
            pattern.addCount((unsigned char)hoppers.at(i), counts.at(i));
        QCOMPARE(pattern.getData().toHex(), data.toHex());
        QCOMPARE(int(pattern.getHeader()), 85);
        QVERIFY(!pattern.canBeSentAgain());
    }

    void varSet()
    {
        const auto r = answer<CcTalk::ReqVarSetResp>("0a14ff");
        QCOMPARE(int(r.getVar(0)), 10);
        QCOMPARE(int(r.getVar(1)), 20);
        QCOMPARE(int(r.getVar(2)), 255);
        QCOMPARE(int(r.getVar(3)), 0);
    }

    void activityRegister_data()
    {
        testsupport::columns<QByteArray, int, bool>("data", "mask", "set");
        QTest::newRow("idle, acceptance") << QByteArray("0000") << 4 << false;
        QTest::newRow("acceptance") << QByteArray("0400") << 4 << true;
        QTest::newRow("payout") << QByteArray("0c00") << 8 << true;
        QTest::newRow("acceptance among others") << QByteArray("0c00") << 4 << true;
        QTest::newRow("no fault") << QByteArray("0c00") << 16 << false;
        QTest::newRow("fault") << QByteArray("1000") << 16 << true;
        QTest::newRow("initialisation") << QByteArray("4000") << 64 << true;
        QTest::newRow("warning in high byte") << QByteArray("0010") << 4096 << true;
        QTest::newRow("high byte only, low mask") << QByteArray("00ff") << 64 << false;
        QTest::newRow("warning, low byte full") << QByteArray("ff00") << 4096 << false;
        QTest::newRow("short answer") << QByteArray("08") << 8 << true;
        QTest::newRow("short answer, high bit") << QByteArray("08") << 4096 << false;
        QTest::newRow("empty answer") << QByteArray("") << 8 << false;
    }

    void activityRegister()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, mask);
        QFETCH(bool, set);
        const auto r = answer<CcTalk::ReqActivityRegResp>(data.constData());
        QCOMPARE(r.checkFlag(CcTalk::ReqActivityRegResp::State(mask)), set);
    }

    void activityRegisterAssignment()
    {
        CcTalk::ReqActivityRegResp state;
        QVERIFY(!state.checkFlag(CcTalk::ReqActivityRegResp::Payout));
        CcTalk::Response busy;
        busy.addRawData(reply(hex("0800")));
        state = busy;
        QVERIFY(state.checkFlag(CcTalk::ReqActivityRegResp::Payout));
        CcTalk::Response idle;
        idle.addRawData(reply(hex("0000")));
        state = idle;
        QVERIFY(!state.checkFlag(CcTalk::ReqActivityRegResp::Payout));
        QCOMPARE(QByteArray(state), hex("0000"));
    }

    void coinId_data()
    {
        testsupport::columns<QByteArray, QString, uint>("data", "name", "denom");
        QTest::newRow("RU010A") << hex("525530313041") << QStringLiteral("RU010A") << 10u;
        QTest::newRow("RU5K0A") << hex("5255354b3041") << QStringLiteral("RU5K0A") << 5000u;
        QTest::newRow("cut at zero") << hex("525535000000") << QStringLiteral("RU5") << 0u;
        QTest::newRow("more than six bytes") << hex("5255313030414243") << QStringLiteral("RU100A") << 100u;
        QTest::newRow("short") << hex("5255") << QStringLiteral("RU") << 0u;
        QTest::newRow("empty") << QByteArray() << QString() << 0u;
        QTest::newRow("zero first") << hex("005531303041") << QString() << 0u;
    }

    void coinId()
    {
        QFETCH(QByteArray, data);
        QFETCH(QString, name);
        QFETCH(uint, denom);
        CcTalk::Response r;
        r.addRawData(reply(data));
        const CcTalk::CoinId id = CcTalk::ReqCoinIdResp(r).getDenom();
        QCOMPARE(id.getName(), name);
        QCOMPARE(id.getDenom(), denom);
        const CcTalk::CoinId fromHopper = CcTalk::ReqHopperBalanceResp(r).getDenom();
        QCOMPARE(fromHopper.getName(), name);
    }

    void hopperBalance_data()
    {
        testsupport::columns<QByteArray, QString, uint>("data", "name", "count");
        QTest::newRow("RU010A, 300") << hex("5255303130412c01") << QStringLiteral("RU010A") << 300u;
        QTest::newRow("RU5 and zeros") << hex("525535000000") << QStringLiteral("RU5") << 0u;
        QTest::newRow("RU5 and zeros, count") << hex("5255350000000a00") << QStringLiteral("RU5") << 10u;
        QTest::newRow("count cut short") << hex("52553130304105") << QStringLiteral("RU100A") << 5u;
        QTest::newRow("max count") << hex("525535303041ffff") << QStringLiteral("RU500A") << 65535u;
    }

    void hopperBalance()
    {
        QFETCH(QByteArray, data);
        QFETCH(QString, name);
        QFETCH(uint, count);
        CcTalk::Response r;
        r.addRawData(reply(data));
        const CcTalk::ReqHopperBalanceResp b(r);
        QCOMPARE(b.getDenom().getName(), name);
        QCOMPARE(QString(b.getDenom()), name);
        QCOMPARE(b.getCount(), count);
    }

    void cashboxValue()
    {
        QCOMPARE(answer<CcTalk::ReqCashboxValueResp>("40e20100").getSum(), 123456u);
        QCOMPARE(answer<CcTalk::ReqCashboxValueResp>("ffffffff").getSum(), 0xffffffffu);
        QCOMPARE(answer<CcTalk::ReqCashboxValueResp>("1027").getSum(), 10000u);
        QCOMPARE(answer<CcTalk::ReqCashboxValueResp>("").getSum(), 0u);
    }

    void coinsInByType_data()
    {
        testsupport::columns<QByteArray, QList<uint>>("data", "counts");
        QList<uint> zeros;
        for (int i = 0; i < 16; ++i)
            zeros << 0;
        QList<uint> two = zeros;
        two[0] = 1;
        two[1] = 0x0102;
        QTest::newRow("four bytes") << hex("01000201") << two;
        QTest::newRow("empty") << QByteArray() << zeros;
        QList<uint> odd = zeros;
        odd[0] = 0xffff;
        odd[1] = 7;
        QTest::newRow("odd length") << hex("ffff07") << odd;
        QByteArray full;
        QList<uint> all;
        for (int p = 1; p <= 16; ++p) {
            full.append(char(p));
            full.append(char(p * 2));
            all << uint(p + 256 * p * 2);
        }
        QTest::newRow("all sixteen") << full << all;
        QTest::newRow("bytes beyond sixteen ignored") << full + hex("ffff") << all;
    }

    void coinsInByType()
    {
        QFETCH(QByteArray, data);
        QFETCH(QList<uint>, counts);
        CcTalk::Response r;
        r.addRawData(reply(data));
        const QMap<unsigned char, unsigned int> got = CcTalk::ReqCoinsInByTypeResp(r).getCounts();
        QCOMPARE(got.size(), 16);
        QCOMPARE(int(got.firstKey()), 1);
        QCOMPARE(int(got.lastKey()), 16);
        for (int p = 1; p <= 16; ++p)
            QCOMPARE(got.value((unsigned char)p), counts.at(p - 1));
    }

    void verifyMoneyOut()
    {
        const auto r = answer<CcTalk::VerifyMoneyOutResp>("03"
                                                          "dc050000"
                                                          "10000000");
        QCOMPARE(int(r.getEventCount()), 3);
        QCOMPARE(r.getPaid(), 1500u);
        QCOMPARE(r.getUnpaid(), 16u);
        const auto shortAnswer = answer<CcTalk::VerifyMoneyOutResp>("01"
                                                                    "e803");
        QCOMPARE(int(shortAnswer.getEventCount()), 1);
        QCOMPARE(shortAnswer.getPaid(), 1000u);
        QCOMPARE(shortAnswer.getUnpaid(), 0u);
    }

    void realTimeClock()
    {
        const QDateTime t = answer<CcTalk::ReqRealTimeClockResp>("40c3e165").getTime();
        QCOMPARE(t, QDateTime(QDate(2024, 3, 1), QTime(12, 0), Qt::UTC));
        QCOMPARE(t.timeSpec(), Qt::LocalTime);
        QCOMPARE(answer<CcTalk::ReqRealTimeClockResp>("00000000").getTime(),
                 QDateTime(QDate(1970, 1, 1), QTime(0, 0), Qt::UTC));
        QCOMPARE(answer<CcTalk::ReqRealTimeClockResp>("ffffffff").getTime().toSecsSinceEpoch(),
                 qint64(0xffffffffu));

        const QDateTime now(QDate(2031, 7, 9), QTime(8, 30, 15), Qt::UTC);
        CcTalk::ModRealTimeClock set(now);
        CcTalk::Response echoBack;
        echoBack.addRawData(reply(set.getData()));
        QCOMPARE(CcTalk::ReqRealTimeClockResp(echoBack).getTime(), now);
    }

    void auditCounter()
    {
        QCOMPARE(answer<CcTalk::ReqAuditCounterResp>("78563412").value(), 0x12345678u);
        QCOMPARE(answer<CcTalk::ReqAuditCounterResp>("2a").value(), 42u);
        QCOMPARE(answer<CcTalk::ReqAuditCounterResp>("").value(), 0u);
    }

    void inputLines()
    {
        QCOMPARE(int(answer<CcTalk::ReadInputLinesResp>("a5").getMask()), 0xa5);
        QCOMPARE(int(answer<CcTalk::ReadInputLinesResp>("").getMask()), 0);
    }

    void answerClassesCopyTheFrame()
    {
        CcTalk::Response r;
        r.addRawData(reply(hex("0102")));
        const CcTalk::ReqVarSetResp copy(r);
        QVERIFY(copy == r);
        QCOMPARE(int(copy.getSource()), 55);
        QCOMPARE(int(copy.getHeader()), 0);
    }
};

QTEST_APPLESS_MAIN(TestCommands)
#include "tst_commands.moc"
