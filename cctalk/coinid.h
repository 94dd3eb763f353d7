#pragma once

#include <QString>

namespace CcTalk {

// A six-character ccTalk coin identifier: country (2), value (3), issue (1).
class CoinId
{
public:
    CoinId(const QString& text = QString());

    operator QString() const;
    QString getName() const;

    // Denomination in minor units; 0 unless the text has exactly 6 characters. The
    // first non-digit of the value marks the decimal point and scales by G, M or K.
    operator unsigned int() const;
    unsigned int getDenom() const;

private:
    QString id;
};

} // namespace CcTalk
