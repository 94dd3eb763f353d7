#include "usage.h"

#include "commandtable.h"

namespace tool {

namespace {

const char globalUsage[] =
    "usage: cpibcr [--port DEVICE] [--json] [--log LEVEL] [--log-config FILE] [--plugin PATH]\n"
    "              [--sim-config FILE] [--trace FILE] COMMAND [ARGS]\n";

// What a command does starts in this column; after a usage that comes nearer to it than two
// spaces, two spaces on, or on the next line when the line would be wider than helpWidth.
const int summaryColumn = 39;
const int helpWidth = 100;

QString commandLines(const ToolCommand& command)
{
    const QString usage = QStringLiteral("  ") + command.usage();
    const QStringList summary = QString::fromUtf8(command.summary).split(QLatin1Char('\n'));
    const QString indent(summaryColumn, QLatin1Char(' '));
    QString text;
    if (usage.size() + 2 <= summaryColumn)
        text = usage.leftJustified(summaryColumn);
    else if (usage.size() + 2 + summary.first().size() <= helpWidth)
        text = usage + QStringLiteral("  ");
    else
        text = usage + QLatin1Char('\n') + indent;
    text += summary.first() + QLatin1Char('\n');
    for (int i = 1; i < summary.size(); ++i)
        text += indent + summary.at(i) + QLatin1Char('\n');
    return text;
}

} // namespace

QString usageText()
{
    QString text = QLatin1String(globalUsage) +
                   QStringLiteral("\n"
                                  "Without --port the tool runs against the built-in simulated recycler.\n"
                                  "\n"
                                  "commands:\n");
    for (const ToolCommand& command : toolCommands())
        text += commandLines(command);
    return text +
           QStringLiteral(
               "\n"
               "--trace FILE records every byte written to and read from the line into FILE (appended).\n"
               "AMOUNT is money with at most two decimals (15, 15.50). OP is manual-load, manual-all,\n"
               "manual-sum, dispense-all, dispense-sum or a number such as 0x200.\n"
               "LEVEL is error, warn, info, debug or trace.\n"
               "--version prints the version.\n");
}

QString shortUsage()
{
    return QLatin1String(globalUsage) + QStringLiteral("Try 'cpibcr --help' for the commands.\n");
}

} // namespace tool
