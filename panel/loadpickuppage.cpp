// The load and pick-up page: a unit, the operations it offers with their amounts, and the results.
#include "loadpickuppage.h"

#include "parts.h"
#include "unitops.h"

#include "cashcontrol/ecashcontrol.h"
#include "hostkit/amount.h"

#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>

namespace panel {

LoadPickupPage::LoadPickupPage(QWidget* parent) : QWidget(parent)
{
    auto* layout = new QGridLayout(this);
    opUnit = named<QComboBox>("opUnit", this);
    loadOp = named<QComboBox>("loadOp", this);
    loadAmount = named<QLineEdit>("loadAmount", this);
    loadAmount->setPlaceholderText(QStringLiteral("amount"));
    loadButton = named<QPushButton>("loadButton", QStringLiteral("Load"), this);
    pickupOp = named<QComboBox>("pickupOp", this);
    pickupAmount = named<QLineEdit>("pickupAmount", this);
    pickupAmount->setPlaceholderText(QStringLiteral("amount"));
    pickupButton = named<QPushButton>("pickupButton", QStringLiteral("Pick up"), this);
    opResultLabel = named<QLabel>("opResultLabel", this);
    opResultLabel->setWordWrap(true);
    opTable = table(QStringLiteral("opTable"),
                    {QStringLiteral("Denomination"), QStringLiteral("Count"), QStringLiteral("Sum")}, this);

    layout->addWidget(new QLabel(QStringLiteral("Unit"), this), 0, 0);
    layout->addWidget(opUnit, 0, 1, 1, 2);
    layout->addWidget(new QLabel(QStringLiteral("Load"), this), 1, 0);
    layout->addWidget(loadOp, 1, 1);
    layout->addWidget(loadAmount, 1, 2);
    layout->addWidget(loadButton, 1, 3);
    layout->addWidget(new QLabel(QStringLiteral("Pick up"), this), 2, 0);
    layout->addWidget(pickupOp, 2, 1);
    layout->addWidget(pickupAmount, 2, 2);
    layout->addWidget(pickupButton, 2, 3);
    layout->addWidget(opResultLabel, 3, 0, 1, 4);
    layout->addWidget(opTable, 0, 4, 5, 1);
    layout->setRowStretch(4, 1);
    layout->setColumnStretch(1, 1);
    layout->setColumnStretch(4, 1);

    connect(opUnit, &QComboBox::currentTextChanged, this, &LoadPickupPage::unitChosen);
    connect(pickupOp, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &LoadPickupPage::choiceChanged);
    connect(loadButton, &QPushButton::clicked, this, &LoadPickupPage::load);
    connect(pickupButton, &QPushButton::clicked, this, &LoadPickupPage::pickup);
}

void LoadPickupPage::setUnits(const QList<CashControlUnit>& list)
{
    units = list;
    const QString chosen = opUnit->currentText();
    opUnit->blockSignals(true);
    opUnit->clear();
    for (const CashControlUnit& unit : units)
        opUnit->addItem(unit.name);
    const int index = opUnit->findText(chosen);
    opUnit->setCurrentIndex(index < 0 ? 0 : index);
    opUnit->blockSignals(false);
    unitChosen();
}

const CashControlUnit* LoadPickupPage::chosenUnit() const
{
    for (const CashControlUnit& unit : units)
        if (unit.name == opUnit->currentText())
            return &unit;
    return nullptr;
}

void LoadPickupPage::unitChosen()
{
    const CashControlUnit* unit = chosenUnit();
    loadOp->clear();
    pickupOp->clear();
    if (unit) {
        for (const UnitOperation& op : loadOperations(*unit))
            loadOp->addItem(QStringLiteral("%1 (%2)").arg(op.key, op.title), op.operation);
        for (const UnitOperation& op : pickupOperations(*unit))
            pickupOp->addItem(QStringLiteral("%1 (%2)").arg(op.key, op.title), op.operation);
    }
    emit choiceChanged();
}

bool LoadPickupPage::chosenRequest(const QComboBox* opBox, const QList<UnitOperation>& offered,
                                   const QLineEdit* amountEdit, int* operation, qint64* amount)
{
    const CashControlUnit* unit = chosenUnit();
    if (!unit || opBox->currentIndex() < 0)
        return false;
    *operation = opBox->currentData().toInt();
    UnitOperation op;
    for (const UnitOperation& candidate : offered)
        if (candidate.operation == *operation)
            op = candidate;
    long long checked = 0;
    QString error;
    if (!checkOperationAmount(*unit, op, amountEdit->text(), &checked, &error)) {
        opResultLabel->setText(error);
        emit message(error, true);
        return false;
    }
    *amount = qint64(checked);
    opResultLabel->clear();
    return true;
}

void LoadPickupPage::load()
{
    const CashControlUnit* unit = chosenUnit();
    int operation = 0;
    qint64 amount = 0;
    if (!unit || !chosenRequest(loadOp, loadOperations(*unit), loadAmount, &operation, &amount))
        return;
    emit loanRequested(unit->name, operation, amount);
}

void LoadPickupPage::pickup()
{
    const CashControlUnit* unit = chosenUnit();
    int operation = 0;
    qint64 amount = 0;
    if (!unit || !chosenRequest(pickupOp, pickupOperations(*unit), pickupAmount, &operation, &amount))
        return;
    opTable->setRowCount(0);
    emit pickupRequested(unit->name, operation, amount);
}

void LoadPickupPage::showLoan(const QString& unit, int operation, qint64 amount)
{
    // Only a manual load changes a count; the driver accepts the other loads and moves nothing,
    // so the window must not show them as money put in.
    const QString text = operation == ECashControl::ManualLoad
                             ? QStringLiteral("loan of %1 into %2 (%3)")
                                   .arg(money(amount), unit, ECashControl::operationName(operation))
                             : QStringLiteral("%1 into %2 accepted: the driver moved no coins (%3 asked)")
                                   .arg(ECashControl::operationName(operation), unit, money(amount));
    opResultLabel->setText(text);
    emit message(text, false);
}

void LoadPickupPage::showPickup(const QString& unit, int operation, const SumDetailed& taken)
{
    const QString text = QStringLiteral("pickup of %1 from %2 (%3): %4")
                             .arg(money(taken.sum()), unit, ECashControl::operationName(operation),
                                  hostkit::sumBreakdown(taken));
    opResultLabel->setText(text);
    fillBreakdown(opTable, taken);
    emit message(text, false);
}

void LoadPickupPage::setControlsEnabled(bool enabled)
{
    const CashControlUnit* unit = chosenUnit();
    opUnit->setEnabled(enabled);
    const bool canLoad = unit && loadOp->count() > 0;
    loadOp->setEnabled(enabled && canLoad);
    loadAmount->setEnabled(enabled && canLoad);
    loadButton->setEnabled(enabled && canLoad);
    bool pickupTakesAmount = false;
    if (unit && pickupOp->currentIndex() >= 0)
        for (const UnitOperation& op : pickupOperations(*unit))
            if (op.operation == pickupOp->currentData().toInt())
                pickupTakesAmount = op.takesAmount;
    const bool canPickup = unit && pickupOp->count() > 0;
    pickupOp->setEnabled(enabled && canPickup);
    pickupAmount->setEnabled(enabled && canPickup && pickupTakesAmount);
    pickupButton->setEnabled(enabled && canPickup);
}

} // namespace panel
