#include "panel/driverworker.h"
#include "panel/logpane.h"
#include "panel/mainwindow.h"
#include "panel/unitops.h"

#include "hostkit/serialports.h"
#include "sim/config.h"
#include "sim/device.h"
#include "sim/simulator.h"
#include "trace/traceformat.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <memory>

namespace {

// Generous: the machine is shared; a device reset alone takes 5 s.
const int connectMs = 30000;
const int operationMs = 30000;
const int faultMs = 60000;

int coinPosition(unsigned int value)
{
    const sim::Config config = sim::Config::defaults();
    for (auto it = config.coinIds.cbegin(); it != config.coinIds.cend(); ++it)
        if (sim::coinValue(it.value()) == value)
            return it.key();
    return 0;
}

QStringList comboTexts(const QComboBox* box)
{
    QStringList texts;
    for (int i = 0; i < box->count(); ++i)
        texts.append(box->itemText(i));
    return texts;
}

} // namespace

class TestPanel : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void workerEndsEachRequestWithOneIdleAfterItsResults();
    void showsTheUnits();
    void acceptsCoinsWithRunningTotal();
    void excludedDenominationIsRefused();
    void paysChangeAndHopperBarsDrop();
    void checksChange();
    void refusalShowsTheDriversMessage();
    void malformedAmountIsNeverSent();
    void partCoinRequestsAsTheDriver();
    void loadsAndPicksUp();
    void offersOnlyWhatTheUnitOffers();
    void readsCountersAndMaintenance();
    void faultFromTheBackgroundCheckInTheBanner();
    void faultFromAStateCheckInTheBanner();
    void logPaneShowsTheDriversLinesAtTheChosenLevel();
    void choosesThePortAndReportsAFailedConnection();
    void connectsToAPortAndShowsALinkFailure();
    void recordsTheLine();
    void rendersTheWindow();

private:
    void open(bool supervision = true);
    template <typename T> T* child(const char* name) const
    {
        T* widget = window->findChild<T*>(QLatin1String(name));
        if (!widget)
            qFatal("no widget %s", name);
        return widget;
    }
    QProgressBar* bar(const QString& unit) const
    {
        return window->findChild<QProgressBar*>(QStringLiteral("fill_%1").arg(unit));
    }
    QString unitCell(int row, int column) const
    {
        const QTableWidgetItem* item = child<QTableWidget>("unitsTable")->item(row, column);
        return item ? item->text() : QString();
    }
    bool idle() const { return window->isConnected() && !window->isBusy(); }
    void click(const char* name)
    {
        QPushButton* button = child<QPushButton>(name);
        QVERIFY2(button->isEnabled(), name);
        QTest::mouseClick(button, Qt::LeftButton);
    }
    void acceptCoins(const QList<unsigned int>& coins, const QString& total);
    void pickOperation(QComboBox* box, int operation);

    std::unique_ptr<panel::MainWindow> window;
};

void TestPanel::init()
{
    open();
}

void TestPanel::cleanup()
{
    window.reset();
}

void TestPanel::open(bool supervision)
{
    window.reset();
    panel::Connection connection;
    connection.plugin = QStringLiteral(CPIBCR_PLUGIN);
    window = std::make_unique<panel::MainWindow>(connection);
    window->setRecheckInterval(200);
    child<QCheckBox>("supervisionBox")->setChecked(supervision);
    window->show();
    window->start();
    QTRY_VERIFY_WITH_TIMEOUT(idle() && child<QTableWidget>("unitsTable")->rowCount() == 5, connectMs);
    QVERIFY(window->simulator());
}

void TestPanel::acceptCoins(const QList<unsigned int>& coins, const QString& total)
{
    click("acceptStartButton");
    QTRY_VERIFY_WITH_TIMEOUT(child<QPushButton>("acceptStopButton")->isEnabled(), operationMs);
    for (const unsigned int coin : coins)
        window->simulator()->insertCoin(coinPosition(coin));
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("acceptTotalLabel")->text(), QStringLiteral("total ") + total,
                              operationMs);
    click("acceptStopButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("acceptTotalLabel")->text(), QStringLiteral("accepted ") + total,
                              operationMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);
}

void TestPanel::pickOperation(QComboBox* box, int operation)
{
    const int index = box->findData(operation);
    QVERIFY(index >= 0);
    box->setCurrentIndex(index);
}

void TestPanel::workerEndsEachRequestWithOneIdleAfterItsResults()
{
    // Runs on this thread: every signal is recorded in the order the worker emits it.
    panel::DriverWorker worker;
    QStringList seen;
    connect(&worker, &panel::DriverWorker::busy, [&](const QString&) { seen << QStringLiteral("busy"); });
    connect(&worker, &panel::DriverWorker::idle, [&] { seen << QStringLiteral("idle"); });
    connect(&worker, &panel::DriverWorker::connected,
            [&](const QString&, const QString&, bool) { seen << QStringLiteral("connected"); });
    connect(&worker, &panel::DriverWorker::unitsRead,
            [&](const QList<CashControlUnit>&) { seen << QStringLiteral("units"); });
    connect(&worker, &panel::DriverWorker::denominationsRead,
            [&](const QList<uint>&) { seen << QStringLiteral("denominations"); });
    connect(&worker, &panel::DriverWorker::changePaid,
            [&](qint64, int, const SumDetailed&) { seen << QStringLiteral("paid"); });
    connect(&worker, &panel::DriverWorker::failed,
            [&](const QString&, const QString&) { seen << QStringLiteral("failed"); });

    // Without a driver a request still ends, so the window does not stay busy.
    worker.readCounters();
    QCOMPARE(seen, QStringList{QStringLiteral("idle")});
    seen.clear();
    worker.setSupervision(false);
    QCOMPARE(seen, QStringList{QStringLiteral("idle")});

    seen.clear();
    panel::Connection connection;
    connection.plugin = QStringLiteral(CPIBCR_PLUGIN);
    worker.open(connection);
    QVERIFY(worker.simulator());
    QCOMPARE(seen.count(QStringLiteral("idle")), 1);
    QCOMPARE(seen.last(), QStringLiteral("idle"));
    QVERIFY(seen.indexOf(QStringLiteral("connected")) < seen.indexOf(QStringLiteral("units")));
    QVERIFY(seen.indexOf(QStringLiteral("units")) < seen.indexOf(QStringLiteral("denominations")));

    seen.clear();
    worker.payChange(1, 300);
    QCOMPARE(seen.count(QStringLiteral("idle")), 1);
    QCOMPARE(seen.last(), QStringLiteral("idle"));
    QVERIFY(seen.indexOf(QStringLiteral("paid")) >= 0);
    QVERIFY(seen.indexOf(QStringLiteral("paid")) < seen.indexOf(QStringLiteral("denominations")));
    QCOMPARE(worker.simulator()->coinsPaidOut(), quint64(300));

    seen.clear();
    worker.payChange(1, 10);
    QCOMPARE(seen.count(QStringLiteral("idle")), 1);
    QCOMPARE(seen.last(), QStringLiteral("idle"));
    QVERIFY(seen.indexOf(QStringLiteral("failed")) >= 0);
    QVERIFY(!seen.contains(QStringLiteral("paid")));
    QCOMPARE(worker.simulator()->coinsPaidOut(), quint64(300));

    seen.clear();
    worker.shutdown();
    QCOMPARE(seen, QStringList{QStringLiteral("idle")});
    QVERIFY(!worker.simulator());
}

void TestPanel::showsTheUnits()
{
    QCOMPARE(unitCell(0, 0), QStringLiteral("hopper1"));
    QCOMPARE(unitCell(1, 0), QStringLiteral("hopper2"));
    QCOMPARE(unitCell(1, 1), QStringLiteral("5.00"));
    QCOMPARE(unitCell(1, 3), QStringLiteral("250"));
    QCOMPARE(unitCell(1, 4), QStringLiteral("800"));
    QCOMPARE(unitCell(1, 5), QStringLiteral("1250.00"));
    QCOMPARE(unitCell(1, 6), QStringLiteral("ok"));
    QCOMPARE(unitCell(4, 0), QStringLiteral("cashbox"));
    QCOMPARE(unitCell(4, 5), QStringLiteral("0.00"));
    QCOMPARE(bar(QStringLiteral("hopper2"))->maximum(), 800);
    QCOMPARE(bar(QStringLiteral("hopper2"))->value(), 250);
    QCOMPARE(bar(QStringLiteral("hopper4"))->text(), QStringLiteral("400 of 1000"));
    QVERIFY(child<QLabel>("deviceLabel")
                ->text()
                .startsWith(QStringLiteral("Монетоприемник: Драйвер монетоприемника CPI BCR, /dev/pts/")));
    QVERIFY(child<QLabel>("deviceLabel")->text().endsWith(QStringLiteral(" (built-in simulator)")));
    QVERIFY(child<QCheckBox>("supervisionBox")->isChecked());
    QVERIFY(!child<QLabel>("banner")->isVisible());
    const QListWidget* refuse = child<QListWidget>("excludeList");
    QCOMPARE(refuse->count(), 4);
    QCOMPARE(refuse->item(0)->text(), QStringLiteral("1.00"));
    QCOMPARE(refuse->item(3)->text(), QStringLiteral("10.00"));
}

void TestPanel::acceptsCoinsWithRunningTotal()
{
    click("acceptStartButton");
    QTRY_VERIFY_WITH_TIMEOUT(child<QPushButton>("acceptStopButton")->isEnabled(), operationMs);
    // Money cannot move while coins are being accepted.
    QVERIFY(!child<QPushButton>("changePayButton")->isEnabled());
    QVERIFY(!child<QPushButton>("pickupButton")->isEnabled());
    window->simulator()->insertCoin(coinPosition(1000));
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("acceptTotalLabel")->text(), QStringLiteral("total 10.00"),
                              operationMs);
    window->simulator()->insertCoin(coinPosition(200));
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("acceptTotalLabel")->text(), QStringLiteral("total 12.00"),
                              operationMs);
    const QListWidget* coins = child<QListWidget>("coinsList");
    QCOMPARE(coins->count(), 2);
    QVERIFY(coins->item(0)->text().endsWith(QStringLiteral("received 10.00  (10.00 x 1)")));
    QVERIFY(coins->item(1)->text().endsWith(QStringLiteral("received 2.00  (2.00 x 1)")));
    click("acceptStopButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("acceptTotalLabel")->text(), QStringLiteral("accepted 12.00"),
                              operationMs);
    // The units are read again after the stop: each coin landed in its hopper.
    QTRY_COMPARE_WITH_TIMEOUT(bar(QStringLiteral("hopper1"))->value(), 201, operationMs);
    QTRY_COMPARE_WITH_TIMEOUT(bar(QStringLiteral("hopper3"))->value(), 301, operationMs);
    QCOMPARE(window->simulator()->valueAccepted(), quint64(1200));
    QTRY_VERIFY_WITH_TIMEOUT(child<QPushButton>("changePayButton")->isEnabled(), operationMs);
}

void TestPanel::excludedDenominationIsRefused()
{
    QListWidget* refuse = child<QListWidget>("excludeList");
    refuse->item(3)->setCheckState(Qt::Checked); // 10.00
    click("acceptStartButton");
    QTRY_VERIFY_WITH_TIMEOUT(child<QPushButton>("acceptStopButton")->isEnabled(), operationMs);
    window->simulator()->insertCoin(coinPosition(1000));
    window->simulator()->insertCoin(coinPosition(500));
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("acceptTotalLabel")->text(), QStringLiteral("total 5.00"),
                              operationMs);
    click("acceptStopButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("acceptTotalLabel")->text(), QStringLiteral("accepted 5.00"),
                              operationMs);
    QCOMPARE(child<QListWidget>("coinsList")->count(), 1);
    QCOMPARE(window->simulator()->valueAccepted(), quint64(500));
    QCOMPARE(window->simulator()->hopperCount(1), 200);
}

void TestPanel::paysChangeAndHopperBarsDrop()
{
    child<QLineEdit>("changeAmount")->setText(QStringLiteral("13"));
    QComboBox* mode = child<QComboBox>("changeMode");
    mode->setCurrentIndex(mode->findData(1));
    click("changePayButton");
    // A payout takes seconds: the window shows it and stays responsive meanwhile.
    QTRY_VERIFY_WITH_TIMEOUT(child<QProgressBar>("busyBar")->isVisible(), operationMs);
    QCOMPARE(child<QLabel>("busyLabel")->text(), QStringLiteral("Paying change..."));
    QVERIFY(!child<QPushButton>("changePayButton")->isEnabled());
    int ticks = 0;
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, [&] { ++ticks; });
    ticker.start(10);
    // The payout of three coins lasts longer than a second; the window's own thread keeps
    // handling its events all the while.
    QTRY_VERIFY_WITH_TIMEOUT(ticks >= 3, operationMs);
    QVERIFY(window->isBusy());
    QVERIFY(child<QProgressBar>("busyBar")->isVisible());
    ticker.stop();
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("changeResultLabel")->text(),
                              QStringLiteral("paid 13.00 of 13.00 (minimum): 1.00 x 1, 2.00 x 1, 10.00 x 1"),
                              operationMs);
    const QTableWidget* paid = child<QTableWidget>("changeTable");
    QCOMPARE(paid->rowCount(), 4);
    QCOMPARE(paid->item(2, 0)->text(), QStringLiteral("10.00"));
    QCOMPARE(paid->item(2, 1)->text(), QStringLiteral("1"));
    QCOMPARE(paid->item(3, 0)->text(), QStringLiteral("total"));
    QCOMPARE(paid->item(3, 2)->text(), QStringLiteral("13.00"));
    QTRY_COMPARE_WITH_TIMEOUT(bar(QStringLiteral("hopper1"))->value(), 199, operationMs);
    QCOMPARE(bar(QStringLiteral("hopper3"))->value(), 299);
    QCOMPARE(bar(QStringLiteral("hopper4"))->value(), 399);
    QCOMPARE(bar(QStringLiteral("hopper2"))->value(), 250);
    QCOMPARE(window->simulator()->hopperCount(1), 199);
    QCOMPARE(window->simulator()->coinsPaidOut(), quint64(1300));
}

void TestPanel::checksChange()
{
    child<QLineEdit>("changeAmount")->setText(QStringLiteral("0.10"));
    click("changeCheckButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("changeResultLabel")->text(),
                              QStringLiteral("0.10 cannot be paid as change (optimal)"), operationMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);
    child<QLineEdit>("changeAmount")->setText(QStringLiteral("13"));
    click("changeCheckButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("changeResultLabel")->text(),
                              QStringLiteral("13.00 can be paid as change (optimal)"), operationMs);
    QCOMPARE(window->simulator()->coinsPaidOut(), quint64(0));
}

void TestPanel::refusalShowsTheDriversMessage()
{
    child<QLineEdit>("changeAmount")->setText(QStringLiteral("0.10"));
    click("changePayButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("messageLabel")->text(),
                              QStringLiteral("Paying change: Монетоприемник: Невозможно выдать сумму"),
                              operationMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);
    QCOMPARE(window->simulator()->coinsPaidOut(), quint64(0));
    // Nothing is tried again behind the operator's back.
    QCOMPARE(window->simulator()->countHeader(85), 0);
}

void TestPanel::malformedAmountIsNeverSent()
{
    window->simulator()->clearTransactions();
    child<QLineEdit>("changeAmount")->setText(QStringLiteral("15,50"));
    click("changePayButton");
    // Refused in the window itself: the worker was never asked.
    QVERIFY(!window->isBusy());
    QCOMPARE(child<QLabel>("messageLabel")->text(),
             QStringLiteral("amount \"15,50\": use a point for the decimals, as in 15.50"));
    QCOMPARE(window->simulator()->coinsPaidOut(), quint64(0));
    QCOMPARE(window->simulator()->countHeader(120), 0);
}

// The same answers as cpibcr and the driver give to 12.00 from a hopper of 5.00 coins: a load
// and a payout are refused with the driver's message before anything is sent, a manual sum
// pick-up takes the two whole coins.
void TestPanel::partCoinRequestsAsTheDriver()
{
    window->simulator()->clearTransactions();
    child<QComboBox>("opUnit")->setCurrentText(QStringLiteral("hopper2"));
    pickOperation(child<QComboBox>("loadOp"), 0x20000);
    child<QLineEdit>("loadAmount")->setText(QStringLiteral("12"));
    click("loadButton");
    QVERIFY(!window->isBusy());
    QCOMPARE(child<QLabel>("opResultLabel")->text(), QStringLiteral("Монетоприемник: Некорректная сумма"));
    QCOMPARE(child<QLabel>("messageLabel")->text(), QStringLiteral("Монетоприемник: Некорректная сумма"));

    QComboBox* pickup = child<QComboBox>("pickupOp");
    pickOperation(pickup, 0x200);
    child<QLineEdit>("pickupAmount")->setText(QStringLiteral("12"));
    click("pickupButton");
    QVERIFY(!window->isBusy());
    QCOMPARE(child<QLabel>("opResultLabel")->text(), QStringLiteral("Монетоприемник: Некорректная сумма"));
    for (const quint8 header : {sim::cmd::ModHopperBalance, sim::cmd::DispenseHopperPattern,
                                sim::cmd::PayMoneyOut, sim::cmd::PurgeHopper})
        QCOMPARE(window->simulator()->countHeader(header), 0);
    QCOMPARE(window->simulator()->hopperCount(2), 250);

    pickOperation(pickup, 0x20);
    click("pickupButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("opResultLabel")->text(),
                              QStringLiteral("pickup of 10.00 from hopper2 (выем суммы вручную): 5.00 x 2"),
                              operationMs);
    QTRY_COMPARE_WITH_TIMEOUT(bar(QStringLiteral("hopper2"))->value(), 248, operationMs);
    QCOMPARE(window->simulator()->hopperCount(2), 248);
    QCOMPARE(window->simulator()->coinsPaidOut(), quint64(0));
}

void TestPanel::loadsAndPicksUp()
{
    child<QComboBox>("opUnit")->setCurrentText(QStringLiteral("hopper2"));
    pickOperation(child<QComboBox>("loadOp"), 0x20000);
    child<QLineEdit>("loadAmount")->setText(QStringLiteral("50"));
    click("loadButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("opResultLabel")->text(),
                              QStringLiteral("loan of 50.00 into hopper2 (внесение вручную)"), operationMs);
    QTRY_COMPARE_WITH_TIMEOUT(bar(QStringLiteral("hopper2"))->value(), 260, operationMs);
    QCOMPARE(window->simulator()->hopperCount(2), 260);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);

    // A load through the acceptor is accepted, but nothing is shown as put in.
    pickOperation(child<QComboBox>("loadOp"), 0x1000);
    child<QLineEdit>("loadAmount")->setText(QStringLiteral("20"));
    click("loadButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("opResultLabel")->text(),
                              QStringLiteral("внесение через основной приемник into hopper2 accepted: the "
                                             "driver moved no coins (20.00 asked)"),
                              operationMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);
    QCOMPARE(window->simulator()->hopperCount(2), 260);
    QCOMPARE(bar(QStringLiteral("hopper2"))->value(), 260);

    QComboBox* pickup = child<QComboBox>("pickupOp");
    pickOperation(pickup, 0x200);
    QVERIFY(child<QLineEdit>("pickupAmount")->isEnabled());
    child<QLineEdit>("pickupAmount")->setText(QStringLiteral("10"));
    click("pickupButton");
    QTRY_COMPARE_WITH_TIMEOUT(
        child<QLabel>("opResultLabel")->text(),
        QStringLiteral("pickup of 10.00 from hopper2 (выем суммы через устройство выдачи): "
                       "5.00 x 2"),
        operationMs);
    QTRY_COMPARE_WITH_TIMEOUT(bar(QStringLiteral("hopper2"))->value(), 258, operationMs);
    QCOMPARE(window->simulator()->hopperCount(2), 258);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);

    pickOperation(pickup, 0x10);
    QVERIFY(!child<QLineEdit>("pickupAmount")->isEnabled());
    click("pickupButton");
    QTRY_COMPARE_WITH_TIMEOUT(
        child<QLabel>("opResultLabel")->text(),
        QStringLiteral("pickup of 1290.00 from hopper2 (выем всего вручную): 5.00 x 258"), operationMs);
    QTRY_COMPARE_WITH_TIMEOUT(bar(QStringLiteral("hopper2"))->value(), 0, operationMs);
    QCOMPARE(window->simulator()->hopperCount(2), 0);
}

void TestPanel::offersOnlyWhatTheUnitOffers()
{
    QComboBox* unit = child<QComboBox>("opUnit");
    QCOMPARE(comboTexts(unit),
             (QStringList{QStringLiteral("hopper1"), QStringLiteral("hopper2"), QStringLiteral("hopper3"),
                          QStringLiteral("hopper4"), QStringLiteral("cashbox")}));
    unit->setCurrentText(QStringLiteral("cashbox"));
    QCOMPARE(child<QComboBox>("loadOp")->count(), 0);
    QVERIFY(!child<QPushButton>("loadButton")->isEnabled());
    QVERIFY(!child<QLineEdit>("loadAmount")->isEnabled());
    QCOMPARE(comboTexts(child<QComboBox>("pickupOp")),
             QStringList{QStringLiteral("manual-all (выем всего вручную)")});
    QVERIFY(!child<QLineEdit>("pickupAmount")->isEnabled());

    unit->setCurrentText(QStringLiteral("hopper3"));
    QCOMPARE(comboTexts(child<QComboBox>("loadOp")),
             (QStringList{QStringLiteral("manual-load (внесение вручную)"),
                          QStringLiteral("0x1000 (внесение через основной приемник)")}));
    QCOMPARE(comboTexts(child<QComboBox>("pickupOp")),
             (QStringList{QStringLiteral("manual-all (выем всего вручную)"),
                          QStringLiteral("manual-sum (выем суммы вручную)"),
                          QStringLiteral("dispense-all (выем всего через устройство выдачи)"),
                          QStringLiteral("dispense-sum (выем суммы через устройство выдачи)")}));
    QVERIFY(child<QPushButton>("loadButton")->isEnabled());

    // The cashbox's pick-up empties it by hand: the driver reports the value it held.
    window->simulator()->setCashbox(750);
    click("refreshButton");
    QTRY_COMPARE_WITH_TIMEOUT(unitCell(4, 5), QStringLiteral("7.50"), operationMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);
    unit->setCurrentText(QStringLiteral("cashbox"));
    click("pickupButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("opResultLabel")->text(),
                              QStringLiteral("pickup of 7.50 from cashbox (выем всего вручную): -"),
                              operationMs);
    QTRY_COMPARE_WITH_TIMEOUT(unitCell(4, 5), QStringLiteral("0.00"), operationMs);
    QCOMPARE(window->simulator()->cashbox(), quint32(0));
}

void TestPanel::readsCountersAndMaintenance()
{
    acceptCoins({500, 500}, QStringLiteral("10.00"));
    child<QLineEdit>("changeAmount")->setText(QStringLiteral("2"));
    click("changePayButton");
    QTRY_VERIFY_WITH_TIMEOUT(
        child<QLabel>("changeResultLabel")->text().startsWith(QStringLiteral("paid 2.00")), operationMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);

    click("countersButton");
    const QTableWidget* accepted = child<QTableWidget>("acceptedTable");
    QTRY_COMPARE_WITH_TIMEOUT(accepted->rowCount(), 2, operationMs);
    QCOMPARE(accepted->item(0, 0)->text(), QStringLiteral("5.00"));
    QCOMPARE(accepted->item(0, 1)->text(), QStringLiteral("2"));
    QCOMPARE(accepted->item(1, 2)->text(), QStringLiteral("10.00"));
    const QTableWidget* dispensed = child<QTableWidget>("dispensedTable");
    QCOMPARE(dispensed->item(dispensed->rowCount() - 1, 2)->text(), QStringLiteral("2.00"));
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);

    click("maintenanceButton");
    QTableWidget* maintenance = child<QTableWidget>("maintenanceTable");
    QTRY_COMPARE_WITH_TIMEOUT(maintenance->rowCount(), 4, operationMs);
    int paying = -1;
    for (int row = 0; row < 4; ++row)
        if (maintenance->item(row, 3)->text() != QLatin1String("0"))
            paying = row;
    QVERIFY(paying >= 0);
    QCOMPARE(maintenance->item(paying, 4)->text(), QStringLiteral("500000"));
    QCOMPARE(maintenance->item(paying, 1)->text(), QStringLiteral("ok"));
    const QString hopper = maintenance->item(paying, 0)->text();
    const QProgressBar* wear = window->findChild<QProgressBar*>(QStringLiteral("wear_%1").arg(hopper));
    QVERIFY(wear);
    QCOMPARE(wear->maximum(), 500000);
    QVERIFY(wear->value() > 0);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);

    maintenance->selectRow(paying);
    click("maintenanceDoneButton");
    QTRY_COMPARE_WITH_TIMEOUT(maintenance->rowCount() == 4 ? maintenance->item(paying, 3)->text() : QString(),
                              QStringLiteral("0"), operationMs);
    QCOMPARE(maintenance->item(paying, 0)->text(), hopper);
}

void TestPanel::faultFromTheBackgroundCheckInTheBanner()
{
    open(false);
    QLabel* banner = child<QLabel>("banner");
    window->simulator()->openDoor(true);
    // Switching supervision on runs the driver's background check at once; its error() is the banner.
    child<QCheckBox>("supervisionBox")->setChecked(true);
    QTRY_VERIFY_WITH_TIMEOUT(banner->isVisible(), faultMs);
    QCOMPARE(banner->text(), QStringLiteral("Монетоприемник: Открыта дверь"));
    window->simulator()->openDoor(false);
    QTRY_VERIFY_WITH_TIMEOUT(!banner->isVisible(), faultMs);
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("messageLabel")->text(),
                              QStringLiteral("the device state is good again"), faultMs);
}

void TestPanel::faultFromAStateCheckInTheBanner()
{
    QLabel* banner = child<QLabel>("banner");
    window->simulator()->openDoor(true);
    click("checkStateButton");
    QTRY_VERIFY_WITH_TIMEOUT(banner->isVisible(), faultMs);
    QCOMPARE(banner->text(), QStringLiteral("Монетоприемник: Открыта дверь"));
    // It stays while the fault lasts, through the checks the panel repeats.
    const int checksBefore = window->simulator()->countHeader(123);
    QTRY_VERIFY_WITH_TIMEOUT(window->simulator()->countHeader(123) > checksBefore + 1, faultMs);
    QVERIFY(banner->isVisible());
    window->simulator()->openDoor(false);
    QTRY_VERIFY_WITH_TIMEOUT(!banner->isVisible(), faultMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);
    QVERIFY(child<QPushButton>("changePayButton")->isEnabled());
}

void TestPanel::logPaneShowsTheDriversLinesAtTheChosenLevel()
{
    panel::LogPane* log = child<panel::LogPane>("logPane");
    QCOMPARE(log->level(), QStringLiteral("info"));
    QTRY_VERIFY_WITH_TIMEOUT(
        log->text().contains(QStringLiteral(" INFO  cpibcr - Старт асинхронной проверки состояния")),
        operationMs);
    QVERIFY(!log->text().contains(QStringLiteral("Отправка:")));
    child<QComboBox>("logLevel")->setCurrentText(QStringLiteral("trace"));
    QCOMPARE(log->level(), QStringLiteral("trace"));
    click("refreshButton");
    QTRY_VERIFY_WITH_TIMEOUT(log->text().contains(QStringLiteral("Отправка:")), operationMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);
    child<QComboBox>("logLevel")->setCurrentText(QStringLiteral("error"));
    child<QLineEdit>("changeAmount")->setText(QStringLiteral("0.10"));
    click("changePayButton");
    QTRY_VERIFY_WITH_TIMEOUT(log->text().contains(QStringLiteral(" ERROR cpibcr - Невозможно выдать сумму")),
                             operationMs);
}

void TestPanel::choosesThePortAndReportsAFailedConnection()
{
    QComboBox* ports = child<QComboBox>("portBox");
    const QList<hostkit::SerialPortEntry> machine = hostkit::availableSerialPorts();
    QCOMPARE(ports->count(), 1 + machine.size());
    QCOMPARE(ports->itemText(0), QStringLiteral("built-in simulator"));
    for (int i = 0; i < machine.size(); ++i)
        QCOMPARE(ports->itemData(i + 1).toString(), machine.at(i).location);

    ports->setEditText(QStringLiteral("/dev/cpibcr-panel-test-none"));
    click("connectButton");
    QTRY_VERIFY_WITH_TIMEOUT(
        child<QLabel>("messageLabel")
            ->text()
            .startsWith(QStringLiteral("connect: cannot open /dev/cpibcr-panel-test-none")),
        operationMs);
    QCOMPARE(child<QLabel>("deviceLabel")->text(), QStringLiteral("not connected"));
    QVERIFY(!child<QPushButton>("changePayButton")->isEnabled());
    QVERIFY(!window->isConnected());

    // Back to the simulator: a fresh recycler.
    ports->setCurrentIndex(0);
    click("connectButton");
    QTRY_VERIFY_WITH_TIMEOUT(idle() && child<QTableWidget>("unitsTable")->rowCount() == 5, connectMs);
    QCOMPARE(unitCell(1, 3), QStringLiteral("250"));
    QVERIFY(child<QPushButton>("changePayButton")->isEnabled());
}

void TestPanel::connectsToAPortAndShowsALinkFailure()
{
    // A recycler of its own on a pseudo-terminal, as a port given with --port.
    sim::Simulator device;
    QString why;
    QVERIFY2(device.openPty(&why), qPrintable(why));
    device.setSilent(true);
    QComboBox* ports = child<QComboBox>("portBox");
    ports->setEditText(device.portPath());
    click("connectButton");
    QTRY_COMPARE_WITH_TIMEOUT(child<QLabel>("messageLabel")->text(),
                              QStringLiteral("Connecting to the device: Монетоприемник: Нет связи"), faultMs);
    QCOMPARE(child<QLabel>("deviceLabel")->text(), QStringLiteral("not connected"));
    QVERIFY(!window->isConnected());
    QCOMPARE(child<QTableWidget>("unitsTable")->rowCount(), 0);

    device.setSilent(false);
    click("connectButton");
    QTRY_VERIFY_WITH_TIMEOUT(idle() && child<QTableWidget>("unitsTable")->rowCount() == 5, connectMs);
    QCOMPARE(child<QLabel>("deviceLabel")->text(),
             QStringLiteral("Монетоприемник: Драйвер монетоприемника CPI BCR, ") + device.portPath());
    QVERIFY(!window->simulator());
    device.setHopperCount(2, 17);
    click("refreshButton");
    QTRY_COMPARE_WITH_TIMEOUT(unitCell(1, 3), QStringLiteral("17"), operationMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);
    window.reset();
}

void TestPanel::recordsTheLine()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    window->setRecordingFolder(dir.path());
    child<QCheckBox>("recordBox")->setChecked(true);
    click("refreshButton");
    QTRY_VERIFY_WITH_TIMEOUT(idle() && child<QTableWidget>("unitsTable")->rowCount() == 5, operationMs);
    QVERIFY(child<QLabel>("recordLabel")
                ->text()
                .startsWith(QStringLiteral("to ") + dir.path() + QStringLiteral("/cpibcr-")));
    child<QCheckBox>("recordBox")->setChecked(false);
    QTRY_VERIFY_WITH_TIMEOUT(idle() && child<QLabel>("recordLabel")->text().isEmpty(), operationMs);
    QVERIFY(!child<QCheckBox>("recordBox")->isChecked());
    // Nothing is recorded once switched off.
    click("refreshButton");
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);

    const QStringList files = QDir(dir.path()).entryList({QStringLiteral("cpibcr-*.trace")});
    QCOMPARE(files.size(), 1);
    QFile file(dir.filePath(files.first()));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const trace::Document doc = trace::parse(file.readAll());
    QVERIFY2(doc.error.isEmpty(), qPrintable(doc.error));
    QCOMPARE(doc.records.first().kind, trace::Record::HeaderRecord);
    QCOMPARE(doc.records.first().header.port, window->simulator()->portPath());
    // One refresh: every enabled hopper's balance asked once, each request echoed and answered.
    int balances = 0;
    for (const trace::Record& r : doc.records)
        if (r.kind == trace::Record::ChunkRecord && r.chunk.direction == trace::Direction::Written &&
            quint8(r.chunk.bytes.at(3)) == 119)
            ++balances;
    QCOMPARE(balances, 4);
}

void TestPanel::rendersTheWindow()
{
    acceptCoins({1000, 500, 200, 200}, QStringLiteral("19.00"));
    child<QLineEdit>("changeAmount")->setText(QStringLiteral("13"));
    click("changePayButton");
    QTRY_VERIFY_WITH_TIMEOUT(
        child<QLabel>("changeResultLabel")->text().startsWith(QStringLiteral("paid 13.00")), operationMs);
    QTRY_VERIFY_WITH_TIMEOUT(idle(), operationMs);
    child<QTabWidget>("tabs")->setCurrentIndex(1);
    const QPixmap picture = window->grab();
    QCOMPARE(picture.size(), window->size());
    const QString path = QStringLiteral(CPIBCR_PANEL_PICTURE);
    QVERIFY(picture.save(path, "PNG"));
    const QImage image(path);
    QCOMPARE(image.size(), window->size());
    // The hopper bars are drawn in their fill colour.
    const QProgressBar* fill = bar(QStringLiteral("hopper1"));
    const QPoint inside = fill->mapTo(window.get(), QPoint(3, fill->height() / 2));
    QCOMPARE(image.pixelColor(inside).rgb() & 0xffffff,
             panel::fillColor(panel::FillLevel::Normal).rgb() & 0xffffff);
}

QTEST_MAIN(TestPanel)
#include "tst_panel.moc"
