#pragma once

#include <QString>

namespace sim {

// Denomination in minor units of a six-character coin id, read as the driver reads it
// ("RU1K0A" = 1000, "RU050B" = 50). Anything unreadable is worth 0.
quint32 coinValue(const QString& coinId);

// Coins of one country and value share a hopper whatever their issue letter.
bool sameCoin(const QString& a, const QString& b);

} // namespace sim
