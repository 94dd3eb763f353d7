#include "arguments.h"
#include "commands.h"
#include "console.h"
#include "simcoins.h"
#include "usage.h"

#include "cashcontrol/cashcontrolexc.h"
#include "host/logsetup.h"
#include "hostkit/driverhost.h"
#include "hostkit/linechoice.h"
#include "hostkit/pluginlocator.h"
#include "sim/simulator.h"

#include <QCoreApplication>
#include <QJsonObject>
#include <QTextCodec>

#include <exception>

namespace {

int usageError(const tool::Console& console, const QString& message)
{
    console.err(QStringLiteral("cpibcr: %1\n%2").arg(message, tool::shortUsage()));
    return 2;
}

int failure(const tool::Console& console, const tool::Arguments& args, const QString& message, int status)
{
    if (console.json())
        console.document({{QStringLiteral("command"), args.commandName},
                          {QStringLiteral("error"), message},
                          {QStringLiteral("exitStatus"), status}});
    if (status == 2)
        return usageError(console, message);
    console.err(message + QLatin1Char('\n'));
    return status;
}

bool configureLogging(const tool::Arguments& args, QString* error)
{
    if (args.logConfig.isEmpty())
        return logging::configureConsole(args.logLevel.isEmpty() ? QStringLiteral("warn") : args.logLevel,
                                         error);
    if (!logging::configureFromFile(args.logConfig, error))
        return false;
    if (!args.logLevel.isEmpty()) {
        const auto level = logging::levelFromName(args.logLevel);
        logging::logger("cpibcr")->setLevel(level);
        logging::logger("cctalk")->setLevel(level);
    }
    return true;
}

// The plug-in loaded onto the line --port names or onto the built-in simulator, and the
// command asked of the device.
int runOnDevice(const tool::Arguments& args, const tool::Console& console)
{
    QString error;
    if (!configureLogging(args, &error))
        return usageError(console, error);
    const logging::LoggerPtr log = logging::logger("cpibcr.tool");

    hostkit::LineChoice line;
    if (!line.choose(args.port, args.simConfig, &error))
        return usageError(console, QStringLiteral("--sim-config: %1").arg(error));
    const sim::Config* simConfig = line.simulatorConfig();
    if (simConfig && !tool::simulatorHasCoins(*simConfig, args.simCoins, &error))
        return usageError(console, error);

    QString pluginPath = args.plugin;
    if (pluginPath.isEmpty()) {
        QString lookedFor;
        pluginPath = hostkit::findPlugin(&lookedFor);
        if (pluginPath.isEmpty())
            return failure(
                console, args,
                QStringLiteral("cpibcr: cannot find the plug-in (looked for %1); give it with --plugin PATH")
                    .arg(lookedFor),
                1);
    }

    hostkit::DriverHost host;
    if (!args.traceFile.isEmpty())
        host.recordLine(args.traceFile, QStringLiteral("cpibcr/%1").arg(QLatin1String(CPIBCR_VERSION)));
    if (!line.startSimulator(host, &error))
        return failure(console, args, QStringLiteral("cpibcr: %1").arg(error), 1);
    logging::info(log, QStringLiteral("plug-in %1, port %2%3")
                           .arg(pluginPath, simConfig ? host.portPath() : args.port,
                                simConfig ? QStringLiteral(" (built-in simulator)") : QString()));
    if (!line.open(host, pluginPath, &error))
        return failure(console, args, QStringLiteral("cpibcr: %1").arg(error), 1);

    tool::Runner runner(args, host, console, simConfig);
    try {
        return runner.run();
    } catch (const tool::UsageError& e) {
        return failure(console, args, e.message, 2);
    } catch (const CashControlExc& e) {
        return failure(console, args, QString::fromUtf8(e.what()), 1);
    } catch (const std::exception& e) {
        return failure(console, args, QString::fromUtf8(e.what()), 1);
    }
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("cpibcr"));
    // The host's C-string codec is UTF-8; Cyrillic must not depend on LANG.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromUtf8(argv[i]));
    const tool::ParseResult parsed = tool::parseArguments(arguments);
    const tool::Arguments& args = parsed.args;
    const tool::Console console(args.json);
    if (parsed.status == tool::ParseResult::Help) {
        console.out(tool::usageText());
        return 0;
    }
    if (parsed.status == tool::ParseResult::Version) {
        console.out(QStringLiteral("cpibcr %1\n").arg(QLatin1String(CPIBCR_VERSION)));
        return 0;
    }
    if (parsed.status == tool::ParseResult::Error)
        return usageError(console, parsed.error);
    const tool::ToolCommand& command = tool::commandOf(args.command);
    return command.runLocal ? command.runLocal(args, console) : runOnDevice(args, console);
}
