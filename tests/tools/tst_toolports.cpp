#include "hostkit/serialports.h"
#include "support/toolprocess.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include <grp.h>
#include <pty.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The tool started as another user: root may open any file, so a refused port is only seen
// by a user without that privilege.
class ProcessAsUser : public QProcess
{
public:
    ProcessAsUser(uid_t user, gid_t group) : uid(user), gid(group) {}

protected:
    void setupChildProcess() override
    {
        if (::getuid() != 0)
            return;
        if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
            ::_exit(127);
    }

private:
    uid_t uid;
    gid_t gid;
};

hostkit::SerialPortEntry usbAdapter()
{
    hostkit::SerialPortEntry e;
    e.name = QStringLiteral("ttyUSB0");
    e.location = QStringLiteral("/dev/ttyUSB0");
    e.description = QStringLiteral("FT232R USB UART");
    e.manufacturer = QStringLiteral("FTDI");
    e.serialNumber = QStringLiteral("A1B2C3D4");
    e.vendorId = 0x0403;
    e.productId = 0x6001;
    e.hasVendorId = true;
    e.hasProductId = true;
    return e;
}

hostkit::SerialPortEntry builtInPort()
{
    hostkit::SerialPortEntry e;
    e.name = QStringLiteral("ttyS0");
    e.location = QStringLiteral("/dev/ttyS0");
    return e;
}

testsupport::ProcessResult runTool(const QStringList& args)
{
    return testsupport::runProgram(QStringLiteral(CPIBCR_TOOL), args, 60000);
}

} // namespace

class TestToolPorts : public QObject
{
    Q_OBJECT

private slots:
    void table();
    void emptyTable();
    void document();
    void notInGroup();
    void inGroupButNotInSession();
    void ownerOnly();
    void portsCommand();
    void versions();
    void refusedPort();
};

void TestToolPorts::table()
{
    QCOMPARE(hostkit::serialPortsTable({usbAdapter(), builtInPort()}).toUtf8(),
             QByteArray("PORT          DESCRIPTION      MANUFACTURER  SERIAL    VID:PID\n"
                        "/dev/ttyUSB0  FT232R USB UART  FTDI          A1B2C3D4  0403:6001\n"
                        "/dev/ttyS0    -                -             -         -\n"));
}

void TestToolPorts::emptyTable()
{
    QCOMPARE(hostkit::serialPortsTable({}).toUtf8(), QByteArray("no serial ports found\n"));
}

void TestToolPorts::document()
{
    const QByteArray json = QJsonDocument(hostkit::serialPortsDocument({usbAdapter(), builtInPort()}))
                                .toJson(QJsonDocument::Compact);
    QCOMPARE(json, QByteArray("{\"command\":\"ports\",\"ports\":["
                              "{\"description\":\"FT232R USB UART\",\"manufacturer\":\"FTDI\","
                              "\"name\":\"ttyUSB0\",\"path\":\"/dev/ttyUSB0\",\"productId\":\"6001\","
                              "\"serialNumber\":\"A1B2C3D4\",\"vendorId\":\"0403\"},"
                              "{\"description\":\"\",\"manufacturer\":\"\",\"name\":\"ttyS0\","
                              "\"path\":\"/dev/ttyS0\",\"productId\":null,\"serialNumber\":\"\","
                              "\"vendorId\":null}]}"));
}

namespace {

// The user kassa and /dev/ttyUSB0, which root owns and the group dialout may use.
hostkit::PortAccess kassaOnDialoutPort()
{
    hostkit::PortAccess a;
    a.path = QStringLiteral("/dev/ttyUSB0");
    a.owner = QStringLiteral("root");
    a.group = QStringLiteral("dialout");
    a.groupMayReadWrite = true;
    a.user = QStringLiteral("kassa");
    return a;
}

} // namespace

void TestToolPorts::notInGroup()
{
    hostkit::PortAccess a = kassaOnDialoutPort();
    QCOMPARE(hostkit::permissionDeniedMessage(a).toUtf8(),
             QByteArray("cannot open /dev/ttyUSB0: permission denied for the user kassa.\n"
                        "Only the group dialout may use the port, and the user kassa is not in it.\n"
                        "Fix: sudo usermod -a -G dialout kassa, then log out and in again."));
}

void TestToolPorts::inGroupButNotInSession()
{
    hostkit::PortAccess a = kassaOnDialoutPort();
    a.userInGroup = true;
    QCOMPARE(hostkit::permissionDeniedMessage(a).toUtf8(),
             QByteArray("cannot open /dev/ttyUSB0: permission denied for the user kassa.\n"
                        "The user kassa is in the group dialout that may use the port, but this session "
                        "started before that.\n"
                        "Fix: log out and in again (or run: newgrp dialout)."));
}

void TestToolPorts::ownerOnly()
{
    hostkit::PortAccess a = kassaOnDialoutPort();
    a.group = QStringLiteral("root");
    a.groupMayReadWrite = false;
    QCOMPARE(hostkit::permissionDeniedMessage(a).toUtf8(),
             QByteArray("cannot open /dev/ttyUSB0: permission denied for the user kassa.\n"
                        "The port (owner root, group root) is not open to a group a user can join.\n"
                        "Fix: give serial ports to the group dialout with a udev rule (GROUP=\"dialout\", "
                        "MODE=\"0660\"; example: /usr/share/doc/cpibcr/examples/99-cpibcr.rules),\n"
                        "then add the user to it: sudo usermod -a -G dialout kassa, and log in again."));
}

void TestToolPorts::portsCommand()
{
    const testsupport::ProcessResult text = runTool({QStringLiteral("ports")});
    QCOMPARE(text.status, 0);
    const QByteArray table = text.out;
    QVERIFY2(table.startsWith("PORT ") || table == "no serial ports found\n", table.constData());

    const testsupport::ProcessResult json = runTool({QStringLiteral("--json"), QStringLiteral("ports")});
    QCOMPARE(json.status, 0);
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json.out, &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(doc.object().value(QStringLiteral("command")).toString(), QStringLiteral("ports"));
    QVERIFY(doc.object().value(QStringLiteral("ports")).isArray());
    // Each port of the table is one entry of the document, in the same order.
    const QJsonArray ports = doc.object().value(QStringLiteral("ports")).toArray();
    const QList<QByteArray> lines = table.trimmed().split('\n');
    if (!ports.isEmpty()) {
        QCOMPARE(lines.size(), ports.size() + 1);
        for (int i = 0; i < ports.size(); ++i)
            QVERIFY(lines.at(i + 1).startsWith(
                ports.at(i).toObject().value(QStringLiteral("path")).toString().toUtf8() + ' '));
    }

    QCOMPARE(
        runTool({QStringLiteral("ports"), QStringLiteral("--port"), QStringLiteral("/dev/ttyS0")}).status, 2);
}

void TestToolPorts::versions()
{
    const testsupport::ProcessResult tool = runTool({QStringLiteral("--version")});
    QCOMPARE(tool.status, 0);
    QCOMPARE(tool.out, QByteArray("cpibcr " CPIBCR_VERSION "\n"));

    const testsupport::ProcessResult sim =
        testsupport::runProgram(QStringLiteral(CPIBCR_SIM_PROGRAM), {QStringLiteral("--version")}, 60000);
    QCOMPARE(sim.status, 0);
    QCOMPARE(sim.out, QByteArray("cpibcr-sim " CPIBCR_VERSION "\n"));
}

void TestToolPorts::refusedPort()
{
    int master = -1;
    int slave = -1;
    char name[256] = {};
    QVERIFY(::openpty(&master, &slave, name, nullptr, nullptr) == 0);
    const QString path = QString::fromLocal8Bit(name);

    // A port as udev sets one up: owner root, group dialout, read and write for both. Root
    // runs the tool as nobody; anyone else takes every permission from the pseudo-terminal.
    uid_t uid = ::getuid();
    gid_t gid = ::getgid();
    QByteArray expected;
    if (::getuid() == 0) {
        const passwd* nobody = ::getpwnam("nobody");
        const group* dialout = ::getgrnam("dialout");
        QVERIFY(nobody && dialout);
        uid = nobody->pw_uid;
        gid = nobody->pw_gid;
        QVERIFY(::fchown(slave, 0, dialout->gr_gid) == 0);
        QVERIFY(::fchmod(slave, 0660) == 0);
        expected =
            QStringLiteral("cpibcr: cannot open %1: permission denied for the user nobody.\n"
                           "Only the group dialout may use the port, and the user nobody is not in it.\n"
                           "Fix: sudo usermod -a -G dialout nobody, then log out and in again.\n")
                .arg(path)
                .toUtf8();
    } else {
        QVERIFY(::fchmod(slave, 0) == 0);
        const passwd* me = ::getpwuid(uid);
        QVERIFY(me);
        struct stat st;
        QVERIFY(::fstat(slave, &st) == 0);
        const group* owning = ::getgrgid(st.st_gid);
        const QString user = QString::fromLocal8Bit(me->pw_name);
        expected =
            QStringLiteral("cpibcr: cannot open %1: permission denied for the user %2.\n"
                           "The port (owner %2, group %3) is not open to a group a user can join.\n"
                           "Fix: give serial ports to the group dialout with a udev rule (GROUP=\"dialout\", "
                           "MODE=\"0660\"; example: /usr/share/doc/cpibcr/examples/99-cpibcr.rules),\n"
                           "then add the user to it: sudo usermod -a -G dialout %2, and log in again.\n")
                .arg(path, user,
                     owning ? QString::fromLocal8Bit(owning->gr_name) : QString::number(st.st_gid))
                .toUtf8();
    }

    ProcessAsUser tool(uid, gid);
    tool.start(QStringLiteral(CPIBCR_TOOL), {QStringLiteral("--port"), path, QStringLiteral("status")});
    QVERIFY(tool.waitForFinished(60000));
    ::close(slave);
    ::close(master);
    QCOMPARE(tool.exitStatus(), QProcess::NormalExit);
    QCOMPARE(tool.readAllStandardError(), expected);
    QCOMPARE(tool.exitCode(), 1);
    QCOMPARE(tool.readAllStandardOutput(), QByteArray());
}

QTEST_GUILESS_MAIN(TestToolPorts)
#include "tst_toolports.moc"
