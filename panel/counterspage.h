// The counters and maintenance page: coins accepted and paid out, and the hoppers' wear.
#pragma once

#include "cashcontrol/ccunitmaintenanceinfo.h"
#include "cashcontrol/sumdetailed.h"

#include <QList>
#include <QString>
#include <QWidget>

class QPushButton;
class QTableWidget;

namespace panel {

class CountersPage : public QWidget
{
    Q_OBJECT
public:
    explicit CountersPage(QWidget* parent = nullptr);

    void showCounters(const SumDetailed& accepted, const SumDetailed& dispensed);
    void showMaintenance(const QList<hw::CcUnitMaintenanceInfo>& records);
    void setControlsEnabled(bool enabled);

signals:
    void countersRequested();
    void maintenanceRequested();
    void maintenanceDoneRequested(const QString& unit);
    // The hopper chosen in the maintenance table changed what can be pressed.
    void choiceChanged();
    void message(const QString& text, bool failure);

private:
    void markMaintenanceDone();

    QPushButton* countersButton;
    QTableWidget* acceptedTable;
    QTableWidget* dispensedTable;
    QPushButton* maintenanceButton;
    QPushButton* maintenanceDoneButton;
    QTableWidget* maintenanceTable;
};

} // namespace panel
