#pragma once

#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/ccunitmaintenanceinfo.h"
#include "cashcontrol/sumdetailed.h"

#include <QList>
#include <QPair>
#include <QSet>
#include <QString>

// What each command found, as plain values: the runner fills them in, render.h shows each one
// once as text for a person and once as JSON for a script.
namespace tool {

struct StatusResult
{
    QString name;
    QString typeName;
    QString model;
    QString driver;
    QString port;
    QString plugin;
    bool simulated = false;
    QList<CashControlUnit> units;
};

struct UnitsResult
{
    QList<CashControlUnit> units;
};

struct DenomsResult
{
    QSet<unsigned int> denoms;
};

struct CheckResult
{
    long long amount = 0;
    int mode = 0;
    bool payable = false;
};

struct PayResult
{
    long long amount = 0;
    int mode = 0;
    SumDetailed paid;
};

// A unit's state before and after a load or a pick-up.
struct UnitChange
{
    CashControlUnit before;
    CashControlUnit after;
};

struct LoanResult
{
    QString unit;
    int operation = 0;
    long long amount = 0;
    UnitChange change;
};

struct PickupResult
{
    QString unit;
    int operation = 0;
    // Absent for the operations that take everything.
    bool hasAmount = false;
    long long amount = 0;
    SumDetailed taken;
    UnitChange change;
};

// The counters asked for, by ECashControl::CounterType, in the order asked.
struct CountersResult
{
    QList<QPair<int, SumDetailed>> counters;
};

struct MaintenanceResult
{
    // The unit whose maintenance was recorded as done, empty when none was.
    QString doneUnit;
    bool done = false;
    QList<hw::CcUnitMaintenanceInfo> records;
};

// Events of a session that runs until the time is up or a signal comes.

struct AcceptingEvent
{
    QSet<unsigned int> denoms;
    bool fast = false;
    // Seconds the session runs; -1 until every simulated coin is in or until Ctrl+C.
    int seconds = -1;
    bool untilCoinsIn = false;
    // The coins the simulator drops in.
    QList<long long> coins;
    // Indented, as a step of the demo.
    bool indented = false;
};

struct ReceivedEvent
{
    SumDetailed sum;
    long long total = 0;
    bool indented = false;
};

struct AcceptedTotal
{
    SumDetailed total;
};

struct WatchingEvent
{
    // -1 until Ctrl+C.
    int seconds = -1;
};

struct WatchStopped
{
    qint64 seconds = 0;
    int errors = 0;
};

} // namespace tool
