#pragma once

#include "requests.h"
#include "support/fakeserialdevice.h"
#include "support/recordingchanger.h"

#include <QByteArray>
#include <QList>
#include <QMap>

namespace changertest {

using testsupport::RecordingChanger;

// A scripted recycler at address 55: answers each request by its header and data
// bytes. A request without a script is answered with NAK and listed in
// `unexpected`, so a test sees at once what it did not plan for.
class DeviceModel
{
public:
    enum Kind { Data, Nak, Busy, Silent };
    struct Reply
    {
        Kind kind = Data;
        QByteArray data;
    };

    static Reply data(const QByteArray& bytes) { return Reply{Data, bytes}; }
    static Reply nak() { return Reply{Nak, QByteArray()}; }
    static Reply busy() { return Reply{Busy, QByteArray()}; }
    static Reply silent() { return Reply{Silent, QByteArray()}; }

    // The same answer every time.
    void on(quint8 header, const QByteArray& request, const QByteArray& reply);
    void on(quint8 header, const QByteArray& request, const Reply& reply);
    // Any data with that header, unless a script for the exact data exists.
    void onAny(quint8 header, const Reply& reply);
    // One answer per request, the last one repeating.
    void onSequence(quint8 header, const QByteArray& request, const QList<QByteArray>& replies);
    void onReplies(quint8 header, const QByteArray& request, const QList<Reply>& replies);

    void setActivity(quint16 bits);
    void setActivitySequence(const QList<quint16>& bits);
    void setErrorStatus(quint8 module, quint8 code);
    void setSelfcheck(quint8 fault, quint8 extra);
    void setAudit(quint8 group, quint8 index, quint32 value);
    // One audit group's counters, by index.
    void setAudits(quint8 group, const QMap<quint8, quint32>& values);
    void setAuditSequence(quint8 group, quint8 index, const QList<quint32>& values);
    void setCoinsIn(const QMap<int, quint16>& counts);
    void setCoinsInSequence(const QList<QMap<int, quint16>>& polls);

    // Every answer of a discovery: coin ids by position 1..N, hoppers 1..H, the
    // cashbox value; no fault reported, identification texts fixed.
    void recycler(const QList<QByteArray>& coinIds, const QList<Hopper>& hoppers, quint32 cashbox = 0);

    testsupport::FakeSerialDevice::Responder responder();

    // Header byte followed by the data bytes of every request, in order.
    QList<QByteArray> received;
    QList<QByteArray> unexpected;

    static QByteArray le(quint32 value, int bytes);

private:
    struct Entry
    {
        QList<Reply> replies;
        int used = 0;
    };
    QList<QByteArray> answer(const QByteArray& written);

    QMap<QByteArray, Entry> script;
    QMap<quint8, Entry> anyData;
};

// A changer (of the test's class) at address 55 on the fake serial line, answered by
// the device model.
template <class C> struct RigOf
{
    RigOf()
    {
        changer.setAddress(55);
        changer.setSerial(&serial);
        serial.setResponder(model.responder());
        RecordingChanger::setResetPending(false);
    }
    ~RigOf() { RecordingChanger::setResetPending(false); }

    // Runs a discovery of the model's recycler and forgets its traffic.
    void discover()
    {
        changer.loadCashUnits();
        serial.writes.clear();
        model.received.clear();
    }

    testsupport::FakeSerialDevice serial;
    DeviceModel model;
    C changer;
};

using Rig = RigOf<RecordingChanger>;

} // namespace changertest
