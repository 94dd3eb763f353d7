#include "arguments.h"

#include "cashcontrol/ecashcontrol.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"

#include <QMap>
#include <QPair>

#include <algorithm>
#include <functional>

namespace tool {

namespace {

struct CommandInfo
{
    Command command;
    int minPositional;
    int maxPositional;
    QStringList options; // options of this command, without the global ones
};

const QMap<QString, CommandInfo>& commands()
{
    static const QMap<QString, CommandInfo> table{
        {QStringLiteral("status"), {Command::Status, 0, 0, {}}},
        {QStringLiteral("units"), {Command::Units, 0, 0, {}}},
        {QStringLiteral("denoms"), {Command::Denoms, 0, 0, {}}},
        {QStringLiteral("accept"),
         {Command::Accept,
          0,
          0,
          {QStringLiteral("--fast"), QStringLiteral("--exclude"), QStringLiteral("--seconds"),
           QStringLiteral("--sim-coins")}}},
        {QStringLiteral("check"), {Command::Check, 1, 1, {QStringLiteral("--mode")}}},
        {QStringLiteral("pay"), {Command::Pay, 1, 1, {QStringLiteral("--mode")}}},
        {QStringLiteral("loan"), {Command::Loan, 2, 2, {QStringLiteral("--op")}}},
        {QStringLiteral("pickup"), {Command::Pickup, 1, 2, {QStringLiteral("--op")}}},
        {QStringLiteral("counters"), {Command::Counters, 0, 1, {}}},
        {QStringLiteral("maintenance"), {Command::Maintenance, 0, 1, {QStringLiteral("--done")}}},
        {QStringLiteral("watch"), {Command::Watch, 0, 0, {QStringLiteral("--seconds")}}},
        {QStringLiteral("demo"), {Command::Demo, 0, 0, {}}},
        {QStringLiteral("ports"), {Command::Ports, 0, 0, {}}},
        {QStringLiteral("trace"), {Command::Trace, 1, 1000, {QStringLiteral("--summary")}}},
    };
    return table;
}

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

bool parsePositiveAmount(const QString& text, long long* amount, QString* error)
{
    if (!hostkit::parseAmount(text, amount, error))
        return false;
    if (*amount == 0) {
        *error = QStringLiteral("amount \"%1\" must be greater than zero").arg(text);
        return false;
    }
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
        {QStringLiteral("--op"), {false, true, parsed(&Arguments::operation, hostkit::parseOperation)}},
    };
    return table;
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

QString usageText()
{
    return QStringLiteral(
        "usage: cpibcr [--port DEVICE] [--json] [--log LEVEL] [--log-config FILE] [--plugin PATH]\n"
        "              [--sim-config FILE] [--trace FILE] COMMAND [ARGS]\n"
        "\n"
        "Without --port the tool runs against the built-in simulated recycler.\n"
        "\n"
        "commands:\n"
        "  status                               connect, check the state, list the units\n"
        "  units                                the cash units\n"
        "  denoms                               the denominations the recycler accepts\n"
        "  accept [--fast] [--exclude AMOUNT,...] [--seconds N] [--sim-coins AMOUNT,...]\n"
        "                                       accept coins until N seconds pass or Ctrl+C\n"
        "  check AMOUNT [--mode optimal|minimum]  whether the amount can be paid as change\n"
        "  pay AMOUNT [--mode optimal|minimum]  pay change\n"
        "  loan UNIT AMOUNT [--op OP]           load a unit (OP defaults to manual-load)\n"
        "  pickup UNIT [AMOUNT] [--op OP]       empty a unit (OP defaults to manual-all)\n"
        "  counters [accepted|dispensed]        the counters of coins taken in and paid out\n"
        "  maintenance [UNIT] [--done]          the maintenance records, or reset one\n"
        "  watch [--seconds N]                  the background state check, printing each error\n"
        "  demo                                 a short session against the built-in simulator\n"
        "  ports                                the serial ports of this machine (no device is opened)\n"
        "  trace FILE... [--summary]            a line recording read as ccTalk, and its summary; several\n"
        "                                       files are read in the order written (FILE.2, FILE.1, FILE)\n"
        "\n"
        "--trace FILE records every byte written to and read from the line into FILE (appended).\n"
        "AMOUNT is money with at most two decimals (15, 15.50). OP is manual-load, manual-all,\n"
        "manual-sum, dispense-all, dispense-sum or a number such as 0x200.\n"
        "LEVEL is error, warn, info, debug or trace.\n"
        "--version prints the version.\n");
}

ParseResult parseArguments(const QStringList& arguments)
{
    ParseResult result;
    Arguments& a = result.args;
    const auto fail = [&](const QString& why) {
        result.status = ParseResult::Error;
        result.error = why;
        return result;
    };

    QStringList positional;
    QList<QPair<QString, QString>> given;
    bool sawCommand = false;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString arg = arguments.at(i);
        if (arg == QLatin1String("-h") || arg == QLatin1String("--help") ||
            (!sawCommand && arg == QLatin1String("help"))) {
            result.status = ParseResult::Help;
            return result;
        }
        if (arg == QLatin1String("--version")) {
            result.status = ParseResult::Version;
            return result;
        }
        if (!looksLikeOption(arg)) {
            if (!sawCommand) {
                a.commandName = arg;
                sawCommand = true;
            } else {
                positional.append(arg);
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
        if (known == options().end())
            return fail(QStringLiteral("unknown option %1").arg(name));
        if (known->takesValue && !hasValue) {
            if (i + 1 >= arguments.size())
                return fail(QStringLiteral("%1 needs a value").arg(name));
            value = arguments.at(++i);
        } else if (!known->takesValue && hasValue) {
            return fail(QStringLiteral("%1 takes no value").arg(name));
        }
        given.append(qMakePair(name, value));
    }

    if (!sawCommand)
        return fail(QStringLiteral("no command given"));
    const auto info = commands().find(a.commandName);
    if (info == commands().end())
        return fail(QStringLiteral("unknown command \"%1\"").arg(a.commandName));
    a.command = info->command;

    QString error;
    for (const auto& option : given) {
        const QString& name = option.first;
        const OptionInfo known = options().value(name);
        if (!known.global && !info->options.contains(name))
            return fail(QStringLiteral("%1 is not an option of %2").arg(name, a.commandName));
        if (!known.apply(a, option.second, &error))
            return fail(error);
    }

    if (positional.size() < info->minPositional)
        return fail(QStringLiteral("%1: missing arguments").arg(a.commandName));
    if (positional.size() > info->maxPositional)
        return fail(QStringLiteral("%1: unexpected argument \"%2\"").arg(a.commandName, positional.last()));

    if (!a.port.isEmpty()) {
        if (!a.simConfig.isEmpty())
            return fail(
                QStringLiteral("--sim-config is for the built-in simulator and cannot go with --port"));
        if (a.hasSimCoins)
            return fail(
                QStringLiteral("--sim-coins is for the built-in simulator and cannot go with --port"));
        if (a.command == Command::Demo)
            return fail(QStringLiteral("demo runs against the built-in simulator and cannot go with --port"));
    }
    if (a.command == Command::Ports && (!a.port.isEmpty() || !a.simConfig.isEmpty() || !a.plugin.isEmpty()))
        return fail(QStringLiteral("ports lists the machine's serial ports and takes no --port, --plugin or "
                                   "--sim-config"));
    if (a.command == Command::Trace &&
        (!a.port.isEmpty() || !a.simConfig.isEmpty() || !a.plugin.isEmpty() || !a.traceFile.isEmpty()))
        return fail(
            QStringLiteral("trace reads a recording and takes no --port, --plugin, --sim-config or --trace"));
    if (a.command == Command::Ports && !a.traceFile.isEmpty())
        return fail(QStringLiteral("ports opens no port and has no line to record"));
    if (a.command == Command::Demo && a.json)
        return fail(QStringLiteral("demo has no JSON form"));

    const bool hasOp = std::any_of(given.begin(), given.end(), [](const QPair<QString, QString>& o) {
        return o.first == QLatin1String("--op");
    });
    // The amount at a position of the command's arguments; a payment or a unit operation
    // moves a positive amount, a check may ask about none.
    const auto takeAmount = [&](int index, bool positive) {
        a.hasAmount = positive ? parsePositiveAmount(positional.at(index), &a.amount, &error)
                               : hostkit::parseAmount(positional.at(index), &a.amount, &error);
        return a.hasAmount;
    };
    switch (a.command) {
    case Command::Check:
        if (!takeAmount(0, false))
            return fail(error);
        break;
    case Command::Pay:
        if (!takeAmount(0, true))
            return fail(error);
        break;
    case Command::Loan:
        a.unit = positional.at(0);
        if (!hasOp)
            a.operation = ECashControl::ManualLoad;
        if (!isLoadOperation(a.operation))
            return fail(QStringLiteral("loan: %1 is not a load operation (manual-load, 0x1000, 0x10000)")
                            .arg(hostkit::operationKey(a.operation)));
        if (!takeAmount(1, true))
            return fail(error);
        break;
    case Command::Pickup:
        a.unit = positional.at(0);
        if (!hasOp)
            a.operation = ECashControl::ManualPickupAll;
        if (!isPickupOperation(a.operation))
            return fail(QStringLiteral("pickup: %1 is not a pick-up operation (manual-all, manual-sum, "
                                       "dispense-all, dispense-sum, 0x1, 0x2, 0x4)")
                            .arg(hostkit::operationKey(a.operation)));
        if (operationTakesAmount(a.operation)) {
            if (positional.size() < 2)
                return fail(
                    QStringLiteral("pickup: %1 needs an AMOUNT").arg(hostkit::operationKey(a.operation)));
            if (!takeAmount(1, true))
                return fail(error);
        } else if (positional.size() > 1) {
            return fail(QStringLiteral("pickup: %1 takes everything and no AMOUNT")
                            .arg(hostkit::operationKey(a.operation)));
        }
        break;
    case Command::Counters:
        if (positional.isEmpty()) {
            a.counters = {ECashControl::Accepted, ECashControl::Dispensed};
        } else if (positional.at(0) == QLatin1String("accepted")) {
            a.counters = {ECashControl::Accepted};
        } else if (positional.at(0) == QLatin1String("dispensed")) {
            a.counters = {ECashControl::Dispensed};
        } else {
            return fail(
                QStringLiteral("unknown counter \"%1\" (accepted or dispensed)").arg(positional.at(0)));
        }
        break;
    case Command::Trace:
        a.traceInput = positional.at(0);
        a.traceInputs = positional;
        break;
    case Command::Maintenance:
        if (!positional.isEmpty())
            a.unit = positional.at(0);
        if (a.done && a.unit.isEmpty())
            return fail(QStringLiteral("maintenance --done needs a UNIT"));
        break;
    default:
        break;
    }

    result.status = ParseResult::Ok;
    return result;
}

} // namespace tool
