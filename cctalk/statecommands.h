#pragma once

#include "cctalk/package.h"

namespace CcTalk {

// Activity register, controller manifest and input lines.

class ReqActivityReg : public Request
{
public:
    ReqActivityReg();
};

class ReqActivityRegResp : public Response
{
public:
    // Bits of the 16-bit activity register.
    enum State : int {
        CoinAcceptance = 4,
        Payout = 8,
        Fault = 16,
        Initialisation = 64,
        Warning = 4096,
    };

    ReqActivityRegResp(const Response& response = Response());
    ReqActivityRegResp& operator=(const Response& response);

    bool checkFlag(State mask) const;
};

// Asks one unit of the recycler for one item of its manifest.
class ReqUnitInfo : public Request
{
public:
    // Hopper h is Unit(h + 2); the fixed underlying type makes every such value valid.
    enum Unit : int { CoinAcceptor = 2 };
    enum InfoType : int { Enabled = 0, Firmware = 1, Model = 4, SerialNumber = 5, Capacity = 8 };

    ReqUnitInfo(Unit unit, InfoType info);
};

class ReadInputLinesResp : public Response
{
public:
    ReadInputLinesResp(const Response& response = Response());
    unsigned char getMask() const;
};

} // namespace CcTalk
