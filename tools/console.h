#pragma once

#include <QJsonObject>
#include <QString>

namespace tool {

// The tool's output: UTF-8 whatever the locale, flushed at once so that a pipe sees each
// event as it happens.
class Console
{
public:
    explicit Console(bool json);

    bool json() const { return jsonMode; }
    // Progress spinners: only on a terminal and never in JSON mode.
    bool progress() const { return progressEnabled; }

    void out(const QString& text) const;
    void err(const QString& text) const;
    // One document per command, indented.
    void document(const QJsonObject& object) const;
    // One event per line, compact.
    void event(const QJsonObject& object) const;

private:
    bool jsonMode;
    bool progressEnabled;
};

} // namespace tool
