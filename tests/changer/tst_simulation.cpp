#include "cctalk/exception.h"
#include "sim/device.h"
#include "support/columns.h"
#include "support/logcapture.h"
#include "support/simline.h"
#include "testchanger.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QtTest>

using namespace changertest;

namespace {

// Has the line lose the answer to the next payout command the changer sends.
class LosingChanger : public RecordingChanger
{
public:
    testsupport::SimLine* line = nullptr;
    bool armed = false;

    CcTalk::Response exec(const CcTalk::Request& request) override
    {
        const int header = request.getHeader();
        if (armed && (header == 85 || header == 125)) {
            armed = false;
            line->dropAnswers(1);
        }
        return Changer::exec(request);
    }
};

sim::HopperConfig hopper(const char* coin, int count, int capacity, bool enabled)
{
    return sim::HopperConfig::of(coin, count, capacity, enabled, 610020);
}

// Positions: 1 and 5 take 1.00 coins, 2 takes 5.00, 3 takes 10.00, 4 takes 2.00.
// Hoppers: 1 for 1.00, 2 for 5.00 (switched off), 3 for 10.00, 4 for 20.00 (a coin
// no position recognises). The device's own timings are those of the real one.
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
    return c;
}

// The changer against the simulated recycler on an in-process line: its pauses and
// its waits for answers move the line's virtual clock.
struct SimRig
{
    explicit SimRig(const sim::Config& config = recycler()) : line(config)
    {
        RecordingChanger::setResetPending(false);
        attach(changer);
    }
    ~SimRig() { RecordingChanger::setResetPending(false); }

    void attach(RecordingChanger& c)
    {
        c.setAddress(55);
        c.setSerial(&line);
        c.runOn(line);
    }

    sim::Device& device() { return line.device(); }
    int headers(quint8 header) const { return line.countHeader(header); }
    QList<quint8> headerLog() const
    {
        QList<quint8> out;
        for (const sim::Transaction& t : line.transactions())
            out << t.header;
        return out;
    }
    // Value that left the hoppers per hopper since `before`.
    QMap<unsigned int, long long> paidSince(const QMap<int, int>& before) const
    {
        QMap<unsigned int, long long> paid;
        const unsigned int denom[] = {0, 100, 500, 1000, 2000};
        for (auto it = before.cbegin(); it != before.cend(); ++it)
            paid[denom[it.key()]] += it.value() - line.device().hopperCount(it.key());
        return paid;
    }
    QMap<int, int> hopperCounts() const
    {
        QMap<int, int> counts;
        for (int h : {1, 3, 4})
            counts[h] = line.device().hopperCount(h);
        return counts;
    }

    testsupport::SimLine line;
    RecordingChanger changer;
};

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
    void cleanup() { RecordingChanger::setResetPending(false); }

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
    testsupport::LogCapture log;
    rig.changer.init();

    const QList<CashControlUnit> units = rig.changer.getUnits();
    QCOMPARE(units.size(), 4);
    QCOMPARE(coinsOf(units.at(0)), QStringLiteral("hopper1: 50 x 100"));
    QCOMPARE(units.at(0).capacity, 500);
    QCOMPARE(coinsOf(units.at(1)), QStringLiteral("hopper3: 30 x 1000"));
    QCOMPARE(coinsOf(units.at(2)), QStringLiteral("hopper4: 20 x 2000"));
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
    for (const sim::Transaction& t : rig.line.transactions()) {
        if (t.header == 84 && quint8(t.frame.at(4)) == 4)
            ++hopper2Asked;
        QVERIFY(!(t.header == 119 && quint8(t.frame.at(4)) == 2));
    }
    QCOMPARE(hopper2Asked, 2);
}

void TestSimulation::acceptanceWithAnExcludedDenomination()
{
    SimRig rig;
    rig.changer.init();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);

    rig.changer.cashInStart(false, {1000});
    QCOMPARE(rig.device().inhibitMask(), quint16(0x0011));

    rig.device().insertCoin(1);
    rig.device().insertCoin(3);
    rig.device().insertCoin(4);
    rig.device().insertCoin(5);
    bool other = false;
    // the coins land 400 ms after insertion; polling goes on a while after
    rig.line.runTimer(rig.changer.timer(), 2000);
    QCOMPARE(total(received, 100, &other), 2LL);
    QVERIFY(!other);
    QVERIFY(rig.changer.timer()->isActive());
    QVERIFY(rig.headers(82) >= 5);

    // a coin that lands after the last poll is reported by the stop
    const int before = received.size();
    rig.device().insertCoin(1);
    rig.line.advance(500);
    rig.changer.cashInStop();
    QCOMPARE(received.size(), before + 1);
    QCOMPARE(received.last().at(0).value<SumDetailed>().denoms, (QMap<unsigned int, long long>{{100, 1}}));
    QVERIFY(!rig.changer.timer()->isActive());
    QCOMPARE(rig.device().inhibitMask(), quint16(0));
    QCOMPARE(rig.device().valueAccepted(), quint64(300));
    QCOMPARE(errors.size(), 0);

    const int polls = rig.headers(82);
    rig.line.runTimer(rig.changer.timer(), 1000);
    QCOMPARE(rig.headers(82), polls);
}

void TestSimulation::faultDuringAcceptance()
{
    SimRig rig;
    rig.changer.init();
    QSignalSpy received(&rig.changer, &CcTalk::Changer::received);
    QSignalSpy errors(&rig.changer, &CcTalk::Changer::error);
    rig.changer.cashInStart(true, {});
    QCOMPARE(rig.device().inhibitMask(), quint16(0x0015));
    rig.line.runTimer(rig.changer.timer(), 1000);
    QCOMPARE(errors.size(), 0);

    rig.device().setActivityBits(16);
    rig.device().setErrorStatus(1, 101);
    rig.line.runTimer(rig.changer.timer(), 1000);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Приемник монет, заклинивание"));
    QVERIFY(!rig.changer.timer()->isActive());
    QVERIFY(RecordingChanger::resetPending());

    // polling has stopped and the acceptor is closed: a coin now is refused
    QCOMPARE(rig.device().inhibitMask(), quint16(0));
    const int polls = rig.headers(82);
    rig.device().clearFaults();
    rig.device().setActivityBits(0);
    rig.device().setErrorStatus(0, 0);
    rig.device().insertCoin(1);
    rig.line.runTimer(rig.changer.timer(), 2000);
    QCOMPARE(rig.headers(82), polls);
    QCOMPARE(received.size(), 0);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(rig.device().coinsInByType(1), quint16(0));

    // the stop still reads the counters once, and finds nothing new
    rig.changer.cashInStop();
    QCOMPARE(rig.headers(82), polls + 1);
    QCOMPARE(received.size(), 0);
    QCOMPARE(errors.size(), 1);
}

void TestSimulation::payoutByPattern()
{
    SimRig rig;
    rig.changer.init();
    const QMap<int, int> before = rig.hopperCounts();
    const quint64 paidBefore = rig.device().coinsPaidOut();
    rig.line.clearTransactions();

    SumDetailed coins;
    coins.denoms = {{100, 3}, {1000, 2}, {500, 4}};
    const SumDetailed paid = rig.changer.cashOut(coins);
    QCOMPARE(paid.denoms, (QMap<unsigned int, long long>{{100, 3}, {1000, 2}, {2000, 0}}));
    QCOMPARE(rig.paidSince(before), paid.denoms);
    QCOMPARE(rig.device().coinsPaidOut() - paidBefore, quint64(paid.sum()));
    QCOMPARE(rig.headers(85), 1);
    for (const sim::Transaction& t : rig.line.transactions()) {
        if (t.header == 85)
            QCOMPARE(t.frame.mid(4, 4), QByteArray::fromHex("01030302"));
    }
    QCOMPARE(rig.changer.getLastCashOut().denoms, paid.denoms);
}

void TestSimulation::payoutByAmount_data()
{
    testsupport::columns<int, int>("mode", "algorithm");
    QTest::newRow("minimum") << int(ECashControl::Minimum) << 0;
    QTest::newRow("optimal") << int(ECashControl::Optimal) << 2;
}

void TestSimulation::payoutByAmount()
{
    QFETCH(int, mode);
    QFETCH(int, algorithm);
    SimRig rig;
    rig.changer.init();
    const QMap<int, int> before = rig.hopperCounts();
    const quint64 paidBefore = rig.device().coinsPaidOut();
    rig.line.clearTransactions();

    const SumDetailed paid = rig.changer.cashOut(ECashControl::ChangeMode(mode), 3300);
    QCOMPARE(paid.sum(), 3300LL);
    QCOMPARE(rig.paidSince(before), paid.denoms);
    QCOMPARE(rig.device().coinsPaidOut() - paidBefore, quint64(3300));
    QCOMPARE(rig.headers(80), 1);
    QCOMPARE(rig.headers(125), 1);
    int algorithmSent = -1;
    for (const sim::Transaction& t : rig.line.transactions()) {
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
    rig.changer.init();
    const QMap<int, int> before = rig.hopperCounts();
    rig.line.clearTransactions();
    const SumDetailed paid = rig.changer.cashOut(3, 4);
    QCOMPARE(paid.denoms, (QMap<unsigned int, long long>{{100, 0}, {1000, 4}, {2000, 0}}));
    QCOMPARE(rig.paidSince(before), paid.denoms);
    QCOMPARE(rig.device().hopperCount(3), 26);
    QCOMPARE(rig.device().auditCounter(80, 3), 4u);
    QCOMPARE(rig.headers(85), 1);
}

void TestSimulation::purge()
{
    SimRig rig;
    rig.changer.init();
    rig.line.clearTransactions();
    const SumDetailed paid = rig.changer.purge(4);
    QCOMPARE(paid.denoms, (QMap<unsigned int, long long>{{100, 0}, {1000, 0}, {2000, 20}}));
    QCOMPARE(rig.device().hopperCount(4), 0);
    QCOMPARE(rig.device().auditCounter(87, 4), 20u);
    QCOMPARE(rig.headers(121), 1);
    const QList<CashControlUnit> units = rig.changer.getUnits();
    QCOMPARE(units.at(2).name, QStringLiteral("hopper4"));
    QCOMPARE(units.at(2).count, 0LL);
}

void TestSimulation::payoutWithItsAnswerLost()
{
    SimRig rig;
    rig.changer.init();
    LosingChanger changer;
    rig.attach(changer);
    changer.line = &rig.line;
    changer.loadCashUnits();
    const QMap<int, int> before = rig.hopperCounts();
    rig.line.clearTransactions();

    SumDetailed coins;
    coins.denoms = {{1000, 3}};
    changer.armed = true;
    // the coins went out all the same, as planned: the payout is a payout
    const QMap<unsigned int, long long> three{{100, 0}, {1000, 3}, {2000, 0}};
    QCOMPARE(changer.cashOut(coins).denoms, three);
    QCOMPARE(rig.headers(85), 1);
    QCOMPARE(changer.sleeps.first(), 200);
    QCOMPARE(rig.paidSince(before), three);

    // nor is the amount payout repeated
    rig.line.clearTransactions();
    changer.armed = true;
    QCOMPARE(changer.cashOut(ECashControl::Minimum, 1000).denoms,
             (QMap<unsigned int, long long>{{100, 0}, {1000, 1}, {2000, 0}}));
    QCOMPARE(rig.headers(80), 1);
    QCOMPARE(rig.headers(125), 1);
}

void TestSimulation::delayedErrorThenReset()
{
    // Initialisation outlasts the changer's pause after the reset.
    sim::Config config = recycler();
    config.resetInitMs = 7000;
    SimRig rig(config);
    rig.changer.init();
    rig.device().setActivityBits(16);
    rig.device().setErrorStatus(1, 104);
    rig.device().setSelfCheck(35, 2);
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkError(); }),
             QStringLiteral("Приемник монет неисправен"));
    QVERIFY(RecordingChanger::resetPending());

    // the device has forgotten the fault; the changer has not
    rig.device().clearFaults();
    rig.line.clearTransactions();
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.checkState(); }),
             QStringLiteral("Приемник монет неисправен"));
    QVERIFY(rig.line.transactions().isEmpty());

    int resetsBefore = -1;
    resetsBefore = rig.device().resets();
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
    resetsAfter = rig.device().resets();
    QCOMPARE(resetsAfter, resetsBefore + 1);
    QVERIFY(!RecordingChanger::resetPending());
    const QStringList info = log.texts(QStringLiteral("INFO"));
    QCOMPARE(
        info.mid(0, 4),
        QStringList({QStringLiteral("Выполняется сброс"), QStringLiteral("Проверка состояния устройства"),
                     QStringLiteral("Проверка соединения с устройством"),
                     QStringLiteral("Выполняется ожидание завершения инициализации устройства...")}));

    rig.line.clearTransactions();
    rig.changer.checkState();
    QCOMPARE(rig.headers(1), 0);
}

void TestSimulation::waitTimesOut()
{
    SimRig rig;
    rig.changer.init();
    rig.device().setActivityBits(4);
    rig.changer.sleeps.clear();
    testsupport::LogCapture log;
    QCOMPARE(thrownText<CcTalk::Exception>([&] { rig.changer.getAcceptedCounters(); }),
             QStringLiteral("Таймаут ожидания завершения приема монет"));
    QCOMPARE(rig.changer.sleeps, QVector<int>(10, 1000).toList());
    QCOMPARE(significant(log).last(), QStringLiteral("ERROR Таймаут ожидания завершения приема монет"));

    rig.device().clearFaults();
    const SumDetailed accepted = rig.changer.getAcceptedCounters();
    QCOMPARE(accepted.denoms, (QMap<unsigned int, long long>{{100, 0}, {200, 0}, {500, 0}, {1000, 0}}));
}

void TestSimulation::clock_data()
{
    testsupport::columns<qint64, bool>("offset", "set");
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
    testsupport::LogCapture log;
    rig.changer.setTime();
    QCOMPARE(rig.headers(116), set ? 1 : 0);
    QCOMPARE(log.texts(QStringLiteral("INFO")).contains(QStringLiteral("Установка времени")), set);
    // The device runs on the host's clock plus its offset; whole seconds on both sides.
    const qint64 hostBefore = QDateTime::currentSecsSinceEpoch();
    const qint64 device = rig.device().deviceClock() - (set ? 0 : offset);
    const qint64 hostAfter = QDateTime::currentSecsSinceEpoch();
    QVERIFY2(device >= hostBefore - 1 && device <= hostAfter + 1,
             qPrintable(QStringLiteral("%1 not within %2..%3").arg(device).arg(hostBefore).arg(hostAfter)));
}

void TestSimulation::balancesWrittenAndReadBack()
{
    SimRig rig;
    rig.changer.init();
    rig.changer.setHopperCount(3, 123);
    rig.changer.setCashboxSum(45678);
    QCOMPARE(rig.device().hopperCount(3), 123);
    QCOMPARE(rig.device().cashbox(), 45678u);
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
    rig.changer.init();
    const QMap<int, int> before = rig.hopperCounts();
    rig.line.clearTransactions();

    auto refused = [](const std::function<void()>& call) {
        return thrownText<CcTalk::Exception>(call) == QStringLiteral("Некорректная сумма");
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
    QVERIFY(rig.line.transactions().isEmpty());
    QCOMPARE(rig.hopperCounts(), before);
}

QTEST_GUILESS_MAIN(TestSimulation)
#include "tst_simulation.moc"
