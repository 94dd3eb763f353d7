#pragma once

#include "support/columns.h"

namespace testsupport {

// The value of a coin identifier, for the driver's reading and the simulator's alike: the three
// middle characters, K, M or G scaling by a thousand, a million or a billion where the decimal
// point stands, truncated toward zero; anything but six characters is worth nothing.
inline void coinValueRows()
{
    columns<QString, uint>("coinId", "value");
    QTest::newRow("RU001A") << QStringLiteral("RU001A") << 1u;
    QTest::newRow("RU005A") << QStringLiteral("RU005A") << 5u;
    QTest::newRow("RU010A") << QStringLiteral("RU010A") << 10u;
    QTest::newRow("RU050B") << QStringLiteral("RU050B") << 50u;
    QTest::newRow("RU100A") << QStringLiteral("RU100A") << 100u;
    QTest::newRow("RU200A") << QStringLiteral("RU200A") << 200u;
    QTest::newRow("RU500A") << QStringLiteral("RU500A") << 500u;
    QTest::newRow("RU1K0A") << QStringLiteral("RU1K0A") << 1000u;
    QTest::newRow("RU1K0B") << QStringLiteral("RU1K0B") << 1000u;
    QTest::newRow("RU2K5A") << QStringLiteral("RU2K5A") << 2500u;
    QTest::newRow("RU5K0A") << QStringLiteral("RU5K0A") << 5000u;
    QTest::newRow("RU1M0A") << QStringLiteral("RU1M0A") << 1000000u;
    QTest::newRow("RU1G0A") << QStringLiteral("RU1G0A") << 1000000000u;
    QTest::newRow("9G9 keeps the low 32 bits") << QStringLiteral("RU9G9A") << 1310065408u;
    QTest::newRow("5G0 keeps the low 32 bits") << QStringLiteral("RU5G0A") << 705032704u;
    QTest::newRow("99G") << QStringLiteral("RU99GA") << 215752192u;
    QTest::newRow("scale letter first") << QStringLiteral("RUK10A") << 100u;
    QTest::newRow("M first") << QStringLiteral("RUM01A") << 10000u;
    QTest::newRow("scale letter last") << QStringLiteral("RU25KA") << 25000u;
    QTest::newRow("truncated, not rounded") << QStringLiteral("RU0K7A") << 699u;
    QTest::newRow("truncated 2K3") << QStringLiteral("RU2K3A") << 2299u;
    QTest::newRow("lower case does not scale") << QStringLiteral("RU1k0A") << 1u;
    QTest::newRow("H does not scale") << QStringLiteral("RU1H5A") << 1u;
    QTest::newRow("I, J, L do not scale") << QStringLiteral("RU2J0A") << 2u;
    QTest::newRow("point") << QStringLiteral("RU1.5A") << 1u;
    QTest::newRow("non-ASCII letter") << QStringLiteral("RU1Ж0A") << 1u;
    QTest::newRow("blank after 50") << QStringLiteral("RU50 A") << 50u;
    QTest::newRow("blank before 50") << QStringLiteral("RU 50A") << 0u;
    QTest::newRow("blank in the middle") << QStringLiteral("RU5 0A") << 5u;
    QTest::newRow("country not read") << QStringLiteral("XX100A") << 100u;
    QTest::newRow("issue not read") << QStringLiteral("RU100?") << 100u;
    QTest::newRow("zeros") << QStringLiteral("RU000A") << 0u;
    QTest::newRow("second non-digit") << QStringLiteral("RU1K.A") << 0u;
    QTest::newRow("sign") << QStringLiteral("RU-50A") << 0u;
    QTest::newRow("all letters") << QStringLiteral("RUABCD") << 0u;
    QTest::newRow("dots") << QStringLiteral("......") << 0u;
    QTest::newRow("5 characters") << QStringLiteral("RU10A") << 0u;
    QTest::newRow("5 characters of digits") << QStringLiteral("RU100") << 0u;
    QTest::newRow("7 characters") << QStringLiteral("RU100AB") << 0u;
    QTest::newRow("7 characters, scaled") << QStringLiteral("RU1K0AA") << 0u;
    QTest::newRow("empty") << QString() << 0u;
}

} // namespace testsupport
