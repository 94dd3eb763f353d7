// Decoding of every answer class from an arbitrary frame: each class is built from the
// response and every accessor is called, with the numbers checked against the data bytes.

#include "cctalk/commands.h"
#include "fuzzinput.h"

#include <QDateTime>

namespace {

using fuzz::check;

quint8 byteAt(const QByteArray& data, qint64 index)
{
    return index >= 0 && index < data.size() ? quint8(data.at(int(index))) : 0;
}

// Little-endian number of up to four bytes; a field running past the data is shortened.
unsigned int uintAt(const QByteArray& data, qint64 pos, qint64 count)
{
    const qint64 n = qMin(count, qint64(data.size()) - pos);
    unsigned int value = 0;
    for (qint64 i = 0; i < n && i < 4; ++i)
        value |= unsigned(byteAt(data, pos + i)) << (8 * i);
    return value;
}

void checkCoinId(const CcTalk::CoinId& id, const QByteArray& data)
{
    QByteArray text = data.left(6);
    const int zero = text.indexOf('\0');
    if (zero >= 0)
        text.truncate(zero);
    // Device texts are read with the host's 8-bit codec, UTF-8.
    check(id.getName() == QString::fromUtf8(text), "coin identifier text differs from the data");
    check(QString(id) == id.getName(), "coin identifier conversions differ");
    check(unsigned(id) == id.getDenom(), "denomination conversions differ");
    if (id.getName().size() != 6)
        check(id.getDenom() == 0, "a short coin identifier has a denomination");
}

void numbers(const CcTalk::Response& response, const QByteArray& data, qint32 index, qint32 pos, qint32 count)
{
    check(response.getByte(index) == byteAt(data, index), "getByte at the chosen index");
    check(response.getUint(pos, count) == uintAt(data, pos, count), "getUint at the chosen field");
    for (int i = -2; i <= data.size() + 2; ++i) {
        check(response.getByte(i) == byteAt(data, i), "getByte");
        for (int n = -1; n <= 6; ++n)
            check(response.getUint(i, n) == uintAt(data, i, n), "getUint");
    }
}

void activity(const CcTalk::Response& response, const QByteArray& data, quint16 anyMask)
{
    using State = CcTalk::ReqActivityRegResp::State;
    const unsigned reg = byteAt(data, 0) + 256u * byteAt(data, 1);
    const CcTalk::ReqActivityRegResp built(response);
    CcTalk::ReqActivityRegResp assigned;
    assigned = response;
    const State states[] = {State::CoinAcceptance, State::Payout, State::Fault, State::Initialisation,
                            State::Warning};
    for (State s : states) {
        check(built.checkFlag(s) == ((reg & unsigned(s)) != 0), "activity flag");
        check(assigned.checkFlag(s) == built.checkFlag(s), "activity flag after assignment");
    }
    // Masks within the bits of the enumeration, combinations included.
    const State mask = State(anyMask & 0x1FFF);
    check(built.checkFlag(mask) == ((reg & unsigned(mask)) != 0), "activity mask");
}

void errorStatus(const CcTalk::Response& response, const QByteArray& data, qint32 number)
{
    using Type = CcTalk::ReqErrorStatusResp::DeviceType;
    const CcTalk::ReqErrorStatusResp status(response);
    const quint8 module = byteAt(data, 0);
    const quint8 code = byteAt(data, 1);
    check(status.hasError() == (module != 0 && code != 0), "error status hasError");
    check(status.isNeedSelfTest() == (module == 255 && code == 255), "error status isNeedSelfTest");
    check(status.isFatal() == (code == 101 || code == 252), "error status isFatal");
    const QString message = status.getError();
    check(!message.isEmpty(), "error status without a message");
    if (code >= 1 && code <= 4)
        check(message.contains(QString::number(module)), "hopper message without the hopper number");
    check(status.isDeviceHasError(Type::CoinAcceptor, number) == (code == 101 || code == 103 || code == 104),
          "acceptor fault");
    check(status.isDeviceHasError(Type::Cashbox, number) == (code == 251 || code == 252), "cashbox fault");
    check(status.isDeviceHasError(Type::Hopper, number) == ((code == 2 || code == 4) && module == number),
          "hopper fault");
    check(status.isDeviceHasError(Type::Hopper, module) == (code == 2 || code == 4),
          "hopper fault by module");
}

void selfcheck(const CcTalk::Response& response, const QByteArray& data)
{
    const CcTalk::SelfcheckResp answer(response);
    const quint8 fault = byteAt(data, 0);
    const quint8 extra = byteAt(data, 1);
    check(answer.hasError() == (fault != 0), "self-check hasError");
    check(answer.isFatal() == (fault == 51), "self-check isFatal");
    check(answer.isDelayedError() == (fault == 35), "self-check isDelayedError");
    const QString message = answer.getError();
    check(!message.isEmpty(), "self-check without a message");
    if (fault == 26)
        check(message.endsWith(QLatin1Char(' ') + QString::number(extra % 10)), "dispense sensor digit");
    if (fault == 27)
        check(message.endsWith(QLatin1Char(' ') + QString::number(extra)), "level sensor number");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    fuzz::FuzzInput input(bytes, size);
    const qint32 index = input.take<qint32>();
    const qint32 pos = input.take<qint32>();
    const qint32 count = input.take<qint32>();
    const qint32 number = input.take<qint32>();
    const quint16 mask = input.take<quint16>();
    const QByteArray frame = input.takeRest();

    const CcTalk::Response response = CcTalk::Response::fromHex(QString::fromLatin1(frame.toHex()));
    check(response.isValid(), "a canned answer is not valid");
    const QByteArray data = response.getData();
    if (frame.size() >= 4) {
        check(data == frame.mid(4, quint8(frame.at(1))), "frame data");
        check(response.getSource() == quint8(frame.at(2)), "frame source");
        check(int(response.getHeader()) == quint8(frame.at(3)), "frame header");
    } else {
        check(data.isEmpty(), "a frame shorter than 4 bytes has data");
    }
    check(QByteArray(response) == data, "data bytes");
    check(!response.getName().isEmpty() && !response.toLog().isEmpty(), "log texts");

    numbers(response, data, index, pos, count);

    const CcTalk::ReqVarSetResp varSet(response);
    check(varSet.getVar(index) == byteAt(data, index), "variable set entry");
    for (int i = 0; i < data.size(); ++i)
        check(varSet.getVar(i) == byteAt(data, i), "variable set entries");

    activity(response, data, mask);

    const CcTalk::ReadInputLinesResp lines(response);
    check(lines.getMask() == byteAt(data, 0), "input lines");

    const CcTalk::ReqCoinIdResp coin(response);
    checkCoinId(coin.getDenom(), data);

    const CcTalk::ReqCoinsInByTypeResp coinsIn(response);
    const QMap<unsigned char, unsigned int> counts = coinsIn.getCounts();
    check(counts.size() == 16, "coins in by type has 16 positions");
    for (int p = 1; p <= 16; ++p)
        check(counts.value(quint8(p), ~0u) == uintAt(data, 2 * (p - 1), 2), "coins in by type count");

    const CcTalk::ReqHopperBalanceResp balance(response);
    checkCoinId(balance.getDenom(), data);
    check(balance.getCount() == uintAt(data, 6, 2), "hopper balance count");

    const CcTalk::ReqCashboxValueResp cashbox(response);
    check(cashbox.getSum() == uintAt(data, 0, 4), "cashbox value");

    const CcTalk::VerifyMoneyOutResp verify(response);
    check(verify.getEventCount() == byteAt(data, 0), "payout events");
    check(verify.getPaid() == uintAt(data, 1, 4), "paid");
    check(verify.getUnpaid() == uintAt(data, 5, 4), "unpaid");

    const CcTalk::ReqRealTimeClockResp clock(response);
    const QDateTime time = clock.getTime();
    check(time.isValid(), "clock answer is not a valid time");
    check(time.toSecsSinceEpoch() == qint64(uintAt(data, 0, 4)), "clock seconds");

    const CcTalk::ReqAuditCounterResp counter(response);
    check(counter.value() == uintAt(data, 0, 4), "audit counter");

    errorStatus(response, data, number);
    selfcheck(response, data);
    return 0;
}
