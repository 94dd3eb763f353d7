#include "mainwindow.h"

#include "logpane.h"
#include "parts.h"
#include "unitops.h"

#include "cashcontrol/ecashcontrol.h"
#include "cashcontrol/units.h"
#include "hostkit/amount.h"
#include "hostkit/keys.h"
#include "hostkit/serialports.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSplitter>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableWidget>
#include <QTime>
#include <QVBoxLayout>

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
    tabs->addTab(buildAcceptance(), QStringLiteral("Acceptance"));
    tabs->addTab(buildChange(), QStringLiteral("Change"));
    tabs->addTab(buildUnitOperations(), QStringLiteral("Load and pick up"));
    tabs->addTab(buildCounters(), QStringLiteral("Counters and maintenance"));

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
    connect(driverWorker, &DriverWorker::denominationsRead, this, &MainWindow::onDenominations);
    connect(driverWorker, &DriverWorker::acceptanceChanged, this, &MainWindow::onAcceptance);
    connect(driverWorker, &DriverWorker::coinsReceived, this, &MainWindow::onCoins);
    connect(driverWorker, &DriverWorker::changeChecked, this, &MainWindow::onChangeChecked);
    connect(driverWorker, &DriverWorker::changePaid, this, &MainWindow::onChangePaid);
    connect(driverWorker, &DriverWorker::loanDone, this, &MainWindow::onLoanDone);
    connect(driverWorker, &DriverWorker::pickupDone, this, &MainWindow::onPickupDone);
    connect(driverWorker, &DriverWorker::countersRead, this, &MainWindow::onCounters);
    connect(driverWorker, &DriverWorker::maintenanceRead, this, &MainWindow::onMaintenance);
    connect(driverWorker, &DriverWorker::deviceFault, this, &MainWindow::onFault);
    connect(driverWorker, &DriverWorker::stateGood, this, &MainWindow::onStateGood);
    connect(driverWorker, &DriverWorker::failed, this, &MainWindow::onFailed);
    connect(driverWorker, &DriverWorker::recordingChanged, this, &MainWindow::onRecording);
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

QWidget* MainWindow::buildAcceptance()
{
    auto* page = new QWidget(this);
    auto* layout = new QGridLayout(page);
    acceptStartButton = named<QPushButton>("acceptStartButton", QStringLiteral("Start accepting"), page);
    acceptStopButton = named<QPushButton>("acceptStopButton", QStringLiteral("Stop"), page);
    fastBox = named<QCheckBox>("fastBox", QStringLiteral("Fast mode"), page);
    excludeList = named<QListWidget>("excludeList", page);
    excludeList->setToolTip(QStringLiteral("Tick the denominations to refuse this time"));
    coinsList = named<QListWidget>("coinsList", page);
    acceptTotalLabel = named<QLabel>("acceptTotalLabel", QStringLiteral("total 0.00"), page);
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
    layout->addWidget(new QLabel(QStringLiteral("Refuse"), page), 0, 1);
    layout->addWidget(excludeList, 1, 1);
    layout->addWidget(new QLabel(QStringLiteral("Coins as they arrive"), page), 0, 2);
    layout->addWidget(coinsList, 1, 2);
    layout->addWidget(acceptTotalLabel, 2, 2);
    layout->setColumnStretch(1, 1);
    layout->setColumnStretch(2, 2);

    connect(acceptStartButton, &QPushButton::clicked, this, &MainWindow::startAcceptance);
    connect(acceptStopButton, &QPushButton::clicked, this, &MainWindow::stopAcceptance);
    return page;
}

QWidget* MainWindow::buildChange()
{
    auto* page = new QWidget(this);
    auto* layout = new QGridLayout(page);
    changeAmount = named<QLineEdit>("changeAmount", page);
    changeAmount->setPlaceholderText(QStringLiteral("15.50"));
    changeMode = named<QComboBox>("changeMode", page);
    changeMode->addItem(QStringLiteral("optimal (%1): fuller hoppers first").arg(ECashControl::modeName(0)),
                        int(ECashControl::Optimal));
    changeMode->addItem(QStringLiteral("minimum (%1): fewest coins").arg(ECashControl::modeName(1)),
                        int(ECashControl::Minimum));
    changeCheckButton = named<QPushButton>("changeCheckButton", QStringLiteral("Check"), page);
    changePayButton = named<QPushButton>("changePayButton", QStringLiteral("Pay"), page);
    changeResultLabel = named<QLabel>("changeResultLabel", page);
    changeResultLabel->setWordWrap(true);
    changeTable =
        table(QStringLiteral("changeTable"),
              {QStringLiteral("Denomination"), QStringLiteral("Count"), QStringLiteral("Sum")}, page);

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

    connect(changeCheckButton, &QPushButton::clicked, this, &MainWindow::checkChange);
    connect(changePayButton, &QPushButton::clicked, this, &MainWindow::payChange);
    connect(changeAmount, &QLineEdit::returnPressed, this, &MainWindow::checkChange);
    return page;
}

QWidget* MainWindow::buildUnitOperations()
{
    auto* page = new QWidget(this);
    auto* layout = new QGridLayout(page);
    opUnit = named<QComboBox>("opUnit", page);
    loadOp = named<QComboBox>("loadOp", page);
    loadAmount = named<QLineEdit>("loadAmount", page);
    loadAmount->setPlaceholderText(QStringLiteral("amount"));
    loadButton = named<QPushButton>("loadButton", QStringLiteral("Load"), page);
    pickupOp = named<QComboBox>("pickupOp", page);
    pickupAmount = named<QLineEdit>("pickupAmount", page);
    pickupAmount->setPlaceholderText(QStringLiteral("amount"));
    pickupButton = named<QPushButton>("pickupButton", QStringLiteral("Pick up"), page);
    opResultLabel = named<QLabel>("opResultLabel", page);
    opResultLabel->setWordWrap(true);
    opTable = table(QStringLiteral("opTable"),
                    {QStringLiteral("Denomination"), QStringLiteral("Count"), QStringLiteral("Sum")}, page);

    layout->addWidget(new QLabel(QStringLiteral("Unit"), page), 0, 0);
    layout->addWidget(opUnit, 0, 1, 1, 2);
    layout->addWidget(new QLabel(QStringLiteral("Load"), page), 1, 0);
    layout->addWidget(loadOp, 1, 1);
    layout->addWidget(loadAmount, 1, 2);
    layout->addWidget(loadButton, 1, 3);
    layout->addWidget(new QLabel(QStringLiteral("Pick up"), page), 2, 0);
    layout->addWidget(pickupOp, 2, 1);
    layout->addWidget(pickupAmount, 2, 2);
    layout->addWidget(pickupButton, 2, 3);
    layout->addWidget(opResultLabel, 3, 0, 1, 4);
    layout->addWidget(opTable, 0, 4, 5, 1);
    layout->setRowStretch(4, 1);
    layout->setColumnStretch(1, 1);
    layout->setColumnStretch(4, 1);

    connect(opUnit, &QComboBox::currentTextChanged, this, &MainWindow::unitChosen);
    connect(pickupOp, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &MainWindow::pickupChosen);
    connect(loadButton, &QPushButton::clicked, this, &MainWindow::loadUnit);
    connect(pickupButton, &QPushButton::clicked, this, &MainWindow::pickupUnit);
    return page;
}

QWidget* MainWindow::buildCounters()
{
    auto* page = new QWidget(this);
    auto* layout = new QGridLayout(page);
    countersButton = named<QPushButton>("countersButton", QStringLiteral("Read counters"), page);
    const QStringList columns{QStringLiteral("Denomination"), QStringLiteral("Count"), QStringLiteral("Sum")};
    acceptedTable = table(QStringLiteral("acceptedTable"), columns, page);
    dispensedTable = table(QStringLiteral("dispensedTable"), columns, page);
    maintenanceButton = named<QPushButton>("maintenanceButton", QStringLiteral("Read maintenance"), page);
    maintenanceDoneButton = named<QPushButton>(
        "maintenanceDoneButton", QStringLiteral("Maintenance done for the selected hopper"), page);
    maintenanceTable =
        table(QStringLiteral("maintenanceTable"),
              {QStringLiteral("Unit"), QStringLiteral("Status"), QStringLiteral("Wear"),
               QStringLiteral("Cycles"), QStringLiteral("Interval"), QStringLiteral("Description")},
              page);

    layout->addWidget(countersButton, 0, 0);
    layout->addWidget(new QLabel(QStringLiteral("Accepted (%1)").arg(ECashControl::counterName(0)), page), 1,
                      0);
    layout->addWidget(acceptedTable, 2, 0);
    layout->addWidget(new QLabel(QStringLiteral("Dispensed (%1)").arg(ECashControl::counterName(1)), page), 1,
                      1);
    layout->addWidget(dispensedTable, 2, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(maintenanceButton);
    buttons->addWidget(maintenanceDoneButton);
    buttons->addStretch();
    layout->addLayout(buttons, 0, 2);
    layout->addWidget(new QLabel(QStringLiteral("Hopper wear: cycles against the service interval"), page), 1,
                      2);
    layout->addWidget(maintenanceTable, 2, 2);
    layout->setColumnStretch(2, 2);

    connect(countersButton, &QPushButton::clicked, this, [this] { call(&DriverWorker::readCounters); });
    connect(maintenanceButton, &QPushButton::clicked, this, [this] { call(&DriverWorker::readMaintenance); });
    connect(maintenanceDoneButton, &QPushButton::clicked, this, &MainWindow::markMaintenanceDone);
    connect(maintenanceTable, &QTableWidget::itemSelectionChanged, this, &MainWindow::updateEnabled);
    return page;
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
    units = list;
    unitsTable->setRowCount(0);
    for (const CashControlUnit& unit : units) {
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

void MainWindow::onDenominations(const QList<uint>& list)
{
    QList<uint> refused;
    for (int i = 0; i < excludeList->count(); ++i)
        if (excludeList->item(i)->checkState() == Qt::Checked)
            refused.append(excludeList->item(i)->data(Qt::UserRole).toUInt());
    denominations = list;
    excludeList->clear();
    for (const uint denomination : denominations) {
        auto* item = new QListWidgetItem(money(denomination), excludeList);
        item->setData(Qt::UserRole, denomination);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        item->setCheckState(refused.contains(denomination) ? Qt::Checked : Qt::Unchecked);
    }
}

void MainWindow::startAcceptance()
{
    QList<uint> refused;
    for (int i = 0; i < excludeList->count(); ++i)
        if (excludeList->item(i)->checkState() == Qt::Checked)
            refused.append(excludeList->item(i)->data(Qt::UserRole).toUInt());
    coinsList->clear();
    acceptedTotal = 0;
    acceptTotalLabel->setText(QStringLiteral("total 0.00"));
    call(&DriverWorker::startAcceptance, fastBox->isChecked(), refused);
}

void MainWindow::stopAcceptance()
{
    call(&DriverWorker::stopAcceptance);
}

void MainWindow::onAcceptance(bool running)
{
    accepting = running;
    if (!running)
        acceptTotalLabel->setText(QStringLiteral("accepted %1").arg(money(acceptedTotal)));
    else
        showMessage(QStringLiteral("accepting coins"), false);
    updateEnabled();
}

void MainWindow::onCoins(const SumDetailed& coins)
{
    acceptedTotal += coins.sum();
    coinsList->addItem(QStringLiteral("%1  received %2  (%3)")
                           .arg(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), money(coins.sum()),
                                hostkit::sumBreakdown(coins)));
    coinsList->scrollToBottom();
    acceptTotalLabel->setText(QStringLiteral("total %1").arg(money(acceptedTotal)));
}

bool MainWindow::parseChangeAmount(long long* minor)
{
    QString error;
    if (!parseMoney(changeAmount->text(), false, minor, &error)) {
        changeResultLabel->setText(error);
        showMessage(error, true);
        return false;
    }
    return true;
}

void MainWindow::checkChange()
{
    long long amount = 0;
    if (!parseChangeAmount(&amount))
        return;
    changeResultLabel->clear();
    call(&DriverWorker::checkChange, changeMode->currentData().toInt(), qint64(amount));
}

void MainWindow::payChange()
{
    long long amount = 0;
    if (!parseChangeAmount(&amount))
        return;
    if (amount == 0) {
        showMessage(QStringLiteral("the amount must be above 0"), true);
        return;
    }
    changeResultLabel->clear();
    changeTable->setRowCount(0);
    call(&DriverWorker::payChange, changeMode->currentData().toInt(), qint64(amount));
}

void MainWindow::onChangeChecked(qint64 amount, int mode, bool possible)
{
    const QString text = QStringLiteral("%1 %2 be paid as change (%3)")
                             .arg(money(amount), possible ? QStringLiteral("can") : QStringLiteral("cannot"),
                                  hostkit::modeKey(mode));
    changeResultLabel->setText(text);
    showMessage(text, false);
}

void MainWindow::onChangePaid(qint64 amount, int mode, const SumDetailed& paid)
{
    const QString text =
        QStringLiteral("paid %1 of %2 (%3): %4")
            .arg(money(paid.sum()), money(amount), hostkit::modeKey(mode), hostkit::sumBreakdown(paid));
    changeResultLabel->setText(text);
    fillBreakdown(changeTable, paid);
    showMessage(text, false);
}

const CashControlUnit* MainWindow::chosenUnit() const
{
    for (const CashControlUnit& unit : units)
        if (unit.name == opUnit->currentText())
            return &unit;
    return nullptr;
}

void MainWindow::unitChosen()
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
    pickupChosen();
}

void MainWindow::pickupChosen()
{
    updateEnabled();
}

bool MainWindow::chosenRequest(const QComboBox* opBox, const QList<UnitOperation>& offered,
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
        showMessage(error, true);
        return false;
    }
    *amount = qint64(checked);
    opResultLabel->clear();
    return true;
}

void MainWindow::loadUnit()
{
    const CashControlUnit* unit = chosenUnit();
    int operation = 0;
    qint64 amount = 0;
    if (!unit || !chosenRequest(loadOp, loadOperations(*unit), loadAmount, &operation, &amount))
        return;
    call(&DriverWorker::loan, unit->name, operation, amount);
}

void MainWindow::pickupUnit()
{
    const CashControlUnit* unit = chosenUnit();
    int operation = 0;
    qint64 amount = 0;
    if (!unit || !chosenRequest(pickupOp, pickupOperations(*unit), pickupAmount, &operation, &amount))
        return;
    opTable->setRowCount(0);
    call(&DriverWorker::pickup, unit->name, operation, amount);
}

void MainWindow::onLoanDone(const QString& unit, int operation, qint64 amount)
{
    // Only a manual load changes a count; the driver accepts the other loads and moves nothing,
    // so the window must not show them as money put in.
    const QString text = operation == ECashControl::ManualLoad
                             ? QStringLiteral("loan of %1 into %2 (%3)")
                                   .arg(money(amount), unit, ECashControl::operationName(operation))
                             : QStringLiteral("%1 into %2 accepted: the driver moved no coins (%3 asked)")
                                   .arg(ECashControl::operationName(operation), unit, money(amount));
    opResultLabel->setText(text);
    showMessage(text, false);
}

void MainWindow::onPickupDone(const QString& unit, int operation, const SumDetailed& taken)
{
    const QString text = QStringLiteral("pickup of %1 from %2 (%3): %4")
                             .arg(money(taken.sum()), unit, ECashControl::operationName(operation),
                                  hostkit::sumBreakdown(taken));
    opResultLabel->setText(text);
    fillBreakdown(opTable, taken);
    showMessage(text, false);
}

void MainWindow::onCounters(const SumDetailed& accepted, const SumDetailed& dispensed)
{
    fillBreakdown(acceptedTable, accepted);
    fillBreakdown(dispensedTable, dispensed);
    showMessage(QStringLiteral("counters: accepted %1, dispensed %2")
                    .arg(money(accepted.sum()), money(dispensed.sum())),
                false);
}

void MainWindow::onMaintenance(const QList<hw::CcUnitMaintenanceInfo>& records)
{
    maintenanceTable->setRowCount(0);
    for (const hw::CcUnitMaintenanceInfo& record : records) {
        const int row = maintenanceTable->rowCount();
        maintenanceTable->insertRow(row);
        maintenanceTable->setItem(row, 0, cell(record.unitName));
        maintenanceTable->setItem(row, 1,
                                  cell(record.status ? QStringLiteral("ok") : QStringLiteral("service due")));
        auto* wear = new QProgressBar(maintenanceTable);
        wear->setObjectName(QStringLiteral("wear_%1").arg(record.unitName));
        wear->setRange(0, std::max(1, record.interval));
        wear->setValue(std::min(record.cycles, std::max(1, record.interval)));
        wear->setFormat(QStringLiteral("%1 of %2").arg(record.cycles).arg(record.interval));
        wear->setAlignment(Qt::AlignCenter);
        maintenanceTable->setCellWidget(row, 2, wear);
        maintenanceTable->setItem(row, 3, cell(QString::number(record.cycles), true));
        maintenanceTable->setItem(row, 4, cell(QString::number(record.interval), true));
        maintenanceTable->setItem(
            row, 5, cell(record.description.isEmpty() ? QStringLiteral("-") : record.description));
    }
    updateEnabled();
}

void MainWindow::markMaintenanceDone()
{
    const int row = maintenanceTable->currentRow();
    if (row < 0 || !maintenanceTable->item(row, 0))
        return;
    call(&DriverWorker::maintenanceDone, maintenanceTable->item(row, 0)->text());
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
    const bool money = ready && !accepting;
    connectButton->setEnabled(!busyNow && !accepting);
    rescanButton->setEnabled(!busyNow);
    portBox->setEnabled(!busyNow && !accepting);
    checkStateButton->setEnabled(money);
    refreshButton->setEnabled(money);
    acceptStartButton->setEnabled(money);
    acceptStopButton->setEnabled(ready && accepting);
    fastBox->setEnabled(!accepting);
    excludeList->setEnabled(!accepting);
    changeCheckButton->setEnabled(money);
    changePayButton->setEnabled(money);

    const CashControlUnit* unit = chosenUnit();
    opUnit->setEnabled(money);
    const bool canLoad = unit && loadOp->count() > 0;
    loadOp->setEnabled(money && canLoad);
    loadAmount->setEnabled(money && canLoad);
    loadButton->setEnabled(money && canLoad);
    bool pickupTakesAmount = false;
    if (unit && pickupOp->currentIndex() >= 0)
        for (const UnitOperation& op : pickupOperations(*unit))
            if (op.operation == pickupOp->currentData().toInt())
                pickupTakesAmount = op.takesAmount;
    const bool canPickup = unit && pickupOp->count() > 0;
    pickupOp->setEnabled(money && canPickup);
    pickupAmount->setEnabled(money && canPickup && pickupTakesAmount);
    pickupButton->setEnabled(money && canPickup);

    countersButton->setEnabled(money);
    maintenanceButton->setEnabled(money);
    maintenanceDoneButton->setEnabled(money && maintenanceTable->currentRow() >= 0);
}

} // namespace panel
