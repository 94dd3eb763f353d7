#include "soakport.h"

#include "sim/simulator.h"

#include <algorithm>

namespace soak {

QString LineFault::kindName(Kind kind)
{
    switch (kind) {
    case LostAnswers:
        return QStringLiteral("lost answers");
    case Busy:
        return QStringLiteral("BUSY");
    case Nak:
        return QStringLiteral("NAK");
    case BadChecksum:
        return QStringLiteral("bad checksum");
    case Garbage:
        return QStringLiteral("garbage");
    case Split:
        return QStringLiteral("split answer");
    case Silence:
        return QStringLiteral("silent device");
    case Babble:
        return QStringLiteral("babbling line");
    }
    return QString();
}

QString LineFault::describe() const
{
    QString what = kindName(kind);
    switch (kind) {
    case LostAnswers:
    case Busy:
    case Nak:
    case BadChecksum:
        what += QStringLiteral(" x%1").arg(count);
        break;
    case Garbage:
        what += QStringLiteral(" %1").arg(QString::fromLatin1(garbage.toHex(' ')));
        break;
    case Split:
        what += QStringLiteral(" %1 pieces %2 ms").arg(pieces).arg(pauseMs);
        break;
    case Babble:
        what += QStringLiteral(" for %1 requests").arg(count);
        break;
    case Silence:
        break;
    }
    if (atHeader >= 0)
        return what + QStringLiteral(" at header %1").arg(atHeader);
    return what + QStringLiteral(" at request %1").arg(atFrame);
}

SoakPort::SoakPort(hw::SerialPort* serialPort, sim::Simulator* device, int waitCap, QObject* parent)
    : QObject(parent), port(serialPort), simulator(device), waitCapMsecs(std::max(1, waitCap))
{
}

bool SoakPort::setBaudRate(const QString& value)
{
    settings << QStringLiteral("baud ") + value;
    return port->setBaudRate(value);
}

bool SoakPort::setDataBits(const QString& value)
{
    settings << QStringLiteral("data ") + value;
    return port->setDataBits(value);
}

bool SoakPort::setParity(const QString& value)
{
    settings << QStringLiteral("parity ") + value;
    return port->setParity(value);
}

bool SoakPort::setStopBits(const QString& value)
{
    settings << QStringLiteral("stop ") + value;
    return port->setStopBits(value);
}

bool SoakPort::setFlowControl(const QString& value)
{
    settings << QStringLiteral("flow ") + value;
    return port->setFlowControl(value);
}

void SoakPort::discardInput()
{
    ++attempts;
    if (babbleUntil >= 0)
        ++attemptsInNoise;
    port->discardInput();
}

void SoakPort::write(const QByteArray& data)
{
    // [destination][length][source][header]...: one request per write.
    const int header = data.size() >= 4 ? static_cast<unsigned char>(data.at(3)) : -1;
    if (babbleUntil >= 0 && framesSinceArm >= babbleUntil) {
        simulator->setBabble(false);
        babbleUntil = -1;
    }
    for (LineFault& fault : planned) {
        if (fault.fired)
            continue;
        const bool hit = fault.atHeader >= 0 ? fault.atHeader == header : fault.atFrame == framesSinceArm;
        if (hit) {
            apply(fault);
            fault.fired = true;
        }
    }
    ++framesSinceArm;
    ++framesWritten;
    port->write(data);
}

bool SoakPort::waitForInput(int msecs)
{
    const bool ready = port->waitForInput(std::min(msecs, waitCapMsecs));
    if (!ready)
        ++waitsTimedOut;
    return ready;
}

QByteArray SoakPort::read(int maxSize)
{
    return port->read(maxSize);
}

void SoakPort::arm(const QList<LineFault>& faults)
{
    planned = faults;
    framesSinceArm = 0;
}

QList<LineFault> SoakPort::disarm()
{
    QList<LineFault> fired;
    for (const LineFault& fault : planned) {
        if (fault.fired)
            fired << fault;
    }
    planned.clear();
    if (babbleUntil >= 0)
        simulator->setBabble(false);
    babbleUntil = -1;
    return fired;
}

void SoakPort::apply(const LineFault& fault)
{
    switch (fault.kind) {
    case LineFault::LostAnswers:
        simulator->dropAnswers(fault.count);
        break;
    case LineFault::Busy:
        simulator->answerBusy(fault.count);
        break;
    case LineFault::Nak:
        simulator->nakNext(fault.count);
        break;
    case LineFault::BadChecksum:
        simulator->corruptChecksumNext(fault.count);
        break;
    case LineFault::Garbage:
        simulator->garbageBeforeNext(fault.garbage);
        break;
    case LineFault::Split:
        simulator->splitNext(fault.pieces, fault.pauseMs);
        break;
    case LineFault::Silence:
        simulator->setSilent(true);
        break;
    case LineFault::Babble:
        simulator->setBabble(true);
        babbleUntil = framesSinceArm + std::max(1, fault.count);
        break;
    }
}

} // namespace soak
