#include "cctalk/coinid.h"
#include "support/coinvalues.h"

#include <QtTest>

class TestCoinId : public QObject
{
    Q_OBJECT
private slots:
    void denominations_data() { testsupport::coinValueRows(); }

    void denominations()
    {
        QFETCH(QString, coinId);
        QFETCH(uint, value);
        const CcTalk::CoinId id(coinId);
        QCOMPARE(id.getDenom(), value);
        QCOMPARE(static_cast<unsigned int>(id), value);
        QCOMPARE(id.getName(), coinId);
        QCOMPARE(static_cast<QString>(id), coinId);
    }

    void copiesCheaply()
    {
        const CcTalk::CoinId a(QStringLiteral("RU2K5A"));
        CcTalk::CoinId b;
        QVERIFY(b.getName().isEmpty());
        QCOMPARE(b.getDenom(), 0u);
        b = a;
        QCOMPARE(b.getName(), QStringLiteral("RU2K5A"));
        QCOMPARE(b.getDenom(), 2500u);
    }
};

QTEST_APPLESS_MAIN(TestCoinId)
#include "tst_coinid.moc"
