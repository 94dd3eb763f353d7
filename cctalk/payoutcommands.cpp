#include "cctalk/payoutcommands.h"

namespace CcTalk {

SetChangeAlgorithm::SetChangeAlgorithm(Algorithm a)
    : Request(Header::setChangeAlgorithm, QByteArray(), AnswerLength::exactly(0))
{
    setUint(unsigned(a) & 0xFF, 0, 1);
}

PayMoneyOut::PayMoneyOut(unsigned int amount)
    : Request(Header::payMoneyOut, QByteArray(), AnswerLength::exactly(0))
{
    setUint(amount, 0, 4);
}

bool PayMoneyOut::canBeSentAgain() const
{
    return false;
}

DispenseHopperPattern::DispenseHopperPattern()
    : Request(Header::dispenseHopperPattern, QByteArray(), AnswerLength::exactly(0))
{
}

void DispenseHopperPattern::addCount(unsigned char hopper, long long count)
{
    if (count < 0) {
        data.append(char(hopper));
        data.append(char(count & 0xFF));
        return;
    }
    while (count > 0) {
        const long long n = count >= 255 ? 255 : count;
        data.append(char(hopper));
        data.append(char(n));
        count -= n;
    }
}

bool DispenseHopperPattern::canBeSentAgain() const
{
    return false;
}

VerifyMoneyOutResp::VerifyMoneyOutResp(const Response& response) : Response(response) {}

unsigned char VerifyMoneyOutResp::getEventCount() const
{
    return getByte(0);
}

unsigned int VerifyMoneyOutResp::getPaid() const
{
    return getUint(1, 4);
}

unsigned int VerifyMoneyOutResp::getUnpaid() const
{
    return getUint(5, 4);
}

} // namespace CcTalk
