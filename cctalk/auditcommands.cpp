#include "cctalk/auditcommands.h"

#include "host/qtcompat.h"

namespace CcTalk {

namespace {

// An audit counter's address in a request: its group, then its index in the group.
QByteArray counterAddress(unsigned char group, unsigned char index)
{
    QByteArray data;
    data.append(char(group));
    data.append(char(index));
    return data;
}

} // namespace

ReqRealTimeClock::ReqRealTimeClock()
    : Request(Header::reqRealTimeClock, QByteArray(), AnswerLength::exactly(4))
{
}

ReqRealTimeClockResp::ReqRealTimeClockResp(const Response& response) : Response(response) {}

QDateTime ReqRealTimeClockResp::getTime() const
{
    // Local time, as the operator's clock reads; the instant is the same.
    return qtcompat::fromSecsSinceEpoch(qint64(getUint(0, 4)));
}

ModRealTimeClock::ModRealTimeClock(const QDateTime& time)
    : Request(Header::modRealTimeClock, QByteArray(), AnswerLength::exactly(0))
{
    setUint(unsigned(quint64(qtcompat::toSecsSinceEpoch(time)) & 0xFFFFFFFFu), 0, 4);
}

ReqAuditCounter::ReqAuditCounter(unsigned char group, unsigned char index)
    : Request(Header::reqAuditCounter, counterAddress(group, index), AnswerLength::exactly(4))
{
}

ReqAuditCounterResp::ReqAuditCounterResp(const Response& response) : Response(response) {}

unsigned int ReqAuditCounterResp::value() const
{
    return getUint(0, 4);
}

ClearAuditCounter::ClearAuditCounter(unsigned char group, unsigned char index)
    : Request(Header::clearAuditCounter, counterAddress(group, index), AnswerLength::exactly(0))
{
}

} // namespace CcTalk
