#pragma once

#include "interfaceids.h"

#include <QByteArray>
#include <QObject>
#include <QString>

namespace hw {

// The host's serial port object. Line settings are passed as text, the way the
// host's configuration screens store them; a setter refuses a text it does not
// know and returns false.
class AbstractSerialDevice
{
public:
    virtual ~AbstractSerialDevice() {}

    virtual bool setBaudRate(const QString& value) = 0;
    virtual bool setDataBits(const QString& value) = 0;
    virtual bool setParity(const QString& value) = 0;
    virtual bool setStopBits(const QString& value) = 0;
    virtual bool setFlowControl(const QString& value) = 0;

    // Drops whatever input has arrived and not been read yet.
    virtual void discardInput() = 0;
    virtual void write(const QByteArray& data) = 0;
    // True when bytes are ready to be read within the time-out.
    virtual bool waitForInput(int msecs) = 0;
    // maxSize 0 reads whatever is available.
    virtual QByteArray read(int maxSize) = 0;
};

} // namespace hw

Q_DECLARE_INTERFACE(hw::AbstractSerialDevice, KELVORIN_SERIAL_DEVICE_IID)
