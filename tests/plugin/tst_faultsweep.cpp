// The fault sweep: one POS session run by the driver object against the simulated
// recycler in virtual time, once clean and then once for every exchange and every
// single fault injected at that exchange alone. After every run the money is checked
// against the simulator: the coins it counted in, the coins it paid out, the counts it
// holds.
#include "testdriver.h"

#include "simrig.h"

#include "sim/frame.h"

#include <QElapsedTimer>
#include <QtTest>

#include <functional>
#include <optional>

using namespace plugintest;

namespace {

using Denoms = QMap<unsigned int, long long>;

enum class Fault { None, Lost, Busy, Nak, Short, Corrupt, Foreign, Silent, PowerCycle, Jam, FlaggedJam };

struct FaultKind
{
    Fault fault;
    const char* name;
};

const FaultKind faultKinds[] = {
    {Fault::Lost, "lost"},       {Fault::Busy, "busy"},
    {Fault::Nak, "nak"},         {Fault::Short, "short"},
    {Fault::Corrupt, "corrupt"}, {Fault::Foreign, "foreign"},
    {Fault::Silent, "silent"},   {Fault::PowerCycle, "powercycle"},
    {Fault::Jam, "jam"},         {Fault::FlaggedJam, "flaggedjam"},
};

enum class Step {
    Connect,
    CashInStart,
    Coins,
    CashInStop,
    CashOut,
    Loan,
    Pickup,
    AcceptedCounter,
    DispensedCounter,
    RecoveryConnect,
    RecoveryStop,
};

QString stepName(Step step)
{
    static const char* const names[] = {
        "connect",         "cashInStart",      "coins",           "cashInStop",  "cashOut", "loan", "pickup",
        "acceptedCounter", "dispensedCounter", "recoveryConnect", "recoveryStop"};
    return QString::fromLatin1(names[int(step)]);
}

bool isPayout(quint8 header)
{
    return header == sim::cmd::DispenseHopperPattern || header == sim::cmd::PayMoneyOut ||
           header == sim::cmd::PurgeHopper;
}

bool paysOut(Step step)
{
    return step == Step::CashOut || step == Step::Pickup;
}

// Ways to spoil a clean run that a sound driver never takes: they show that the checks
// see a lost coin and a wrong count.
enum class Tamper { None, LoseReport, WrongWrite };

// The hopper the jam hits: the change and the pick-up both take coins from it. A jam is
// found by the device when it next pays from the hopper; a flagged one is raised at once.
const int jammedHopper = 2;
// The manual load: 5 coins of 1.00 into hopper3.
const int loadHopper = 3;
const int loadCoins = 5;

Denoms nonZero(const Denoms& d)
{
    Denoms out;
    for (auto it = d.cbegin(); it != d.cend(); ++it) {
        if (it.value() != 0)
            out.insert(it.key(), it.value());
    }
    return out;
}

Denoms minus(const Denoms& a, const Denoms& b)
{
    Denoms out = a;
    for (auto it = b.cbegin(); it != b.cend(); ++it)
        out[it.key()] -= it.value();
    return nonZero(out);
}

long long total(const Denoms& d)
{
    long long sum = 0;
    for (auto it = d.cbegin(); it != d.cend(); ++it)
        sum += static_cast<long long>(it.key()) * it.value();
    return sum;
}

QString text(const Denoms& d)
{
    SumDetailed s;
    s.denoms = d;
    return s.toString();
}

// "11.00" as 1100; -1 for anything else.
long long parseAmount(const QString& s)
{
    const int point = s.indexOf(QLatin1Char('.'));
    if (point < 1 || s.size() != point + 3)
        return -1;
    bool units = false, cents = false;
    const long long whole = s.left(point).toLongLong(&units);
    const long long part = s.mid(point + 1).toLongLong(&cents);
    return units && cents && whole >= 0 && part >= 0 ? whole * 100 + part : -1;
}

// What the end of a failed payout's text says came out.
struct Named
{
    enum Kind { Nothing, Exact, AtLeast, Unknown, Malformed } kind = Nothing;
    long long amount = 0;
};

Named namedAmount(const QString& message)
{
    const QString marker = QStringLiteral("; выдано");
    const int at = message.lastIndexOf(marker);
    if (at < 0)
        return {};
    const QString rest = message.mid(at + marker.size());
    const QString atLeast = QStringLiteral(" не менее ");
    Named named;
    if (rest == QStringLiteral(": неизвестно")) {
        named.kind = Named::Unknown;
    } else if (rest.startsWith(atLeast)) {
        named.kind = Named::AtLeast;
        named.amount = parseAmount(rest.mid(atLeast.size()));
    } else if (rest.startsWith(QLatin1Char(' '))) {
        named.kind = Named::Exact;
        named.amount = parseAmount(rest.mid(1));
    }
    if (named.kind == Named::Nothing || named.amount < 0)
        named.kind = Named::Malformed;
    return named;
}

// One call of the session as the POS made it.
struct StepRecord
{
    Step step;
    bool threw = false;
    QString message;
    SumDetailed returned;
    Denoms paidBefore, paidAfter;
    // Payout commands the device did not refuse with BUSY or NAK.
    int payoutCommands = 0;
};

// A payout, purge or pattern command as it reached the device, with what the hoppers had
// paid until then.
struct PayoutCommand
{
    int record;
    Denoms paidBefore;
};

class SweepRun
{
public:
    SweepRun(Fault fault, int at, Tamper tamper = Tamper::None);
    Q_DISABLE_COPY(SweepRun)

    void run();
    // How each payout call ended: "returned", "named", "at least", "unknown", "refused".
    QStringList payoutOutcomes() const;

    Fault fault;
    int at;
    Tamper tamper;
    // Requests that reached the device before the recovery.
    int exchanges = 0;
    int countsWritten = 0;
    QStringList violations;
    QList<StepRecord> records;
    QList<SumDetailed> reports;
    // The texts of the error signal, each with the step it came in.
    QStringList errors;
    StandardRig rig;
    testsupport::LogCapture log;

private:
    void session();
    void recover();
    void step(Step step, const std::function<SumDetailed()>& call);
    void onRequest(const QByteArray& frame);
    void inject();
    void checkCountWrite(quint8 header, const QByteArray& data, bool carriedOut);
    void checkCoins();
    void checkPayouts();
    void checkPayout(int index);
    void checkFinishedPayouts();
    void checkCounter(const StepRecord& r);
    Denoms finalPaid(int index) const;
    void violation(const QString& what);

    Denoms accepted() const;
    Denoms paid() const;

    Denoms acceptedAtStart;
    QList<PayoutCommand> payoutCommands;
    int current = 0;
    int requests = 0;
    bool recovering = false;
    bool silent = false;
    bool refused = false;
    int loadPending = loadCoins;
    bool reportLost = false;
    QList<int> stepLogStart;
};

SweepRun::SweepRun(Fault f, int index, Tamper t) : fault(f), at(index), tamper(t)
{
    acceptedAtStart = accepted();
    rig.line.setRequestHook([this](const QByteArray& frame) { onRequest(frame); });
    QObject::connect(&rig.driver, &hw::BasicCashControl::received, [this](SumDetailed sum) {
        if (tamper == Tamper::LoseReport && !reportLost && sum.sum() != 0) {
            reportLost = true;
            return;
        }
        reports << sum;
    });
    QObject::connect(&rig.driver, &hw::BasicCashControl::error, [this](const QString& message) {
        errors << stepName(records.at(current).step) + QStringLiteral(": ") + message;
    });
}

// The coins the simulator counted in through its positions, by denomination.
Denoms SweepRun::accepted() const
{
    Denoms out;
    const QMap<int, QString> ids = rig.line.config().coinIds;
    for (auto it = ids.cbegin(); it != ids.cend(); ++it)
        out[sim::coinValue(it.value())] +=
            rig.line.device().auditCounter(sim::audit::Accepted, quint8(it.key()));
    return nonZero(out);
}

// The coins the simulator's hoppers paid out and purged, by denomination.
Denoms SweepRun::paid() const
{
    Denoms out;
    const sim::Device& device = rig.line.device();
    for (int h = 1; h <= device.hopperCount(); ++h) {
        const long long n = static_cast<long long>(device.auditCounter(sim::audit::PaidOut, quint8(h))) +
                            device.auditCounter(sim::audit::Purged, quint8(h));
        out[sim::coinValue(device.config().hoppers.at(h - 1).coinId)] += n;
    }
    return nonZero(out);
}

QStringList SweepRun::payoutOutcomes() const
{
    static const char* const names[] = {"refused", "named", "at least", "unknown", "malformed"};
    QStringList out;
    for (const StepRecord& r : records) {
        if (paysOut(r.step))
            out << QString::fromLatin1(r.threw ? names[namedAmount(r.message).kind] : "returned");
    }
    return out;
}

void SweepRun::violation(const QString& what)
{
    violations << what;
}

void SweepRun::run()
{
    session();
    recover();
    // Anything still in flight lands; nothing more is reported after the last stop.
    rig.line.advance(10000);
    checkCoins();
    checkPayouts();
    checkFinishedPayouts();
    for (const StepRecord& r : qAsConst(records))
        checkCounter(r);
}

void SweepRun::session()
{
    Timer* polls = rig.driver.recorder->timer();
    step(Step::Connect, [&] {
        rig.start();
        return SumDetailed();
    });
    step(Step::CashInStart, [&] {
        rig.driver.cashInStart(false, {});
        return SumDetailed();
    });
    step(Step::Coins, [&] {
        sim::Device& device = rig.device();
        device.insertCoin(4);
        device.insertCoin(1);
        const qint64 now = rig.line.now();
        rig.line.at(now + 300, [&device] { device.insertCoin(3); });
        rig.line.at(now + 700, [&device] { device.insertCoin(4); });
        rig.line.at(now + 1100, [&device] { device.insertCoin(1); });
        rig.line.runTimer(polls, 2000);
        // Still in flight when the stop comes.
        device.insertCoin(4);
        return SumDetailed();
    });
    step(Step::CashInStop, [&] {
        rig.driver.cashInStop();
        return SumDetailed();
    });
    step(Step::CashOut, [&] { return rig.driver.cashOut(ECashControl::Minimum, 1800); });
    step(Step::Loan, [&] {
        rig.driver.loan(QStringLiteral("hopper%1").arg(loadHopper), ECashControl::ManualLoad,
                        loadCoins * 100);
        if (tamper == Tamper::WrongWrite) {
            const int wrong = rig.device().hopperCount(1) + 1;
            rig.line.write(
                sim::frame::make(rig.line.config().address, 1, sim::cmd::ModHopperBalance,
                                 QByteArray::fromHex("01") + char(wrong & 0xFF) + char(wrong >> 8)));
        }
        return SumDetailed();
    });
    step(Step::Pickup,
         [&] { return rig.driver.pickup(QStringLiteral("hopper2"), ECashControl::DispensePickupSum, 1500); });
    step(Step::AcceptedCounter, [&] { return rig.driver.getCounter(ECashControl::Accepted); });
    step(Step::DispensedCounter, [&] { return rig.driver.getCounter(ECashControl::Dispensed); });
}

// The fault is gone: the line answers again, the jam is cleared. The host connects and
// stops acceptance, which closes whatever session was left open.
void SweepRun::recover()
{
    recovering = true;
    silent = false;
    rig.line.clearLineFaults();
    if (fault == Fault::Jam || fault == Fault::FlaggedJam)
        rig.device().clearFaults();
    step(Step::RecoveryConnect, [&] {
        rig.driver.connect();
        return SumDetailed();
    });
    step(Step::RecoveryStop, [&] {
        rig.driver.cashInStop();
        return SumDetailed();
    });
    for (const StepRecord& r : qAsConst(records)) {
        if ((r.step == Step::RecoveryConnect || r.step == Step::RecoveryStop) && r.threw)
            violation(stepName(r.step) + QStringLiteral(": failed with the fault cleared: ") + r.message);
    }
}

void SweepRun::step(Step s, const std::function<SumDetailed()>& call)
{
    current = records.size();
    StepRecord r;
    r.step = s;
    r.paidBefore = paid();
    const int transactionsBefore = rig.line.transactions().size();
    stepLogStart << log.lines().size();
    records << r;
    try {
        r.returned = call();
    } catch (const CashControlExc& e) {
        r.threw = true;
        r.message = e.message();
    } catch (const std::exception& e) {
        r.threw = true;
        r.message = QString::fromUtf8(e.what());
        violation(stepName(s) + QStringLiteral(": an exception the host does not catch: ") + r.message);
    }
    r.paidAfter = paid();
    const QList<sim::Transaction> sent = rig.line.transactions();
    const QByteArray busy = sim::frame::make(1, rig.line.config().address, sim::frame::Busy);
    const QByteArray nak = sim::frame::make(1, rig.line.config().address, sim::frame::Nak);
    for (int i = transactionsBefore; i < sent.size(); ++i) {
        const sim::Transaction& t = sent.at(i);
        if (isPayout(t.header) && !t.answer.endsWith(busy) && !t.answer.endsWith(nak))
            ++r.payoutCommands;
    }
    records[current] = r;
}

void SweepRun::onRequest(const QByteArray& frame)
{
    refused = false;
    if (!recovering) {
        ++requests;
        exchanges = requests;
        if (requests == at)
            inject();
    }
    const quint8 header = sim::frame::header(frame);
    const QByteArray data = sim::frame::data(frame);
    if (header == sim::cmd::ModHopperBalance || header == sim::cmd::ModCashboxValue)
        checkCountWrite(header, data, !silent && !refused);
    if (isPayout(header))
        payoutCommands << PayoutCommand{current, paid()};
}

void SweepRun::inject()
{
    testsupport::SimLine& line = rig.line;
    switch (fault) {
    case Fault::None:
        break;
    case Fault::Lost:
        line.dropAnswers(1);
        break;
    case Fault::Busy:
        line.answerBusy(1);
        refused = true;
        break;
    case Fault::Nak:
        line.nakNext();
        refused = true;
        break;
    case Fault::Short:
        line.shortenNext();
        break;
    case Fault::Corrupt:
        line.corruptChecksumNext();
        break;
    case Fault::Foreign:
        line.foreignFrameBeforeNext();
        break;
    case Fault::Silent:
        line.setSilent(true);
        silent = true;
        break;
    case Fault::PowerCycle:
        rig.device().powerCycle();
        break;
    case Fault::Jam:
        rig.device().jamHopper(jammedHopper);
        break;
    case Fault::FlaggedJam:
        rig.device().flagHopperJam(jammedHopper);
        break;
    }
}

// A count written must be the device's own at that moment; during the manual load, plus
// the coins the operator put in until the write has taken them in.
void SweepRun::checkCountWrite(quint8 header, const QByteArray& data, bool carriedOut)
{
    ++countsWritten;
    const QString where = stepName(records.at(current).step) + QStringLiteral(": ");
    if (header == sim::cmd::ModCashboxValue) {
        const quint32 written = data.size() == 4 ? qFromLittleEndian<quint32>(data.constData()) : 0;
        if (data.size() != 4 || written != rig.device().cashbox())
            violation(where + QStringLiteral("cashbox written %1, holds %2")
                                  .arg(QString::fromLatin1(data.toHex()))
                                  .arg(rig.device().cashbox()));
        return;
    }
    if (data.size() != 3) {
        violation(where +
                  QStringLiteral("hopper count written as %1").arg(QString::fromLatin1(data.toHex())));
        return;
    }
    const int hopper = quint8(data.at(0));
    const int written = qFromLittleEndian<quint16>(data.constData() + 1);
    const bool loading = records.at(current).step == Step::Loan && hopper == loadHopper;
    const int truth = rig.device().hopperCount(hopper) + (loading ? loadPending : 0);
    if (written != truth)
        violation(where +
                  QStringLiteral("hopper%1 written %2, holds %3").arg(hopper).arg(written).arg(truth));
    if (loading && carriedOut)
        loadPending = 0;
}

// Every coin the simulator counted in is reported once, and no other.
void SweepRun::checkCoins()
{
    const Denoms counted = minus(accepted(), acceptedAtStart);
    Denoms reported;
    for (const SumDetailed& report : qAsConst(reports)) {
        for (auto it = report.denoms.cbegin(); it != report.denoms.cend(); ++it)
            reported[it.key()] += it.value();
        if (report.rest != 0)
            violation(QStringLiteral("coins: %1 reported without a denomination").arg(report.rest));
    }
    reported = nonZero(reported);
    if (reported != counted)
        violation(QStringLiteral("coins: counted %1, reported %2").arg(text(counted), text(reported)));
}

void SweepRun::checkPayouts()
{
    for (int i = 0; i < records.size(); ++i) {
        const StepRecord& r = records.at(i);
        if (paysOut(r.step)) {
            checkPayout(i);
            continue;
        }
        if (r.payoutCommands > 0)
            violation(stepName(r.step) + QStringLiteral(": a payout command outside a payout"));
    }
    // Coins move outside a payout call only when a payout was left running.
    bool running = false;
    for (const StepRecord& r : qAsConst(records)) {
        if (!paysOut(r.step) && !running && r.paidAfter != r.paidBefore)
            violation(
                stepName(r.step) +
                QStringLiteral(": paid %1 outside a payout").arg(text(minus(r.paidAfter, r.paidBefore))));
        if (paysOut(r.step))
            running = namedAmount(r.message).kind == Named::AtLeast;
    }
}

// What the hoppers paid from the start of this call until the next payout command of a
// later call, or until the end of the run: the payout's final figure.
Denoms SweepRun::finalPaid(int index) const
{
    for (const PayoutCommand& c : payoutCommands) {
        if (c.record > index)
            return minus(c.paidBefore, records.at(index).paidBefore);
    }
    return minus(paid(), records.at(index).paidBefore);
}

void SweepRun::checkPayout(int index)
{
    const StepRecord& r = records.at(index);
    const QString where = stepName(r.step) + QStringLiteral(": ");
    const Denoms during = minus(r.paidAfter, r.paidBefore);
    if (r.payoutCommands > 1)
        violation(where + QStringLiteral("the payout command sent %1 times").arg(r.payoutCommands));
    if (!r.threw) {
        if (nonZero(r.returned.denoms) != during || r.returned.rest != 0)
            violation(where +
                      QStringLiteral("returned %1, paid %2").arg(r.returned.toString(), text(during)));
        return;
    }
    const Named named = namedAmount(r.message);
    switch (named.kind) {
    case Named::Nothing:
        if (r.payoutCommands > 0)
            violation(where + QStringLiteral("failed after its payout command naming nothing: ") + r.message);
        if (!during.isEmpty())
            violation(where + QStringLiteral("paid %1, failed naming nothing: ").arg(text(during)) +
                      r.message);
        break;
    case Named::Exact:
        if (named.amount != total(during))
            violation(where + QStringLiteral("paid %1, failed with: ").arg(text(during)) + r.message);
        break;
    case Named::AtLeast:
        if (named.amount > total(during))
            violation(where + QStringLiteral("paid %1, failed with: ").arg(text(during)) + r.message);
        break;
    case Named::Unknown:
        if (fault != Fault::Silent)
            violation(where +
                      QStringLiteral("paid %1 with the counters readable, failed with: ").arg(text(during)) +
                      r.message);
        break;
    case Named::Malformed:
        violation(where + QStringLiteral("failed with: ") + r.message);
        break;
    }
}

// The final figure of a payout the driver stopped waiting for is logged once, and is
// what the hoppers paid for it.
void SweepRun::checkFinishedPayouts()
{
    const QString heading = QStringLiteral("Выдача завершена, выдано ");
    int unfinished = -1;
    int record = 0;
    const QList<testsupport::LogLine>& lines = log.lines();
    for (int i = 0; i < lines.size(); ++i) {
        while (record + 1 < records.size() && stepLogStart.at(record + 1) <= i) {
            ++record;
            const StepRecord& r = records.at(record - 1);
            if (paysOut(r.step) && namedAmount(r.message).kind == Named::AtLeast)
                unfinished = record - 1;
        }
        if (lines.at(i).level != QLatin1String("WARN") || !lines.at(i).text.startsWith(heading))
            continue;
        const QString figure = lines.at(i).text.mid(heading.size()).section(QStringLiteral(". "), 0, 0);
        if (unfinished < 0) {
            violation(QStringLiteral("finished payout logged with none unfinished: ") + lines.at(i).text);
            continue;
        }
        const long long final = total(finalPaid(unfinished));
        if (parseAmount(figure) != final)
            violation(stepName(records.at(unfinished).step) +
                      QStringLiteral(": paid %1 in all, logged: ").arg(cashcontrol::formatAmount(final)) +
                      lines.at(i).text);
        unfinished = -1;
    }
    if (unfinished >= 0)
        violation(stepName(records.at(unfinished).step) +
                  QStringLiteral(": named a lower bound, and no later operation logged the final figure"));
}

// A counter the host is given is the device's own.
void SweepRun::checkCounter(const StepRecord& r)
{
    if (r.threw || (r.step != Step::AcceptedCounter && r.step != Step::DispensedCounter))
        return;
    const Denoms truth = r.step == Step::AcceptedCounter ? accepted() : r.paidAfter;
    if (nonZero(r.returned.denoms) != truth || r.returned.rest != 0)
        violation(
            stepName(r.step) +
            QStringLiteral(": returned %1, the device counts %2").arg(r.returned.toString(), text(truth)));
}

struct Violation
{
    QString fault;
    int at;
    QString what;
};

// Every k-th exchange only, for the slow builds: CPIBCR_SWEEP_STRIDE=k.
int stride()
{
    bool ok = false;
    const int k = qEnvironmentVariableIntValue("CPIBCR_SWEEP_STRIDE", &ok);
    return ok && k > 1 ? k : 1;
}

// One run alone, its log printed: CPIBCR_SWEEP_ONLY=short:37.
std::optional<QPair<Fault, int>> onlyRun()
{
    const QString only = qEnvironmentVariable("CPIBCR_SWEEP_ONLY");
    for (const FaultKind& kind : faultKinds) {
        const QString prefix = QString::fromLatin1(kind.name) + QLatin1Char(':');
        bool ok = false;
        const int at = only.startsWith(prefix) ? only.mid(prefix.size()).toInt(&ok) : 0;
        if (ok)
            return qMakePair(kind.fault, at);
    }
    return std::nullopt;
}

} // namespace

class TestFaultSweep : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { RecordingChanger::setResetPending(false); }

    void cleanSessionMovesTheMoney();
    void lostReportIsSeen();
    void wrongCountIsSeen();
    void sweep();
};

void TestFaultSweep::cleanSessionMovesTheMoney()
{
    SweepRun run(Fault::None, 0);
    run.run();
    QCOMPARE(run.violations, QStringList());
    for (const StepRecord& r : qAsConst(run.records))
        QVERIFY2(!r.threw, qPrintable(stepName(r.step) + QStringLiteral(": ") + r.message));
    Denoms reported;
    for (const SumDetailed& report : qAsConst(run.reports)) {
        for (auto it = report.denoms.cbegin(); it != report.denoms.cend(); ++it)
            reported[it.key()] += it.value();
    }
    QCOMPARE(nonZero(reported), (Denoms{{100, 2}, {500, 1}, {1000, 3}}));
    QCOMPARE(run.records.at(int(Step::CashOut)).returned.sum(), 1800LL);
    QCOMPARE(run.records.at(int(Step::Pickup)).returned.sum(), 1500LL);
    QCOMPARE(run.countsWritten, 1);
    QCOMPARE(run.rig.hopperCounts(), (QList<int>{12, 17, 54}));
    QVERIFY(run.exchanges > 50);
}

void TestFaultSweep::lostReportIsSeen()
{
    SweepRun run(Fault::None, 0, Tamper::LoseReport);
    run.run();
    QCOMPARE(run.violations.size(), 1);
    QVERIFY2(run.violations.first().startsWith(QStringLiteral("coins: counted 37.00")),
             qPrintable(run.violations.first()));
}

void TestFaultSweep::wrongCountIsSeen()
{
    SweepRun run(Fault::None, 0, Tamper::WrongWrite);
    run.run();
    QCOMPARE(run.violations, QStringList{QStringLiteral("loan: hopper1 written 13, holds 12")});
}

void TestFaultSweep::sweep()
{
    if (const std::optional<QPair<Fault, int>> only = onlyRun()) {
        SweepRun run(only->first, only->second);
        run.run();
        for (const QString& line : run.log.formatted())
            qInfo("%s", qPrintable(line));
        for (const StepRecord& r : qAsConst(run.records))
            qInfo("step %s: %s", qPrintable(stepName(r.step)),
                  qPrintable(r.threw ? r.message : r.returned.toString()));
        for (const QString& error : qAsConst(run.errors))
            qInfo("error signal in %s", qPrintable(error));
        for (const QString& what : qAsConst(run.violations))
            qInfo("violation: %s", qPrintable(what));
        QCOMPARE(run.violations, QStringList());
        return;
    }
    QElapsedTimer clock;
    clock.start();
    SweepRun clean(Fault::None, 0);
    clean.run();
    QCOMPARE(clean.violations, QStringList());
    const int exchanges = clean.exchanges;
    const int step = stride();
    int runs = 0;
    QList<Violation> found;
    QMap<QString, int> outcomes;
    int writes = 0;
    for (const FaultKind& kind : faultKinds) {
        for (int i = 1; i <= exchanges; i += step) {
            SweepRun run(kind.fault, i);
            run.run();
            ++runs;
            writes += run.countsWritten;
            for (const QString& outcome : run.payoutOutcomes())
                ++outcomes[outcome];
            for (const QString& what : qAsConst(run.violations))
                found << Violation{QString::fromLatin1(kind.name), i, what};
        }
    }
    qInfo("fault sweep: %d runs, %d violations (%d exchanges, every %d, %lld ms)", runs, int(found.size()),
          exchanges, step, static_cast<long long>(clock.elapsed()));
    QStringList tally;
    for (auto it = outcomes.cbegin(); it != outcomes.cend(); ++it)
        tally << QStringLiteral("%1 %2").arg(it.key()).arg(it.value());
    qInfo("payouts: %s; counts written: %d", qPrintable(tally.join(QStringLiteral(", "))), writes);
    for (int i = 0; i < found.size() && i < 80; ++i)
        qInfo("  %s at %d: %s", qPrintable(found.at(i).fault), found.at(i).at, qPrintable(found.at(i).what));
    QVERIFY(runs >= int(std::size(faultKinds)) * ((exchanges + step - 1) / step));
    QCOMPARE(found.size(), 0);
}

QTEST_GUILESS_MAIN(TestFaultSweep)
#include "tst_faultsweep.moc"
