#include "coinvalue.h"

namespace sim {

quint32 coinValue(const QString& coinId)
{
    if (coinId.size() != 6)
        return 0;
    QString digits = coinId.mid(2, 3);
    quint64 scale = 1;
    for (int i = 0; i < digits.size(); ++i) {
        const QChar c = digits.at(i);
        if (c.isDigit())
            continue;
        if (c == QLatin1Char('K'))
            scale = 1000;
        else if (c == QLatin1Char('M'))
            scale = 1000000;
        else if (c == QLatin1Char('G'))
            scale = 1000000000;
        digits[i] = QLatin1Char('.');
        break;
    }
    bool ok = false;
    const double v = digits.toDouble(&ok);
    if (!ok)
        return 0;
    return quint32(quint64(v * double(scale) + 1e-6));
}

bool sameCoin(const QString& a, const QString& b)
{
    return a.size() == 6 && a.left(5) == b.left(5);
}

} // namespace sim
