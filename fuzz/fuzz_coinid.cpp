// Coin identifier conversion on arbitrary text, checked against values written out by hand
// rather than against a second computation of the same arithmetic.
//
// Input: [mode][rest]. Modes 0, 1 and 2 read the rest as text (Latin-1, UTF-8, UTF-16) and
// check what holds for any text: the name is the text, only six characters have a value,
// three digits in the middle are worth their number, and the country (characters 0 and 1)
// and the issue letter (character 5) never change the value. Mode 3 is
// [3][entry][c0][c1][c5]: an identifier of the table below with its country and issue
// replaced by the three characters, whose value must be the one in the table.

#include "cctalk/coinid.h"
#include "fuzzinput.h"

#include <iterator>

namespace {

struct Known
{
    const char* text;
    unsigned int value; // minor units
};

// Values derived by hand: the middle three characters, the first non-digit read as the
// decimal point, G, K and M scaling by a billion, a thousand and a million, the result
// truncated and kept to its low 32 bits.
const Known known[] = {
    {"RU001A", 1},          {"RU010A", 10},  {"RU050B", 50},      {"RU100A", 100},   {"RU500A", 500},
    {"RU999A", 999},        {"RU000A", 0},   {"RU1K0A", 1000},    {"RU2K5A", 2500},  {"RU5K0A", 5000},
    {"RU25KA", 25000},      {"RUK10A", 100}, {"RU1M0A", 1000000}, {"RUM01A", 10000}, {"RU1G0A", 1000000000},
    {"RU9G9A", 1310065408},                // 9 900 000 000 - 2 * 4 294 967 296
    {"RU5G0A", 705032704},                 // 5 000 000 000 - 4 294 967 296
    {"RU99GA", 215752192},                 // 99 000 000 000 - 23 * 4 294 967 296
    {"RU0K7A", 699},                       // 0.7 has no exact binary form: 699.99... truncated
    {"RU2K3A", 2299},       {"RU1k0A", 1}, // lower case does not scale
    {"RU1H5A", 1},          {"RU2J0A", 2},   {"RU1.5A", 1},       {"RU50 A", 50},    {"RU5 0A", 5},
    {"RU 50A", 0},          {"RU1K.A", 0},   {"RU-50A", 0},       {"RU+50A", 0},     {"RUABCA", 0},
    {"RU...A", 0},
};

bool isAsciiDigit(QChar c)
{
    return c.unicode() >= '0' && c.unicode() <= '9';
}

unsigned int digitValue(QChar c)
{
    return unsigned(c.unicode() - u'0');
}

unsigned int denomOf(const QString& text)
{
    return CcTalk::CoinId(text).getDenom();
}

void checkAnyText(const QString& text)
{
    const CcTalk::CoinId id(text);
    fuzz::check(id.getName() == text, "the name is not the whole text");
    fuzz::check(QString(id) == text, "the text conversion changed the text");
    const unsigned int denom = id.getDenom();
    fuzz::check(unsigned(id) == denom, "the two denomination conversions differ");
    const CcTalk::CoinId copy = id;
    fuzz::check(copy.getDenom() == denom && copy.getName() == text, "a copy converts differently");

    if (text.size() != 6) {
        fuzz::check(denom == 0, "a text that is not six characters long has a value");
        return;
    }
    if (isAsciiDigit(text.at(2)) && isAsciiDigit(text.at(3)) && isAsciiDigit(text.at(4)))
        fuzz::check(denom ==
                        digitValue(text.at(2)) * 100 + digitValue(text.at(3)) * 10 + digitValue(text.at(4)),
                    "three digits are not worth their number");

    QString other = text;
    other[0] = QLatin1Char('X');
    other[1] = QChar(0x0416);
    other[5] = QLatin1Char(' ');
    fuzz::check(denomOf(other) == denom, "the country or the issue letter changed the value");
}

void checkKnown(fuzz::FuzzInput& input)
{
    const Known& entry = known[input.takeByte() % std::size(known)];
    QString text = QString::fromLatin1(entry.text);
    fuzz::check(denomOf(text) == entry.value, "an identifier of the table has another value");
    text[0] = QChar(input.takeByte());
    text[1] = QChar(input.takeByte());
    text[5] = QChar(input.takeByte());
    fuzz::check(denomOf(text) == entry.value, "another country or issue letter changed the value");
    checkAnyText(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    fuzz::FuzzInput input(bytes, size);
    const uint8_t mode = input.takeByte() & 3;
    if (mode == 3) {
        checkKnown(input);
        return 0;
    }
    const QByteArray raw = input.takeRest();
    QString text;
    switch (mode) {
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
    checkAnyText(text);
    return 0;
}
