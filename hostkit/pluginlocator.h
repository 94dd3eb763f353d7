#pragma once

#include <QString>
#include <QStringList>

namespace hostkit {

// Where the plug-in is looked for, in order: the installed plug-in, at installedRelativePath from
// the program's folder (the build fixes that path from the install layout, so a program installed
// in any prefix finds its own plug-in), then the build tree's plug-in, build/plugins/libcpibcr.so
// beside build/tools/cpibcr and build/panel/cpibcr-panel. Both are relative to the program, so no
// build path is kept in it.
QStringList pluginCandidates(const QString& applicationDir, const QString& installedRelativePath);

// The first candidate that exists, or an empty text when none does.
QString locatePlugin(const QString& applicationDir, const QString& installedRelativePath);

// The running program's plug-in: the candidates from its folder and the install layout's path.
// Empty when none exists; *lookedFor then lists them ("A and B").
QString findPlugin(QString* lookedFor);

} // namespace hostkit
