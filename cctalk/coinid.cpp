#include "cctalk/coinid.h"

#include <algorithm>

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
    // The first character that is not 0 to 9 marks the fraction; a plain scan, since a
    // regular expression finds nothing at all in text that is not valid UTF-16.
    const auto nonDigit = std::find_if(value.constBegin(), value.constEnd(),
                                       [](QChar c) { return c.unicode() < '0' || c.unicode() > '9'; });
    const int i = nonDigit == value.constEnd() ? -1 : int(nonDigit - value.constBegin());
    long double multiplier = 1;
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
