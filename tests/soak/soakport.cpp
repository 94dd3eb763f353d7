#include "soakport.h"

#include "support/simline.h"

#include <algorithm>
#include <iterator>

namespace soak {

QString LineFault::kindName(Kind kind)
{
    static const char* const names[] = {"lost answers", "BUSY",          "NAK",
                                        "bad checksum", "short answer",  "garbage",
                                        "split answer", "silent device", "babbling line"};
    static_assert(std::size(names) == std::size_t(Babble) + 1, "one name for each Kind");
    return QString::fromLatin1(names[kind]);
}

QString LineFault::describe() const
{
    QString what = kindName(kind);
    switch (kind) {
    case LostAnswers:
    case Busy:
    case Nak:
    case BadChecksum:
    case ShortAnswer:
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

SoakPort::SoakPort(testsupport::SimLine* simLine, QObject* parent) : QObject(parent), line(simLine) {}

void SoakPort::discardInput()
{
    ++attempts;
    if (babbleUntil >= 0)
        ++attemptsInNoise;
    line->discardInput();
}

void SoakPort::write(const QByteArray& data)
{
    // [destination][length][source][header]...: one request per write.
    const int header = data.size() >= 4 ? static_cast<unsigned char>(data.at(3)) : -1;
    if (babbleUntil >= 0 && framesSinceArm >= babbleUntil) {
        line->setBabble(false);
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
    // [55][3][1][120][hopper][count low][count high][checksum]
    if (header == 120 && data.size() == 8 && static_cast<unsigned char>(data.at(0)) == 55) {
        BalanceWrite w;
        w.hopper = static_cast<unsigned char>(data.at(4));
        w.before = line->device().hopperCount(w.hopper);
        w.written = static_cast<unsigned char>(data.at(5)) | static_cast<unsigned char>(data.at(6)) << 8;
        balanceWrites << w;
    }
    line->write(data);
}

bool SoakPort::waitForInput(int msecs)
{
    return line->waitForInput(msecs);
}

QByteArray SoakPort::read(int maxSize)
{
    return line->read(maxSize);
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
        line->setBabble(false);
    babbleUntil = -1;
    return fired;
}

void SoakPort::apply(const LineFault& fault)
{
    using testsupport::SimLine;
    // The faults that last `count` answers, indexed by LineFault::Kind.
    static void (SimLine::*const counted[])(int) = {&SimLine::dropAnswers, &SimLine::answerBusy,
                                                    &SimLine::nakNext, &SimLine::corruptChecksumNext,
                                                    &SimLine::shortenNext};
    switch (fault.kind) {
    case LineFault::LostAnswers:
    case LineFault::Busy:
    case LineFault::Nak:
    case LineFault::BadChecksum:
    case LineFault::ShortAnswer:
        (line->*counted[fault.kind])(fault.count);
        break;
    case LineFault::Garbage:
        line->garbageBeforeNext(fault.garbage);
        break;
    case LineFault::Split:
        line->splitNext(fault.pieces, fault.pauseMs);
        break;
    case LineFault::Silence:
        line->setSilent(true);
        break;
    case LineFault::Babble:
        line->setBabble(true);
        babbleUntil = framesSinceArm + std::max(1, fault.count);
        break;
    }
}

} // namespace soak
