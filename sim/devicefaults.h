#pragma once

#include <QPair>
#include <QtGlobal>

namespace sim {

// What the device reports about faults: those it raises by itself, which a reset clears, and
// those set by the controls, which stay until the controls change them. The controls' error
// status and self-check answer override the device's own.
class DeviceFaults
{
public:
    // Raised by the device.
    void hopperJammed(int hopper);
    void hopperEmpty(int hopper);
    // The empty warning of a hopper that holds coins again goes away.
    void hopperRefilled(int hopper);
    void clearRaised();

    // Set by the controls.
    void setErrorStatus(quint8 module, quint8 code);
    void setSelfCheck(quint8 fault, quint8 subCode);
    void setActivityBits(quint16 bits) { forcedBits_ = bits; }
    void openDoor(bool open) { doorOpen_ = open; }
    void clear();

    bool doorOpen() const { return doorOpen_; }
    // The activity-register bits the faults account for.
    quint16 activityBits() const;
    QPair<quint8, quint8> errorStatus() const;
    QPair<quint8, quint8> selfCheck() const;

private:
    quint8 eventModule_ = 0, eventCode_ = 0;
    bool eventFault_ = false, eventWarning_ = false;
    quint8 forcedModule_ = 0, forcedCode_ = 0;
    quint8 forcedFault_ = 0, forcedSub_ = 0;
    quint16 forcedBits_ = 0;
    bool doorOpen_ = false;
};

} // namespace sim
