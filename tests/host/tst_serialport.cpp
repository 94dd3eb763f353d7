#include "host/serialport.h"
#include "support/columns.h"
#include "support/ptyrig.h"

#include <QtTest>

#include <unistd.h>

using Pty = testsupport::PtyPair;

namespace {

// One line setting by the table's setting column: baud rate, data bits, parity, stop bits,
// flow control.
bool apply(hw::SerialPort& port, int setting, const QString& text)
{
    switch (setting) {
    case 0:
        return port.setBaudRate(text);
    case 1:
        return port.setDataBits(text);
    case 2:
        return port.setParity(text);
    case 3:
        return port.setStopBits(text);
    default:
        return port.setFlowControl(text);
    }
}

} // namespace

class TestSerialPort : public QObject
{
    Q_OBJECT
private slots:
    void settingsTexts()
    {
        hw::SerialPort port;
        QVERIFY(port.setBaudRate(QStringLiteral("115200")));
        QCOMPARE(port.port().baudRate(), 115200);
        QVERIFY(port.setDataBits(QStringLiteral("8")));
        QVERIFY(port.setParity(QStringLiteral("None")));
        QVERIFY(port.setParity(QStringLiteral("even")));
        QCOMPARE(port.port().parity(), QSerialPort::EvenParity);
        QVERIFY(port.setStopBits(QStringLiteral("1")));
        QVERIFY(port.setStopBits(QStringLiteral("2")));
        QCOMPARE(port.port().stopBits(), QSerialPort::TwoStop);
        QVERIFY(port.setFlowControl(QStringLiteral("Disable")));
        QCOMPARE(port.port().flowControl(), QSerialPort::NoFlowControl);
    }

    void unknownTextsAreRefused_data()
    {
        testsupport::columns<int, QString, QString>("setting", "text", "message");
        const struct
        {
            const char* row;
            int setting;
            const char* text;
            const char* message;
        } rows[] = {
            {"baud", 0, "fast", "unknown baud rate \"fast\""},
            {"baud negative", 0, "-9600", "unknown baud rate \"-9600\""},
            {"data", 1, "9", "unknown data bits \"9\""},
            {"parity", 2, "Maybe", "unknown parity \"Maybe\""},
            {"stop", 3, "3", "unknown stop bits \"3\""},
            {"flow", 4, "Enable", "unknown flow control \"Enable\""},
        };
        for (const auto& r : rows)
            QTest::newRow(r.row) << r.setting << r.text << r.message;
    }

    void unknownTextsAreRefused()
    {
        QFETCH(int, setting);
        QFETCH(QString, text);
        QFETCH(QString, message);
        hw::SerialPort port;
        const QSerialPort::Parity parityBefore = port.port().parity();
        QVERIFY(!apply(port, setting, text));
        QCOMPARE(port.errorString(), message);
        QCOMPARE(port.port().parity(), parityBefore);
    }

    void castByInterfaceId()
    {
        hw::SerialPort port;
        QObject* object = &port;
        QVERIFY(qobject_cast<hw::AbstractSerialDevice*>(object) != nullptr);
        QVERIFY(object->qt_metacast("kelvorin.AbstractSerialDevice/4.4.5") != nullptr);
    }

    void openMissingDeviceFails()
    {
        hw::SerialPort port;
        QVERIFY(!port.open(QStringLiteral("/dev/does-not-exist")));
        QVERIFY(port.errorString().contains(QStringLiteral("/dev/does-not-exist")));
        QVERIFY(!port.waitForInput(0));
        QVERIFY(port.read(0).isEmpty());
    }

    void transfersOverPty()
    {
        Pty pty;
        QVERIFY(!pty.path.isEmpty());
        hw::SerialPort port;
        QVERIFY2(port.open(pty.path), qPrintable(port.errorString()));
        QVERIFY(port.setBaudRate(QStringLiteral("115200")));

        port.write(QByteArray::fromHex("3700 01FE CA"));
        QCOMPARE(pty.readMaster(5), QByteArray::fromHex("370001FECA"));

        QVERIFY(!port.waitForInput(20));
        const QByteArray answer = QByteArray::fromHex("01003700C8");
        QCOMPARE(::write(pty.master, answer.constData(), answer.size()), ssize_t(answer.size()));
        QByteArray got;
        QElapsedTimer clock;
        clock.start();
        while (got.size() < answer.size() && clock.elapsed() < 60000)
            if (port.waitForInput(1000))
                got += port.read(0);
        QCOMPARE(got, answer);
    }

    void discardDropsStaleInput()
    {
        Pty pty;
        hw::SerialPort port;
        QVERIFY(port.open(pty.path));
        const QByteArray stale("\xAA\xBB\xCC", 3);
        QCOMPARE(::write(pty.master, stale.constData(), stale.size()), ssize_t(3));
        QVERIFY(pty.waitUntilSlaveHolds(3));
        port.discardInput();
        QVERIFY(!port.waitForInput(20));
        QVERIFY(port.read(0).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestSerialPort)
#include "tst_serialport.moc"
