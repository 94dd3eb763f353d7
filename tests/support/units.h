#pragma once

#include "cashcontrol/sumdetailed.h"
#include "cashcontrol/units.h"

#include <QString>
#include <QStringList>
#include <QTextStream>

namespace testsupport {

// A hopper as discovery reports it: "hopper<index>", one denomination, the fill limit at 50.
inline CashControlUnit hopper(int index, unsigned int denom, long long count = 0, int capacity = 0,
                              int state = 0)
{
    CashControlUnit unit;
    unit.name = QStringLiteral("hopper%1").arg(index);
    unit.type = cashunits::hopperType;
    unit.operations = cashunits::hopperOperations;
    unit.flag = 1;
    unit.denom = denom;
    unit.count = count;
    unit.capacity = capacity;
    unit.state = state;
    unit.limit3 = 50;
    return unit;
}

inline CashControlUnit cashbox(long long sum = 0, int state = 0)
{
    CashControlUnit unit;
    unit.name = QStringLiteral("cashbox");
    unit.type = cashunits::cashboxType;
    unit.operations = cashunits::cashboxOperations;
    unit.sum = sum;
    unit.state = state;
    return unit;
}

inline SumDetailed sumOf(const QMap<unsigned int, long long>& denoms, long long rest = 0, long long extra = 0)
{
    SumDetailed sum;
    sum.denoms = denoms;
    sum.rest = rest;
    sum.extra = extra;
    return sum;
}

// Every field of a unit in declaration order, so that one comparison checks them all.
inline QString unitFields(const CashControlUnit& unit)
{
    QStringList denoms;
    for (auto it = unit.denoms.constBegin(); it != unit.denoms.constEnd(); ++it)
        denoms << QStringLiteral("%1 x %2").arg(it.key()).arg(it.value());
    QString text;
    QTextStream(&text) << "name \"" << unit.name << "\", type " << unit.type << ", operations 0x"
                       << QString::number(unit.operations, 16) << ", flag " << unit.flag << ", denom "
                       << unit.denom << ", count " << unit.count << ", sum " << unit.sum << ", capacity "
                       << unit.capacity << ", reserve1 " << unit.reserve1 << ", denoms {"
                       << denoms.join(QStringLiteral(", ")) << "}, reserve2 " << unit.reserve2 << ", state "
                       << unit.state << ", title \"" << unit.title << "\", limits " << unit.limit1 << ' '
                       << unit.limit2 << ' ' << unit.limit3 << ' ' << unit.limit4;
    return text;
}

} // namespace testsupport
