#pragma once

#include <QMap>
#include <QMetaType>
#include <QString>

// An amount broken down by denomination. Amounts and counts are in minor
// currency units (100 = one rouble).
struct SumDetailed
{
    SumDetailed() : rest(0), extra(0) {}

    QMap<unsigned int, long long> denoms;
    // Part of the amount not broken down by denomination.
    long long rest;
    // A second amount carried alongside; neither sum() nor toString() reads it.
    long long extra;

    long long sum() const;
    // "20.00. номиналы: 5.00 x 2, 10.00 x 1"
    QString toString() const;
};

Q_DECLARE_METATYPE(SumDetailed)

namespace cashcontrol {

// An amount in minor units as units with two decimals and a point ("15.50",
// "-5.00"), exact for every 64-bit value.
QString formatAmount(long long amount);

// The end of the message of a payout that failed after its command went out, telling
// what came out: "; выдано 11.00", "; выдано не менее 4.00" when the device was still
// paying, "; выдано: неизвестно" when its counters could not tell.
QString paidSuffix(long long amount);
QString paidAtLeastSuffix(long long amount);
QString paidUnknownSuffix();

} // namespace cashcontrol
