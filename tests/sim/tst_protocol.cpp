#include "coinvalue.h"
#include "device.h"
#include "frame.h"
#include "protocol.h"
#include "support/coinvalues.h"

#include <QSet>
#include <QtTest>
#include <iterator>

// The simulator's own protocol numbers against numbers written out here. The program links the
// device model alone, so none of them can come from the driver; the driver's numbers are pinned
// to the same values by the ccTalk tests (tst_header, tst_commands, tst_coinid, which reads the
// same coin table, support/coinvalues.h).

namespace {

struct HeaderRow
{
    const char* name;
    int defined;
    int code;
    const char* data; // hexadecimal bytes the device answers with an ACK
};

// Every header the device answers.
const HeaderRow headerTable[] = {
    {"reset", sim::cmd::Reset, 0x01, ""},
    {"setChangeAlgorithm", sim::cmd::SetChangeAlgorithm, 0x50, "02"},
    {"reqCoinsInByType", sim::cmd::ReqCoinsInByType, 0x52, ""},
    {"reqControllerManifest", sim::cmd::ReqControllerManifest, 0x54, "0201"},
    {"dispenseHopperPattern", sim::cmd::DispenseHopperPattern, 0x55, "0401"},
    {"reqAuditCounter", sim::cmd::ReqAuditCounter, 0x56, "4601"},
    {"clearAuditCounter", sim::cmd::ClearAuditCounter, 0x57, "5001"},
    {"reqRealTimeClock", sim::cmd::ReqRealTimeClock, 0x73, ""},
    {"modRealTimeClock", sim::cmd::ModRealTimeClock, 0x74, "00f15365"},
    {"reqCashboxValue", sim::cmd::ReqCashboxValue, 0x75, ""},
    {"modCashboxValue", sim::cmd::ModCashboxValue, 0x76, "e8030000"},
    {"reqHopperBalance", sim::cmd::ReqHopperBalance, 0x77, "01"},
    {"modHopperBalance", sim::cmd::ModHopperBalance, 0x78, "016400"},
    {"purgeHopper", sim::cmd::PurgeHopper, 0x79, "0201"},
    {"reqErrorStatus", sim::cmd::ReqErrorStatus, 0x7a, ""},
    {"reqActivityReg", sim::cmd::ReqActivityReg, 0x7b, ""},
    {"verifyMoneyOut", sim::cmd::VerifyMoneyOut, 0x7c, ""},
    {"payMoneyOut", sim::cmd::PayMoneyOut, 0x7d, "64000000"},
    {"modVarSet", sim::cmd::ModVarSet, 0xa5, "ff"},
    {"reqCoinId", sim::cmd::ReqCoinId, 0xb8, "01"},
    {"reqBuildCode", sim::cmd::ReqBuildCode, 0xc0, ""},
    {"modInhibitStatus", sim::cmd::ModInhibitStatus, 0xe7, "ffff"},
    {"performSelfcheck", sim::cmd::PerformSelfcheck, 0xe8, ""},
    {"readInputLines", sim::cmd::ReadInputLines, 0xed, ""},
    {"reqSoftwareRevision", sim::cmd::ReqSoftwareRevision, 0xf1, ""},
    {"reqSerialNumber", sim::cmd::ReqSerialNumber, 0xf2, ""},
    {"reqProductCode", sim::cmd::ReqProductCode, 0xf4, ""},
    {"reqEquipmentCategoryId", sim::cmd::ReqEquipmentCategoryId, 0xf5, ""},
    {"reqManufacturerId", sim::cmd::ReqManufacturerId, 0xf6, ""},
    {"reqVarSet", sim::cmd::ReqVarSet, 0xf7, ""},
    {"simplePoll", sim::cmd::SimplePoll, 0xfe, ""},
};

struct NumberRow
{
    const char* name;
    int defined;
    int expected;
};

const NumberRow replyHeaderTable[] = {
    {"ACK", sim::frame::Ack, 0},
    {"NAK", sim::frame::Nak, 5},
    {"BUSY", sim::frame::Busy, 6},
};

const NumberRow activityBitTable[] = {
    {"coin acceptance", sim::activity::CoinAcceptance, 0x0004},
    {"payout", sim::activity::Payout, 0x0008},
    {"fault", sim::activity::Fault, 0x0010},
    {"initialisation", sim::activity::Initialisation, 0x0040},
    {"warning", sim::activity::Warning, 0x1000},
};

const NumberRow faultCodeTable[] = {
    {"error: hopper empty", sim::errcode::HopperEmpty, 1},
    {"error: hopper jam", sim::errcode::HopperJam, 2},
    {"error: self-check needed", sim::errcode::NeedSelfCheck, 255},
    {"self-check: door open", sim::selfcheck::DoorOpen, 51},
};

const NumberRow otherNumberTable[] = {
    {"manifest unit: coin acceptor", sim::unitinfo::CoinAcceptor, 2},
    {"manifest item: enabled", sim::unitinfo::Enabled, 0},
    {"manifest item: firmware", sim::unitinfo::Firmware, 1},
    {"manifest item: model", sim::unitinfo::Model, 4},
    {"manifest item: serial number", sim::unitinfo::SerialNumber, 5},
    {"manifest item: capacity", sim::unitinfo::Capacity, 8},
    {"audit group: accepted", sim::audit::Accepted, 70},
    {"audit group: paid out", sim::audit::PaidOut, 80},
    {"audit group: purged", sim::audit::Purged, 87},
    {"change algorithm: largest first", sim::changealgorithm::LargestFirst, 0},
    {"change algorithm: balanced", sim::changealgorithm::Balanced, 2},
};

template <size_t N> void numberRows(const NumberRow (&table)[N])
{
    testsupport::columns<int, int>("defined", "expected");
    for (const NumberRow& row : table)
        QTest::newRow(row.name) << row.defined << row.expected;
}

QByteArray request(quint8 header, const QByteArray& data)
{
    return sim::frame::make(55, 1, header, data);
}

} // namespace

class TestProtocol : public QObject
{
    Q_OBJECT
private slots:
    void headers_data();
    void headers();
    void noOtherHeaderIsAnswered();
    void replyHeaders_data() { numberRows(replyHeaderTable); }
    void replyHeaders() { compareNumbers(); }
    void activityBits_data() { numberRows(activityBitTable); }
    void activityBits() { compareNumbers(); }
    void faultCodes_data() { numberRows(faultCodeTable); }
    void faultCodes() { compareNumbers(); }
    void otherNumbers_data() { numberRows(otherNumberTable); }
    void otherNumbers() { compareNumbers(); }
    void coinValues_data();
    void coinValues();

private:
    void compareNumbers();
};

void TestProtocol::headers_data()
{
    testsupport::columns<int, int, QByteArray>("defined", "code", "data");
    for (const HeaderRow& row : headerTable)
        QTest::newRow(row.name) << row.defined << row.code << QByteArray::fromHex(row.data);
}

void TestProtocol::headers()
{
    QFETCH(int, defined);
    QFETCH(int, code);
    QFETCH(QByteArray, data);
    QCOMPARE(defined, code);
    sim::Device device;
    const QByteArray answer = device.handleFrame(request(quint8(code), data));
    QVERIFY(sim::frame::isComplete(answer));
    QCOMPARE(int(sim::frame::header(answer)), 0);
}

void TestProtocol::noOtherHeaderIsAnswered()
{
    QSet<int> answered;
    for (const HeaderRow& row : headerTable)
        answered.insert(row.code);
    QCOMPARE(answered.size(), int(std::size(headerTable)));
    QSet<QByteArray> payloads;
    for (const HeaderRow& row : headerTable)
        payloads.insert(QByteArray::fromHex(row.data));
    for (int header = 0; header <= 255; ++header) {
        if (answered.contains(header))
            continue;
        for (const QByteArray& data : payloads) {
            sim::Device device;
            const QByteArray answer = device.handleFrame(request(quint8(header), data));
            QVERIFY2(sim::frame::isComplete(answer), QByteArray::number(header).constData());
            QCOMPARE(int(sim::frame::header(answer)), 5);
        }
    }
}

void TestProtocol::compareNumbers()
{
    QFETCH(int, defined);
    QFETCH(int, expected);
    QCOMPARE(defined, expected);
}

void TestProtocol::coinValues_data()
{
    testsupport::coinValueRows();
}

void TestProtocol::coinValues()
{
    QFETCH(QString, coinId);
    QFETCH(uint, value);
    QCOMPARE(sim::coinValue(coinId), value);
}

QTEST_APPLESS_MAIN(TestProtocol)
#include "tst_protocol.moc"
