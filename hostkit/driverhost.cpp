#include "driverhost.h"

#include "serialports.h"
#include "sim/simulator.h"

#include <QMetaClassInfo>
#include <QMetaObject>
#include <QVariant>

namespace hostkit {

DriverHost::DriverHost() = default;

DriverHost::~DriverHost()
{
    // The driver holds a plain pointer to the port, and the port talks to the simulator:
    // they go in that order.
    delete driverObj.data();
    serial.reset();
    if (sim)
        sim->stop();
}

bool DriverHost::startSimulator(const sim::Config& config, QString* error)
{
    sim = std::make_unique<sim::Simulator>(config);
    QString why;
    if (!sim->openPty(&why)) {
        *error = QStringLiteral("cannot start the built-in simulator: %1").arg(why);
        sim.reset();
        return false;
    }
    port = sim->portPath();
    return true;
}

void DriverHost::recordLine(const QString& path, const QString& recorder)
{
    tracePath = path;
    traceRecorder = recorder;
}

bool DriverHost::open(const QString& pluginPath, const QString& portPath, QString* error)
{
    if (!portPath.isEmpty())
        port = portPath;
    plugin = pluginPath;

    loader.setFileName(pluginPath);
    QObject* factory = loader.instance();
    if (!factory) {
        *error = QStringLiteral("cannot load the plug-in %1: %2").arg(pluginPath, loader.errorString());
        return false;
    }
    QVariant made;
    if (!QMetaObject::invokeMethod(factory, "getObject", Qt::DirectConnection,
                                   Q_RETURN_ARG(QVariant, made))) {
        *error = QStringLiteral("the plug-in %1 has no factory with getObject()").arg(pluginPath);
        return false;
    }
    driverObj = made.value<QObject*>();
    cashControl = qobject_cast<hw::AbstractCashControl*>(driverObj.data());
    if (!cashControl) {
        delete driverObj.data();
        *error = QStringLiteral("the plug-in %1 made no object with the interface %2")
                     .arg(pluginPath, QLatin1String(KELVORIN_CASH_CONTROL_IID));
        return false;
    }

    serial = std::make_unique<hw::SerialPort>();
    if (!serial->open(port)) {
        *error = serial->port().error() == QSerialPort::PermissionError ? portRefusedMessage(port)
                                                                        : serial->errorString();
        return false;
    }
    if (!tracePath.isEmpty() && !serial->startRecording(tracePath, traceRecorder, error))
        return false;
    if (!driverObj->setProperty("serialObj", QVariant::fromValue<QObject*>(serial.get()))) {
        *error = QStringLiteral("the driver has no property serialObj");
        return false;
    }
    if (!QMetaObject::invokeMethod(driverObj.data(), "init", Qt::DirectConnection)) {
        *error = QStringLiteral("the driver has no init()");
        return false;
    }
    return true;
}

QString DriverHost::classInfo(const char* key) const
{
    if (!driverObj)
        return QString();
    const QMetaObject* meta = driverObj->metaObject();
    const int index = meta->indexOfClassInfo(key);
    return index < 0 ? QString() : QString::fromUtf8(meta->classInfo(index).value());
}

} // namespace hostkit
