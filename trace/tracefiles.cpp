#include "trace/tracefiles.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace trace {

namespace {

// The rotation number of "line.trace.3" (3); 0 for a name without one.
int rotation(const QString& path)
{
    const QString name = QFileInfo(path).fileName();
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0)
        return 0;
    bool ok = false;
    const int number = name.mid(dot + 1).toInt(&ok);
    return ok && number > 0 ? number : 0;
}

} // namespace

QStringList writtenOrder(const QStringList& paths)
{
    QStringList ordered = paths;
    std::stable_sort(ordered.begin(), ordered.end(), [](const QString& a, const QString& b) {
        const int ra = rotation(a);
        const int rb = rotation(b);
        // A number 0 is the current file: after every rotated one.
        return ra != rb && (rb == 0 || (ra != 0 && ra > rb));
    });
    return ordered;
}

bool FileSet::load(const QStringList& given, QString* error)
{
    paths = writtenOrder(given);
    bytes.clear();
    ends.clear();
    qint64 lines = 0;
    for (const QString& path : paths) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read the trace %1: %2").arg(path, file.errorString());
            return false;
        }
        const QByteArray contents = file.readAll();
        lines += contents.count('\n');
        if (!contents.isEmpty() && !contents.endsWith('\n'))
            ++lines;
        bytes += contents;
        ends.append(lines);
    }
    return true;
}

QString FileSet::where(qint64 line) const
{
    qint64 before = 0;
    for (int i = 0; i < paths.size(); ++i) {
        if (line <= ends.at(i) || i == paths.size() - 1)
            return QStringLiteral("%1: line %2").arg(paths.at(i)).arg(line - before);
        before = ends.at(i);
    }
    return QStringLiteral("line %1").arg(line);
}

} // namespace trace
