#pragma once

#include "host/abstractserialdevice.h"

#include <QStringList>

namespace testsupport {

// The line settings part shared by the test ports: every setting the driver makes is
// recorded as "name=value" and accepted. A port adds the transfers it simulates.
class SettingsRecorder : public hw::AbstractSerialDevice
{
public:
    bool setBaudRate(const QString& value) override { return record("baud", value); }
    bool setDataBits(const QString& value) override { return record("data", value); }
    bool setParity(const QString& value) override { return record("parity", value); }
    bool setStopBits(const QString& value) override { return record("stop", value); }
    bool setFlowControl(const QString& value) override { return record("flow", value); }

    QStringList settings;

private:
    bool record(const char* name, const QString& value)
    {
        settings << QLatin1String(name) + QLatin1Char('=') + value;
        return true;
    }
};

} // namespace testsupport
