#include "report.h"

#include "hostkit/amount.h"

#include "cashcontrol/units.h"

#include <algorithm>

namespace tool {

using hostkit::formatAmount;

QString renderTable(const QStringList& headers, const QList<QStringList>& rows, const QVector<Align>& align)
{
    QVector<int> widths(headers.size(), 0);
    for (int c = 0; c < headers.size(); ++c)
        widths[c] = headers.at(c).size();
    for (const QStringList& row : rows)
        for (int c = 0; c < row.size() && c < widths.size(); ++c)
            widths[c] = std::max(widths[c], int(row.at(c).size()));

    const auto line = [&](const QStringList& cells) {
        QString text;
        for (int c = 0; c < widths.size(); ++c) {
            const QString cell = c < cells.size() ? cells.at(c) : QString();
            if (c > 0)
                text += QStringLiteral("  ");
            const bool right = c < align.size() && align.at(c) == Align::Right;
            text += right ? cell.rightJustified(widths.at(c)) : cell.leftJustified(widths.at(c));
        }
        while (text.endsWith(QLatin1Char(' ')))
            text.chop(1);
        return text + QLatin1Char('\n');
    };

    QString table = line(headers);
    for (const QStringList& row : rows)
        table += line(row);
    return table;
}

QString unitKind(const CashControlUnit& unit)
{
    if (cashunits::isHopper(unit))
        return QStringLiteral("hopper");
    if (cashunits::isCashbox(unit))
        return QStringLiteral("cashbox");
    return QStringLiteral("type %1").arg(unit.type);
}

QString unitState(const CashControlUnit& unit)
{
    if (unit.state == 0)
        return QStringLiteral("ok");
    if (unit.state == 3)
        return QStringLiteral("fault");
    return QStringLiteral("state %1").arg(unit.state);
}

QString unitsTable(const QList<CashControlUnit>& units)
{
    QList<QStringList> rows;
    for (const CashControlUnit& u : units) {
        const bool hopper = cashunits::isHopper(u);
        rows.append({u.name, unitKind(u), hopper ? formatAmount(u.denom) : QStringLiteral("-"),
                     hopper ? QString::number(u.count) : QStringLiteral("-"),
                     hopper ? QString::number(u.capacity) : QStringLiteral("-"),
                     formatAmount(cashunits::unitValue(u)), unitState(u)});
    }
    return renderTable(
        {QStringLiteral("unit"), QStringLiteral("kind"), QStringLiteral("denomination"),
         QStringLiteral("count"), QStringLiteral("capacity"), QStringLiteral("sum"), QStringLiteral("state")},
        rows,
        {Align::Left, Align::Left, Align::Right, Align::Right, Align::Right, Align::Right, Align::Left});
}

QJsonObject unitJson(const CashControlUnit& unit)
{
    return QJsonObject{
        {QStringLiteral("name"), unit.name},
        {QStringLiteral("kind"), unitKind(unit)},
        {QStringLiteral("type"), unit.type},
        {QStringLiteral("denom"), qint64(unit.denom)},
        {QStringLiteral("count"), qint64(unit.count)},
        {QStringLiteral("capacity"), unit.capacity},
        {QStringLiteral("sum"), qint64(cashunits::unitValue(unit))},
        {QStringLiteral("state"), unit.state},
        {QStringLiteral("operations"), unit.operations},
    };
}

QJsonArray unitsJson(const QList<CashControlUnit>& units)
{
    QJsonArray array;
    for (const CashControlUnit& u : units)
        array.append(unitJson(u));
    return array;
}

QList<unsigned int> sortedDenoms(const QSet<unsigned int>& denoms)
{
    QList<unsigned int> list = denoms.values();
    std::sort(list.begin(), list.end());
    return list;
}

QJsonArray denomsJson(const QSet<unsigned int>& denoms)
{
    QJsonArray array;
    for (const unsigned int d : sortedDenoms(denoms))
        array.append(qint64(d));
    return array;
}

QString sumTable(const SumDetailed& sum)
{
    QList<QStringList> rows;
    for (auto it = sum.denoms.begin(); it != sum.denoms.end(); ++it) {
        if (it.value() == 0)
            continue;
        rows.append({formatAmount(it.key()), QString::number(it.value()),
                     formatAmount(static_cast<long long>(it.key()) * it.value())});
    }
    if (sum.rest != 0)
        rows.append({QStringLiteral("not by coin"), QString(), formatAmount(sum.rest)});
    rows.append({QStringLiteral("total"), QString(), formatAmount(sum.sum())});
    return renderTable({QStringLiteral("denomination"), QStringLiteral("count"), QStringLiteral("sum")}, rows,
                       {Align::Right, Align::Right, Align::Right});
}

QJsonObject sumJson(const SumDetailed& sum)
{
    QJsonArray denoms;
    for (auto it = sum.denoms.begin(); it != sum.denoms.end(); ++it)
        if (it.value() != 0)
            denoms.append(QJsonObject{{QStringLiteral("denom"), qint64(it.key())},
                                      {QStringLiteral("count"), qint64(it.value())}});
    return QJsonObject{{QStringLiteral("sum"), qint64(sum.sum())},
                       {QStringLiteral("denoms"), denoms},
                       {QStringLiteral("rest"), qint64(sum.rest)}};
}

QString maintenanceTable(const QList<hw::CcUnitMaintenanceInfo>& records)
{
    QList<QStringList> rows;
    for (const hw::CcUnitMaintenanceInfo& r : records)
        rows.append({r.unitName, r.status ? QStringLiteral("ok") : QStringLiteral("service due"),
                     QString::number(r.cycles), QString::number(r.interval),
                     r.description.isEmpty() ? QStringLiteral("-") : r.description});
    return renderTable({QStringLiteral("unit"), QStringLiteral("status"), QStringLiteral("cycles"),
                        QStringLiteral("interval"), QStringLiteral("description")},
                       rows, {Align::Left, Align::Left, Align::Right, Align::Right, Align::Left});
}

QJsonObject maintenanceJson(const hw::CcUnitMaintenanceInfo& record)
{
    return QJsonObject{{QStringLiteral("unit"), record.unitName},
                       {QStringLiteral("ok"), record.status},
                       {QStringLiteral("cycles"), record.cycles},
                       {QStringLiteral("interval"), record.interval},
                       {QStringLiteral("description"), record.description}};
}

} // namespace tool
