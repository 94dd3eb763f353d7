#include "cctalk/statecommands.h"

namespace CcTalk {

ReqActivityReg::ReqActivityReg() : Request(Header::reqActivityReg, QByteArray(), AnswerLength::exactly(2)) {}

ReqActivityRegResp::ReqActivityRegResp(const Response& response) : Response(response) {}

ReqActivityRegResp& ReqActivityRegResp::operator=(const Response& response)
{
    Response::operator=(response);
    return *this;
}

bool ReqActivityRegResp::checkFlag(State mask) const
{
    const unsigned int reg = getByte(0) + 256u * getByte(1);
    return (reg & unsigned(mask)) != 0;
}

namespace {

// The enabled flag is the first byte of its answer, firmware and model are texts; other
// items are not read by the driver.
AnswerLength manifestAnswer(ReqUnitInfo::InfoType info)
{
    switch (info) {
    case ReqUnitInfo::Enabled:
    case ReqUnitInfo::Firmware:
    case ReqUnitInfo::Model:
        return AnswerLength::atLeast(1);
    case ReqUnitInfo::SerialNumber:
        return AnswerLength::exactly(3);
    case ReqUnitInfo::Capacity:
        return AnswerLength::exactly(2);
    }
    return AnswerLength::any();
}

} // namespace

ReqUnitInfo::ReqUnitInfo(Unit unit, InfoType info)
    : Request(Header::reqControllerManifest, QByteArray(), manifestAnswer(info))
{
    setUint(unsigned(unit) & 0xFF, 0, 1);
    setUint(unsigned(info) & 0xFF, 1, 1);
}

ReadInputLinesResp::ReadInputLinesResp(const Response& response) : Response(response) {}

unsigned char ReadInputLinesResp::getMask() const
{
    return getByte(0);
}

} // namespace CcTalk
