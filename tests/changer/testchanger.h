#pragma once

#include "devicemodel.h"
#include "support/fakeserialdevice.h"
#include "support/logcapture.h"
#include "support/recordingchanger.h"
#include "support/thrown.h"

#include <QList>
#include <QStringList>

namespace changertest {

using testsupport::RecordingChanger;
using testsupport::significant;
using testsupport::thrown;
using testsupport::thrownText;

// A changer (of the test's class) at address 55 on the fake serial line, answered by
// the device model.
template <class C> struct RigOf
{
    RigOf()
    {
        changer.setAddress(55);
        changer.setSerial(&serial);
        serial.setResponder(model.responder());
        RecordingChanger::setResetPending(false);
    }
    ~RigOf() { RecordingChanger::setResetPending(false); }

    // Runs a discovery of the model's recycler and forgets its traffic.
    void discover()
    {
        changer.loadCashUnits();
        serial.writes.clear();
        model.received.clear();
    }

    testsupport::FakeSerialDevice serial;
    DeviceModel model;
    C changer;
};

using Rig = RigOf<RecordingChanger>;

// A unit as discovery makes it: a hopper (type 1) of one denomination, or the cashbox.
inline CashControlUnit hopperUnit(const QString& name, unsigned int denom, long long count = 0)
{
    CashControlUnit unit;
    unit.name = name;
    unit.type = 1;
    unit.operations = 0x8021330;
    unit.flag = 1;
    unit.denom = denom;
    unit.count = count;
    unit.limit3 = 50;
    return unit;
}

inline CashControlUnit cashboxUnit(long long sum = 0)
{
    CashControlUnit unit;
    unit.name = QStringLiteral("cashbox");
    unit.type = 3;
    unit.operations = 0x10;
    unit.sum = sum;
    return unit;
}

} // namespace changertest
