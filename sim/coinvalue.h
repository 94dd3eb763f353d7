#pragma once

#include <QString>

namespace sim {

// Denomination in minor units of a six-character coin id: the three middle characters, where
// the first non-digit marks the decimal point and K, M or G there scale by a thousand, a million
// or a billion ("RU1K0A" = 1000, "RU050B" = 50, "RU2K5A" = 2500). Anything unreadable is worth 0.
quint32 coinValue(const QString& coinId);

// Coins of one country and value share a hopper whatever their issue letter.
bool sameCoin(const QString& a, const QString& b);

} // namespace sim
