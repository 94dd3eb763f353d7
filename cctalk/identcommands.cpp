#include "cctalk/identcommands.h"

namespace CcTalk {

namespace {

// A name is at least one character; an empty answer is a bare ACK.
constexpr AnswerLength text = AnswerLength::atLeast(1);

} // namespace

Reset::Reset() : Request(Header::reset, QByteArray(), AnswerLength::exactly(0)) {}

SimplePoll::SimplePoll() : Request(Header::simplePoll, QByteArray(), AnswerLength::exactly(0)) {}

ReqManufacturerId::ReqManufacturerId() : Request(Header::reqManufacturerId, QByteArray(), text) {}

ReqEquipmentCategoryId::ReqEquipmentCategoryId() : Request(Header::reqEquipmentCategoryId, QByteArray(), text)
{
}

ReqProductCode::ReqProductCode() : Request(Header::reqProductCode, QByteArray(), text) {}

ReqSerialNumber::ReqSerialNumber() : Request(Header::reqSerialNumber, QByteArray(), AnswerLength::exactly(3))
{
}

ReqSoftwareRevision::ReqSoftwareRevision() : Request(Header::reqSoftwareRevision, QByteArray(), text) {}

ReqBuildCode::ReqBuildCode() : Request(Header::reqBuildCode, QByteArray(), text) {}

// Coin positions and hoppers; later firmware may report more variables behind them.
ReqVarSet::ReqVarSet() : Request(Header::reqVarSet, QByteArray(), AnswerLength::atLeast(2)) {}

ReqVarSetResp::ReqVarSetResp(const Response& response) : Response(response) {}

unsigned char ReqVarSetResp::getVar(int index) const
{
    return getByte(index);
}

ModVarSet::ModVarSet(unsigned char value) : Request(Header::modVarSet, QByteArray(), AnswerLength::exactly(0))
{
    setUint(value, 0, 1);
}

} // namespace CcTalk
