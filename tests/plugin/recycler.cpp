#include "recycler.h"

#include "support/frames.h"

#include <QDateTime>

namespace plugintest {

namespace {

QByteArray text(const char* value)
{
    return QByteArray(value);
}

quint32 uintAt(const QByteArray& data, int pos, int count)
{
    quint32 value = 0;
    for (int i = 0; i < count && pos + i < data.size(); ++i) {
        value |= quint32(quint8(data.at(pos + i))) << (8 * i);
    }
    return value;
}

} // namespace

QByteArray le(quint32 value, int bytes)
{
    QByteArray out;
    for (int i = 0; i < bytes; ++i) {
        out.append(char((value >> (8 * i)) & 0xFF));
    }
    return out;
}

quint8 headerOf(const QByteArray& frame)
{
    return frame.size() > 3 ? quint8(frame.at(3)) : 0;
}

Recycler::Recycler() = default;

Recycler Recycler::standard()
{
    Recycler r;
    r.coins = {{1, text("RU100A")}, {2, text("RU200A")}, {3, text("RU500A")}, {4, text("RU1K0A")}};
    r.hoppers = {{text("RU1K0A"), 10, 100, true, 0, 0},
                 {text("RU500A"), 20, 100, true, 0, 0},
                 {text("RU100A"), 50, 200, true, 0, 0}};
    r.cashbox = 12550;
    return r;
}

int Recycler::count(quint8 header) const
{
    int n = 0;
    for (const QByteArray& r : requests) {
        if (quint8(r.at(0)) == header) {
            ++n;
        }
    }
    return n;
}

QList<QByteArray> Recycler::dataOf(quint8 header) const
{
    QList<QByteArray> out;
    for (const QByteArray& r : requests) {
        if (quint8(r.at(0)) == header) {
            out.append(r.mid(1));
        }
    }
    return out;
}

testsupport::FakeSerialDevice::Responder Recycler::responder()
{
    return [this](const QByteArray& written) -> QList<QByteArray> {
        if (written.size() < 5 || quint8(written.at(0)) != 55) {
            return {};
        }
        const quint8 header = quint8(written.at(3));
        const QByteArray data = written.mid(4, quint8(written.at(1)));
        requests.append(char(header) + data);
        if (nakHeaders.contains(header)) {
            return {testsupport::nak()};
        }
        const QByteArray reply = answer(header, data);
        if (reply.isNull()) {
            unknown.append(char(header) + data);
            return {testsupport::nak()};
        }
        return {testsupport::reply(reply)};
    };
}

int Recycler::pay(int hopper, int asked)
{
    if (hopper < 1 || hopper > hoppers.size() || asked <= 0) {
        return 0;
    }
    Hopper& h = hoppers[hopper - 1];
    const int paid = qBound(0, asked, h.count);
    h.count -= paid;
    h.dispensed += quint32(paid);
    return paid;
}

QByteArray Recycler::answer(quint8 header, const QByteArray& data)
{
    const QByteArray ack("");
    switch (header) {
    case 1:   // reset
    case 254: // simple poll
    case 116: // set the clock
    case 80:  // change algorithm
    case 231: // inhibits
    case 165: // fast acceptance
        return ack;
    case 245:
        return text("Changer");
    case 246:
        return text("CPI");
    case 244:
        return text("BCR");
    case 192:
        return text("BCR330");
    case 241:
        return text("BCR-RU-V2.14");
    case 242:
        return le(1503278, 3);
    case 115:
        return le(quint32(QDateTime::currentSecsSinceEpoch()), 4);
    case 123:
        return le(activity, 2);
    case 122:
        return QByteArray(1, char(errorModule)) + char(errorCode);
    case 232:
        return QByteArray(1, char(selfcheckFault)) + char(selfcheckExtra);
    case 247:
        return QByteArray(1, char(coins.isEmpty() ? 0 : coins.lastKey())) + char(hoppers.size());
    case 84: {
        const int unit = quint8(data.at(0));
        const int info = quint8(data.at(1));
        if (unit == 2) {
            return info == 5 ? le(734112, 3) : info == 1 ? text("C2-5.31") : text("C2-RU");
        }
        const int h = unit - 2;
        if (h < 1 || h > hoppers.size()) {
            return QByteArray();
        }
        switch (info) {
        case 0:
            return QByteArray(1, char(hoppers.at(h - 1).enabled ? 1 : 0));
        case 1:
            return text("HP-3.02");
        case 4:
            return text("BCR-HOP");
        case 5:
            return le(610020 + quint32(h), 3);
        case 8:
            return le(quint32(hoppers.at(h - 1).capacity), 2);
        default:
            return QByteArray();
        }
    }
    case 184:
        return coins.value(quint8(data.at(0)), QByteArray(6, '\0'));
    case 119: {
        const int h = quint8(data.at(0));
        if (h < 1 || h > hoppers.size()) {
            return QByteArray();
        }
        return hoppers.at(h - 1).coinId + le(quint32(hoppers.at(h - 1).count), 2);
    }
    case 117:
        return le(cashbox, 4);
    case 118:
        cashbox = uintAt(data, 0, 4);
        return ack;
    case 120: {
        const int h = quint8(data.at(0));
        if (h < 1 || h > hoppers.size()) {
            return QByteArray();
        }
        hoppers[h - 1].count = int(uintAt(data, 1, 2));
        return ack;
    }
    case 86: {
        const int group = quint8(data.at(0));
        const int index = quint8(data.at(1));
        if (group == 70) {
            return le(accepted.value(index), 4);
        }
        if ((group == 80 || group == 87) && index >= 1 && index <= hoppers.size()) {
            const Hopper& h = hoppers.at(index - 1);
            return le(group == 80 ? h.dispensed : h.purged, 4);
        }
        return le(0, 4);
    }
    case 87: {
        const int index = quint8(data.at(1));
        if (quint8(data.at(0)) == 80 && index >= 1 && index <= hoppers.size()) {
            hoppers[index - 1].dispensed = 0;
        }
        return ack;
    }
    case 82:
        return QByteArray(32, '\0');
    case 85: {
        int extra = payoutError;
        for (int i = 0; i + 1 < data.size(); i += 2) {
            pay(quint8(data.at(i)), quint8(data.at(i + 1)) + extra);
            extra = 0;
        }
        return ack;
    }
    case 121: {
        const int h = quint8(data.at(0));
        if (h >= 1 && h <= hoppers.size()) {
            Hopper& hopper = hoppers[h - 1];
            hopper.purged += quint32(hopper.count);
            hopper.count = 0;
        }
        return ack;
    }
    default:
        return QByteArray();
    }
}

} // namespace plugintest
