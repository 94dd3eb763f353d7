#pragma once

#include "abstractserialdevice.h"

#include <QObject>
#include <QSerialPort>

namespace hw {

// The host's serial port object over QSerialPort. Works with real ports and
// with pseudo-terminals (/dev/pts/N).
class SerialPort : public QObject, public AbstractSerialDevice
{
    Q_OBJECT
    Q_INTERFACES(hw::AbstractSerialDevice)
public:
    explicit SerialPort(QObject* parent = nullptr);
    ~SerialPort() override;

    bool open(const QString& path);
    void close();
    bool isOpen() const;
    QString errorString() const { return lastError; }

    bool setBaudRate(const QString& value) override;
    bool setDataBits(const QString& value) override;
    bool setParity(const QString& value) override;
    bool setStopBits(const QString& value) override;
    bool setFlowControl(const QString& value) override;

    void discardInput() override;
    void write(const QByteArray& data) override;
    bool waitForInput(int msecs) override;
    QByteArray read(int maxSize) override;

    QSerialPort& port() { return serial; }

private:
    bool refuse(const QString& setting, const QString& value);

    QSerialPort serial;
    QString lastError;
};

} // namespace hw
