#include "simrig.h"
#include "testdriver.h"

#include "support/columns.h"
#include "support/frames.h"

#include <QtTest>

#include <limits>

using namespace plugintest;
using testsupport::hex;
using testsupport::LogCapture;

namespace {

using Denoms = QMap<unsigned int, long long>;

// Headers of the commands that move coins or change what the device counts.
const quint8 payoutHeaders[] = {85, 125, 121, 120, 118};

int movingCommands(const Recycler& model)
{
    int n = 0;
    for (quint8 header : payoutHeaders) {
        n += model.count(header);
    }
    return n;
}

// Hopper counts 1 to 3, then the cashbox's sum.
QList<long long> contents(SimRig& rig)
{
    QList<long long> out;
    for (int count : rig.hopperCounts())
        out << count;
    out << static_cast<long long>(rig.device().cashbox());
    return out;
}

QString errorsLogged(const LogCapture& log)
{
    return log.texts(QStringLiteral("ERROR")).join(QLatin1Char('|'));
}

} // namespace

class TestMovements : public QObject
{
    Q_OBJECT

private slots:
    void init() { RecordingChanger::setResetPending(false); }
    void cleanup() { RecordingChanger::setResetPending(false); }

    void cashOutCheckTrueOnlyForExactMatch();
    void cashOutCheckFailsOnDeviceFault();
    void cashOutCheckNegativeSendsNothing();

    void cashOut_data();
    void cashOut();
    void cashOutImpossibleSumPaysNothing();
    void paymentCountedWrong_data();
    void paymentCountedWrong();
    void cashOutNegativeLogsTheRequest();
    void cashOutPatternTooLongForOneFrame();

    void loanOtherOperationOnlyChecks();
    void loanUnknownUnit();
    void loanManual();
    void loanManualUpTo65535();
    void loanManualStartsFromTheDeviceCount();

    void pickup_data();
    void pickup();
    void pickupSumLargerThanHopperTakesAll();
    void pickupOtherOperationDoesNothing();
    void pickupByHandStartsFromTheDeviceCount();
    void pickupAllFromCashboxReadsTheDeviceSum();

    void refusedRequestSendsNothing_data();
    void refusedRequestSendsNothing();

    void counterOfAcceptedCoins();
    void counterOfDispensedCoins();
    void counterOfUnknownType();
};

void TestMovements::cashOutCheckTrueOnlyForExactMatch()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Optimal, 1500));
    QCOMPARE(significant(log).value(0), QStringLiteral("INFO Тестирование выдачи 15.00, режим оптимальный"));
    // The state check runs, then the units are read again.
    QVERIFY(rig.count(254) >= 1);
    QCOMPARE(rig.count(117), 1);

    log.clear();
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, 1550));
    QCOMPARE(significant(log).value(0), QStringLiteral("INFO Тестирование выдачи 15.50, режим минимум"));
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Optimal, 1550));
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Minimum, 0));
    // Everything the hoppers hold, and one coin more.
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Minimum, 25000));
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, 25100));
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, std::numeric_limits<long long>::max()));

    QCOMPARE(rig.moves(), 0);
    QCOMPARE(rig.count(80), 0);
    QCOMPARE(rig.device().hopperCount(1), 10);
    QCOMPARE(rig.device().hopperCount(2), 20);
    QCOMPARE(rig.device().hopperCount(3), 50);
}

void TestMovements::cashOutCheckFailsOnDeviceFault()
{
    StandardRig rig;
    rig.connectDevice();
    rig.device().setActivityBits(16);
    rig.device().setErrorStatus(1, 2);
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOutCheck(ECashControl::Optimal, 1500); }),
             QStringLiteral("Монетоприемник: Хоппер 1, заклинивание"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Хоппер 1, заклинивание"));
    QCOMPARE(rig.count(117), 0);
    QCOMPARE(rig.moves(), 0);
}

void TestMovements::cashOutCheckNegativeSendsNothing()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Optimal, -500));
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, std::numeric_limits<long long>::min()));
    QVERIFY(rig.line.transactions().isEmpty());
    QCOMPARE(significant(log),
             QStringList({QStringLiteral("INFO Тестирование выдачи -5.00, режим оптимальный"),
                          QStringLiteral("INFO Тестирование выдачи -92233720368547758.08, режим минимум")}));
}

// 15.00 paid in either mode: the pattern sent, the coins that came out, the log.
void TestMovements::cashOut_data()
{
    testsupport::columns<int, QByteArray, QString, Denoms, QString, QList<int>>("mode", "pattern", "modeName",
                                                                                "denoms", "paid", "hoppers");
    // The fuller smaller hoppers pay: 500 x 2 and 100 x 5.
    QTest::newRow("optimal") << int(ECashControl::Optimal) << hex("02020305") << QStringLiteral("оптимальный")
                             << Denoms{{100, 5}, {500, 2}, {1000, 0}}
                             << QStringLiteral("15.00. номиналы: 1.00 x 5, 5.00 x 2")
                             << QList<int>{10, 18, 45};
    QTest::newRow("minimum") << int(ECashControl::Minimum) << hex("01010201") << QStringLiteral("минимум")
                             << Denoms{{500, 1}, {1000, 1}}
                             << QStringLiteral("15.00. номиналы: 5.00 x 1, 10.00 x 1")
                             << QList<int>{9, 19, 50};
}

void TestMovements::cashOut()
{
    QFETCH(int, mode);
    QFETCH(QByteArray, pattern);
    QFETCH(QString, modeName);
    QFETCH(Denoms, denoms);
    QFETCH(QString, paid);
    QFETCH(QList<int>, hoppers);
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed sum = rig.driver.cashOut(ECashControl::ChangeMode(mode), 1500);
    QCOMPARE(rig.dataOf(85), QList<QByteArray>({pattern}));
    QCOMPARE(rig.count(125), 0);
    QCOMPARE(sum.sum(), 1500LL);
    for (auto it = denoms.cbegin(); it != denoms.cend(); ++it)
        QCOMPARE(sum.denoms.value(it.key()), it.value());
    QCOMPARE(sum.toString(), paid);
    QCOMPARE(rig.hopperCounts(), hoppers);
    const QStringList lines = significant(log);
    QCOMPARE(lines.first(), QStringLiteral("INFO Выдача монет 15.00, режим ") + modeName);
    QCOMPARE(lines.last(), QStringLiteral("INFO Выдано ") + paid);
    QVERIFY(log.texts(QStringLiteral("ERROR")).isEmpty());
    // The state check comes before the payout.
    const int firstPoll = rig.requests().indexOf(hex("FE"));
    const int payout = rig.requests().indexOf(hex("55") + pattern);
    QVERIFY(firstPoll >= 0);
    QVERIFY(firstPoll < payout);
}

void TestMovements::cashOutImpossibleSumPaysNothing()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Optimal, 1550); }),
             QStringLiteral("Монетоприемник: Невозможно выдать сумму"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Невозможно выдать сумму"));
    QCOMPARE(significant(log).first(), QStringLiteral("INFO Выдача монет 15.50, режим оптимальный"));
    QCOMPARE(rig.moves(), 0);
    QCOMPARE(rig.count(86), 0);
}

// A payout the device carried out wrongly or whose command it refused: the host gets
// the error with what came out, the log what the counters show came out. On the modelled
// recycler: the simulator never pays more coins than asked, and fewer only with a fault of
// its own.
void TestMovements::paymentCountedWrong_data()
{
    testsupport::columns<bool, int, bool, QString, QString, QStringList, QByteArray>(
        "pickup", "payoutError", "nak", "error", "logged", "paid", "command");

    // The error line of a payout over the sum says "Выдано" too.
    QTest::newRow("cashOutPaidMore")
        << false << 1 << false << QStringLiteral("Выдано больше монет; выдано 25.00")
        << QStringLiteral("Выдано больше монет; выдано 25.00")
        << QStringList({QStringLiteral("WARN Выдано 25.00. номиналы: 5.00 x 1, 10.00 x 2"),
                        QStringLiteral("ERROR Выдано больше монет; выдано 25.00")})
        << hex("01010201");
    QTest::newRow("cashOutPaidLess") << false << -1 << false
                                     << QStringLiteral("Недостаточно монет для выдачи; выдано 5.00")
                                     << QStringLiteral("Недостаточно монет для выдачи; выдано 5.00")
                                     << QStringList{QStringLiteral("WARN Выдано 5.00. номиналы: 5.00 x 1")}
                                     << hex("01010201");
    // The command went out: the counters show that nothing came out. The link logged its
    // failure where it happened.
    QTest::newRow("cashOutLinkFailureLoggedOnce")
        << false << 0 << true << QStringLiteral("Ошибка выполнения команды; выдано 0.00")
        << QStringLiteral("Ошибка выполнения команды") << QStringList{QStringLiteral("WARN Выдано 0.00")}
        << hex("01010201");
    QTest::newRow("pickupSumThroughDispenserShort")
        << true << -1 << false << QStringLiteral("Недостаточно монет для выдачи; выдано 10.00")
        << QStringLiteral("Недостаточно монет для выдачи; выдано 10.00")
        << QStringList{QStringLiteral("WARN Выдано 10.00. номиналы: 5.00 x 2")} << hex("0203");
    QTest::newRow("pickupSumThroughDispenserOver")
        << true << 1 << false << QStringLiteral("Выдано больше монет; выдано 20.00")
        << QStringLiteral("Выдано больше монет; выдано 20.00")
        << QStringList({QStringLiteral("WARN Выдано 20.00. номиналы: 5.00 x 4"),
                        QStringLiteral("ERROR Выдано больше монет; выдано 20.00")})
        << hex("0203");
}

void TestMovements::paymentCountedWrong()
{
    QFETCH(bool, pickup);
    QFETCH(int, payoutError);
    QFETCH(bool, nak);
    QFETCH(QString, error);
    QFETCH(QString, logged);
    QFETCH(QStringList, paid);
    QFETCH(QByteArray, command);
    Rig rig;
    rig.connectDevice();
    rig.model.payoutError = payoutError;
    if (nak)
        rig.model.nakHeaders = {85};
    LogCapture log;
    QCOMPARE(thrownText([&] {
                 if (pickup)
                     rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::DispensePickupSum, 1500);
                 else
                     rig.driver.cashOut(ECashControl::Minimum, 1500);
             }),
             QStringLiteral("Монетоприемник: ") + error);
    QCOMPARE(errorsLogged(log), logged);
    QCOMPARE(significant(log).filter(QStringLiteral("Выдано")), paid);
    QCOMPARE(rig.model.dataOf(85), QList<QByteArray>{command});
}

void TestMovements::cashOutNegativeLogsTheRequest()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Optimal, -500); }),
             QStringLiteral("Монетоприемник: Некорректная сумма"));
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Выдача монет -5.00, режим оптимальный"),
                                            QStringLiteral("ERROR Некорректная сумма")}));
}

void TestMovements::cashOutPatternTooLongForOneFrame()
{
    sim::Config config = standardRecycler();
    config.hoppers[2].count = 20000;
    config.hoppers[2].capacity = 20000;
    SimRig rig(config);
    rig.connectDevice();
    // 10 + 20 + 19800 coins: the hopper3 share alone needs 78 pairs of bytes.
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Minimum, 2000000); }),
             QStringLiteral("Монетоприемник: Некорректная сумма"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Некорректная сумма"));
    QCOMPARE(rig.moves(), 0);
    QCOMPARE(rig.device().hopperCount(3), 20000);

    // The longest pattern that fits: 61 pairs, 122 bytes.
    rig.forget();
    const SumDetailed paid = rig.driver.cashOut(ECashControl::Minimum, 10000 + 10000 + 15045 * 100);
    QCOMPARE(paid.sum(), 10000LL + 10000 + 1504500);
    QCOMPARE(rig.dataOf(85).value(0).size(), 122);
    QCOMPARE(rig.device().hopperCount(3), 20000 - 15045);
}

void TestMovements::loanOtherOperationOnlyChecks()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    rig.driver.loan(QStringLiteral("hopper1"), ECashControl::LoadMainAcceptor, 1000);
    QCOMPARE(significant(log).first(),
             QStringLiteral(
                 "INFO Внесение купюр в модуль hopper1, 'внесение через основной приемник', сумма 10.00"));
    QVERIFY(significant(log).contains(QStringLiteral("INFO Проверка состояния устройства")));
    QVERIFY(rig.count(254) >= 1);
    QCOMPARE(rig.moves(), 0);
    QCOMPARE(rig.device().hopperCount(1), 10);

    log.clear();
    rig.forget();
    QCOMPARE(thrownText([&] {
                 rig.driver.loan(QStringLiteral("hopper1"), ECashControl::UnitOperation(0x20001), 1000);
             }),
             QStringLiteral("Монетоприемник: Операция не поддерживается"));
    QCOMPARE(significant(log).first(),
             QStringLiteral("INFO Внесение купюр в модуль hopper1, 'неизвестный', сумма 10.00"));
    QVERIFY(rig.line.transactions().isEmpty());
}

void TestMovements::loanUnknownUnit()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    QCOMPARE(
        thrownText([&] { rig.driver.loan(QStringLiteral("hopper9"), ECashControl::LoadMainAcceptor, 0); }),
        QStringLiteral("Монетоприемник: Модуль не найден"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Модуль не найден"));
    // The unit is looked up before the device is asked anything.
    QVERIFY(rig.line.transactions().isEmpty());
    QCOMPARE(thrownText([&] { rig.driver.loan(QStringLiteral("hopper9"), ECashControl::ManualLoad, 100); }),
             QStringLiteral("Монетоприемник: Модуль не найден"));
    QCOMPARE(rig.moves(), 0);
}

void TestMovements::loanManual()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    rig.driver.loan(QStringLiteral("hopper1"), ECashControl::ManualLoad, 1000);
    QCOMPARE(significant(log).first(),
             QStringLiteral("INFO Внесение купюр в модуль hopper1, 'внесение вручную', сумма 10.00"));
    QCOMPARE(rig.dataOf(120), QList<QByteArray>({hex("010B00")}));
    QCOMPARE(rig.device().hopperCount(1), 11);
    QVERIFY(log.texts(QStringLiteral("ERROR")).isEmpty());
    // The count written is the device's, read in the same operation.
    QVERIFY(rig.requests().contains(hex("7701")));
    QVERIFY(rig.requests().lastIndexOf(hex("7701")) < rig.requests().indexOf(hex("78010b00")));

    rig.forget();
    rig.driver.loan(QStringLiteral("hopper2"), ECashControl::ManualLoad, 1500);
    QCOMPARE(rig.dataOf(120), QList<QByteArray>({hex("021700")}));
}

void TestMovements::loanManualUpTo65535()
{
    StandardRig rig;
    rig.connectDevice();
    rig.driver.loan(QStringLiteral("hopper3"), ECashControl::ManualLoad, (65535LL - 50) * 100);
    QCOMPARE(rig.dataOf(120), QList<QByteArray>({hex("03FFFF")}));
    QCOMPARE(rig.device().hopperCount(3), 65535);
}

void TestMovements::pickup_data()
{
    testsupport::columns<QString, int, qlonglong, QString, QList<QByteArray>, Denoms, qlonglong,
                         QList<long long>>("unit", "operation", "amount", "logged", "commands", "denoms",
                                           "rest", "after");

    QTest::newRow("allFromCashbox")
        << QStringLiteral("cashbox") << int(ECashControl::ManualPickupAll) << 0LL
        << QStringLiteral("INFO Выем монет из модуля cashbox, 'выем всего вручную', сумма 0.00")
        << QList<QByteArray>{hex("7600000000")} << Denoms() << 12550LL << QList<long long>({10, 20, 50, 0});
    QTest::newRow("allFromHopperByHand")
        << QStringLiteral("hopper2") << int(ECashControl::ManualPickupAll) << 0LL
        << QStringLiteral("INFO Выем монет из модуля hopper2, 'выем всего вручную', сумма 0.00")
        << QList<QByteArray>{hex("78020000")} << Denoms{{500, 20}} << 0LL
        << QList<long long>({10, 0, 50, 12550});
    QTest::newRow("sumBelowOneCoinWritesUnchangedCount")
        << QStringLiteral("hopper2") << int(ECashControl::ManualPickupSum) << 499LL
        << QStringLiteral("INFO Выем монет из модуля hopper2, 'выем суммы вручную', сумма 4.99")
        << QList<QByteArray>{hex("78021400")} << Denoms{{500, 0}} << 0LL
        << QList<long long>({10, 20, 50, 12550});
    // The hopper pays out everything, then its count is written as zero. A payout
    // reports every denomination the hoppers hold.
    QTest::newRow("allThroughDispenser")
        << QStringLiteral("hopper3") << int(ECashControl::DispensePickupAll) << 0LL
        << QStringLiteral(
               "INFO Выем монет из модуля hopper3, 'выем всего через устройство выдачи', сумма 0.00")
        << QList<QByteArray>({hex("790300"), hex("78030000")}) << Denoms{{100, 50}, {500, 0}, {1000, 0}}
        << 0LL << QList<long long>({10, 20, 0, 12550});
    QTest::newRow("sumThroughDispenser")
        << QStringLiteral("hopper2") << int(ECashControl::DispensePickupSum) << 1500LL
        << QStringLiteral(
               "INFO Выем монет из модуля hopper2, 'выем суммы через устройство выдачи', сумма 15.00")
        << QList<QByteArray>{hex("550203")} << Denoms{{100, 0}, {500, 3}, {1000, 0}} << 0LL
        << QList<long long>({10, 17, 50, 12550});
}

void TestMovements::pickup()
{
    QFETCH(QString, unit);
    QFETCH(int, operation);
    QFETCH(qlonglong, amount);
    QFETCH(QString, logged);
    QFETCH(QList<QByteArray>, commands);
    QFETCH(Denoms, denoms);
    QFETCH(qlonglong, rest);
    QFETCH(QList<long long>, after);
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result = rig.driver.pickup(unit, ECashControl::UnitOperation(operation), amount);
    QCOMPARE(significant(log).first(), logged);
    QCOMPARE(rig.movingRequests(), commands);
    QCOMPARE(result.denoms, denoms);
    QCOMPARE(result.rest, rest);
    QCOMPARE(contents(rig), after);
    QVERIFY(log.texts(QStringLiteral("ERROR")).isEmpty());
}

void TestMovements::pickupSumLargerThanHopperTakesAll()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result =
        rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::ManualPickupSum, 100000);
    QCOMPARE(significant(log).first(),
             QStringLiteral("INFO Выем монет из модуля hopper2, 'выем суммы вручную', сумма 1000.00"));
    QCOMPARE(rig.dataOf(120), QList<QByteArray>({hex("020000")}));
    QCOMPARE(result.denoms, (Denoms{{500, 20}}));

    rig.forget();
    rig.device().setHopperCount(2, 20);
    rig.driver.getUnits();
    const SumDetailed part =
        rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::ManualPickupSum, 1500);
    QCOMPARE(rig.dataOf(120), QList<QByteArray>({hex("021100")}));
    QCOMPARE(part.denoms, (Denoms{{500, 3}}));
}

void TestMovements::pickupOtherOperationDoesNothing()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result =
        rig.driver.pickup(QStringLiteral("hopper1"), ECashControl::LoadMainAcceptor, 1000);
    QCOMPARE(
        significant(log).first(),
        QStringLiteral("INFO Выем монет из модуля hopper1, 'внесение через основной приемник', сумма 10.00"));
    QVERIFY(rig.count(254) >= 1);
    QVERIFY(result.denoms.isEmpty());
    QCOMPARE(result.rest, 0LL);
    QCOMPARE(rig.moves(), 0);
    QCOMPARE(
        thrownText([&] { rig.driver.pickup(QStringLiteral("hopper7"), ECashControl::ManualPickupAll, 0); }),
        QStringLiteral("Монетоприемник: Модуль не найден"));
    QCOMPARE(rig.moves(), 0);
}

// A request the driver refuses before anything moves: the host gets the error, the log
// has it once, no coin moves and no count changes. `silent`: not even the state check
// went out.
void TestMovements::refusedRequestSendsNothing_data()
{
    testsupport::columns<QString, QString, int, qlonglong, QString, bool>("call", "unit", "operation",
                                                                          "amount", "error", "silent");

    const QString wrongSum = QStringLiteral("Некорректная сумма");
    const QString unsupported = QStringLiteral("Операция не поддерживается");
    const long long longMin = std::numeric_limits<long long>::min();
    const long long longMax = std::numeric_limits<long long>::max();
    const QString cashOut = QStringLiteral("cashOut");
    const QString loan = QStringLiteral("loan");
    const QString pickup = QStringLiteral("pickup");
    const QString hopper1 = QStringLiteral("hopper1");
    const QString hopper2 = QStringLiteral("hopper2");
    const QString hopper3 = QStringLiteral("hopper3");
    const QString cashbox = QStringLiteral("cashbox");
    auto row = [](const char* name, const QString& call, const QString& unit, int operation, long long amount,
                  const QString& error, bool silent) {
        QTest::newRow(name) << call << unit << operation << qlonglong(amount) << error << silent;
    };

    row("cashOutNegative: -0.01 optimal", cashOut, QString(), ECashControl::Optimal, -1, wrongSum, true);
    row("cashOutNegative: -0.01 minimum", cashOut, QString(), ECashControl::Minimum, -1, wrongSum, true);
    row("cashOutNegative: -5.00 optimal", cashOut, QString(), ECashControl::Optimal, -500, wrongSum, true);
    row("cashOutNegative: -5.00 minimum", cashOut, QString(), ECashControl::Minimum, -500, wrongSum, true);
    row("cashOutNegative: least optimal", cashOut, QString(), ECashControl::Optimal, longMin, wrongSum, true);
    row("cashOutNegative: least minimum", cashOut, QString(), ECashControl::Minimum, longMin, wrongSum, true);

    row("loanManualAbove65535: one coin over", loan, hopper3, ECashControl::ManualLoad,
        (65535LL - 50 + 1) * 100, wrongSum, false);
    row("loanManualAbove65535: 65536 coins", loan, hopper3, ECashControl::ManualLoad, 65536LL * 100, wrongSum,
        false);
    row("loanManualAbove65535: 6553600 coins", loan, hopper3, ECashControl::ManualLoad, 6553600LL * 100,
        wrongSum, false);
    row("loanManualAbove65535: greatest", loan, hopper3, ECashControl::ManualLoad, longMax, wrongSum, false);
    row("loanManualIntoCashbox", loan, cashbox, ECashControl::ManualLoad, 1000, unsupported, true);
    row("loanNegative: by hand", loan, hopper1, ECashControl::ManualLoad, -1000, wrongSum, true);
    row("loanNegative: main acceptor", loan, hopper1, ECashControl::LoadMainAcceptor, -1000, wrongSum, true);
    // 15.00 into a hopper of 10.00 coins would silently load one coin.
    row("loanOfPartOfACoin: 15.00", loan, hopper1, ECashControl::ManualLoad, 1500, wrongSum, true);
    row("loanOfPartOfACoin: 9.99", loan, hopper1, ECashControl::ManualLoad, 999, wrongSum, true);
    row("loanOfPartOfACoin: 0.01", loan, hopper1, ECashControl::ManualLoad, 1, wrongSum, true);

    row("pickupSumByHandFromCashbox: by hand", pickup, cashbox, ECashControl::ManualPickupSum, 1000,
        unsupported, true);
    row("pickupSumByHandFromCashbox: dispenser", pickup, cashbox, ECashControl::DispensePickupSum, 1000,
        unsupported, true);
    // 2^32 + 3 coins would reach the 32-bit count as 3.
    row("pickupSumThroughDispenserBounds: wraps", pickup, hopper2, ECashControl::DispensePickupSum,
        500LL * (4294967296LL + 3), wrongSum, false);
    row("pickupSumThroughDispenserBounds: 20000 coins", pickup, hopper2, ECashControl::DispensePickupSum,
        500LL * 20000, wrongSum, false);
    row("pickupSumThroughDispenserBounds: greatest", pickup, hopper2, ECashControl::DispensePickupSum,
        longMax, wrongSum, false);
    row("pickupNegative: all by hand", pickup, hopper2, ECashControl::ManualPickupAll, -500, wrongSum, true);
    row("pickupNegative: sum by hand", pickup, hopper2, ECashControl::ManualPickupSum, -500, wrongSum, true);
    row("pickupNegative: all dispensed", pickup, hopper2, ECashControl::DispensePickupAll, -500, wrongSum,
        true);
    row("pickupNegative: sum dispensed", pickup, hopper2, ECashControl::DispensePickupSum, -500, wrongSum,
        true);
    // 25.00 from a hopper of 10.00 coins would pay two coins and then fail.
    row("pickupOfPartOfACoinThroughDispenser: 25.00", pickup, hopper1, ECashControl::DispensePickupSum, 2500,
        wrongSum, true);
    row("pickupOfPartOfACoinThroughDispenser: 17.00", pickup, hopper1, ECashControl::DispensePickupSum, 1700,
        wrongSum, true);
    row("pickupOfPartOfACoinThroughDispenser: 0.01", pickup, hopper1, ECashControl::DispensePickupSum, 1,
        wrongSum, true);

    row("notOffered: cashbox dispense all", pickup, cashbox, 0x100, 1000, unsupported, true);
    row("notOffered: cashbox dispense sum", pickup, cashbox, 0x200, 1000, unsupported, true);
    row("notOffered: cashbox sum by hand", pickup, cashbox, 0x20, 1000, unsupported, true);
    row("notOffered: cashbox load by hand", loan, cashbox, 0x20000, 1000, unsupported, true);
    row("notOffered: hopper all to cashbox", pickup, hopper1, 0x1, 1000, unsupported, true);
    row("notOffered: hopper sum to cashbox", pickup, hopper1, 0x4, 1000, unsupported, true);
    row("notOffered: hopper from loader", loan, hopper1, 0x10000, 1000, unsupported, true);
    row("notOffered: hopper no operation", pickup, hopper1, 0, 1000, unsupported, true);
    row("notOffered: hopper two at once", pickup, hopper1, 0x30, 1000, unsupported, true);
}

void TestMovements::refusedRequestSendsNothing()
{
    QFETCH(QString, call);
    QFETCH(QString, unit);
    QFETCH(int, operation);
    QFETCH(qlonglong, amount);
    QFETCH(QString, error);
    QFETCH(bool, silent);
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    QCOMPARE(thrownText([&] {
                 if (call == QLatin1String("cashOut"))
                     rig.driver.cashOut(ECashControl::ChangeMode(operation), amount);
                 else if (call == QLatin1String("loan"))
                     rig.driver.loan(unit, ECashControl::UnitOperation(operation), amount);
                 else
                     rig.driver.pickup(unit, ECashControl::UnitOperation(operation), amount);
             }),
             QStringLiteral("Монетоприемник: ") + error);
    QCOMPARE(errorsLogged(log), error);
    QCOMPARE(significant(log).last(), QStringLiteral("ERROR ") + error);
    if (silent)
        QVERIFY(rig.line.transactions().isEmpty());
    QCOMPARE(rig.moves(), 0);
    QCOMPARE(contents(rig), QList<long long>({10, 20, 50, 12550}));
}

void TestMovements::counterOfAcceptedCoins()
{
    // Modelled: the simulator's audit counters cannot be set, only counted up by coins.
    Rig rig;
    rig.connectDevice();
    rig.model.accepted = {{1, 3}, {4, 2}};
    LogCapture log;
    const SumDetailed result = rig.driver.getCounter(ECashControl::Accepted);
    QCOMPARE(result.denoms.value(100), 3LL);
    QCOMPARE(result.denoms.value(1000), 2LL);
    QCOMPARE(result.sum(), 2300LL);
    QCOMPARE(significant(log).first(), QStringLiteral("INFO Получение счетчика внесений"));
    QCOMPARE(significant(log).last(),
             QStringLiteral("INFO Счетчик внесений: 23.00. номиналы: 1.00 x 3, 10.00 x 2"));
    QCOMPARE(rig.model.dataOf(86), QList<QByteArray>({hex("4601"), hex("4602"), hex("4603"), hex("4604")}));

    rig.model.nakHeaders = {86};
    QCOMPARE(thrownText([&] { rig.driver.getCounter(ECashControl::Accepted); }),
             QStringLiteral("Монетоприемник: Ошибка выполнения команды"));
}

void TestMovements::counterOfDispensedCoins()
{
    // Modelled: the simulator's audit counters cannot be set, only counted up by payouts.
    Rig rig;
    rig.connectDevice();
    rig.model.hoppers[0].dispensed = 4;
    rig.model.hoppers[0].purged = 1;
    rig.model.hoppers[1].dispensed = 2;
    LogCapture log;
    const SumDetailed result = rig.driver.getCounter(ECashControl::Dispensed);
    QCOMPARE(result.denoms, (Denoms{{100, 0}, {500, 2}, {1000, 5}}));
    QCOMPARE(significant(log).first(), QStringLiteral("INFO Получение счетчика выдачи"));
    QCOMPARE(significant(log).last(),
             QStringLiteral("INFO Счетчик выемов: 60.00. номиналы: 5.00 x 2, 10.00 x 5"));
    QCOMPARE(movingCommands(rig.model), 0);
}

void TestMovements::counterOfUnknownType()
{
    StandardRig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result = rig.driver.getCounter(ECashControl::CounterType(2));
    QVERIFY(result.denoms.isEmpty());
    QCOMPARE(result.rest, 0LL);
    QCOMPARE(result.extra, 0LL);
    QCOMPARE(log.formatted(), QStringList({QStringLiteral("INFO Получение счетчика неизвестный"),
                                           QStringLiteral("WARN Тип счетчика не поддерживается")}));
    QVERIFY(rig.line.transactions().isEmpty());
}

// Two coins went into hopper1 after discovery (10 -> 12): a manual load of one coin
// writes 13, not the 11 the discovered count would give.
void TestMovements::loanManualStartsFromTheDeviceCount()
{
    StandardRig rig;
    rig.connectDevice();
    rig.device().setHopperCount(1, 12);
    rig.driver.loan(QStringLiteral("hopper1"), ECashControl::ManualLoad, 1000);
    QCOMPARE(rig.dataOf(120), QList<QByteArray>({hex("010d00")}));
    QCOMPARE(rig.device().hopperCount(1), 13);
}

// Ten coins paid out of hopper3 (50 -> 40), then five taken by hand: 35 is written,
// not the 45 the discovered count would give.
void TestMovements::pickupByHandStartsFromTheDeviceCount()
{
    StandardRig rig;
    rig.connectDevice();
    rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::DispensePickupSum, 1000);
    QCOMPARE(rig.device().hopperCount(3), 40);
    rig.forget();
    const SumDetailed part = rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::ManualPickupSum, 500);
    QCOMPARE(rig.dataOf(120), QList<QByteArray>({hex("032300")}));
    QCOMPARE(part.denoms, (Denoms{{100, 5}}));
    QCOMPARE(rig.device().hopperCount(3), 35);

    rig.forget();
    rig.device().setHopperCount(3, 37);
    const SumDetailed all = rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::ManualPickupAll, 0);
    QCOMPARE(all.denoms, (Denoms{{100, 37}}));
    QCOMPARE(rig.dataOf(120), QList<QByteArray>({hex("030000")}));
}

// Coins that went to the cashbox after discovery are part of what is taken out.
void TestMovements::pickupAllFromCashboxReadsTheDeviceSum()
{
    StandardRig rig;
    rig.connectDevice();
    rig.device().setCashbox(20000);
    const SumDetailed result = rig.driver.pickup(QStringLiteral("cashbox"), ECashControl::ManualPickupAll, 0);
    QCOMPARE(result.rest, 20000LL);
    QCOMPARE(rig.device().cashbox(), 0u);
    QVERIFY(rig.requests().contains(hex("75")));
    QVERIFY(rig.requests().indexOf(hex("75")) < rig.requests().indexOf(hex("7600000000")));
}

QTEST_GUILESS_MAIN(TestMovements)
#include "tst_movements.moc"
