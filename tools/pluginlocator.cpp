#include "pluginlocator.h"

#include <QDir>
#include <QFileInfo>

namespace tool {

QStringList pluginCandidates(const QString& applicationDir, const QString& buildTreePath)
{
    QStringList list;
    if (!applicationDir.isEmpty())
        list.append(QDir::cleanPath(applicationDir + QStringLiteral("/../lib/cpibcr/plugins/libcpibcr.so")));
    if (!buildTreePath.isEmpty())
        list.append(buildTreePath);
    return list;
}

QString locatePlugin(const QString& applicationDir, const QString& buildTreePath)
{
    for (const QString& candidate : pluginCandidates(applicationDir, buildTreePath))
        if (QFileInfo(candidate).isFile())
            return candidate;
    return QString();
}

} // namespace tool
