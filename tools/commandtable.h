#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace tool {

struct Arguments;
class Console;
class Runner;

enum class Command {
    Status,
    Units,
    Denoms,
    Accept,
    Check,
    Pay,
    Loan,
    Pickup,
    Counters,
    Maintenance,
    Watch,
    Demo,
    Ports,
    Trace
};

// A command's own rules, applied once its options are: they store its positional arguments
// and refuse what it cannot take, false with the reason in *error.
using TakeArguments = bool (*)(Arguments& a, const QStringList& positional, QString* error);
// A command asked of the recycler through the plug-in; the exit status.
using DeviceHandler = int (Runner::*)();
// A command that loads no plug-in and opens no line; the exit status.
using LocalHandler = int (*)(const Arguments& a, const Console& console);

// One command of the tool: what it is called, what it takes, what runs it and its line in --help.
struct ToolCommand
{
    const char* name;
    Command command;
    const char* arguments; // its usage after the name
    int minPositional;
    int maxPositional;
    const char* options; // those it takes besides the global ones, apart by spaces
    TakeArguments take;  // null when the counts say all
    DeviceHandler run;   // one of run and runLocal
    LocalHandler runLocal;
    const char* summary; // what --help says of it; each \n begins a further line

    QString usage() const;
    bool takesOption(const QString& option) const;
};

// Every command, in the order --help and the manuals list them.
const QList<ToolCommand>& toolCommands();
// Null for a name that is no command.
const ToolCommand* findCommand(const QString& name);
const ToolCommand& commandOf(Command command);

} // namespace tool
