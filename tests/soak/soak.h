#pragma once

#include "soakport.h"

#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/sumdetailed.h"

#include <QElapsedTimer>
#include <QList>
#include <QMap>
#include <QPair>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

namespace sim {
struct Transaction;
} // namespace sim

namespace testsupport {
class LogCapture;
class RecordingChanger;
class RecordingDriver;
class SimLine;
} // namespace testsupport

namespace soak {

struct Options
{
    quint64 seed = 20240611;
    int steps = 200;
    // Prints one line per step.
    bool verbose = false;

    // CPIBCR_SOAK_SEED, CPIBCR_SOAK_STEPS and CPIBCR_SOAK_VERBOSE from the environment
    // over the given values.
    static Options fromEnvironment(Options defaults);
};

enum class Op {
    Accept,
    CashOut,
    CashOutCheck,
    Pickup,
    Loan,
    Counter,
    Units,
    CheckState,
    Maintenance,
    Connect,
    AsyncCheck,
    Recreate,
};

QString opName(Op op);

// Everything one step does, drawn from a generator seeded by the run's seed and the
// step's number alone: a step's plan never depends on what earlier steps did.
struct StepPlan
{
    int step = 0;
    Op op = Op::CheckState;

    // Device faults and the operator, applied before the host call.
    bool openDoor = false;
    bool closeDoor = false;
    int jamHopper = 0;
    bool unjam = false;
    int emptyHopper = 0;
    bool acceptorFault = false;
    bool acceptorClear = false;
    bool refill = false;
    int refillCount = 0;

    // Coin acceptance: coins as (milliseconds after the start, coin position).
    bool fast = false;
    QSet<unsigned int> excluded;
    QList<QPair<int, int>> coins;
    // Coins offered while the session opens, as (milliseconds after cashInStart is called,
    // coin position): refused while the acceptor is inhibited, the session's once enabled.
    QList<QPair<int, int>> openingCoins;
    int pumpMsecs = 0;
    int doorAtMsecs = -1;
    int jamFoundAtMsecs = -1;
    int jamFoundHopper = 0;

    int mode = 0;
    long long amount = 0;
    QString unit;
    int operation = 0;
    bool refreshUnits = false;
    int counter = 0;

    QList<LineFault> faults;

    QString describe() const;
};

StepPlan planStep(quint64 seed, int step);

struct OpFigures
{
    int calls = 0;
    int failed = 0;
    qint64 maxMsecs = 0;
    qint64 maxBoundMsecs = 0;
};

struct Figures
{
    int stepsRun = 0;
    qint64 wallMsecs = 0;
    qint64 virtualMsecs = 0; // the line's clock: what the run would take in real time
    long long invariantChecks = 0;

    QMap<QString, OpFigures> calls;
    QMap<QString, int> stepsByOp;
    QMap<QString, int> lineFaultsPlanned;
    QMap<QString, int> lineFaultsFired;
    QMap<QString, int> deviceFaults;
    QMap<QString, int> failures; // host-visible messages: exceptions and error signals
    QMap<QString, int> failureFirstStep;
    int errorSignals = 0;

    qint64 maxCallMsecs = 0;
    QString maxCallOp;
    double maxBoundShare = 0; // the largest duration / bound seen

    int payoutCalls = 0;
    int payoutCallsFailed = 0;
    int payoutCommandsCarriedOut = 0;
    int payoutCommandsBusy = 0;
    int purgeRepeats = 0;
    quint64 valuePaidOut = 0;
    quint64 valuePaidByFailedCalls = 0;
    int failedPayoutsReconciled = 0;

    int sessions = 0;
    int sessionsStarted = 0;
    int cleanSessions = 0;
    int stalledSessions = 0;
    int stalledUntilStop = 0;
    int reportedAfterPollError = 0;
    int twinPayouts = 0;
    int paidLinesChecked = 0;
    int namedAmountsChecked = 0;
    int coinsInserted = 0;
    int coinsWhileOpening = 0;
    int coinsFoundByAudit = 0;
    quint64 valueAccepted = 0;
    quint64 valueReported = 0;
    quint64 valueUnreported = 0;
    int sessionsShort = 0;
    int sessionsNothingEnabled = 0;
    int sessionsReReported = 0;
    quint64 valueReReported = 0;

    int resets = 0;
    int busyBudgetLeft = 0;
    int staleUnitCache = 0;
    int partialUnitCache = 0;
    int forgedAnswers = 0;
    int stepsWithForgedAnswers = 0;
    int sessionsWithForgedAnswers = 0;
    quint64 valueAcceptedInForgedSessions = 0;
    int valueChecksExcused = 0;
    QString forgedExample;
    long long framesWritten = 0;
    long long balanceWritesChecked = 0;
    long long lostAnswerWaits = 0;

    QString toText() const;
};

// The fault soak: the driver object, through the host's cash-control interface, on
// an in-process line in virtual time to the simulated recycler. Runs the
// planned steps and checks the invariants after every one; stops at the first
// violation.
class Soak
{
public:
    explicit Soak(const Options& options);
    ~Soak();
    Q_DISABLE_COPY(Soak)

    // False when an invariant was violated or the rig could not start; failure() says why.
    bool run();
    QString failure() const { return failureText; }
    const Figures& figures() const { return fig; }
    const Options& options() const { return opts; }

    void setOutput(std::function<void(const QString&)> sink) { output = std::move(sink); }

private:
    struct Call
    {
        QString op;
        bool ok = false;
        QString error;
        qint64 msecs = 0;
        qint64 boundMsecs = 0;
        int firstTransaction = 0;
        QList<sim::Transaction> transactions;
        int payoutCommands = 0;
        QSet<int> payoutHeaders;
        QSet<int> balanceHeaders;
        QList<SoakPort::BalanceWrite> balanceWrites;
        // The driver's warnings of what a failed payout paid.
        QStringList paidLines;
    };
    struct Allowed
    {
        QSet<int> payout;
        QSet<int> balance;
    };
    struct Audit
    {
        QMap<int, quint32> dispensed; // hopper -> coins paid out and purged
        QMap<int, int> counts;        // hopper -> coins the device believes it holds
        quint64 paidOut = 0;
        quint64 accepted = 0;
        quint32 cashbox = 0;
    };

    void setUp();
    void makeDriver();
    void recreate(const StepPlan& plan);
    void runStep(const StepPlan& plan);
    void applyDeviceFaults(const StepPlan& plan);
    void afterStep();

    void accept(const StepPlan& plan);
    void cashOut(const StepPlan& plan);
    void cashOutCheck(const StepPlan& plan);
    void pickup(const StepPlan& plan);
    void loan(const StepPlan& plan);
    void counter(const StepPlan& plan);
    void units(const StepPlan& plan);
    void simple(const StepPlan& plan);
    void maintenance(const StepPlan& plan);

    Call hostCall(const QString& op, const Allowed& allowed, const std::function<void()>& body,
                  bool armFaults = false);
    void armFaults();
    void disarmFaults();
    void settle();
    Audit audit() const;
    QMap<unsigned int, long long> dispensedSince(const Audit& before, const Audit& after) const;
    void checkPaid(const Call& call, const SumDetailed& reported, const Audit& before);
    void reconcileFailedPayout(const Call& call, const Audit& before);
    void checkNamedAmount(const Call& call, long long paid);
    QMap<unsigned char, long long> foundByAudit() const;
    static long long amountIn(const QString& text);
    // Every hopper count the call wrote is the device's count just before the write
    // changed by `coins` (loaded: positive, taken: negative); a write repeated after a
    // lost answer finds the first one done and writes the same count.
    void checkBalanceWrites(const Call& call, int hopper, const std::function<long long(int before)>& coins);
    void pump(int msecs);
    void check(bool condition, const QString& what);
    // A check of values the driver decoded from answers: a forged answer taken from
    // line noise in this step excuses it (counted), nothing else does.
    void checkValue(bool condition, const QString& what);
    // Answers taken in this step that the device never sent.
    int forgedAnswers();
    [[noreturn]] void violation(const QString& what);
    bool findCachedUnit(const QString& name, CashControlUnit* unit) const;
    // Before a pickup or a load: the units read again when the plan says so, then the unit as
    // the driver's cache has it (false when it has none), counted when its count is stale.
    bool cachedUnitBefore(const StepPlan& plan, CashControlUnit* cached);
    unsigned int hopperDenom(int hopper) const;
    QString transactionsText(const QList<sim::Transaction>& list, int last) const;

    Options opts;
    Figures fig;
    QString failureText;
    std::function<void(const QString&)> output;

    std::unique_ptr<testsupport::LogCapture> log;
    std::unique_ptr<testsupport::SimLine> line;
    std::unique_ptr<SoakPort> port;
    std::unique_ptr<testsupport::RecordingDriver> driver;
    testsupport::RecordingChanger* changer = nullptr;

    StepPlan current;
    Call lastCall;
    QStringList pendingViolations;
    QStringList recentSteps;
    QString sessionNote;
    bool inSession = false;
    QList<SumDetailed> receivedInSession;
    QStringList pollErrors;
    int reportsBeforePollError = 0;
    QSet<int> emptiedHoppers;
    bool doorOpen = false;
    QSet<int> jammed;
    bool acceptorFaulty = false;
    quint64 paidOutAfterLastStep = 0;
    QString forgedExample;
};

} // namespace soak
