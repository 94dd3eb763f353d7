#include "hostkit/pluginlocator.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

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
    QVERIFY(QDir(prefix.path()).mkpath(QStringLiteral("lib/cpibcr/plugins")));
    QFile installed(prefix.filePath(QStringLiteral("lib/cpibcr/plugins/libcpibcr.so")));
    QVERIFY(installed.open(QIODevice::WriteOnly));
    installed.close();
    QVERIFY(QDir(prefix.path()).mkpath(QStringLiteral("plugins")));
    QFile built(prefix.filePath(QStringLiteral("plugins/libcpibcr.so")));
    QVERIFY(built.open(QIODevice::WriteOnly));
    built.close();

    QCOMPARE(hostkit::locatePlugin(prefix.filePath(QStringLiteral("bin")),
                                   QStringLiteral("../lib/cpibcr/plugins/libcpibcr.so")),
             installed.fileName());
}

void TestToolPlugin::buildTreeWhenNotInstalled()
{
    QTemporaryDir tree;
    QVERIFY(tree.isValid());
    QVERIFY(QDir(tree.path()).mkpath(QStringLiteral("plugins")));
    QFile built(tree.filePath(QStringLiteral("plugins/libcpibcr.so")));
    QVERIFY(built.open(QIODevice::WriteOnly));
    built.close();
    QCOMPARE(hostkit::locatePlugin(tree.filePath(QStringLiteral("tools")),
                                   QStringLiteral("../lib/cpibcr/plugins/libcpibcr.so")),
             built.fileName());
}

void TestToolPlugin::nothingFound()
{
    QTemporaryDir empty;
    QVERIFY(empty.isValid());
    const QString relative = QStringLiteral("../lib/cpibcr/plugins/libcpibcr.so");
    QVERIFY(hostkit::locatePlugin(empty.filePath(QStringLiteral("bin")), relative).isEmpty());
    // A directory of that name is not a plug-in.
    QVERIFY(QDir(empty.path()).mkpath(QStringLiteral("lib/cpibcr/plugins/libcpibcr.so")));
    QVERIFY(QDir(empty.path()).mkpath(QStringLiteral("plugins/libcpibcr.so")));
    QVERIFY(hostkit::locatePlugin(empty.filePath(QStringLiteral("bin")), relative).isEmpty());
}

QTEST_APPLESS_MAIN(TestToolPlugin)
#include "tst_toolplugin.moc"
