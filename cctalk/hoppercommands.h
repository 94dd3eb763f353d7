#pragma once

#include "cctalk/coinid.h"
#include "cctalk/package.h"

namespace CcTalk {

// Hopper balances, cashbox value and purging.

class ReqHopperBalance : public Request
{
public:
    explicit ReqHopperBalance(int hopper);
};

class ReqHopperBalanceResp : public Response
{
public:
    ReqHopperBalanceResp(const Response& response = Response());
    CoinId getDenom() const;
    unsigned int getCount() const;
};

class ModHopperBalance : public Request
{
public:
    ModHopperBalance(unsigned char hopper, unsigned short count);
};

class ReqCashboxValue : public Request
{
public:
    ReqCashboxValue();
};

class ReqCashboxValueResp : public Response
{
public:
    ReqCashboxValueResp(const Response& response = Response());
    // Minor currency units.
    unsigned int getSum() const;
};

class ModifyCashboxValue : public Request
{
public:
    explicit ModifyCashboxValue(unsigned int sum);
};

// Pays coins out of a hopper into the tray; never repeated, like the payout commands.
class PurgeHopper : public Request
{
public:
    PurgeHopper(unsigned char hopper, unsigned char count);
    bool canBeSentAgain() const override;
};

} // namespace CcTalk
