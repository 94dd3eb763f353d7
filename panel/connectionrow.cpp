// The row above everything: the port chooser, line recording, supervision and the state check.
#include "connectionrow.h"

#include "parts.h"

#include "hostkit/serialports.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>

namespace panel {

ConnectionRow::ConnectionRow(QWidget* parent) : QWidget(parent)
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    portBox = named<QComboBox>("portBox", this);
    portBox->setEditable(true);
    portBox->setMinimumWidth(260);
    portBox->setToolTip(QStringLiteral("The recycler's serial port, or the built-in simulator"));
    rescanButton = named<QPushButton>("rescanButton", QStringLiteral("Rescan"), this);
    connectButton = named<QPushButton>("connectButton", QStringLiteral("Connect"), this);
    supervisionBox = named<QCheckBox>("supervisionBox", QStringLiteral("Background state check"), this);
    supervisionBox->setChecked(true);
    recordBox = named<QCheckBox>("recordBox", QStringLiteral("Record the line"), this);
    recordBox->setToolTip(QStringLiteral("Write every byte sent to and received from the recycler to a trace "
                                         "file, for cpibcr trace and for replaying it in the lab"));
    recordLabel = named<QLabel>("recordLabel", this);
    recordLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    checkStateButton = named<QPushButton>("checkStateButton", QStringLiteral("Check state"), this);
    layout->addWidget(new QLabel(QStringLiteral("Port"), this));
    layout->addWidget(portBox);
    layout->addWidget(rescanButton);
    layout->addWidget(connectButton);
    layout->addStretch(1);
    layout->addWidget(recordBox);
    layout->addWidget(recordLabel);
    layout->addWidget(supervisionBox);
    layout->addWidget(checkStateButton);

    connect(rescanButton, &QPushButton::clicked, this, &ConnectionRow::rescanRequested);
    connect(connectButton, &QPushButton::clicked, this, &ConnectionRow::connectRequested);
    connect(checkStateButton, &QPushButton::clicked, this, &ConnectionRow::checkStateRequested);
    connect(recordBox, &QCheckBox::toggled, this, &ConnectionRow::recordSwitched);
    connect(supervisionBox, &QCheckBox::toggled, this, &ConnectionRow::supervisionSwitched);
}

void ConnectionRow::listPorts(const QString& configured)
{
    const QString current = portBox->currentText();
    portBox->clear();
    portBox->addItem(QStringLiteral("built-in simulator"), QString());
    for (const hostkit::SerialPortEntry& port : hostkit::availableSerialPorts()) {
        QString label = port.location;
        if (!port.description.isEmpty())
            label += QStringLiteral(" (%1)").arg(port.description);
        portBox->addItem(label, port.location);
    }
    if (!configured.isEmpty() && portBox->findData(configured) < 0)
        portBox->addItem(configured, configured);
    const int index = portBox->findData(configured);
    portBox->setCurrentIndex(index < 0 ? 0 : index);
    if (!current.isEmpty() && portBox->findText(current) >= 0)
        portBox->setCurrentIndex(portBox->findText(current));
}

QString ConnectionRow::chosenPort() const
{
    const int index = portBox->findText(portBox->currentText());
    return index >= 0 ? portBox->itemData(index).toString() : portBox->currentText().trimmed();
}

void ConnectionRow::recordInto(const QString& file)
{
    recordingFile = file;
    if (!recordingFile.isEmpty())
        recordBox->setChecked(true);
}

void ConnectionRow::recordSwitched(bool on)
{
    QString path;
    if (on) {
        path = recordingFile.isEmpty() ? QDir(recordingFolder)
                                             .filePath(QStringLiteral("cpibcr-%1.trace")
                                                           .arg(QDateTime::currentDateTime().toString(
                                                               QStringLiteral("yyyyMMdd-HHmmss"))))
                                       : recordingFile;
        recordLabel->setText(QStringLiteral("to %1").arg(path));
    }
    emit recordingRequested(path);
}

void ConnectionRow::showRecording(bool on, const QString& path)
{
    const QSignalBlocker blocker(recordBox);
    recordBox->setChecked(on);
    recordLabel->setText(on ? QStringLiteral("to %1").arg(path) : QString());
}

void ConnectionRow::setControlsEnabled(bool busy, bool accepting, bool deviceFree)
{
    connectButton->setEnabled(!busy && !accepting);
    rescanButton->setEnabled(!busy);
    portBox->setEnabled(!busy && !accepting);
    checkStateButton->setEnabled(deviceFree);
}

} // namespace panel
