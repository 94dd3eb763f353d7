#include "devicemodel.h"

#include "support/frames.h"

namespace changertest {

namespace {

QByteArray key(quint8 header, const QByteArray& request)
{
    return QByteArray(1, char(header)) + request;
}

} // namespace

QByteArray DeviceModel::le(quint32 value, int bytes)
{
    QByteArray out;
    for (int i = 0; i < bytes; ++i)
        out.append(char((value >> (8 * i)) & 0xFF));
    return out;
}

void DeviceModel::on(quint8 header, const QByteArray& request, const QByteArray& reply)
{
    onReplies(header, request, {data(reply)});
}

void DeviceModel::on(quint8 header, const QByteArray& request, const Reply& reply)
{
    onReplies(header, request, {reply});
}

void DeviceModel::onSequence(quint8 header, const QByteArray& request, const QList<QByteArray>& replies)
{
    QList<Reply> list;
    for (const QByteArray& r : replies)
        list << data(r);
    onReplies(header, request, list);
}

void DeviceModel::onReplies(quint8 header, const QByteArray& request, const QList<Reply>& replies)
{
    Entry entry;
    entry.replies = replies;
    script[key(header, request)] = entry;
}

void DeviceModel::onAny(quint8 header, const Reply& reply)
{
    Entry entry;
    entry.replies = {reply};
    anyData[header] = entry;
}

void DeviceModel::setActivity(quint16 bits)
{
    on(123, QByteArray(), le(bits, 2));
}

void DeviceModel::setActivitySequence(const QList<quint16>& bits)
{
    QList<QByteArray> replies;
    for (quint16 b : bits)
        replies << le(b, 2);
    onSequence(123, QByteArray(), replies);
}

void DeviceModel::setErrorStatus(quint8 module, quint8 code)
{
    on(122, QByteArray(), bytes({module, code}));
}

void DeviceModel::setSelfcheck(quint8 fault, quint8 extra)
{
    on(232, QByteArray(), bytes({fault, extra}));
}

void DeviceModel::setAudit(quint8 group, quint8 index, quint32 value)
{
    on(86, bytes({group, index}), le(value, 4));
}

void DeviceModel::setAudits(quint8 group, const QMap<quint8, quint32>& values)
{
    for (auto it = values.constBegin(); it != values.constEnd(); ++it)
        setAudit(group, it.key(), it.value());
}

void DeviceModel::setAuditSequence(quint8 group, quint8 index, const QList<quint32>& values)
{
    QList<QByteArray> replies;
    for (quint32 v : values)
        replies << le(v, 4);
    onSequence(86, bytes({group, index}), replies);
}

void DeviceModel::setCoinsIn(const QMap<int, quint16>& counts)
{
    setCoinsInSequence({counts});
}

void DeviceModel::setCoinsInSequence(const QList<QMap<int, quint16>>& polls)
{
    QList<QByteArray> replies;
    for (const auto& counts : polls) {
        QByteArray bytes(32, '\0');
        for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
            bytes[2 * (it.key() - 1)] = char(it.value() & 0xFF);
            bytes[2 * (it.key() - 1) + 1] = char(it.value() >> 8);
        }
        replies << bytes;
    }
    onSequence(82, QByteArray(), replies);
}

void DeviceModel::recycler(const QList<QByteArray>& coinIds, const QList<Hopper>& hoppers, quint32 cashbox)
{
    setErrorStatus(0, 0);
    on(247, QByteArray(), bytes({coinIds.size(), hoppers.size()}));
    on(84, bytes({2, 5}), le(734112, 3));
    on(84, bytes({2, 1}), QByteArray("5.31"));
    on(84, bytes({2, 4}), QByteArray("C2-RU"));
    for (int p = 1; p <= coinIds.size(); ++p) {
        on(184, QByteArray(1, char(p)), coinIds.at(p - 1));
        on(86, bytes({70, p}), le(0, 4));
    }
    for (int h = 1; h <= hoppers.size(); ++h) {
        const Hopper& hopper = hoppers.at(h - 1);
        on(84, bytes({h + 2, 0}), QByteArray(1, char(hopper.enabled ? 1 : 0)));
        on(84, bytes({h + 2, 5}), le(1000 + h, 3));
        on(84, bytes({h + 2, 1}), QByteArray("2.0") + QByteArray::number(h));
        on(84, bytes({h + 2, 4}), QByteArray("MH") + QByteArray::number(h));
        QByteArray balance = hopper.coinId.left(6);
        balance.append(QByteArray(6 - balance.size(), '\0'));
        on(119, QByteArray(1, char(h)), balance + le(hopper.count, 2));
        on(84, bytes({h + 2, 8}), le(hopper.capacity, 2));
    }
    on(117, QByteArray(), le(cashbox, 4));
}

QList<QByteArray> DeviceModel::answer(const QByteArray& written)
{
    if (written.size() < 5)
        return {};
    const quint8 header = quint8(written.at(3));
    const QByteArray request = written.mid(4, quint8(written.at(1)));
    const QByteArray k = key(header, request);
    received << k;
    Entry* found = nullptr;
    auto it = script.find(k);
    if (it != script.end())
        found = &it.value();
    else if (anyData.contains(header))
        found = &anyData[header];
    if (!found) {
        unexpected << k;
        return {testsupport::nak()};
    }
    Entry& entry = *found;
    if (entry.replies.isEmpty())
        return {};
    const Reply reply = entry.replies.at(qMin(entry.used, entry.replies.size() - 1));
    ++entry.used;
    switch (reply.kind) {
    case Data:
        return {testsupport::reply(reply.data)};
    case Nak:
        return {testsupport::nak()};
    case Busy:
        return {testsupport::busy()};
    case Silent:
        break;
    }
    return {};
}

testsupport::FakeSerialDevice::Responder DeviceModel::responder()
{
    return [this](const QByteArray& written) { return answer(written); };
}

} // namespace changertest
