#pragma once

// What the changer's files share: the device's fixed numbers and two small readings of
// unit names and amounts.

#include "changer/timing.h"
#include "host/qtcompat.h"

#include <QString>

namespace CcTalk {
namespace changer {

const int unitFaultState = 3;

// Audit counter groups: coins accepted per coin position, and the two counters
// whose sum is a hopper's coins counted out (the first also counts the cycles
// of its ejection mechanism).
const unsigned char acceptedGroup = 70;
const unsigned char paidOutGroup = 80;
const unsigned char purgedGroup = 87;

inline QString amountText(unsigned int denom)
{
    return QString::number(denom * 0.01, 'f', 2);
}

// "hopper3" -> 3; the low 8 bits of the number, 0 when the rest is not a number.
inline unsigned char hopperNumber(const QString& unitName)
{
    return static_cast<unsigned char>(QString(unitName).remove(QStringLiteral("hopper")).toUInt());
}

} // namespace changer
} // namespace CcTalk
