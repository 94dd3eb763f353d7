#pragma once

#include "console.h"

#include "trace/traceanalysis.h"

#include <QJsonObject>
#include <QString>

namespace tool {

// `cpibcr trace FILE`: the recording read as ccTalk. Returns the exit status: 0, or 1 when
// the file cannot be read or is not a whole trace (nothing but the error is printed then).
int showTrace(const QString& path, bool summaryOnly, const Console& console);

QString recordingText(const trace::Header& header, int number);
QString exchangeText(const trace::Exchange& exchange);
QString summaryText(const trace::Summary& summary);

QJsonObject recordingJson(const trace::Header& header, int number);
QJsonObject exchangeJson(const trace::Exchange& exchange);
QJsonObject summaryJson(const trace::Summary& summary);

} // namespace tool
