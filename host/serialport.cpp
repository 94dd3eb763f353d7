#include "serialport.h"

#include <QMap>

namespace hw {

namespace {

QString normalised(const QString& value)
{
    return value.trimmed().toLower();
}

} // namespace

SerialPort::SerialPort(QObject* parent) : QObject(parent) {}

SerialPort::~SerialPort()
{
    close();
    recording.stop();
}

bool SerialPort::open(const QString& path)
{
    close();
    openedPath = path;
    serial.setPortName(path);
    if (!serial.open(QIODevice::ReadWrite)) {
        lastError = QStringLiteral("cannot open %1: %2").arg(path, serial.errorString());
        return false;
    }
    lastError.clear();
    return true;
}

void SerialPort::close()
{
    if (serial.isOpen())
        serial.close();
}

bool SerialPort::isOpen() const
{
    return serial.isOpen();
}

template <typename T>
bool SerialPort::choose(const QMap<QString, T>& known, const QString& setting, const QString& value,
                        bool (QSerialPort::*apply)(T))
{
    const auto it = known.find(normalised(value));
    if (it == known.end())
        return refuse(setting, value);
    (serial.*apply)(it.value());
    return true;
}

bool SerialPort::refuse(const QString& setting, const QString& value)
{
    lastError = QStringLiteral("unknown %1 \"%2\"").arg(setting, value);
    return false;
}

bool SerialPort::setBaudRate(const QString& value)
{
    bool ok = false;
    const qint32 rate = value.trimmed().toInt(&ok);
    if (!ok || rate <= 0 || !serial.setBaudRate(rate))
        return refuse(QStringLiteral("baud rate"), value);
    return true;
}

bool SerialPort::setDataBits(const QString& value)
{
    static const QMap<QString, QSerialPort::DataBits> known{
        {QStringLiteral("5"), QSerialPort::Data5},
        {QStringLiteral("6"), QSerialPort::Data6},
        {QStringLiteral("7"), QSerialPort::Data7},
        {QStringLiteral("8"), QSerialPort::Data8},
    };
    return choose(known, QStringLiteral("data bits"), value, &QSerialPort::setDataBits);
}

bool SerialPort::setParity(const QString& value)
{
    static const QMap<QString, QSerialPort::Parity> known{
        {QStringLiteral("none"), QSerialPort::NoParity}, {QStringLiteral("no"), QSerialPort::NoParity},
        {QStringLiteral("n"), QSerialPort::NoParity},    {QStringLiteral("even"), QSerialPort::EvenParity},
        {QStringLiteral("e"), QSerialPort::EvenParity},  {QStringLiteral("odd"), QSerialPort::OddParity},
        {QStringLiteral("o"), QSerialPort::OddParity},   {QStringLiteral("space"), QSerialPort::SpaceParity},
        {QStringLiteral("s"), QSerialPort::SpaceParity}, {QStringLiteral("mark"), QSerialPort::MarkParity},
        {QStringLiteral("m"), QSerialPort::MarkParity},
    };
    return choose(known, QStringLiteral("parity"), value, &QSerialPort::setParity);
}

bool SerialPort::setStopBits(const QString& value)
{
    static const QMap<QString, QSerialPort::StopBits> known{
        {QStringLiteral("1"), QSerialPort::OneStop},
        {QStringLiteral("1.5"), QSerialPort::OneAndHalfStop},
        {QStringLiteral("2"), QSerialPort::TwoStop},
    };
    return choose(known, QStringLiteral("stop bits"), value, &QSerialPort::setStopBits);
}

bool SerialPort::setFlowControl(const QString& value)
{
    static const QMap<QString, QSerialPort::FlowControl> known{
        {QStringLiteral("disable"), QSerialPort::NoFlowControl},
        {QStringLiteral("disabled"), QSerialPort::NoFlowControl},
        {QStringLiteral("none"), QSerialPort::NoFlowControl},
        {QStringLiteral("off"), QSerialPort::NoFlowControl},
        {QStringLiteral("hardware"), QSerialPort::HardwareControl},
        {QStringLiteral("rts/cts"), QSerialPort::HardwareControl},
        {QStringLiteral("software"), QSerialPort::SoftwareControl},
        {QStringLiteral("xon/xoff"), QSerialPort::SoftwareControl},
    };
    return choose(known, QStringLiteral("flow control"), value, &QSerialPort::setFlowControl);
}

void SerialPort::discardInput()
{
    if (!serial.isOpen())
        return;
    // Bytes still in the kernel are fetched first, so that clear() drops them too.
    serial.waitForReadyRead(0);
    QByteArray dropped = serial.readAll();
    serial.clear(QSerialPort::Input);
    dropped += serial.readAll();
    record(trace::Direction::Discarded, dropped);
}

void SerialPort::write(const QByteArray& data)
{
    if (!serial.isOpen())
        return;
    record(trace::Direction::Written, data);
    serial.write(data);
    serial.flush();
}

bool SerialPort::waitForInput(int msecs)
{
    if (!serial.isOpen())
        return false;
    if (serial.bytesAvailable() > 0)
        return true;
    return serial.waitForReadyRead(msecs);
}

QByteArray SerialPort::read(int maxSize)
{
    if (!serial.isOpen())
        return QByteArray();
    const QByteArray bytes = maxSize > 0 ? serial.read(maxSize) : serial.readAll();
    record(trace::Direction::Read, bytes);
    return bytes;
}

bool SerialPort::startRecording(const QString& path, const QString& recorder, QString* error)
{
    recorderName = recorder;
    return recording.start(path, error);
}

void SerialPort::stopRecording()
{
    recording.stop();
}

void SerialPort::record(trace::Direction direction, const QByteArray& bytes)
{
    if (bytes.isEmpty() || !recording.isRecording())
        return;
    if (!recording.hasHeader()) {
        static const QMap<QSerialPort::Parity, QString> parities{
            {QSerialPort::NoParity, QStringLiteral("none")},
            {QSerialPort::EvenParity, QStringLiteral("even")},
            {QSerialPort::OddParity, QStringLiteral("odd")},
            {QSerialPort::SpaceParity, QStringLiteral("space")},
            {QSerialPort::MarkParity, QStringLiteral("mark")},
        };
        static const QMap<QSerialPort::StopBits, QString> stops{
            {QSerialPort::OneStop, QStringLiteral("1")},
            {QSerialPort::OneAndHalfStop, QStringLiteral("1.5")},
            {QSerialPort::TwoStop, QStringLiteral("2")},
        };
        static const QMap<QSerialPort::FlowControl, QString> flows{
            {QSerialPort::NoFlowControl, QStringLiteral("none")},
            {QSerialPort::HardwareControl, QStringLiteral("hardware")},
            {QSerialPort::SoftwareControl, QStringLiteral("software")},
        };
        trace::Header header;
        header.recorder = recorderName;
        header.port = openedPath;
        header.baudRate = serial.baudRate();
        header.dataBits = int(serial.dataBits());
        header.parity = parities.value(serial.parity(), QStringLiteral("unknown"));
        header.stopBits = stops.value(serial.stopBits(), QStringLiteral("unknown"));
        header.flow = flows.value(serial.flowControl(), QStringLiteral("unknown"));
        recording.header(header);
    }
    recording.chunk(direction, bytes);
}

} // namespace hw
