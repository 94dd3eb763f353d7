// What the window's parts are built with: named children, read-only tables, amounts in cells.
#include "parts.h"

#include "hostkit/amount.h"

#include <QHeaderView>
#include <QTableWidget>

namespace panel {

QString money(long long minor)
{
    return hostkit::formatAmount(minor);
}

QTableWidgetItem* cell(const QString& text, bool number)
{
    auto* item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    if (number)
        item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    return item;
}

QTableWidget* table(const QString& name, const QStringList& headers, QWidget* parent)
{
    auto* t = new QTableWidget(0, headers.size(), parent);
    t->setObjectName(name);
    t->setHorizontalHeaderLabels(headers);
    t->verticalHeader()->setVisible(false);
    t->setEditTriggers(QAbstractItemView::NoEditTriggers);
    t->setSelectionBehavior(QAbstractItemView::SelectRows);
    t->setSelectionMode(QAbstractItemView::SingleSelection);
    t->horizontalHeader()->setStretchLastSection(true);
    return t;
}

void fillBreakdown(QTableWidget* t, const SumDetailed& sum)
{
    t->setRowCount(0);
    for (auto it = sum.denoms.cbegin(); it != sum.denoms.cend(); ++it) {
        // The driver lists every denomination it read a counter for, moved or not.
        if (it.value() == 0)
            continue;
        const int row = t->rowCount();
        t->insertRow(row);
        t->setItem(row, 0, cell(money(it.key()), true));
        t->setItem(row, 1, cell(QString::number(it.value()), true));
        t->setItem(row, 2, cell(money(static_cast<long long>(it.key()) * it.value()), true));
    }
    const int row = t->rowCount();
    t->insertRow(row);
    t->setItem(row, 0, cell(QStringLiteral("total")));
    t->setItem(row, 1, cell(QString()));
    t->setItem(row, 2, cell(money(sum.sum()), true));
    t->resizeColumnsToContents();
}

} // namespace panel
