// The lines under the connection row: the device, the fault banner, progress and the last message.
#include "statusarea.h"

#include "parts.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

namespace panel {

StatusArea::StatusArea(QWidget* parent) : QWidget(parent)
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    deviceLabel = named<QLabel>("deviceLabel", QStringLiteral("not connected"), this);
    deviceLabel->setWordWrap(true);
    layout->addWidget(deviceLabel);

    banner = named<QLabel>("banner", this);
    banner->setWordWrap(true);
    banner->setStyleSheet(QStringLiteral("QLabel { background: #b01e23; color: white; font-weight: bold; "
                                         "padding: 8px; border-radius: 3px; }"));
    banner->hide();
    layout->addWidget(banner);

    auto* busyRow = new QHBoxLayout;
    busyBar = named<QProgressBar>("busyBar", this);
    busyBar->setRange(0, 0);
    busyBar->setMaximumWidth(160);
    busyBar->setTextVisible(false);
    busyLabel = named<QLabel>("busyLabel", this);
    busyRow->addWidget(busyBar);
    busyRow->addWidget(busyLabel, 1);
    busyBar->hide();
    busyLabel->hide();
    messageLabel = named<QLabel>("messageLabel", this);
    messageLabel->setWordWrap(true);
    messageLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    busyRow->addWidget(messageLabel, 3);
    layout->addLayout(busyRow);
}

void StatusArea::showDevice(const QString& text)
{
    deviceLabel->setText(text);
}

void StatusArea::showFault(const QString& message)
{
    banner->setText(message);
    banner->show();
}

void StatusArea::clearFault()
{
    banner->hide();
    banner->clear();
}

void StatusArea::showBusy(const QString& what)
{
    busyLabel->setText(what + QStringLiteral("..."));
    busyBar->show();
    busyLabel->show();
}

void StatusArea::showIdle()
{
    busyBar->hide();
    busyLabel->hide();
}

void StatusArea::showMessage(const QString& text, bool failure)
{
    messageLabel->setText(text);
    messageLabel->setStyleSheet(failure ? QStringLiteral("QLabel { color: #b01e23; font-weight: bold; }")
                                        : QString());
}

} // namespace panel
