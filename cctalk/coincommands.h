#pragma once

#include "cctalk/coinid.h"
#include "cctalk/package.h"

#include <QMap>

namespace CcTalk {

// Coin acceptor: coin identifiers, accepted coins, inhibits.

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
    // Positions 1 to 16, each with its 16-bit count; missing bytes count as 0.
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
