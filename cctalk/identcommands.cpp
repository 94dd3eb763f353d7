#include "cctalk/identcommands.h"

namespace CcTalk {

Reset::Reset() : Request(Header::reset, QByteArray()) {}

SimplePoll::SimplePoll() : Request(Header::simplePoll, QByteArray()) {}

ReqManufacturerId::ReqManufacturerId() : Request(Header::reqManufacturerId, QByteArray()) {}

ReqEquipmentCategoryId::ReqEquipmentCategoryId() : Request(Header::reqEquipmentCategoryId, QByteArray()) {}

ReqProductCode::ReqProductCode() : Request(Header::reqProductCode, QByteArray()) {}

ReqSerialNumber::ReqSerialNumber() : Request(Header::reqSerialNumber, QByteArray()) {}

ReqSoftwareRevision::ReqSoftwareRevision() : Request(Header::reqSoftwareRevision, QByteArray()) {}

ReqBuildCode::ReqBuildCode() : Request(Header::reqBuildCode, QByteArray()) {}

ReqVarSet::ReqVarSet() : Request(Header::reqVarSet, QByteArray()) {}

ReqVarSetResp::ReqVarSetResp(const Response& response) : Response(response) {}

unsigned char ReqVarSetResp::getVar(int index) const
{
    return getByte(index);
}

ModVarSet::ModVarSet(unsigned char value) : Request(Header::modVarSet, QByteArray())
{
    setUint(value, 0, 1);
}

} // namespace CcTalk
