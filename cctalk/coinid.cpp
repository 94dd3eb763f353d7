#include "cctalk/coinid.h"

#include <QRegularExpression>

namespace CcTalk {

CoinId::CoinId(const QString& text) : id(text) {}

CoinId::operator QString() const
{
    return id;
}

QString CoinId::getName() const
{
    return id;
}

CoinId::operator unsigned int() const
{
    return getDenom();
}

unsigned int CoinId::getDenom() const
{
    if (id.size() != 6)
        return 0;
    QString value = id.mid(2, 3);
    static const QRegularExpression nonDigit(QStringLiteral("\\D"));
    long double multiplier = 1;
    const int i = value.indexOf(nonDigit);
    if (i >= 0) {
        const QChar c = value.at(i);
        if (c == QLatin1Char('G'))
            multiplier = 1000000000;
        else if (c == QLatin1Char('K'))
            multiplier = 1000;
        else if (c == QLatin1Char('M'))
            multiplier = 1000000;
        value[i] = QLatin1Char('.');
    }
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok)
        return 0;
    const qint64 truncated = qint64(number * multiplier);
    return unsigned(quint64(truncated) & 0xFFFFFFFFu);
}

} // namespace CcTalk
