#include "soak.h"

#include "cashcontrol/cashcontrolexc.h"
#include "cashcontrol/ecashcontrol.h"
#include "host/serialport.h"
#include "sim/device.h"
#include "sim/simulator.h"
#include "support/frames.h"
#include "support/logcapture.h"
#include "support/ptyrig.h"
#include "support/recordingdriver.h"
#include "support/simline.h"

#include <QCoreApplication>

#include <algorithm>
#include <iterator>
#include <random>

namespace soak {

namespace {

const QString driverName = QStringLiteral("Монетоприемник: ");
const QString noLink = QStringLiteral("Нет связи");

// Headers of the commands that pay coins out, and of those that set a balance.
const QSet<int> payoutHeaders = {85, 121, 125};
const QSet<int> balanceHeaders = {118, 120};
const int busyHeader = 6;
const int purgeHeader = 121;
// Hoppers 1 and 5 both hold 10.00 coins; hopper 6 (50 kopecks) is switched off.
const int hoppers = 5;
const unsigned int hopperDenoms[hoppers] = {1000, 500, 200, 100, 1000};

// Times are the line's virtual milliseconds: the same on any machine, however loaded.
// Hard ceiling of one host call besides its pauses; the computed bound of each call
// is checked too.
const qint64 ceilingMsecs = 30000;
// What a call may spend besides its pauses and lost answers: a few dozen commands.
const qint64 baseBoundMsecs = 5000;
// The driver's wait for an answer that does not come, and what it reads before.
const qint64 lostAnswerMsecs = 1300;
// Bound of one receive attempt while the line babbles (the driver's own cap is 5 s).
const qint64 noisyAttemptMsecs = 5300;

struct Violation
{
};

quint64 splitMix(quint64 x)
{
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31);
}

// A dispense pattern that asks both hoppers of 10.00 coins for some.
bool drawsOnBothTens(const QByteArray& frame)
{
    QSet<int> asked;
    for (int i = 4; i + 1 < frame.size() - 1; i += 2) {
        if (quint8(frame.at(i + 1)) > 0)
            asked.insert(quint8(frame.at(i)));
    }
    return asked.contains(1) && asked.contains(5);
}

// The rig's fast recycler with two small hoppers of 10.00 coins, hopper 1 and hopper 5.
// The operator fills a hopper to the brim only once it is nearly empty, so the two
// often share a payout, and which of them is the fuller changes from payout to payout.
sim::Config soakConfig()
{
    sim::Config c = testsupport::fastConfig();
    sim::HopperConfig disabled = c.hoppers.at(4);
    disabled.serial = 610026;
    c.hoppers[4].coinId = c.hoppers.at(0).coinId;
    c.hoppers[0].count = 8;
    c.hoppers[0].capacity = 8;
    c.hoppers[4].count = 6;
    c.hoppers[4].capacity = 6;
    c.hoppers[4].enabled = true;
    c.hoppers.append(disabled);
    return c;
}

// Draws from the step's generator without the standard distributions, whose
// algorithms differ between libraries: a plan is the same wherever it is drawn.
class Draw
{
public:
    explicit Draw(quint64 seed) : rng(seed) {}

    int uniform(int lo, int hi) { return lo + static_cast<int>(rng() % static_cast<quint64>(hi - lo + 1)); }
    bool chance(double p) { return static_cast<double>(rng() >> 11) * (1.0 / 9007199254740992.0) < p; }
    // A roll of 0 to 99 picks the value of the first bound above it, otherwise `rest`.
    template <typename T> T weighted(std::initializer_list<std::pair<int, T>> below, T rest)
    {
        const int roll = uniform(0, 99);
        for (const std::pair<int, T>& choice : below)
            if (roll < choice.first)
                return choice.second;
        return rest;
    }

private:
    std::mt19937_64 rng;
};

QString hopperName(int h)
{
    return QStringLiteral("hopper%1").arg(h);
}

int hopperOf(const QString& unitName)
{
    return QString(unitName).remove(QStringLiteral("hopper")).toInt();
}

unsigned int plannedDenom(const QString& unitName)
{
    const int h = hopperOf(unitName);
    return h >= 1 && h <= hoppers ? hopperDenoms[h - 1] : 100;
}

long long payAmount(Draw& d)
{
    const int r = d.uniform(0, 99);
    if (r < 5)
        return 0;
    long long amount = 0;
    for (int k = d.uniform(1, 12); k > 0; --k)
        amount += hopperDenoms[d.uniform(0, hoppers - 1)];
    // No hopper pays 50 kopecks, and the hoppers start with far less than 10000 roubles.
    if (r < 13)
        return amount + 50;
    if (r < 16)
        return amount + 1000000;
    return amount;
}

LineFault lineFault(Draw& d, Op op)
{
    LineFault f;
    const int w = d.uniform(0, 99);
    if (w < 22) {
        f.kind = LineFault::LostAnswers;
        const int c = d.uniform(0, 99);
        f.count = c < 55 ? 1 : c < 80 ? 2 : c < 88 ? 3 : c < 94 ? 4 : 5;
    } else if (w < 38) {
        f.kind = LineFault::Busy;
        f.count = d.chance(0.1) ? d.uniform(4, 10) : d.uniform(1, 3);
    } else if (w < 52) {
        f.kind = LineFault::Nak;
        f.count = 1;
    } else if (w < 64) {
        f.kind = LineFault::BadChecksum;
        f.count = d.chance(0.05) ? 5 : d.uniform(1, 2);
    } else if (w < 78) {
        f.kind = LineFault::Garbage;
        for (int n = d.uniform(1, 12); n > 0; --n)
            f.garbage.append(static_cast<char>(d.uniform(0, 255)));
    } else if (w < 87) {
        f.kind = LineFault::ShortAnswer;
        f.count = d.uniform(1, 2);
    } else if (w < 92) {
        f.kind = LineFault::Split;
        f.pieces = d.uniform(2, 6);
        f.pauseMs = d.uniform(0, 4);
    } else if (w < 95) {
        f.kind = LineFault::Silence;
    } else {
        f.kind = LineFault::Babble;
        f.count = d.uniform(1, 3);
    }

    QList<int> headers;
    int frames = 10;
    switch (op) {
    case Op::Accept:
        headers = {82, 231, 165, 123};
        frames = 80;
        break;
    case Op::CashOut:
        headers = {85, 86};
        frames = 70;
        break;
    case Op::Pickup:
        headers = {85, 121, 120, 118};
        frames = 30;
        break;
    case Op::Loan:
        headers = {120};
        break;
    case Op::Connect:
    case Op::Recreate:
        headers = {1, 116, 247};
        frames = 60;
        break;
    case Op::CashOutCheck:
        frames = 45;
        break;
    case Op::Units:
        frames = 40;
        break;
    case Op::Counter:
        frames = 25;
        break;
    default:
        break;
    }
    if (!headers.isEmpty() && d.chance(0.4))
        f.atHeader = headers.at(d.uniform(0, headers.size() - 1));
    else
        f.atFrame = d.uniform(0, frames);
    return f;
}

// The last frame of an answer as the simulator put it on the line (garbage may
// precede it); -1 when there is none with a valid checksum.
int answerHeader(const QByteArray& answer)
{
    for (int i = 0; i + 5 <= answer.size(); ++i) {
        if (testsupport::isReply(answer.mid(i)))
            return static_cast<unsigned char>(answer.at(i + 3));
    }
    return -1;
}

// The frame the driver's answer assembly takes from the bytes of one attempt, as the
// link defines it: resynchronise one byte at a time; a frame is its length byte plus
// five bytes (at most 255) whose sum is 0 modulo 256; frames from address 1 (the echo)
// and frames that are not from the device (55) to the host (1) are passed over whole;
// the first frame from the device to the host is taken. Returns the buffer from the
// accepted frame on, empty when none is taken.
QByteArray acceptedFrom(const QByteArray& bytes)
{
    int pos = 0;
    while (bytes.size() - pos > 4) {
        const int length = static_cast<unsigned char>(bytes.at(pos + 1)) + 5;
        if (length > 255) {
            ++pos;
            continue;
        }
        if (length > bytes.size() - pos)
            return QByteArray();
        if (!testsupport::isFrame(bytes.mid(pos, length))) {
            ++pos;
            continue;
        }
        const auto to = static_cast<unsigned char>(bytes.at(pos));
        const auto from = static_cast<unsigned char>(bytes.at(pos + 2));
        if (from == 1 || to != 1 || from != 55) {
            pos += length;
            continue;
        }
        return bytes.mid(pos);
    }
    return QByteArray();
}

// Whether the accepted buffer starts with an answer the device really put on the
// line (after any garbage injected before it).
bool isGenuine(const QByteArray& accepted, const QList<sim::Transaction>& transactions)
{
    for (const sim::Transaction& t : transactions) {
        for (int i = 0; i + 5 <= t.answer.size(); ++i) {
            const QByteArray frame = QByteArray::fromRawData(t.answer.constData() + i, t.answer.size() - i);
            if (accepted.startsWith(frame) && testsupport::isReply(frame))
                return true;
        }
    }
    return false;
}

bool hasCyrillic(const QString& text)
{
    return std::any_of(text.cbegin(), text.cend(),
                       [](QChar c) { return c.unicode() >= 0x0410 && c.unicode() <= 0x044F; });
}

QString sumText(const QMap<unsigned int, long long>& denoms)
{
    QStringList parts;
    for (auto it = denoms.cbegin(); it != denoms.cend(); ++it)
        parts << QStringLiteral("%1x%2").arg(it.key()).arg(it.value());
    return QLatin1Char('{') + parts.join(QStringLiteral(", ")) + QLatin1Char('}');
}

QString hex(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex(' ').toUpper());
}

} // namespace

QString opName(Op op)
{
    static const char* const names[] = {
        "accept",           "cashOut",          "cashOutCheck", "pickup",          "loan",
        "getCounter",       "getUnits",         "checkState",   "maintenanceInfo", "connect",
        "enableAsyncCheck", "new driver object"};
    static_assert(std::size(names) == std::size_t(Op::Recreate) + 1, "one name for each Op");
    return QString::fromLatin1(names[int(op)]);
}

Options Options::fromEnvironment(Options defaults)
{
    bool ok = false;
    const quint64 seed = qEnvironmentVariable("CPIBCR_SOAK_SEED").toULongLong(&ok, 0);
    if (ok)
        defaults.seed = seed;
    const int steps = qEnvironmentVariable("CPIBCR_SOAK_STEPS").toInt(&ok);
    if (ok && steps >= 0)
        defaults.steps = steps;
    if (qEnvironmentVariableIntValue("CPIBCR_SOAK_VERBOSE") > 0)
        defaults.verbose = true;
    return defaults;
}

// The unit of a pickup or a load: a weighted pick where an empty name stands for a hopper
// drawn next.
QString unitOrHopper(Draw& d, std::initializer_list<std::pair<int, QString>> below, const QString& rest)
{
    const QString unit = d.weighted<QString>(below, rest);
    return unit.isEmpty() ? hopperName(d.uniform(1, hoppers)) : unit;
}

// The amount of a pickup or a load: up to maxCoins of the unit's coins, at times with a part coin.
void planMoveAmount(Draw& d, StepPlan& p, int maxCoins)
{
    p.amount = plannedDenom(p.unit) * d.uniform(0, maxCoins) + (d.chance(0.1) ? 50 : 0);
    p.refreshUnits = d.chance(0.7);
}

StepPlan planStep(quint64 seed, int step)
{
    using Operation = ECashControl::UnitOperation;
    Draw d(splitMix(seed ^ splitMix(static_cast<quint64>(step) + 1)));
    StepPlan p;
    p.step = step;

    p.openDoor = d.chance(0.02);
    p.closeDoor = d.chance(0.3);
    p.jamHopper = d.chance(0.02) ? d.uniform(1, hoppers) : 0;
    p.unjam = d.chance(0.3);
    p.emptyHopper = d.chance(0.015) ? d.uniform(1, hoppers) : 0;
    p.acceptorFault = d.chance(0.01);
    p.acceptorClear = d.chance(0.35);
    p.refill = d.chance(0.5);
    p.refillCount = d.uniform(120, 400);

    p.op = d.weighted<Op>({{28, Op::Accept},
                           {46, Op::CashOut},
                           {53, Op::CashOutCheck},
                           {63, Op::Pickup},
                           {70, Op::Loan},
                           {80, Op::Counter},
                           {87, Op::Units},
                           {91, Op::CheckState},
                           {92, Op::Recreate},
                           {95, Op::Maintenance},
                           {97, Op::Connect}},
                          Op::AsyncCheck);

    switch (p.op) {
    case Op::Accept: {
        p.fast = d.chance(0.3);
        for (unsigned int denom : {100u, 200u, 500u, 1000u}) {
            if (d.chance(0.12))
                p.excluded.insert(denom);
        }
        if (d.chance(0.05))
            p.excluded.insert(50);
        const int coins = d.chance(0.1) ? 0 : d.uniform(1, 8);
        p.pumpMsecs = d.uniform(60, 700);
        for (int i = 0; i < coins; ++i) {
            const int at = d.uniform(0, p.pumpMsecs - 1);
            p.coins.append(qMakePair(at, d.uniform(1, 8)));
        }
        std::stable_sort(
            p.coins.begin(), p.coins.end(),
            [](const QPair<int, int>& a, const QPair<int, int>& b) { return a.first < b.first; });
        if (d.chance(0.25)) {
            for (int n = d.uniform(1, 2); n > 0; --n)
                p.openingCoins.append(qMakePair(d.uniform(0, 1500), d.uniform(1, 8)));
        }
        p.doorAtMsecs = d.chance(0.06) ? d.uniform(0, p.pumpMsecs - 1) : -1;
        if (d.chance(0.06)) {
            p.jamFoundAtMsecs = d.uniform(0, p.pumpMsecs - 1);
            p.jamFoundHopper = d.uniform(1, hoppers);
        }
        break;
    }
    case Op::CashOut:
    case Op::CashOutCheck:
        p.mode = d.uniform(0, 1);
        p.amount = payAmount(d);
        break;
    case Op::Pickup:
        p.unit = unitOrHopper(
            d, {{80, QString()}, {90, QStringLiteral("cashbox")}, {95, QStringLiteral("hopper6")}},
            QStringLiteral("hopper9"));
        p.operation = d.weighted<Operation>({{15, Operation::ManualPickupAll},
                                             {35, Operation::ManualPickupSum},
                                             {47, Operation::DispensePickupAll},
                                             {90, Operation::DispensePickupSum}},
                                            Operation::PickupSumToCashbox);
        planMoveAmount(d, p, 40);
        break;
    case Op::Loan:
        p.unit =
            unitOrHopper(d, {{85, QString()}, {93, QStringLiteral("cashbox")}}, QStringLiteral("hopper9"));
        p.operation = d.weighted<Operation>(
            {{75, Operation::ManualLoad}, {84, Operation::LoadMainAcceptor}, {92, Operation::LoadLoader}},
            Operation::PickupAllToCashbox);
        planMoveAmount(d, p, 150);
        break;
    case Op::Counter:
        p.counter = d.chance(0.1) ? 2 : d.uniform(0, 1);
        break;
    case Op::Maintenance:
        p.unit = d.chance(0.2) ? QStringLiteral("cashbox") : hopperName(d.uniform(1, hoppers));
        break;
    default:
        break;
    }

    if (d.chance(0.4)) {
        p.faults << lineFault(d, p.op);
        if (d.chance(0.15))
            p.faults << lineFault(d, p.op);
    }
    // The answer to a payout command lost: the coins go out all the same.
    if ((p.op == Op::CashOut || p.op == Op::Pickup) && d.chance(0.12)) {
        LineFault lost;
        lost.atHeader = 85;
        p.faults << lost;
    }
    return p;
}

QString StepPlan::describe() const
{
    QStringList parts;
    parts << QStringLiteral("step %1: %2").arg(step).arg(opName(op));
    switch (op) {
    case Op::Accept: {
        QStringList excl;
        QList<unsigned int> sorted(excluded.cbegin(), excluded.cend());
        std::sort(sorted.begin(), sorted.end());
        for (unsigned int d : sorted)
            excl << QString::number(d);
        QStringList coinList;
        for (const auto& c : coins)
            coinList << QStringLiteral("%1@%2ms").arg(c.second).arg(c.first);
        parts << QStringLiteral("fast=%1 excluded={%2} coins=[%3] for %4 ms")
                     .arg(fast ? 1 : 0)
                     .arg(excl.join(QLatin1Char(',')), coinList.join(QLatin1Char(' ')))
                     .arg(pumpMsecs);
        if (!openingCoins.isEmpty()) {
            QStringList opening;
            for (const auto& c : openingCoins)
                opening << QStringLiteral("%1@%2ms").arg(c.second).arg(c.first);
            parts << QStringLiteral("while opening [%1]").arg(opening.join(QLatin1Char(' ')));
        }
        if (doorAtMsecs >= 0)
            parts << QStringLiteral("door opens at %1 ms").arg(doorAtMsecs);
        if (jamFoundAtMsecs >= 0)
            parts
                << QStringLiteral("hopper%1 found jammed at %2 ms").arg(jamFoundHopper).arg(jamFoundAtMsecs);
        break;
    }
    case Op::CashOut:
    case Op::CashOutCheck:
        parts << QStringLiteral("mode=%1 amount=%2").arg(mode).arg(amount);
        break;
    case Op::Pickup:
    case Op::Loan:
        parts << QStringLiteral("%1 op=0x%2 amount=%3%4")
                     .arg(unit, QString::number(operation, 16))
                     .arg(amount)
                     .arg(refreshUnits ? QStringLiteral(" after getUnits") : QString());
        break;
    case Op::Counter:
        parts << QStringLiteral("type=%1").arg(counter);
        break;
    case Op::Maintenance:
        parts << unit;
        break;
    default:
        break;
    }
    const std::pair<bool, QString> deviceChanges[] = {
        {openDoor, QStringLiteral("open door")},
        {closeDoor, QStringLiteral("close door")},
        {jamHopper != 0, QStringLiteral("jam hopper%1").arg(jamHopper)},
        {unjam, QStringLiteral("free jams")},
        {emptyHopper != 0, QStringLiteral("empty hopper%1").arg(emptyHopper)},
        {acceptorFault, QStringLiteral("acceptor fault")},
        {acceptorClear, QStringLiteral("clear acceptor fault")},
        {refill, QStringLiteral("refill low hoppers to %1").arg(refillCount)},
    };
    QStringList device;
    for (const std::pair<bool, QString>& change : deviceChanges)
        if (change.first)
            device << change.second;
    if (!device.isEmpty())
        parts << QStringLiteral("device: ") + device.join(QStringLiteral(", "));
    QStringList line;
    for (const LineFault& f : faults)
        line << f.describe();
    if (!line.isEmpty())
        parts << QStringLiteral("line: ") + line.join(QStringLiteral(", "));
    return parts.join(QStringLiteral("; "));
}

QString Figures::toText() const
{
    QStringList out;
    out << QStringLiteral("steps run: %1, wall time: %2 s, virtual time: %3 s, invariant checks: %4")
               .arg(stepsRun)
               .arg(wallMsecs / 1000.0, 0, 'f', 1)
               .arg(virtualMsecs / 1000.0, 0, 'f', 1)
               .arg(invariantChecks);
    QStringList ops;
    for (auto it = stepsByOp.cbegin(); it != stepsByOp.cend(); ++it)
        ops << QStringLiteral("%1 %2").arg(it.key()).arg(it.value());
    out << QStringLiteral("steps by operation: ") + ops.join(QStringLiteral(", "));
    out << QStringLiteral("host calls (calls / failed / max ms / bound of that call ms):");
    for (auto it = calls.cbegin(); it != calls.cend(); ++it)
        out << QStringLiteral("  %1: %2 / %3 / %4 / %5")
                   .arg(it.key())
                   .arg(it.value().calls)
                   .arg(it.value().failed)
                   .arg(it.value().maxMsecs)
                   .arg(it.value().maxBoundMsecs);
    out << QStringLiteral("longest call: %1 ms (%2); largest share of its bound: %3")
               .arg(maxCallMsecs)
               .arg(maxCallOp)
               .arg(maxBoundShare, 0, 'f', 3);
    QStringList planned;
    for (auto it = lineFaultsPlanned.cbegin(); it != lineFaultsPlanned.cend(); ++it)
        planned
            << QStringLiteral("%1 %2/%3").arg(it.key()).arg(lineFaultsFired.value(it.key())).arg(it.value());
    out << QStringLiteral("line faults injected/planned: ") + planned.join(QStringLiteral(", "));
    QStringList device;
    for (auto it = deviceFaults.cbegin(); it != deviceFaults.cend(); ++it)
        device << QStringLiteral("%1 %2").arg(it.key()).arg(it.value());
    out << QStringLiteral("device faults and operator actions: ") + device.join(QStringLiteral(", "));
    out << QStringLiteral(
               "requests written: %1, lost-answer waits: %2, device resets: %3, BUSY allowance of an "
               "exchange: %4, hopper counts written and checked against the device: %5")
               .arg(framesWritten)
               .arg(lostAnswerWaits)
               .arg(resets)
               .arg(busyBudgetLeft)
               .arg(balanceWritesChecked);
    out << QStringLiteral("payout calls: %1 (%2 failed), payout commands carried out: %3 (+%4 answered BUSY "
                          "and sent again), value paid out: %5, of it by failed calls: %6 (%7 failed payouts "
                          "reconciled)")
               .arg(payoutCalls)
               .arg(payoutCallsFailed)
               .arg(payoutCommandsCarriedOut)
               .arg(payoutCommandsBusy)
               .arg(cashcontrol::formatAmount(static_cast<long long>(valuePaidOut)))
               .arg(cashcontrol::formatAmount(static_cast<long long>(valuePaidByFailedCalls)))
               .arg(failedPayoutsReconciled);
    out << QStringLiteral("purge commands sent again after a lost answer: %1").arg(purgeRepeats);
    out << QStringLiteral(
               "dispense patterns drawing on both hoppers of 10.00: %1; failed payouts whose warning "
               "of what came out matched the hoppers: %2, whose message named it: %3")
               .arg(twinPayouts)
               .arg(paidLinesChecked)
               .arg(namedAmountsChecked);
    out << QStringLiteral(
               "acceptance: %1 sessions (%2 started, %3 clean, %4 stalled by a poll failure), %5 coins "
               "inserted (%13 while a session opened, %14 found by the stop in the audit counters); accepted "
               "%6 (%7 of it in sessions with forged "
               "answers, not compared), "
               "reported %8 (those sessions left out), unreported %9 in %10 sessions; %11 stalled until "
               "the stop, %12 with coins reported after the failed poll")
               .arg(sessions)
               .arg(sessionsStarted)
               .arg(cleanSessions)
               .arg(stalledSessions)
               .arg(coinsInserted)
               .arg(cashcontrol::formatAmount(static_cast<long long>(valueAccepted)))
               .arg(cashcontrol::formatAmount(static_cast<long long>(valueAcceptedInForgedSessions)))
               .arg(cashcontrol::formatAmount(static_cast<long long>(valueReported)))
               .arg(cashcontrol::formatAmount(static_cast<long long>(valueUnreported)))
               .arg(sessionsShort)
               .arg(stalledUntilStop)
               .arg(reportedAfterPollError)
               .arg(coinsWhileOpening)
               .arg(coinsFoundByAudit);
    out << QStringLiteral("sessions that enabled no coin position: %1, of them reporting coins of an earlier "
                          "session again: %2, value %3")
               .arg(sessionsNothingEnabled)
               .arg(sessionsReReported)
               .arg(cashcontrol::formatAmount(static_cast<long long>(valueReReported)));
    out << QStringLiteral(
               "unit list seen stale before a manual operation: %1, partial after a failed discovery: %2")
               .arg(staleUnitCache)
               .arg(partialUnitCache);
    out << QStringLiteral(
               "answers forged by line noise and taken by the driver: %1 in %2 steps (%3 sessions); "
               "value checks excused by them: %4")
               .arg(forgedAnswers)
               .arg(stepsWithForgedAnswers)
               .arg(sessionsWithForgedAnswers)
               .arg(valueChecksExcused);
    if (!forgedExample.isEmpty())
        out << QStringLiteral("  first: ") + forgedExample;
    out << QStringLiteral("error signals: %1; failures seen by the host:").arg(errorSignals);
    QList<QPair<int, QString>> sorted;
    for (auto it = failures.cbegin(); it != failures.cend(); ++it)
        sorted << qMakePair(it.value(), it.key());
    std::sort(sorted.begin(), sorted.end(),
              [](const QPair<int, QString>& a, const QPair<int, QString>& b) { return a.first > b.first; });
    for (const auto& f : sorted)
        out << QStringLiteral("  %1  %2 (first at step %3)")
                   .arg(f.first, 5)
                   .arg(f.second)
                   .arg(failureFirstStep.value(f.second));
    return out.join(QLatin1Char('\n'));
}

Soak::Soak(const Options& options) : opts(options) {}

Soak::~Soak()
{
    // The driver goes first: it talks through the port, which talks to the line.
    driver.reset();
    port.reset();
    line.reset();
}

bool Soak::run()
{
    QElapsedTimer wall;
    wall.start();
    bool ok = true;
    try {
        setUp();
        for (int step = 0; step < opts.steps; ++step) {
            runStep(planStep(opts.seed, step));
            // Every session's coins are accounted for: reported, or counted short by a
            // session whose polling failed; what a session reported again was not accepted.
            check(fig.valueAccepted - fig.valueAcceptedInForgedSessions + fig.valueReReported ==
                      fig.valueReported + fig.valueUnreported,
                  QStringLiteral("coins accepted and reported no longer add up"));
            if (output && !opts.verbose && (step + 1) % 250 == 0)
                output(QStringLiteral("soak: %1/%2 steps, %3 s")
                           .arg(step + 1)
                           .arg(opts.steps)
                           .arg(wall.elapsed() / 1000));
        }
    } catch (const Violation&) {
        ok = false;
    }
    fig.wallMsecs = wall.elapsed();
    if (line) {
        fig.resets = line->device().resets();
        fig.virtualMsecs = line->now();
        fig.framesWritten = line->framesWritten;
        fig.lostAnswerWaits = line->waitsTimedOut;
    }
    if (changer)
        fig.busyBudgetLeft = changer->getBusyRetries();
    return ok;
}

void Soak::setUp()
{
    testsupport::RecordingChanger::setResetPending(false);
    log = std::make_unique<testsupport::LogCapture>();
    line = std::make_unique<testsupport::SimLine>(soakConfig());
    port = std::make_unique<SoakPort>(line.get());

    makeDriver();

    const Call connected = hostCall(QStringLiteral("connect"), Allowed(), [this] { driver->connect(); });
    check(connected.ok, QStringLiteral("the first connect on a clean line failed: ") + connected.error);
    const Call async =
        hostCall(QStringLiteral("enableAsyncCheck"), Allowed(), [this] { driver->enableAsyncCheck(true); });
    check(async.ok, QStringLiteral("enableAsyncCheck threw: ") + async.error);
    paidOutAfterLastStep = line->device().coinsPaidOut();
    log->clear();
}

void Soak::makeDriver()
{
    changer = new testsupport::RecordingChanger;
    changer->runOn(*line);
    driver = std::make_unique<testsupport::RecordingDriver>(changer);
    QObject::connect(
        driver.get(), &hw::BasicCashControl::received, driver.get(), [this](const SumDetailed& sum) {
            if (inSession)
                receivedInSession << sum;
            else
                pendingViolations << QStringLiteral("coins reported while no acceptance runs: ") +
                                         sum.toString();
        });
    QObject::connect(
        driver.get(), &hw::BasicCashControl::error, driver.get(), [this](const QString& message) {
            ++fig.errorSignals;
            ++fig.failures[message];
            if (!fig.failureFirstStep.contains(message))
                fig.failureFirstStep[message] = current.step;
            if (!message.startsWith(driverName) || !hasCyrillic(message.mid(driverName.size())))
                pendingViolations << QStringLiteral(
                                         "error signal without a Russian message after the driver's "
                                         "name: \"%1\"")
                                         .arg(message);
        });
    QObject::connect(changer, &CcTalk::Changer::error, driver.get(), [this](const QString& message) {
        if (pollErrors.isEmpty())
            reportsBeforePollError = receivedInSession.size();
        pollErrors << message;
    });

    driver->setProperty("serialObj", QVariant::fromValue<QObject*>(port.get()));
    port->settings.clear();
    driver->init();
    check(port->settings == QStringList({QStringLiteral("baud=115200"), QStringLiteral("data=8"),
                                         QStringLiteral("parity=None"), QStringLiteral("stop=1"),
                                         QStringLiteral("flow=Disable")}),
          QStringLiteral("init() configured the line as ") + port->settings.join(QStringLiteral(", ")));
}

void Soak::runStep(const StepPlan& plan)
{
    current = plan;
    line->clearTransactions();
    ++fig.stepsByOp[opName(plan.op)];
    for (const LineFault& f : plan.faults)
        ++fig.lineFaultsPlanned[LineFault::kindName(f.kind)];
    applyDeviceFaults(plan);
    lastCall = Call();

    // Indexed by Op.
    static void (Soak::*const run[])(const StepPlan&) = {
        &Soak::accept, &Soak::cashOut, &Soak::cashOutCheck, &Soak::pickup, &Soak::loan,   &Soak::counter,
        &Soak::units,  &Soak::simple,  &Soak::maintenance,  &Soak::simple, &Soak::simple, &Soak::recreate};
    static_assert(std::size(run) == std::size_t(Op::Recreate) + 1, "one step for each Op");
    (this->*run[int(plan.op)])(plan);
    afterStep();
}

void Soak::applyDeviceFaults(const StepPlan& plan)
{
    if (doorOpen && plan.closeDoor) {
        line->device().openDoor(false);
        doorOpen = false;
    } else if (!doorOpen && plan.openDoor) {
        line->device().openDoor(true);
        doorOpen = true;
        ++fig.deviceFaults[QStringLiteral("door open")];
    }
    if (plan.unjam && !jammed.isEmpty()) {
        for (int h : qAsConst(jammed))
            line->device().jamHopper(h, false);
        jammed.clear();
    }
    if (plan.jamHopper && !jammed.contains(plan.jamHopper)) {
        line->device().jamHopper(plan.jamHopper);
        jammed.insert(plan.jamHopper);
        ++fig.deviceFaults[QStringLiteral("hopper jam")];
    }
    if (plan.emptyHopper) {
        line->device().emptyHopper(plan.emptyHopper);
        emptiedHoppers.insert(plan.emptyHopper);
        ++fig.deviceFaults[QStringLiteral("hopper emptied behind the device")];
    }
    if (acceptorFaulty && plan.acceptorClear) {
        line->device().setErrorStatus(0, 0);
        line->device().setSelfCheck(0, 0);
        line->device().setActivityBits(0);
        acceptorFaulty = false;
    } else if (!acceptorFaulty && plan.acceptorFault) {
        // Acceptor jam: fatal in the error status, delayed in the self-check.
        line->device().setErrorStatus(1, 101);
        line->device().setSelfCheck(35, 1);
        line->device().setActivityBits(16);
        acceptorFaulty = true;
        ++fig.deviceFaults[QStringLiteral("acceptor jam (delayed self-check error)")];
    }
    if (plan.refill) {
        for (int h = 1; h <= hoppers; ++h) {
            const int capacity = soakConfig().hoppers.at(h - 1).capacity;
            if (line->device().hopperCount(h) < std::min(40, capacity / 4)) {
                line->device().setHopperCount(h, std::min(plan.refillCount, capacity));
                emptiedHoppers.remove(h);
                ++fig.deviceFaults[QStringLiteral("operator refill")];
            }
        }
    }
}

void Soak::afterStep()
{
    settle();
    check(!(line->device().activityRegister() & 8), QStringLiteral("the device still pays after the step"));
    if (current.op != Op::CashOut && current.op != Op::Pickup)
        check(line->device().coinsPaidOut() == paidOutAfterLastStep,
              QStringLiteral("coins left the hoppers in a step that pays nothing"));
    paidOutAfterLastStep = line->device().coinsPaidOut();
    if (current.op != Op::CashOut && current.op != Op::Pickup) {
        for (const sim::Transaction& t : line->transactions())
            check(!payoutHeaders.contains(t.header),
                  QStringLiteral("payout command %1 in a step that pays nothing").arg(t.header));
    }
    const int forged = forgedAnswers();
    if (forged > 0) {
        fig.forgedAnswers += forged;
        ++fig.stepsWithForgedAnswers;
        if (fig.forgedExample.isEmpty())
            fig.forgedExample = forgedExample;
        // What the driver keeps from the forged answer (the unit list, the coin
        // positions) is read again on a clean line before the next step.
        const Call again = hostCall(QStringLiteral("getUnits"), Allowed(), [this] { driver->getUnits(); });
        check(again.ok, QStringLiteral("the unit list cannot be read again on a clean line: ") + again.error);
    }
    for (int h : QSet<int>(emptiedHoppers)) {
        if (line->device().hopperCount(h) == 0)
            emptiedHoppers.remove(h);
    }
    if (!pendingViolations.isEmpty())
        violation(pendingViolations.join(QStringLiteral("; ")));

    QString summary = current.describe() + QStringLiteral(" -> ");
    if (!sessionNote.isEmpty())
        summary += sessionNote + QStringLiteral("; ");
    summary += lastCall.op.isEmpty() ? QStringLiteral("-")
                                     : lastCall.op + QStringLiteral(" ") +
                                           (lastCall.ok ? QStringLiteral("ok") : lastCall.error) +
                                           QStringLiteral(" (%1 ms)").arg(lastCall.msecs);
    sessionNote.clear();
    recentSteps << summary;
    while (recentSteps.size() > 25)
        recentSteps.removeFirst();
    if (opts.verbose && output)
        output(summary);
    log->clear();
    ++fig.stepsRun;
}

Soak::Call Soak::hostCall(const QString& op, const Allowed& allowed, const std::function<void()>& body,
                          bool arm)
{
    Call call;
    call.op = op;
    call.firstTransaction = line->transactions().size();
    const int logStart = log->lines().size();
    changer->sleeps.clear();
    if (arm)
        armFaults();
    const long long noisyBefore = port->attemptsInNoise;
    port->balanceWrites.clear();
    const qint64 started = line->now();
    try {
        body();
        call.ok = true;
    } catch (const CashControlExc& e) {
        call.error = QString::fromUtf8(e.what());
    } catch (const std::exception& e) {
        call.msecs = line->now() - started;
        lastCall = call;
        violation(op + QStringLiteral(" threw an exception that is not CashControlExc: ") +
                  QString::fromUtf8(e.what()));
    }
    call.msecs = line->now() - started;
    if (arm)
        disarmFaults();
    call.transactions = line->transactions().mid(call.firstTransaction);
    call.balanceWrites = port->balanceWrites;
    lastCall = call;

    OpFigures& f = fig.calls[op];
    ++f.calls;
    if (!call.ok) {
        ++f.failed;
        // Counted by kind: the amount a failed payout names varies from call to call.
        const QString kind =
            call.error.section(QStringLiteral("; выдано"), 0, 0) +
            (call.error.contains(QStringLiteral("; выдано")) ? QStringLiteral("; выдано …") : QString());
        ++fig.failures[kind];
        if (!fig.failureFirstStep.contains(kind))
            fig.failureFirstStep[kind] = current.step;
        check(call.error.startsWith(driverName) && hasCyrillic(call.error.mid(driverName.size())),
              QStringLiteral("%1 failed without a Russian message after the driver's name: \"%2\"")
                  .arg(op, call.error));
    }

    int paying = 0;
    int purges = 0;
    for (const sim::Transaction& t : call.transactions) {
        if (payoutHeaders.contains(t.header)) {
            // A BUSY answer means the device did not carry the command out.
            if (answerHeader(t.answer) == busyHeader) {
                ++fig.payoutCommandsBusy;
            } else {
                ++(t.header == purgeHeader ? purges : paying);
                call.payoutHeaders.insert(t.header);
                if (t.header == 85 && drawsOnBothTens(t.frame))
                    ++fig.twinPayouts;
            }
            // A purge with a count would take coins the host never asked for if it
            // were repeated; the driver purges with count 0, until the hopper is empty.
            if (t.header == purgeHeader)
                check(t.frame.size() == 7 && t.frame.at(5) == 0,
                      QStringLiteral("%1 purged a number of coins: %2").arg(op, hex(t.frame)));
        }
        if (balanceHeaders.contains(t.header))
            call.balanceHeaders.insert(t.header);
    }
    call.payoutCommands = paying + (purges > 0 ? 1 : 0);
    fig.payoutCommandsCarriedOut += paying + purges;
    fig.purgeRepeats += std::max(0, purges - 1);
    check(paying <= 1, QStringLiteral("%1: payout commands reached the device %2 times for one request")
                           .arg(op)
                           .arg(paying));
    check(purges <= 1, QStringLiteral("%1: the purge reached the device %2 times").arg(op).arg(purges));
    check(call.payoutCommands <= 1, QStringLiteral("%1 paid and purged in one request").arg(op));
    for (int h : qAsConst(call.payoutHeaders))
        check(allowed.payout.contains(h), QStringLiteral("%1 sent payout command %2").arg(op).arg(h));
    for (int h : qAsConst(call.balanceHeaders))
        check(allowed.balance.contains(h), QStringLiteral("%1 set a balance with command %2").arg(op).arg(h));

    int lostAnswers = 0;
    const QList<testsupport::LogLine>& lines = log->lines();
    for (int i = logStart; i < lines.size(); ++i) {
        if (lines.at(i).level == QLatin1String("ERROR") && lines.at(i).text == noLink)
            ++lostAnswers;
        if (lines.at(i).level == QLatin1String("WARN") &&
            lines.at(i).text.startsWith(QStringLiteral("Выдано")))
            call.paidLines << lines.at(i).text;
    }
    lastCall.paidLines = call.paidLines;
    const int pauses = changer->sleeps.size();
    const qint64 paused = changer->sleptMsecs();
    const long long noisy = port->attemptsInNoise - noisyBefore;
    call.boundMsecs = baseBoundMsecs + paused + lostAnswers * lostAnswerMsecs + noisy * noisyAttemptMsecs;
    check(call.msecs <= call.boundMsecs,
          QStringLiteral(
              "%1 took %2 ms, over its bound of %3 ms (%4 pauses, %5 lost answers, %6 attempts in noise)")
              .arg(op)
              .arg(call.msecs)
              .arg(call.boundMsecs)
              .arg(pauses)
              .arg(lostAnswers)
              .arg(noisy));
    // Only noise can hold an attempt for longer than the wait for an answer.
    if (noisy == 0)
        check(call.msecs - paused <= ceilingMsecs, QStringLiteral("%1 took %2 ms besides %3 ms of pauses")
                                                       .arg(op)
                                                       .arg(call.msecs - paused)
                                                       .arg(paused));
    if (call.msecs > f.maxMsecs) {
        f.maxMsecs = call.msecs;
        f.maxBoundMsecs = call.boundMsecs;
    }
    if (call.msecs > fig.maxCallMsecs) {
        fig.maxCallMsecs = call.msecs;
        fig.maxCallOp = op;
    }
    fig.maxBoundShare = std::max(fig.maxBoundShare, double(call.msecs) / double(call.boundMsecs));
    if (!pendingViolations.isEmpty())
        violation(pendingViolations.join(QStringLiteral("; ")));
    return call;
}

void Soak::armFaults()
{
    port->arm(current.faults);
}

void Soak::disarmFaults()
{
    for (const LineFault& f : port->disarm())
        ++fig.lineFaultsFired[LineFault::kindName(f.kind)];
    line->clearLineFaults();
}

void Soak::settle()
{
    const qint64 started = line->now();
    while (line->device().activityRegister() & 8) {
        if (line->now() - started > 10000)
            violation(QStringLiteral("the device still pays 10 s after the host call ended"));
        line->advance(2);
    }
}

Soak::Audit Soak::audit() const
{
    Audit a;
    for (int h = 1; h <= hoppers; ++h) {
        a.dispensed[h] = line->device().auditCounter(80, static_cast<quint8>(h)) +
                         line->device().auditCounter(87, static_cast<quint8>(h));
        a.counts[h] = line->device().hopperCount(h);
    }
    a.paidOut = line->device().coinsPaidOut();
    a.accepted = line->device().valueAccepted();
    a.cashbox = line->device().cashbox();
    return a;
}

QMap<unsigned int, long long> Soak::dispensedSince(const Audit& before, const Audit& after) const
{
    QMap<unsigned int, long long> moved;
    for (int h = 1; h <= hoppers; ++h) {
        const long long coins = static_cast<long long>(after.dispensed.value(h)) - before.dispensed.value(h);
        if (coins != 0)
            moved[hopperDenom(h)] += coins;
    }
    return moved;
}

void Soak::checkPaid(const Call& call, const SumDetailed& reported, const Audit& before)
{
    const Audit after = audit();
    const QMap<unsigned int, long long> moved = dispensedSince(before, after);
    QSet<unsigned int> denoms(moved.keyBegin(), moved.keyEnd());
    for (auto it = reported.denoms.cbegin(); it != reported.denoms.cend(); ++it)
        denoms.insert(it.key());
    quint64 value = 0;
    for (unsigned int d : qAsConst(denoms)) {
        checkValue(reported.denoms.value(d) == moved.value(d),
                   QStringLiteral("%1 reported %2 but the hoppers paid %3")
                       .arg(call.op, sumText(reported.denoms), sumText(moved)));
        value += static_cast<quint64>(moved.value(d)) * d;
    }
    checkValue(reported.rest == 0,
               QStringLiteral("%1 reported a rest of %2").arg(call.op).arg(reported.rest));
    checkValue(value == after.paidOut - before.paidOut,
               QStringLiteral("%1: the value that left the hoppers is %2, the coins counted out are worth %3")
                   .arg(call.op)
                   .arg(after.paidOut - before.paidOut)
                   .arg(value));
    fig.valuePaidOut += value;
}

// Positions and coins of the driver's warning "Монеты найдены по счетчикам аудита приема:
// позиция 4: 1, позиция 8: 2" in this step's log.
QMap<unsigned char, long long> Soak::foundByAudit() const
{
    const QString heading = QStringLiteral("Монеты найдены по счетчикам аудита приема: ");
    QMap<unsigned char, long long> found;
    for (const testsupport::LogLine& logLine : log->lines()) {
        if (logLine.level != QLatin1String("WARN") || !logLine.text.startsWith(heading))
            continue;
        const QStringList entries = logLine.text.mid(heading.size()).split(QStringLiteral(", "));
        for (const QString& entry : entries) {
            const QString numbers = entry.section(QLatin1Char(' '), 1);
            found[static_cast<unsigned char>(numbers.section(QLatin1Char(':'), 0, 0).toUInt())] +=
                numbers.section(QStringLiteral(": "), 1).toLongLong();
        }
    }
    return found;
}

// "12.50. номиналы: ..." or "12.50" -> 1250.
long long Soak::amountIn(const QString& text)
{
    const QString number = text.section(QStringLiteral(". "), 0, 0);
    return qRound64(number.toDouble() * 100);
}

// The host's message of a call that failed after its payout command names what came out:
// exactly, as a lower bound when the driver stopped waiting, or as unknown.
void Soak::checkNamedAmount(const Call& call, long long paid)
{
    const QString exact = QStringLiteral("; выдано ");
    const QString atLeast = QStringLiteral("; выдано не менее ");
    const int at = call.error.lastIndexOf(QStringLiteral("; выдано"));
    const QString named = at < 0 ? QString() : call.error.mid(at);
    // Unknown only where the driver's warning says it could not measure.
    const bool unknown = named == cashcontrol::paidUnknownSuffix() &&
                         call.paidLines.value(0).startsWith(QStringLiteral("Выдано: неизвестно"));
    bool ok = named == exact + cashcontrol::formatAmount(paid) || unknown;
    if (named.startsWith(atLeast))
        ok = amountIn(named.mid(atLeast.size())) <= paid;
    checkValue(ok, QStringLiteral("%1 failed after its payout command with \"%2\"; the hoppers paid %3")
                       .arg(call.op, call.error, cashcontrol::formatAmount(paid)));
    if (ok)
        ++fig.namedAmountsChecked;
}

void Soak::reconcileFailedPayout(const Call& call, const Audit& before)
{
    const Audit after = audit();
    const QMap<unsigned int, long long> moved = dispensedSince(before, after);
    if (call.payoutCommands == 0) {
        checkValue(moved.isEmpty() && after.paidOut == before.paidOut,
                   QStringLiteral("%1 failed before its payout command, yet the hoppers paid %2")
                       .arg(call.op, sumText(moved)));
        return;
    }
    fig.valuePaidByFailedCalls += after.paidOut - before.paidOut;
    // The driver's one warning of what came out, from the counters once the device
    // stopped paying; only a line too faulty to read them leaves it unknown.
    check(call.paidLines.size() == 1,
          QStringLiteral("%1 failed after its payout command with %2 lines of what "
                         "came out: %3")
              .arg(call.op)
              .arg(call.paidLines.size())
              .arg(call.paidLines.join(QStringLiteral(" | "))));
    SumDetailed left;
    left.denoms = moved;
    checkNamedAmount(call, left.sum());
    const QString paidLine = call.paidLines.value(0);
    const QString atLeast = QStringLiteral("Выдано не менее ");
    if (paidLine.startsWith(atLeast)) {
        // The driver stopped waiting while the device may have gone on paying: a lower bound.
        checkValue(amountIn(paidLine.mid(atLeast.size())) <= left.sum(),
                   QStringLiteral("%1 failed (%2) and logged \"%3\"; the hoppers paid only %4")
                       .arg(call.op, call.error, paidLine, sumText(moved)));
        ++fig.paidLinesChecked;
    } else if (!paidLine.startsWith(QStringLiteral("Выдано: неизвестно"))) {
        checkValue(paidLine == QStringLiteral("Выдано ") + left.toString(),
                   QStringLiteral("%1 failed (%2) and logged \"%3\"; the hoppers paid %4")
                       .arg(call.op, call.error, paidLine, sumText(moved)));
        ++fig.paidLinesChecked;
    }
    // What the payout paid before it failed: the driver measures it against the
    // snapshot it took before sending the command.
    SumDetailed measured;
    try {
        measured = changer->getLastCashOut();
    } catch (const CcTalk::Exception& e) {
        violation(QStringLiteral("the counters of a failed payout cannot be read on a clean line: ") +
                  QString::fromUtf8(e.what()));
    }
    for (auto it = measured.denoms.cbegin(); it != measured.denoms.cend(); ++it)
        checkValue(it.value() == moved.value(it.key()),
                   QStringLiteral("%1 failed (%2); the driver measures %3 paid, the hoppers paid %4")
                       .arg(call.op, call.error, sumText(measured.denoms), sumText(moved)));
    for (auto it = moved.cbegin(); it != moved.cend(); ++it)
        checkValue(measured.denoms.contains(it.key()),
                   QStringLiteral("%1 failed; coins of %2 left but the driver's counters do not cover them")
                       .arg(call.op)
                       .arg(it.key()));
    ++fig.failedPayoutsReconciled;
}

void Soak::accept(const StepPlan& plan)
{
    ++fig.sessions;
    const Audit before = audit();
    QMap<int, quint32> acceptedBefore;
    for (int p = 1; p <= 16; ++p)
        acceptedBefore[p] = line->device().auditCounter(70, static_cast<quint8>(p));
    receivedInSession.clear();
    pollErrors.clear();
    inSession = true;

    armFaults();
    const qint64 opening = line->now();
    for (const auto& coin : plan.openingCoins) {
        const int position = coin.second;
        line->at(opening + coin.first, [this, position] {
            line->device().insertCoin(position);
            ++fig.coinsInserted;
            ++fig.coinsWhileOpening;
        });
    }
    const Call start = hostCall(QStringLiteral("cashInStart"), Allowed(),
                                [&] { driver->cashInStart(plan.fast, plan.excluded); });
    // Coins that landed while the session opened are reported by cashInStart itself.
    const int reportsOfOpening = receivedInSession.size();
    quint16 mask = 0;
    // The device's counters once the session started: the driver's baseline.
    QMap<int, quint16> baseline;
    for (int p = 1; p <= 16; ++p)
        baseline[p] = line->device().coinsInByType(p);
    if (start.ok) {
        ++fig.sessionsStarted;
        check(changer->isAccepting() && changer->isPolling(),
              QStringLiteral("cashInStart returned but the changer does not poll"));
        // Enabled: the positions of the recyclable denominations the host did not exclude.
        QSet<unsigned int> wanted = changer->acceptable();
        wanted.subtract(plan.excluded);
        const QMap<unsigned char, unsigned int> positions = changer->positions();
        for (auto it = positions.cbegin(); it != positions.cend(); ++it) {
            if (it.key() >= 1 && it.key() <= 16 && wanted.contains(it.value()))
                mask |= static_cast<quint16>(1u << (it.key() - 1));
        }
        checkValue(line->device().inhibitMask() == mask,
                   QStringLiteral("the acceptor enables mask 0x%1, expected 0x%2")
                       .arg(line->device().inhibitMask(), 4, 16, QLatin1Char('0'))
                       .arg(mask, 4, 16, QLatin1Char('0')));

        const qint64 started = line->now();
        for (const auto& coin : plan.coins) {
            const int position = coin.second;
            line->at(started + coin.first, [this, position] {
                line->device().insertCoin(position);
                ++fig.coinsInserted;
            });
        }
        if (plan.doorAtMsecs >= 0) {
            line->at(started + plan.doorAtMsecs, [this] {
                if (!doorOpen) {
                    line->device().openDoor(true);
                    doorOpen = true;
                    ++fig.deviceFaults[QStringLiteral("door opened while accepting")];
                }
            });
        }
        if (plan.jamFoundAtMsecs >= 0) {
            const int jamHopper = plan.jamFoundHopper;
            line->at(started + plan.jamFoundAtMsecs, [this, jamHopper] {
                line->device().flagHopperJam(jamHopper);
                jammed.insert(jamHopper);
                ++fig.deviceFaults[QStringLiteral("hopper jam found while accepting")];
            });
        }
        pump(plan.pumpMsecs);
    }

    // The host closes the acceptor whatever happened, and tries again on a clean line.
    bool stopped = false;
    const bool stalled = start.ok && !changer->isPolling();
    for (int attempt = 0; attempt < 20 && !stopped; ++attempt) {
        const Call stop = hostCall(QStringLiteral("cashInStop"), Allowed(), [this] { driver->cashInStop(); });
        if (attempt == 0)
            disarmFaults();
        if (stop.ok)
            stopped = true;
        else
            pump(40);
    }
    inSession = false;
    check(stopped, QStringLiteral("cashInStop failed 20 times, 19 of them on a clean line"));
    check(!changer->isAccepting() && !changer->isPolling(),
          QStringLiteral("the changer still accepts or polls after cashInStop"));
    check(line->device().inhibitMask() == 0, QStringLiteral("the acceptor is still open after cashInStop"));

    const Audit after = audit();
    const quint64 accepted = after.accepted - before.accepted;
    fig.valueAccepted += accepted;

    // Coins that landed in this session, by denomination, from the lifetime counters.
    const QMap<unsigned char, unsigned int> positions = changer->positions();
    const sim::Config config = soakConfig();
    QMap<unsigned int, long long> landed;
    quint64 landedValue = 0;
    for (int p = 1; p <= 16; ++p) {
        const long long coins =
            static_cast<long long>(line->device().auditCounter(70, static_cast<quint8>(p))) -
            acceptedBefore.value(p);
        if (coins == 0)
            continue;
        const unsigned int value = sim::coinValue(config.coinIds.value(p));
        landed[value] += coins;
        landedValue += static_cast<quint64>(coins) * value;
    }
    check(landedValue == accepted, QStringLiteral("the device's accepted counters disagree with its value"));

    QMap<unsigned int, long long> reported;
    const auto note = [&] {
        sessionNote = QStringLiteral("cashInStart %1, mask 0x%2, landed %3, reported %4%5")
                          .arg(start.ok ? QStringLiteral("ok") : start.error)
                          .arg(mask, 4, 16, QLatin1Char('0'))
                          .arg(sumText(landed), sumText(reported))
                          .arg(pollErrors.isEmpty() ? QString()
                                                    : QStringLiteral(", poll failed: ") + pollErrors.first());
    };
    for (const SumDetailed& s : qAsConst(receivedInSession)) {
        checkValue(s.rest == 0 && s.extra == 0, QStringLiteral("received carries a rest or an extra amount"));
        for (auto it = s.denoms.cbegin(); it != s.denoms.cend(); ++it) {
            checkValue(it.value() > 0,
                       QStringLiteral("received reports %1 coins of %2").arg(it.value()).arg(it.key()));
            reported[it.key()] += it.value();
        }
    }
    quint64 reportedValue = 0;
    for (auto it = reported.cbegin(); it != reported.cend(); ++it)
        reportedValue += static_cast<quint64>(it.value()) * it.key();

    note();
    if (forgedAnswers() > 0) {
        // Counters decoded from line noise: nothing to compare them with.
        ++fig.sessionsWithForgedAnswers;
        fig.valueAcceptedInForgedSessions += accepted;
        return;
    }
    if (!start.ok) {
        // A start that failed once the enable may have reached the device leaves a session
        // that the stop closed: whatever landed is reported, and nothing else.
        checkValue(reported == landed, QStringLiteral("a session whose start failed reported %1 of %2 landed")
                                           .arg(sumText(reported), sumText(landed)));
        fig.valueReported += reportedValue;
        return;
    }

    // Every report is a difference of counters the driver read from the device: the
    // last ones it read against those at the start of the session, modulo 65536.
    QMap<unsigned int, long long> lastRead;
    QMap<unsigned int, long long> reportedAfterOpening;
    for (const SumDetailed& s : receivedInSession.mid(reportsOfOpening)) {
        for (auto it = s.denoms.cbegin(); it != s.denoms.cend(); ++it)
            reportedAfterOpening[it.key()] += it.value();
    }
    const QMap<unsigned char, unsigned int> last = changer->lastCounts();
    for (auto it = last.cbegin(); it != last.cend(); ++it) {
        const long long coins = (static_cast<long long>(it.value()) - baseline.value(it.key())) & 0xFFFF;
        if (coins != 0)
            lastRead[positions.value(it.key(), 0)] += coins;
    }
    // Coins the coins-in counters lost to a restart, found by the stop in the audit counters.
    const QMap<unsigned char, long long> found = foundByAudit();
    for (auto it = found.cbegin(); it != found.cend(); ++it) {
        lastRead[positions.value(it.key(), 0)] += it.value();
        fig.coinsFoundByAudit += static_cast<int>(it.value());
    }
    checkValue(reportedAfterOpening == lastRead,
               QStringLiteral("received adds up to %1, the last counters read since the start are %2")
                   .arg(sumText(reportedAfterOpening), sumText(lastRead)));

    // No coin is reported that the device did not take in during this session: not the
    // coins its counters held from earlier sessions, whatever the session enabled.
    for (auto it = reported.cbegin(); it != reported.cend(); ++it)
        checkValue(it.value() <= landed.value(it.key()),
                   QStringLiteral("received reports %1, only %2 landed in this session")
                       .arg(sumText(reported), sumText(landed)));
    fig.valueReported += reportedValue;
    if (mask == 0) {
        ++fig.sessionsNothingEnabled;
        check(accepted == 0, QStringLiteral("coins accepted with every position inhibited"));
        if (!reported.isEmpty()) {
            ++fig.sessionsReReported;
            fig.valueReReported += reportedValue;
        }
        return;
    }
    for (unsigned int excludedDenom : plan.excluded)
        checkValue(!reported.contains(excludedDenom),
                   QStringLiteral("coins of the excluded %1 reported").arg(excludedDenom));

    // A failed poll closed the acceptor; the stop read the counters kept from the last
    // good poll. Whether polling failed or not, every coin that landed is reported, once.
    if (!pollErrors.isEmpty()) {
        ++fig.stalledSessions;
        if (stalled)
            ++fig.stalledUntilStop;
        if (receivedInSession.size() > reportsBeforePollError)
            ++fig.reportedAfterPollError;
    } else {
        ++fig.cleanSessions;
    }
    if (reportedValue < accepted) {
        ++fig.sessionsShort;
        fig.valueUnreported += accepted - reportedValue;
    }
    checkValue(reported == landed,
               QStringLiteral("a session reported %1 of %2 landed%3")
                   .arg(sumText(reported), sumText(landed))
                   .arg(pollErrors.isEmpty() ? QString() : QStringLiteral(" after a failed poll")));
}

void Soak::cashOut(const StepPlan& plan)
{
    const Audit before = audit();
    SumDetailed paid;
    Allowed allowed;
    allowed.payout = {85};
    const Call call = hostCall(
        QStringLiteral("cashOut"), allowed,
        [&] { paid = driver->cashOut(static_cast<ECashControl::ChangeMode>(plan.mode), plan.amount); }, true);
    ++fig.payoutCalls;
    if (call.ok) {
        checkValue(paid.sum() == plan.amount,
                   QStringLiteral("cashOut of %1 returned %2").arg(plan.amount).arg(paid.sum()));
        checkValue(
            call.payoutCommands == 1,
            QStringLiteral("cashOut succeeded with %1 payout commands carried out").arg(call.payoutCommands));
        checkPaid(call, paid, before);
        const Audit after = audit();
        for (int h = 1; h <= hoppers; ++h) {
            if (!emptiedHoppers.contains(h))
                checkValue(before.counts.value(h) - after.counts.value(h) ==
                               static_cast<int>(after.dispensed.value(h) - before.dispensed.value(h)),
                           QStringLiteral("hopper%1 count fell by %2, %3 coins were counted out")
                               .arg(h)
                               .arg(before.counts.value(h) - after.counts.value(h))
                               .arg(after.dispensed.value(h) - before.dispensed.value(h)));
        }
        return;
    }
    ++fig.payoutCallsFailed;
    settle();
    reconcileFailedPayout(call, before);
}

void Soak::cashOutCheck(const StepPlan& plan)
{
    bool payable = false;
    const Call call = hostCall(
        QStringLiteral("cashOutCheck"), Allowed(),
        [&] {
            payable = driver->cashOutCheck(static_cast<ECashControl::ChangeMode>(plan.mode), plan.amount);
        },
        true);
    if (call.ok && plan.amount % 100 != 0)
        checkValue(
            !payable,
            QStringLiteral("cashOutCheck says %1 can be paid without a 50-kopeck hopper").arg(plan.amount));
    // Accepted coins fill the hoppers over a long run: more than they hold is never payable.
    long long held = 0;
    for (int h = 1; h <= hoppers; ++h)
        held += static_cast<long long>(line->device().hopperCount(h)) * hopperDenoms[h - 1];
    if (call.ok && plan.amount > held)
        checkValue(!payable, QStringLiteral("cashOutCheck says %1 can be paid, the hoppers hold %2")
                                 .arg(plan.amount)
                                 .arg(held));
}

bool Soak::findCachedUnit(const QString& name, CashControlUnit* unit) const
{
    for (const CashControlUnit& u : changer->cachedUnits()) {
        if (u.name == name) {
            *unit = u;
            return true;
        }
    }
    return false;
}

unsigned int Soak::hopperDenom(int hopper) const
{
    return hopper >= 1 && hopper <= hoppers ? hopperDenoms[hopper - 1] : 0;
}

bool Soak::cachedUnitBefore(const StepPlan& plan, CashControlUnit* cached)
{
    if (plan.refreshUnits)
        units(plan);
    const bool known = findCachedUnit(plan.unit, cached);
    if (known && cached->type == 1 && cached->count != line->device().hopperCount(hopperOf(plan.unit)))
        ++fig.staleUnitCache;
    return known;
}

void Soak::pickup(const StepPlan& plan)
{
    CashControlUnit cached;
    const bool known = cachedUnitBefore(plan, &cached);
    const int h = hopperOf(plan.unit);

    const auto operation = static_cast<ECashControl::UnitOperation>(plan.operation);
    const bool dispensing =
        operation == ECashControl::DispensePickupAll || operation == ECashControl::DispensePickupSum;
    Allowed allowed;
    if (operation == ECashControl::ManualPickupAll)
        allowed.balance = {118, 120};
    else if (operation == ECashControl::ManualPickupSum)
        allowed.balance = {120};
    else if (operation == ECashControl::DispensePickupAll)
        allowed = Allowed{{121}, {120}};
    else if (operation == ECashControl::DispensePickupSum)
        allowed.payout = {85};
    // The coins a manual pick-up from a hopper takes, from the count held just before its write;
    // checked whether the call succeeds or fails.
    std::function<long long(int)> manualTaken;
    if (known && cached.type == 1 && operation == ECashControl::ManualPickupAll) {
        manualTaken = [](int held) { return -static_cast<long long>(held); };
    } else if (known && cached.type == 1 && cached.denom > 0 && operation == ECashControl::ManualPickupSum) {
        const long long wanted = plan.amount / static_cast<long long>(cached.denom);
        manualTaken = [wanted](int count) { return -std::min<long long>(wanted, count); };
    }

    const Audit before = audit();
    SumDetailed result;
    const Call call = hostCall(
        QStringLiteral("pickup"), allowed,
        [&] { result = driver->pickup(plan.unit, operation, plan.amount); }, true);
    if (dispensing)
        ++fig.payoutCalls;
    if (!call.ok) {
        if (dispensing) {
            ++fig.payoutCallsFailed;
            settle();
            reconcileFailedPayout(call, before);
        } else {
            const Audit after = audit();
            checkValue(after.paidOut == before.paidOut,
                       QStringLiteral("a failed manual pickup paid coins out"));
            if (manualTaken)
                checkBalanceWrites(call, h, manualTaken);
        }
        return;
    }
    checkValue(known,
               QStringLiteral("pickup from %1, a unit the driver does not list, succeeded").arg(plan.unit));
    const Audit after = audit();
    switch (operation) {
    case ECashControl::ManualPickupAll:
        if (cached.type == 3) {
            checkValue(result.rest == static_cast<long long>(before.cashbox) && result.denoms.isEmpty(),
                       QStringLiteral("cashbox pickup reported %1, the device held %2")
                           .arg(result.toString())
                           .arg(before.cashbox));
            checkValue(line->device().cashbox() == 0,
                       QStringLiteral("the cashbox still holds %1").arg(line->device().cashbox()));
        } else {
            checkValue(result.denoms ==
                               QMap<unsigned int, long long>({{cached.denom, before.counts.value(h)}}) &&
                           result.rest == 0,
                       QStringLiteral("manual pickup of %1 reported %2, the device held %3 coins")
                           .arg(plan.unit, result.toString())
                           .arg(before.counts.value(h)));
            if (manualTaken)
                checkBalanceWrites(call, h, manualTaken);
            checkValue(after.counts.value(h) == 0,
                       QStringLiteral("%1 still counts %2 coins").arg(plan.unit).arg(after.counts.value(h)));
            emptiedHoppers.remove(h);
        }
        checkValue(after.paidOut == before.paidOut, QStringLiteral("a manual pickup paid coins out"));
        break;
    case ECashControl::ManualPickupSum: {
        const long long held = before.counts.value(h);
        const long long taken = std::min(plan.amount / static_cast<long long>(cached.denom), held);
        checkValue(result.denoms.value(cached.denom) == taken && result.denoms.size() == 1,
                   QStringLiteral("manual pickup of %1 from %2 reported %3, expected %4 coins")
                       .arg(plan.amount)
                       .arg(plan.unit, result.toString())
                       .arg(taken));
        checkValue(after.counts.value(h) == held - taken, QStringLiteral("%1 counts %2 coins, expected %3")
                                                              .arg(plan.unit)
                                                              .arg(after.counts.value(h))
                                                              .arg(held - taken));
        if (manualTaken)
            checkBalanceWrites(call, h, manualTaken);
        checkValue(after.paidOut == before.paidOut, QStringLiteral("a manual pickup paid coins out"));
        emptiedHoppers.remove(h);
        break;
    }
    case ECashControl::DispensePickupAll:
        checkValue(call.payoutCommands == 1, QStringLiteral("a purge succeeded without a purge command"));
        checkPaid(call, result, before);
        checkValue(after.counts.value(h) == 0, QStringLiteral("%1 still counts %2 coins after the purge")
                                                   .arg(plan.unit)
                                                   .arg(after.counts.value(h)));
        emptiedHoppers.remove(h);
        break;
    case ECashControl::DispensePickupSum:
        checkValue(result.sum() == plan.amount,
                   QStringLiteral("pickup of %1 through the dispenser returned %2")
                       .arg(plan.amount)
                       .arg(result.sum()));
        checkValue(call.payoutCommands == 1,
                   QStringLiteral("a dispense succeeded without a dispense command"));
        checkPaid(call, result, before);
        break;
    default:
        checkValue(result.denoms.isEmpty() && result.rest == 0 && call.balanceHeaders.isEmpty(),
                   QStringLiteral("pickup operation 0x%1 moved something").arg(plan.operation, 0, 16));
        checkValue(after.paidOut == before.paidOut,
                   QStringLiteral("pickup operation 0x%1 paid coins out").arg(plan.operation, 0, 16));
        break;
    }
}

void Soak::loan(const StepPlan& plan)
{
    CashControlUnit cached;
    const bool known = cachedUnitBefore(plan, &cached);
    const int h = hopperOf(plan.unit);
    const auto operation = static_cast<ECashControl::UnitOperation>(plan.operation);
    Allowed allowed;
    if (operation == ECashControl::ManualLoad)
        allowed.balance = {120};
    const bool manualLoad =
        operation == ECashControl::ManualLoad && known && cached.type == 1 && cached.denom > 0;
    const long long loaded = manualLoad ? plan.amount / static_cast<long long>(cached.denom) : 0;
    const Audit before = audit();
    const Call call = hostCall(
        QStringLiteral("loan"), allowed, [&] { driver->loan(plan.unit, operation, plan.amount); }, true);
    if (!call.ok) {
        // A failed load may have written the count, but only once and from the device's own count.
        if (manualLoad) {
            checkBalanceWrites(call, h, [loaded](int) { return loaded; });
            const long long now = line->device().hopperCount(h);
            checkValue(now == before.counts.value(h) || now == before.counts.value(h) + loaded,
                       QStringLiteral("%1 counts %2 coins after a failed load of %3 coins, it held %4")
                           .arg(plan.unit)
                           .arg(now)
                           .arg(loaded)
                           .arg(before.counts.value(h)));
        }
        return;
    }
    checkValue(known,
               QStringLiteral("loan into %1, a unit the driver does not list, succeeded").arg(plan.unit));
    if (operation == ECashControl::ManualLoad) {
        checkValue(cached.type == 1 && cached.denom > 0,
                   QStringLiteral("a manual load into %1 succeeded").arg(plan.unit));
        const long long expected = before.counts.value(h) + loaded;
        checkBalanceWrites(call, h, [loaded](int) { return loaded; });
        checkValue(line->device().hopperCount(h) == expected,
                   QStringLiteral("%1 counts %2 coins after the load, expected %3")
                       .arg(plan.unit)
                       .arg(line->device().hopperCount(h))
                       .arg(expected));
        emptiedHoppers.remove(h);
    } else {
        checkValue(call.balanceHeaders.isEmpty(),
                   QStringLiteral("loan operation 0x%1 changed a balance").arg(plan.operation, 0, 16));
    }
}

void Soak::checkBalanceWrites(const Call& call, int hopper, const std::function<long long(int before)>& coins)
{
    int previous = -1;
    for (const SoakPort::BalanceWrite& w : call.balanceWrites) {
        check(w.hopper == hopper, QStringLiteral("%1 wrote the count of hopper %2, not of hopper %3")
                                      .arg(call.op)
                                      .arg(w.hopper)
                                      .arg(hopper));
        const bool repeated = w.written == previous && w.before == previous;
        const long long expected = w.before + coins(w.before);
        checkValue(repeated || w.written == expected,
                   QStringLiteral("%1 wrote %2 coins into hopper %3, which held %4 just before: expected %5")
                       .arg(call.op)
                       .arg(w.written)
                       .arg(hopper)
                       .arg(w.before)
                       .arg(expected));
        previous = w.written;
    }
    fig.balanceWritesChecked += call.balanceWrites.size();
}

void Soak::counter(const StepPlan& plan)
{
    SumDetailed result;
    const Call call = hostCall(
        QStringLiteral("getCounter"), Allowed(),
        [&] { result = driver->getCounter(static_cast<ECashControl::CounterType>(plan.counter)); }, true);
    if (!call.ok)
        return;
    QMap<unsigned int, long long> expected;
    if (plan.counter == ECashControl::Accepted) {
        const QMap<unsigned char, unsigned int> positions = changer->positions();
        for (auto it = positions.cbegin(); it != positions.cend(); ++it)
            expected[it.value()] += line->device().auditCounter(70, it.key());
    } else if (plan.counter == ECashControl::Dispensed) {
        int listed = 0;
        for (const CashControlUnit& u : changer->cachedUnits()) {
            if (u.type != 1)
                continue;
            ++listed;
            const auto hopper = static_cast<quint8>(hopperOf(u.name));
            expected[u.denom] +=
                line->device().auditCounter(80, hopper) + line->device().auditCounter(87, hopper);
        }
        if (listed < hoppers)
            ++fig.partialUnitCache;
    } else {
        checkValue(call.transactions.isEmpty(),
                   QStringLiteral("an unsupported counter type talked to the device"));
    }
    checkValue(result.denoms == expected && result.rest == 0,
               QStringLiteral("getCounter(%1) returned %2, the device counts %3")
                   .arg(plan.counter)
                   .arg(sumText(result.denoms), sumText(expected)));
}

void Soak::units(const StepPlan& plan)
{
    QList<CashControlUnit> list;
    const bool arm = plan.op == Op::Units;
    const Call call = hostCall(
        QStringLiteral("getUnits"), Allowed(), [&] { list = driver->getUnits(); }, arm);
    if (!call.ok)
        return;
    QStringList names;
    for (const CashControlUnit& u : list)
        names << u.name;
    QStringList expected;
    for (int h = 1; h <= hoppers; ++h)
        expected << hopperName(h);
    expected << QStringLiteral("cashbox");
    checkValue(names == expected, QStringLiteral("getUnits listed ") + names.join(QStringLiteral(", ")));
    for (int h = 1; h <= hoppers; ++h) {
        const CashControlUnit& u = list.at(h - 1);
        checkValue(u.type == 1 && u.denom == hopperDenom(h) && u.count == line->device().hopperCount(h),
                   QStringLiteral("%1 listed with %2 coins of %3, the device counts %4")
                       .arg(u.name)
                       .arg(u.count)
                       .arg(u.denom)
                       .arg(line->device().hopperCount(h)));
    }
    checkValue(list.at(hoppers).type == 3 &&
                   list.at(hoppers).sum == static_cast<long long>(line->device().cashbox()),
               QStringLiteral("cashbox listed with %1, the device holds %2")
                   .arg(list.at(hoppers).sum)
                   .arg(line->device().cashbox()));
}

void Soak::simple(const StepPlan& plan)
{
    switch (plan.op) {
    case Op::CheckState:
        hostCall(
            QStringLiteral("checkState"), Allowed(), [this] { driver->checkState(); }, true);
        break;
    case Op::Connect: {
        const Call call = hostCall(
            QStringLiteral("connect"), Allowed(), [this] { driver->connect(); }, true);
        if (call.ok)
            check(changer->cachedUnits().size() == hoppers + 1,
                  QStringLiteral("connect succeeded with %1 units found").arg(changer->cachedUnits().size()));
        break;
    }
    case Op::AsyncCheck: {
        // Failures of the check reach the host only through the error signal.
        const Call call = hostCall(
            QStringLiteral("enableAsyncCheck"), Allowed(), [this] { driver->enableAsyncCheck(true); }, true);
        check(call.ok, QStringLiteral("enableAsyncCheck threw: ") + call.error);
        break;
    }
    default:
        break;
    }
}

void Soak::recreate(const StepPlan&)
{
    // The host destroys the driver object and makes a new one, as after a restart of
    // the POS program: the new object has a whole BUSY budget, the class-wide reset
    // request carries over.
    driver.reset();
    changer = nullptr;
    makeDriver();
    const Call connected = hostCall(
        QStringLiteral("connect"), Allowed(), [this] { driver->connect(); }, true);
    if (connected.ok)
        checkValue(
            changer->cachedUnits().size() == hoppers + 1,
            QStringLiteral("connect succeeded with %1 units found").arg(changer->cachedUnits().size()));
    const Call async =
        hostCall(QStringLiteral("enableAsyncCheck"), Allowed(), [this] { driver->enableAsyncCheck(true); });
    check(async.ok, QStringLiteral("enableAsyncCheck threw: ") + async.error);
}

void Soak::maintenance(const StepPlan& plan)
{
    hw::CcUnitMaintenanceInfo info;
    const Call call = hostCall(
        QStringLiteral("maintenanceInfo"), Allowed(), [&] { info = driver->maintenanceInfo(plan.unit); },
        true);
    if (!call.ok)
        return;
    if (plan.unit == QLatin1String("cashbox")) {
        checkValue(info.unitName.isEmpty() && info.cycles == 0,
                   QStringLiteral("maintenance of the cashbox reported \"%1\" with %2 cycles")
                       .arg(info.unitName)
                       .arg(info.cycles));
        return;
    }
    const auto hopper = static_cast<quint8>(hopperOf(plan.unit));
    const auto cycles = static_cast<int>(line->device().auditCounter(80, hopper));
    checkValue(info.unitName == plan.unit && info.cycles == cycles && info.interval == 500000 &&
                   info.status == (cycles <= 500000),
               QStringLiteral("maintenance of %1 reported %2 cycles, the device counts %3")
                   .arg(plan.unit)
                   .arg(info.cycles)
                   .arg(cycles));
}

void Soak::pump(int msecs)
{
    // The host's event loop for that long: the changer's poll and the driver's state check.
    line->runTimers({changer->timer(), driver->checkTimer()}, msecs);
}

void Soak::check(bool condition, const QString& what)
{
    ++fig.invariantChecks;
    if (!condition)
        violation(what);
}

void Soak::checkValue(bool condition, const QString& what)
{
    ++fig.invariantChecks;
    if (condition)
        return;
    if (forgedAnswers() > 0) {
        ++fig.valueChecksExcused;
        return;
    }
    violation(what);
}

int Soak::forgedAnswers()
{
    const QString received = QStringLiteral("Получено:");
    const QList<testsupport::LogLine>& lines = log->lines();
    QList<sim::Transaction> transactions;
    int forged = 0;
    for (int i = 0; i < lines.size(); ++i) {
        const testsupport::LogLine& logLine = lines.at(i);
        if (logLine.level != QLatin1String("TRACE") || !logLine.text.startsWith(received))
            continue;
        // An attempt that found no answer is followed by its error line.
        if (i + 1 < lines.size() && lines.at(i + 1).level == QLatin1String("ERROR") &&
            lines.at(i + 1).text == noLink)
            continue;
        const QByteArray bytes = QByteArray::fromHex(logLine.text.mid(received.size()).toLatin1());
        const QByteArray accepted = acceptedFrom(bytes);
        if (accepted.isEmpty())
            continue;
        if (transactions.isEmpty())
            transactions = line->transactions();
        if (!isGenuine(accepted, transactions)) {
            ++forged;
            if (forgedExample.isEmpty())
                forgedExample = QStringLiteral("step %1 (%2): took %3 from %4")
                                    .arg(current.step)
                                    .arg(opName(current.op))
                                    .arg(hex(accepted.left(12)), hex(bytes.left(48)));
        }
    }
    return forged;
}

QString Soak::transactionsText(const QList<sim::Transaction>& list, int last) const
{
    QStringList out;
    for (int i = std::max(0, list.size() - last); i < list.size(); ++i) {
        const sim::Transaction& t = list.at(i);
        out << QStringLiteral("    %1 ms header %2: %3 -> %4")
                   .arg(t.msecsSinceStart)
                   .arg(t.header)
                   .arg(hex(t.frame), t.answer.isEmpty() ? QStringLiteral("(no answer)") : hex(t.answer));
    }
    return out.join(QLatin1Char('\n'));
}

void Soak::violation(const QString& what)
{
    QStringList out;
    out << QStringLiteral(
               "SOAK VIOLATION at step %1 of %2, seed %3 (CPIBCR_SOAK_SEED=%3 CPIBCR_SOAK_STEPS=%2, "
               "or scripts/soak.sh %2 %3)")
               .arg(current.step)
               .arg(opts.steps)
               .arg(opts.seed);
    out << QStringLiteral("  invariant: ") + what;
    out << QStringLiteral("  plan: ") + current.describe();
    if (!lastCall.op.isEmpty()) {
        out << QStringLiteral("  call: %1 %2 in %3 ms")
                   .arg(lastCall.op, lastCall.ok ? QStringLiteral("returned") : lastCall.error)
                   .arg(lastCall.msecs);
        out << QStringLiteral("  its transactions (last 40):");
        out << transactionsText(lastCall.transactions, 40);
    }
    if (line) {
        out << QStringLiteral("  transactions of the step (last 20):");
        out << transactionsText(line->transactions(), 20);
    }
    out << QStringLiteral("  steps before:");
    for (const QString& s : qAsConst(recentSteps))
        out << QStringLiteral("    ") + s;
    if (log) {
        const QStringList lines = log->formatted();
        out << QStringLiteral("  log of the step (last 80 lines):");
        for (const QString& l : lines.mid(std::max(0, lines.size() - 80)))
            out << QStringLiteral("    ") + l;
    }
    failureText = out.join(QLatin1Char('\n'));
    throw Violation();
}

} // namespace soak
