#pragma once

#include "cctalk/coinid.h"
#include "cctalk/package.h"

#include <QMap>

namespace CcTalk {

// Coin acceptor: coin identifiers, accepted coins, inhibits.

// Coin positions of the acceptor; the coins-in answer has a 16-bit count for each.
const int coinPositions = 16;

class ReqCoinId : public Request
{
public:
    explicit ReqCoinId(unsigned char position);
};

class ReqCoinIdResp : public Response
{
public:
    ReqCoinIdResp(const Response& response = Response());
    CoinId getDenom() const;
};

class ReqCoinsInByType : public Request
{
public:
    ReqCoinsInByType();
};

class ReqCoinsInByTypeResp : public Response
{
public:
    ReqCoinsInByTypeResp(const Response& response = Response());
    // Positions 1 to 16, each with its 16-bit count. The bus device takes only answers
    // with all 16 counts, so none is ever made up of missing bytes.
    QMap<unsigned char, unsigned int> getCounts() const;
};

class ModInhibitStatus : public Request
{
public:
    explicit ModInhibitStatus(unsigned short mask);
};

// Coin identifier in the first 6 data bytes, cut at the first zero byte.
CoinId coinIdFromData(const Response& response);

} // namespace CcTalk
