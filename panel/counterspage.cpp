// The counters and maintenance page: coins accepted and paid out, and the hoppers' wear.
#include "counterspage.h"

#include "parts.h"

#include "cashcontrol/ecashcontrol.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTableWidget>

#include <algorithm>

namespace panel {

namespace {

QProgressBar* wearBar(const hw::CcUnitMaintenanceInfo& record, QWidget* parent)
{
    auto* wear = new QProgressBar(parent);
    wear->setObjectName(QStringLiteral("wear_%1").arg(record.unitName));
    wear->setRange(0, std::max(1, record.interval));
    wear->setValue(std::min(record.cycles, std::max(1, record.interval)));
    wear->setFormat(QStringLiteral("%1 of %2").arg(record.cycles).arg(record.interval));
    wear->setAlignment(Qt::AlignCenter);
    return wear;
}

} // namespace

CountersPage::CountersPage(QWidget* parent) : QWidget(parent)
{
    auto* layout = new QGridLayout(this);
    countersButton = named<QPushButton>("countersButton", QStringLiteral("Read counters"), this);
    const QStringList columns{QStringLiteral("Denomination"), QStringLiteral("Count"), QStringLiteral("Sum")};
    acceptedTable = table(QStringLiteral("acceptedTable"), columns, this);
    dispensedTable = table(QStringLiteral("dispensedTable"), columns, this);
    maintenanceButton = named<QPushButton>("maintenanceButton", QStringLiteral("Read maintenance"), this);
    maintenanceDoneButton = named<QPushButton>(
        "maintenanceDoneButton", QStringLiteral("Maintenance done for the selected hopper"), this);
    maintenanceTable =
        table(QStringLiteral("maintenanceTable"),
              {QStringLiteral("Unit"), QStringLiteral("Status"), QStringLiteral("Wear"),
               QStringLiteral("Cycles"), QStringLiteral("Interval"), QStringLiteral("Description")},
              this);

    layout->addWidget(countersButton, 0, 0);
    layout->addWidget(new QLabel(QStringLiteral("Accepted (%1)").arg(ECashControl::counterName(0)), this), 1,
                      0);
    layout->addWidget(acceptedTable, 2, 0);
    layout->addWidget(new QLabel(QStringLiteral("Dispensed (%1)").arg(ECashControl::counterName(1)), this), 1,
                      1);
    layout->addWidget(dispensedTable, 2, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(maintenanceButton);
    buttons->addWidget(maintenanceDoneButton);
    buttons->addStretch();
    layout->addLayout(buttons, 0, 2);
    layout->addWidget(new QLabel(QStringLiteral("Hopper wear: cycles against the service interval"), this), 1,
                      2);
    layout->addWidget(maintenanceTable, 2, 2);
    layout->setColumnStretch(2, 2);

    connect(countersButton, &QPushButton::clicked, this, &CountersPage::countersRequested);
    connect(maintenanceButton, &QPushButton::clicked, this, &CountersPage::maintenanceRequested);
    connect(maintenanceDoneButton, &QPushButton::clicked, this, &CountersPage::markMaintenanceDone);
    connect(maintenanceTable, &QTableWidget::itemSelectionChanged, this, &CountersPage::choiceChanged);
}

void CountersPage::showCounters(const SumDetailed& accepted, const SumDetailed& dispensed)
{
    fillBreakdown(acceptedTable, accepted);
    fillBreakdown(dispensedTable, dispensed);
    emit message(QStringLiteral("counters: accepted %1, dispensed %2")
                     .arg(money(accepted.sum()), money(dispensed.sum())),
                 false);
}

void CountersPage::showMaintenance(const QList<hw::CcUnitMaintenanceInfo>& records)
{
    maintenanceTable->setRowCount(0);
    for (const hw::CcUnitMaintenanceInfo& record : records) {
        const int row = maintenanceTable->rowCount();
        maintenanceTable->insertRow(row);
        maintenanceTable->setItem(row, 0, cell(record.unitName));
        maintenanceTable->setItem(row, 1,
                                  cell(record.status ? QStringLiteral("ok") : QStringLiteral("service due")));
        maintenanceTable->setCellWidget(row, 2, wearBar(record, maintenanceTable));
        maintenanceTable->setItem(row, 3, cell(QString::number(record.cycles), true));
        maintenanceTable->setItem(row, 4, cell(QString::number(record.interval), true));
        maintenanceTable->setItem(
            row, 5, cell(record.description.isEmpty() ? QStringLiteral("-") : record.description));
    }
    emit choiceChanged();
}

void CountersPage::markMaintenanceDone()
{
    const int row = maintenanceTable->currentRow();
    if (row < 0 || !maintenanceTable->item(row, 0))
        return;
    emit maintenanceDoneRequested(maintenanceTable->item(row, 0)->text());
}

void CountersPage::setControlsEnabled(bool enabled)
{
    countersButton->setEnabled(enabled);
    maintenanceButton->setEnabled(enabled);
    maintenanceDoneButton->setEnabled(enabled && maintenanceTable->currentRow() >= 0);
}

} // namespace panel
