#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// The files of one recorded line, read as one trace. A log appender that rotates by size keeps
// FILE, the newest, and FILE.1 ... FILE.N, each older than the one before; they are pieces of
// one stream, cut between lines.
namespace trace {

// The paths in the order they were written: by rotation number, the highest (oldest) first, a
// file without one after its rotated files; otherwise in the order given.
QStringList writtenOrder(const QStringList& paths);

struct FileSet
{
    QStringList paths;  // in the order written
    QByteArray bytes;   // their contents one after the other
    QList<qint64> ends; // the line number of the whole at which each file ends

    // Reads the files in the order written; false and why when one cannot be read.
    bool load(const QStringList& given, QString* error);
    // "site.trace.2: line 12" for line 40 of the whole.
    QString where(qint64 line) const;
};

} // namespace trace
