#include "cashcontrol/sumdetailed.h"

#include "host/qtcompat.h"

#include <QStringList>

long long SumDetailed::sum() const
{
    // Modular arithmetic: a sum that does not fit wraps instead of being undefined.
    unsigned long long total = static_cast<unsigned long long>(rest);
    for (QMap<unsigned int, long long>::const_iterator it = denoms.constBegin(); it != denoms.constEnd();
         ++it) {
        total += static_cast<unsigned long long>(it.key()) * static_cast<unsigned long long>(it.value());
    }
    return static_cast<long long>(total);
}

QString SumDetailed::toString() const
{
    QString text = cashcontrol::formatAmount(sum());
    QStringList items;
    for (QMap<unsigned int, long long>::const_iterator it = denoms.constBegin(); it != denoms.constEnd();
         ++it) {
        if (it.value() != 0) {
            items << QStringLiteral("%1 x %2").arg(cashcontrol::formatAmount(it.key())).arg(it.value());
        }
    }
    if (!items.isEmpty()) {
        text += QStringLiteral(". номиналы: ") + items.join(QStringLiteral(", "));
    }
    return text;
}

namespace cashcontrol {

QString formatAmount(long long amount)
{
    // Integer arithmetic: a double loses kopecks above 2^53.
    const bool negative = amount < 0;
    const unsigned long long magnitude =
        negative ? 0ULL - static_cast<unsigned long long>(amount) : static_cast<unsigned long long>(amount);
    const unsigned long long cents = magnitude % 100;
    QString text = QString::number(magnitude / 100) + QLatin1Char('.') + QLatin1Char(char('0' + cents / 10)) +
                   QLatin1Char(char('0' + cents % 10));
    return negative ? QLatin1Char('-') + text : text;
}

QString paidSuffix(long long amount)
{
    return QStringLiteral("; выдано ") + formatAmount(amount);
}

QString paidAtLeastSuffix(long long amount)
{
    return QStringLiteral("; выдано не менее ") + formatAmount(amount);
}

QString paidUnknownSuffix()
{
    return QStringLiteral("; выдано: неизвестно");
}

} // namespace cashcontrol
