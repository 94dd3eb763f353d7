#include "changer/changer.h"

#include "cashcontrol/units.h"
#include "cctalk/commands.h"
#include "host/qtcompat.h"
#include "host/timer.h"

#include <QDateTime>
#include <QMetaType>
#include <QPair>
#include <QStringList>

#include <algorithm>
#include <cstdlib>

namespace CcTalk {

namespace {

const int pollIntervalMsecs = 200;
const int waitPollMsecs = 1000;
const int resetPauseMsecs = 5000;

const int unitFaultState = 3;

// Audit counter groups: coins accepted per coin position, and the two counters
// whose sum is a hopper's coins counted out (the first also counts the cycles
// of its ejection mechanism).
const unsigned char acceptedGroup = 70;
const unsigned char paidOutGroup = 80;
const unsigned char purgedGroup = 87;

const int serviceInterval = 500000;
const int clockToleranceSecs = 10;

// Longest data for which a frame carries the ordinary ccTalk checksum.
const int maxFrameData = 123;
const long long coinsPerPair = 255;

QString amountText(unsigned int denom)
{
    return QString::number(denom * 0.01, 'f', 2);
}

// "hopper3" -> 3; the low 8 bits of the number, 0 when the rest is not a number.
unsigned char hopperNumber(const QString& unitName)
{
    return static_cast<unsigned char>(QString(unitName).remove(QStringLiteral("hopper")).toUInt());
}

QString payoutWaitText()
{
    return QStringLiteral("завершения выдачи монет");
}

bool timedOut(const Exception& e)
{
    return QString::fromUtf8(e.what()) == QStringLiteral("Таймаут ожидания ") + payoutWaitText();
}

// Data bytes of a dispense pattern asking a hopper for count coins.
long long patternBytes(long long count)
{
    if (count <= 0)
        return count == 0 ? 0 : 2;
    return 2 * (count / coinsPerPair + (count % coinsPerPair != 0 ? 1 : 0));
}

} // namespace

bool Changer::needReset = false;

Changer::Changer(QObject* parent) : Device(parent), pollTimer(new Timer(this)), reserved(-1), accepting(false)
{
    if (!QMetaType::type("SumDetailed"))
        qRegisterMetaType<SumDetailed>("SumDetailed");
    pollTimer->setInterval(pollIntervalMsecs);
    pollTimer->setSingleShot(true);
    QObject::connect(pollTimer, SIGNAL(timeout()), this, SLOT(checkMoneyIn()));
}

Changer::~Changer() = default;

void Changer::init()
{
    closeStalledSession();
    resetIfNeeded();
    commonInit();
    setTime();
    checkState();
    loadCashUnits();
}

void Changer::connect()
{
    Device::connect();
    waitNotState(ReqActivityRegResp::Initialisation, 300,
                 QStringLiteral("завершения инициализации устройства"), true);
}

QList<CashControlUnit> Changer::getUnits()
{
    waitNotState(ReqActivityRegResp::Initialisation, 300,
                 QStringLiteral("завершения инициализации устройства"), false);
    loadCashUnits();
    return units;
}

CashControlUnit Changer::getUnit(const QString& unitName)
{
    const QList<CashControlUnit> known = units;
    for (const CashControlUnit& unit : known) {
        if (unit.name == unitName)
            return unit;
    }
    throwError<Exception>(QStringLiteral("Модуль не найден"));
}

QSet<unsigned int> Changer::getAcceptableDenoms()
{
    return acceptableDenoms;
}

QString Changer::describeUnit(unsigned char unit)
{
    const Response serialNumber = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::SerialNumber));
    const Response firmware = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::Firmware));
    const Response model = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::Model));
    // The device's texts end at the first zero byte, and so does the whole line.
    QByteArray line = QStringLiteral(" модель: ").toUtf8();
    line += QByteArray(model);
    line += QStringLiteral(", прошивка: ").toUtf8();
    line += QByteArray(firmware);
    line += QStringLiteral(", серия: ").toUtf8();
    return QString::fromUtf8(line.constData()) + QString::number(serialNumber.getUint(0, 3));
}

void Changer::loadCashUnits()
{
    logInfo(QStringLiteral("Получение информации о модулях"));
    units.clear();
    acceptableDenoms = QSet<unsigned int>();

    const ReqErrorStatusResp status(exec(ReqErrorStatus()));
    const ReqVarSetResp vars(exec(ReqVarSet()));
    const int positions = vars.getVar(0);
    const int hoppers = vars.getVar(1);

    logInfo(QStringLiteral("Приемник монет"));
    logInfo(describeUnit(ReqUnitInfo::CoinAcceptor));
    QStringList coins;
    for (int p = 1; p <= positions; ++p) {
        const ReqCoinIdResp coin(exec(ReqCoinId(static_cast<unsigned char>(p))));
        const CoinId id = coin.getDenom();
        coinDenoms[static_cast<unsigned char>(p)] = id.getDenom();
        coins << QStringLiteral("%1 - %2").arg(QString::number(p), id.getName());
    }
    logInfo(QStringLiteral(" валюты: ") + coins.join(QStringLiteral(", ")));

    for (int h = 1; h <= hoppers; ++h) {
        const auto unit = static_cast<unsigned char>(h + ReqUnitInfo::CoinAcceptor);
        const Response enabled = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::Enabled));
        if (enabled.getByte(0) == 0) {
            logInfo(QStringLiteral("Хоппер ") + QString::number(h) + QStringLiteral(" отключен"));
            continue;
        }
        logInfo(QStringLiteral("Хоппер ") + QString::number(h));
        logInfo(describeUnit(unit));
        const ReqHopperBalanceResp balance(exec(ReqHopperBalance(h)));
        const Response capacity = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::Capacity));
        const CoinId id = balance.getDenom();
        const unsigned int count = balance.getCount();
        const unsigned int coinsHeld = capacity.getUint(0, 2);
        logInfo(QStringLiteral(" валюта: ") + id.getName() + QStringLiteral(", кол-во: ") +
                QString::number(count) + QStringLiteral(", емкость: ") + QString::number(coinsHeld));

        CashControlUnit hopper;
        hopper.name = QStringLiteral("hopper") + QString::number(h);
        hopper.type = cashunits::hopperType;
        hopper.operations = cashunits::hopperOperations;
        hopper.flag = 1;
        hopper.denom = id.getDenom();
        hopper.count = count;
        hopper.sum = 0;
        hopper.capacity = static_cast<int>(coinsHeld);
        hopper.limit3 = 50;
        hopper.state = status.isDeviceHasError(ReqErrorStatusResp::Hopper, h) ? unitFaultState : 0;
        units.append(hopper);
        acceptableDenoms.insert(hopper.denom);
    }

    // Acceptable means recycled by a hopper and recognised by the acceptor.
    acceptableDenoms.intersect(qtcompat::toSet<unsigned int>(coinDenoms));

    logInfo(QStringLiteral("Кэшбокс"));
    const ReqCashboxValueResp cashbox(exec(ReqCashboxValue()));
    const unsigned int cashboxSum = cashbox.getSum();
    logInfo(QStringLiteral(" сумма: ") + amountText(cashboxSum));

    CashControlUnit box;
    box.name = QStringLiteral("cashbox");
    box.type = cashunits::cashboxType;
    box.operations = cashunits::cashboxOperations;
    box.sum = cashboxSum;
    box.state = status.isDeviceHasError(ReqErrorStatusResp::Cashbox, 0) ? unitFaultState : 0;
    units.append(box);
}

void Changer::cashInStart(bool fast, const QSet<unsigned int>& excluded)
{
    // The new session's baseline would swallow the coins an open session has not read yet;
    // a host that starts again from its received() slot opens one more.
    while (coinsPending)
        cashInStop();
    logInfo(QStringLiteral("Режим приема монет: ") +
            (fast ? QStringLiteral("ускоренный") : QStringLiteral("нормальный")));
    exec(ModVarSet(fast ? 255 : 0));
    const unsigned short mask = enableMask(excluded);

    // The baseline is read while every position is still inhibited, so no coin can enter
    // between it and the enable, however often either exchange is repeated.
    lastCoinCounts.clear();
    lastCoinCounts.update(readCoinCounts(), msecsNow());
    sessionAudit = readAcceptedAudit(mask);
    sessionReported.clear();
    sessionOpenedAt = msecsNow();
    ++session;
    coinsPending = true;
    SumDetailed coins;
    try {
        exec(ModInhibitStatus(mask));
        // A device that restarts its counters on enable shows it here; what they counted
        // from 0 came in after the enable.
        coins = readNewCoins(CoinCounts::FromZero);
    } catch (const Exception&) {
        // The enable may have reached the device (a NAK after a lost answer refuses only
        // the repeat): the session stays open, without polls, for the closing that reads
        // what it took.
        inhibitAfterFailedPoll();
        throw;
    }
    accepting = true;
    pollTimer->start();
    reportCoins(coins);
}

unsigned short Changer::enableMask(const QSet<unsigned int>& excluded)
{
    QSet<unsigned int> allowed = acceptableDenoms;
    allowed.subtract(excluded);
    unsigned short mask = 0;
    QStringList names;
    for (auto it = coinDenoms.constBegin(); it != coinDenoms.constEnd(); ++it) {
        if (!allowed.contains(it.value()))
            continue;
        // The inhibit register has one bit per position, positions 1 to 16.
        if (it.key() >= 1 && it.key() <= 16)
            mask |= static_cast<unsigned short>(1u << (it.key() - 1));
        const QString text = amountText(it.value());
        if (!names.contains(text))
            names << text;
    }
    logInfo(QStringLiteral("Доступные номиналы: ") + names.join(QStringLiteral(", ")));
    return mask;
}

CoinCounts::Counters Changer::readCoinCounts()
{
    const ReqCoinsInByTypeResp answer(exec(ReqCoinsInByType()));
    return answer.getCounts();
}

void Changer::cashInStop()
{
    closeSession(true);
}

void Changer::closeSession(bool checkErrors)
{
    accepting = false;
    pollTimer->stop();
    exec(ModInhibitStatus(0));
    waitNotState(ReqActivityRegResp::CoinAcceptance, 300, QStringLiteral("завершения приема монет"),
                 checkErrors);
    if (!coinsPending)
        return;
    // The last read also follows a failed poll: the counters kept are those of the last
    // good one. If it fails the coins stay pending and a repeated stop reads them.
    SumDetailed coins = readNewCoins();
    const SumDetailed missed = reconcileSession();
    for (auto it = missed.denoms.constBegin(); it != missed.denoms.constEnd(); ++it)
        coins.denoms[it.key()] += it.value();
    // Closed before the host hears of its coins: its slot may start the next session.
    coinsPending = false;
    const quint64 closed = session;
    reportCoins(coins);
    if (session != closed || !checkErrors)
        return;
    try {
        checkError();
    } catch (const std::exception& e) {
        emit error(QStringLiteral("Монетоприемник: ") + QString::fromUtf8(e.what()));
    }
}

SumDetailed Changer::readNewCoins(CoinCounts::Restart restart)
{
    const QString dropped = QStringLiteral("Показание счетчиков монет не подтверждено, отброшено: ");
    CoinCounts::Step step = lastCoinCounts.update(readCoinCounts(), msecsNow(), restart);
    logJumps(dropped, step.discarded);
    // A jump is believed only when a reading right after it agrees.
    for (int again = 0; again < 2 && !step.unconfirmed.isEmpty(); ++again) {
        const CoinCounts::Step next = lastCoinCounts.update(readCoinCounts(), msecsNow(), restart);
        logJumps(dropped, next.discarded);
        step = next;
    }
    if (step.restarted) {
        logInfo(QStringLiteral("Счетчики монет начаты устройством заново при разрешении приема"));
    } else {
        logJumps(QStringLiteral("Счетчики монет взяты за новую точку отсчета "
                                "(сброс устройства или искаженный ответ): "),
                 step.rebased);
    }
    for (auto it = step.added.constBegin(); it != step.added.constEnd(); ++it)
        sessionReported[it.key()] += it.value();
    return coinsOf(step.added);
}

SumDetailed Changer::coinsOf(const CoinCounts::Counters& byPosition)
{
    SumDetailed sum;
    for (auto it = byPosition.constBegin(); it != byPosition.constEnd(); ++it)
        sum.denoms[coinDenoms.value(it.key(), 0)] += static_cast<long long>(it.value());
    return sum;
}

QMap<unsigned char, quint32> Changer::readAcceptedAudit(unsigned short mask)
{
    QMap<unsigned char, quint32> counts;
    for (auto it = coinDenoms.constBegin(); it != coinDenoms.constEnd(); ++it) {
        if (it.key() >= 1 && it.key() <= 16 && (mask & (1u << (it.key() - 1))) != 0)
            counts[it.key()] = ReqAuditCounterResp(exec(ReqAuditCounter(acceptedGroup, it.key()))).value();
    }
    return counts;
}

SumDetailed Changer::reconcileSession()
{
    QMap<unsigned char, quint32> now;
    try {
        for (auto it = sessionAudit.constBegin(); it != sessionAudit.constEnd(); ++it)
            now[it.key()] = ReqAuditCounterResp(exec(ReqAuditCounter(acceptedGroup, it.key()))).value();
    } catch (const Exception& e) {
        logWarn(QStringLiteral("Счетчики аудита приема не прочитаны, сверка не выполнена: ") + e.message());
        return SumDetailed();
    }
    CoinCounts::Counters missed;
    QStringList over;
    // More than an acceptor can take in the session's time is no count of coins: a counter
    // that went down, or an answer that was not this counter's.
    const quint32 bound = CoinCounts::maxCoins(msecsNow() - sessionOpenedAt);
    for (auto it = sessionAudit.constBegin(); it != sessionAudit.constEnd(); ++it) {
        const quint32 taken = now.value(it.key()) - it.value();
        const quint32 reported = sessionReported.value(it.key());
        if (taken > bound)
            continue;
        if (taken > reported)
            missed[it.key()] = taken - reported;
        else if (taken < reported)
            over << QStringLiteral("позиция %1: %2 > %3").arg(unsigned(it.key())).arg(reported).arg(taken);
    }
    if (!over.isEmpty())
        logError(QStringLiteral("Сообщено больше монет, чем принято по счетчикам аудита: ") +
                 over.join(QStringLiteral(", ")));
    if (missed.isEmpty())
        return SumDetailed();
    QStringList found;
    for (auto it = missed.constBegin(); it != missed.constEnd(); ++it) {
        found << QStringLiteral("позиция %1: %2").arg(unsigned(it.key())).arg(it.value());
        sessionReported[it.key()] += it.value();
    }
    logWarn(QStringLiteral("Монеты найдены по счетчикам аудита приема: ") + found.join(QStringLiteral(", ")));
    return coinsOf(missed);
}

void Changer::logJumps(const QString& heading, const CoinCounts::Jumps& jumps)
{
    if (jumps.isEmpty())
        return;
    QStringList changes;
    for (auto it = jumps.constBegin(); it != jumps.constEnd(); ++it)
        changes << QStringLiteral("позиция %1: %2 -> %3")
                       .arg(unsigned(it.key()))
                       .arg(it.value().first)
                       .arg(it.value().second);
    logWarn(heading + changes.join(QStringLiteral(", ")));
}

void Changer::reportCoins(const SumDetailed& coins)
{
    if (coins.denoms.isEmpty() && coins.rest == 0 && coins.extra == 0)
        return;
    logInfo(QStringLiteral("Принято: ") + coins.toString());
    emit received(coins);
}

void Changer::checkMoneyIn()
{
    const quint64 polled = session;
    const bool open = coinsPending;
    try {
        const SumDetailed coins = readNewCoins();
        reportCoins(coins);
        // The host's slot stopped or started acceptance: that is its session now.
        if (session != polled || open != coinsPending)
            return;
        checkError();
        if (accepting)
            pollTimer->start();
    } catch (const std::exception& e) {
        emit error(QStringLiteral("Монетоприемник: ") + QString::fromUtf8(e.what()));
        if (accepting && session == polled)
            inhibitAfterFailedPoll();
    }
}

void Changer::closeStalledSession()
{
    // Before anything else: a reset would restart the coins-in counters, and the coins
    // counted since the last good poll would never be reported.
    if (coinsPending && !pollTimer->isActive())
        cashInStop();
}

void Changer::inhibitAfterFailedPoll()
{
    // Nobody polls now, and the acceptor would go on taking coins; those already counted
    // are read by the stop.
    try {
        exec(ModInhibitStatus(0));
    } catch (const std::exception& e) {
        logWarn(QStringLiteral("Прием монет не запрещен: ") + QString::fromUtf8(e.what()));
    }
}

void Changer::checkState()
{
    if (!delayedError.isEmpty()) {
        const QString message = delayedError;
        delayedError.clear();
        throwError<Exception>(message);
    }
    closeStalledSession();
    resetIfNeeded();
    Device::checkState();
    const ReqActivityRegResp activity(exec(ReqActivityReg()));
    if (activity.checkFlag(ReqActivityRegResp::CoinAcceptance))
        cashInStop();
    waitNotState(ReqActivityRegResp::Payout, 300, QStringLiteral("завершения выдачи монет"), true);
    reportFinishedPayout();
    checkError();
}

void Changer::checkError()
{
    const ReqActivityRegResp activity(exec(ReqActivityReg()));
    const bool fault = activity.checkFlag(ReqActivityRegResp::Fault);
    const bool warning = activity.checkFlag(ReqActivityRegResp::Warning);
    if (!fault && !warning)
        return;
    bool warnOnly = warning;

    const ReqErrorStatusResp status(exec(ReqErrorStatus()));
    // A flagged bit without a reported error is ignored.
    if (!status.hasError())
        return;
    if (status.isFatal())
        warnOnly = false;

    const SelfcheckResp check(exec(Selfcheck()));
    QString message;
    if (check.hasError()) {
        if (check.isFatal())
            warnOnly = false;
        message = check.getError();
        if (check.isDelayedError())
            delayedError = message;
    } else {
        message = status.getError();
    }

    if (warnOnly) {
        logWarn(message);
        return;
    }
    needReset = true;
    throwError<Exception>(message);
}

void Changer::waitNotState(int state, int polls, const QString& text, bool checkErrors)
{
    const auto flag = static_cast<ReqActivityRegResp::State>(state);
    ReqActivityRegResp activity(exec(ReqActivityReg()));
    if (!activity.checkFlag(flag))
        return;
    logInfo(QStringLiteral("Выполняется ожидание ") + text + QStringLiteral("..."));
    for (int i = 0; i < polls; ++i) {
        if (!activity.checkFlag(flag))
            break;
        sleep(waitPollMsecs);
        if (checkErrors)
            checkError();
        activity = exec(ReqActivityReg());
    }
    if (activity.checkFlag(flag))
        throwError<Exception>(QStringLiteral("Таймаут ожидания ") + text);
}

void Changer::resetIfNeeded()
{
    if (!needReset)
        return;
    // A reset restarts the coins-in counters: an open session is closed first. The fault
    // that asked for the reset is still flagged, so the closing does not check for it. The
    // host's slot may start a session again, or reset the device itself, while the closing
    // reports.
    while (coinsPending) {
        closeSession(false);
        if (!needReset)
            return;
    }
    logInfo(QStringLiteral("Выполняется сброс"));
    exec(Reset());
    // Only after the reset went through: a failed one is tried again next time.
    needReset = false;
    sleep(resetPauseMsecs);
}

hw::CcUnitMaintenanceInfo Changer::maintanenceInfo(const QString& unitName)
{
    hw::CcUnitMaintenanceInfo info;
    const CashControlUnit unit = getUnit(unitName);
    if (unit.type == cashunits::hopperType) {
        const ReqAuditCounterResp counter(exec(ReqAuditCounter(paidOutGroup, hopperNumber(unit.name))));
        info.unitName = unit.name;
        info.interval = serviceInterval;
        info.status = true;
        info.cycles = static_cast<int>(counter.value());
        if (info.cycles > serviceInterval) {
            info.status = false;
            info.description = QStringLiteral("износ выбрасывающего механизма");
        }
    }
    logInfo(QStringLiteral("%1, статус %3, кол-во циклов %4, интервал обслуживания %5")
                .arg(info.unitName, info.status ? QStringLiteral("OK") : info.description,
                     QString::number(info.cycles), QString::number(info.interval)));
    return info;
}

void Changer::maintanenceDone(const QString& unitName)
{
    const CashControlUnit unit = getUnit(unitName);
    if (unit.type == cashunits::hopperType)
        exec(ClearAuditCounter(paidOutGroup, hopperNumber(unit.name)));
}

void Changer::setTime()
{
    const ReqRealTimeClockResp answer(exec(ReqRealTimeClock()));
    const QDateTime deviceTime = answer.getTime();
    logInfo(QStringLiteral("Время в устройстве: ") +
            deviceTime.toString(QStringLiteral("dd.MM.yyyy hh:mm:ss")));
    const QDateTime now = QDateTime::currentDateTime();
    if (std::llabs(now.secsTo(deviceTime)) > clockToleranceSecs) {
        logInfo(QStringLiteral("Установка времени"));
        exec(ModRealTimeClock(now));
    }
}

void Changer::refuseAmount() const
{
    throwError<Exception>(QStringLiteral("Некорректная сумма"));
}

SumDetailed Changer::cashOut(ECashControl::ChangeMode mode, long long sum)
{
    // The payout command carries the amount in 32 bits.
    if (sum < 0 || sum > 0xFFFFFFFFLL)
        refuseAmount();
    takeSnapshot();
    exec(SetChangeAlgorithm(mode == ECashControl::Optimal ? SetChangeAlgorithm::Balanced
                                                          : SetChangeAlgorithm::LargestFirst));
    PayoutPlan plan;
    plan.amount = sum;
    return payOut(PayMoneyOut(static_cast<unsigned int>(sum)), 300, plan);
}

SumDetailed Changer::cashOut(SumDetailed coins)
{
    return cashOut(coins, ECashControl::Minimum);
}

namespace {

// Fill relative to capacity, compared without division; without a capacity on either
// side the counts decide.
bool fuller(const CashControlUnit& a, const CashControlUnit& b)
{
    if (a.capacity > 0 && b.capacity > 0)
        return a.count * b.capacity > b.count * a.capacity;
    return a.count > b.count;
}

} // namespace

SumDetailed Changer::cashOut(SumDetailed coins, ECashControl::ChangeMode mode)
{
    for (auto it = coins.denoms.constBegin(); it != coins.denoms.constEnd(); ++it) {
        if (it.value() < 0)
            refuseAmount();
    }
    // Hoppers by denomination, the denominations in the order their first hopper is listed.
    QList<unsigned int> order;
    QMap<unsigned int, QList<CashControlUnit>> byDenom;
    const QList<CashControlUnit> known = units;
    for (const CashControlUnit& unit : known) {
        if (unit.type != cashunits::hopperType || coins.denoms.value(unit.denom, 0) == 0)
            continue;
        if (!byDenom.contains(unit.denom))
            order.append(unit.denom);
        byDenom[unit.denom].append(unit);
    }
    // The pattern is planned before anything is sent, so that a request too long for
    // one frame never reaches the device.
    QList<QPair<unsigned char, long long>> pairs;
    PayoutPlan plan;
    long long bytes = 0;
    for (const unsigned int denom : order) {
        QList<CashControlUnit> hoppers = byDenom.value(denom);
        if (mode == ECashControl::Optimal)
            std::stable_sort(hoppers.begin(), hoppers.end(), fuller);
        QList<long long> counts;
        long long left = coins.denoms.value(denom);
        plan.coins.denoms[denom] = left;
        for (const CashControlUnit& hopper : hoppers) {
            const long long n = std::min(left, std::max(hopper.count, 0LL));
            counts.append(n);
            left -= n;
        }
        counts[0] += left;
        for (int i = 0; i < hoppers.size(); ++i) {
            if (counts.at(i) == 0)
                continue;
            bytes += patternBytes(counts.at(i));
            if (bytes > maxFrameData)
                refuseAmount();
            pairs.append(qMakePair(hopperNumber(hoppers.at(i).name), counts.at(i)));
        }
    }

    takeSnapshot();
    DispenseHopperPattern pattern;
    int polls = 60;
    for (const auto& entry : pairs) {
        pattern.addCount(entry.first, entry.second);
        polls += static_cast<int>(2 * entry.second);
    }
    return payOut(pattern, polls, plan);
}

SumDetailed Changer::cashOut(unsigned char hopper, unsigned int count)
{
    if (patternBytes(count) > maxFrameData)
        refuseAmount();
    takeSnapshot();
    DispenseHopperPattern pattern;
    pattern.addCount(hopper, count);
    PayoutPlan plan;
    const QList<CashControlUnit> known = units;
    for (const CashControlUnit& unit : known) {
        if (unit.type == cashunits::hopperType && hopperNumber(unit.name) == hopper)
            plan.coins.denoms[unit.denom] = count;
    }
    return payOut(pattern, static_cast<int>(60 + 2 * count), plan);
}

bool Changer::PayoutPlan::matches(const SumDetailed& paid) const
{
    if (amount >= 0)
        return paid.sum() == amount;
    if (coins.denoms.isEmpty())
        return false;
    QMap<unsigned int, long long> all = paid.denoms;
    for (auto it = coins.denoms.constBegin(); it != coins.denoms.constEnd(); ++it)
        all[it.key()];
    for (auto it = all.constBegin(); it != all.constEnd(); ++it) {
        if (it.value() != coins.denoms.value(it.key(), 0))
            return false;
    }
    return true;
}

void Changer::takeSnapshot()
{
    reportFinishedPayout();
    // Its coins would count for the next payout.
    if (payoutUnfinished)
        throwError<Exception>(QStringLiteral("Предыдущая выдача не завершена"));
    snapshot = readDispenseCounters();
}

SumDetailed Changer::payOut(const Request& command, int polls, const PayoutPlan& plan)
{
    QString failure;
    bool paying = false;
    try {
        sendPayout(command);
        waitNotState(ReqActivityRegResp::Payout, polls, payoutWaitText(), true);
        // A purge runs until the hopper is empty, so its end tells nothing of its own; a
        // restart of the device ends it as well.
        if (plan.untilEmpty && restarting())
            throwError<Exception>(QStringLiteral("Выдача прервана перезапуском устройства"));
        return getLastCashOut();
    } catch (const Exception& e) {
        failure = e.message();
        // A wait that ran out its polls is not repeated.
        paying = timedOut(e);
    }
    return afterFailedPayout(failure, paying, polls, plan);
}

void Changer::sendPayout(const Request& command)
{
    try {
        exec(command);
    } catch (const NakException&) {
        throw;
    } catch (const BusyException&) {
        throw;
    } catch (const Exception&) {
        // The answer was lost, not necessarily the command, and the command is never sent
        // twice. A purge's end is not known in advance: the device tells whether it is
        // purging or has purged.
        if (command.getHeader() != Header::purgeHopper)
            throw;
        bool purging = false;
        try {
            purging = payoutSeen();
        } catch (const Exception&) {
        }
        if (!purging)
            throw;
        logWarn(QStringLiteral("Ответ на команду потерян, устройство ее выполняет"));
    }
}

SumDetailed Changer::afterFailedPayout(const QString& failure, bool paying, int polls, const PayoutPlan& plan)
{
    // Measured from the counters once the device has stopped paying.
    if (!paying)
        paying = !waitPayoutEnd(polls);
    DispenseCounters::Difference paid;
    bool read = true;
    try {
        paid = readDispenseCounters().since(snapshot);
    } catch (const Exception&) {
        read = false;
    }
    if (!read || !paid.known) {
        logWarn(read ? QStringLiteral("Выдано: неизвестно, счетчики хопперов сброшены")
                     : QStringLiteral("Выдано: неизвестно, счетчики хопперов не прочитаны"));
        throw Exception(failure + cashcontrol::paidUnknownSuffix(), getName());
    }
    if (paying) {
        payoutUnfinished = true;
        logWarn(QStringLiteral("Выдано не менее ") + paid.coins.toString());
        throw Exception(failure + cashcontrol::paidAtLeastSuffix(paid.coins.sum()), getName());
    }
    if (plan.matches(paid.coins)) {
        logWarn(QStringLiteral("Выдача выполнена полностью, несмотря на ошибку: ") + failure);
        return paid.coins;
    }
    logWarn(QStringLiteral("Выдано ") + paid.coins.toString());
    throw Exception(failure + cashcontrol::paidSuffix(paid.coins.sum()), getName());
}

bool Changer::waitPayoutEnd(int polls)
{
    try {
        waitNotState(ReqActivityRegResp::Payout, polls, payoutWaitText(), false);
        return true;
    } catch (const Exception&) {
        return false;
    }
}

void Changer::reportFinishedPayout()
{
    if (!payoutUnfinished)
        return;
    const ReqActivityRegResp activity(exec(ReqActivityReg()));
    if (activity.checkFlag(ReqActivityRegResp::Payout))
        return;
    const DispenseCounters::Difference paid = readDispenseCounters().since(snapshot);
    payoutUnfinished = false;
    if (paid.known)
        logWarn(QStringLiteral("Выдача завершена, выдано ") + paid.coins.toString());
    else
        logWarn(QStringLiteral("Выдача завершена, выдано: неизвестно, счетчики хопперов сброшены"));
}

SumDetailed Changer::purge(unsigned char hopper)
{
    takeSnapshot();
    PayoutPlan plan;
    plan.untilEmpty = true;
    return payOut(PurgeHopper(hopper, 0), 2000, plan);
}

bool Changer::restarting()
{
    const ReqActivityRegResp activity(exec(ReqActivityReg()));
    return activity.checkFlag(ReqActivityRegResp::Initialisation);
}

bool Changer::payoutSeen()
{
    const ReqActivityRegResp activity(exec(ReqActivityReg()));
    if (activity.checkFlag(ReqActivityRegResp::Payout))
        return true;
    const DispenseCounters::Difference paid = readDispenseCounters().since(snapshot);
    return !paid.known || paid.coins.sum() != 0;
}

SumDetailed Changer::getLastCashOut()
{
    const DispenseCounters::Difference paid = readDispenseCounters().since(snapshot);
    if (!paid.known)
        throwError<Exception>(QStringLiteral("Счетчики выдачи сброшены устройством"));
    return paid.coins;
}

SumDetailed Changer::getAcceptedCounters()
{
    waitNotState(ReqActivityRegResp::CoinAcceptance, 10, QStringLiteral("завершения приема монет"), true);
    SumDetailed accepted;
    for (auto it = coinDenoms.constBegin(); it != coinDenoms.constEnd(); ++it) {
        const ReqAuditCounterResp counter(exec(ReqAuditCounter(acceptedGroup, it.key())));
        accepted.denoms[it.value()] += counter.value();
    }
    return accepted;
}

QMap<unsigned int, long long> Changer::getHoppersCounters()
{
    return readDispenseCounters().totals();
}

DispenseCounters Changer::readDispenseCounters()
{
    DispenseCounters counters;
    QStringList entries;
    const QList<CashControlUnit> known = units;
    for (const CashControlUnit& unit : known) {
        if (unit.type != cashunits::hopperType)
            continue;
        DispenseCounters::Hopper hopper;
        hopper.number = hopperNumber(unit.name);
        hopper.denom = unit.denom;
        hopper.paidOut = ReqAuditCounterResp(exec(ReqAuditCounter(paidOutGroup, hopper.number))).value();
        hopper.purged = ReqAuditCounterResp(exec(ReqAuditCounter(purgedGroup, hopper.number))).value();
        counters.add(hopper);
        const long long total = static_cast<long long>(hopper.paidOut) + hopper.purged;
        entries << QStringLiteral("%1 x %2").arg(amountText(unit.denom), QString::number(total));
    }
    logInfo(QStringLiteral("Счетчики хопперов: ") + entries.join(QStringLiteral(", ")));
    return counters;
}

SumDetailed Changer::getDispensedCounters()
{
    waitNotState(ReqActivityRegResp::Payout, 300, QStringLiteral("завершения выема монет"), true);
    SumDetailed dispensed;
    dispensed.denoms = getHoppersCounters();
    return dispensed;
}

void Changer::setCashboxSum(unsigned int sum)
{
    exec(ModifyCashboxValue(sum));
}

void Changer::setHopperCount(unsigned char hopper, unsigned short count)
{
    exec(ModHopperBalance(hopper, count));
}

unsigned int Changer::getHopperCount(unsigned char hopper)
{
    const ReqHopperBalanceResp balance(exec(ReqHopperBalance(hopper)));
    return balance.getCount();
}

unsigned int Changer::getCashboxSum()
{
    const ReqCashboxValueResp cashbox(exec(ReqCashboxValue()));
    return cashbox.getSum();
}

} // namespace CcTalk
