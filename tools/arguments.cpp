#include "arguments.h"

#include "cashcontrol/ecashcontrol.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"

#include <QMap>
#include <QPair>

#include <functional>

namespace tool {

namespace {

// A negative amount is an argument, not an option: "pay -5" must say that -5 is negative.
bool looksLikeOption(const QString& arg)
{
    return arg.size() > 1 && arg.startsWith(QLatin1Char('-')) && !arg.at(1).isDigit() &&
           arg.at(1) != QLatin1Char('.');
}

bool parseSeconds(const QString& text, int* seconds, QString* error)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < 0 || value > 86400 || text.startsWith(QLatin1Char('+'))) {
        *error =
            QStringLiteral("--seconds takes a whole number of seconds from 0 to 86400, not \"%1\"").arg(text);
        return false;
    }
    *seconds = value;
    return true;
}

// What an option does with its value; false, with the reason in *error, when it refuses it.
using ApplyOption = std::function<bool(Arguments& a, const QString& value, QString* error)>;

struct OptionInfo
{
    bool global; // taken with every command; the others only with the commands that list them
    bool takesValue;
    ApplyOption apply;
};

ApplyOption flag(bool Arguments::*member)
{
    return [member](Arguments& a, const QString&, QString*) {
        a.*member = true;
        return true;
    };
}

// A file or device path; refusedEmpty, when given, is the error for an empty one.
ApplyOption path(QString Arguments::*member, const char* refusedEmpty = nullptr)
{
    return [member, refusedEmpty](Arguments& a, const QString& value, QString* error) {
        if (refusedEmpty && value.isEmpty()) {
            *error = QLatin1String(refusedEmpty);
            return false;
        }
        a.*member = value;
        return true;
    };
}

template <class T> ApplyOption parsed(T Arguments::*member, bool (*parse)(const QString&, T*, QString*))
{
    return [member, parse](Arguments& a, const QString& value, QString* error) {
        return parse(value, &(a.*member), error);
    };
}

ApplyOption amountList(QList<long long> Arguments::*member, const char* option)
{
    return [member, option](Arguments& a, const QString& value, QString* error) {
        QString why;
        if (hostkit::parseAmountList(value, &(a.*member), &why))
            return true;
        *error = QStringLiteral("%1: %2").arg(QLatin1String(option), why);
        return false;
    };
}

bool parseLogLevel(const QString& value, QString* level, QString* error)
{
    static const QStringList levels{QStringLiteral("error"), QStringLiteral("warn"), QStringLiteral("info"),
                                    QStringLiteral("debug"), QStringLiteral("trace")};
    if (!levels.contains(value)) {
        *error = QStringLiteral("unknown log level \"%1\" (error, warn, info, debug, trace)").arg(value);
        return false;
    }
    *level = value;
    return true;
}

const QMap<QString, OptionInfo>& options()
{
    static const QMap<QString, OptionInfo> table{
        {QStringLiteral("--port"), {true, true, path(&Arguments::port, "--port needs a device path")}},
        {QStringLiteral("--json"), {true, false, flag(&Arguments::json)}},
        {QStringLiteral("--log"), {true, true, parsed(&Arguments::logLevel, parseLogLevel)}},
        {QStringLiteral("--log-config"), {true, true, path(&Arguments::logConfig)}},
        {QStringLiteral("--plugin"), {true, true, path(&Arguments::plugin)}},
        {QStringLiteral("--sim-config"), {true, true, path(&Arguments::simConfig)}},
        {QStringLiteral("--trace"), {true, true, path(&Arguments::traceFile, "--trace needs a file")}},
        {QStringLiteral("--summary"), {false, false, flag(&Arguments::summaryOnly)}},
        {QStringLiteral("--fast"), {false, false, flag(&Arguments::fast)}},
        {QStringLiteral("--done"), {false, false, flag(&Arguments::done)}},
        {QStringLiteral("--exclude"), {false, true, amountList(&Arguments::exclude, "--exclude")}},
        {QStringLiteral("--sim-coins"),
         {false, true,
          [](Arguments& a, const QString& value, QString* error) {
              a.hasSimCoins = amountList(&Arguments::simCoins, "--sim-coins")(a, value, error);
              return a.hasSimCoins;
          }}},
        {QStringLiteral("--seconds"), {false, true, parsed(&Arguments::seconds, parseSeconds)}},
        {QStringLiteral("--mode"), {false, true, parsed(&Arguments::mode, hostkit::parseMode)}},
        {QStringLiteral("--op"),
         {false, true,
          [](Arguments& a, const QString& value, QString* error) {
              a.hasOperation = hostkit::parseOperation(value, &a.operation, error);
              return a.hasOperation;
          }}},
    };
    return table;
}

// The command line split into the command, its positional arguments and the options with
// their values, in the order given.
struct Scanned
{
    QStringList positional;
    QList<QPair<QString, QString>> given;
};

// Help and Version as soon as they show; Error for an option that is unknown or lacks or
// refuses its value, and for no command at all.
ParseResult::Status scan(const QStringList& arguments, Arguments& a, Scanned& scanned, QString* error)
{
    bool sawCommand = false;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString arg = arguments.at(i);
        if (arg == QLatin1String("-h") || arg == QLatin1String("--help") ||
            (!sawCommand && arg == QLatin1String("help")))
            return ParseResult::Help;
        if (arg == QLatin1String("--version"))
            return ParseResult::Version;
        if (!looksLikeOption(arg)) {
            if (!sawCommand) {
                a.commandName = arg;
                sawCommand = true;
            } else {
                scanned.positional.append(arg);
            }
            continue;
        }
        QString name = arg;
        QString value;
        bool hasValue = false;
        const int eq = arg.indexOf(QLatin1Char('='));
        if (eq > 0) {
            name = arg.left(eq);
            value = arg.mid(eq + 1);
            hasValue = true;
        }
        const auto known = options().find(name);
        if (known == options().end()) {
            *error = QStringLiteral("unknown option %1").arg(name);
            return ParseResult::Error;
        }
        if (known->takesValue && !hasValue) {
            if (i + 1 >= arguments.size()) {
                *error = QStringLiteral("%1 needs a value").arg(name);
                return ParseResult::Error;
            }
            value = arguments.at(++i);
        } else if (!known->takesValue && hasValue) {
            *error = QStringLiteral("%1 takes no value").arg(name);
            return ParseResult::Error;
        }
        scanned.given.append(qMakePair(name, value));
    }
    if (!sawCommand) {
        *error = QStringLiteral("no command given");
        return ParseResult::Error;
    }
    return ParseResult::Ok;
}

bool applyOptions(const ToolCommand& command, const QList<QPair<QString, QString>>& given, Arguments& a,
                  QString* error)
{
    for (const auto& option : given) {
        const QString& name = option.first;
        const OptionInfo known = options().value(name);
        if (!known.global && !command.takesOption(name)) {
            *error = QStringLiteral("%1 is not an option of %2").arg(name, a.commandName);
            return false;
        }
        if (!known.apply(a, option.second, error))
            return false;
    }
    return true;
}

// The built-in simulator's options have nothing to do with a port.
bool checkSimulatorOptions(const Arguments& a, QString* error)
{
    if (a.port.isEmpty())
        return true;
    if (!a.simConfig.isEmpty()) {
        *error = QStringLiteral("--sim-config is for the built-in simulator and cannot go with --port");
        return false;
    }
    if (a.hasSimCoins) {
        *error = QStringLiteral("--sim-coins is for the built-in simulator and cannot go with --port");
        return false;
    }
    return true;
}

} // namespace

bool isLoadOperation(int operation)
{
    return operation == ECashControl::LoadMainAcceptor || operation == ECashControl::LoadLoader ||
           operation == ECashControl::ManualLoad;
}

bool isPickupOperation(int operation)
{
    switch (operation) {
    case ECashControl::PickupAllToCashbox:
    case ECashControl::PickupToMinimumToCashbox:
    case ECashControl::PickupSumToCashbox:
    case ECashControl::ManualPickupAll:
    case ECashControl::ManualPickupSum:
    case ECashControl::DispensePickupAll:
    case ECashControl::DispensePickupSum:
        return true;
    default:
        return false;
    }
}

bool operationTakesAmount(int operation)
{
    return operation == ECashControl::PickupSumToCashbox || operation == ECashControl::ManualPickupSum ||
           operation == ECashControl::DispensePickupSum;
}

ParseResult parseArguments(const QStringList& arguments)
{
    ParseResult result;
    Arguments& a = result.args;
    Scanned scanned;
    result.status = scan(arguments, a, scanned, &result.error);
    if (result.status != ParseResult::Ok)
        return result;
    result.status = ParseResult::Error;
    const ToolCommand* command = findCommand(a.commandName);
    if (!command) {
        result.error = QStringLiteral("unknown command \"%1\"").arg(a.commandName);
        return result;
    }
    a.command = command->command;
    if (!applyOptions(*command, scanned.given, a, &result.error))
        return result;
    const QStringList& positional = scanned.positional;
    if (positional.size() < command->minPositional) {
        result.error = QStringLiteral("%1: missing arguments").arg(a.commandName);
        return result;
    }
    if (positional.size() > command->maxPositional) {
        result.error = QStringLiteral("%1: unexpected argument \"%2\"").arg(a.commandName, positional.last());
        return result;
    }
    if (!checkSimulatorOptions(a, &result.error))
        return result;
    if (command->take && !command->take(a, positional, &result.error))
        return result;
    result.status = ParseResult::Ok;
    return result;
}

} // namespace tool
