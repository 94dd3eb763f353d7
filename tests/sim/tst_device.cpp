#include "device.h"
#include "frame.h"

#include "cctalk/commands.h"
#include "cctalk/statecommands.h"
#include "support/columns.h"

#include <QtTest>
#include <functional>
#include <memory>
#include <random>

using sim::Device;

namespace {

// Frames are written out byte by byte, checksum included, exactly as they travel on the line.
QByteArray ask(Device& dev, const char* requestHex)
{
    return dev.handleFrame(QByteArray::fromHex(requestHex)).toHex(' ').toUpper();
}

const QByteArray ACK = "01 00 37 00 C8";
const QByteArray NAK = "01 00 37 05 C3";
const QByteArray BUSY = "01 00 37 06 C2";

const char* const ACTIVITY = "37 00 01 7B 4D";
const char* const ERROR_STATUS = "37 00 01 7A 4E";
const char* const SELF_CHECK = "37 00 01 E8 E0";
const char* const COINS_IN = "37 00 01 52 76";

const QByteArray ACTIVITY_IDLE = "01 02 37 00 00 00 C6";
const QByteArray ACTIVITY_ACCEPTING = "01 02 37 00 04 00 C2";
const QByteArray ACTIVITY_PAYING = "01 02 37 00 08 00 BE";
const QByteArray ACTIVITY_FAULT = "01 02 37 00 10 00 B6";
const QByteArray ACTIVITY_INITIALISING = "01 02 37 00 40 00 86";
const QByteArray ACTIVITY_WARNING = "01 02 37 00 00 10 B6";
const QByteArray NO_ERROR = "01 02 37 00 00 00 C6";

sim::Config testConfig()
{
    sim::Config c = sim::Config::defaults();
    c.coinAcceptMs = 10;
    c.coinAcceptFastMs = 5;
    c.payoutMsPerCoin = 10;
    c.resetInitMs = 100;
    return c;
}

std::unique_ptr<Device> makeDevice(const sim::Config& c = testConfig())
{
    auto dev = std::make_unique<Device>(c);
    dev->setWallClock([] { return qint64(1700000000); });
    return dev;
}

// One step of a scenario run against a device: a frame and its exact answer, time passing, a
// fault switched on the model, or a count the model must show.
enum StepKind { Exchange, After, Jam, Unjam, FlagJam, Emptied, DoorOpen, DoorClosed, Holds, PaidOut };

struct Step
{
    Step(const char* frame, const QByteArray& expected) : kind(Exchange), request(frame), answer(expected) {}
    // A hopper for the faults and Holds, milliseconds for After, a value for PaidOut.
    Step(StepKind k, qint64 n = 0, int hopperCount = 0) : kind(k), number(n), count(hopperCount) {}

    StepKind kind;
    const char* request = nullptr;
    QByteArray answer;
    qint64 number = 0;
    int count = 0;
};
using Script = QVector<Step>;

// Every request the driver sends, with the arguments it sends it with.
struct DriverRequest
{
    QByteArray name;
    std::function<std::unique_ptr<CcTalk::Request>()> build;
};

template <class R, class... A> std::function<std::unique_ptr<CcTalk::Request>()> make(A... args)
{
    return [=] { return std::unique_ptr<CcTalk::Request>(new R(args...)); };
}

const QList<DriverRequest>& driverRequests()
{
    using namespace CcTalk;
    using Info = ReqUnitInfo;
    static const QList<DriverRequest> rows = [] {
        QList<DriverRequest> r = {
            {"reset", make<Reset>()},
            {"simple poll", make<SimplePoll>()},
            {"manufacturer", make<ReqManufacturerId>()},
            {"category", make<ReqEquipmentCategoryId>()},
            {"product code", make<ReqProductCode>()},
            {"serial number", make<ReqSerialNumber>()},
            {"software revision", make<ReqSoftwareRevision>()},
            {"build code", make<ReqBuildCode>()},
            {"variables", make<ReqVarSet>()},
            {"fast mode", make<ModVarSet>((unsigned char)255)},
            {"activity", make<ReqActivityReg>()},
            {"error status", make<ReqErrorStatus>()},
            {"self-check", make<Selfcheck>()},
            {"acceptor serial", make<Info>(Info::CoinAcceptor, Info::SerialNumber)},
            {"acceptor firmware", make<Info>(Info::CoinAcceptor, Info::Firmware)},
            {"acceptor model", make<Info>(Info::CoinAcceptor, Info::Model)},
            {"coin id 1", make<ReqCoinId>((unsigned char)1)},
            {"coin id 16", make<ReqCoinId>((unsigned char)16)},
            {"cashbox", make<ReqCashboxValue>()},
            {"cashbox set", make<ModifyCashboxValue>(1000u)},
            {"coins in", make<ReqCoinsInByType>()},
            {"inhibit", make<ModInhibitStatus>((unsigned short)0xffff)},
            {"change algorithm", make<SetChangeAlgorithm>(SetChangeAlgorithm::Balanced)},
            {"pay 15.00", make<PayMoneyOut>(1500u)},
            {"clock", make<ReqRealTimeClock>()},
            {"clock set", make<ModRealTimeClock>(QDateTime::fromSecsSinceEpoch(1700000000))},
            {"accepted counter", make<ReqAuditCounter>((unsigned char)70, (unsigned char)4)},
            {"purge hopper 2", make<PurgeHopper>((unsigned char)2, (unsigned char)0)},
            {"hopper balance set", make<ModHopperBalance>((unsigned char)1, (unsigned short)10)},
            {"dispense pattern",
             [] {
                 auto pattern = std::make_unique<DispenseHopperPattern>();
                 pattern->addCount(1, 2);
                 pattern->addCount(3, 1);
                 return std::unique_ptr<Request>(std::move(pattern));
             }},
        };
        // Hopper 5 of the default recycler is disabled: it still answers its manifest.
        for (int h = 1; h <= 5; ++h) {
            const Info::Unit unit = Info::Unit(h + 2);
            for (Info::InfoType info :
                 {Info::Enabled, Info::SerialNumber, Info::Firmware, Info::Model, Info::Capacity})
                r.append({"hopper " + QByteArray::number(h) + " manifest " + QByteArray::number(int(info)),
                          make<Info>(unit, info)});
            r.append({"hopper " + QByteArray::number(h) + " balance", make<ReqHopperBalance>(h)});
            r.append({"hopper " + QByteArray::number(h) + " paid out",
                      make<ReqAuditCounter>((unsigned char)80, (unsigned char)h)});
            r.append({"hopper " + QByteArray::number(h) + " purged",
                      make<ReqAuditCounter>((unsigned char)87, (unsigned char)h)});
            r.append({"hopper " + QByteArray::number(h) + " counter cleared",
                      make<ClearAuditCounter>((unsigned char)80, (unsigned char)h)});
        }
        return r;
    }();
    return rows;
}

} // namespace

Q_DECLARE_METATYPE(Script)

class TestDevice : public QObject
{
    Q_OBJECT

private slots:
    void simplePollAndAddressing();
    void framesADeviceIgnores();
    void identification();
    void varSetAndModVarSet();
    void controllerManifest();
    void coinIds();
    void hopperBalance();
    void cashboxValue();
    void unknownHeadersAndWrongLengthsAreRefused();
    void coinAcceptance();
    void coinsInRestartWhenAcceptanceIsEnabledAgain();
    void fastModeAndPosition16();
    void coinRouting();
    void faultControls();
    void payMoneyOutLargestCoinsFirst();
    void payMoneyOutLargestFirstFallsBackToSmallerCoins();
    void payMoneyOutFillBalancing();
    void payMoneyOutRefusals();
    void payMoneyOutPaysExactlyWhatCanBeMade();
    void dispenseHopperPattern();
    void purgeHopper();
    void hopperRunsEmptyDuringPayout();
    void faultScenarios_data();
    void faultScenarios();
    void auditCounters();
    void auditCountersFromThePastLife();
    void realTimeClock();
    void resetReinitialises();
    void powerCycleRestartsLikeAReset();
    void coinValues_data();
    void coinValues();
    void randomFramesNeverBreakTheModel();
    void answersHaveTheLengthTheDriverExpects_data();
    void answersHaveTheLengthTheDriverExpects();
};

void TestDevice::simplePollAndAddressing()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 00 01 FE CA"), ACK);
    // The answer goes back to whoever asked.
    QCOMPARE(ask(*dev, "37 00 03 FE C8"), QByteArray("03 00 37 00 C6"));
}

void TestDevice::framesADeviceIgnores()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 00 01 FE CB"), QByteArray());    // checksum
    QCOMPARE(ask(*dev, "37 00 01 FE"), QByteArray());       // truncated
    QCOMPARE(ask(*dev, "37 01 01 FE CA"), QByteArray());    // length byte promises a data byte
    QCOMPARE(ask(*dev, "37 00 01 FE CA 00"), QByteArray()); // trailing byte
    QCOMPARE(ask(*dev, "28 00 01 FE D9"), QByteArray());    // another address
    QCOMPARE(ask(*dev, ""), QByteArray());
    // A frame to another address changes nothing: this one would have set the cashbox.
    QCOMPARE(ask(*dev, "28 04 01 76 40 E2 01 00 3A"), QByteArray());
    QCOMPARE(dev->cashbox(), 0u);
}

void TestDevice::identification()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 00 01 F5 D3"), QByteArray("01 07 37 00 43 68 61 6E 67 65 72 09")); // Changer
    QCOMPARE(ask(*dev, "37 00 01 F6 D2"), QByteArray("01 03 37 00 43 50 49 E9"));             // CPI
    QCOMPARE(ask(*dev, "37 00 01 F4 D4"), QByteArray("01 03 37 00 42 43 52 EE"));             // BCR
    QCOMPARE(ask(*dev, "37 00 01 C0 08"), QByteArray("01 06 37 00 42 43 52 33 33 30 55"));    // BCR330
    QCOMPARE(ask(*dev, "37 00 01 F1 D7"),
             QByteArray("01 0C 37 00 42 43 52 2D 52 55 2D 56 32 2E 31 34 C9"));   // BCR-RU-V2.14
    QCOMPARE(ask(*dev, "37 00 01 F2 D6"), QByteArray("01 03 37 00 2E F0 16 91")); // 1503278
}

void TestDevice::varSetAndModVarSet()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 00 01 F7 D1"), QByteArray("01 02 37 00 08 05 B9")); // 8 positions, 5 hoppers
    QCOMPARE(ask(*dev, "37 01 01 A5 FF 23"), ACK);
    QVERIFY(dev->fastMode());
    QCOMPARE(ask(*dev, "37 01 01 A5 00 22"), ACK);
    QVERIFY(!dev->fastMode());
    QCOMPARE(ask(*dev, "37 01 01 A5 01 21"), NAK);
    QCOMPARE(ask(*dev, "37 00 01 A5 23"), NAK);
    QVERIFY(!dev->fastMode());
}

void TestDevice::controllerManifest()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 02 01 54 02 05 6B"), QByteArray("01 03 37 00 A0 33 0B E7"));             // 734112
    QCOMPARE(ask(*dev, "37 02 01 54 02 01 6F"), QByteArray("01 07 37 00 43 32 2D 35 2E 33 31 58")); // C2-5.31
    QCOMPARE(ask(*dev, "37 02 01 54 02 04 6C"), QByteArray("01 05 37 00 43 32 2D 52 55 7A"));       // C2-RU
    QCOMPARE(ask(*dev, "37 02 01 54 02 00 70"), QByteArray("01 01 37 00 01 C6"));
    QCOMPARE(ask(*dev, "37 02 01 54 03 00 6F"), QByteArray("01 01 37 00 01 C6"));       // hopper 1 enabled
    QCOMPARE(ask(*dev, "37 02 01 54 07 00 6B"), QByteArray("01 01 37 00 00 C7"));       // hopper 5 disabled
    QCOMPARE(ask(*dev, "37 02 01 54 03 08 67"), QByteArray("01 02 37 00 20 03 A3"));    // capacity 800
    QCOMPARE(ask(*dev, "37 02 01 54 06 08 64"), QByteArray("01 02 37 00 E8 03 DB"));    // hopper 4: 1000
    QCOMPARE(ask(*dev, "37 02 01 54 03 05 6A"), QByteArray("01 03 37 00 E5 4E 09 89")); // 610021
    QCOMPARE(ask(*dev, "37 02 01 54 03 01 6E"), QByteArray("01 07 37 00 48 50 2D 33 2E 30 32 39")); // HP-3.02
    QCOMPARE(ask(*dev, "37 02 01 54 03 04 6B"), QByteArray("01 07 37 00 42 43 52 2D 48 4F 50 D6")); // BCR-HOP
    QCOMPARE(ask(*dev, "37 02 01 54 08 00 6A"), NAK); // there is no hopper 6
    QCOMPARE(ask(*dev, "37 02 01 54 02 08 68"), NAK); // the acceptor has no capacity
    QCOMPARE(ask(*dev, "37 02 01 54 01 00 71"), NAK);
    QCOMPARE(ask(*dev, "37 01 01 54 03 70"), NAK);
}

void TestDevice::coinIds()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 01 01 B8 01 0E"), QByteArray("01 06 37 00 52 55 31 30 30 41 49")); // RU100A
    QCOMPARE(ask(*dev, "37 01 01 B8 04 0B"), QByteArray("01 06 37 00 52 55 31 4B 30 41 2E")); // RU1K0A
    QCOMPARE(ask(*dev, "37 01 01 B8 09 06"), QByteArray("01 06 37 00 2E 2E 2E 2E 2E 2E AE")); // unused
    QCOMPARE(ask(*dev, "37 01 01 B8 00 0F"), NAK);
    QCOMPARE(ask(*dev, "37 01 01 B8 11 FE"), NAK);
}

void TestDevice::hopperBalance()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 01 01 77 01 4F"),
             QByteArray("01 08 37 00 52 55 31 4B 30 41 C8 00 64")); // RU1K0A 200
    QCOMPARE(ask(*dev, "37 01 01 77 05 4B"),
             QByteArray("01 08 37 00 52 55 30 35 30 42 00 00 42")); // RU050B 0
    QCOMPARE(ask(*dev, "37 01 01 77 06 4A"), NAK);
    QCOMPARE(ask(*dev, "37 01 01 77 00 50"), NAK);
    QCOMPARE(ask(*dev, "37 03 01 78 03 E8 03 5F"), ACK); // hopper 3 := 1000
    QCOMPARE(ask(*dev, "37 01 01 77 03 4D"), QByteArray("01 08 37 00 52 55 32 30 30 41 E8 03 5B"));
    QCOMPARE(dev->hopperCount(3), 1000);
    QCOMPARE(ask(*dev, "37 03 01 78 06 01 00 46"), NAK);
    QCOMPARE(ask(*dev, "37 02 01 78 03 01 4A"), NAK);
    QCOMPARE(dev->hopperCount(3), 1000);
}

void TestDevice::cashboxValue()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 00 01 75 53"), QByteArray("01 04 37 00 00 00 00 00 C4"));
    QCOMPARE(ask(*dev, "37 04 01 76 40 E2 01 00 2B"), ACK); // 123456
    QCOMPARE(ask(*dev, "37 00 01 75 53"), QByteArray("01 04 37 00 40 E2 01 00 A1"));
    QCOMPARE(dev->cashbox(), 123456u);
    QCOMPARE(ask(*dev, "37 03 01 76 01 00 00 4E"), NAK);
    QCOMPARE(dev->cashbox(), 123456u);
}

void TestDevice::unknownHeadersAndWrongLengthsAreRefused()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 00 01 07 C1"), NAK);
    QCOMPARE(ask(*dev, "37 02 01 C8 01 02 FB"), NAK);
    QCOMPARE(ask(*dev, "37 01 01 FE 00 C9"), NAK); // simple poll with a data byte
    QCOMPARE(ask(*dev, "37 01 01 E7 05 DB"), NAK); // inhibit mask of one byte
    QCOMPARE(ask(*dev, "37 02 01 74 01 00 51"), NAK);
    QCOMPARE(ask(*dev, "37 02 01 7D 64 00 E5"), NAK);
    QCOMPARE(ask(*dev, "37 01 01 79 03 4B"), NAK);
}

void TestDevice::coinAcceptance()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, COINS_IN),
             QByteArray("01 20 37 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                        "00 00 00 00 00 00 00 00 00 00 00 00 A8"));
    QCOMPARE(ask(*dev, "37 02 01 E7 05 00 DA"), ACK); // positions 1 and 3
    QCOMPARE(dev->inhibitMask(), quint16(0x0005));
    dev->insertCoin(1);
    dev->insertCoin(2); // inhibited: rejected
    dev->insertCoin(3);
    dev->advance(5);
    dev->insertCoin(3);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_ACCEPTING);
    dev->advance(5); // the first two have landed, the last is still in flight
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_ACCEPTING);
    QCOMPARE(dev->coinsInByType(3), quint16(1));
    dev->advance(5);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(ask(*dev, COINS_IN),
             QByteArray("01 20 37 00 01 00 00 00 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                        "00 00 00 00 00 00 00 00 00 00 00 00 A5"));
    QCOMPARE(dev->hopperCount(4), 401); // RU100A
    QCOMPARE(dev->hopperCount(2), 252); // RU500A
    QCOMPARE(dev->hopperCount(3), 300); // the rejected RU200A went nowhere
    QCOMPARE(dev->cashbox(), 0u);
    QCOMPARE(dev->valueAccepted(), quint64(1100));
    QCOMPARE(ask(*dev, "37 02 01 56 46 01 29"), QByteArray("01 04 37 00 01 00 00 00 C3"));
    QCOMPARE(dev->auditCounter(sim::audit::Accepted, 2), 0u);
    QCOMPARE(dev->auditCounter(sim::audit::Accepted, 3), 2u);
}

void TestDevice::coinsInRestartWhenAcceptanceIsEnabledAgain()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 02 01 E7 05 00 DA"), ACK);
    dev->insertCoin(1);
    dev->advance(20);
    QCOMPARE(dev->coinsInByType(1), quint16(1));
    // Changing the mask while acceptance stays enabled keeps the counters.
    QCOMPARE(ask(*dev, "37 02 01 E7 FF FF E1"), ACK);
    QCOMPARE(dev->coinsInByType(1), quint16(1));
    QCOMPARE(ask(*dev, "37 02 01 E7 00 00 DF"), ACK);
    QCOMPARE(dev->coinsInByType(1), quint16(1)); // still readable after acceptance stopped
    dev->insertCoin(1);                          // inhibited now
    dev->advance(20);
    QCOMPARE(dev->coinsInByType(1), quint16(1));
    QCOMPARE(ask(*dev, "37 02 01 E7 05 00 DA"), ACK);
    QCOMPARE(ask(*dev, COINS_IN),
             QByteArray("01 20 37 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                        "00 00 00 00 00 00 00 00 00 00 00 00 A8"));
    // The audit counter is a lifetime count.
    QCOMPARE(ask(*dev, "37 02 01 56 46 01 29"), QByteArray("01 04 37 00 01 00 00 00 C3"));
}

void TestDevice::fastModeAndPosition16()
{
    sim::Config c = testConfig();
    c.coinIds.insert(16, QStringLiteral("RU1K0A"));
    auto dev = makeDevice(c);
    QCOMPARE(ask(*dev, "37 00 01 F7 D1"), QByteArray("01 02 37 00 10 05 B1"));
    QCOMPARE(ask(*dev, "37 02 01 E7 FF FF E1"), ACK);
    QCOMPARE(ask(*dev, "37 01 01 A5 FF 23"), ACK);
    for (int i = 0; i < 7; ++i)
        dev->insertCoin(16);
    dev->advance(4);
    QCOMPARE(dev->coinsInByType(16), quint16(0));
    dev->advance(1);
    QCOMPARE(ask(*dev, COINS_IN),
             QByteArray("01 20 37 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                        "00 00 00 00 00 00 00 00 00 00 07 00 A1"));
    QCOMPARE(ask(*dev, "37 01 01 A5 00 22"), ACK);
    dev->insertCoin(16);
    dev->advance(9);
    QCOMPARE(dev->coinsInByType(16), quint16(7));
    dev->advance(1);
    QCOMPARE(dev->coinsInByType(16), quint16(8));
}

void TestDevice::coinRouting()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 02 01 E7 FF FF E1"), ACK);
    dev->setHopperCount(1, 800); // full
    dev->insertCoin(4);          // RU1K0A: no room, cashbox
    dev->insertCoin(5);          // RU010A: no hopper holds it
    dev->insertCoin(6);          // RU050B: its hopper is disabled
    dev->advance(20);
    QCOMPARE(dev->cashbox(), 1060u);
    QCOMPARE(dev->hopperCount(1), 800);
    QCOMPARE(dev->hopperCount(5), 0);
    dev->setHopperCount(1, 799);
    dev->insertCoin(8); // RU1K0B, another issue of the hopper's coin
    dev->insertCoin(8); // hopper full again: cashbox
    dev->insertCoin(7); // RU100B into the RU100A hopper
    dev->advance(20);
    QCOMPARE(dev->hopperCount(1), 800);
    QCOMPARE(dev->hopperCount(4), 401);
    QCOMPARE(dev->cashbox(), 2060u);
    QCOMPARE(dev->valueAccepted(), quint64(1060 + 2100));
}

void TestDevice::faultControls()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, ERROR_STATUS), NO_ERROR);
    QCOMPARE(ask(*dev, SELF_CHECK), NO_ERROR);
    dev->setErrorStatus(3, 2);
    dev->setSelfCheck(26, 12);
    dev->setActivityBits(CcTalk::ReqActivityRegResp::Fault);
    QCOMPARE(ask(*dev, ERROR_STATUS), QByteArray("01 02 37 00 03 02 C1"));
    QCOMPARE(ask(*dev, SELF_CHECK), QByteArray("01 02 37 00 1A 0C A0"));
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_FAULT);
    // Faults set from outside survive a reset.
    QCOMPARE(ask(*dev, "37 00 01 01 C7"), ACK);
    dev->advance(200);
    QCOMPARE(ask(*dev, ERROR_STATUS), QByteArray("01 02 37 00 03 02 C1"));
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_FAULT);
    dev->clearFaults();
    QCOMPARE(ask(*dev, ERROR_STATUS), NO_ERROR);
    QCOMPARE(ask(*dev, SELF_CHECK), NO_ERROR);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
}

void TestDevice::payMoneyOutLargestCoinsFirst()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 01 01 50 00 77"), ACK);
    QCOMPARE(ask(*dev, "37 04 01 7D A4 06 00 00 9D"), ACK); // 1700
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_PAYING);
    QCOMPARE(ask(*dev, "37 04 01 7D 64 00 00 00 E3"), BUSY); // a second payout while paying
    dev->advance(25);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_PAYING);
    QCOMPARE(dev->hopperCount(1), 199);
    QCOMPARE(dev->hopperCount(2), 249);
    QCOMPARE(dev->hopperCount(3), 300);
    dev->advance(5);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(dev->hopperCount(3), 299);
    QCOMPARE(dev->hopperCount(4), 400);
    QCOMPARE(ask(*dev, "37 02 01 56 50 01 1F"), QByteArray("01 04 37 00 01 00 00 00 C3"));
    QCOMPARE(dev->coinsPaidOut(), quint64(1700));
    QCOMPARE(ask(*dev, "37 00 01 7C 4C"), QByteArray("01 09 37 00 01 A4 06 00 00 00 00 00 00 14"));
}

void TestDevice::payMoneyOutLargestFirstFallsBackToSmallerCoins()
{
    auto dev = makeDevice();
    dev->setHopperCount(1, 0);
    dev->setHopperCount(4, 0);
    // 600 with 5 and 2 rouble coins: one 5 would leave 1 rouble that cannot be made.
    QCOMPARE(ask(*dev, "37 04 01 7D 58 02 00 00 ED"), ACK);
    dev->advance(100);
    QCOMPARE(dev->hopperCount(2), 250);
    QCOMPARE(dev->hopperCount(3), 297);
    QCOMPARE(dev->coinsPaidOut(), quint64(600));
    QCOMPARE(ask(*dev, "37 00 01 7C 4C"), QByteArray("01 09 37 00 01 58 02 00 00 00 00 00 00 64"));
}

void TestDevice::payMoneyOutFillBalancing()
{
    auto dev = makeDevice();
    dev->setHopperCount(1, 100); // 100/800
    dev->setHopperCount(2, 600); // 600/800, the fullest
    dev->setHopperCount(3, 300); // 300/1000
    dev->setHopperCount(4, 400); // 400/1000
    QCOMPARE(ask(*dev, "37 01 01 50 02 75"), ACK);
    QCOMPARE(dev->changeAlgorithm(), 2);
    QCOMPARE(ask(*dev, "37 04 01 7D B8 0B 00 00 84"), ACK); // 3000
    dev->advance(1000);
    QCOMPARE(dev->hopperCount(1), 100);
    QCOMPARE(dev->hopperCount(2), 594);
    QCOMPARE(dev->hopperCount(3), 300);
    QCOMPARE(dev->hopperCount(4), 400);

    // Two hoppers equally full share the payout coin by coin.
    dev->setHopperCount(2, 100);
    dev->setHopperCount(3, 500);
    dev->setHopperCount(4, 500);
    QCOMPARE(ask(*dev, "37 04 01 7D 58 02 00 00 ED"), ACK); // 600
    dev->advance(1000);
    QCOMPARE(dev->hopperCount(2), 100);
    QCOMPARE(dev->hopperCount(3), 498);
    QCOMPARE(dev->hopperCount(4), 498);

    // The same amounts by largest coins first.
    QCOMPARE(ask(*dev, "37 01 01 50 00 77"), ACK);
    QCOMPARE(ask(*dev, "37 04 01 7D 58 02 00 00 ED"), ACK);
    dev->advance(1000);
    QCOMPARE(dev->hopperCount(2), 99);
    QCOMPARE(dev->hopperCount(4), 497);
    QCOMPARE(ask(*dev, "37 04 01 7D B8 0B 00 00 84"), ACK);
    dev->advance(1000);
    QCOMPARE(dev->hopperCount(1), 97);
    QCOMPARE(dev->coinsPaidOut(), quint64(3000 + 600 + 600 + 3000));
}

void TestDevice::payMoneyOutRefusals()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 04 01 7D 32 00 00 00 15"), NAK); // 50: the 50 kopeck hopper is disabled
    QCOMPARE(ask(*dev, "37 04 01 7D 0E 06 00 00 33"), NAK); // 1550
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(ask(*dev, "37 04 01 7D 00 00 00 00 47"), ACK); // nothing to pay
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(ask(*dev, "37 01 01 50 01 76"), NAK);
    QCOMPARE(ask(*dev, "37 01 01 50 03 74"), NAK);
    QCOMPARE(ask(*dev, "37 00 01 50 78"), NAK);
    QCOMPARE(ask(*dev, "37 01 01 50 02 75"), ACK);
    QCOMPARE(ask(*dev, "37 04 01 7D 0E 06 00 00 33"), NAK);
    QCOMPARE(dev->coinsPaidOut(), quint64(0));
}

void TestDevice::payMoneyOutPaysExactlyWhatCanBeMade()
{
    std::mt19937 rng(4242);
    std::uniform_int_distribution<int> count(0, 4), hundreds(0, 80);
    for (int round = 0; round < 400; ++round) {
        auto dev = makeDevice();
        int counts[4];
        for (int h = 0; h < 4; ++h) {
            counts[h] = count(rng);
            dev->setHopperCount(h + 1, counts[h]);
        }
        const quint32 amount = quint32(hundreds(rng) * 100);
        bool feasible = false;
        for (int a = 0; a <= counts[0]; ++a)
            for (int b = 0; b <= counts[1]; ++b)
                for (int c = 0; c <= counts[2]; ++c)
                    for (int d = 0; d <= counts[3]; ++d)
                        feasible = feasible || quint32(a * 1000 + b * 500 + c * 200 + d * 100) == amount;
        QByteArray data;
        data.append(char(round % 2 ? 2 : 0));
        QCOMPARE(dev->handleFrame(sim::frame::make(0x37, 1, 80, data)).toHex(' ').toUpper(), ACK);
        data.clear();
        for (int i = 0; i < 4; ++i)
            data.append(char((amount >> (8 * i)) & 0xFF));
        const QByteArray answer = dev->handleFrame(sim::frame::make(0x37, 1, 125, data)).toHex(' ').toUpper();
        QCOMPARE(answer, feasible ? ACK : NAK);
        dev->advance(1000);
        QCOMPARE(dev->coinsPaidOut(), quint64(feasible ? amount : 0));
        QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
        for (int h = 0; h < 4; ++h)
            QVERIFY(dev->hopperCount(h + 1) >= 0 && dev->hopperCount(h + 1) <= counts[h]);
    }
}

void TestDevice::dispenseHopperPattern()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 04 01 55 01 03 02 02 67"), ACK); // 3 from hopper 1, 2 from hopper 2
    dev->advance(25);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_PAYING);
    QCOMPARE(ask(*dev, "37 02 01 55 04 01 6C"), BUSY);
    QCOMPARE(dev->hopperCount(1), 198);
    dev->advance(25);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(dev->hopperCount(1), 197);
    QCOMPARE(dev->hopperCount(2), 248);
    QCOMPARE(dev->hopperCount(4), 400);
    QCOMPARE(dev->coinsPaidOut(), quint64(4000));
    QCOMPARE(ask(*dev, "37 02 01 56 50 01 1F"), QByteArray("01 04 37 00 03 00 00 00 C1"));
    QCOMPARE(ask(*dev, "37 02 01 56 50 02 1E"), QByteArray("01 04 37 00 02 00 00 00 C2"));

    QCOMPARE(ask(*dev, "37 03 01 55 01 03 02 6A"), NAK); // half a pair
    QCOMPARE(ask(*dev, "37 02 01 55 05 01 6B"), NAK);    // disabled hopper
    QCOMPARE(ask(*dev, "37 02 01 55 09 01 67"), NAK);    // no such hopper
    QCOMPARE(ask(*dev, "37 00 01 55 73"), ACK);          // an empty pattern pays nothing
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(dev->hopperCount(1), 197);
}

void TestDevice::purgeHopper()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 03 01 78 03 05 00 45"), ACK); // hopper 3 holds 5
    QCOMPARE(ask(*dev, "37 02 01 79 03 00 4A"), ACK);    // empty it
    dev->advance(45);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_PAYING);
    // The sixth slot finds the hopper empty and ends the purge without a fault.
    dev->advance(15);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(ask(*dev, ERROR_STATUS), NO_ERROR);
    QCOMPARE(dev->hopperCount(3), 0);
    QCOMPARE(ask(*dev, "37 02 01 56 57 03 16"), QByteArray("01 04 37 00 05 00 00 00 BF"));
    QCOMPARE(ask(*dev, "37 02 01 56 50 03 1D"), QByteArray("01 04 37 00 00 00 00 00 C4"));

    QCOMPARE(ask(*dev, "37 02 01 79 04 02 47"), ACK); // two coins from hopper 4
    dev->advance(20);
    QCOMPARE(dev->hopperCount(4), 398);
    QCOMPARE(ask(*dev, "37 02 01 56 57 04 15"), QByteArray("01 04 37 00 02 00 00 00 C2"));
    QCOMPARE(dev->coinsPaidOut(), quint64(5 * 200 + 2 * 100));
    QCOMPARE(ask(*dev, "37 02 01 79 05 00 48"), NAK);
}

void TestDevice::hopperRunsEmptyDuringPayout()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 03 01 78 02 03 00 48"), ACK); // hopper 2 holds 3
    QCOMPARE(ask(*dev, "37 02 01 55 02 05 6A"), ACK);    // five asked
    dev->advance(40);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_WARNING);
    QCOMPARE(ask(*dev, ERROR_STATUS), QByteArray("01 02 37 00 02 01 C3"));
    QCOMPARE(ask(*dev, SELF_CHECK), NO_ERROR);
    QCOMPARE(dev->hopperCount(2), 0);
    QCOMPARE(ask(*dev, "37 02 01 56 50 02 1E"), QByteArray("01 04 37 00 03 00 00 00 C1"));
    // Refilling the hopper clears the warning.
    QCOMPARE(ask(*dev, "37 03 01 78 02 09 00 42"), ACK);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(ask(*dev, ERROR_STATUS), NO_ERROR);
}

void TestDevice::faultScenarios_data()
{
    QTest::addColumn<Script>("script");
    QTest::newRow("hopper emptied behind the device's back") << Script{
        {Emptied, 2},
        {Holds, 2, 250},                     // the device does not know yet
        {"37 04 01 7D A4 06 00 00 9D", ACK}, // 1700 = 1000 + 500 + 200
        {After, 100},
        {ACTIVITY, ACTIVITY_WARNING},
        {ERROR_STATUS, QByteArray("01 02 37 00 02 01 C3")},
        {Holds, 2, 0},
        {PaidOut, 1200},
        // Paid 1200 of 1700, 500 short.
        {"37 00 01 7C 4C", QByteArray("01 09 37 00 01 B0 04 00 00 F4 01 00 00 15")},
        // A reset clears the warning; the count stays what the device found.
        {"37 00 01 01 C7", ACK},
        {After, 100},
        {ACTIVITY, ACTIVITY_IDLE},
        {ERROR_STATUS, NO_ERROR},
        {"37 01 01 77 02 4E", QByteArray("01 08 37 00 52 55 35 30 30 41 00 00 43")},
    };
    QTest::newRow("hopper jam and reset") << Script{
        {Jam, 1},
        {"37 02 01 55 01 03 6D", ACK},
        {After, 10},
        {ACTIVITY, ACTIVITY_FAULT}, // payout stopped, fault raised
        {ERROR_STATUS, QByteArray("01 02 37 00 01 02 C3")},
        {Holds, 1, 200},
        {PaidOut, 0},
        {"37 00 01 01 C7", ACK},
        {ACTIVITY, ACTIVITY_INITIALISING},
        {"37 02 01 55 01 03 6D", BUSY},
        {After, 99},
        {ACTIVITY, ACTIVITY_INITIALISING},
        {After, 1},
        {ACTIVITY, ACTIVITY_IDLE},
        {ERROR_STATUS, NO_ERROR},
        // Still jammed: the next payout from it faults again.
        {"37 02 01 55 01 03 6D", ACK},
        {After, 10},
        {ERROR_STATUS, QByteArray("01 02 37 00 01 02 C3")},
        {Unjam, 1},
        {"37 00 01 01 C7", ACK},
        {After, 100},
        {"37 02 01 55 01 03 6D", ACK},
        {After, 30},
        {ACTIVITY, ACTIVITY_IDLE},
        {Holds, 1, 197},
    };
    // A jam found outside a payout: flagged at once, cleared by a reset, the hopper still jammed.
    QTest::newRow("hopper jam flagged at once") << Script{
        {FlagJam, 2},
        {ACTIVITY, ACTIVITY_FAULT},
        {ERROR_STATUS, QByteArray("01 02 37 00 02 02 C2")},
        {"37 00 01 01 C7", ACK},
        {After, 100},
        {ACTIVITY, ACTIVITY_IDLE},
        {ERROR_STATUS, NO_ERROR},
        {"37 02 01 55 02 03 6C", ACK},
        {After, 10},
        {ERROR_STATUS, QByteArray("01 02 37 00 02 02 C2")},
        {PaidOut, 0},
        {FlagJam, 9},
        {ERROR_STATUS, QByteArray("01 02 37 00 02 02 C2")},
    };
    QTest::newRow("door open") << Script{
        {DoorOpen},
        {ACTIVITY, ACTIVITY_FAULT},
        {ERROR_STATUS, QByteArray("01 02 37 00 FF FF C8")}, // run the self-check
        {SELF_CHECK, QByteArray("01 02 37 00 33 00 93")},   // door open
        {"37 00 01 ED DB", QByteArray("01 01 37 00 01 C6")},
        {"37 04 01 7D 64 00 00 00 E3", NAK},
        {"37 02 01 55 04 01 6C", NAK},
        {"37 02 01 79 03 00 4A", NAK},
        {DoorClosed},
        {ACTIVITY, ACTIVITY_IDLE},
        {ERROR_STATUS, NO_ERROR},
        {SELF_CHECK, NO_ERROR},
        {"37 00 01 ED DB", QByteArray("01 01 37 00 00 C7")},
        {"37 04 01 7D 64 00 00 00 E3", ACK},
    };
}

void TestDevice::faultScenarios()
{
    QFETCH(Script, script);
    auto dev = makeDevice();
    for (int i = 0; i < script.size(); ++i) {
        const Step& step = script.at(i);
        const int hopper = int(step.number);
        const QByteArray where = "step " + QByteArray::number(i + 1) + ": ";
        switch (step.kind) {
        case Exchange: {
            const QByteArray answer = ask(*dev, step.request);
            QVERIFY2(answer == step.answer,
                     (where + step.request + " answered \"" + answer + "\", expected \"" + step.answer + '"')
                         .constData());
            break;
        }
        case After:
            dev->advance(step.number);
            break;
        case Jam:
            dev->jamHopper(hopper);
            break;
        case Unjam:
            dev->jamHopper(hopper, false);
            break;
        case FlagJam:
            dev->flagHopperJam(hopper);
            break;
        case Emptied:
            dev->emptyHopper(hopper);
            break;
        case DoorOpen:
        case DoorClosed:
            dev->openDoor(step.kind == DoorOpen);
            break;
        case Holds:
            QVERIFY2(dev->hopperCount(hopper) == step.count,
                     (where + "hopper " + QByteArray::number(hopper) + " holds " +
                      QByteArray::number(dev->hopperCount(hopper)))
                         .constData());
            break;
        case PaidOut:
            QVERIFY2(dev->coinsPaidOut() == quint64(step.number),
                     (where + "paid out " + QByteArray::number(dev->coinsPaidOut())).constData());
            break;
        }
    }
}

void TestDevice::auditCounters()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 04 01 55 01 03 02 02 67"), ACK);
    dev->advance(100);
    QCOMPARE(ask(*dev, "37 02 01 56 50 01 1F"), QByteArray("01 04 37 00 03 00 00 00 C1"));
    QCOMPARE(ask(*dev, "37 02 01 56 57 01 18"), QByteArray("01 04 37 00 00 00 00 00 C4"));
    QCOMPARE(ask(*dev, "37 02 01 57 50 01 1E"), ACK); // maintenance reset of hopper 1
    QCOMPARE(ask(*dev, "37 02 01 56 50 01 1F"), QByteArray("01 04 37 00 00 00 00 00 C4"));
    QCOMPARE(ask(*dev, "37 02 01 56 50 02 1E"), QByteArray("01 04 37 00 02 00 00 00 C2"));
    QCOMPARE(ask(*dev, "37 02 01 56 50 00 20"), NAK);
    QCOMPARE(ask(*dev, "37 02 01 56 63 01 0C"), NAK);
    QCOMPARE(ask(*dev, "37 02 01 56 46 11 19"), NAK);
    QCOMPARE(dev->hopperCount(1), 197); // clearing a counter moves no coin
}

// Counters preset as a device's past life left them count on from there, wrapping as they do.
void TestDevice::auditCountersFromThePastLife()
{
    sim::Config c = testConfig();
    c.auditCounters[70][1] = 0x80000000u;
    c.auditCounters[87][2] = 5;
    auto dev = makeDevice(c);
    QCOMPARE(ask(*dev, "37 02 01 56 46 01 29"), QByteArray("01 04 37 00 00 00 00 80 44"));
    QCOMPARE(ask(*dev, "37 02 01 56 57 02 17"), QByteArray("01 04 37 00 05 00 00 00 BF"));
    QCOMPARE(dev->auditCounter(80, 1), 0u);

    QVERIFY(dev->setAuditCounter(80, 1, 0xFFFFFFFFu));
    QCOMPARE(ask(*dev, "37 02 01 56 50 01 1F"), QByteArray("01 04 37 00 FF FF FF FF C8"));
    QVERIFY(dev->setAuditCounter(80, 1, 0xFFFFFFFEu));
    QCOMPARE(ask(*dev, "37 04 01 55 01 03 02 02 67"), ACK);
    dev->advance(100);
    QCOMPARE(ask(*dev, "37 02 01 56 50 01 1F"), QByteArray("01 04 37 00 01 00 00 00 C3"));

    QVERIFY(dev->setAuditCounter(70, 1, 0xFFFFFFFFu));
    QCOMPARE(ask(*dev, "37 02 01 E7 FF FF E1"), ACK);
    dev->insertCoin(1);
    dev->advance(20);
    QCOMPARE(dev->auditCounter(70, 1), 0u);

    QCOMPARE(ask(*dev, "37 02 01 57 57 02 16"), ACK);
    QCOMPARE(dev->auditCounter(87, 2), 0u);

    QVERIFY(dev->setAuditCounter(80, 5, 7));
    QVERIFY(!dev->setAuditCounter(80, 6, 7));
    QVERIFY(!dev->setAuditCounter(87, 0, 7));
    QVERIFY(!dev->setAuditCounter(70, 17, 7));
    QVERIFY(!dev->setAuditCounter(71, 1, 7));
    QCOMPARE(ask(*dev, "37 02 01 56 50 06 1A"), NAK);
}

void TestDevice::realTimeClock()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 00 01 73 55"), QByteArray("01 04 37 00 00 F1 53 65 1B")); // 1700000000
    QCOMPARE(ask(*dev, "37 04 01 74 64 F1 53 65 43"), ACK);                          // 1700000100
    QCOMPARE(ask(*dev, "37 00 01 73 55"), QByteArray("01 04 37 00 64 F1 53 65 B7"));
    QCOMPARE(dev->deviceClock(), qint64(1700000100));
    QCOMPARE(ask(*dev, "37 02 01 74 01 00 51"), NAK);

    sim::Config c = testConfig();
    c.clockOffsetSecs = 100;
    auto offset = makeDevice(c);
    QCOMPARE(ask(*offset, "37 00 01 73 55"), QByteArray("01 04 37 00 64 F1 53 65 B7"));
}

void TestDevice::resetReinitialises()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 02 01 E7 05 00 DA"), ACK);
    QCOMPARE(ask(*dev, "37 01 01 A5 FF 23"), ACK);
    QCOMPARE(ask(*dev, "37 01 01 50 02 75"), ACK);
    dev->insertCoin(1);
    dev->advance(20);
    QCOMPARE(dev->coinsInByType(1), quint16(1));
    QCOMPARE(ask(*dev, "37 00 01 01 C7"), ACK);
    QCOMPARE(dev->resets(), 1);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_INITIALISING);
    QCOMPARE(dev->inhibitMask(), quint16(0));
    QVERIFY(!dev->fastMode());
    QCOMPARE(dev->changeAlgorithm(), 0);
    QCOMPARE(dev->coinsInByType(1), quint16(0));
    QCOMPARE(ask(*dev, "37 00 01 FE CA"), ACK); // it still answers while initialising
    dev->advance(100);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(dev->hopperCount(4), 401); // hopper contents survive
}

void TestDevice::powerCycleRestartsLikeAReset()
{
    auto dev = makeDevice();
    QCOMPARE(ask(*dev, "37 02 01 E7 05 00 DA"), ACK);
    QCOMPARE(ask(*dev, "37 01 01 A5 FF 23"), ACK);
    dev->insertCoin(1);
    dev->advance(20);
    dev->insertCoin(3);
    QCOMPARE(ask(*dev, "37 04 01 55 04 01 02 01 67"), ACK); // hopper 4 one coin, hopper 2 one
    dev->powerCycle();
    QCOMPARE(dev->resets(), 1);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_INITIALISING);
    QCOMPARE(dev->inhibitMask(), quint16(0));
    QVERIFY(!dev->fastMode());
    QCOMPARE(dev->coinsInByType(1), quint16(0));
    QCOMPARE(dev->coinsInFlight(), 0);
    QCOMPARE(dev->coinsQueuedForPayout(), 0);
    dev->advance(100);
    QCOMPARE(ask(*dev, ACTIVITY), ACTIVITY_IDLE);
    QCOMPARE(dev->auditCounter(sim::audit::Accepted, 1), 1u);
    QCOMPARE(dev->auditCounter(sim::audit::Accepted, 3), 0u);
    QCOMPARE(dev->auditCounter(sim::audit::PaidOut, 4), 0u);
    QCOMPARE(dev->hopperCount(4), 401);
}

void TestDevice::coinValues_data()
{
    testsupport::columns<QString, quint32>("coinId", "value");
    QTest::newRow("RU010A") << QStringLiteral("RU010A") << 10u;
    QTest::newRow("RU050B") << QStringLiteral("RU050B") << 50u;
    QTest::newRow("RU500A") << QStringLiteral("RU500A") << 500u;
    QTest::newRow("RU1K0A") << QStringLiteral("RU1K0A") << 1000u;
    QTest::newRow("RU2K5A") << QStringLiteral("RU2K5A") << 2500u;
    QTest::newRow("RU1M0A") << QStringLiteral("RU1M0A") << 1000000u;
    QTest::newRow("......") << QStringLiteral("......") << 0u;
    QTest::newRow("RU10A") << QStringLiteral("RU10A") << 0u;
}

void TestDevice::coinValues()
{
    QFETCH(QString, coinId);
    QFETCH(quint32, value);
    QCOMPARE(sim::coinValue(coinId), value);
}

void TestDevice::randomFramesNeverBreakTheModel()
{
    auto dev = makeDevice();
    std::mt19937 rng(12345);
    std::uniform_int_distribution<int> byte(0, 255), len(0, 12), pick(0, 9);
    const quint8 headers[] = {1,   80,  82,  84,  85,  86,  87,  115, 116, 117, 118, 119, 120,
                              121, 122, 123, 124, 125, 165, 184, 231, 232, 237, 247, 254};
    int answered = 0;
    for (int i = 0; i < 20000; ++i) {
        QByteArray f;
        const int n = len(rng);
        f.append(char(pick(rng) == 0 ? byte(rng) : 0x37));
        f.append(char(n));
        f.append(char(pick(rng) == 0 ? byte(rng) : 1));
        f.append(char(pick(rng) < 7 ? headers[std::size_t(byte(rng)) % sizeof headers] : quint8(byte(rng))));
        for (int k = 0; k < n; ++k)
            f.append(char(pick(rng) < 5 ? byte(rng) % 8 : byte(rng)));
        quint8 sum = 0;
        for (char c : f)
            sum = quint8(sum + quint8(c));
        f.append(char(pick(rng) == 0 ? byte(rng) : quint8(0x100 - sum)));
        if (pick(rng) == 0)
            f.chop(1 + pick(rng) % 3);
        const QByteArray a = dev->handleFrame(f);
        if (!a.isEmpty()) {
            ++answered;
            quint8 s = 0;
            for (char c : a)
                s = quint8(s + quint8(c));
            QCOMPARE(s, quint8(0));
            QCOMPARE(a.size(), quint8(a.at(1)) + 5);
            QCOMPARE(a.at(0), f.at(2));
            QCOMPARE(quint8(a.at(2)), quint8(0x37));
            const quint8 h = quint8(a.at(3));
            QVERIFY(h == 0 || h == 5 || h == 6);
        }
        if (i % 7 == 0)
            dev->insertCoin(1 + pick(rng));
        dev->advance(pick(rng));
    }
    QVERIFY(answered > 1000);
    for (int h = 1; h <= dev->hopperCount(); ++h)
        QVERIFY(dev->hopperCount(h) >= 0 && dev->hopperCount(h) <= 65535);
}

// The driver rejects an answer of any other data length, so every answer of the simulated
// recycler to what the driver sends must have the length the driver expects.
void TestDevice::answersHaveTheLengthTheDriverExpects_data()
{
    testsupport::columns<int>("row");
    for (int i = 0; i < driverRequests().size(); ++i)
        QTest::newRow(driverRequests().at(i).name.constData()) << i;
}

void TestDevice::answersHaveTheLengthTheDriverExpects()
{
    QFETCH(int, row);
    auto dev = makeDevice();
    const std::unique_ptr<CcTalk::Request> request = driverRequests().at(row).build();
    request->setAddress(55);
    const QByteArray answer = dev->handleFrame(QByteArray(*request));
    QVERIFY(sim::frame::isComplete(answer));
    QCOMPARE(int(sim::frame::header(answer)), int(sim::frame::Ack));
    const int size = sim::frame::data(answer).size();
    QVERIFY2(
        request->answerLength().fits(size),
        qPrintable(
            QStringLiteral("%1 data bytes, expected %2").arg(size).arg(request->answerLength().toLog())));
}

QTEST_GUILESS_MAIN(TestDevice)
#include "tst_device.moc"
