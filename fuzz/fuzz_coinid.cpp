// Coin identifier conversion on arbitrary text, against a plain reading of the rule: six
// characters, value in characters 2 to 4, the first non-digit becomes the decimal point and
// scales by G, M or K, the product is truncated and keeps its low 32 bits.

#include "cctalk/coinid.h"
#include "fuzzinput.h"

#include <cstdlib>

namespace {

bool isAsciiDigit(QChar c)
{
    return c.unicode() >= '0' && c.unicode() <= '9';
}

unsigned int modelDenomination(const QString& text)
{
    if (text.size() != 6)
        return 0;
    QString value = text.mid(2, 3);
    long double multiplier = 1;
    for (int i = 0; i < value.size(); ++i) {
        if (isAsciiDigit(value.at(i)))
            continue;
        if (value.at(i) == QLatin1Char('G'))
            multiplier = 1000000000;
        else if (value.at(i) == QLatin1Char('K'))
            multiplier = 1000;
        else if (value.at(i) == QLatin1Char('M'))
            multiplier = 1000000;
        value[i] = QLatin1Char('.');
        break;
    }
    // Reading a number ignores white space around it; what is left must be digits with at most
    // one point and at least one digit.
    value = value.trimmed();
    int digits = 0;
    int points = 0;
    for (const QChar c : value) {
        if (isAsciiDigit(c))
            ++digits;
        else if (c == QLatin1Char('.'))
            ++points;
        else
            return 0;
    }
    if (digits == 0 || points > 1)
        return 0;
    const double number = std::strtod(value.toLatin1().constData(), nullptr);
    const qint64 truncated = qint64(number * multiplier);
    return unsigned(quint64(truncated) & 0xFFFFFFFFu);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    fuzz::FuzzInput input(bytes, size);
    const uint8_t encoding = input.takeByte();
    const QByteArray raw = input.takeRest();
    QString text;
    switch (encoding % 3) {
    case 0:
        // Every byte one character.
        text = QString::fromLatin1(raw);
        break;
    case 1:
        // What the answer classes make of the data bytes.
        text = QString::fromUtf8(raw);
        break;
    default:
        text = QString::fromUtf16(reinterpret_cast<const char16_t*>(raw.constData()), raw.size() / 2);
        break;
    }

    const CcTalk::CoinId id(text);
    fuzz::check(id.getName() == text, "the name is not the whole text");
    fuzz::check(QString(id) == text, "the text conversion changed the text");
    const unsigned int denom = id.getDenom();
    fuzz::check(unsigned(id) == denom, "the two denomination conversions differ");
    fuzz::check(denom == modelDenomination(text), "denomination differs from the rule");

    const CcTalk::CoinId copy = id;
    fuzz::check(copy.getDenom() == denom && copy.getName() == text, "a copy converts differently");
    return 0;
}
