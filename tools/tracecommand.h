#pragma once

#include "console.h"

#include "trace/traceanalysis.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace tool {

struct Arguments;

// `cpibcr trace FILE...`: the recording read as ccTalk, the files in the order they were
// written (rotated ones first), from the first whole exchange. Returns the exit status: 0, or 1
// when a file cannot be read or is not a trace (nothing but the error is printed then).
int showTrace(const Arguments& a, const Console& console);

QString recordingText(const trace::Header& header, int number);
QString exchangeText(const trace::Exchange& exchange);
QString summaryText(const trace::Summary& summary);

QJsonObject recordingJson(const trace::Header& header, int number);
QJsonObject exchangeJson(const trace::Exchange& exchange);
QJsonObject summaryJson(const trace::Summary& summary);

} // namespace tool
