#include "pluginlocator.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace hostkit {

QStringList pluginCandidates(const QString& applicationDir, const QString& installedRelativePath)
{
    if (applicationDir.isEmpty())
        return {};
    QStringList list;
    if (!installedRelativePath.isEmpty())
        list.append(QDir::cleanPath(applicationDir + QLatin1Char('/') + installedRelativePath));
    list.append(QDir::cleanPath(applicationDir + QStringLiteral("/../plugins/libcpibcr.so")));
    return list;
}

QString locatePlugin(const QString& applicationDir, const QString& installedRelativePath)
{
    for (const QString& candidate : pluginCandidates(applicationDir, installedRelativePath))
        if (QFileInfo(candidate).isFile())
            return candidate;
    return QString();
}

QString findPlugin(QString* lookedFor)
{
    const QString dir = QCoreApplication::applicationDirPath();
    const QString installed = QStringLiteral(CPIBCR_PLUGIN_RELATIVE_PATH);
    const QString found = locatePlugin(dir, installed);
    if (found.isEmpty())
        *lookedFor = pluginCandidates(dir, installed).join(QStringLiteral(" and "));
    return found;
}

} // namespace hostkit
