#include "cctalk/exception.h"
#include "host/serialport.h"
#include "sim/simulator.h"
#include "support/logcapture.h"
#include "testchanger.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <memory>

using namespace changertest;

namespace {

// The changer on a real line: pauses are recorded and shortened to a few
// milliseconds, so that device activity still ends while the changer waits.
class LineChanger : public TestChanger
{
public:
    void sleep(int msecs) const override
    {
        sleeps.append(msecs);
        QThread::msleep(qMin(msecs, 10));
    }
};

// Has the simulator lose the answer to the next payout command it sends.
class LosingChanger : public LineChanger
{
public:
    sim::Simulator* simulator = nullptr;
    bool armed = false;

    CcTalk::Response exec(const CcTalk::Request& request) override
    {
        const int header = request.getHeader();
        if (armed && (header == 85 || header == 125)) {
            armed = false;
            simulator->dropAnswers(1);
        }
        return Changer::exec(request);
    }
};

sim::HopperConfig hopper(const char* coin, int count, int capacity, bool enabled)
{
    sim::HopperConfig h;
    h.coinId = QString::fromLatin1(coin);
    h.count = count;
    h.capacity = capacity;
    h.enabled = enabled;
    h.firmware = QStringLiteral("HP-3.02");
    h.model = QStringLiteral("BCR-HOP");
    h.serial = 610020;
    return h;
}

// Positions: 1 and 5 take 1.00 coins, 2 takes 5.00, 3 takes 10.00, 4 takes 2.00.
// Hoppers: 1 for 1.00, 2 for 5.00 (switched off), 3 for 10.00, 4 for 20.00 (a coin
// no position recognises). Everything the device does takes milliseconds.
sim::Config recycler()
{
    sim::Config c = sim::Config::defaults();
    c.coinIds = {{1, QStringLiteral("RU100A")},
                 {2, QStringLiteral("RU500A")},
                 {3, QStringLiteral("RU1K0A")},
                 {4, QStringLiteral("RU200A")},
                 {5, QStringLiteral("RU100B")}};
    c.hoppers = {hopper("RU100A", 50, 500, true), hopper("RU500A", 40, 500, false),
                 hopper("RU1K0A", 30, 400, true), hopper("RU2K0A", 20, 300, true)};
    c.cashbox = 12550;
    c.coinAcceptMs = 20;
    c.coinAcceptFastMs = 10;
    c.payoutMsPerCoin = 2;
    c.resetInitMs = 60;
    c.answerDelayMs = 1;
    return c;
}

struct SimRig
{
    explicit SimRig(const sim::Config& config = recycler()) : simulator(config)
    {
        TestChanger::setResetPending(false);
        QString error;
        opened = simulator.openPty(&error) && port.open(simulator.portPath());
        if (!opened)
            qWarning("%s %s", qPrintable(error), qPrintable(port.errorString()));
        port.setBaudRate(QStringLiteral("115200"));
        port.setDataBits(QStringLiteral("8"));
        port.setParity(QStringLiteral("none"));
        port.setStopBits(QStringLiteral("1"));
        port.setFlowControl(QStringLiteral("none"));
        changer.setAddress(55);
        changer.setSerial(&port);
    }
    ~SimRig() { TestChanger::setResetPending(false); }

    int headers(quint8 header) const { return simulator.countHeader(header); }
    QList<quint8> headerLog() const
    {
        QList<quint8> out;
        for (const sim::Transaction& t : simulator.transactions())
            out << t.header;
        return out;
    }
    // Value that left the hoppers per hopper since `before`.
    QMap<unsigned int, long long> paidSince(const QMap<int, int>& before) const
    {
        QMap<unsigned int, long long> paid;
        const unsigned int denom[] = {0, 100, 500, 1000, 2000};
        for (auto it = before.cbegin(); it != before.cend(); ++it)
            paid[denom[it.key()]] += it.value() - simulator.hopperCount(it.key());
        return paid;
    }
    QMap<int, int> hopperCounts() const
    {
        QMap<int, int> counts;
        for (int h : {1, 3, 4})
            counts[h] = simulator.hopperCount(h);
        return counts;
    }

    sim::Simulator simulator;
    hw::SerialPort port;
    LineChanger changer;
    bool opened = false;
};

QString messageOf(const std::exception& e)
{
    return QString::fromUtf8(e.what());
}

QMap<unsigned int, long long> withoutZeros(const QMap<unsigned int, long long>& counts)
{
    QMap<unsigned int, long long> out;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        if (it.value() != 0)
            out.insert(it.key(), it.value());
    }
    return out;
}

long long total(const QList<QList<QVariant>>& signalsSeen, unsigned int denom, bool* otherDenoms)
{
    long long n = 0;
    for (const QList<QVariant>& args : signalsSeen) {
        const SumDetailed sum = args.at(0).value<SumDetailed>();
        for (auto it = sum.denoms.cbegin(); it != sum.denoms.cend(); ++it) {
            if (it.key() == denom)
                n += it.value();
            else
                *otherDenoms = true;
        }
    }
    return n;
}

} // namespace

class TestSimulation : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup() { TestChanger::setResetPending(false); }

    void discovery();
    void acceptanceWithAnExcludedDenomination();
    void faultDuringAcceptance();
    void payoutByPattern();
    void payoutByAmount_data();
    void payoutByAmount();
    void payoutFromOneHopper();
    void purge();
    void payoutWithItsAnswerLost();
    void delayedErrorThenReset();
    void waitTimesOut();
    void clock_data();
    void clock();
    void balancesWrittenAndReadBack();
    void refusedRequestsNeverReachTheDevice();
};

void TestSimulation::initTestCase()
{
    qputenv("TZ", "UTC");
}

void TestSimulation::discovery()
{
    SimRig rig;
    QVERIFY(rig.opened);
    testsupport::LogCapture log;
    rig.changer.init();

    const QList<CashControlUnit> units = rig.changer.getUnits();
    QCOMPARE(units.size(), 4);
    QCOMPARE(units.at(0).name, QStringLiteral("hopper1"));
    QCOMPARE(units.at(0).denom, 100u);
    QCOMPARE(units.at(0).count, 50LL);
    QCOMPARE(units.at(0).capacity, 500);
    QCOMPARE(units.at(1).name, QStringLiteral("hopper3"));
    QCOMPARE(units.at(1).denom, 1000u);
    QCOMPARE(units.at(1).count, 30LL);
    QCOMPARE(units.at(2).name, QStringLiteral("hopper4"));
    QCOMPARE(units.at(2).denom, 2000u);
    QCOMPARE(units.at(2).count, 20LL);
    QCOMPARE(units.at(3).name, QStringLiteral("cashbox"));
    QCOMPARE(units.at(3).sum, 12550LL);
    for (const CashControlUnit& unit : units)
        QCOMPARE(unit.state, 0);
    QCOMPARE(rig.changer.getAcceptableDenoms(), QSet<unsigned int>({100, 1000}));

    const QStringList info = log.texts(QStringLiteral("INFO"));
    QVERIFY(info.contains(QStringLiteral("Хоппер 2 отключен")));
    QVERIFY(
        info.contains(QStringLiteral(" валюты: 1 - RU100A, 2 - RU500A, 3 - RU1K0A, 4 - RU200A, 5 - RU100B")));
    QVERIFY(info.contains(QStringLiteral(" валюта: RU2K0A, кол-во: 20, емкость: 300")));
    QVERIFY(info.contains(QStringLiteral(" модель: BCR-HOP, прошивка: HP-3.02, серия: 610020")));
    QVERIFY(info.contains(QStringLiteral(" сумма: 125.50")));
    // the switched-off hopper is asked whether it is on, and nothing else
    int hopper2Asked = 0;
    for (const sim::Transaction& t : rig.simulator.transactions()) {
        if (t.header == 84 && quint8(t.frame.at(4)) == 4)
            ++hopper2Asked;
        QVERIFY(!(t.header == 119 && quint8(t.frame.at(4)) == 2));
    }
    QCOMPARE(hopper2Asked, 2);
}

void TestSimulation::acceptanceWithAnExcludedDenomination()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);

    rig.changer.cashInStart(false, {1000});
    QCOMPARE(rig.simulator.inhibitMask(), quint16(0x0011));
    rig.changer.timer()->setInterval(20);

    rig.simulator.insertCoin(1);
    rig.simulator.insertCoin(3);
    rig.simulator.insertCoin(4);
    rig.simulator.insertCoin(5);
    bool other = false;
    QElapsedTimer elapsed;
    elapsed.start();
    while (total(received, 100, &other) < 2 && elapsed.elapsed() < 3000)
        received.wait(200);
    QCOMPARE(total(received, 100, &other), 2LL);
    // a few more polls: nothing from the inhibited positions
    QTest::qWait(100);
    QCOMPARE(total(received, 100, &other), 2LL);
    QVERIFY(!other);
    QVERIFY(rig.changer.timer()->isActive());

    // a coin that lands after the last poll is reported by the stop
    const int before = received.size();
    rig.simulator.insertCoin(1);
    rig.changer.cashInStop();
    QCOMPARE(received.size(), before + 1);
    QCOMPARE(received.last().at(0).value<SumDetailed>().denoms, (QMap<unsigned int, long long>{{100, 1}}));
    QVERIFY(!rig.changer.timer()->isActive());
    QCOMPARE(rig.simulator.inhibitMask(), quint16(0));
    QCOMPARE(rig.simulator.valueAccepted(), quint64(300));
    QCOMPARE(errors.size(), 0);

    const int polls = rig.headers(82);
    QTest::qWait(60);
    QCOMPARE(rig.headers(82), polls);
}

void TestSimulation::faultDuringAcceptance()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    rig.changer.cashInStart(true, {});
    rig.changer.timer()->setInterval(20);
    QCOMPARE(rig.simulator.inhibitMask(), quint16(0x0015));

    rig.simulator.setActivityBits(16);
    rig.simulator.setErrorStatus(1, 101);
    QVERIFY(errors.wait(3000));
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Приемник монет, заклинивание"));
    QVERIFY(!rig.changer.timer()->isActive());
    QVERIFY(TestChanger::resetPending());

    // polling has stopped: a coin now is never reported
    const int polls = rig.headers(82);
    rig.simulator.clearFaults();
    rig.simulator.insertCoin(1);
    QTest::qWait(100);
    QCOMPARE(rig.headers(82), polls);
    QCOMPARE(received.size(), 0);
    QCOMPARE(errors.size(), 1);
}

void TestSimulation::payoutByPattern()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    const QMap<int, int> before = rig.hopperCounts();
    const quint64 paidBefore = rig.simulator.coinsPaidOut();
    rig.simulator.clearTransactions();

    SumDetailed coins;
    coins.denoms = {{100, 3}, {1000, 2}, {500, 4}};
    const SumDetailed paid = rig.changer.cashOut(coins);
    QCOMPARE(paid.denoms, (QMap<unsigned int, long long>{{100, 3}, {1000, 2}, {2000, 0}}));
    QCOMPARE(rig.paidSince(before), paid.denoms);
    QCOMPARE(rig.simulator.coinsPaidOut() - paidBefore, quint64(paid.sum()));
    QCOMPARE(rig.headers(85), 1);
    for (const sim::Transaction& t : rig.simulator.transactions()) {
        if (t.header == 85)
            QCOMPARE(t.frame.mid(4, 4), QByteArray::fromHex("01030302"));
    }
    QCOMPARE(rig.changer.getLastCashOut().denoms, paid.denoms);
}

void TestSimulation::payoutByAmount_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("algorithm");
    QTest::newRow("minimum") << int(ECashControl::Minimum) << 0;
    QTest::newRow("optimal") << int(ECashControl::Optimal) << 2;
}

void TestSimulation::payoutByAmount()
{
    QFETCH(int, mode);
    QFETCH(int, algorithm);
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    const QMap<int, int> before = rig.hopperCounts();
    const quint64 paidBefore = rig.simulator.coinsPaidOut();
    rig.simulator.clearTransactions();

    const SumDetailed paid = rig.changer.cashOut(ECashControl::ChangeMode(mode), 3300);
    QCOMPARE(paid.sum(), 3300LL);
    QCOMPARE(rig.paidSince(before), paid.denoms);
    QCOMPARE(rig.simulator.coinsPaidOut() - paidBefore, quint64(3300));
    QCOMPARE(rig.headers(80), 1);
    QCOMPARE(rig.headers(125), 1);
    int algorithmSent = -1;
    for (const sim::Transaction& t : rig.simulator.transactions()) {
        if (t.header == 80)
            algorithmSent = quint8(t.frame.at(4));
        if (t.header == 125)
            QCOMPARE(t.frame.mid(4, 4), QByteArray::fromHex("e40c0000"));
    }
    QCOMPARE(algorithmSent, algorithm);
    if (algorithm == 0)
        QCOMPARE(withoutZeros(paid.denoms), (QMap<unsigned int, long long>{{100, 3}, {1000, 1}, {2000, 1}}));
}

void TestSimulation::payoutFromOneHopper()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    const QMap<int, int> before = rig.hopperCounts();
    rig.simulator.clearTransactions();
    const SumDetailed paid = rig.changer.cashOut(3, 4);
    QCOMPARE(paid.denoms, (QMap<unsigned int, long long>{{100, 0}, {1000, 4}, {2000, 0}}));
    QCOMPARE(rig.paidSince(before), paid.denoms);
    QCOMPARE(rig.simulator.hopperCount(3), 26);
    QCOMPARE(rig.simulator.auditCounter(80, 3), 4u);
    QCOMPARE(rig.headers(85), 1);
}

void TestSimulation::purge()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    rig.simulator.clearTransactions();
    const SumDetailed paid = rig.changer.purge(4);
    QCOMPARE(paid.denoms, (QMap<unsigned int, long long>{{100, 0}, {1000, 0}, {2000, 20}}));
    QCOMPARE(rig.simulator.hopperCount(4), 0);
    QCOMPARE(rig.simulator.auditCounter(87, 4), 20u);
    QCOMPARE(rig.headers(121), 1);
    const QList<CashControlUnit> units = rig.changer.getUnits();
    QCOMPARE(units.at(2).name, QStringLiteral("hopper4"));
    QCOMPARE(units.at(2).count, 0LL);
}

void TestSimulation::payoutWithItsAnswerLost()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    LosingChanger changer;
    changer.setAddress(55);
    changer.setSerial(&rig.port);
    changer.simulator = &rig.simulator;
    changer.loadCashUnits();
    const QMap<int, int> before = rig.hopperCounts();
    rig.simulator.clearTransactions();

    SumDetailed coins;
    coins.denoms = {{1000, 3}};
    changer.armed = true;
    try {
        changer.cashOut(coins);
        QFAIL("no exception");
    } catch (const CcTalk::Exception& e) {
        QCOMPARE(messageOf(e), QStringLiteral("Нет связи"));
    }
    QCOMPARE(rig.headers(85), 1);
    QCOMPARE(changer.sleeps, QList<int>{200});
    // the coins went out all the same, and the snapshot tells how many
    changer.waitNotState(8, 100, QStringLiteral("завершения выдачи монет"), false);
    const QMap<unsigned int, long long> three{{100, 0}, {1000, 3}, {2000, 0}};
    QCOMPARE(changer.getLastCashOut().denoms, three);
    QCOMPARE(rig.paidSince(before), three);
    QCOMPARE(rig.headers(85), 1);

    // nor is the amount payout repeated
    rig.simulator.clearTransactions();
    changer.armed = true;
    try {
        changer.cashOut(ECashControl::Minimum, 1000);
        QFAIL("no exception");
    } catch (const CcTalk::Exception& e) {
        QCOMPARE(messageOf(e), QStringLiteral("Нет связи"));
    }
    changer.waitNotState(8, 100, QStringLiteral("завершения выдачи монет"), false);
    QCOMPARE(rig.headers(80), 1);
    QCOMPARE(rig.headers(125), 1);
    QCOMPARE(changer.getLastCashOut().denoms,
             (QMap<unsigned int, long long>{{100, 0}, {1000, 1}, {2000, 0}}));
}

void TestSimulation::delayedErrorThenReset()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    rig.simulator.setActivityBits(16);
    rig.simulator.setErrorStatus(1, 104);
    rig.simulator.setSelfCheck(35, 2);
    try {
        rig.changer.checkError();
        QFAIL("no exception");
    } catch (const CcTalk::Exception& e) {
        QCOMPARE(messageOf(e), QStringLiteral("Приемник монет неисправен"));
    }
    QVERIFY(TestChanger::resetPending());

    // the device has forgotten the fault; the changer has not
    rig.simulator.clearFaults();
    rig.simulator.clearTransactions();
    try {
        rig.changer.checkState();
        QFAIL("no exception");
    } catch (const CcTalk::Exception& e) {
        QCOMPARE(messageOf(e), QStringLiteral("Приемник монет неисправен"));
    }
    QVERIFY(rig.simulator.transactions().isEmpty());

    int resetsBefore = -1;
    rig.simulator.withDevice([&](sim::Device& d) { resetsBefore = d.resets(); });
    rig.changer.sleeps.clear();
    testsupport::LogCapture log;
    rig.changer.checkState();
    const QList<quint8> headers = rig.headerLog();
    QVERIFY(headers.size() >= 6);
    QCOMPARE(headers.mid(0, 3), QList<quint8>({1, 254, 123}));
    QCOMPARE(rig.changer.sleeps.first(), 5000);
    // the device was still initialising after the reset: the changer waited for it
    QVERIFY(rig.changer.sleeps.count(1000) >= 1);
    int resetsAfter = -1;
    rig.simulator.withDevice([&](sim::Device& d) { resetsAfter = d.resets(); });
    QCOMPARE(resetsAfter, resetsBefore + 1);
    QVERIFY(!TestChanger::resetPending());
    const QStringList info = log.texts(QStringLiteral("INFO"));
    QCOMPARE(
        info.mid(0, 4),
        QStringList({QStringLiteral("Выполняется сброс"), QStringLiteral("Проверка состояния устройства"),
                     QStringLiteral("Проверка соединения с устройством"),
                     QStringLiteral("Выполняется ожидание завершения инициализации устройства...")}));

    rig.simulator.clearTransactions();
    rig.changer.checkState();
    QCOMPARE(rig.headers(1), 0);
}

void TestSimulation::waitTimesOut()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    rig.simulator.setActivityBits(4);
    rig.changer.sleeps.clear();
    testsupport::LogCapture log;
    try {
        rig.changer.getAcceptedCounters();
        QFAIL("no exception");
    } catch (const CcTalk::Exception& e) {
        QCOMPARE(messageOf(e), QStringLiteral("Таймаут ожидания завершения приема монет"));
    }
    QCOMPARE(rig.changer.sleeps, QVector<int>(10, 1000).toList());
    QCOMPARE(significant(log).last(), QStringLiteral("ERROR Таймаут ожидания завершения приема монет"));

    rig.simulator.clearFaults();
    const SumDetailed accepted = rig.changer.getAcceptedCounters();
    QCOMPARE(accepted.denoms, (QMap<unsigned int, long long>{{100, 0}, {200, 0}, {500, 0}, {1000, 0}}));
}

void TestSimulation::clock_data()
{
    QTest::addColumn<qint64>("offset");
    QTest::addColumn<bool>("set");
    QTest::newRow("hour ahead") << qint64(3600) << true;
    QTest::newRow("half a minute behind") << qint64(-30) << true;
    QTest::newRow("five seconds ahead") << qint64(5) << false;
    QTest::newRow("five seconds behind") << qint64(-5) << false;
}

void TestSimulation::clock()
{
    QFETCH(qint64, offset);
    QFETCH(bool, set);
    sim::Config config = recycler();
    config.clockOffsetSecs = offset;
    SimRig rig(config);
    QVERIFY(rig.opened);
    testsupport::LogCapture log;
    rig.changer.setTime();
    QCOMPARE(rig.headers(116), set ? 1 : 0);
    QCOMPARE(log.texts(QStringLiteral("INFO")).contains(QStringLiteral("Установка времени")), set);
    qint64 device = 0;
    rig.simulator.withDevice([&](sim::Device& d) { device = d.deviceClock(); });
    const qint64 host = QDateTime::currentSecsSinceEpoch();
    if (set)
        QVERIFY(qAbs(device - host) <= 1);
    else
        QVERIFY(qAbs(device - host - offset) <= 1);
}

void TestSimulation::balancesWrittenAndReadBack()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    rig.changer.setHopperCount(3, 123);
    rig.changer.setCashboxSum(45678);
    QCOMPARE(rig.simulator.hopperCount(3), 123);
    QCOMPARE(rig.simulator.cashbox(), 45678u);
    const QList<CashControlUnit> units = rig.changer.getUnits();
    QCOMPARE(rig.changer.getUnit(QStringLiteral("hopper3")).count, 123LL);
    QCOMPARE(units.last().sum, 45678LL);

    rig.changer.setHopperCount(1, 65535);
    rig.changer.setCashboxSum(0);
    rig.changer.getUnits();
    QCOMPARE(rig.changer.getUnit(QStringLiteral("hopper1")).count, 65535LL);
    QCOMPARE(rig.changer.getUnit(QStringLiteral("cashbox")).sum, 0LL);
}

void TestSimulation::refusedRequestsNeverReachTheDevice()
{
    SimRig rig;
    QVERIFY(rig.opened);
    rig.changer.init();
    const QMap<int, int> before = rig.hopperCounts();
    rig.simulator.clearTransactions();

    auto refused = [](const std::function<void()>& call) {
        try {
            call();
        } catch (const CcTalk::Exception& e) {
            return messageOf(e) == QStringLiteral("Некорректная сумма");
        }
        return false;
    };
    SumDetailed negative;
    negative.denoms = {{100, -1}};
    SumDetailed tooLong;
    tooLong.denoms = {{100, 61 * 255 + 1}};
    QVERIFY(refused([&] { rig.changer.cashOut(ECashControl::Minimum, -500); }));
    QVERIFY(refused([&] { rig.changer.cashOut(ECashControl::Optimal, 0x100000000LL); }));
    QVERIFY(refused([&] { rig.changer.cashOut(negative); }));
    QVERIFY(refused([&] { rig.changer.cashOut(tooLong); }));
    QVERIFY(refused([&] { rig.changer.cashOut(1, 61 * 255 + 1); }));

    for (quint8 header : {80, 85, 118, 120, 121, 125})
        QCOMPARE(rig.headers(header), 0);
    QVERIFY(rig.simulator.transactions().isEmpty());
    QCOMPARE(rig.hopperCounts(), before);
}

QTEST_GUILESS_MAIN(TestSimulation)
#include "tst_simulation.moc"
