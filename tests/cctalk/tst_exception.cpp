#include "cctalk/exception.h"
#include "support/columns.h"

#include <QtTest>

#include <clocale>
#include <cstring>

class TestException : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // The texts must not depend on the process locale.
        std::setlocale(LC_ALL, "C");
    }

    void what_data()
    {
        testsupport::columns<QString, QString, QByteArray>("message", "name", "what");
        QTest::newRow("no name") << QStringLiteral("Нет связи") << QString()
                                 << QByteArray(
                                        "\xd0\x9d\xd0\xb5\xd1\x82 \xd1\x81\xd0\xb2\xd1\x8f\xd0\xb7\xd0\xb8");
        QTest::newRow("name")
            << QStringLiteral("Нет связи") << QStringLiteral("BCR")
            << QByteArray("BCR, \xd0\x9d\xd0\xb5\xd1\x82 \xd1\x81\xd0\xb2\xd1\x8f\xd0\xb7\xd0\xb8");
        QTest::newRow("Cyrillic name") << QStringLiteral("Устройство занято") << QStringLiteral("Монетник")
                                       << QStringLiteral("Монетник, Устройство занято").toUtf8();
        QTest::newRow("empty message") << QString() << QStringLiteral("BCR") << QByteArray("BCR, ");
        QTest::newRow("both empty") << QString() << QString() << QByteArray();
    }

    void what()
    {
        QFETCH(QString, message);
        QFETCH(QString, name);
        QFETCH(QByteArray, what);
        const CcTalk::Exception e(message, name);
        QCOMPARE(QByteArray(e.what()), what);
        QCOMPARE(e.message(), message);
        QCOMPARE(e.deviceName(), name);
        const CcTalk::BusyException b(message, name);
        QCOMPARE(QByteArray(b.what()), what);
        const CcTalk::NakException n(message, name);
        QCOMPARE(QByteArray(n.what()), what);
    }

    void textLivesWithTheObject()
    {
        const CcTalk::Exception e(QStringLiteral("Ошибка выполнения команды"), QStringLiteral("BCR"));
        const char* first = e.what();
        const char* second = e.what();
        QCOMPARE(first, second);
        const CcTalk::Exception copy(e);
        QCOMPARE(std::strcmp(copy.what(), first), 0);
        QCOMPARE(copy.message(), QStringLiteral("Ошибка выполнения команды"));
    }

    void hierarchy()
    {
        try {
            throw CcTalk::BusyException(QStringLiteral("Устройство занято"), QString());
        } catch (const std::exception& e) {
            QVERIFY(dynamic_cast<const CcTalk::Exception*>(&e));
            QVERIFY(dynamic_cast<const CcTalk::BusyException*>(&e));
            QVERIFY(!dynamic_cast<const CcTalk::NakException*>(&e));
            QCOMPARE(QString::fromUtf8(e.what()), QStringLiteral("Устройство занято"));
        }
        try {
            throw CcTalk::NakException(QStringLiteral("Ошибка выполнения команды"), QStringLiteral("X"));
        } catch (const CcTalk::Exception& e) {
            QVERIFY(dynamic_cast<const CcTalk::NakException*>(&e));
            QCOMPARE(e.deviceName(), QStringLiteral("X"));
        }
    }
};

QTEST_APPLESS_MAIN(TestException)
#include "tst_exception.moc"
