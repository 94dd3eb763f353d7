// The cash units box: one row per unit with its fill bar, and the button that reads them again.
#include "cashunitsbox.h"

#include "parts.h"
#include "unitops.h"

#include "cashcontrol/units.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace panel {

namespace {

QString stateText(const CashControlUnit& unit)
{
    return unit.state == 0 ? QStringLiteral("ok") : QStringLiteral("fault");
}

QProgressBar* fillBar(const CashControlUnit& unit, QWidget* parent)
{
    const bool cashbox = cashunits::isCashbox(unit);
    auto* bar = new QProgressBar(parent);
    bar->setObjectName(QStringLiteral("fill_%1").arg(unit.name));
    if (cashbox || unit.capacity <= 0) {
        bar->setRange(0, 1);
        bar->setValue(0);
        bar->setFormat(cashbox ? QStringLiteral("cashbox") : QStringLiteral("%1 coins").arg(unit.count));
    } else {
        bar->setRange(0, unit.capacity);
        bar->setValue(int(std::min<long long>(unit.count, unit.capacity)));
        bar->setFormat(QStringLiteral("%1 of %2").arg(unit.count).arg(unit.capacity));
    }
    bar->setAlignment(Qt::AlignCenter);
    bar->setStyleSheet(QStringLiteral("QProgressBar { border: 1px solid #888; border-radius: 3px; }"
                                      "QProgressBar::chunk { background: %1; }")
                           .arg(fillColor(fillLevel(unit)).name()));
    return bar;
}

} // namespace

CashUnitsBox::CashUnitsBox(QWidget* parent) : QGroupBox(QStringLiteral("Cash units"), parent)
{
    auto* layout = new QVBoxLayout(this);
    unitsTable = table(QStringLiteral("unitsTable"),
                       {QStringLiteral("Unit"), QStringLiteral("Denomination"), QStringLiteral("Fill"),
                        QStringLiteral("Count"), QStringLiteral("Capacity"), QStringLiteral("Sum"),
                        QStringLiteral("State")},
                       this);
    unitsTable->horizontalHeader()->setSectionResizeMode(2, QHeaderView::Stretch);
    unitsTable->horizontalHeader()->setStretchLastSection(false);
    refreshButton = named<QPushButton>("refreshButton", QStringLiteral("Refresh"), this);
    auto* bar = new QHBoxLayout;
    bar->addStretch();
    bar->addWidget(refreshButton);
    layout->addWidget(unitsTable);
    layout->addLayout(bar);
    connect(refreshButton, &QPushButton::clicked, this, &CashUnitsBox::refreshRequested);
}

void CashUnitsBox::showUnits(const QList<CashControlUnit>& units)
{
    unitsTable->setRowCount(0);
    for (const CashControlUnit& unit : units) {
        const int row = unitsTable->rowCount();
        unitsTable->insertRow(row);
        unitsTable->setItem(row, 0, cell(unit.name));
        const bool cashbox = cashunits::isCashbox(unit);
        unitsTable->setItem(row, 1, cell(cashbox ? QStringLiteral("-") : money(unit.denom), true));
        unitsTable->setCellWidget(row, 2, fillBar(unit, unitsTable));
        unitsTable->setItem(row, 3, cell(cashbox ? QStringLiteral("-") : QString::number(unit.count), true));
        unitsTable->setItem(row, 4,
                            cell(cashbox ? QStringLiteral("-") : QString::number(unit.capacity), true));
        unitsTable->setItem(row, 5, cell(money(cashunits::unitValue(unit)), true));
        auto* state = cell(stateText(unit));
        if (unit.state != 0)
            state->setForeground(fillColor(FillLevel::Fault));
        unitsTable->setItem(row, 6, state);
    }
    unitsTable->resizeColumnsToContents();
    unitsTable->horizontalHeader()->setSectionResizeMode(2, QHeaderView::Stretch);
}

void CashUnitsBox::setControlsEnabled(bool enabled)
{
    refreshButton->setEnabled(enabled);
}

} // namespace panel
