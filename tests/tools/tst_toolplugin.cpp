#include "hostkit/pluginlocator.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// An empty file at a path below the folder, made with the folders above it; its full path,
// empty when it could not be made.
QString emptyFile(const QTemporaryDir& dir, const QString& relative)
{
    const QString path = dir.filePath(relative);
    QFile file(path);
    if (!QDir().mkpath(QFileInfo(path).path()) || !file.open(QIODevice::WriteOnly))
        return QString();
    return path;
}

// The plug-in found for a program in the folder below dir, installed as the packages install it.
QString locateFor(const QTemporaryDir& dir, const QString& programFolder)
{
    return hostkit::locatePlugin(dir.filePath(programFolder),
                                 QStringLiteral("../lib/cpibcr/plugins/libcpibcr.so"));
}

} // namespace

class TestToolPlugin : public QObject
{
    Q_OBJECT

private slots:
    void candidatesInOrder();
    void installedLocationWins();
    void buildTreeWhenNotInstalled();
    void nothingFound();
};

void TestToolPlugin::candidatesInOrder()
{
    QCOMPARE(hostkit::pluginCandidates(QStringLiteral("/usr/bin"),
                                       QStringLiteral("../lib/i386-linux-gnu/cpibcr/plugins/libcpibcr.so")),
             (QStringList{QStringLiteral("/usr/lib/i386-linux-gnu/cpibcr/plugins/libcpibcr.so"),
                          QStringLiteral("/usr/plugins/libcpibcr.so")}));
    QCOMPARE(hostkit::pluginCandidates(QStringLiteral("/src/build/tools"), QString()),
             QStringList{QStringLiteral("/src/build/plugins/libcpibcr.so")});
    QVERIFY(
        hostkit::pluginCandidates(QString(), QStringLiteral("../lib/cpibcr/plugins/libcpibcr.so")).isEmpty());
}

void TestToolPlugin::installedLocationWins()
{
    QTemporaryDir prefix;
    QVERIFY(prefix.isValid());
    QVERIFY(QDir(prefix.path()).mkpath(QStringLiteral("bin")));
    const QString installed = emptyFile(prefix, QStringLiteral("lib/cpibcr/plugins/libcpibcr.so"));
    QVERIFY(!installed.isEmpty());
    QVERIFY(!emptyFile(prefix, QStringLiteral("plugins/libcpibcr.so")).isEmpty());

    QCOMPARE(locateFor(prefix, QStringLiteral("bin")), installed);
}

void TestToolPlugin::buildTreeWhenNotInstalled()
{
    QTemporaryDir tree;
    QVERIFY(tree.isValid());
    const QString built = emptyFile(tree, QStringLiteral("plugins/libcpibcr.so"));
    QVERIFY(!built.isEmpty());
    QCOMPARE(locateFor(tree, QStringLiteral("tools")), built);
}

void TestToolPlugin::nothingFound()
{
    QTemporaryDir empty;
    QVERIFY(empty.isValid());
    QVERIFY(locateFor(empty, QStringLiteral("bin")).isEmpty());
    // A directory of that name is not a plug-in.
    QVERIFY(QDir(empty.path()).mkpath(QStringLiteral("lib/cpibcr/plugins/libcpibcr.so")));
    QVERIFY(QDir(empty.path()).mkpath(QStringLiteral("plugins/libcpibcr.so")));
    QVERIFY(locateFor(empty, QStringLiteral("bin")).isEmpty());
}

QTEST_APPLESS_MAIN(TestToolPlugin)
#include "tst_toolplugin.moc"
