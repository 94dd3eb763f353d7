#include "fakeserialdevice.h"

namespace testsupport {

FakeSerialDevice::FakeSerialDevice(QObject* parent) : QObject(parent) {}

void FakeSerialDevice::queueReply(const QByteArray& bytes)
{
    script.append(QList<QByteArray>{bytes});
}

void FakeSerialDevice::queueChunks(const QList<QByteArray>& chunks)
{
    script.append(chunks);
}

void FakeSerialDevice::queueSilence(int writes_)
{
    for (int i = 0; i < writes_; ++i)
        script.append(QList<QByteArray>());
}

void FakeSerialDevice::injectStale(const QByteArray& bytes)
{
    pending.append(bytes);
}

void FakeSerialDevice::discardInput()
{
    ++discards;
    pending.clear();
}

void FakeSerialDevice::write(const QByteArray& data)
{
    writes.append(data);
    if (echo)
        pending.append(data);
    if (!script.isEmpty())
        pending.append(script.takeFirst());
    else if (responder)
        pending.append(responder(data));
    pending.removeAll(QByteArray());
}

bool FakeSerialDevice::waitForInput(int msecs)
{
    waitTimeouts.append(msecs);
    return !pending.isEmpty();
}

QByteArray FakeSerialDevice::read(int maxSize)
{
    ++reads;
    if (pending.isEmpty())
        return QByteArray();
    if (maxSize > 0 && pending.first().size() > maxSize) {
        const QByteArray head = pending.first().left(maxSize);
        pending.first().remove(0, maxSize);
        return head;
    }
    return pending.takeFirst();
}

} // namespace testsupport
