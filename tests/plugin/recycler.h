#pragma once

#include "support/fakeserialdevice.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QSet>

namespace plugintest {

// A CPI BCR at bus address 55 that keeps its state: hoppers pay coins out of
// their counts and count them in their audit counters, balance writes change
// the counts, the cashbox value can be read and written. Requests it does not
// know are answered with NAK and listed in `unknown`.
class Recycler
{
public:
    struct Hopper
    {
        QByteArray coinId;
        int count = 0;
        int capacity = 1000;
        bool enabled = true;
        quint32 dispensed = 0; // audit group 80
        quint32 purged = 0;    // audit group 87
    };

    Recycler();

    // Positions 1..4: 100, 200, 500, 1000; hopper1 1000 x 10 of 100, hopper2
    // 500 x 20 of 100, hopper3 100 x 50 of 200; cashbox 125.50.
    static Recycler standard();

    QMap<int, QByteArray> coins; // position -> coin id
    QList<Hopper> hoppers;       // hopper h is hoppers[h - 1]
    quint32 cashbox = 0;
    quint16 activity = 0;
    quint8 errorModule = 0;
    quint8 errorCode = 0;
    quint8 selfcheckFault = 0;
    quint8 selfcheckExtra = 0;
    QMap<int, quint32> accepted; // audit group 70 by position
    // Coins each payout command moves beyond (or, negative, short of) its request,
    // taken from the first hopper it names.
    int payoutError = 0;
    QSet<int> nakHeaders;

    testsupport::FakeSerialDevice::Responder responder();

    // Header followed by the data bytes of every request, in order.
    QList<QByteArray> requests;
    QList<QByteArray> unknown;

    int count(quint8 header) const;
    QList<QByteArray> dataOf(quint8 header) const;

private:
    QByteArray answer(quint8 header, const QByteArray& data);
    int pay(int hopper, int asked);
};

// The header of a request frame written by the host.
quint8 headerOf(const QByteArray& frame);
QByteArray le(quint32 value, int bytes);

} // namespace plugintest
