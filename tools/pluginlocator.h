#pragma once

#include <QString>
#include <QStringList>

namespace tool {

// Where the plug-in is looked for, in order: the installed location relative to the tool
// (PREFIX/bin/cpibcr finds PREFIX/lib/cpibcr/plugins/libcpibcr.so), then the build tree.
QStringList pluginCandidates(const QString& applicationDir, const QString& buildTreePath);

// The first candidate that exists, or an empty text when none does.
QString locatePlugin(const QString& applicationDir, const QString& buildTreePath);

} // namespace tool
