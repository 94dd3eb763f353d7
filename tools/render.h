#pragma once

#include "results.h"

#include <QJsonObject>
#include <QString>
#include <QTime>

// Each command's result shown once as text for a person and once as JSON for a script; the
// JSON documents get their "command" from the caller.
namespace tool {

QString toText(const StatusResult& result);
QJsonObject toJson(const StatusResult& result);
QString toText(const UnitsResult& result);
QJsonObject toJson(const UnitsResult& result);
QString toText(const DenomsResult& result);
QJsonObject toJson(const DenomsResult& result);
QString toText(const CheckResult& result);
QJsonObject toJson(const CheckResult& result);
QString toText(const PayResult& result);
QJsonObject toJson(const PayResult& result);
QString toText(const LoanResult& result);
QJsonObject toJson(const LoanResult& result);
QString toText(const PickupResult& result);
QJsonObject toJson(const PickupResult& result);
QString toText(const CountersResult& result);
QJsonObject toJson(const CountersResult& result);
QString toText(const MaintenanceResult& result);
QJsonObject toJson(const MaintenanceResult& result);

// The events of accept and watch, one JSON line each.
QString toText(const AcceptingEvent& event);
QJsonObject toJson(const AcceptingEvent& event);
QString toText(const ReceivedEvent& event);
QJsonObject toJson(const ReceivedEvent& event);
QString toText(const AcceptedTotal& event);
QJsonObject toJson(const AcceptedTotal& event);
QString toText(const WatchingEvent& event);
QJsonObject toJson(const WatchingEvent& event);
QString toText(const WatchStopped& event);
QJsonObject toJson(const WatchStopped& event);
// A failure the driver signals while a session runs.
QJsonObject errorEvent(const QString& message);
// The same failure as watch logs it, with the time it came.
QString watchErrorText(const QTime& time, const QString& message);

// "hopper2: 250 -> 260 coins", or for a unit without a coin count its value before and after.
QString unitChangeText(const UnitChange& change);
// "0.50, 1.00", or "none".
QString denomList(const QSet<unsigned int>& denoms);

} // namespace tool
