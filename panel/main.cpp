// The program cpibcr-panel: its command line, the plug-in found, the window shown.
#include "mainwindow.h"

#include "hostkit/pluginlocator.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QTextCodec>

#include <cstdio>

namespace {

void printError(const QString& text)
{
    std::fputs(text.toUtf8().constData(), stderr);
    std::fputs("\n", stderr);
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("cpibcr-panel"));
    QApplication::setApplicationVersion(QStringLiteral(CPIBCR_VERSION));
    // The host's C-string codec is UTF-8; Cyrillic must not depend on LANG.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Service panel of the CPI BCR coin recycler: units, acceptance, change, loads and "
                       "pick-ups, counters, maintenance, supervision and the driver's log. Without --port it "
                       "runs against the built-in simulator."));
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption versionOption = parser.addVersionOption();
    const QCommandLineOption portOption(QStringLiteral("port"),
                                        QStringLiteral("The recycler's serial port (/dev/ttyUSB0)."),
                                        QStringLiteral("DEVICE"));
    const QCommandLineOption pluginOption(QStringLiteral("plugin"),
                                          QStringLiteral("The plug-in file instead of the installed one."),
                                          QStringLiteral("PATH"));
    const QCommandLineOption simOption(QStringLiteral("sim-config"),
                                       QStringLiteral("JSON configuration of the built-in simulator."),
                                       QStringLiteral("FILE"));
    const QCommandLineOption traceOption(
        QStringLiteral("trace"),
        QStringLiteral(
            "Record the line to this file (appended to) from the start, as \"Record the line\" does."),
        QStringLiteral("FILE"));
    parser.addOptions({portOption, pluginOption, simOption, traceOption});
    // parse() rather than process(): arguments that make no sense exit with 2, as with cpibcr.
    if (!parser.parse(QCoreApplication::arguments())) {
        printError(QStringLiteral("cpibcr-panel: ") + parser.errorText());
        return 2;
    }
    if (parser.isSet(helpOption))
        parser.showHelp(0);
    if (parser.isSet(versionOption))
        parser.showVersion();
    if (!parser.positionalArguments().isEmpty()) {
        printError(QStringLiteral("cpibcr-panel: unexpected argument \"%1\"")
                       .arg(parser.positionalArguments().first()));
        return 2;
    }
    if (parser.isSet(portOption) && parser.isSet(simOption)) {
        printError(
            QStringLiteral("cpibcr-panel: --sim-config is for the built-in simulator, not with --port"));
        return 2;
    }

    panel::Connection connection;
    connection.port = parser.value(portOption);
    connection.simConfig = parser.value(simOption);
    connection.plugin = parser.value(pluginOption);
    connection.trace = parser.value(traceOption);
    QString hint;
    if (connection.plugin.isEmpty()) {
        QString lookedFor;
        connection.plugin = hostkit::findPlugin(&lookedFor);
        if (connection.plugin.isEmpty()) {
            hint = QStringLiteral("cannot find the plug-in (looked for %1); start with --plugin PATH")
                       .arg(lookedFor);
            printError(QStringLiteral("cpibcr-panel: ") + hint);
        }
    }

    panel::MainWindow window(connection, hint);
    window.show();
    window.start();
    return app.exec();
}
