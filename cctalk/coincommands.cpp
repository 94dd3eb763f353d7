#include "cctalk/coincommands.h"

#include "host/qtcompat.h"

namespace CcTalk {

CoinId coinIdFromData(const Response& response)
{
    QByteArray text = QByteArray(response).left(6);
    const int zero = text.indexOf('\0');
    if (zero >= 0)
        text.truncate(zero);
    return CoinId(qtcompat::fromUtf8(text));
}

ReqCoinId::ReqCoinId(unsigned char position)
    : Request(Header::reqCoinId, QByteArray(), AnswerLength::exactly(6))
{
    setUint(position, 0, 1);
}

ReqCoinIdResp::ReqCoinIdResp(const Response& response) : Response(response) {}

CoinId ReqCoinIdResp::getDenom() const
{
    return coinIdFromData(*this);
}

ReqCoinsInByType::ReqCoinsInByType()
    : Request(Header::reqCoinsInByType, QByteArray(), AnswerLength::exactly(2 * coinPositions))
{
}

ReqCoinsInByTypeResp::ReqCoinsInByTypeResp(const Response& response) : Response(response) {}

QMap<unsigned char, unsigned int> ReqCoinsInByTypeResp::getCounts() const
{
    QMap<unsigned char, unsigned int> counts;
    for (int position = 1; position <= coinPositions; ++position)
        counts.insert((unsigned char)position, getUint(2 * (position - 1), 2));
    return counts;
}

ModInhibitStatus::ModInhibitStatus(unsigned short mask)
    : Request(Header::modInhibitStatus, QByteArray(), AnswerLength::exactly(0))
{
    setUint(mask, 0, 2);
}

} // namespace CcTalk
