#pragma once

#include "cctalk/device.h"

#include <QList>

namespace cctalktest {

// A bus device whose pauses are recorded instead of waited.
class TestDevice : public CcTalk::Device
{
public:
    explicit TestDevice(QObject* parent = nullptr) : CcTalk::Device(parent)
    {
        setSleeper([this](int msecs) { pauses.append(msecs); });
    }

    using CcTalk::Device::logDebug;
    using CcTalk::Device::logError;
    using CcTalk::Device::logInfo;
    using CcTalk::Device::logWarn;
    using CcTalk::Device::throwError;
    using CcTalk::Device::wrapWithName;

    QList<int> pauses;
};

} // namespace cctalktest
