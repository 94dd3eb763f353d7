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
    if (group != 70 && group != 80 && group != 87)
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

const std::vector<ControlChannel::Command>& ControlChannel::commands()
{
    using Args = const QStringList&;
    static const char* const device = "Device";
    static const char* const line = "Line";
    static const char* const observation = "Observation";
    static const std::vector<Command> table = {
        {device, "coin", 1, 2, nullptr, "coin POS [N]", "insert N coins (default 1) at coin position POS",
         [](ControlChannel& c, Args a) {
             qint64 pos = 0, n = 1;
             if (!toNumber(a.at(0), 1, 16, pos) || (a.size() == 2 && !toNumber(a.at(1), 1, 10000, n)))
                 return QStringLiteral("error: coin POS [N]: POS is 1 to 16");
             for (qint64 i = 0; i < n; ++i)
                 c.sim_.insertCoin(int(pos));
             return kOk;
         }},
        {device, "error", 2, 2, nullptr, "error MODULE CODE",
         "error status answered to header 122 (0 0 = none)",
         [](ControlChannel& c, Args a) { return setPair(c.sim_, &Simulator::setErrorStatus, a); }},
        {device, "selfcheck", 2, 2, nullptr, "selfcheck FAULT SUB",
         "self-check answer to header 232 (0 0 = none)",
         [](ControlChannel& c, Args a) { return setPair(c.sim_, &Simulator::setSelfCheck, a); }},
        {device, "activity", 1, 1, nullptr, "activity BITS",
         "extra activity-register bits, or'ed with the model's own",
         [](ControlChannel& c, Args a) {
             qint64 bits = 0;
             if (!toNumber(a.at(0), 0, 0xFFFF, bits))
                 return QStringLiteral("error: a 16-bit number expected");
             c.sim_.setActivityBits(quint16(bits));
             return kOk;
         }},
        {device, "jam", 1, 2, nullptr, "jam HOPPER [on|off]", "jam a hopper (or free it)",
         [](ControlChannel& c, Args a) {
             qint64 h = 0;
             bool on = true;
             if (!toNumber(a.at(0), 1, 255, h) || (a.size() == 2 && !toSwitch(a.at(1), on)))
                 return QStringLiteral("error: jam HOPPER [on|off]");
             c.sim_.jamHopper(int(h), on);
             return kOk;
         }},
        {device, "jam", 2, 2, "now", "jam HOPPER now", "jam a hopper and raise its fault at once",
         [](ControlChannel& c, Args a) {
             return hopperOnly(c.sim_, &Simulator::flagHopperJam, QStringLiteral("error: jam HOPPER now"), a);
         }},
        {device, "empty", 1, 1, nullptr, "empty HOPPER",
         "take every coin out of a hopper behind the device's back",
         [](ControlChannel& c, Args a) {
             return hopperOnly(c.sim_, &Simulator::emptyHopper, QStringLiteral("error: empty HOPPER"), a);
         }},
        {device, "door", 1, 1, nullptr, "door open|close", nullptr,
         [](ControlChannel& c, Args a) {
             bool open = false;
             if (!toSwitch(a.at(0), open))
                 return QStringLiteral("error: door open|close");
             c.sim_.openDoor(open);
             return kOk;
         }},
        {device, "hopper", 2, 2, nullptr, "hopper HOPPER COUNT", "set a hopper's coin count",
         [](ControlChannel& c, Args a) {
             qint64 h = 0, n = 0;
             if (!toNumber(a.at(0), 1, 255, h) || !toNumber(a.at(1), 0, 65535, n))
                 return QStringLiteral("error: hopper HOPPER COUNT");
             if (c.sim_.hopperCount(int(h)) < 0)
                 return QStringLiteral("error: no hopper %1").arg(h);
             c.sim_.setHopperCount(int(h), int(n));
             return kOk;
         }},
        {device, "cashbox", 1, 1, nullptr, "cashbox VALUE", "set the cashbox value (minor units)",
         [](ControlChannel& c, Args a) {
             qint64 value = 0;
             if (!toNumber(a.at(0), 0, 0xFFFFFFFFLL, value))
                 return QStringLiteral("error: cashbox VALUE");
             c.sim_.setCashbox(quint32(value));
             return kOk;
         }},
        {device, "counter", 3, 3, nullptr, "counter GROUP INDEX N",
         "set an audit counter to N, as the device's past life left it",
         [](ControlChannel& c, Args a) {
             qint64 group = 0, index = 0, value = 0;
             const QString error = counterAt(a, "counter GROUP INDEX N", group, index);
             if (!error.isEmpty())
                 return error;
             if (!toNumber(a.at(2), 0, 0xFFFFFFFFLL, value))
                 return QStringLiteral("error: counter GROUP INDEX N: N is 0 to 4294967295");
             if (!c.sim_.setAuditCounter(quint8(group), quint8(index), quint32(value)))
                 return QStringLiteral("error: no counter %1 %2").arg(group).arg(index);
             return kOk;
         }},
        {device, "clear", 1, 1, "faults", "clear faults", "undo error, selfcheck, activity, jam and door",
         [](ControlChannel& c, Args) {
             c.sim_.clearFaults();
             return kOk;
         }},
        {device, "restart", 1, 1, "counters", "restart counters", "the coins-in counters start again from 0",
         [](ControlChannel& c, Args) {
             c.sim_.restartCoinCounters();
             return kOk;
         }},
        {line, "drop", 1, 2, nullptr, "drop N [HEADER]",
         "carry out the next N commands (with that header) but lose\ntheir answers",
         [](ControlChannel& c, Args a) {
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
         }},
        {line, "busy", 1, 1, nullptr, "busy N", "answer the next N commands BUSY",
         [](ControlChannel& c, Args a) { return countNext(c.sim_, &Simulator::answerBusy, a); }},
        {line, "nak", 0, 1, nullptr, "nak [N]", "answer the next N commands NAK",
         [](ControlChannel& c, Args a) { return countNext(c.sim_, &Simulator::nakNext, a); }},
        {line, "corrupt", 0, 1, nullptr, "corrupt [N]", "spoil the checksum of the next N answers",
         [](ControlChannel& c, Args a) { return countNext(c.sim_, &Simulator::corruptChecksumNext, a); }},
        {line, "short", 0, 1, nullptr, "short [N]",
         "cut the last data byte of the next N answers, checksum right",
         [](ControlChannel& c, Args a) { return countNext(c.sim_, &Simulator::shortenNext, a); }},
        {line, "garbage", 1, -1, nullptr, "garbage HEX...", "put these bytes before the next answer",
         [](ControlChannel& c, Args a) {
             const QByteArray hex = a.join(QString()).toLatin1();
             const QByteArray bytes = QByteArray::fromHex(hex);
             if (hex.size() % 2 != 0 || bytes.size() * 2 != hex.size())
                 return QStringLiteral("error: garbage HEX...: hexadecimal bytes expected");
             c.sim_.garbageBeforeNext(bytes);
             return kOk;
         }},
        {line, "foreign", 0, 1, nullptr, "foreign [N]",
         "a frame between two other stations before the next N answers",
         [](ControlChannel& c, Args a) { return countNext(c.sim_, &Simulator::foreignFrameBeforeNext, a); }},
        {line, "badframe", 0, 1, nullptr, "badframe [N]",
         "a 130-byte frame to the host with a wrong checksum before the\nnext N answers",
         [](ControlChannel& c, Args a) { return countNext(c.sim_, &Simulator::badFrameBeforeNext, a); }},
        {line, "split", 2, 2, nullptr, "split PIECES PAUSE_MS", "send the next answer in pieces with pauses",
         [](ControlChannel& c, Args a) {
             qint64 pieces = 0, pause = 0;
             if (!toNumber(a.at(0), 2, 255, pieces) || !toNumber(a.at(1), 0, 60000, pause))
                 return QStringLiteral("error: split PIECES PAUSE_MS");
             c.sim_.splitNext(int(pieces), int(pause));
             return kOk;
         }},
        {line, "babble", 1, 1, nullptr, "babble on|off", "random bytes on the line",
         [](ControlChannel& c, Args a) { return setSwitch(c.sim_, &Simulator::setBabble, "babble", a); }},
        {line, "silent", 1, 1, nullptr, "silent on|off", "no command is carried out or answered",
         [](ControlChannel& c, Args a) { return setSwitch(c.sim_, &Simulator::setSilent, "silent", a); }},
        {line, "pacing", 1, 1, nullptr, "pacing on|off", "bytes leave at the configured baud rate",
         [](ControlChannel& c, Args a) { return setSwitch(c.sim_, &Simulator::setPacing, "pacing", a); }},
        {line, "echo", 1, 1, nullptr, "echo on|off", "repeat the host's bytes back",
         [](ControlChannel& c, Args a) { return setSwitch(c.sim_, &Simulator::setEcho, "echo", a); }},
        {line, "clear", 1, 1, "line", "clear line", "undo every line fault",
         [](ControlChannel& c, Args) {
             c.sim_.clearLineFaults();
             return kOk;
         }},
        {observation, "status", 0, 0, nullptr, "status", "hoppers, cashbox, activity, faults",
         [](ControlChannel& c, Args) { return c.status(); }},
        {observation, "counter", 2, 2, nullptr, "counter GROUP INDEX",
         "an audit counter (70 accepted, 80 paid out, 87 purged)",
         [](ControlChannel& c, Args a) {
             qint64 group = 0, index = 0;
             const QString error = counterAt(a, "counter GROUP INDEX", group, index);
             if (!error.isEmpty())
                 return error;
             return QString::number(c.sim_.auditCounter(quint8(group), quint8(index)));
         }},
        {observation, "log", 0, 1, nullptr, "log [N]", "the last N received commands (default 20)",
         [](ControlChannel& c, Args a) {
             qint64 n = 20;
             if (a.size() == 1 && !toNumber(a.at(0), 1, 1000000, n))
                 return QStringLiteral("error: log [N]");
             return c.transactions(int(n));
         }},
        {observation, "clear", 1, 1, "log", "clear log", "forget the received commands",
         [](ControlChannel& c, Args) {
             c.sim_.clearTransactions();
             return kOk;
         }},
        {nullptr, "clear", 1, 1, nullptr, nullptr, nullptr,
         [](ControlChannel&, Args) { return QStringLiteral("error: clear faults|line|log"); }},
        {observation, "port", 0, 0, nullptr, "port", "the serial port served",
         [](ControlChannel& c, Args) { return c.sim_.portPath(); }},
        {observation, "help", 0, -1, nullptr, "help", nullptr, [](ControlChannel&, Args) { return help(); }},
        {nullptr, "?", 0, -1, nullptr, nullptr, nullptr, [](ControlChannel&, Args) { return help(); }},
        {observation, "quit", 0, -1, nullptr, "quit", nullptr,
         [](ControlChannel& c, Args) { return c.quit(); }},
        {nullptr, "exit", 0, -1, nullptr, nullptr, nullptr, [](ControlChannel& c, Args) { return c.quit(); }},
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
