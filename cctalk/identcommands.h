#pragma once

#include "cctalk/package.h"

namespace CcTalk {

// Bus-level and identification commands.

class Reset : public Request
{
public:
    Reset();
};

class SimplePoll : public Request
{
public:
    SimplePoll();
};

class ReqManufacturerId : public Request
{
public:
    ReqManufacturerId();
};

class ReqEquipmentCategoryId : public Request
{
public:
    ReqEquipmentCategoryId();
};

class ReqProductCode : public Request
{
public:
    ReqProductCode();
};

class ReqSerialNumber : public Request
{
public:
    ReqSerialNumber();
};

class ReqSoftwareRevision : public Request
{
public:
    ReqSoftwareRevision();
};

class ReqBuildCode : public Request
{
public:
    ReqBuildCode();
};

class ReqVarSet : public Request
{
public:
    ReqVarSet();
};

class ReqVarSetResp : public Response
{
public:
    ReqVarSetResp(const Response& response = Response());
    unsigned char getVar(int index) const;
};

class ModVarSet : public Request
{
public:
    explicit ModVarSet(unsigned char value);
};

} // namespace CcTalk
