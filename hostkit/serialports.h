#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>

namespace hostkit {

// One serial port of the machine as QSerialPortInfo describes it. A USB id of 0 means the
// port has none (not a USB adapter).
struct SerialPortEntry
{
    QString name;     // ttyUSB0
    QString location; // /dev/ttyUSB0
    QString description;
    QString manufacturer;
    QString serialNumber;
    quint16 vendorId = 0;
    quint16 productId = 0;
    bool hasVendorId = false;
    bool hasProductId = false;
};

QList<SerialPortEntry> availableSerialPorts();

// The text of `cpibcr ports`: one line per port, "-" where a field is unknown.
QString serialPortsTable(const QList<SerialPortEntry>& ports);
// The JSON document of `cpibcr --json ports`; USB ids as four hexadecimal digits, null when absent.
QJsonObject serialPortsDocument(const QList<SerialPortEntry>& ports);

// Who may open a device file, and who is asking.
struct PortAccess
{
    QString path;
    QString owner;
    QString group;
    bool groupMayReadWrite = false; // the file's mode gives its group read and write
    QString user;
    bool userInGroup = false;    // the group database lists the user in the file's group
    bool sessionInGroup = false; // this process already has the group
};

PortAccess portAccess(const QString& path);

// Whether the process may read and write the file; false when the file is missing.
bool mayReadWrite(const QString& path);

// Why opening the port was refused and what to do about it.
QString permissionDeniedMessage(const PortAccess& access);

// The message for a port QSerialPort reported a permission error on: refused by the file's
// permissions, or held by another program when the permissions allow it.
QString portRefusedMessage(const QString& path);

} // namespace hostkit
