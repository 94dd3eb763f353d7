// The simulator's request handling: arbitrary bytes, well-formed commands, controls and the
// passing of time go through the frame reader into the device model. Every frame the reader
// hands on is whole and checksum-correct, no byte is lost track of, and every answer is one
// frame from the device's address to the asker with ACK, NAK or BUSY.

#include "device.h"
#include "frame.h"
#include "fuzzinput.h"

namespace {

using fuzz::check;

const quint8 knownHeaders[] = {
    sim::cmd::Reset,
    sim::cmd::SetChangeAlgorithm,
    sim::cmd::ReqCoinsInByType,
    sim::cmd::ReqControllerManifest,
    sim::cmd::DispenseHopperPattern,
    sim::cmd::ReqAuditCounter,
    sim::cmd::ClearAuditCounter,
    sim::cmd::ReqRealTimeClock,
    sim::cmd::ModRealTimeClock,
    sim::cmd::ReqCashboxValue,
    sim::cmd::ModCashboxValue,
    sim::cmd::ReqHopperBalance,
    sim::cmd::ModHopperBalance,
    sim::cmd::PurgeHopper,
    sim::cmd::ReqErrorStatus,
    sim::cmd::ReqActivityReg,
    sim::cmd::VerifyMoneyOut,
    sim::cmd::PayMoneyOut,
    sim::cmd::ModVarSet,
    sim::cmd::ReqCoinId,
    sim::cmd::ReqBuildCode,
    sim::cmd::ModInhibitStatus,
    sim::cmd::PerformSelfcheck,
    sim::cmd::ReadInputLines,
    sim::cmd::ReqSoftwareRevision,
    sim::cmd::ReqSerialNumber,
    sim::cmd::ReqProductCode,
    sim::cmd::ReqEquipmentCategoryId,
    sim::cmd::ReqManufacturerId,
    sim::cmd::ReqVarSet,
    sim::cmd::SimplePoll,
};

class Harness
{
public:
    Harness() : device(sim::Config::defaults())
    {
        device.setWallClock([] { return qint64(1700000000); });
    }

    void feed(const QByteArray& bytes)
    {
        fed += quint64(bytes.size());
        handle(reader.feed(bytes, now));
    }

    void advance(qint64 ms)
    {
        now += ms;
        device.advanceTo(now);
        handle(reader.expire(now));
        check(device.now() >= now, "the model's clock fell behind");
    }

    void directAnswer(quint8 src, quint8 header, const QByteArray& data)
    {
        checkAnswer(device.answer(src, header, data), src);
    }

    void checkModel() const
    {
        check(reader.pending().size() < 260, "the reader holds more than one partial frame");
        check(fed == taken + reader.discardedBytes() + quint64(reader.pending().size()),
              "the reader lost track of bytes");
        for (int h = 1; h <= device.hopperCount(); ++h) {
            const int count = device.hopperCount(h);
            check(count >= 0 && count <= 65535, "hopper count out of range");
        }
        check(device.coinsInFlight() >= 0 && device.coinsQueuedForPayout() >= 0, "negative queues");
    }

    sim::Device device;

private:
    void handle(const QList<QByteArray>& frames)
    {
        for (const QByteArray& f : frames) {
            check(sim::frame::isComplete(f), "the reader passed on a broken frame");
            taken += quint64(f.size());
            const QByteArray answer = device.handleFrame(f);
            if (sim::frame::dest(f) != device.config().address) {
                check(answer.isEmpty(), "answered a frame for another address");
                continue;
            }
            checkAnswer(answer, sim::frame::source(f));
        }
    }

    void checkAnswer(const QByteArray& answer, quint8 asker) const
    {
        if (answer.isEmpty())
            return;
        check(sim::frame::isComplete(answer), "the answer is not one whole frame");
        check(sim::frame::dest(answer) == asker, "the answer goes to someone else");
        check(sim::frame::source(answer) == device.config().address, "the answer is not from the device");
        const quint8 header = sim::frame::header(answer);
        check(header == sim::frame::Ack || header == sim::frame::Nak || header == sim::frame::Busy,
              "the answer header is not ACK, NAK or BUSY");
        if (header != sim::frame::Ack)
            check(sim::frame::data(answer).isEmpty(), "a refusal carries data");
    }

    sim::FrameReader reader;
    qint64 now = 0;
    quint64 fed = 0;
    quint64 taken = 0;
};

quint8 headerFrom(fuzz::FuzzInput& input)
{
    const uint8_t pick = input.takeByte();
    if (pick & 0x80)
        return input.takeByte();
    return knownHeaders[pick % (sizeof knownHeaders)];
}

void control(Harness& h, fuzz::FuzzInput& input)
{
    const uint8_t what = input.takeByte();
    const uint8_t a = input.takeByte();
    const uint8_t b = input.takeByte();
    switch (what % 9) {
    case 0:
    case 1:
        h.device.insertCoin(int(a % 18) - 1);
        break;
    case 2:
        h.device.jamHopper(int(a % 8) - 1, b & 1);
        break;
    case 3:
        h.device.emptyHopper(int(a % 8) - 1);
        break;
    case 4:
        h.device.openDoor(a & 1);
        break;
    case 5:
        h.device.setErrorStatus(a, b);
        break;
    case 6:
        h.device.setSelfCheck(a, b);
        break;
    case 7:
        h.device.setActivityBits(quint16(a | (b << 8)));
        break;
    default:
        h.device.clearFaults();
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    fuzz::FuzzInput input(bytes, size);
    Harness h;
    while (!input.empty()) {
        switch (input.takeByte() % 6) {
        case 0:
            h.feed(input.takeBytes(input.takeByte()));
            break;
        case 1:
        case 2: {
            const uint8_t to = input.takeByte();
            // Mostly to the device, sometimes to another station; now and then from one.
            const quint8 dest = to < 224 ? h.device.config().address : to;
            const quint8 src = to & 1 ? 1 : quint8(to >> 1);
            const quint8 header = headerFrom(input);
            const QByteArray data = input.takeBytes(input.takeByte() % 40);
            QByteArray f = sim::frame::make(dest, src, header, data);
            // A frame cut short or split across reads.
            const uint8_t cut = input.takeByte();
            if (cut < 16) {
                h.feed(f.left(cut));
                h.advance(cut % 4 == 0 ? 100 : 1);
                h.feed(f.mid(cut));
            } else {
                h.feed(f);
            }
            break;
        }
        case 3:
            h.advance(input.take<quint16>() % 4000);
            break;
        case 4:
            control(h, input);
            break;
        default: {
            const quint8 src = input.takeByte();
            const quint8 header = headerFrom(input);
            h.directAnswer(src, header, input.takeBytes(input.takeByte() % 40));
            break;
        }
        }
        h.checkModel();
    }
    h.advance(60000);
    h.checkModel();
    return 0;
}
