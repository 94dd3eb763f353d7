#include "serialports.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QSerialPortInfo>

#include <algorithm>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace hostkit {

namespace {

QString orDash(const QString& text)
{
    return text.isEmpty() ? QStringLiteral("-") : text;
}

QString usbId(bool present, quint16 id)
{
    return present ? QStringLiteral("%1").arg(id, 4, 16, QLatin1Char('0')) : QString();
}

QJsonValue usbIdValue(bool present, quint16 id)
{
    return present ? QJsonValue(usbId(true, id)) : QJsonValue(QJsonValue::Null);
}

QString userName(uid_t uid)
{
    if (const passwd* pw = ::getpwuid(uid))
        return QString::fromLocal8Bit(pw->pw_name);
    return QString::number(uid);
}

QString groupName(gid_t gid)
{
    if (const group* gr = ::getgrgid(gid))
        return QString::fromLocal8Bit(gr->gr_name);
    return QString::number(gid);
}

bool databaseHasUserInGroup(uid_t uid, gid_t gid)
{
    const passwd* pw = ::getpwuid(uid);
    if (!pw)
        return false;
    const QByteArray name(pw->pw_name);
    const gid_t primary = pw->pw_gid;
    if (primary == gid)
        return true;
    int count = 32;
    std::vector<gid_t> groups(static_cast<size_t>(count));
    if (::getgrouplist(name.constData(), primary, groups.data(), &count) < 0) {
        groups.resize(size_t(count));
        if (::getgrouplist(name.constData(), primary, groups.data(), &count) < 0)
            return false;
    }
    groups.resize(size_t(count));
    return std::find(groups.begin(), groups.end(), gid) != groups.end();
}

bool processHasGroup(gid_t gid)
{
    if (::getegid() == gid)
        return true;
    const int count = ::getgroups(0, nullptr);
    if (count <= 0)
        return false;
    std::vector<gid_t> groups(static_cast<size_t>(count));
    const int got = ::getgroups(count, groups.data());
    return got > 0 && std::find(groups.begin(), groups.begin() + got, gid) != groups.begin() + got;
}

} // namespace

QList<SerialPortEntry> availableSerialPorts()
{
    QList<SerialPortEntry> list;
    for (const QSerialPortInfo& info : QSerialPortInfo::availablePorts()) {
        SerialPortEntry e;
        e.name = info.portName();
        e.location = info.systemLocation();
        e.description = info.description();
        e.manufacturer = info.manufacturer();
        e.serialNumber = info.serialNumber();
        e.hasVendorId = info.hasVendorIdentifier();
        e.vendorId = info.vendorIdentifier();
        e.hasProductId = info.hasProductIdentifier();
        e.productId = info.productIdentifier();
        list.append(e);
    }
    std::sort(list.begin(), list.end(),
              [](const SerialPortEntry& a, const SerialPortEntry& b) { return a.location < b.location; });
    return list;
}

QString serialPortsTable(const QList<SerialPortEntry>& ports)
{
    if (ports.isEmpty())
        return QStringLiteral("no serial ports found\n");
    const QStringList header{QStringLiteral("PORT"), QStringLiteral("DESCRIPTION"),
                             QStringLiteral("MANUFACTURER"), QStringLiteral("SERIAL"),
                             QStringLiteral("VID:PID")};
    QList<QStringList> rows{header};
    for (const SerialPortEntry& p : ports) {
        QString ids = QStringLiteral("-");
        if (p.hasVendorId || p.hasProductId)
            ids = QStringLiteral("%1:%2").arg(orDash(usbId(p.hasVendorId, p.vendorId)),
                                              orDash(usbId(p.hasProductId, p.productId)));
        rows.append(QStringList{orDash(p.location), orDash(p.description), orDash(p.manufacturer),
                                orDash(p.serialNumber), ids});
    }
    QList<int> widths;
    for (int column = 0; column < header.size(); ++column) {
        int width = 0;
        for (const QStringList& row : rows)
            width = std::max(width, int(row.at(column).size()));
        widths.append(width);
    }
    QString text;
    for (const QStringList& row : rows) {
        QString line;
        for (int column = 0; column < row.size(); ++column) {
            if (column + 1 < row.size())
                line += row.at(column).leftJustified(widths.at(column) + 2);
            else
                line += row.at(column);
        }
        text += line + QLatin1Char('\n');
    }
    return text;
}

QJsonObject serialPortsDocument(const QList<SerialPortEntry>& ports)
{
    QJsonArray list;
    for (const SerialPortEntry& p : ports)
        list.append(QJsonObject{{QStringLiteral("name"), p.name},
                                {QStringLiteral("path"), p.location},
                                {QStringLiteral("description"), p.description},
                                {QStringLiteral("manufacturer"), p.manufacturer},
                                {QStringLiteral("serialNumber"), p.serialNumber},
                                {QStringLiteral("vendorId"), usbIdValue(p.hasVendorId, p.vendorId)},
                                {QStringLiteral("productId"), usbIdValue(p.hasProductId, p.productId)}});
    return QJsonObject{{QStringLiteral("command"), QStringLiteral("ports")}, {QStringLiteral("ports"), list}};
}

PortAccess portAccess(const QString& path)
{
    PortAccess a;
    a.path = path;
    a.user = userName(::geteuid());
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return a;
    a.owner = userName(st.st_uid);
    a.group = groupName(st.st_gid);
    a.groupMayReadWrite = (st.st_mode & (S_IRGRP | S_IWGRP)) == (S_IRGRP | S_IWGRP);
    a.userInGroup = databaseHasUserInGroup(::geteuid(), st.st_gid);
    a.sessionInGroup = processHasGroup(st.st_gid);
    return a;
}

bool mayReadWrite(const QString& path)
{
    return ::access(QFile::encodeName(path).constData(), R_OK | W_OK) == 0;
}

QString permissionDeniedMessage(const PortAccess& a)
{
    const QString head =
        QStringLiteral("cannot open %1: permission denied for the user %2").arg(a.path, a.user);
    if (!a.groupMayReadWrite || a.group == QLatin1String("root"))
        return head + QStringLiteral(
                          ".\nThe port (owner %1, group %2) is not open to a group a user can join.\n"
                          "Fix: give serial ports to the group dialout with a udev rule (GROUP=\"dialout\", "
                          "MODE=\"0660\"; example: /usr/share/doc/cpibcr/examples/99-cpibcr.rules),\n"
                          "then add the user to it: sudo usermod -a -G dialout %3, and log in again.")
                          .arg(a.owner, a.group, a.user);
    if (a.userInGroup && !a.sessionInGroup)
        return head +
               QStringLiteral(".\nThe user %1 is in the group %2 that may use the port, but this session "
                              "started before that.\n"
                              "Fix: log out and in again (or run: newgrp %2).")
                   .arg(a.user, a.group);
    return head + QStringLiteral(".\nOnly the group %1 may use the port, and the user %2 is not in it.\n"
                                 "Fix: sudo usermod -a -G %1 %2, then log out and in again.")
                      .arg(a.group, a.user);
}

QString portRefusedMessage(const QString& path)
{
    if (QFileInfo::exists(path) && mayReadWrite(path))
        return QStringLiteral("cannot open %1: another program is using it (or holds its lock file).\n"
                              "Fix: stop that program; \"fuser %1\" shows it.")
            .arg(path);
    return permissionDeniedMessage(portAccess(path));
}

} // namespace hostkit
