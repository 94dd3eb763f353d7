#pragma once

#include <QObject>
#include <QtTest>

namespace plugintest {

// Two drivers from the factory: distinct objects of the driver's class that the caller owns.
inline void checkTwoFreshDrivers(QObject* a, QObject* b)
{
    QVERIFY(a);
    QVERIFY(b);
    QVERIFY(a != b);
    QVERIFY(!a->parent());
    QVERIFY(!b->parent());
    QCOMPARE(QByteArray(a->metaObject()->className()), QByteArray("hw::CpiBcrCashControl"));
    QCOMPARE(QByteArray(b->metaObject()->className()), QByteArray("hw::CpiBcrCashControl"));
}

} // namespace plugintest
