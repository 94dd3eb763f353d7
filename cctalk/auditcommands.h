#pragma once

#include "cctalk/package.h"

#include <QDateTime>

namespace CcTalk {

// Real-time clock and audit counters.

class ReqRealTimeClock : public Request
{
public:
    ReqRealTimeClock();
};

class ReqRealTimeClockResp : public Response
{
public:
    ReqRealTimeClockResp(const Response& response = Response());
    // Seconds since 1970-01-01 00:00 UTC, 32 bits.
    QDateTime getTime() const;
};

class ModRealTimeClock : public Request
{
public:
    explicit ModRealTimeClock(const QDateTime& time);
};

class ReqAuditCounter : public Request
{
public:
    ReqAuditCounter(unsigned char group, unsigned char index);
};

class ReqAuditCounterResp : public Response
{
public:
    ReqAuditCounterResp(const Response& response = Response());
    unsigned int value() const;
};

class ClearAuditCounter : public Request
{
public:
    ClearAuditCounter(unsigned char group, unsigned char index);
};

} // namespace CcTalk
