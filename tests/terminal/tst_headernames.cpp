// Header names as the terminal build prints them. Qt 4's moc registers an enumeration only
// when it has no fixed underlying type; without it every key reads empty and the log shows
// " (254)" for a simple poll.
#include "cctalk/header.h"
#include "cctalk/package.h"

#include <QMetaEnum>
#include <QtTest>

namespace {

QByteArray nameOf(int header)
{
    return CcTalk::Request(CcTalk::Header::Type(header), QByteArray()).getName().toUtf8();
}

} // namespace

class TestHeaderNames : public QObject
{
    Q_OBJECT
private slots:
    void enumerationIsRegistered()
    {
        const QMetaObject& mo = CcTalk::Header::staticMetaObject;
        const int index = mo.indexOfEnumerator("Type");
        QVERIFY(index >= 0);
        const QMetaEnum e = mo.enumerator(index);
        QCOMPARE(QByteArray(e.name()), QByteArray("Type"));
        QVERIFY(!e.isFlag());
        QCOMPARE(e.keyCount(), 166);
        QCOMPARE(QByteArray(e.key(0)), QByteArray("answer"));
        QCOMPARE(QByteArray(e.key(165)), QByteArray("factorySetupAndTest"));
        QCOMPARE(e.value(165), 255);
    }

    void names_data()
    {
        QTest::addColumn<int>("header");
        QTest::addColumn<QByteArray>("name");
        QTest::newRow("0") << 0 << QByteArray("answer (0)");
        QTest::newRow("5") << 5 << QByteArray("NAK (5)");
        QTest::newRow("6") << 6 << QByteArray("BUSY (6)");
        QTest::newRow("84") << 84 << QByteArray("reqControllerManifest (84)");
        QTest::newRow("254") << 254 << QByteArray("simplePoll (254)");
        QTest::newRow("7, no key") << 7 << QByteArray(" (7)");
        QTest::newRow("205, no key") << 205 << QByteArray(" (205)");
    }

    void names()
    {
        QFETCH(int, header);
        QFETCH(QByteArray, name);
        QCOMPARE(nameOf(header), name);
    }

    void logTextOfASimplePoll()
    {
        const CcTalk::Request poll(CcTalk::Header::simplePoll, QByteArray());
        poll.setAddress(55);
        QCOMPARE(poll.toLog().toUtf8(), QByteArray("simplePoll (254), data ='', src = 1, dest = 55"));
    }

    void receivedHeaderByte()
    {
        CcTalk::Response answer;
        answer.addRawData(QByteArray::fromHex("01003700c8"));
        QVERIFY(answer.isValid());
        QCOMPARE(int(answer.getHeader()), 0);
        QCOMPARE(answer.getName().toUtf8(), QByteArray("answer (0)"));
    }
};

QTEST_APPLESS_MAIN(TestHeaderNames)
#include "tst_headernames.moc"
