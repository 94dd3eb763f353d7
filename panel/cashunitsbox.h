// The cash units box: one row per unit with its fill bar, and the button that reads them again.
#pragma once

#include "cashcontrol/cashcontrolunit.h"

#include <QGroupBox>
#include <QList>

class QPushButton;
class QTableWidget;

namespace panel {

class CashUnitsBox : public QGroupBox
{
    Q_OBJECT
public:
    explicit CashUnitsBox(QWidget* parent = nullptr);

    void showUnits(const QList<CashControlUnit>& units);
    void setControlsEnabled(bool enabled);

signals:
    void refreshRequested();

private:
    QTableWidget* unitsTable;
    QPushButton* refreshButton;
};

} // namespace panel
