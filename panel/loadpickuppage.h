// The load and pick-up page: a unit, the operations it offers with their amounts, and the results.
#pragma once

#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/sumdetailed.h"

#include <QList>
#include <QString>
#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;

namespace panel {

struct UnitOperation;

class LoadPickupPage : public QWidget
{
    Q_OBJECT
public:
    explicit LoadPickupPage(QWidget* parent = nullptr);

    // Keeps the chosen unit when it is still there.
    void setUnits(const QList<CashControlUnit>& units);
    void showLoan(const QString& unit, int operation, qint64 amount);
    void showPickup(const QString& unit, int operation, const SumDetailed& taken);
    void setControlsEnabled(bool enabled);

signals:
    void loanRequested(const QString& unit, int operation, qint64 amount);
    void pickupRequested(const QString& unit, int operation, qint64 amount);
    // The unit or the pick-up operation chosen changed what can be pressed.
    void choiceChanged();
    void message(const QString& text, bool failure);

private:
    void unitChosen();
    void load();
    void pickup();
    const CashControlUnit* chosenUnit() const;
    // The chosen unit's operation and amount from one of the two operation rows; false after
    // showing why the amount is refused, or when nothing is chosen.
    bool chosenRequest(const QComboBox* opBox, const QList<UnitOperation>& offered,
                       const QLineEdit* amountEdit, int* operation, qint64* amount);

    QList<CashControlUnit> units;

    QComboBox* opUnit;
    QComboBox* loadOp;
    QLineEdit* loadAmount;
    QPushButton* loadButton;
    QComboBox* pickupOp;
    QLineEdit* pickupAmount;
    QPushButton* pickupButton;
    QLabel* opResultLabel;
    QTableWidget* opTable;
};

} // namespace panel
