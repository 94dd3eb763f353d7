#include "console.h"

#include "progress.h"

#include <QJsonDocument>

#include <cstdio>

namespace tool {

namespace {

void write(FILE* stream, const QByteArray& bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace

Console::Console(bool json) : jsonMode(json), progressEnabled(!json && Progress::stderrIsTerminal()) {}

void Console::out(const QString& text) const
{
    write(stdout, text.toUtf8());
}

void Console::err(const QString& text) const
{
    write(stderr, text.toUtf8());
}

void Console::document(const QJsonObject& object) const
{
    write(stdout, QJsonDocument(object).toJson(QJsonDocument::Indented));
}

void Console::event(const QJsonObject& object) const
{
    write(stdout, QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
}

} // namespace tool
