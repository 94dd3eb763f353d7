// The change page: an amount and a mode, checked or paid, and what was paid by denomination.
#include "changepage.h"

#include "parts.h"
#include "unitops.h"

#include "cashcontrol/ecashcontrol.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>

namespace panel {

ChangePage::ChangePage(QWidget* parent) : QWidget(parent)
{
    auto* layout = new QGridLayout(this);
    changeAmount = named<QLineEdit>("changeAmount", this);
    changeAmount->setPlaceholderText(QStringLiteral("15.50"));
    changeMode = named<QComboBox>("changeMode", this);
    changeMode->addItem(QStringLiteral("optimal (%1): fuller hoppers first").arg(ECashControl::modeName(0)),
                        int(ECashControl::Optimal));
    changeMode->addItem(QStringLiteral("minimum (%1): fewest coins").arg(ECashControl::modeName(1)),
                        int(ECashControl::Minimum));
    changeCheckButton = named<QPushButton>("changeCheckButton", QStringLiteral("Check"), this);
    changePayButton = named<QPushButton>("changePayButton", QStringLiteral("Pay"), this);
    changeResultLabel = named<QLabel>("changeResultLabel", this);
    changeResultLabel->setWordWrap(true);
    changeTable =
        table(QStringLiteral("changeTable"),
              {QStringLiteral("Denomination"), QStringLiteral("Count"), QStringLiteral("Sum")}, this);

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Amount"), changeAmount);
    form->addRow(QStringLiteral("Mode"), changeMode);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(changeCheckButton);
    buttons->addWidget(changePayButton);
    form->addRow(buttons);
    form->addRow(changeResultLabel);
    layout->addLayout(form, 0, 0);
    layout->addWidget(changeTable, 0, 1);
    layout->setColumnStretch(1, 1);

    connect(changeCheckButton, &QPushButton::clicked, this, &ChangePage::check);
    connect(changePayButton, &QPushButton::clicked, this, &ChangePage::pay);
    connect(changeAmount, &QLineEdit::returnPressed, this, &ChangePage::check);
}

bool ChangePage::parseAmount(long long* minor)
{
    QString error;
    if (!parseMoney(changeAmount->text(), false, minor, &error)) {
        changeResultLabel->setText(error);
        emit message(error, true);
        return false;
    }
    return true;
}

void ChangePage::check()
{
    long long amount = 0;
    if (!parseAmount(&amount))
        return;
    changeResultLabel->clear();
    emit checkRequested(changeMode->currentData().toInt(), qint64(amount));
}

void ChangePage::pay()
{
    long long amount = 0;
    if (!parseAmount(&amount))
        return;
    if (amount == 0) {
        emit message(QStringLiteral("the amount must be above 0"), true);
        return;
    }
    changeResultLabel->clear();
    changeTable->setRowCount(0);
    emit payRequested(changeMode->currentData().toInt(), qint64(amount));
}

void ChangePage::showChecked(qint64 amount, int mode, bool possible)
{
    const QString text = QStringLiteral("%1 %2 be paid as change (%3)")
                             .arg(money(amount), possible ? QStringLiteral("can") : QStringLiteral("cannot"),
                                  hostkit::modeKey(mode));
    changeResultLabel->setText(text);
    emit message(text, false);
}

void ChangePage::showPaid(qint64 amount, int mode, const SumDetailed& paid)
{
    const QString text =
        QStringLiteral("paid %1 of %2 (%3): %4")
            .arg(money(paid.sum()), money(amount), hostkit::modeKey(mode), hostkit::sumBreakdown(paid));
    changeResultLabel->setText(text);
    fillBreakdown(changeTable, paid);
    emit message(text, false);
}

void ChangePage::setControlsEnabled(bool enabled)
{
    changeCheckButton->setEnabled(enabled);
    changePayButton->setEnabled(enabled);
}

} // namespace panel
