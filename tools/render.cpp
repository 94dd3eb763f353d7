#include "render.h"

#include "report.h"

#include "cashcontrol/ecashcontrol.h"
#include "cashcontrol/units.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"

#include <QJsonArray>
#include <QStringList>

namespace tool {

using hostkit::counterKey;
using hostkit::formatAmount;
using hostkit::modeKey;
using hostkit::sumBreakdown;

namespace {

QString indent(bool indented)
{
    return indented ? QStringLiteral("  ") : QString();
}

QString operationName(int operation)
{
    return ECashControl::operationName(operation);
}

} // namespace

QString toText(const StatusResult& result)
{
    return QStringLiteral("device  %1 (%2): %3\n"
                          "port    %4%5\n"
                          "state   ok\n\n")
               .arg(result.name, result.typeName, result.driver, result.port,
                    result.simulated ? QStringLiteral(" (built-in simulator)") : QString()) +
           unitsTable(result.units);
}

QJsonObject toJson(const StatusResult& result)
{
    return {{QStringLiteral("state"), QStringLiteral("ok")},
            {QStringLiteral("device"), QJsonObject{{QStringLiteral("name"), result.name},
                                                   {QStringLiteral("typeName"), result.typeName},
                                                   {QStringLiteral("model"), result.model},
                                                   {QStringLiteral("driver"), result.driver},
                                                   {QStringLiteral("port"), result.port},
                                                   {QStringLiteral("simulated"), result.simulated},
                                                   {QStringLiteral("plugin"), result.plugin}}},
            {QStringLiteral("units"), unitsJson(result.units)}};
}

QString toText(const UnitsResult& result)
{
    return unitsTable(result.units);
}

QJsonObject toJson(const UnitsResult& result)
{
    return {{QStringLiteral("units"), unitsJson(result.units)}};
}

QString toText(const DenomsResult& result)
{
    QString text;
    for (const unsigned int d : sortedDenoms(result.denoms))
        text += formatAmount(d) + QLatin1Char('\n');
    return text;
}

QJsonObject toJson(const DenomsResult& result)
{
    return {{QStringLiteral("denoms"), denomsJson(result.denoms)}};
}

QString toText(const CheckResult& result)
{
    return QStringLiteral("%1 %2 be paid as change (%3)\n")
        .arg(formatAmount(result.amount), result.payable ? QStringLiteral("can") : QStringLiteral("cannot"),
             modeKey(result.mode));
}

QJsonObject toJson(const CheckResult& result)
{
    return {{QStringLiteral("amount"), qint64(result.amount)},
            {QStringLiteral("mode"), modeKey(result.mode)},
            {QStringLiteral("payable"), result.payable}};
}

QString toText(const PayResult& result)
{
    return QStringLiteral("paid %1 (%2)\n").arg(formatAmount(result.paid.sum()), modeKey(result.mode)) +
           sumTable(result.paid);
}

QJsonObject toJson(const PayResult& result)
{
    return {{QStringLiteral("amount"), qint64(result.amount)},
            {QStringLiteral("mode"), modeKey(result.mode)},
            {QStringLiteral("paid"), sumJson(result.paid)}};
}

QString toText(const LoanResult& result)
{
    return QStringLiteral("loan of %1 into %2 (%3)\n")
               .arg(formatAmount(result.amount), result.unit, operationName(result.operation)) +
           unitChangeText(result.change);
}

QJsonObject toJson(const LoanResult& result)
{
    return {{QStringLiteral("unit"), result.unit},
            {QStringLiteral("operation"), result.operation},
            {QStringLiteral("operationName"), operationName(result.operation)},
            {QStringLiteral("amount"), qint64(result.amount)},
            {QStringLiteral("before"), unitJson(result.change.before)},
            {QStringLiteral("after"), unitJson(result.change.after)}};
}

QString toText(const PickupResult& result)
{
    return QStringLiteral("pickup from %1 (%2)\n").arg(result.unit, operationName(result.operation)) +
           sumTable(result.taken) + unitChangeText(result.change);
}

QJsonObject toJson(const PickupResult& result)
{
    return {{QStringLiteral("unit"), result.unit},
            {QStringLiteral("operation"), result.operation},
            {QStringLiteral("operationName"), operationName(result.operation)},
            {QStringLiteral("amount"), result.hasAmount ? QJsonValue(qint64(result.amount)) : QJsonValue()},
            {QStringLiteral("taken"), sumJson(result.taken)},
            {QStringLiteral("before"), unitJson(result.change.before)},
            {QStringLiteral("after"), unitJson(result.change.after)}};
}

QString toText(const CountersResult& result)
{
    QStringList parts;
    for (const auto& counter : result.counters)
        parts.append(QStringLiteral("%1 (%2)\n")
                         .arg(counterKey(counter.first), ECashControl::counterName(counter.first)) +
                     sumTable(counter.second));
    return parts.join(QLatin1Char('\n'));
}

QJsonObject toJson(const CountersResult& result)
{
    QJsonObject json;
    for (const auto& counter : result.counters)
        json.insert(counterKey(counter.first), sumJson(counter.second));
    return json;
}

QString toText(const MaintenanceResult& result)
{
    return (result.done ? QStringLiteral("maintenance of %1 recorded as done\n").arg(result.doneUnit)
                        : QString()) +
           maintenanceTable(result.records);
}

QJsonObject toJson(const MaintenanceResult& result)
{
    QJsonArray array;
    for (const hw::CcUnitMaintenanceInfo& r : result.records)
        array.append(maintenanceJson(r));
    return {{QStringLiteral("done"), result.done}, {QStringLiteral("units"), array}};
}

QString toText(const AcceptingEvent& event)
{
    QString coins;
    if (!event.coins.isEmpty()) {
        QStringList names;
        for (const long long coin : event.coins)
            names.append(formatAmount(coin));
        coins = QStringLiteral("; the simulator drops in %1").arg(names.join(QStringLiteral(", ")));
    }
    return QStringLiteral("%1Accepting %2%3%4%5\n")
        .arg(indent(event.indented), denomList(event.denoms),
             event.fast ? QStringLiteral(" (fast)") : QString(),
             event.seconds >= 0   ? QStringLiteral(" for %1 s").arg(event.seconds)
             : event.untilCoinsIn ? QString()
                                  : QStringLiteral(" until Ctrl+C"),
             coins);
}

QJsonObject toJson(const AcceptingEvent& event)
{
    return {{QStringLiteral("event"), QStringLiteral("accepting")},
            {QStringLiteral("fast"), event.fast},
            {QStringLiteral("denoms"), denomsJson(event.denoms)}};
}

QString toText(const ReceivedEvent& event)
{
    return QStringLiteral("%1received %2  (%3)  total %4\n")
        .arg(indent(event.indented), formatAmount(event.sum.sum()), sumBreakdown(event.sum),
             formatAmount(event.total));
}

QJsonObject toJson(const ReceivedEvent& event)
{
    QJsonObject e = sumJson(event.sum);
    e.insert(QStringLiteral("event"), QStringLiteral("received"));
    e.insert(QStringLiteral("total"), qint64(event.total));
    return e;
}

QString toText(const AcceptedTotal& event)
{
    return QStringLiteral("accepted %1  (%2)\n")
        .arg(formatAmount(event.total.sum()), sumBreakdown(event.total));
}

QJsonObject toJson(const AcceptedTotal& event)
{
    QJsonObject e = sumJson(event.total);
    e.insert(QStringLiteral("event"), QStringLiteral("total"));
    return e;
}

QString toText(const WatchingEvent& event)
{
    return QStringLiteral("watching the device state (checked every 60 s)%1\n")
        .arg(event.seconds >= 0 ? QStringLiteral(" for %1 s").arg(event.seconds)
                                : QStringLiteral(" until Ctrl+C"));
}

QJsonObject toJson(const WatchingEvent& event)
{
    return {{QStringLiteral("event"), QStringLiteral("watching")},
            {QStringLiteral("seconds"), event.seconds >= 0 ? QJsonValue(event.seconds) : QJsonValue()}};
}

QString toText(const WatchStopped& event)
{
    return QStringLiteral("stopped after %1 s, %2 error(s)\n").arg(event.seconds).arg(event.errors);
}

QJsonObject toJson(const WatchStopped& event)
{
    return {{QStringLiteral("event"), QStringLiteral("stopped")}, {QStringLiteral("errors"), event.errors}};
}

QJsonObject errorEvent(const QString& message)
{
    return {{QStringLiteral("event"), QStringLiteral("error")}, {QStringLiteral("message"), message}};
}

QString watchErrorText(const QTime& time, const QString& message)
{
    return QStringLiteral("%1  %2\n").arg(time.toString(QStringLiteral("HH:mm:ss")), message);
}

QString unitChangeText(const UnitChange& change)
{
    const CashControlUnit& before = change.before;
    if (cashunits::isHopper(before))
        return QStringLiteral("%1: %2 -> %3 coins\n")
            .arg(before.name)
            .arg(before.count)
            .arg(change.after.count);
    return QStringLiteral("%1: %2 -> %3\n")
        .arg(before.name, formatAmount(cashunits::unitValue(before)),
             formatAmount(cashunits::unitValue(change.after)));
}

QString denomList(const QSet<unsigned int>& denoms)
{
    QStringList items;
    for (const unsigned int d : sortedDenoms(denoms))
        items.append(formatAmount(d));
    return items.isEmpty() ? QStringLiteral("none") : items.join(QStringLiteral(", "));
}

} // namespace tool
