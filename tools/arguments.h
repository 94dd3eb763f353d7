#pragma once

#include "commandtable.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace tool {

// One invocation of the tool, validated: every amount is within the device's range and every
// name is known. What can only be checked against the device (unit names, what a unit
// supports) is checked after connecting, before anything is asked of the device.
struct Arguments
{
    QString port; // empty: the built-in simulator
    bool json = false;
    QString logLevel;
    QString logConfig;
    QString plugin;
    QString simConfig;
    QString traceFile; // --trace: record the line to this file

    Command command = Command::Status;
    QString commandName;

    bool hasAmount = false;
    long long amount = 0; // minor units
    int mode = 0;         // ECashControl::ChangeMode
    QString unit;
    bool hasOperation = false; // --op given; without it loan and pickup take their default
    int operation = 0;         // ECashControl::UnitOperation
    bool fast = false;
    QList<long long> exclude;
    int seconds = -1; // -1: until interrupted
    bool hasSimCoins = false;
    QList<long long> simCoins;
    QList<int> counters; // ECashControl::CounterType, in the order to print
    bool done = false;
    QString traceInput;      // the trace command's first FILE
    QStringList traceInputs; // all its FILEs
    bool summaryOnly = false;
};

struct ParseResult
{
    enum Status { Ok, Help, Version, Error };
    Status status = Error;
    QString error;
    Arguments args;
};

// Parses the arguments after the program name. Global options may stand before or after
// the command.
ParseResult parseArguments(const QStringList& arguments);

bool isLoadOperation(int operation);
bool isPickupOperation(int operation);
// Pick-ups of a given amount, as opposed to pick-ups of everything.
bool operationTakesAmount(int operation);

} // namespace tool
