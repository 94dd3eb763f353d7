// The service panel's window: its parts composed and wired to the driver worker.
#pragma once

#include "driverworker.h"

#include <QList>
#include <QMainWindow>
#include <QString>
#include <QThread>

namespace panel {

class AcceptPage;
class CashUnitsBox;
class ChangePage;
class ConnectionRow;
class CountersPage;
class LoadPickupPage;
class LogPane;
class StatusArea;

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
    void setRecordingFolder(const QString& folder);
    bool isConnected() const { return connectedNow; }
    bool isBusy() const { return busyNow; }

private slots:
    void onBusy(const QString& what);
    void onIdle();
    void onConnected(const QString& device, const QString& port, bool simulated);
    void onUnits(const QList<CashControlUnit>& units);
    void onAcceptance(bool running);
    void onStateGood();
    void onFailed(const QString& what, const QString& message);
    void onRecording(bool on, const QString& path, const QString& error);

    void connectDevice();
    void scanPorts();
    void showMessage(const QString& text, bool failure);
    void updateEnabled();

private:
    QWidget* buildParts();
    void connectWorker();
    void connectParts();
    // Disables the controls at once, before the worker has even seen the request.
    void sending();
    template <typename Method, typename... Args> void call(Method method, Args... args);
    // A worker setting: sent without marking the window busy.
    template <typename Method, typename Arg> void sendSetting(Method method, Arg arg);

    Connection connection;
    QString pluginHint;
    QThread thread;
    DriverWorker* driverWorker;
    bool connectedNow = false;
    bool busyNow = false;
    bool accepting = false;

    ConnectionRow* connectionRow;
    StatusArea* statusArea;
    CashUnitsBox* unitsBox;
    AcceptPage* acceptPage;
    ChangePage* changePage;
    LoadPickupPage* loadPickupPage;
    CountersPage* countersPage;
    LogPane* logPane;
};

} // namespace panel
