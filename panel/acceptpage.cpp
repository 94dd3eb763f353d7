// The acceptance page: coins taken in with refused denominations, as they arrive, with the total.
#include "acceptpage.h"

#include "parts.h"

#include "hostkit/amount.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTime>
#include <QVBoxLayout>

namespace panel {

AcceptPage::AcceptPage(QWidget* parent) : QWidget(parent)
{
    auto* layout = new QGridLayout(this);
    acceptStartButton = named<QPushButton>("acceptStartButton", QStringLiteral("Start accepting"), this);
    acceptStopButton = named<QPushButton>("acceptStopButton", QStringLiteral("Stop"), this);
    fastBox = named<QCheckBox>("fastBox", QStringLiteral("Fast mode"), this);
    excludeList = named<QListWidget>("excludeList", this);
    excludeList->setToolTip(QStringLiteral("Tick the denominations to refuse this time"));
    coinsList = named<QListWidget>("coinsList", this);
    acceptTotalLabel = named<QLabel>("acceptTotalLabel", QStringLiteral("total 0.00"), this);
    QFont big = acceptTotalLabel->font();
    big.setPointSize(big.pointSize() + 4);
    big.setBold(true);
    acceptTotalLabel->setFont(big);

    auto* buttons = new QVBoxLayout;
    buttons->addWidget(acceptStartButton);
    buttons->addWidget(acceptStopButton);
    buttons->addWidget(fastBox);
    buttons->addStretch();
    layout->addLayout(buttons, 0, 0, 2, 1);
    layout->addWidget(new QLabel(QStringLiteral("Refuse"), this), 0, 1);
    layout->addWidget(excludeList, 1, 1);
    layout->addWidget(new QLabel(QStringLiteral("Coins as they arrive"), this), 0, 2);
    layout->addWidget(coinsList, 1, 2);
    layout->addWidget(acceptTotalLabel, 2, 2);
    layout->setColumnStretch(1, 1);
    layout->setColumnStretch(2, 2);

    connect(acceptStartButton, &QPushButton::clicked, this, &AcceptPage::start);
    connect(acceptStopButton, &QPushButton::clicked, this, &AcceptPage::stopRequested);
}

QList<uint> AcceptPage::refused() const
{
    QList<uint> list;
    for (int i = 0; i < excludeList->count(); ++i)
        if (excludeList->item(i)->checkState() == Qt::Checked)
            list.append(excludeList->item(i)->data(Qt::UserRole).toUInt());
    return list;
}

void AcceptPage::setDenominations(const QList<uint>& denominations)
{
    const QList<uint> wasRefused = refused();
    excludeList->clear();
    for (const uint denomination : denominations) {
        auto* item = new QListWidgetItem(money(denomination), excludeList);
        item->setData(Qt::UserRole, denomination);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        item->setCheckState(wasRefused.contains(denomination) ? Qt::Checked : Qt::Unchecked);
    }
}

void AcceptPage::start()
{
    const QList<uint> list = refused();
    coinsList->clear();
    acceptedTotal = 0;
    acceptTotalLabel->setText(QStringLiteral("total 0.00"));
    emit startRequested(fastBox->isChecked(), list);
}

void AcceptPage::showAcceptance(bool running)
{
    if (!running)
        acceptTotalLabel->setText(QStringLiteral("accepted %1").arg(money(acceptedTotal)));
    else
        emit message(QStringLiteral("accepting coins"), false);
}

void AcceptPage::showCoins(const SumDetailed& coins)
{
    acceptedTotal += coins.sum();
    coinsList->addItem(QStringLiteral("%1  received %2  (%3)")
                           .arg(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), money(coins.sum()),
                                hostkit::sumBreakdown(coins)));
    coinsList->scrollToBottom();
    acceptTotalLabel->setText(QStringLiteral("total %1").arg(money(acceptedTotal)));
}

void AcceptPage::setControlsEnabled(bool ready, bool accepting)
{
    acceptStartButton->setEnabled(ready && !accepting);
    acceptStopButton->setEnabled(ready && accepting);
    fastBox->setEnabled(!accepting);
    excludeList->setEnabled(!accepting);
}

} // namespace panel
