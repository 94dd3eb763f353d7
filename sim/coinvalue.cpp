#include "coinvalue.h"

namespace sim {

namespace {

bool isDigit(QChar c)
{
    return c.unicode() >= '0' && c.unicode() <= '9';
}

// K, M and G scale the value; any other character in their place is a plain decimal point.
long double scaleOf(QChar mark)
{
    switch (mark.unicode()) {
    case 'K':
        return 1e3L;
    case 'M':
        return 1e6L;
    case 'G':
        return 1e9L;
    }
    return 1;
}

} // namespace

quint32 coinValue(const QString& coinId)
{
    if (coinId.size() != 6)
        return 0;
    // Country (2 characters), value (3), issue (1).
    QString number = coinId.mid(2, 3);
    int mark = 0;
    while (mark < number.size() && isDigit(number.at(mark)))
        ++mark;
    long double scale = 1;
    if (mark < number.size()) {
        scale = scaleOf(number.at(mark));
        number[mark] = QLatin1Char('.');
    }
    bool ok = false;
    const double figure = number.toDouble(&ok);
    if (!ok)
        return 0;
    // Scaled in extended precision and truncated toward zero (RU0K7A is 699, not 700); a value
    // beyond 32 bits keeps its low 32.
    return quint32(qint64(figure * scale));
}

bool sameCoin(const QString& a, const QString& b)
{
    return a.size() == 6 && a.left(5) == b.left(5);
}

} // namespace sim
