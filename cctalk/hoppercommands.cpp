#include "cctalk/hoppercommands.h"

#include "cctalk/coincommands.h"

namespace CcTalk {

// Six characters of coin identifier, then the 16-bit count.
ReqHopperBalance::ReqHopperBalance(int hopper)
    : Request(Header::reqHopperBalance, QByteArray(), AnswerLength::exactly(8))
{
    setUint(unsigned(hopper) & 0xFF, 0, 1);
}

ReqHopperBalanceResp::ReqHopperBalanceResp(const Response& response) : Response(response) {}

CoinId ReqHopperBalanceResp::getDenom() const
{
    return coinIdFromData(*this);
}

unsigned int ReqHopperBalanceResp::getCount() const
{
    return getUint(6, 2);
}

ModHopperBalance::ModHopperBalance(unsigned char hopper, unsigned short count)
    : Request(Header::modHopperBalance, QByteArray(), AnswerLength::exactly(0))
{
    setUint(hopper, 0, 1);
    setUint(count, 1, 2);
}

ReqCashboxValue::ReqCashboxValue() : Request(Header::reqCashboxValue, QByteArray(), AnswerLength::exactly(4))
{
}

ReqCashboxValueResp::ReqCashboxValueResp(const Response& response) : Response(response) {}

unsigned int ReqCashboxValueResp::getSum() const
{
    return getUint(0, 4);
}

ModifyCashboxValue::ModifyCashboxValue(unsigned int sum)
    : Request(Header::modCashboxValue, QByteArray(), AnswerLength::exactly(0))
{
    setUint(sum, 0, 4);
}

PurgeHopper::PurgeHopper(unsigned char hopper, unsigned char count)
    : Request(Header::purgeHopper, QByteArray(), AnswerLength::exactly(0))
{
    setUint(hopper, 0, 1);
    setUint(count, 1, 1);
}

bool PurgeHopper::canBeSentAgain() const
{
    return false;
}

} // namespace CcTalk
