#pragma once

#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/ccunitmaintenanceinfo.h"
#include "cashcontrol/ecashcontrol.h"
#include "cashcontrol/sumdetailed.h"
#include "cctalk/device.h"
#include "changer/coincounts.h"
#include "changer/dispensecounters.h"

#include <QList>
#include <QMap>
#include <QSet>
#include <QString>

class Timer;

namespace CcTalk {

// The CPI BCR coin recycler as a whole: a coin acceptor with up to 16 coin positions,
// hoppers of one denomination each, and a cashbox. Waiting for the device means
// polling its activity register; coin acceptance is polled by a single-shot timer
// that is re-armed only after a poll that ended normally. How often and how long:
// changer/timing.h.
class Changer : public Device
{
    Q_OBJECT
public:
    explicit Changer(QObject* parent = nullptr);
    ~Changer() override;

    // Throws a pending delayed error first; otherwise resets if a fault asked for it,
    // checks the link, ends a coin acceptance still running, waits for a payout to
    // finish and checks for faults.
    void checkState() override;
    // Simple poll, then waits while the device initialises.
    void connect() override;

    virtual void init();
    virtual QList<CashControlUnit> getUnits();
    virtual void setHopperCount(unsigned char hopper, unsigned short count);
    virtual void setCashboxSum(unsigned int sum);
    // Looks the unit up in the list of the last discovery; the device is not asked.
    virtual CashControlUnit getUnit(const QString& unitName);
    virtual QSet<unsigned int> getAcceptableDenoms();
    virtual void cashInStart(bool fast, const QSet<unsigned int>& excluded);
    virtual void cashInStop();
    // Each payout returns what the hopper counters say was paid.
    virtual SumDetailed cashOut(ECashControl::ChangeMode mode, long long sum);
    // Each hopper is asked for at most the coins it holds, the hoppers of one
    // denomination in unit order; what no hopper's count covers goes to the first.
    virtual SumDetailed cashOut(SumDetailed coins);
    virtual SumDetailed cashOut(unsigned char hopper, unsigned int count);
    virtual SumDetailed getLastCashOut();
    virtual SumDetailed getAcceptedCounters();
    virtual SumDetailed getDispensedCounters();
    // Returns normally when no fault is flagged or the fault is only a warning.
    virtual void checkError();
    virtual SumDetailed purge(unsigned char hopper);
    virtual hw::CcUnitMaintenanceInfo maintanenceInfo(const QString& unitName);
    virtual void maintanenceDone(const QString& unitName);

signals:
    void received(SumDetailed sum);
    void error(QString msg);

protected slots:
    // One acceptance poll. Failures are not thrown (the timer has no caller to
    // catch them) but emitted as error() and end the polling.
    virtual void checkMoneyIn();

public:
    virtual void loadCashUnits();
    // Coins counted out per denomination, summed over the hoppers holding it.
    virtual QMap<unsigned int, long long> getHoppersCounters();
    virtual void resetIfNeeded();
    // Sets the device clock when it is more than 10 seconds away from the host's.
    virtual void setTime();
    // Polls the activity register every waitPollMsecs while the state bit is set; throws
    // "Таймаут ожидания " + text when it is still set after the given polls.
    virtual void waitNotState(int state, int polls, const QString& text, bool checkErrors);
    // The coins a hopper holds and the cashbox's value as the device counts them now.
    virtual unsigned int getHopperCount(unsigned char hopper);
    virtual unsigned int getCashboxSum();
    // The payout of cashOut(SumDetailed); under the optimal mode the fuller hopper of a
    // denomination, relative to its capacity, is drawn on first. Declared last, so that
    // the earlier operations keep their places in the virtual table.
    virtual SumDetailed cashOut(SumDetailed coins, ECashControl::ChangeMode mode);

protected:
    QList<CashControlUnit> units;
    QSet<unsigned int> acceptableDenoms;
    // Coins-in counters of the acceptance session, with their baseline.
    CoinCounts lastCoinCounts;
    Timer* pollTimer;
    QMap<unsigned char, unsigned int> coinDenoms;
    int reserved;
    // The hoppers' dispense counters just before the last payout command.
    DispenseCounters snapshot;
    bool accepting;
    QString delayedError;
    // From the moment a session may have enabled the acceptor until a stop has read its
    // last coins, whether polling goes on, has failed, or a stop failed before its last read.
    bool coinsPending = false;
    // Counts the sessions started: a poll or a stop whose host slot started another one
    // leaves that one alone.
    quint64 session = 0;
    // The session's coins by position: the acceptance audit counters (group 70, kept by the
    // device through restarts) as the session opened, and the coins reported since.
    QMap<unsigned char, quint32> sessionAudit;
    QMap<unsigned char, quint32> sessionReported;
    qint64 sessionOpenedAt = 0;
    // A payout the driver stopped waiting for while the device still paid; the next
    // operation that finds it finished logs what it paid in the end.
    bool payoutUnfinished = false;

    // Set by a fault raised as an exception; the next init() or checkState() resets
    // the device first.
    static bool needReset;

private:
    // What a payout asks for: coins by denomination, or an amount the device splits.
    struct PayoutPlan
    {
        SumDetailed coins;
        long long amount = -1;
        // A purge: until the hopper is empty, no count to compare.
        bool untilEmpty = false;
        bool matches(const SumDetailed& paid) const;
    };

    QString describeUnit(unsigned char unit);
    void refuseAmount() const;
    unsigned short enableMask(const QSet<unsigned int>& excluded);
    CoinCounts::Counters readCoinCounts();
    // Reads the coins-in counters into the session's baseline and returns the coins
    // added since the last read; an odd reading is read once more at once.
    SumDetailed readNewCoins(CoinCounts::Restart restart = CoinCounts::FromReading);
    void logJumps(const QString& heading, const CoinCounts::Jumps& jumps);
    QMap<unsigned char, quint32> readAcceptedAudit(unsigned short mask);
    SumDetailed coinsOf(const CoinCounts::Counters& byPosition);
    // The coins the audit counters counted in the session that no reading of the coins-in
    // counters showed (lost to a restart of those counters).
    SumDetailed reconcileSession();
    void reportCoins(const SumDetailed& coins);
    void inhibitAfterFailedPoll();
    // Ends a session whose polling has stopped, with the last read of its coins.
    void closeStalledSession();
    // Inhibits the acceptor, waits for the coin path and reads the session's last coins.
    void closeSession(bool checkErrors);
    bool payoutSeen();
    // The device shows its initialisation: it has restarted.
    bool restarting();
    DispenseCounters readDispenseCounters();
    // Logs once what an unfinished payout paid, when the device no longer pays.
    void reportFinishedPayout();
    void takeSnapshot();
    // Sends the payout command, waits for the payout to end and measures it. After a
    // failure on the way, a payout that came out as planned is still a payout; otherwise
    // the failure is thrown with what came out.
    SumDetailed payOut(const Request& command, int polls, const PayoutPlan& plan);
    void sendPayout(const Request& command);
    SumDetailed afterFailedPayout(const QString& failure, bool paying, int polls, const PayoutPlan& plan);
    bool waitPayoutEnd(int polls);
};

} // namespace CcTalk
