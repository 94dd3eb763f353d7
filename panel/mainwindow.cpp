// The service panel's window: its parts composed and wired to the driver worker.
#include "mainwindow.h"

#include "acceptpage.h"
#include "cashunitsbox.h"
#include "changepage.h"
#include "connectionrow.h"
#include "counterspage.h"
#include "loadpickuppage.h"
#include "logpane.h"
#include "statusarea.h"

#include <QDir>
#include <QSplitter>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTabWidget>
#include <QVBoxLayout>

namespace panel {

MainWindow::MainWindow(const Connection& conn, const QString& hint, QWidget* parent)
    : QMainWindow(parent), connection(conn), pluginHint(hint), driverWorker(new DriverWorker)
{
    registerMetaTypes();
    setObjectName(QStringLiteral("panelWindow"));
    setWindowTitle(QStringLiteral("cpibcr-panel: CPI BCR coin recycler"));

    // The log pane attaches its appender before the driver exists, so no line is missed.
    logPane = new LogPane(this);
    setCentralWidget(buildParts());
    resize(1200, 940);

    driverWorker->moveToThread(&thread);
    connect(&thread, &QThread::finished, driverWorker, &QObject::deleteLater);
    connectWorker();
    connectParts();
    thread.setObjectName(QStringLiteral("driver"));
    thread.start();

    const QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    connectionRow->setRecordingFolder(folder.isEmpty() ? QDir::homePath() : folder);
    connectionRow->recordInto(connection.trace);

    scanPorts();
    updateEnabled();
}

MainWindow::~MainWindow()
{
    // The driver, its port and the simulator go on their own thread, before the log pane
    // that their last lines are written to.
    QMetaObject::invokeMethod(driverWorker, "shutdown", Qt::BlockingQueuedConnection);
    thread.quit();
    thread.wait();
}

QWidget* MainWindow::buildParts()
{
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    connectionRow = new ConnectionRow(central);
    layout->addWidget(connectionRow);
    statusArea = new StatusArea(central);
    layout->addWidget(statusArea);

    auto* tabs = new QTabWidget(central);
    tabs->setObjectName(QStringLiteral("tabs"));
    tabs->addTab(acceptPage = new AcceptPage(central), QStringLiteral("Acceptance"));
    tabs->addTab(changePage = new ChangePage(central), QStringLiteral("Change"));
    tabs->addTab(loadPickupPage = new LoadPickupPage(central), QStringLiteral("Load and pick up"));
    tabs->addTab(countersPage = new CountersPage(central), QStringLiteral("Counters and maintenance"));

    auto* splitter = new QSplitter(Qt::Vertical, central);
    splitter->addWidget(unitsBox = new CashUnitsBox(central));
    splitter->addWidget(tabs);
    splitter->addWidget(logPane);
    splitter->setSizes({290, 330, 200});
    layout->addWidget(splitter, 1);
    return central;
}

void MainWindow::connectWorker()
{
    DriverWorker* w = driverWorker;
    connect(w, &DriverWorker::busy, this, &MainWindow::onBusy);
    connect(w, &DriverWorker::idle, this, &MainWindow::onIdle);
    connect(w, &DriverWorker::connected, this, &MainWindow::onConnected);
    connect(w, &DriverWorker::unitsRead, this, &MainWindow::onUnits);
    connect(w, &DriverWorker::denominationsRead, acceptPage, &AcceptPage::setDenominations);
    connect(w, &DriverWorker::acceptanceChanged, this, &MainWindow::onAcceptance);
    connect(w, &DriverWorker::coinsReceived, acceptPage, &AcceptPage::showCoins);
    connect(w, &DriverWorker::changeChecked, changePage, &ChangePage::showChecked);
    connect(w, &DriverWorker::changePaid, changePage, &ChangePage::showPaid);
    connect(w, &DriverWorker::loanDone, loadPickupPage, &LoadPickupPage::showLoan);
    connect(w, &DriverWorker::pickupDone, loadPickupPage, &LoadPickupPage::showPickup);
    connect(w, &DriverWorker::countersRead, countersPage, &CountersPage::showCounters);
    connect(w, &DriverWorker::maintenanceRead, countersPage, &CountersPage::showMaintenance);
    connect(w, &DriverWorker::deviceFault, statusArea, &StatusArea::showFault);
    connect(w, &DriverWorker::stateGood, this, &MainWindow::onStateGood);
    connect(w, &DriverWorker::failed, this, &MainWindow::onFailed);
    connect(w, &DriverWorker::recordingChanged, this, &MainWindow::onRecording);
}

void MainWindow::connectParts()
{
    connect(connectionRow, &ConnectionRow::rescanRequested, this, &MainWindow::scanPorts);
    connect(connectionRow, &ConnectionRow::connectRequested, this, &MainWindow::connectDevice);
    connect(connectionRow, &ConnectionRow::checkStateRequested, this,
            [this] { call(&DriverWorker::checkState); });
    // Before connecting, the choice is only remembered by the worker.
    connect(connectionRow, &ConnectionRow::supervisionSwitched, this,
            [this](bool on) { sendSetting(&DriverWorker::setSupervision, on); });
    connect(connectionRow, &ConnectionRow::recordingRequested, this,
            [this](const QString& path) { sendSetting(&DriverWorker::setRecording, path); });
    connect(unitsBox, &CashUnitsBox::refreshRequested, this, [this] { call(&DriverWorker::refreshUnits); });
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

template <typename Method, typename Arg> void MainWindow::sendSetting(Method method, Arg arg)
{
    QMetaObject::invokeMethod(
        driverWorker, [worker = driverWorker, method, arg] { (worker->*method)(arg); }, Qt::QueuedConnection);
}

sim::Simulator* MainWindow::simulator() const
{
    return connectedNow ? driverWorker->simulator() : nullptr;
}

void MainWindow::setRecheckInterval(int msecs)
{
    sendSetting(&DriverWorker::setRecheckInterval, msecs);
}

void MainWindow::setRecordingFolder(const QString& folder)
{
    connectionRow->setRecordingFolder(folder);
}

void MainWindow::start()
{
    connectDevice();
}

void MainWindow::scanPorts()
{
    connectionRow->listPorts(connection.port);
}

void MainWindow::connectDevice()
{
    if (connection.plugin.isEmpty()) {
        showMessage(pluginHint.isEmpty() ? QStringLiteral("cannot find the plug-in") : pluginHint, true);
        return;
    }
    connection.port = connectionRow->chosenPort();
    connectedNow = false;
    onUnits({});
    statusArea->showDevice(QStringLiteral("connecting..."));
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
    statusArea->showBusy(what);
    updateEnabled();
}

void MainWindow::onIdle()
{
    busyNow = false;
    statusArea->showIdle();
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
    statusArea->showDevice(
        QStringLiteral("%1, %2%3")
            .arg(device, port, simulated ? QStringLiteral(" (built-in simulator)") : QString()));
    updateEnabled();
}

void MainWindow::onUnits(const QList<CashControlUnit>& units)
{
    unitsBox->showUnits(units);
    loadPickupPage->setUnits(units);
}

void MainWindow::onAcceptance(bool running)
{
    accepting = running;
    acceptPage->showAcceptance(running);
    updateEnabled();
}

void MainWindow::onStateGood()
{
    statusArea->clearFault();
    showMessage(QStringLiteral("the device state is good again"), false);
}

void MainWindow::onFailed(const QString& what, const QString& message)
{
    showMessage(QStringLiteral("%1: %2").arg(what, message), true);
    if (!connectedNow)
        statusArea->showDevice(QStringLiteral("not connected"));
}

void MainWindow::onRecording(bool on, const QString& path, const QString& error)
{
    connectionRow->showRecording(on, path);
    if (!error.isEmpty())
        showMessage(QStringLiteral("line recording to %1: %2").arg(path, error), true);
}

void MainWindow::showMessage(const QString& text, bool failure)
{
    statusArea->showMessage(text, failure);
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
    connectionRow->setControlsEnabled(busyNow, accepting, deviceFree);
    unitsBox->setControlsEnabled(deviceFree);
    acceptPage->setControlsEnabled(ready, accepting);
    changePage->setControlsEnabled(deviceFree);
    loadPickupPage->setControlsEnabled(deviceFree);
    countersPage->setControlsEnabled(deviceFree);
}

} // namespace panel
