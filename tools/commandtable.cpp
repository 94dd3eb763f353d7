#include "commandtable.h"

#include "arguments.h"
#include "commands.h"
#include "portscommand.h"
#include "tracecommand.h"

#include "cashcontrol/ecashcontrol.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"

#include <iterator>

namespace tool {

namespace {

// A payment or a unit operation moves a positive amount; a check may ask about none.
bool takeAmount(Arguments& a, const QString& text, bool positive, QString* error)
{
    a.hasAmount = hostkit::parseAmount(text, &a.amount, error);
    if (a.hasAmount && positive && a.amount == 0) {
        *error = QStringLiteral("amount \"%1\" must be greater than zero").arg(text);
        a.hasAmount = false;
    }
    return a.hasAmount;
}

bool takeCheck(Arguments& a, const QStringList& positional, QString* error)
{
    return takeAmount(a, positional.at(0), false, error);
}

bool takePay(Arguments& a, const QStringList& positional, QString* error)
{
    return takeAmount(a, positional.at(0), true, error);
}

bool takeLoan(Arguments& a, const QStringList& positional, QString* error)
{
    a.unit = positional.at(0);
    if (!a.hasOperation)
        a.operation = ECashControl::ManualLoad;
    if (!isLoadOperation(a.operation)) {
        *error = QStringLiteral("loan: %1 is not a load operation (manual-load, 0x1000, 0x10000)")
                     .arg(hostkit::operationKey(a.operation));
        return false;
    }
    return takeAmount(a, positional.at(1), true, error);
}

bool takePickup(Arguments& a, const QStringList& positional, QString* error)
{
    a.unit = positional.at(0);
    if (!a.hasOperation)
        a.operation = ECashControl::ManualPickupAll;
    const QString op = hostkit::operationKey(a.operation);
    if (!isPickupOperation(a.operation)) {
        *error = QStringLiteral("pickup: %1 is not a pick-up operation (manual-all, manual-sum, "
                                "dispense-all, dispense-sum, 0x1, 0x2, 0x4)")
                     .arg(op);
        return false;
    }
    if (!operationTakesAmount(a.operation)) {
        if (positional.size() < 2)
            return true;
        *error = QStringLiteral("pickup: %1 takes everything and no AMOUNT").arg(op);
        return false;
    }
    if (positional.size() < 2) {
        *error = QStringLiteral("pickup: %1 needs an AMOUNT").arg(op);
        return false;
    }
    return takeAmount(a, positional.at(1), true, error);
}

bool takeCounters(Arguments& a, const QStringList& positional, QString* error)
{
    if (positional.isEmpty()) {
        a.counters = {ECashControl::Accepted, ECashControl::Dispensed};
    } else if (positional.at(0) == QLatin1String("accepted")) {
        a.counters = {ECashControl::Accepted};
    } else if (positional.at(0) == QLatin1String("dispensed")) {
        a.counters = {ECashControl::Dispensed};
    } else {
        *error = QStringLiteral("unknown counter \"%1\" (accepted or dispensed)").arg(positional.at(0));
        return false;
    }
    return true;
}

bool takeMaintenance(Arguments& a, const QStringList& positional, QString* error)
{
    a.unit = positional.value(0);
    if (a.done && a.unit.isEmpty()) {
        *error = QStringLiteral("maintenance --done needs a UNIT");
        return false;
    }
    return true;
}

bool takeDemo(Arguments& a, const QStringList&, QString* error)
{
    if (!a.port.isEmpty()) {
        *error = QStringLiteral("demo runs against the built-in simulator and cannot go with --port");
        return false;
    }
    if (a.json) {
        *error = QStringLiteral("demo has no JSON form");
        return false;
    }
    return true;
}

bool takePorts(Arguments& a, const QStringList&, QString* error)
{
    if (!a.port.isEmpty() || !a.simConfig.isEmpty() || !a.plugin.isEmpty()) {
        *error = QStringLiteral("ports lists the machine's serial ports and takes no --port, --plugin or "
                                "--sim-config");
        return false;
    }
    if (!a.traceFile.isEmpty()) {
        *error = QStringLiteral("ports opens no port and has no line to record");
        return false;
    }
    return true;
}

bool takeTrace(Arguments& a, const QStringList& positional, QString* error)
{
    if (!a.port.isEmpty() || !a.simConfig.isEmpty() || !a.plugin.isEmpty() || !a.traceFile.isEmpty()) {
        *error =
            QStringLiteral("trace reads a recording and takes no --port, --plugin, --sim-config or --trace");
        return false;
    }
    a.traceInput = positional.at(0);
    a.traceInputs = positional;
    return true;
}

// Each row: name, command, usage after the name, the least and the most positional arguments,
// the options, the command's own rules, what runs it on the device or without one, what --help
// says of it.
const ToolCommand commandTable[] = {
    {"status", Command::Status, "", 0, 0, "", nullptr, &Runner::status, nullptr,
     "connect, check the state, list the units"},
    {"units", Command::Units, "", 0, 0, "", nullptr, &Runner::units, nullptr, "the cash units"},
    {"denoms", Command::Denoms, "", 0, 0, "", nullptr, &Runner::denoms, nullptr,
     "the denominations the recycler accepts"},
    {"accept", Command::Accept, "[--fast] [--exclude AMOUNT,...] [--seconds N] [--sim-coins AMOUNT,...]", 0,
     0, "--fast --exclude --seconds --sim-coins", nullptr, &Runner::accept, nullptr,
     "accept coins until N seconds pass or Ctrl+C"},
    {"check", Command::Check, "AMOUNT [--mode optimal|minimum]", 1, 1, "--mode", takeCheck, &Runner::check,
     nullptr, "whether the amount can be paid as change"},
    {"pay", Command::Pay, "AMOUNT [--mode optimal|minimum]", 1, 1, "--mode", takePay, &Runner::pay, nullptr,
     "pay change"},
    {"loan", Command::Loan, "UNIT AMOUNT [--op OP]", 2, 2, "--op", takeLoan, &Runner::loan, nullptr,
     "load a unit (OP defaults to manual-load)"},
    {"pickup", Command::Pickup, "UNIT [AMOUNT] [--op OP]", 1, 2, "--op", takePickup, &Runner::pickup, nullptr,
     "empty a unit (OP defaults to manual-all)"},
    {"counters", Command::Counters, "[accepted|dispensed]", 0, 1, "", takeCounters, &Runner::counters,
     nullptr, "the counters of coins taken in and paid out"},
    {"maintenance", Command::Maintenance, "[UNIT] [--done]", 0, 1, "--done", takeMaintenance,
     &Runner::maintenance, nullptr, "the maintenance records, or reset one"},
    {"watch", Command::Watch, "[--seconds N]", 0, 0, "--seconds", nullptr, &Runner::watch, nullptr,
     "the background state check, printing each error"},
    {"demo", Command::Demo, "", 0, 0, "", takeDemo, &Runner::demo, nullptr,
     "a short session against the built-in simulator"},
    {"ports", Command::Ports, "", 0, 0, "", takePorts, nullptr, listPorts,
     "the serial ports of this machine (no device is opened)"},
    {"trace", Command::Trace, "FILE... [--summary]", 1, 1000, "--summary", takeTrace, nullptr, showTrace,
     "a line recording read as ccTalk, and its summary; several\n"
     "files are read in the order written (FILE.2, FILE.1, FILE)"},
};

static_assert(std::size(commandTable) == static_cast<std::size_t>(Command::Trace) + 1,
              "a row for every command, in the order of Command");

} // namespace

QString ToolCommand::usage() const
{
    const QString text = QLatin1String(name);
    return *arguments ? text + QLatin1Char(' ') + QLatin1String(arguments) : text;
}

bool ToolCommand::takesOption(const QString& option) const
{
    return QString::fromLatin1(options).split(QLatin1Char(' ')).contains(option);
}

const QList<ToolCommand>& toolCommands()
{
    static const QList<ToolCommand> list(std::begin(commandTable), std::end(commandTable));
    return list;
}

const ToolCommand* findCommand(const QString& name)
{
    for (const ToolCommand& command : toolCommands())
        if (name == QLatin1String(command.name))
            return &command;
    return nullptr;
}

const ToolCommand& commandOf(Command command)
{
    return commandTable[static_cast<int>(command)];
}

} // namespace tool
