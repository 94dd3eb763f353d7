#pragma once

#include "abstractserialdevice.h"
#include "linerecorder.h"

#include <QMap>
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

    // Records every chunk written, read and thrown away to a trace file (appended to), until
    // stopRecording() or the port's end. `recorder` names the program in the trace's header,
    // "cpibcr/1.0.0"; the header, with the line settings of that moment, is written before
    // the first chunk.
    bool startRecording(const QString& path, const QString& recorder, QString* error);
    void stopRecording();
    bool isRecording() const { return recording.isRecording(); }

private:
    // Applies the value a setting's spelling stands for; false and the refusal when the
    // spelling is unknown.
    template <typename T>
    bool choose(const QMap<QString, T>& known, const QString& setting, const QString& value,
                bool (QSerialPort::*apply)(T));
    bool refuse(const QString& setting, const QString& value);
    void record(trace::Direction direction, const QByteArray& bytes);

    QSerialPort serial;
    QString lastError;
    QString openedPath;
    QString recorderName;
    LineRecorder recording;
};

} // namespace hw
