#include "tools/commandtable.h"

#include "support/columns.h"

#include <QFile>
#include <QRegularExpression>
#include <QtTest>

// The manual page and README.md list exactly the commands of the tool's command table, in its
// order, each with the usage --help prints for it.
//
// Where the documents list them:
// - docs/man/cpibcr.1: each tagged paragraph (.TP) of the section COMMANDS; its tag line
//   (.B or .BR), read as text, is the usage.
// - README.md: each "#### " heading of the part "### Commands" of "## The host tool `cpibcr`";
//   the heading is the usage. The part ends at the next "###" or "##" heading; lines in fenced
//   code blocks are not headings.

namespace {

struct Listed
{
    QStringList names; // in the document's order
    QMap<QString, QString> usages;
};

QString sourceFile(const QString& path)
{
    QFile file(QStringLiteral(CPIBCR_SOURCE_DIR "/") + path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

void add(Listed& listed, const QString& usage)
{
    const QString name = usage.section(QLatin1Char(' '), 0, 0);
    listed.names.append(name);
    listed.usages.insert(name, usage);
}

Listed readmeCommands(const QString& text)
{
    Listed listed;
    bool inTool = false;
    bool inCommands = false;
    bool inCode = false;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("```"))) {
            inCode = !inCode;
            continue;
        }
        if (inCode)
            continue;
        if (line.startsWith(QLatin1String("## ")))
            inTool = line == QLatin1String("## The host tool `cpibcr`");
        if (line.startsWith(QLatin1String("## ")) || line.startsWith(QLatin1String("### ")))
            inCommands = inTool && line == QLatin1String("### Commands");
        if (inCommands && line.startsWith(QLatin1String("#### ")))
            add(listed, line.mid(5).trimmed());
    }
    return listed;
}

// A request's arguments as troff splits them: by spaces, a double-quoted one whole.
QStringList requestArguments(const QString& line)
{
    QStringList arguments;
    static const QRegularExpression argument(QStringLiteral("\"([^\"]*)\"|(\\S+)"));
    auto it = argument.globalMatch(line);
    while (it.hasNext()) {
        const QRegularExpressionMatch m = it.next();
        arguments.append(m.captured(1).isNull() ? m.captured(2) : m.captured(1));
    }
    return arguments;
}

// A .B or .BR line as the reader sees it: .BR joins its arguments without spaces (they alternate
// bold and roman), .B with them; font changes gone, \- a hyphen.
QString tagText(const QString& line)
{
    QStringList arguments = requestArguments(line);
    const QString request = arguments.takeFirst();
    QString text = arguments.join(request == QLatin1String(".B") ? QStringLiteral(" ") : QString());
    text.remove(QRegularExpression(QStringLiteral("\\\\f[BIRP]")));
    text.replace(QLatin1String("\\-"), QLatin1String("-"));
    return text.trimmed();
}

Listed manCommands(const QString& text)
{
    Listed listed;
    bool inCommands = false;
    bool tagNext = false;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String(".SH "))) {
            inCommands = line == QLatin1String(".SH COMMANDS");
            continue;
        }
        if (!inCommands)
            continue;
        if (tagNext)
            add(listed, tagText(line));
        tagNext = line == QLatin1String(".TP");
    }
    return listed;
}

Listed documentCommands(const QString& document)
{
    const QString text = sourceFile(document);
    return document.endsWith(QLatin1String(".md")) ? readmeCommands(text) : manCommands(text);
}

const QStringList documents{QStringLiteral("README.md"), QStringLiteral("docs/man/cpibcr.1")};

} // namespace

class TestToolDocs : public QObject
{
    Q_OBJECT

private slots:
    void documentsRead_data();
    void documentsRead();
    void exactlyTheTablesCommands_data();
    void exactlyTheTablesCommands();
    void usageAsInTheTable_data();
    void usageAsInTheTable();
    void rowsWhole_data();
    void rowsWhole();
    void readersSeeWhatTheyMust();
};

void TestToolDocs::documentsRead_data()
{
    testsupport::columns<QString>("document");
    for (const QString& document : documents)
        QTest::newRow(qPrintable(document)) << document;
}

void TestToolDocs::documentsRead()
{
    QFETCH(QString, document);
    QVERIFY2(!sourceFile(document).isEmpty(), qPrintable(document));
}

void TestToolDocs::exactlyTheTablesCommands_data()
{
    documentsRead_data();
}

void TestToolDocs::exactlyTheTablesCommands()
{
    QFETCH(QString, document);
    QStringList table;
    for (const tool::ToolCommand& command : tool::toolCommands())
        table.append(QLatin1String(command.name));
    QCOMPARE(documentCommands(document).names, table);
}

void TestToolDocs::usageAsInTheTable_data()
{
    testsupport::columns<QString, QString, QString>("document", "name", "usage");
    for (const QString& document : documents)
        for (const tool::ToolCommand& command : tool::toolCommands())
            QTest::newRow(qPrintable(document + QLatin1Char(' ') + QLatin1String(command.name)))
                << document << QString::fromLatin1(command.name) << command.usage();
}

void TestToolDocs::usageAsInTheTable()
{
    QFETCH(QString, document);
    QFETCH(QString, name);
    QFETCH(QString, usage);
    const Listed listed = documentCommands(document);
    QVERIFY2(listed.usages.contains(name), qPrintable(name + QStringLiteral(" is not in ") + document));
    QCOMPARE(listed.usages.value(name), usage);
}

void TestToolDocs::rowsWhole_data()
{
    testsupport::columns<int>("row");
    for (int i = 0; i < tool::toolCommands().size(); ++i)
        QTest::newRow(tool::toolCommands().at(i).name) << i;
}

// A row runs its command one way, and its usage names the options it takes and no others.
void TestToolDocs::rowsWhole()
{
    QFETCH(int, row);
    const tool::ToolCommand& command = tool::toolCommands().at(row);
    QVERIFY((command.run == nullptr) != (command.runLocal == nullptr));
    QVERIFY(command.minPositional <= command.maxPositional);
    QVERIFY(tool::findCommand(QLatin1String(command.name)) == &command);
    QStringList named;
    static const QRegularExpression option(QStringLiteral("--[a-z-]+"));
    auto it = option.globalMatch(QLatin1String(command.arguments));
    while (it.hasNext())
        named.append(it.next().captured());
    const QString options = QLatin1String(command.options);
    QCOMPARE(named, options.isEmpty() ? QStringList() : options.split(QLatin1Char(' ')));
}

// The readers on made-up documents: what they must find, and what they must pass over.
void TestToolDocs::readersSeeWhatTheyMust()
{
    const Listed readme = readmeCommands(QStringLiteral("## The host tool `cpibcr`\n"
                                                        "#### early\n"
                                                        "### Commands\n"
                                                        "#### one [--x N]\n"
                                                        "```\n"
                                                        "#### in code\n"
                                                        "## not a heading in code\n"
                                                        "```\n"
                                                        "#### two\n"
                                                        "### Amounts\n"
                                                        "#### after\n"
                                                        "## Another\n"
                                                        "### Commands\n"
                                                        "#### elsewhere\n"));
    QCOMPARE(readme.names, (QStringList{QStringLiteral("one"), QStringLiteral("two")}));
    QCOMPARE(readme.usages.value(QStringLiteral("one")), QStringLiteral("one [--x N]"));

    const Listed man =
        manCommands(QStringLiteral(".SH OPTIONS\n"
                                   ".TP\n"
                                   ".B \\-\\-json\n"
                                   ".SH COMMANDS\n"
                                   ".TP\n"
                                   ".B units\n"
                                   "the cash units\n"
                                   ".TP\n"
                                   ".BR loan \" \\fIUNIT AMOUNT\\fR [\\fB\\-\\-op\\fR \\fIOP\\fR]\"\n"
                                   "load a unit\n"
                                   ".SH EXIT STATUS\n"
                                   ".TP\n"
                                   ".B 2\n"));
    QCOMPARE(man.names, (QStringList{QStringLiteral("units"), QStringLiteral("loan")}));
    QCOMPARE(man.usages.value(QStringLiteral("loan")), QStringLiteral("loan UNIT AMOUNT [--op OP]"));
}

QTEST_APPLESS_MAIN(TestToolDocs)
#include "tst_tooldocs.moc"
