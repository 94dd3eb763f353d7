#pragma once

#include "support/recordingchanger.h"

#include "host/timer.h"
#include "plugin/cpibcrcashcontrol.h"

namespace testsupport {

// The driver object as the factory makes it, with a recording changer inside and a
// view of its parts.
class RecordingDriver : public hw::CpiBcrCashControl
{
public:
    explicit RecordingDriver(RecordingChanger* device = new RecordingChanger)
        : CpiBcrCashControl(nullptr, device), recorder(device)
    {
    }

    using CpiBcrCashControl::asyncCheckState;

    Timer* checkTimer() const { return timer; }
    bool asyncCheckEnabled() const { return asyncEnabled; }
    CcTalk::Changer* device() const { return changer; }
    hw::AbstractSerialDevice* serialDevice() const { return serial; }

    RecordingChanger* recorder;
};

} // namespace testsupport
