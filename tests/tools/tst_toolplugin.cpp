#include "tools/pluginlocator.h"

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
    QCOMPARE(tool::pluginCandidates(QStringLiteral("/opt/pos/bin"),
                                    QStringLiteral("/src/build/plugins/libcpibcr.so")),
             (QStringList{QStringLiteral("/opt/pos/lib/cpibcr/plugins/libcpibcr.so"),
                          QStringLiteral("/src/build/plugins/libcpibcr.so")}));
    QCOMPARE(tool::pluginCandidates(QString(), QStringLiteral("/b/libcpibcr.so")),
             QStringList{QStringLiteral("/b/libcpibcr.so")});
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
    QFile built(prefix.filePath(QStringLiteral("built.so")));
    QVERIFY(built.open(QIODevice::WriteOnly));
    built.close();

    QCOMPARE(tool::locatePlugin(prefix.filePath(QStringLiteral("bin")), built.fileName()),
             installed.fileName());
}

void TestToolPlugin::buildTreeWhenNotInstalled()
{
    QTemporaryDir tree;
    QVERIFY(tree.isValid());
    QFile built(tree.filePath(QStringLiteral("libcpibcr.so")));
    QVERIFY(built.open(QIODevice::WriteOnly));
    built.close();
    QCOMPARE(tool::locatePlugin(tree.filePath(QStringLiteral("tools")), built.fileName()), built.fileName());
}

void TestToolPlugin::nothingFound()
{
    QTemporaryDir empty;
    QVERIFY(empty.isValid());
    QVERIFY(
        tool::locatePlugin(empty.filePath(QStringLiteral("bin")), empty.filePath(QStringLiteral("none.so")))
            .isEmpty());
    // A directory of that name is not a plug-in.
    QVERIFY(QDir(empty.path()).mkpath(QStringLiteral("lib/cpibcr/plugins/libcpibcr.so")));
    QVERIFY(tool::locatePlugin(empty.filePath(QStringLiteral("bin")), QString()).isEmpty());
}

QTEST_APPLESS_MAIN(TestToolPlugin)
#include "tst_toolplugin.moc"
