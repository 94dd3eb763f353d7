#pragma once

#include "driverworker.h"

#include <QList>
#include <QMainWindow>
#include <QString>
#include <QThread>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QTableWidget;
class QWidget;

namespace panel {

struct UnitOperation;

class LogPane;

// The service panel: the recycler's units, acceptance, change, unit operations, counters,
// maintenance, supervision and the driver's log. The driver lives on a worker thread; the
// window only sends it queued calls and shows what comes back, so it never waits on the device.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    // pluginHint: what to say when no plug-in was found (connection.plugin is then empty).
    explicit MainWindow(const Connection& connection, const QString& pluginHint = QString(),
                        QWidget* parent = nullptr);
    ~MainWindow() override;

    // Connects with the connection given to the constructor.
    void start();
    // The built-in simulator once connected to it, otherwise null.
    sim::Simulator* simulator() const;
    void setRecheckInterval(int msecs);
    // Where "Record the line" puts its files when no file was given with --trace: a new file
    // cpibcr-YYYYMMDD-HHMMSS.trace each time it is switched on. The user's documents by default.
    void setRecordingFolder(const QString& folder) { recordingFolder = folder; }
    bool isConnected() const { return connectedNow; }
    bool isBusy() const { return busyNow; }

private slots:
    void onBusy(const QString& what);
    void onIdle();
    void onConnected(const QString& device, const QString& port, bool simulated);
    void onUnits(const QList<CashControlUnit>& units);
    void onDenominations(const QList<uint>& denominations);
    void onAcceptance(bool running);
    void onCoins(const SumDetailed& coins);
    void onChangeChecked(qint64 amount, int mode, bool possible);
    void onChangePaid(qint64 amount, int mode, const SumDetailed& paid);
    void onLoanDone(const QString& unit, int operation, qint64 amount);
    void onPickupDone(const QString& unit, int operation, const SumDetailed& taken);
    void onCounters(const SumDetailed& accepted, const SumDetailed& dispensed);
    void onMaintenance(const QList<hw::CcUnitMaintenanceInfo>& records);
    void onFault(const QString& message);
    void onStateGood();
    void onFailed(const QString& what, const QString& message);
    void onRecording(bool on, const QString& path, const QString& error);
    void recordSwitched(bool on);

    void connectDevice();
    void scanPorts();
    void startAcceptance();
    void stopAcceptance();
    void checkChange();
    void payChange();
    void unitChosen();
    void pickupChosen();
    void loadUnit();
    void pickupUnit();
    void markMaintenanceDone();

private:
    QWidget* buildConnectionRow();
    QWidget* buildUnits();
    QWidget* buildAcceptance();
    QWidget* buildChange();
    QWidget* buildUnitOperations();
    QWidget* buildCounters();
    void showMessage(const QString& text, bool failure);
    void updateEnabled();
    // Disables the controls at once, before the worker has even seen the request.
    void sending();
    const CashControlUnit* chosenUnit() const;
    // The chosen unit's operation and amount from one of the two operation rows; false after
    // showing why the amount is refused, or when nothing is chosen.
    bool chosenRequest(const QComboBox* opBox, const QList<UnitOperation>& offered,
                       const QLineEdit* amountEdit, int* operation, qint64* amount);
    bool parseChangeAmount(long long* minor);
    template <typename Method, typename... Args> void call(Method method, Args... args);

    Connection connection;
    QString pluginHint;
    QThread thread;
    DriverWorker* driverWorker;
    QList<CashControlUnit> units;
    QList<uint> denominations;
    bool connectedNow = false;
    bool busyNow = false;
    bool accepting = false;
    long long acceptedTotal = 0;

    QComboBox* portBox;
    QPushButton* rescanButton;
    QPushButton* connectButton;
    QLabel* deviceLabel;
    QCheckBox* supervisionBox;
    QCheckBox* recordBox;
    QLabel* recordLabel;
    QString recordingFolder;
    QPushButton* checkStateButton;
    QLabel* banner;
    QProgressBar* busyBar;
    QLabel* busyLabel;
    QLabel* messageLabel;

    QTableWidget* unitsTable;
    QPushButton* refreshButton;

    QPushButton* acceptStartButton;
    QPushButton* acceptStopButton;
    QCheckBox* fastBox;
    QListWidget* excludeList;
    QListWidget* coinsList;
    QLabel* acceptTotalLabel;

    QLineEdit* changeAmount;
    QComboBox* changeMode;
    QPushButton* changeCheckButton;
    QPushButton* changePayButton;
    QLabel* changeResultLabel;
    QTableWidget* changeTable;

    QComboBox* opUnit;
    QComboBox* loadOp;
    QLineEdit* loadAmount;
    QPushButton* loadButton;
    QComboBox* pickupOp;
    QLineEdit* pickupAmount;
    QPushButton* pickupButton;
    QLabel* opResultLabel;
    QTableWidget* opTable;

    QPushButton* countersButton;
    QTableWidget* acceptedTable;
    QTableWidget* dispensedTable;
    QPushButton* maintenanceButton;
    QPushButton* maintenanceDoneButton;
    QTableWidget* maintenanceTable;

    LogPane* logPane;
};

} // namespace panel
