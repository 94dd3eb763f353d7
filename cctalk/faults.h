#pragma once

#include "cctalk/package.h"

#include <QString>

namespace CcTalk {

// Error status of the recycler's modules and the self-check fault code, with their
// operator messages.

class ReqErrorStatus : public Request
{
public:
    ReqErrorStatus();
};

// d0 module number (hopper number for hopper errors), d1 error code.
class ReqErrorStatusResp : public Response
{
public:
    // Anything but CoinAcceptor and Cashbox is taken as a hopper.
    enum DeviceType : int { Hopper = 0, CoinAcceptor = 1, Cashbox = 2 };

    ReqErrorStatusResp(const Response& response = Response());

    bool hasError() const;
    bool isNeedSelfTest() const;
    bool isFatal() const;
    QString getError() const;
    bool isDeviceHasError(DeviceType type, int number) const;
};

class Selfcheck : public Request
{
public:
    Selfcheck();
};

// d0 fault code (0 none), d1 extra information.
class SelfcheckResp : public Response
{
public:
    SelfcheckResp(const Response& response = Response());

    bool hasError() const;
    bool isFatal() const;
    bool isDelayedError() const;
    QString getError() const;
};

} // namespace CcTalk
