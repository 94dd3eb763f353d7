#include "cctalk/auditcommands.h"

#include "host/qtcompat.h"

namespace CcTalk {

ReqRealTimeClock::ReqRealTimeClock() : Request(Header::reqRealTimeClock, QByteArray()) {}

ReqRealTimeClockResp::ReqRealTimeClockResp(const Response& response) : Response(response) {}

QDateTime ReqRealTimeClockResp::getTime() const
{
    // Local time, as the operator's clock reads; the instant is the same.
    return qtcompat::fromSecsSinceEpoch(qint64(getUint(0, 4)));
}

ModRealTimeClock::ModRealTimeClock(const QDateTime& time) : Request(Header::modRealTimeClock, QByteArray())
{
    setUint(unsigned(quint64(qtcompat::toSecsSinceEpoch(time)) & 0xFFFFFFFFu), 0, 4);
}

ReqAuditCounter::ReqAuditCounter(unsigned char group, unsigned char index)
    : Request(Header::reqAuditCounter, QByteArray())
{
    setUint(group, 0, 1);
    setUint(index, 1, 1);
}

ReqAuditCounterResp::ReqAuditCounterResp(const Response& response) : Response(response) {}

unsigned int ReqAuditCounterResp::value() const
{
    return getUint(0, 4);
}

ClearAuditCounter::ClearAuditCounter(unsigned char group, unsigned char index)
    : Request(Header::clearAuditCounter, QByteArray())
{
    setUint(group, 0, 1);
    setUint(index, 1, 1);
}

} // namespace CcTalk
