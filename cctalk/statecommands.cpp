#include "cctalk/statecommands.h"

namespace CcTalk {

ReqActivityReg::ReqActivityReg() : Request(Header::reqActivityReg, QByteArray()) {}

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

ReqUnitInfo::ReqUnitInfo(Unit unit, InfoType info) : Request(Header::reqControllerManifest, QByteArray())
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
