#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace testsupport {

// What a program run to its end left: its exit code (-1 when it did not start, did not
// finish in time or crashed) and its two outputs.
struct ProcessResult
{
    int status = -1;
    QByteArray out;
    QByteArray err;
    QString outText() const { return QString::fromUtf8(out); }
    QString errText() const { return QString::fromUtf8(err); }
};

// Every run has a plain C locale: the programs must print UTF-8 whatever LANG says.
inline QProcessEnvironment cLocale()
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LANG"), QStringLiteral("C"));
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    return env;
}

// Runs a built program as a separate process, killed when it outlasts timeoutMs.
inline ProcessResult runProgram(const QString& program, const QStringList& args, int timeoutMs)
{
    QProcess p;
    p.setProcessEnvironment(cLocale());
    p.start(program, args);
    ProcessResult r;
    if (!p.waitForStarted(10000))
        return r;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    r.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    return r;
}

} // namespace testsupport
