#pragma once

#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/ccunitmaintenanceinfo.h"
#include "cashcontrol/sumdetailed.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVector>

// How the tool shows what the driver reports: aligned text tables for a person, JSON with
// amounts in minor units for a script.
namespace tool {

enum class Align { Left, Right };

// Columns padded to their widest cell, two blanks apart; trailing blanks trimmed.
QString renderTable(const QStringList& headers, const QList<QStringList>& rows, const QVector<Align>& align);

// "hopper", "cashbox", or "type N" for a kind the tool does not know.
QString unitKind(const CashControlUnit& unit);
// "ok", "fault", or "state N".
QString unitState(const CashControlUnit& unit);

QString unitsTable(const QList<CashControlUnit>& units);
QJsonObject unitJson(const CashControlUnit& unit);
QJsonArray unitsJson(const QList<CashControlUnit>& units);

// Denominations in ascending order.
QList<unsigned int> sortedDenoms(const QSet<unsigned int>& denoms);
QJsonArray denomsJson(const QSet<unsigned int>& denoms);

// One line per denomination with a non-zero count, the part not broken down, and the total.
QString sumTable(const SumDetailed& sum);
// {"sum": minor, "denoms": [{"denom": d, "count": n}, ...], "rest": minor}
QJsonObject sumJson(const SumDetailed& sum);

QString maintenanceTable(const QList<hw::CcUnitMaintenanceInfo>& records);
QJsonObject maintenanceJson(const hw::CcUnitMaintenanceInfo& record);

} // namespace tool
