#include "control.h"

#include "frame.h"
#include "simulator.h"

#include <QStringList>
#include <vector>

namespace sim {

namespace {

bool toNumber(const QString& s, qint64 min, qint64 max, qint64& out)
{
    bool ok = false;
    const qint64 v = s.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? s.mid(2).toLongLong(&ok, 16)
                                                                            : s.toLongLong(&ok, 10);
    if (!ok || v < min || v > max)
        return false;
    out = v;
    return true;
}

bool toSwitch(const QString& s, bool& out)
{
    if (s == QLatin1String("on") || s == QLatin1String("open") || s == QLatin1String("1")) {
        out = true;
        return true;
    }
    if (s == QLatin1String("off") || s == QLatin1String("close") || s == QLatin1String("closed") ||
        s == QLatin1String("0")) {
        out = false;
        return true;
    }
    return false;
}

const QString kOk = QStringLiteral("ok");

// Where a usage line's description starts, counted from the start of the line.
constexpr int kHelpColumn = 26;

// [N]: a count, 1 when left out.
QString countNext(Simulator& s, void (Simulator::*set)(int), const QStringList& a)
{
    qint64 n = 1;
    if (a.size() == 1 && !toNumber(a.at(0), 0, 1000000, n))
        return QStringLiteral("error: a count expected");
    (s.*set)(int(n));
    return kOk;
}

QString setSwitch(Simulator& s, void (Simulator::*set)(bool), const char* name, const QStringList& a)
{
    bool on = false;
    if (!toSwitch(a.at(0), on))
        return QStringLiteral("error: %1 on|off").arg(QLatin1String(name));
    (s.*set)(on);
    return kOk;
}

QString setPair(Simulator& s, void (Simulator::*set)(quint8, quint8), const QStringList& a)
{
    qint64 x = 0, y = 0;
    if (!toNumber(a.at(0), 0, 255, x) || !toNumber(a.at(1), 0, 255, y))
        return QStringLiteral("error: two numbers 0 to 255 expected");
    (s.*set)(quint8(x), quint8(y));
    return kOk;
}

QString hopperOnly(Simulator& s, void (Simulator::*set)(int), const QString& error, const QStringList& a)
{
    qint64 h = 0;
    if (!toNumber(a.at(0), 1, 255, h))
        return error;
    (s.*set)(int(h));
    return kOk;
}

// GROUP INDEX of an audit counter: an error text, or an empty one.
QString counterAt(const QStringList& a, const char* usage, qint64& group, qint64& index)
{
    if (!toNumber(a.at(0), 0, 255, group) || !toNumber(a.at(1), 0, 255, index))
        return QStringLiteral("error: %1").arg(QLatin1String(usage));
    if (group != audit::Accepted && group != audit::PaidOut && group != audit::Purged)
        return QStringLiteral("error: unknown counter group %1 (70, 80, 87)").arg(group);
    return QString();
}

} // namespace

struct ControlChannel::Command
{
    const char* section; // the heading the help line stands under; nullptr: not listed
    const char* name;
    int minArgs, maxArgs; // maxArgs -1: any number
    const char* keyword;  // the last argument must read so
    const char* usage;
    const char* help; // lines after the first start in the description column
    QString (*run)(ControlChannel& c, const QStringList& args);
};

// Each command's handler, called with arguments as many as its row allows.
struct ControlChannel::Handlers
{
    using Args = const QStringList&;

    static QString insertCoins(ControlChannel& c, Args a)
    {
        qint64 pos = 0, n = 1;
        if (!toNumber(a.at(0), 1, 16, pos) || (a.size() == 2 && !toNumber(a.at(1), 1, 10000, n)))
            return QStringLiteral("error: coin POS [N]: POS is 1 to 16");
        for (qint64 i = 0; i < n; ++i)
            c.sim_.insertCoin(int(pos));
        return kOk;
    }
    static QString errorStatus(ControlChannel& c, Args a)
    {
        return setPair(c.sim_, &Simulator::setErrorStatus, a);
    }
    static QString selfCheck(ControlChannel& c, Args a)
    {
        return setPair(c.sim_, &Simulator::setSelfCheck, a);
    }
    static QString activity(ControlChannel& c, Args a)
    {
        qint64 bits = 0;
        if (!toNumber(a.at(0), 0, 0xFFFF, bits))
            return QStringLiteral("error: a 16-bit number expected");
        c.sim_.setActivityBits(quint16(bits));
        return kOk;
    }
    static QString jam(ControlChannel& c, Args a)
    {
        qint64 h = 0;
        bool on = true;
        if (!toNumber(a.at(0), 1, 255, h) || (a.size() == 2 && !toSwitch(a.at(1), on)))
            return QStringLiteral("error: jam HOPPER [on|off]");
        c.sim_.jamHopper(int(h), on);
        return kOk;
    }
    static QString jamNow(ControlChannel& c, Args a)
    {
        return hopperOnly(c.sim_, &Simulator::flagHopperJam, QStringLiteral("error: jam HOPPER now"), a);
    }
    static QString empty(ControlChannel& c, Args a)
    {
        return hopperOnly(c.sim_, &Simulator::emptyHopper, QStringLiteral("error: empty HOPPER"), a);
    }
    static QString door(ControlChannel& c, Args a)
    {
        bool open = false;
        if (!toSwitch(a.at(0), open))
            return QStringLiteral("error: door open|close");
        c.sim_.openDoor(open);
        return kOk;
    }
    static QString hopperCount(ControlChannel& c, Args a)
    {
        qint64 h = 0, n = 0;
        if (!toNumber(a.at(0), 1, 255, h) || !toNumber(a.at(1), 0, 65535, n))
            return QStringLiteral("error: hopper HOPPER COUNT");
        if (c.sim_.hopperCount(int(h)) < 0)
            return QStringLiteral("error: no hopper %1").arg(h);
        c.sim_.setHopperCount(int(h), int(n));
        return kOk;
    }
    static QString cashbox(ControlChannel& c, Args a)
    {
        qint64 value = 0;
        if (!toNumber(a.at(0), 0, 0xFFFFFFFFLL, value))
            return QStringLiteral("error: cashbox VALUE");
        c.sim_.setCashbox(quint32(value));
        return kOk;
    }
    static QString setCounter(ControlChannel& c, Args a)
    {
        qint64 group = 0, index = 0, value = 0;
        const QString error = counterAt(a, "counter GROUP INDEX N", group, index);
        if (!error.isEmpty())
            return error;
        if (!toNumber(a.at(2), 0, 0xFFFFFFFFLL, value))
            return QStringLiteral("error: counter GROUP INDEX N: N is 0 to 4294967295");
        if (!c.sim_.setAuditCounter(quint8(group), quint8(index), quint32(value)))
            return QStringLiteral("error: no counter %1 %2").arg(group).arg(index);
        return kOk;
    }
    static QString clearFaults(ControlChannel& c, Args)
    {
        c.sim_.clearFaults();
        return kOk;
    }
    static QString restartCounters(ControlChannel& c, Args)
    {
        c.sim_.restartCoinCounters();
        return kOk;
    }
    static QString drop(ControlChannel& c, Args a)
    {
        qint64 n = 0, header = 0;
        if (a.size() == 1) {
            if (!toNumber(a.at(0), 0, 1000000, n))
                return QStringLiteral("error: a count expected");
            c.sim_.dropAnswers(int(n));
            return kOk;
        }
        if (!toNumber(a.at(0), 0, 1000000, n) || !toNumber(a.at(1), 0, 255, header))
            return QStringLiteral("error: drop N [HEADER]");
        c.sim_.dropAnswersTo(quint8(header), int(n));
        return kOk;
    }
    static QString busy(ControlChannel& c, Args a) { return countNext(c.sim_, &Simulator::answerBusy, a); }
    static QString nak(ControlChannel& c, Args a) { return countNext(c.sim_, &Simulator::nakNext, a); }
    static QString corrupt(ControlChannel& c, Args a)
    {
        return countNext(c.sim_, &Simulator::corruptChecksumNext, a);
    }
    static QString shorten(ControlChannel& c, Args a)
    {
        return countNext(c.sim_, &Simulator::shortenNext, a);
    }
    static QString garbage(ControlChannel& c, Args a)
    {
        const QByteArray hex = a.join(QString()).toLatin1();
        const QByteArray bytes = QByteArray::fromHex(hex);
        if (hex.size() % 2 != 0 || bytes.size() * 2 != hex.size())
            return QStringLiteral("error: garbage HEX...: hexadecimal bytes expected");
        c.sim_.garbageBeforeNext(bytes);
        return kOk;
    }
    static QString foreign(ControlChannel& c, Args a)
    {
        return countNext(c.sim_, &Simulator::foreignFrameBeforeNext, a);
    }
    static QString badFrame(ControlChannel& c, Args a)
    {
        return countNext(c.sim_, &Simulator::badFrameBeforeNext, a);
    }
    static QString split(ControlChannel& c, Args a)
    {
        qint64 pieces = 0, pause = 0;
        if (!toNumber(a.at(0), 2, 255, pieces) || !toNumber(a.at(1), 0, 60000, pause))
            return QStringLiteral("error: split PIECES PAUSE_MS");
        c.sim_.splitNext(int(pieces), int(pause));
        return kOk;
    }
    static QString babble(ControlChannel& c, Args a)
    {
        return setSwitch(c.sim_, &Simulator::setBabble, "babble", a);
    }
    static QString silent(ControlChannel& c, Args a)
    {
        return setSwitch(c.sim_, &Simulator::setSilent, "silent", a);
    }
    static QString pacing(ControlChannel& c, Args a)
    {
        return setSwitch(c.sim_, &Simulator::setPacing, "pacing", a);
    }
    static QString echo(ControlChannel& c, Args a)
    {
        return setSwitch(c.sim_, &Simulator::setEcho, "echo", a);
    }
    static QString clearLine(ControlChannel& c, Args)
    {
        c.sim_.clearLineFaults();
        return kOk;
    }
    static QString showStatus(ControlChannel& c, Args) { return c.status(); }
    static QString readCounter(ControlChannel& c, Args a)
    {
        qint64 group = 0, index = 0;
        const QString error = counterAt(a, "counter GROUP INDEX", group, index);
        if (!error.isEmpty())
            return error;
        return QString::number(c.sim_.auditCounter(quint8(group), quint8(index)));
    }
    static QString showLog(ControlChannel& c, Args a)
    {
        qint64 n = 20;
        if (a.size() == 1 && !toNumber(a.at(0), 1, 1000000, n))
            return QStringLiteral("error: log [N]");
        return c.transactions(int(n));
    }
    static QString clearLog(ControlChannel& c, Args)
    {
        c.sim_.clearTransactions();
        return kOk;
    }
    static QString clearWhat(ControlChannel&, Args) { return QStringLiteral("error: clear faults|line|log"); }
    static QString port(ControlChannel& c, Args) { return c.sim_.portPath(); }
    static QString showHelp(ControlChannel&, Args) { return help(); }
    static QString leave(ControlChannel& c, Args) { return c.quit(); }
};

const std::vector<ControlChannel::Command>& ControlChannel::commands()
{
    using H = Handlers;
    static const char* const device = "Device";
    static const char* const line = "Line";
    static const char* const observation = "Observation";
    static const std::vector<Command> table = {
        {device, "coin", 1, 2, nullptr, "coin POS [N]", "insert N coins (default 1) at coin position POS",
         &H::insertCoins},
        {device, "error", 2, 2, nullptr, "error MODULE CODE",
         "error status answered to header 122 (0 0 = none)", &H::errorStatus},
        {device, "selfcheck", 2, 2, nullptr, "selfcheck FAULT SUB",
         "self-check answer to header 232 (0 0 = none)", &H::selfCheck},
        {device, "activity", 1, 1, nullptr, "activity BITS",
         "extra activity-register bits, or'ed with the model's own", &H::activity},
        {device, "jam", 1, 2, nullptr, "jam HOPPER [on|off]", "jam a hopper (or free it)", &H::jam},
        {device, "jam", 2, 2, "now", "jam HOPPER now", "jam a hopper and raise its fault at once",
         &H::jamNow},
        {device, "empty", 1, 1, nullptr, "empty HOPPER",
         "take every coin out of a hopper behind the device's back", &H::empty},
        {device, "door", 1, 1, nullptr, "door open|close", nullptr, &H::door},
        {device, "hopper", 2, 2, nullptr, "hopper HOPPER COUNT", "set a hopper's coin count",
         &H::hopperCount},
        {device, "cashbox", 1, 1, nullptr, "cashbox VALUE", "set the cashbox value (minor units)",
         &H::cashbox},
        {device, "counter", 3, 3, nullptr, "counter GROUP INDEX N",
         "set an audit counter to N, as the device's past life left it", &H::setCounter},
        {device, "clear", 1, 1, "faults", "clear faults", "undo error, selfcheck, activity, jam and door",
         &H::clearFaults},
        {device, "restart", 1, 1, "counters", "restart counters", "the coins-in counters start again from 0",
         &H::restartCounters},
        {line, "drop", 1, 2, nullptr, "drop N [HEADER]",
         "carry out the next N commands (with that header) but lose\ntheir answers", &H::drop},
        {line, "busy", 1, 1, nullptr, "busy N", "answer the next N commands BUSY", &H::busy},
        {line, "nak", 0, 1, nullptr, "nak [N]", "answer the next N commands NAK", &H::nak},
        {line, "corrupt", 0, 1, nullptr, "corrupt [N]", "spoil the checksum of the next N answers",
         &H::corrupt},
        {line, "short", 0, 1, nullptr, "short [N]",
         "cut the last data byte of the next N answers, checksum right", &H::shorten},
        {line, "garbage", 1, -1, nullptr, "garbage HEX...", "put these bytes before the next answer",
         &H::garbage},
        {line, "foreign", 0, 1, nullptr, "foreign [N]",
         "a frame between two other stations before the next N answers", &H::foreign},
        {line, "badframe", 0, 1, nullptr, "badframe [N]",
         "a 130-byte frame to the host with a wrong checksum before the\nnext N answers", &H::badFrame},
        {line, "split", 2, 2, nullptr, "split PIECES PAUSE_MS", "send the next answer in pieces with pauses",
         &H::split},
        {line, "babble", 1, 1, nullptr, "babble on|off", "random bytes on the line", &H::babble},
        {line, "silent", 1, 1, nullptr, "silent on|off", "no command is carried out or answered", &H::silent},
        {line, "pacing", 1, 1, nullptr, "pacing on|off", "bytes leave at the configured baud rate",
         &H::pacing},
        {line, "echo", 1, 1, nullptr, "echo on|off", "repeat the host's bytes back", &H::echo},
        {line, "clear", 1, 1, "line", "clear line", "undo every line fault", &H::clearLine},
        {observation, "status", 0, 0, nullptr, "status", "hoppers, cashbox, activity, faults",
         &H::showStatus},
        {observation, "counter", 2, 2, nullptr, "counter GROUP INDEX",
         "an audit counter (70 accepted, 80 paid out, 87 purged)", &H::readCounter},
        {observation, "log", 0, 1, nullptr, "log [N]", "the last N received commands (default 20)",
         &H::showLog},
        {observation, "clear", 1, 1, "log", "clear log", "forget the received commands", &H::clearLog},
        {nullptr, "clear", 1, 1, nullptr, nullptr, nullptr, &H::clearWhat},
        {observation, "port", 0, 0, nullptr, "port", "the serial port served", &H::port},
        {observation, "help", 0, -1, nullptr, "help", nullptr, &H::showHelp},
        {nullptr, "?", 0, -1, nullptr, nullptr, nullptr, &H::showHelp},
        {observation, "quit", 0, -1, nullptr, "quit", nullptr, &H::leave},
        {nullptr, "exit", 0, -1, nullptr, nullptr, nullptr, &H::leave},
    };
    return table;
}

QString ControlChannel::help()
{
    QStringList lines;
    const char* section = nullptr;
    for (const Command& c : commands()) {
        if (!c.section)
            continue;
        if (c.section != section) {
            section = c.section;
            lines << QLatin1String(section) + QLatin1Char(':');
        }
        QString l = QStringLiteral("  ") + QLatin1String(c.usage);
        if (c.help) {
            const QString indent(kHelpColumn, QLatin1Char(' '));
            l = l.leftJustified(kHelpColumn - 1) + QLatin1Char(' ') +
                QString::fromLatin1(c.help).replace(QLatin1Char('\n'), QLatin1Char('\n') + indent);
        }
        lines << l;
    }
    return lines.join(QLatin1Char('\n'));
}

QString ControlChannel::quit()
{
    quit_ = true;
    return QStringLiteral("bye");
}

QString ControlChannel::status() const
{
    QStringList lines;
    Simulator& s = sim_;
    s.withDevice([&](Device& dev) {
        const Config& c = dev.config();
        for (int h = 1; h <= dev.hopperCount(); ++h) {
            const HopperConfig& hc = c.hoppers.at(h - 1);
            lines << QStringLiteral("hopper %1: %2 count %3 capacity %4%5")
                         .arg(h)
                         .arg(hc.coinId)
                         .arg(dev.hopperCount(h))
                         .arg(hc.capacity)
                         .arg(hc.enabled ? QString() : QStringLiteral(" disabled"));
        }
        lines << QStringLiteral("cashbox: %1").arg(dev.cashbox());
        lines << QStringLiteral("activity: %1").arg(dev.activityRegister());
        lines << QStringLiteral("inhibit mask: 0x%1%2")
                     .arg(dev.inhibitMask(), 4, 16, QLatin1Char('0'))
                     .arg(dev.fastMode() ? QStringLiteral(" fast") : QString());
        lines << QStringLiteral("error status: %1 %2")
                     .arg(dev.errorStatus().first)
                     .arg(dev.errorStatus().second);
        lines << QStringLiteral("self-check: %1 %2").arg(dev.selfCheck().first).arg(dev.selfCheck().second);
        lines << QStringLiteral("accepted value: %1, paid out value: %2")
                     .arg(dev.valueAccepted())
                     .arg(dev.coinsPaidOut());
    });
    return lines.join(QLatin1Char('\n'));
}

QString ControlChannel::transactions(int last) const
{
    const QList<Transaction> log = sim_.transactions();
    QStringList lines;
    for (int i = std::max(0, int(log.size()) - last); i < log.size(); ++i) {
        const Transaction& t = log.at(i);
        lines << QStringLiteral("%1 ms header %2: %3 -> %4")
                     .arg(t.msecsSinceStart)
                     .arg(t.header)
                     .arg(QString::fromLatin1(frame::toHex(t.frame)))
                     .arg(t.answer.isEmpty() ? QStringLiteral("(no answer)")
                                             : QString::fromLatin1(frame::toHex(t.answer)));
    }
    if (lines.isEmpty())
        return QStringLiteral("(no commands received)");
    return lines.join(QLatin1Char('\n'));
}

QString ControlChannel::execute(const QString& line)
{
    const QStringList w = line.simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (w.isEmpty())
        return QString();
    const QString name = w.at(0).toLower();
    const QStringList args = w.mid(1);
    // A row whose keyword matches wins over one that takes any argument there.
    const Command* found = nullptr;
    for (const Command& c : commands()) {
        if (name != QLatin1String(c.name) || args.size() < c.minArgs ||
            (c.maxArgs >= 0 && args.size() > c.maxArgs))
            continue;
        if (c.keyword && args.last() != QLatin1String(c.keyword))
            continue;
        if (c.keyword || !found)
            found = &c;
        if (c.keyword)
            break;
    }
    if (found)
        return found->run(*this, args);
    return QStringLiteral("error: unknown command or wrong arguments: %1 (try help)")
        .arg(w.join(QLatin1Char(' ')));
}

} // namespace sim
