// Money across faults, the driver object end to end against the simulated recycler on
// an in-process line in virtual time: coins taken while polling has failed, a
// denomination held by two hoppers, and payouts that fail midway.
#include "testdriver.h"

#include "simrig.h"

#include <QSignalSpy>
#include <QtTest>

using namespace plugintest;

namespace {

sim::HopperConfig hopper(const char* coin, int count, int capacity)
{
    return sim::HopperConfig::of(coin, count, capacity, true, 610030);
}

// Hoppers 1 and 2 both hold 10.00 coins, 2 and 5 of them; hopper 3 holds 5.00 and
// hopper 4 2.00, three coins each. All have room for 800.
sim::Config twinTens()
{
    sim::Config c = sim::Config::defaults();
    c.hoppers = {hopper("RU1K0A", 2, 800), hopper("RU1K0A", 5, 800), hopper("RU500A", 3, 800),
                 hopper("RU200A", 3, 800)};
    return c;
}

QMap<int, quint32> acceptedNow(const sim::Device& device)
{
    QMap<int, quint32> out;
    for (int p = 1; p <= 16; ++p) {
        out[p] = device.auditCounter(70, quint8(p));
    }
    return out;
}

// The driver connected to the simulator, with the coins it reported.
struct MoneyRig : SimRig
{
    explicit MoneyRig(const sim::Config& config = sim::Config::defaults()) : SimRig(config)
    {
        start();
        QObject::connect(&driver, &hw::BasicCashControl::received,
                         [this](SumDetailed sum) { reports << sum; });
    }

    void runPolls(qint64 msecs) { line.runTimer(driver.recorder->timer(), msecs); }

    // Starts an acceptance session; the coin counts at its start are kept.
    void startSession(bool fast)
    {
        countsAtStart = acceptedNow(device());
        driver.cashInStart(fast, {});
    }

    // Coins by denomination the simulator counted in through its positions since the session
    // started.
    QMap<unsigned int, long long> acceptedSinceStart()
    {
        QMap<unsigned int, long long> out;
        const QMap<int, QString> ids = device().config().coinIds;
        for (auto it = ids.cbegin(); it != ids.cend(); ++it) {
            const long long n = device().auditCounter(70, quint8(it.key())) - countsAtStart.value(it.key());
            if (n != 0) {
                out[sim::coinValue(it.value())] += n;
            }
        }
        return out;
    }

    // Starts a session in which a first coin at `position` lands and is reported.
    void startWithOneCoin(bool fast, int position, qint64 pollMsecs)
    {
        startSession(fast);
        device().insertCoin(position);
        runPolls(pollMsecs);
    }

    // Payout commands only: 85, 125, 121.
    int payouts() const { return line.countHeader(85) + line.countHeader(125) + line.countHeader(121); }

    long long total() const
    {
        long long sum = 0;
        for (const SumDetailed& report : reports) {
            sum += report.sum();
        }
        return sum;
    }

    QMap<unsigned int, long long> byDenomination() const
    {
        QMap<unsigned int, long long> out;
        for (const SumDetailed& report : reports) {
            for (auto it = report.denoms.cbegin(); it != report.denoms.cend(); ++it) {
                out[it.key()] += it.value();
            }
        }
        return out;
    }

    QList<SumDetailed> reports;
    QMap<int, quint32> countsAtStart;
};

// What came out of the simulator's hoppers since `before`, as the driver's log shows it.
QString paidText(const sim::Device& device, const QMap<int, quint32>& before)
{
    SumDetailed paid;
    for (int h = 1; h <= device.hopperCount(); ++h) {
        const long long n =
            device.auditCounter(80, quint8(h)) + device.auditCounter(87, quint8(h)) - before.value(h);
        paid.denoms[sim::coinValue(device.config().hoppers.at(h - 1).coinId)] += n;
    }
    return QStringLiteral("Выдано ") + paid.toString();
}

QMap<int, quint32> paidNow(const sim::Device& device)
{
    QMap<int, quint32> out;
    for (int h = 1; h <= device.hopperCount(); ++h) {
        out[h] = device.auditCounter(80, quint8(h)) + device.auditCounter(87, quint8(h));
    }
    return out;
}

QStringList warnings(const testsupport::LogCapture& log)
{
    return log.texts(QStringLiteral("WARN"));
}

} // namespace

class TestFaultMoney : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { RecordingChanger::setResetPending(false); }

    void hopperJamWhileAccepting();
    void lostPollAnswerWhileAccepting();
    void inhibitFailsOnADeadLink();
    void stalledSessionClosedBeforeTheReset();
    void twoHoppersOfOneDenominationMinimum();
    void twoHoppersOfOneDenominationOptimal();
    void payLargerThanBothHoldMovesNothing();
    void jamMidwayThroughAPayout();
    void lostPayoutAnswer();
    void jamMidwayThroughAPickup();
    void shortBalanceDuringAManualLoad();
    void shortCounterDuringAPayout();
    void shortCoinCountDuringAcceptance();
};

// A hopper jam flagged while coins come in: the poll that finds it fails, the acceptor is
// closed at once, and the stop reports the coin that was in flight across the failure.
void TestFaultMoney::hopperJamWhileAccepting()
{
    MoneyRig rig;
    QSignalSpy errors(&rig.driver, SIGNAL(error(QString)));
    rig.startWithOneCoin(false, 4, 1000);
    QCOMPARE(rig.total(), 1000LL);

    rig.device().insertCoin(4);
    rig.device().flagHopperJam(1);
    const int polls = rig.line.countHeader(82);
    rig.runPolls(250);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Хоппер 1, заклинивание"));
    QCOMPARE(rig.device().inhibitMask(), quint16(0));
    QVERIFY(!rig.driver.recorder->timer()->isActive());

    // The coin in flight lands; coins put in afterwards are refused; nothing polls.
    rig.line.advance(1000);
    rig.device().insertCoin(3);
    rig.device().insertCoin(4);
    rig.line.advance(1000);
    QCOMPARE(rig.line.countHeader(82), polls + 1);
    QCOMPARE(rig.acceptedSinceStart(), (QMap<unsigned int, long long>{{1000, 2}}));
    QCOMPARE(rig.total(), 1000LL);

    rig.driver.cashInStop();
    QCOMPARE(rig.byDenomination(), rig.acceptedSinceStart());
    QCOMPARE(rig.reports.size(), 2);
    QCOMPARE(rig.reports.last().toString(), QStringLiteral("10.00. номиналы: 10.00 x 1"));
    // The fault is still flagged at the stop's last check.
    QCOMPARE(errors.size(), 2);
    QCOMPARE(errors.at(1).at(0).toString(), QStringLiteral("Монетоприемник: Хоппер 1, заклинивание"));

    // Stopped for good: a second stop reports nothing more.
    rig.driver.cashInStop();
    QCOMPARE(rig.reports.size(), 2);
}

void TestFaultMoney::lostPollAnswerWhileAccepting()
{
    MoneyRig rig;
    QSignalSpy errors(&rig.driver, SIGNAL(error(QString)));
    rig.startWithOneCoin(true, 1, 600);
    QCOMPARE(rig.total(), 100LL);

    // Every attempt of the next poll loses its answer; a coin lands meanwhile.
    rig.line.dropAnswersTo(82, 5);
    rig.device().insertCoin(2);
    testsupport::LogCapture log;
    rig.runPolls(250);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("Монетоприемник: Нет связи"));
    QCOMPARE(rig.device().inhibitMask(), quint16(0));
    QVERIFY(warnings(log).isEmpty());
    rig.device().insertCoin(4);
    rig.line.advance(2000);
    QCOMPARE(rig.acceptedSinceStart(), (QMap<unsigned int, long long>{{100, 1}, {200, 1}}));

    rig.driver.cashInStop();
    QCOMPARE(rig.byDenomination(), rig.acceptedSinceStart());
    QCOMPARE(rig.reports.size(), 2);
    QCOMPARE(errors.size(), 1);
}

// The line is dead when the poll fails: the inhibit fails too, with a warning, and the
// acceptor keeps taking coins. Once the line is back the stop reports them all, once.
void TestFaultMoney::inhibitFailsOnADeadLink()
{
    MoneyRig rig;
    QSignalSpy errors(&rig.driver, SIGNAL(error(QString)));
    rig.startSession(false);
    rig.runPolls(400);
    rig.line.setSilent(true);
    testsupport::LogCapture log;
    rig.runPolls(250);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(warnings(log), QStringList{QStringLiteral("Прием монет не запрещен: Нет связи")});
    QVERIFY(!rig.driver.recorder->timer()->isActive());
    rig.line.setSilent(false);
    QVERIFY(rig.device().inhibitMask() != 0);
    rig.device().insertCoin(4);
    rig.device().insertCoin(3);
    rig.line.advance(1000);
    QCOMPARE(rig.total(), 0LL);

    rig.driver.cashInStop();
    QCOMPARE(rig.byDenomination(), (QMap<unsigned int, long long>{{500, 1}, {1000, 1}}));
    QCOMPARE(rig.byDenomination(), rig.acceptedSinceStart());
    QCOMPARE(rig.device().inhibitMask(), quint16(0));
}

// After a poll failed on a fault the next state check resets the device, which restarts
// its coin counters: the stalled session is closed before that.
void TestFaultMoney::stalledSessionClosedBeforeTheReset()
{
    MoneyRig rig;
    rig.startSession(false);
    rig.device().insertCoin(4);
    rig.device().flagHopperJam(2);
    rig.runPolls(250);
    QVERIFY(RecordingChanger::resetPending());
    rig.line.advance(1000);

    // The host starts a new session instead of stopping the old one.
    const int resets = rig.device().resets();
    rig.driver.cashInStart(false, {});
    QCOMPARE(rig.device().resets(), resets + 1);
    QCOMPARE(rig.byDenomination(), (QMap<unsigned int, long long>{{1000, 1}}));
    rig.device().insertCoin(1);
    rig.runPolls(1000);
    rig.driver.cashInStop();
    QCOMPARE(rig.byDenomination(), rig.acceptedSinceStart());
    QCOMPARE(rig.total(), 1100LL);

    // The same when the host connects again instead.
    rig.driver.cashInStart(false, {});
    rig.device().insertCoin(3);
    rig.device().flagHopperJam(4);
    rig.runPolls(250);
    rig.line.advance(1000);
    rig.driver.connect();
    QCOMPARE(rig.device().resets(), resets + 2);
    QCOMPARE(rig.byDenomination(), rig.acceptedSinceStart());
    QCOMPARE(rig.total(), 1600LL);
}

void TestFaultMoney::twoHoppersOfOneDenominationMinimum()
{
    MoneyRig rig(twinTens());
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Minimum, 7000));
    const SumDetailed seven = rig.driver.cashOut(ECashControl::Minimum, 7000);
    QCOMPARE(rig.dataOf(85), QList<QByteArray>{QByteArray::fromHex("01020205")});
    QCOMPARE(seven.sum(), 7000LL);
    QCOMPARE(seven.denoms.value(1000), 7LL);
    QCOMPARE(rig.device().hopperCount(1), 0);
    QCOMPARE(rig.device().hopperCount(2), 0);

    // In unit order, each hopper at most what it holds; then the rest of the second.
    MoneyRig again(twinTens());
    QCOMPARE(again.driver.cashOut(ECashControl::Minimum, 3000).sum(), 3000LL);
    QCOMPARE(again.dataOf(85), QList<QByteArray>{QByteArray::fromHex("01020201")});
    QVERIFY(again.driver.cashOutCheck(ECashControl::Minimum, 4000));
    QCOMPARE(again.driver.cashOut(ECashControl::Minimum, 4000).denoms.value(1000), 4LL);
    QCOMPARE(again.dataOf(85),
             QList<QByteArray>({QByteArray::fromHex("01020201"), QByteArray::fromHex("0204")}));
    QCOMPARE(again.device().hopperCount(1), 0);
    QCOMPARE(again.device().hopperCount(2), 0);
    // No 10.00 coin is left: 20.00 would need 1.00 coins besides the 5.00 and 2.00 ones.
    QVERIFY(!again.driver.cashOutCheck(ECashControl::Minimum, 2000));
}

void TestFaultMoney::twoHoppersOfOneDenominationOptimal()
{
    MoneyRig rig(twinTens());
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Optimal, 3000));
    const SumDetailed first = rig.driver.cashOut(ECashControl::Optimal, 3000);
    // The fuller hopper pays first.
    QCOMPARE(rig.dataOf(85), QList<QByteArray>{QByteArray::fromHex("0203")});
    QCOMPARE(first.toString(), QStringLiteral("30.00. номиналы: 10.00 x 3"));
    QCOMPARE(rig.device().hopperCount(1), 2);
    QCOMPARE(rig.device().hopperCount(2), 2);

    // Both now as full: unit order.
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Optimal, 3000));
    const SumDetailed second = rig.driver.cashOut(ECashControl::Optimal, 3000);
    QCOMPARE(rig.dataOf(85),
             QList<QByteArray>({QByteArray::fromHex("0203"), QByteArray::fromHex("01020201")}));
    QCOMPARE(second.denoms.value(1000), 3LL);
    QCOMPARE(rig.device().hopperCount(1), 0);
    QCOMPARE(rig.device().hopperCount(2), 1);
    QCOMPARE(rig.line.countHeader(85), 2);
}

void TestFaultMoney::payLargerThanBothHoldMovesNothing()
{
    MoneyRig rig(twinTens());
    // 7 x 10.00 + 3 x 5.00 + 3 x 2.00 = 91.00 in all.
    for (ECashControl::ChangeMode mode : {ECashControl::Minimum, ECashControl::Optimal}) {
        QVERIFY(!rig.driver.cashOutCheck(mode, 9200));
        QCOMPARE(thrownText([&] { rig.driver.cashOut(mode, 9200); }),
                 QStringLiteral("Монетоприемник: Невозможно выдать сумму"));
    }
    QCOMPARE(rig.payouts(), 0);
    QCOMPARE(rig.device().hopperCount(1), 2);
    QCOMPARE(rig.device().hopperCount(2), 5);

    // Everything the hoppers hold is still paid in full.
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Minimum, 9100));
    QCOMPARE(rig.driver.cashOut(ECashControl::Minimum, 9100).sum(), 9100LL);
    QCOMPARE(rig.dataOf(85), QList<QByteArray>{QByteArray::fromHex("0102020503030403")});
}

// A hopper jams after four coins: the call fails with the fault, and one warning tells
// what came out, as the simulator counted it.
void TestFaultMoney::jamMidwayThroughAPayout()
{
    sim::Config config = sim::Config::defaults();
    config.hoppers[0].count = 20;
    MoneyRig rig(config);
    const QMap<int, quint32> before = paidNow(rig.device());
    const qint64 perCoin = config.payoutMsPerCoin;
    rig.line.setRequestHook([&](const QByteArray& frame) {
        if (frame.size() > 3 && quint8(frame.at(3)) == 85) {
            rig.line.at(rig.line.now() + 4 * perCoin + perCoin / 2, [&] { rig.device().jamHopper(1); });
        }
    });
    testsupport::LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Minimum, 10000); }),
             QStringLiteral("Монетоприемник: Хоппер 1, заклинивание; выдано 40.00"));
    QCOMPARE(rig.dataOf(85), QList<QByteArray>{QByteArray::fromHex("010A")});
    QCOMPARE(rig.device().auditCounter(80, 1) - before.value(1), 4u);
    QCOMPARE(warnings(log), QStringList{paidText(rig.device(), before)});
    QCOMPARE(warnings(log), QStringList{QStringLiteral("Выдано 40.00. номиналы: 10.00 x 4")});
}

// The payout's answer is lost: the command is not sent again, the device pays anyway,
// and what came out is the change asked for: the cashier gets the change, not an error.
void TestFaultMoney::lostPayoutAnswer()
{
    MoneyRig rig;
    const QMap<int, quint32> before = paidNow(rig.device());
    rig.line.dropAnswersTo(85, 1);
    testsupport::LogCapture log;
    const SumDetailed paid = rig.driver.cashOut(ECashControl::Minimum, 1800);
    QCOMPARE(paid.sum(), 1800LL);
    QCOMPARE(rig.line.countHeader(85), 1);
    QCOMPARE(rig.device().coinsQueuedForPayout(), 0);
    QCOMPARE(QStringLiteral("Выдано ") + paid.toString(), paidText(rig.device(), before));
    QCOMPARE(warnings(log),
             QStringList{QStringLiteral("Выдача выполнена полностью, несмотря на ошибку: Нет связи")});
    QCOMPARE(significant(log).last(),
             QStringLiteral("INFO Выдано 18.00. номиналы: 1.00 x 1, 2.00 x 1, 5.00 x 1, 10.00 x 1"));
}

void TestFaultMoney::jamMidwayThroughAPickup()
{
    MoneyRig rig;
    const QMap<int, quint32> before = paidNow(rig.device());
    const qint64 perCoin = rig.line.config().payoutMsPerCoin;
    rig.line.setRequestHook([&](const QByteArray& frame) {
        if (frame.size() > 3 && quint8(frame.at(3)) == 85) {
            rig.line.at(rig.line.now() + 2 * perCoin + perCoin / 2, [&] { rig.device().jamHopper(3); });
        }
    });
    testsupport::LogCapture log;
    QCOMPARE(thrownText([&] {
                 rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::DispensePickupSum, 1000);
             }),
             QStringLiteral("Монетоприемник: Хоппер 3, заклинивание; выдано 4.00"));
    QCOMPARE(warnings(log), QStringList{paidText(rig.device(), before)});
    QCOMPARE(warnings(log), QStringList{QStringLiteral("Выдано 4.00. номиналы: 2.00 x 2")});
}

namespace {

// The answer to the n-th request with this header (from 1) loses its last data byte, its
// length and checksum kept right.
void shortenAnswerTo(SimRig& rig, quint8 header, int n)
{
    rig.line.setRequestHook([&rig, header, n, seen = 0](const QByteArray& frame) mutable {
        if (frame.size() > 3 && quint8(frame.at(3)) == header && ++seen == n)
            rig.line.shortenNext();
    });
}

} // namespace

// The hopper's balance comes back a byte short: it is asked again, and the count written
// is the device's own plus the coins loaded, not the loaded coins alone.
void TestFaultMoney::shortBalanceDuringAManualLoad()
{
    MoneyRig rig;
    const int held = rig.device().hopperCount(1);
    QVERIFY(held > 0);
    shortenAnswerTo(rig, 119, 1);
    rig.forget();
    testsupport::LogCapture log;
    rig.driver.loan(QStringLiteral("hopper1"), ECashControl::ManualLoad, 5000);
    QCOMPARE(rig.device().hopperCount(1), held + 5);
    QCOMPARE(rig.count(119), 2);
    QCOMPARE(warnings(log),
             QStringList{QStringLiteral(
                 "Ответ неверной длины на команду reqHopperBalance (119): байт данных: 7, ожидалось: 8")});
}

// A dispense counter read after the payout comes back short: asked again, the payout is
// the coins that came out, not billions.
void TestFaultMoney::shortCounterDuringAPayout()
{
    MoneyRig rig;
    // Each hopper's two counters are read before the payout and again after it.
    int hoppers = 0;
    for (const CashControlUnit& unit : rig.driver.getUnits())
        hoppers += unit.name.startsWith(QStringLiteral("hopper")) ? 1 : 0;
    shortenAnswerTo(rig, 86, 2 * hoppers + 1);
    testsupport::LogCapture log;
    const SumDetailed paid = rig.driver.cashOut(ECashControl::Minimum, 1800);
    QCOMPARE(paid.sum(), 1800LL);
    QCOMPARE(rig.line.countHeader(85), 1);
    QCOMPARE(warnings(log),
             QStringList{QStringLiteral(
                 "Ответ неверной длины на команду reqAuditCounter (86): байт данных: 3, ожидалось: 4")});
}

// The coin counts come back short while coins come in: asked again, not read as counters
// that restarted, and every coin is reported once.
void TestFaultMoney::shortCoinCountDuringAcceptance()
{
    MoneyRig rig;
    rig.startWithOneCoin(false, 4, 1000);
    rig.device().insertCoin(3);
    shortenAnswerTo(rig, 82, 1);
    testsupport::LogCapture log;
    rig.runPolls(1000);
    rig.driver.cashInStop();
    QCOMPARE(warnings(log),
             QStringList{QStringLiteral(
                 "Ответ неверной длины на команду reqCoinsInByType (82): байт данных: 31, ожидалось: 32")});
    QCOMPARE(rig.byDenomination(), rig.acceptedSinceStart());
    QCOMPARE(rig.total(), 1500LL);
}

QTEST_GUILESS_MAIN(TestFaultMoney)
#include "tst_faultmoney.moc"
