// What the window's parts are built with: named children, read-only tables, amounts in cells.
#pragma once

#include "cashcontrol/sumdetailed.h"

#include <QLatin1String>
#include <QString>
#include <QStringList>

#include <utility>

class QTableWidget;
class QTableWidgetItem;
class QWidget;

namespace panel {

QString money(long long minor);

QTableWidgetItem* cell(const QString& text, bool number = false);

// A child widget the tests find by its object name.
template <class W, class... Args> W* named(const char* name, Args&&... args)
{
    auto* w = new W(std::forward<Args>(args)...);
    w->setObjectName(QLatin1String(name));
    return w;
}

QTableWidget* table(const QString& name, const QStringList& headers, QWidget* parent);

// Denomination, count and sum per denomination, then the total.
void fillBreakdown(QTableWidget* t, const SumDetailed& sum);

} // namespace panel
