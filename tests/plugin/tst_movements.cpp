#include "testdriver.h"

#include "support/frames.h"

#include <QtTest>

#include <limits>

using namespace plugintest;
using testsupport::hex;
using testsupport::LogCapture;

namespace {

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

    void cashOutOptimal();
    void cashOutMinimum();
    void cashOutImpossibleSumPaysNothing();
    void cashOutPaidMore();
    void cashOutPaidLess();
    void cashOutLinkFailureLoggedOnce();
    void cashOutNegativeSendsNothing();
    void cashOutPatternTooLongForOneFrame();

    void loanOtherOperationOnlyChecks();
    void loanUnknownUnit();
    void loanManual();
    void loanManualUpTo65535();
    void loanManualAbove65535Refused();
    void loanManualIntoCashboxRefused();
    void loanNegativeSendsNothing();
    void loanManualStartsFromTheDeviceCount();
    void loanOfPartOfACoinSendsNothing();

    void pickupAllFromCashbox();
    void pickupAllFromHopperByHand();
    void pickupSumLargerThanHopperTakesAll();
    void pickupSumBelowOneCoinWritesUnchangedCount();
    void pickupSumByHandFromCashboxRefused();
    void pickupAllThroughDispenser();
    void pickupSumThroughDispenser();
    void pickupSumThroughDispenserShortOrOver();
    void pickupSumThroughDispenserBounds();
    void pickupOtherOperationDoesNothing();
    void pickupNegativeSendsNothing();
    void pickupByHandStartsFromTheDeviceCount();
    void pickupAllFromCashboxReadsTheDeviceSum();
    void pickupOfPartOfACoinThroughDispenserSendsNothing();
    void operationsTheUnitDoesNotOfferSendNothing_data();
    void operationsTheUnitDoesNotOfferSendNothing();

    void counterOfAcceptedCoins();
    void counterOfDispensedCoins();
    void counterOfUnknownType();
};

void TestMovements::cashOutCheckTrueOnlyForExactMatch()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Optimal, 1500));
    QCOMPARE(significant(log).value(0), QStringLiteral("INFO Тестирование выдачи 15.00, режим оптимальный"));
    // The state check runs, then the units are read again.
    QVERIFY(rig.model.count(254) >= 1);
    QCOMPARE(rig.model.count(117), 1);

    log.clear();
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, 1550));
    QCOMPARE(significant(log).value(0), QStringLiteral("INFO Тестирование выдачи 15.50, режим минимум"));
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Optimal, 1550));
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Minimum, 0));
    // Everything the hoppers hold, and one coin more.
    QVERIFY(rig.driver.cashOutCheck(ECashControl::Minimum, 25000));
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, 25100));
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, std::numeric_limits<long long>::max()));

    QCOMPARE(movingCommands(rig.model), 0);
    QCOMPARE(rig.model.count(80), 0);
    QCOMPARE(rig.model.hoppers.at(0).count, 10);
    QCOMPARE(rig.model.hoppers.at(1).count, 20);
    QCOMPARE(rig.model.hoppers.at(2).count, 50);
}

void TestMovements::cashOutCheckFailsOnDeviceFault()
{
    Rig rig;
    rig.connectDevice();
    rig.model.activity = 16;
    rig.model.errorModule = 1;
    rig.model.errorCode = 2;
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOutCheck(ECashControl::Optimal, 1500); }),
             QStringLiteral("Монетоприемник: Хоппер 1, заклинивание"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Хоппер 1, заклинивание"));
    QCOMPARE(rig.model.count(117), 0);
    QCOMPARE(movingCommands(rig.model), 0);
}

void TestMovements::cashOutCheckNegativeSendsNothing()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Optimal, -500));
    QVERIFY(!rig.driver.cashOutCheck(ECashControl::Minimum, std::numeric_limits<long long>::min()));
    QVERIFY(rig.line.writes.isEmpty());
    QCOMPARE(significant(log),
             QStringList({QStringLiteral("INFO Тестирование выдачи -5.00, режим оптимальный"),
                          QStringLiteral("INFO Тестирование выдачи -92233720368547758.08, режим минимум")}));
}

void TestMovements::cashOutOptimal()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed paid = rig.driver.cashOut(ECashControl::Optimal, 1500);
    // The fuller smaller hoppers pay: 500 x 2 and 100 x 5.
    QCOMPARE(rig.model.dataOf(85), QList<QByteArray>({hex("02020305")}));
    QCOMPARE(rig.model.count(125), 0);
    QCOMPARE(paid.sum(), 1500LL);
    QCOMPARE(paid.denoms.value(500), 2LL);
    QCOMPARE(paid.denoms.value(100), 5LL);
    QCOMPARE(paid.denoms.value(1000), 0LL);
    QCOMPARE(rig.model.hoppers.at(1).count, 18);
    QCOMPARE(rig.model.hoppers.at(2).count, 45);
    const QStringList lines = significant(log);
    QCOMPARE(lines.first(), QStringLiteral("INFO Выдача монет 15.00, режим оптимальный"));
    QCOMPARE(lines.last(), QStringLiteral("INFO Выдано 15.00. номиналы: 1.00 x 5, 5.00 x 2"));
    QVERIFY(log.texts(QStringLiteral("ERROR")).isEmpty());
    // The state check comes before the payout.
    const int firstPoll = rig.model.requests.indexOf(hex("FE"));
    const int payout = rig.model.requests.indexOf(hex("5502020305"));
    QVERIFY(firstPoll >= 0);
    QVERIFY(firstPoll < payout);
}

void TestMovements::cashOutMinimum()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed paid = rig.driver.cashOut(ECashControl::Minimum, 1500);
    QCOMPARE(rig.model.dataOf(85), QList<QByteArray>({hex("01010201")}));
    QCOMPARE(paid.sum(), 1500LL);
    QCOMPARE(paid.toString(), QStringLiteral("15.00. номиналы: 5.00 x 1, 10.00 x 1"));
    QCOMPARE(significant(log).first(), QStringLiteral("INFO Выдача монет 15.00, режим минимум"));
    QCOMPARE(significant(log).last(), QStringLiteral("INFO Выдано 15.00. номиналы: 5.00 x 1, 10.00 x 1"));
}

void TestMovements::cashOutImpossibleSumPaysNothing()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Optimal, 1550); }),
             QStringLiteral("Монетоприемник: Невозможно выдать сумму"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Невозможно выдать сумму"));
    QCOMPARE(significant(log).first(), QStringLiteral("INFO Выдача монет 15.50, режим оптимальный"));
    QCOMPARE(movingCommands(rig.model), 0);
    QCOMPARE(rig.model.count(86), 0);
}

void TestMovements::cashOutPaidMore()
{
    Rig rig;
    rig.connectDevice();
    rig.model.payoutError = 1;
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Minimum, 1500); }),
             QStringLiteral("Монетоприемник: Выдано больше монет"));
    QVERIFY(significant(log).contains(QStringLiteral("WARN Выдано 25.00. номиналы: 5.00 x 1, 10.00 x 2")));
    QCOMPARE(errorsLogged(log), QStringLiteral("Выдано больше монет"));
    QCOMPARE(rig.model.count(85), 1);
}

void TestMovements::cashOutPaidLess()
{
    Rig rig;
    rig.connectDevice();
    rig.model.payoutError = -1;
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Minimum, 1500); }),
             QStringLiteral("Монетоприемник: Недостаточно монет для выдачи"));
    QVERIFY(significant(log).contains(QStringLiteral("WARN Выдано 5.00. номиналы: 5.00 x 1")));
    QCOMPARE(errorsLogged(log), QStringLiteral("Недостаточно монет для выдачи"));
    QCOMPARE(rig.model.count(85), 1);
}

void TestMovements::cashOutLinkFailureLoggedOnce()
{
    Rig rig;
    rig.connectDevice();
    rig.model.nakHeaders = {85};
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Minimum, 1500); }),
             QStringLiteral("Монетоприемник: Ошибка выполнения команды"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Ошибка выполнения команды"));
    QCOMPARE(rig.model.count(85), 1);
    // The command went out: the counters show that nothing came out.
    QCOMPARE(significant(log).filter(QStringLiteral("Выдано")),
             QStringList{QStringLiteral("WARN Выдано 0.00")});
}

void TestMovements::cashOutNegativeSendsNothing()
{
    Rig rig;
    rig.connectDevice();
    for (long long amount : {-1LL, -500LL, std::numeric_limits<long long>::min()}) {
        for (ECashControl::ChangeMode mode : {ECashControl::Optimal, ECashControl::Minimum}) {
            LogCapture log;
            QCOMPARE(thrownText([&] { rig.driver.cashOut(mode, amount); }),
                     QStringLiteral("Монетоприемник: Некорректная сумма"));
            QCOMPARE(errorsLogged(log), QStringLiteral("Некорректная сумма"));
        }
    }
    QVERIFY(rig.line.writes.isEmpty());
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Optimal, -500); }),
             QStringLiteral("Монетоприемник: Некорректная сумма"));
    QCOMPARE(significant(log), QStringList({QStringLiteral("INFO Выдача монет -5.00, режим оптимальный"),
                                            QStringLiteral("ERROR Некорректная сумма")}));
}

void TestMovements::cashOutPatternTooLongForOneFrame()
{
    Rig rig;
    rig.model.hoppers[2].count = 20000;
    rig.connectDevice();
    // 10 + 20 + 19800 coins: the hopper3 share alone needs 78 pairs of bytes.
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.cashOut(ECashControl::Minimum, 2000000); }),
             QStringLiteral("Монетоприемник: Некорректная сумма"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Некорректная сумма"));
    QCOMPARE(movingCommands(rig.model), 0);
    QCOMPARE(rig.model.hoppers.at(2).count, 20000);

    // The longest pattern that fits: 61 pairs, 122 bytes.
    rig.forget();
    const SumDetailed paid = rig.driver.cashOut(ECashControl::Minimum, 10000 + 10000 + 15045 * 100);
    QCOMPARE(paid.sum(), 10000LL + 10000 + 1504500);
    QCOMPARE(rig.model.dataOf(85).value(0).size(), 122);
    QCOMPARE(rig.model.hoppers.at(2).count, 20000 - 15045);
}

void TestMovements::loanOtherOperationOnlyChecks()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    rig.driver.loan(QStringLiteral("hopper1"), ECashControl::LoadMainAcceptor, 1000);
    QCOMPARE(significant(log).first(),
             QStringLiteral(
                 "INFO Внесение купюр в модуль hopper1, 'внесение через основной приемник', сумма 10.00"));
    QVERIFY(significant(log).contains(QStringLiteral("INFO Проверка состояния устройства")));
    QVERIFY(rig.model.count(254) >= 1);
    QCOMPARE(movingCommands(rig.model), 0);
    QCOMPARE(rig.model.hoppers.at(0).count, 10);

    log.clear();
    rig.forget();
    QCOMPARE(thrownText([&] {
                 rig.driver.loan(QStringLiteral("hopper1"), ECashControl::UnitOperation(0x20001), 1000);
             }),
             QStringLiteral("Монетоприемник: Операция не поддерживается"));
    QCOMPARE(significant(log).first(),
             QStringLiteral("INFO Внесение купюр в модуль hopper1, 'неизвестный', сумма 10.00"));
    QVERIFY(rig.line.writes.isEmpty());
}

void TestMovements::loanUnknownUnit()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    QCOMPARE(
        thrownText([&] { rig.driver.loan(QStringLiteral("hopper9"), ECashControl::LoadMainAcceptor, 0); }),
        QStringLiteral("Монетоприемник: Модуль не найден"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Модуль не найден"));
    // The unit is looked up before the device is asked anything.
    QVERIFY(rig.line.writes.isEmpty());
    QCOMPARE(thrownText([&] { rig.driver.loan(QStringLiteral("hopper9"), ECashControl::ManualLoad, 100); }),
             QStringLiteral("Монетоприемник: Модуль не найден"));
    QCOMPARE(movingCommands(rig.model), 0);
}

void TestMovements::loanManual()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    rig.driver.loan(QStringLiteral("hopper1"), ECashControl::ManualLoad, 1000);
    QCOMPARE(significant(log).first(),
             QStringLiteral("INFO Внесение купюр в модуль hopper1, 'внесение вручную', сумма 10.00"));
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("010B00")}));
    QCOMPARE(rig.model.hoppers.at(0).count, 11);
    QVERIFY(log.texts(QStringLiteral("ERROR")).isEmpty());
    // The count written is the device's, read in the same operation.
    QVERIFY(rig.model.requests.lastIndexOf(hex("7701")) < rig.model.requests.indexOf(hex("78010b00")));

    rig.forget();
    rig.driver.loan(QStringLiteral("hopper2"), ECashControl::ManualLoad, 1500);
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("021700")}));
}

void TestMovements::loanManualUpTo65535()
{
    Rig rig;
    rig.connectDevice();
    rig.driver.loan(QStringLiteral("hopper3"), ECashControl::ManualLoad, (65535LL - 50) * 100);
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("03FFFF")}));
    QCOMPARE(rig.model.hoppers.at(2).count, 65535);
}

void TestMovements::loanManualAbove65535Refused()
{
    Rig rig;
    rig.connectDevice();
    for (long long amount :
         {(65535LL - 50 + 1) * 100, 65536LL * 100, 6553600LL * 100, std::numeric_limits<long long>::max()}) {
        LogCapture log;
        QCOMPARE(
            thrownText([&] { rig.driver.loan(QStringLiteral("hopper3"), ECashControl::ManualLoad, amount); }),
            QStringLiteral("Монетоприемник: Некорректная сумма"));
        QCOMPARE(errorsLogged(log), QStringLiteral("Некорректная сумма"));
    }
    QCOMPARE(rig.model.count(120), 0);
    QCOMPARE(rig.model.hoppers.at(2).count, 50);
}

void TestMovements::loanManualIntoCashboxRefused()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    QCOMPARE(thrownText([&] { rig.driver.loan(QStringLiteral("cashbox"), ECashControl::ManualLoad, 1000); }),
             QStringLiteral("Монетоприемник: Операция не поддерживается"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Операция не поддерживается"));
    QVERIFY(rig.line.writes.isEmpty());
}

void TestMovements::loanNegativeSendsNothing()
{
    Rig rig;
    rig.connectDevice();
    for (ECashControl::UnitOperation op : {ECashControl::ManualLoad, ECashControl::LoadMainAcceptor}) {
        LogCapture log;
        QCOMPARE(thrownText([&] { rig.driver.loan(QStringLiteral("hopper1"), op, -1000); }),
                 QStringLiteral("Монетоприемник: Некорректная сумма"));
        QCOMPARE(errorsLogged(log), QStringLiteral("Некорректная сумма"));
    }
    QVERIFY(rig.line.writes.isEmpty());
    QCOMPARE(rig.model.hoppers.at(0).count, 10);
}

void TestMovements::pickupAllFromCashbox()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result = rig.driver.pickup(QStringLiteral("cashbox"), ECashControl::ManualPickupAll, 0);
    QCOMPARE(significant(log).first(),
             QStringLiteral("INFO Выем монет из модуля cashbox, 'выем всего вручную', сумма 0.00"));
    QCOMPARE(rig.model.dataOf(118), QList<QByteArray>({hex("00000000")}));
    QCOMPARE(rig.model.count(120), 0);
    QCOMPARE(result.rest, 12550LL);
    QVERIFY(result.denoms.isEmpty());
    QCOMPARE(rig.model.cashbox, 0u);
}

void TestMovements::pickupAllFromHopperByHand()
{
    Rig rig;
    rig.connectDevice();
    const SumDetailed result = rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::ManualPickupAll, 0);
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("020000")}));
    QCOMPARE(result.denoms, (QMap<unsigned int, long long>{{500, 20}}));
    QCOMPARE(result.rest, 0LL);
    QCOMPARE(rig.model.hoppers.at(1).count, 0);
}

void TestMovements::pickupSumLargerThanHopperTakesAll()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result =
        rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::ManualPickupSum, 100000);
    QCOMPARE(significant(log).first(),
             QStringLiteral("INFO Выем монет из модуля hopper2, 'выем суммы вручную', сумма 1000.00"));
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("020000")}));
    QCOMPARE(result.denoms, (QMap<unsigned int, long long>{{500, 20}}));

    rig.forget();
    rig.model.hoppers[1].count = 20;
    rig.driver.getUnits();
    const SumDetailed part =
        rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::ManualPickupSum, 1500);
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("021100")}));
    QCOMPARE(part.denoms, (QMap<unsigned int, long long>{{500, 3}}));
}

void TestMovements::pickupSumBelowOneCoinWritesUnchangedCount()
{
    Rig rig;
    rig.connectDevice();
    const SumDetailed result =
        rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::ManualPickupSum, 499);
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("021400")}));
    QCOMPARE(result.denoms, (QMap<unsigned int, long long>{{500, 0}}));
    QCOMPARE(result.sum(), 0LL);
    QCOMPARE(rig.model.hoppers.at(1).count, 20);
}

void TestMovements::pickupSumByHandFromCashboxRefused()
{
    Rig rig;
    rig.connectDevice();
    for (ECashControl::UnitOperation op : {ECashControl::ManualPickupSum, ECashControl::DispensePickupSum}) {
        LogCapture log;
        QCOMPARE(thrownText([&] { rig.driver.pickup(QStringLiteral("cashbox"), op, 1000); }),
                 QStringLiteral("Монетоприемник: Операция не поддерживается"));
        QCOMPARE(errorsLogged(log), QStringLiteral("Операция не поддерживается"));
    }
    QVERIFY(rig.line.writes.isEmpty());
    QCOMPARE(rig.model.cashbox, 12550u);
}

void TestMovements::pickupAllThroughDispenser()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result =
        rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::DispensePickupAll, 0);
    QCOMPARE(significant(log).first(),
             QStringLiteral(
                 "INFO Выем монет из модуля hopper3, 'выем всего через устройство выдачи', сумма 0.00"));
    QCOMPARE(rig.model.dataOf(121), QList<QByteArray>({hex("0300")}));
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("030000")}));
    QVERIFY(rig.model.requests.indexOf(hex("790300")) < rig.model.requests.indexOf(hex("78030000")));
    QCOMPARE(result.denoms.value(100), 50LL);
    QCOMPARE(result.sum(), 5000LL);
    QCOMPARE(rig.model.hoppers.at(2).count, 0);
}

void TestMovements::pickupSumThroughDispenser()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result =
        rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::DispensePickupSum, 1500);
    QCOMPARE(significant(log).first(),
             QStringLiteral(
                 "INFO Выем монет из модуля hopper2, 'выем суммы через устройство выдачи', сумма 15.00"));
    QCOMPARE(rig.model.dataOf(85), QList<QByteArray>({hex("0203")}));
    QCOMPARE(rig.model.count(120), 0);
    QCOMPARE(result.sum(), 1500LL);
    QCOMPARE(result.denoms.value(500), 3LL);
    QCOMPARE(rig.model.hoppers.at(1).count, 17);
    QVERIFY(log.texts(QStringLiteral("ERROR")).isEmpty());
}

void TestMovements::pickupSumThroughDispenserShortOrOver()
{
    Rig rig;
    rig.connectDevice();
    rig.model.payoutError = -1;
    LogCapture log;
    QCOMPARE(thrownText([&] {
                 rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::DispensePickupSum, 1500);
             }),
             QStringLiteral("Монетоприемник: Недостаточно монет для выдачи"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Недостаточно монет для выдачи"));
    QCOMPARE(significant(log).filter(QStringLiteral("Выдано")),
             QStringList{QStringLiteral("WARN Выдано 10.00. номиналы: 5.00 x 2")});
    rig.model.payoutError = 1;
    log.clear();
    QCOMPARE(thrownText([&] {
                 rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::DispensePickupSum, 1500);
             }),
             QStringLiteral("Монетоприемник: Выдано больше монет"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Выдано больше монет"));
    QCOMPARE(significant(log).filter(QStringLiteral("WARN Выдано")),
             QStringList{QStringLiteral("WARN Выдано 20.00. номиналы: 5.00 x 4")});
    QCOMPARE(rig.model.dataOf(85), QList<QByteArray>({hex("0203"), hex("0203")}));
}

void TestMovements::pickupSumThroughDispenserBounds()
{
    Rig rig;
    rig.connectDevice();
    // 2^32 + 3 coins would reach the 32-bit count as 3.
    const long long wraps = 500LL * (4294967296LL + 3);
    for (long long amount : {wraps, 500LL * 20000, std::numeric_limits<long long>::max()}) {
        LogCapture log;
        QCOMPARE(thrownText([&] {
                     rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::DispensePickupSum, amount);
                 }),
                 QStringLiteral("Монетоприемник: Некорректная сумма"));
        QCOMPARE(errorsLogged(log), QStringLiteral("Некорректная сумма"));
    }
    QCOMPARE(movingCommands(rig.model), 0);
    QCOMPARE(rig.model.hoppers.at(1).count, 20);
}

void TestMovements::pickupOtherOperationDoesNothing()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result =
        rig.driver.pickup(QStringLiteral("hopper1"), ECashControl::LoadMainAcceptor, 1000);
    QCOMPARE(
        significant(log).first(),
        QStringLiteral("INFO Выем монет из модуля hopper1, 'внесение через основной приемник', сумма 10.00"));
    QVERIFY(rig.model.count(254) >= 1);
    QVERIFY(result.denoms.isEmpty());
    QCOMPARE(result.rest, 0LL);
    QCOMPARE(movingCommands(rig.model), 0);
    QCOMPARE(
        thrownText([&] { rig.driver.pickup(QStringLiteral("hopper7"), ECashControl::ManualPickupAll, 0); }),
        QStringLiteral("Монетоприемник: Модуль не найден"));
    QCOMPARE(movingCommands(rig.model), 0);
}

void TestMovements::pickupNegativeSendsNothing()
{
    Rig rig;
    rig.connectDevice();
    for (ECashControl::UnitOperation op :
         {ECashControl::ManualPickupAll, ECashControl::ManualPickupSum, ECashControl::DispensePickupAll,
          ECashControl::DispensePickupSum}) {
        LogCapture log;
        QCOMPARE(thrownText([&] { rig.driver.pickup(QStringLiteral("hopper2"), op, -500); }),
                 QStringLiteral("Монетоприемник: Некорректная сумма"));
        QCOMPARE(significant(log).last(), QStringLiteral("ERROR Некорректная сумма"));
        QCOMPARE(log.texts(QStringLiteral("ERROR")).size(), 1);
    }
    QVERIFY(rig.line.writes.isEmpty());
    QCOMPARE(rig.model.hoppers.at(1).count, 20);
}

void TestMovements::counterOfAcceptedCoins()
{
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
    Rig rig;
    rig.connectDevice();
    rig.model.hoppers[0].dispensed = 4;
    rig.model.hoppers[0].purged = 1;
    rig.model.hoppers[1].dispensed = 2;
    LogCapture log;
    const SumDetailed result = rig.driver.getCounter(ECashControl::Dispensed);
    QCOMPARE(result.denoms, (QMap<unsigned int, long long>{{100, 0}, {500, 2}, {1000, 5}}));
    QCOMPARE(significant(log).first(), QStringLiteral("INFO Получение счетчика выдачи"));
    QCOMPARE(significant(log).last(),
             QStringLiteral("INFO Счетчик выемов: 60.00. номиналы: 5.00 x 2, 10.00 x 5"));
    QCOMPARE(movingCommands(rig.model), 0);
}

void TestMovements::counterOfUnknownType()
{
    Rig rig;
    rig.connectDevice();
    LogCapture log;
    const SumDetailed result = rig.driver.getCounter(ECashControl::CounterType(2));
    QVERIFY(result.denoms.isEmpty());
    QCOMPARE(result.rest, 0LL);
    QCOMPARE(result.extra, 0LL);
    QCOMPARE(log.formatted(), QStringList({QStringLiteral("INFO Получение счетчика неизвестный"),
                                           QStringLiteral("WARN Тип счетчика не поддерживается")}));
    QVERIFY(rig.line.writes.isEmpty());
}

// Two coins went into hopper1 after discovery (10 -> 12): a manual load of one coin
// writes 13, not the 11 the discovered count would give.
void TestMovements::loanManualStartsFromTheDeviceCount()
{
    Rig rig;
    rig.connectDevice();
    rig.model.hoppers[0].count = 12;
    rig.driver.loan(QStringLiteral("hopper1"), ECashControl::ManualLoad, 1000);
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("010d00")}));
    QCOMPARE(rig.model.hoppers.at(0).count, 13);
}

// 15.00 into a hopper of 10.00 coins would silently load one coin.
void TestMovements::loanOfPartOfACoinSendsNothing()
{
    Rig rig;
    rig.connectDevice();
    for (long long amount : {1500LL, 999LL, 1LL}) {
        LogCapture log;
        QCOMPARE(
            thrownText([&] { rig.driver.loan(QStringLiteral("hopper1"), ECashControl::ManualLoad, amount); }),
            QStringLiteral("Монетоприемник: Некорректная сумма"));
        QCOMPARE(errorsLogged(log), QStringLiteral("Некорректная сумма"));
    }
    QVERIFY(rig.line.writes.isEmpty());
    QCOMPARE(rig.model.hoppers.at(0).count, 10);
}

// Ten coins paid out of hopper3 (50 -> 40), then five taken by hand: 35 is written,
// not the 45 the discovered count would give.
void TestMovements::pickupByHandStartsFromTheDeviceCount()
{
    Rig rig;
    rig.connectDevice();
    rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::DispensePickupSum, 1000);
    QCOMPARE(rig.model.hoppers.at(2).count, 40);
    rig.forget();
    const SumDetailed part = rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::ManualPickupSum, 500);
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("032300")}));
    QCOMPARE(part.denoms, (QMap<unsigned int, long long>{{100, 5}}));
    QCOMPARE(rig.model.hoppers.at(2).count, 35);

    rig.forget();
    rig.model.hoppers[2].count = 37;
    const SumDetailed all = rig.driver.pickup(QStringLiteral("hopper3"), ECashControl::ManualPickupAll, 0);
    QCOMPARE(all.denoms, (QMap<unsigned int, long long>{{100, 37}}));
    QCOMPARE(rig.model.dataOf(120), QList<QByteArray>({hex("030000")}));
}

// Coins that went to the cashbox after discovery are part of what is taken out.
void TestMovements::pickupAllFromCashboxReadsTheDeviceSum()
{
    Rig rig;
    rig.connectDevice();
    rig.model.cashbox = 20000;
    const SumDetailed result = rig.driver.pickup(QStringLiteral("cashbox"), ECashControl::ManualPickupAll, 0);
    QCOMPARE(result.rest, 20000LL);
    QCOMPARE(rig.model.cashbox, 0u);
    QVERIFY(rig.model.requests.indexOf(hex("75")) < rig.model.requests.indexOf(hex("7600000000")));
}

// 25.00 from a hopper of 10.00 coins would pay two coins and then fail.
void TestMovements::pickupOfPartOfACoinThroughDispenserSendsNothing()
{
    Rig rig;
    rig.connectDevice();
    for (long long amount : {2500LL, 1700LL, 1LL}) {
        LogCapture log;
        QCOMPARE(thrownText([&] {
                     rig.driver.pickup(QStringLiteral("hopper1"), ECashControl::DispensePickupSum, amount);
                 }),
                 QStringLiteral("Монетоприемник: Некорректная сумма"));
        QCOMPARE(errorsLogged(log), QStringLiteral("Некорректная сумма"));
    }
    QVERIFY(rig.line.writes.isEmpty());
    QCOMPARE(rig.model.hoppers.at(0).count, 10);
}

void TestMovements::operationsTheUnitDoesNotOfferSendNothing_data()
{
    QTest::addColumn<QString>("unit");
    QTest::addColumn<int>("operation");
    QTest::addColumn<bool>("pickup");
    QTest::newRow("cashbox: dispense all") << QStringLiteral("cashbox") << 0x100 << true;
    QTest::newRow("cashbox: dispense sum") << QStringLiteral("cashbox") << 0x200 << true;
    QTest::newRow("cashbox: sum by hand") << QStringLiteral("cashbox") << 0x20 << true;
    QTest::newRow("cashbox: load by hand") << QStringLiteral("cashbox") << 0x20000 << false;
    QTest::newRow("hopper: all to cashbox") << QStringLiteral("hopper1") << 0x1 << true;
    QTest::newRow("hopper: sum to cashbox") << QStringLiteral("hopper1") << 0x4 << true;
    QTest::newRow("hopper: from loader") << QStringLiteral("hopper1") << 0x10000 << false;
    QTest::newRow("hopper: no operation") << QStringLiteral("hopper1") << 0 << true;
    QTest::newRow("hopper: two at once") << QStringLiteral("hopper1") << 0x30 << true;
}

void TestMovements::operationsTheUnitDoesNotOfferSendNothing()
{
    QFETCH(QString, unit);
    QFETCH(int, operation);
    QFETCH(bool, pickup);
    Rig rig;
    rig.connectDevice();
    const auto op = ECashControl::UnitOperation(operation);
    LogCapture log;
    QCOMPARE(thrownText([&] {
                 if (pickup)
                     rig.driver.pickup(unit, op, 1000);
                 else
                     rig.driver.loan(unit, op, 1000);
             }),
             QStringLiteral("Монетоприемник: Операция не поддерживается"));
    QCOMPARE(errorsLogged(log), QStringLiteral("Операция не поддерживается"));
    QVERIFY(rig.line.writes.isEmpty());
    QCOMPARE(rig.model.cashbox, 12550u);
    QCOMPARE(rig.model.hoppers.at(0).count, 10);
}

QTEST_GUILESS_MAIN(TestMovements)
#include "tst_movements.moc"
