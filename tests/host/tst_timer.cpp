#include "host/timer.h"

#include <QSignalSpy>
#include <QtTest>

class TestTimer : public QObject
{
    Q_OBJECT
private slots:
    void singleShotFiresOnce()
    {
        Timer timer(this);
        timer.setInterval(10);
        timer.setSingleShot(true);
        QCOMPARE(timer.interval(), 10);
        QVERIFY(timer.isSingleShot());
        QVERIFY(!timer.isActive());
        QSignalSpy spy(&timer, &Timer::timeout);
        timer.start();
        QVERIFY(timer.isActive());
        QVERIFY(spy.wait(60000));
        QVERIFY(!timer.isActive());
        QTest::qWait(40);
        QCOMPARE(spy.count(), 1);
    }

    void stopDisarms()
    {
        Timer timer;
        timer.setInterval(10);
        timer.setSingleShot(true);
        QSignalSpy spy(&timer, &Timer::timeout);
        timer.start();
        timer.stop();
        QVERIFY(!timer.isActive());
        QTest::qWait(40);
        QCOMPARE(spy.count(), 0);
    }

    void ownedByParent()
    {
        QPointer<Timer> timer;
        {
            QObject parent;
            timer = new Timer(&parent);
            QVERIFY(timer);
        }
        QVERIFY(timer.isNull());
    }
};

QTEST_GUILESS_MAIN(TestTimer)
#include "tst_timer.moc"
