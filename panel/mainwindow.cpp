#include "mainwindow.h"

#include "acceptpage.h"
#include "changepage.h"
#include "counterspage.h"
#include "loadpickuppage.h"
#include "logpane.h"
#include "parts.h"
#include "unitops.h"

#include "cashcontrol/units.h"
#include "hostkit/serialports.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSplitter>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace panel {

namespace {

QString stateText(const CashControlUnit& unit)
{
    return unit.state == 0 ? QStringLiteral("ok") : QStringLiteral("fault");
}

} // namespace

MainWindow::MainWindow(const Connection& conn, const QString& hint, QWidget* parent)
    : QMainWindow(parent), connection(conn), pluginHint(hint), driverWorker(new DriverWorker)
{
    registerMetaTypes();
    setObjectName(QStringLiteral("panelWindow"));
    setWindowTitle(QStringLiteral("cpibcr-panel: CPI BCR coin recycler"));

    // The log pane attaches its appender before the driver exists, so no line is missed.
    logPane = new LogPane(this);

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->addWidget(buildConnectionRow());
    layout->addWidget(deviceLabel);

    banner = named<QLabel>("banner", central);
    banner->setWordWrap(true);
    banner->setStyleSheet(QStringLiteral("QLabel { background: #b01e23; color: white; font-weight: bold; "
                                         "padding: 8px; border-radius: 3px; }"));
    banner->hide();
    layout->addWidget(banner);

    auto* busyRow = new QHBoxLayout;
    busyBar = named<QProgressBar>("busyBar", central);
    busyBar->setRange(0, 0);
    busyBar->setMaximumWidth(160);
    busyBar->setTextVisible(false);
    busyLabel = named<QLabel>("busyLabel", central);
    busyRow->addWidget(busyBar);
    busyRow->addWidget(busyLabel, 1);
    busyBar->hide();
    busyLabel->hide();
    messageLabel = named<QLabel>("messageLabel", central);
    messageLabel->setWordWrap(true);
    messageLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    busyRow->addWidget(messageLabel, 3);
    layout->addLayout(busyRow);

    auto* tabs = new QTabWidget(central);
    tabs->setObjectName(QStringLiteral("tabs"));
    tabs->addTab(acceptPage = new AcceptPage(central), QStringLiteral("Acceptance"));
    tabs->addTab(changePage = new ChangePage(central), QStringLiteral("Change"));
    tabs->addTab(loadPickupPage = new LoadPickupPage(central), QStringLiteral("Load and pick up"));
    tabs->addTab(countersPage = new CountersPage(central), QStringLiteral("Counters and maintenance"));

    auto* splitter = new QSplitter(Qt::Vertical, central);
    splitter->addWidget(buildUnits());
    splitter->addWidget(tabs);
    splitter->addWidget(logPane);
    splitter->setSizes({290, 330, 200});
    layout->addWidget(splitter, 1);
    setCentralWidget(central);
    resize(1200, 940);

    driverWorker->moveToThread(&thread);
    connect(&thread, &QThread::finished, driverWorker, &QObject::deleteLater);
    connect(driverWorker, &DriverWorker::busy, this, &MainWindow::onBusy);
    connect(driverWorker, &DriverWorker::idle, this, &MainWindow::onIdle);
    connect(driverWorker, &DriverWorker::connected, this, &MainWindow::onConnected);
    connect(driverWorker, &DriverWorker::unitsRead, this, &MainWindow::onUnits);
    connect(driverWorker, &DriverWorker::acceptanceChanged, this, &MainWindow::onAcceptance);
    connect(driverWorker, &DriverWorker::deviceFault, this, &MainWindow::onFault);
    connect(driverWorker, &DriverWorker::stateGood, this, &MainWindow::onStateGood);
    connect(driverWorker, &DriverWorker::failed, this, &MainWindow::onFailed);
    connect(driverWorker, &DriverWorker::recordingChanged, this, &MainWindow::onRecording);
    connectPages();
    thread.setObjectName(QStringLiteral("driver"));
    thread.start();

    recordingFolder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (recordingFolder.isEmpty())
        recordingFolder = QDir::homePath();
    if (!connection.trace.isEmpty())
        recordBox->setChecked(true);

    scanPorts();
    updateEnabled();
}

void MainWindow::recordSwitched(bool on)
{
    QString path;
    if (on) {
        path = connection.trace.isEmpty() ? QDir(recordingFolder)
                                                .filePath(QStringLiteral("cpibcr-%1.trace")
                                                              .arg(QDateTime::currentDateTime().toString(
                                                                  QStringLiteral("yyyyMMdd-HHmmss"))))
                                          : connection.trace;
        recordLabel->setText(QStringLiteral("to %1").arg(path));
    }
    QMetaObject::invokeMethod(
        driverWorker, [worker = driverWorker, path] { worker->setRecording(path); }, Qt::QueuedConnection);
}

void MainWindow::onRecording(bool on, const QString& path, const QString& error)
{
    const QSignalBlocker blocker(recordBox);
    recordBox->setChecked(on);
    recordLabel->setText(on ? QStringLiteral("to %1").arg(path) : QString());
    if (!error.isEmpty())
        showMessage(QStringLiteral("line recording to %1: %2").arg(path, error), true);
}

MainWindow::~MainWindow()
{
    // The driver, its port and the simulator go on their own thread, before the log pane
    // that their last lines are written to.
    QMetaObject::invokeMethod(driverWorker, "shutdown", Qt::BlockingQueuedConnection);
    thread.quit();
    thread.wait();
}

void MainWindow::connectPages()
{
    DriverWorker* w = driverWorker;
    connect(w, &DriverWorker::denominationsRead, acceptPage, &AcceptPage::setDenominations);
    connect(w, &DriverWorker::coinsReceived, acceptPage, &AcceptPage::showCoins);
    connect(w, &DriverWorker::changeChecked, changePage, &ChangePage::showChecked);
    connect(w, &DriverWorker::changePaid, changePage, &ChangePage::showPaid);
    connect(w, &DriverWorker::loanDone, loadPickupPage, &LoadPickupPage::showLoan);
    connect(w, &DriverWorker::pickupDone, loadPickupPage, &LoadPickupPage::showPickup);
    connect(w, &DriverWorker::countersRead, countersPage, &CountersPage::showCounters);
    connect(w, &DriverWorker::maintenanceRead, countersPage, &CountersPage::showMaintenance);

    connect(acceptPage, &AcceptPage::startRequested, this, [this](bool fast, const QList<uint>& refused) {
        call(&DriverWorker::startAcceptance, fast, refused);
    });
    connect(acceptPage, &AcceptPage::stopRequested, this, [this] { call(&DriverWorker::stopAcceptance); });
    connect(changePage, &ChangePage::checkRequested, this,
            [this](int mode, qint64 amount) { call(&DriverWorker::checkChange, mode, amount); });
    connect(changePage, &ChangePage::payRequested, this,
            [this](int mode, qint64 amount) { call(&DriverWorker::payChange, mode, amount); });
    connect(loadPickupPage, &LoadPickupPage::loanRequested, this,
            [this](const QString& unit, int operation, qint64 amount) {
                call(&DriverWorker::loan, unit, operation, amount);
            });
    connect(loadPickupPage, &LoadPickupPage::pickupRequested, this,
            [this](const QString& unit, int operation, qint64 amount) {
                call(&DriverWorker::pickup, unit, operation, amount);
            });
    connect(countersPage, &CountersPage::countersRequested, this,
            [this] { call(&DriverWorker::readCounters); });
    connect(countersPage, &CountersPage::maintenanceRequested, this,
            [this] { call(&DriverWorker::readMaintenance); });
    connect(countersPage, &CountersPage::maintenanceDoneRequested, this,
            [this](const QString& unit) { call(&DriverWorker::maintenanceDone, unit); });

    connect(acceptPage, &AcceptPage::message, this, &MainWindow::showMessage);
    connect(changePage, &ChangePage::message, this, &MainWindow::showMessage);
    connect(loadPickupPage, &LoadPickupPage::message, this, &MainWindow::showMessage);
    connect(countersPage, &CountersPage::message, this, &MainWindow::showMessage);
    connect(loadPickupPage, &LoadPickupPage::choiceChanged, this, &MainWindow::updateEnabled);
    connect(countersPage, &CountersPage::choiceChanged, this, &MainWindow::updateEnabled);
}

template <typename Method, typename... Args> void MainWindow::call(Method method, Args... args)
{
    sending();
    QMetaObject::invokeMethod(
        driverWorker, [worker = driverWorker, method, args...] { (worker->*method)(args...); },
        Qt::QueuedConnection);
}

sim::Simulator* MainWindow::simulator() const
{
    return connectedNow ? driverWorker->simulator() : nullptr;
}

void MainWindow::setRecheckInterval(int msecs)
{
    QMetaObject::invokeMethod(
        driverWorker, [worker = driverWorker, msecs] { worker->setRecheckInterval(msecs); },
        Qt::QueuedConnection);
}

void MainWindow::start()
{
    connectDevice();
}

QWidget* MainWindow::buildConnectionRow()
{
    auto* row = new QWidget(this);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    portBox = named<QComboBox>("portBox", row);
    portBox->setEditable(true);
    portBox->setMinimumWidth(260);
    portBox->setToolTip(QStringLiteral("The recycler's serial port, or the built-in simulator"));
    rescanButton = named<QPushButton>("rescanButton", QStringLiteral("Rescan"), row);
    connectButton = named<QPushButton>("connectButton", QStringLiteral("Connect"), row);
    deviceLabel = new QLabel(QStringLiteral("not connected"), this);
    deviceLabel->setWordWrap(true);
    deviceLabel->setObjectName(QStringLiteral("deviceLabel"));
    supervisionBox = named<QCheckBox>("supervisionBox", QStringLiteral("Background state check"), row);
    supervisionBox->setChecked(true);
    recordBox = named<QCheckBox>("recordBox", QStringLiteral("Record the line"), row);
    recordBox->setToolTip(QStringLiteral("Write every byte sent to and received from the recycler to a trace "
                                         "file, for cpibcr trace and for replaying it in the lab"));
    recordLabel = named<QLabel>("recordLabel", row);
    recordLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    checkStateButton = named<QPushButton>("checkStateButton", QStringLiteral("Check state"), row);
    layout->addWidget(new QLabel(QStringLiteral("Port"), row));
    layout->addWidget(portBox);
    layout->addWidget(rescanButton);
    layout->addWidget(connectButton);
    layout->addStretch(1);
    layout->addWidget(recordBox);
    layout->addWidget(recordLabel);
    layout->addWidget(supervisionBox);
    layout->addWidget(checkStateButton);

    connect(rescanButton, &QPushButton::clicked, this, &MainWindow::scanPorts);
    connect(connectButton, &QPushButton::clicked, this, &MainWindow::connectDevice);
    connect(checkStateButton, &QPushButton::clicked, this, [this] { call(&DriverWorker::checkState); });
    connect(recordBox, &QCheckBox::toggled, this, &MainWindow::recordSwitched);
    connect(supervisionBox, &QCheckBox::toggled, this, [this](bool on) {
        // Before connecting, the choice is only remembered by the worker.
        QMetaObject::invokeMethod(
            driverWorker, [worker = driverWorker, on] { worker->setSupervision(on); }, Qt::QueuedConnection);
    });
    return row;
}

QWidget* MainWindow::buildUnits()
{
    auto* box = new QGroupBox(QStringLiteral("Cash units"), this);
    auto* layout = new QVBoxLayout(box);
    unitsTable = table(QStringLiteral("unitsTable"),
                       {QStringLiteral("Unit"), QStringLiteral("Denomination"), QStringLiteral("Fill"),
                        QStringLiteral("Count"), QStringLiteral("Capacity"), QStringLiteral("Sum"),
                        QStringLiteral("State")},
                       box);
    unitsTable->horizontalHeader()->setSectionResizeMode(2, QHeaderView::Stretch);
    unitsTable->horizontalHeader()->setStretchLastSection(false);
    refreshButton = named<QPushButton>("refreshButton", QStringLiteral("Refresh"), box);
    auto* bar = new QHBoxLayout;
    bar->addStretch();
    bar->addWidget(refreshButton);
    layout->addWidget(unitsTable);
    layout->addLayout(bar);
    connect(refreshButton, &QPushButton::clicked, this, [this] { call(&DriverWorker::refreshUnits); });
    return box;
}

void MainWindow::scanPorts()
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
    if (!connection.port.isEmpty() && portBox->findData(connection.port) < 0)
        portBox->addItem(connection.port, connection.port);
    const int index = portBox->findData(connection.port);
    portBox->setCurrentIndex(index < 0 ? 0 : index);
    if (!current.isEmpty() && portBox->findText(current) >= 0)
        portBox->setCurrentIndex(portBox->findText(current));
}

void MainWindow::connectDevice()
{
    if (connection.plugin.isEmpty()) {
        showMessage(pluginHint.isEmpty() ? QStringLiteral("cannot find the plug-in") : pluginHint, true);
        return;
    }
    const int index = portBox->findText(portBox->currentText());
    connection.port = index >= 0 ? portBox->itemData(index).toString() : portBox->currentText().trimmed();
    connectedNow = false;
    onUnits({});
    deviceLabel->setText(QStringLiteral("connecting..."));
    showMessage(QString(), false);
    const Connection target = connection;
    QMetaObject::invokeMethod(
        driverWorker,
        [worker = driverWorker, target] {
            worker->shutdown();
            worker->open(target);
        },
        Qt::QueuedConnection);
    sending();
}

void MainWindow::onBusy(const QString& what)
{
    busyNow = true;
    busyLabel->setText(what + QStringLiteral("..."));
    busyBar->show();
    busyLabel->show();
    updateEnabled();
}

void MainWindow::onIdle()
{
    busyNow = false;
    busyBar->hide();
    busyLabel->hide();
    updateEnabled();
}

void MainWindow::sending()
{
    busyNow = true;
    updateEnabled();
}

void MainWindow::onConnected(const QString& device, const QString& port, bool simulated)
{
    connectedNow = true;
    deviceLabel->setText(
        QStringLiteral("%1, %2%3")
            .arg(device, port, simulated ? QStringLiteral(" (built-in simulator)") : QString()));
    updateEnabled();
}

void MainWindow::onUnits(const QList<CashControlUnit>& list)
{
    unitsTable->setRowCount(0);
    for (const CashControlUnit& unit : list) {
        const int row = unitsTable->rowCount();
        unitsTable->insertRow(row);
        unitsTable->setItem(row, 0, cell(unit.name));
        const bool cashbox = cashunits::isCashbox(unit);
        unitsTable->setItem(row, 1, cell(cashbox ? QStringLiteral("-") : money(unit.denom), true));
        auto* bar = new QProgressBar(unitsTable);
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
        unitsTable->setCellWidget(row, 2, bar);
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

    loadPickupPage->setUnits(list);
}

void MainWindow::onAcceptance(bool running)
{
    accepting = running;
    acceptPage->showAcceptance(running);
    updateEnabled();
}

void MainWindow::onFault(const QString& message)
{
    banner->setText(message);
    banner->show();
}

void MainWindow::onStateGood()
{
    banner->hide();
    banner->clear();
    showMessage(QStringLiteral("the device state is good again"), false);
}

void MainWindow::onFailed(const QString& what, const QString& message)
{
    showMessage(QStringLiteral("%1: %2").arg(what, message), true);
    if (!connectedNow)
        deviceLabel->setText(QStringLiteral("not connected"));
}

void MainWindow::showMessage(const QString& text, bool failure)
{
    messageLabel->setText(text);
    messageLabel->setStyleSheet(failure ? QStringLiteral("QLabel { color: #b01e23; font-weight: bold; }")
                                        : QString());
    if (failure)
        statusBar()->showMessage(text);
    else
        statusBar()->clearMessage();
}

void MainWindow::updateEnabled()
{
    const bool ready = connectedNow && !busyNow;
    // Free for a request that may move money: nothing runs and no coins are being accepted.
    const bool deviceFree = ready && !accepting;
    connectButton->setEnabled(!busyNow && !accepting);
    rescanButton->setEnabled(!busyNow);
    portBox->setEnabled(!busyNow && !accepting);
    checkStateButton->setEnabled(deviceFree);
    refreshButton->setEnabled(deviceFree);
    acceptPage->setControlsEnabled(ready, accepting);
    changePage->setControlsEnabled(deviceFree);
    loadPickupPage->setControlsEnabled(deviceFree);
    countersPage->setControlsEnabled(deviceFree);
}

} // namespace panel
