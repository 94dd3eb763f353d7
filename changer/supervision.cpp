// Supervision: the state check, faults, waiting for the device and its reset.
#include "changer/changer.h"

#include "cctalk/commands.h"
#include "changer/changerdetail.h"

namespace CcTalk {

using namespace changer;

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
    waitNotState(ReqActivityRegResp::Payout, payoutEndPolls, QStringLiteral("завершения выдачи монет"), true);
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

} // namespace CcTalk
