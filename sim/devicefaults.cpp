#include "devicefaults.h"

#include "protocol.h"

namespace sim {

void DeviceFaults::hopperJammed(int hopper)
{
    eventModule_ = quint8(hopper);
    eventCode_ = errcode::HopperJam;
    eventFault_ = true;
}

void DeviceFaults::hopperEmpty(int hopper)
{
    eventModule_ = quint8(hopper);
    eventCode_ = errcode::HopperEmpty;
    eventWarning_ = true;
}

void DeviceFaults::hopperRefilled(int hopper)
{
    if (eventCode_ == errcode::HopperEmpty && eventModule_ == hopper) {
        eventModule_ = eventCode_ = 0;
        eventWarning_ = false;
    }
}

void DeviceFaults::clearRaised()
{
    eventModule_ = eventCode_ = 0;
    eventFault_ = eventWarning_ = false;
}

void DeviceFaults::setErrorStatus(quint8 module, quint8 code)
{
    forcedModule_ = module;
    forcedCode_ = code;
}

void DeviceFaults::setSelfCheck(quint8 fault, quint8 subCode)
{
    forcedFault_ = fault;
    forcedSub_ = subCode;
}

void DeviceFaults::clear()
{
    forcedModule_ = forcedCode_ = forcedFault_ = forcedSub_ = 0;
    forcedBits_ = 0;
    clearRaised();
    doorOpen_ = false;
}

quint16 DeviceFaults::activityBits() const
{
    quint16 bits = forcedBits_;
    if (eventFault_ || doorOpen_)
        bits |= activity::Fault;
    if (eventWarning_)
        bits |= activity::Warning;
    return bits;
}

QPair<quint8, quint8> DeviceFaults::errorStatus() const
{
    if (forcedModule_ || forcedCode_)
        return {forcedModule_, forcedCode_};
    if (eventCode_)
        return {eventModule_, eventCode_};
    if (doorOpen_)
        return {errcode::NeedSelfCheck, errcode::NeedSelfCheck};
    return {0, 0};
}

QPair<quint8, quint8> DeviceFaults::selfCheck() const
{
    if (forcedFault_)
        return {forcedFault_, forcedSub_};
    if (doorOpen_)
        return {selfcheck::DoorOpen, 0};
    return {0, 0};
}

} // namespace sim
