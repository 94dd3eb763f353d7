#pragma once

#include "cashcontrol/sumdetailed.h"

#include <QList>
#include <QString>

namespace hostkit {

// The largest amount the device's 32-bit money fields hold, in minor units (42949672.95).
constexpr long long maxAmount = 4294967295LL;

// Money as typed by a person: currency units with at most two decimals and a point
// ("15", "15.5", "15.50"). On success *minor holds the amount in minor units (100 = one
// rouble); otherwise *error says what is wrong and *minor is left alone.
bool parseAmount(const QString& text, long long* minor, QString* error);

// A comma-separated list of amounts ("5,10.50"); empty items are refused.
bool parseAmountList(const QString& text, QList<long long>* minor, QString* error);

// Minor units as currency units with two decimals: 1550 -> "15.50", -5 -> "-0.05".
QString formatAmount(long long minor);

// "10.00 x 1, 5.00 x 2" (denominations with a non-zero count, ascending), or "-" when none.
QString sumBreakdown(const SumDetailed& sum);

} // namespace hostkit
