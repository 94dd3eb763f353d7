// Coin acceptance: sessions, polls, the closing and the check against the audit counters.
#include "changer/changer.h"

#include "cctalk/commands.h"
#include "changer/changerdetail.h"
#include "host/timer.h"

#include <QStringList>

namespace CcTalk {

using namespace changer;

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
    waitNotState(ReqActivityRegResp::CoinAcceptance, acceptanceEndPolls,
                 QStringLiteral("завершения приема монет"), checkErrors);
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

} // namespace CcTalk
