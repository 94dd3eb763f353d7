#pragma once

#include "cctalk/device.h"

#include <QList>
#include <QStringList>

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

// The INFO lines of commonInit for device 55 that names itself a CPI BCR payout with serial
// number 12345.
inline QStringList identityLog(const QString& build, const QString& firmware)
{
    return {
        QStringLiteral("адрес на шине ccTalk - 55"),
        QStringLiteral("Проверка соединения с устройством"),
        QStringLiteral("тип устройства - Payout"),
        QStringLiteral("производитель - CPI"),
        QStringLiteral("модель - BCR"),
        QStringLiteral("сборка - ") + build,
        QStringLiteral("серийный номер - 12345"),
        QStringLiteral("версия прошивки - ") + firmware,
    };
}

} // namespace cctalktest
