#include "amount.h"

#include <QStringList>

namespace hostkit {

namespace {

bool allDigits(const QString& s)
{
    for (const QChar c : s)
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
    return true;
}

} // namespace

bool parseAmount(const QString& text, long long* minor, QString* error)
{
    const auto fail = [&](const QString& why) {
        if (error)
            *error = why;
        return false;
    };
    if (text.isEmpty())
        return fail(QStringLiteral("an amount is required"));
    if (text.startsWith(QLatin1Char('-')))
        return fail(QStringLiteral("amount \"%1\" is negative").arg(text));
    if (text.contains(QLatin1Char(',')))
        return fail(QStringLiteral("amount \"%1\": use a point for the decimals, as in 15.50").arg(text));

    const int point = text.indexOf(QLatin1Char('.'));
    const QString units = point < 0 ? text : text.left(point);
    const QString cents = point < 0 ? QString() : text.mid(point + 1);
    if (units.isEmpty() || !allDigits(units) || (point >= 0 && (cents.isEmpty() || !allDigits(cents))))
        return fail(QStringLiteral("amount \"%1\" is not a number such as 15 or 15.50").arg(text));
    if (cents.size() > 2)
        return fail(QStringLiteral("amount \"%1\" has more than two decimals").arg(text));

    // Leading zeros aside, more than eight digits of whole units is beyond any 32-bit amount;
    // checking the length first keeps the arithmetic below far from overflow.
    QString significant = units;
    while (significant.size() > 1 && significant.startsWith(QLatin1Char('0')))
        significant.remove(0, 1);
    const QString tooLarge = QStringLiteral("amount \"%1\" is larger than the device can handle (at most %2)")
                                 .arg(text, formatAmount(maxAmount));
    if (significant.size() > 8)
        return fail(tooLarge);

    long long value = significant.toLongLong() * 100;
    if (!cents.isEmpty())
        value += cents.size() == 1 ? cents.toLongLong() * 10 : cents.toLongLong();
    if (value > maxAmount)
        return fail(tooLarge);
    *minor = value;
    return true;
}

bool parseAmountList(const QString& text, QList<long long>* minor, QString* error)
{
    QList<long long> values;
    for (const QString& item : text.split(QLatin1Char(','))) {
        long long value = 0;
        if (!parseAmount(item.trimmed(), &value, error))
            return false;
        values.append(value);
    }
    *minor = values;
    return true;
}

QString formatAmount(long long minor)
{
    // Magnitude in unsigned arithmetic: the negation of the smallest long long does not fit.
    const unsigned long long magnitude =
        minor < 0 ? 0ULL - static_cast<unsigned long long>(minor) : static_cast<unsigned long long>(minor);
    return QStringLiteral("%1%2.%3")
        .arg(minor < 0 ? QStringLiteral("-") : QString())
        .arg(magnitude / 100)
        .arg(magnitude % 100, 2, 10, QLatin1Char('0'));
}

QString sumBreakdown(const SumDetailed& sum)
{
    QStringList items;
    for (auto it = sum.denoms.begin(); it != sum.denoms.end(); ++it)
        if (it.value() != 0)
            items.append(QStringLiteral("%1 x %2").arg(formatAmount(it.key())).arg(it.value()));
    return items.isEmpty() ? QStringLiteral("-") : items.join(QStringLiteral(", "));
}

} // namespace hostkit
