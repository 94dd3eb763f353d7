#include "cashcontrol/sumdetailed.h"
#include "testcashcontrol.h"

#include <QtTest>

// Runs in a process of its own: nothing may have touched the type before.
class TestMetaType : public QObject
{
    Q_OBJECT
private slots:
    void registeredByTheDriversConstructor()
    {
        QCOMPARE(QMetaType::type("SumDetailed"), int(QMetaType::UnknownType));
        {
            TestCashControl driver(1);
        }
        const int id = QMetaType::type("SumDetailed");
        QVERIFY(id != QMetaType::UnknownType);
        QCOMPARE(id, qMetaTypeId<SumDetailed>());
        QCOMPARE(QByteArray(QMetaType::typeName(id)), QByteArray("SumDetailed"));

        TestCashControl second(1);
        QCOMPARE(QMetaType::type("SumDetailed"), id);
    }

    void copyAndDeleteThroughTheRegistration()
    {
        const int id = QMetaType::type("SumDetailed");
        QVERIFY(id != QMetaType::UnknownType);
        SumDetailed sum;
        sum.denoms.insert(200, 4);
        sum.rest = -3;
        void* copy = QMetaType::create(id, &sum);
        QVERIFY(copy);
        const SumDetailed* typed = static_cast<const SumDetailed*>(copy);
        QCOMPARE(typed->denoms.value(200), 4LL);
        QCOMPARE(typed->rest, -3LL);
        QMetaType::destroy(id, copy);

        const QVariant v = QVariant::fromValue(sum);
        QCOMPARE(v.userType(), id);
        QCOMPARE(v.value<SumDetailed>().sum(), 797LL);
    }
};

QTEST_GUILESS_MAIN(TestMetaType)
#include "tst_metatype.moc"
