#include "control.h"

#include "frame.h"
#include "simulator.h"

#include <QStringList>

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

} // namespace

QString ControlChannel::help()
{
    return QStringLiteral(
        "Device:\n"
        "  coin POS [N]            insert N coins (default 1) at coin position POS\n"
        "  error MODULE CODE       error status answered to header 122 (0 0 = none)\n"
        "  selfcheck FAULT SUB     self-check answer to header 232 (0 0 = none)\n"
        "  activity BITS           extra activity-register bits, or'ed with the model's own\n"
        "  jam HOPPER [on|off]     jam a hopper (or free it)\n"
        "  jam HOPPER now          jam a hopper and raise its fault at once\n"
        "  empty HOPPER            take every coin out of a hopper behind the device's back\n"
        "  door open|close\n"
        "  hopper HOPPER COUNT     set a hopper's coin count\n"
        "  cashbox VALUE           set the cashbox value (minor units)\n"
        "  clear faults            undo error, selfcheck, activity, jam and door\n"
        "  restart counters        the coins-in counters start again from 0\n"
        "Line:\n"
        "  drop N [HEADER]         carry out the next N commands (with that header) but lose\n"
        "                          their answers\n"
        "  busy N                  answer the next N commands BUSY\n"
        "  nak [N]                 answer the next N commands NAK\n"
        "  corrupt [N]             spoil the checksum of the next N answers\n"
        "  garbage HEX...          put these bytes before the next answer\n"
        "  foreign [N]             a frame between two other stations before the next N answers\n"
        "  badframe [N]            a 130-byte frame to the host with a wrong checksum before the\n"
        "                          next N answers\n"
        "  split PIECES PAUSE_MS   send the next answer in pieces with pauses\n"
        "  babble on|off           random bytes on the line\n"
        "  silent on|off           no command is carried out or answered\n"
        "  pacing on|off           bytes leave at the configured baud rate\n"
        "  echo on|off             repeat the host's bytes back\n"
        "  clear line              undo every line fault\n"
        "Observation:\n"
        "  status                  hoppers, cashbox, activity, faults\n"
        "  counter GROUP INDEX     an audit counter (70 accepted, 80 paid out, 87 purged)\n"
        "  log [N]                 the last N received commands (default 20)\n"
        "  clear log               forget the received commands\n"
        "  port                    the serial port served\n"
        "  help\n"
        "  quit");
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
    const QString c = w.at(0).toLower();
    const int argc = w.size() - 1;
    qint64 a = 0, b = 0;
    bool on = false;

    if (c == QLatin1String("help") || c == QLatin1String("?"))
        return help();
    if (c == QLatin1String("quit") || c == QLatin1String("exit")) {
        quit_ = true;
        return QStringLiteral("bye");
    }
    if (c == QLatin1String("status") && argc == 0)
        return status();
    if (c == QLatin1String("port") && argc == 0)
        return sim_.portPath();
    if (c == QLatin1String("coin") && (argc == 1 || argc == 2)) {
        b = 1;
        if (!toNumber(w.at(1), 1, 16, a) || (argc == 2 && !toNumber(w.at(2), 1, 10000, b)))
            return QStringLiteral("error: coin POS [N]: POS is 1 to 16");
        for (qint64 i = 0; i < b; ++i)
            sim_.insertCoin(int(a));
        return kOk;
    }
    if ((c == QLatin1String("error") || c == QLatin1String("selfcheck")) && argc == 2) {
        if (!toNumber(w.at(1), 0, 255, a) || !toNumber(w.at(2), 0, 255, b))
            return QStringLiteral("error: two numbers 0 to 255 expected");
        if (c == QLatin1String("error"))
            sim_.setErrorStatus(quint8(a), quint8(b));
        else
            sim_.setSelfCheck(quint8(a), quint8(b));
        return kOk;
    }
    if (c == QLatin1String("activity") && argc == 1) {
        if (!toNumber(w.at(1), 0, 0xFFFF, a))
            return QStringLiteral("error: a 16-bit number expected");
        sim_.setActivityBits(quint16(a));
        return kOk;
    }
    if (c == QLatin1String("jam") && argc == 2 && w.at(2) == QLatin1String("now")) {
        if (!toNumber(w.at(1), 1, 255, a))
            return QStringLiteral("error: jam HOPPER now");
        sim_.flagHopperJam(int(a));
        return kOk;
    }
    if (c == QLatin1String("jam") && (argc == 1 || argc == 2)) {
        on = true;
        if (!toNumber(w.at(1), 1, 255, a) || (argc == 2 && !toSwitch(w.at(2), on)))
            return QStringLiteral("error: jam HOPPER [on|off]");
        sim_.jamHopper(int(a), on);
        return kOk;
    }
    if (c == QLatin1String("empty") && argc == 1) {
        if (!toNumber(w.at(1), 1, 255, a))
            return QStringLiteral("error: empty HOPPER");
        sim_.emptyHopper(int(a));
        return kOk;
    }
    if (c == QLatin1String("door") && argc == 1) {
        if (!toSwitch(w.at(1), on))
            return QStringLiteral("error: door open|close");
        sim_.openDoor(on);
        return kOk;
    }
    if (c == QLatin1String("hopper") && argc == 2) {
        if (!toNumber(w.at(1), 1, 255, a) || !toNumber(w.at(2), 0, 65535, b))
            return QStringLiteral("error: hopper HOPPER COUNT");
        if (sim_.hopperCount(int(a)) < 0)
            return QStringLiteral("error: no hopper %1").arg(a);
        sim_.setHopperCount(int(a), int(b));
        return kOk;
    }
    if (c == QLatin1String("cashbox") && argc == 1) {
        if (!toNumber(w.at(1), 0, 0xFFFFFFFFLL, a))
            return QStringLiteral("error: cashbox VALUE");
        sim_.setCashbox(quint32(a));
        return kOk;
    }
    if (c == QLatin1String("clear") && argc == 1) {
        if (w.at(1) == QLatin1String("faults"))
            sim_.clearFaults();
        else if (w.at(1) == QLatin1String("line"))
            sim_.clearLineFaults();
        else if (w.at(1) == QLatin1String("log"))
            sim_.clearTransactions();
        else
            return QStringLiteral("error: clear faults|line|log");
        return kOk;
    }
    if (c == QLatin1String("drop") && argc == 2) {
        if (!toNumber(w.at(1), 0, 1000000, a) || !toNumber(w.at(2), 0, 255, b))
            return QStringLiteral("error: drop N [HEADER]");
        sim_.dropAnswersTo(quint8(b), int(a));
        return kOk;
    }
    if ((c == QLatin1String("drop") || c == QLatin1String("busy")) && argc == 1) {
        if (!toNumber(w.at(1), 0, 1000000, a))
            return QStringLiteral("error: a count expected");
        if (c == QLatin1String("drop"))
            sim_.dropAnswers(int(a));
        else
            sim_.answerBusy(int(a));
        return kOk;
    }
    if ((c == QLatin1String("nak") || c == QLatin1String("corrupt") || c == QLatin1String("foreign") ||
         c == QLatin1String("badframe")) &&
        argc <= 1) {
        a = 1;
        if (argc == 1 && !toNumber(w.at(1), 0, 1000000, a))
            return QStringLiteral("error: a count expected");
        if (c == QLatin1String("nak"))
            sim_.nakNext(int(a));
        else if (c == QLatin1String("corrupt"))
            sim_.corruptChecksumNext(int(a));
        else if (c == QLatin1String("foreign"))
            sim_.foreignFrameBeforeNext(int(a));
        else
            sim_.badFrameBeforeNext(int(a));
        return kOk;
    }
    if (c == QLatin1String("restart") && argc == 1 && w.at(1) == QLatin1String("counters")) {
        sim_.restartCoinCounters();
        return kOk;
    }
    if (c == QLatin1String("garbage") && argc >= 1) {
        const QByteArray hex = w.mid(1).join(QString()).toLatin1();
        const QByteArray bytes = QByteArray::fromHex(hex);
        if (hex.size() % 2 != 0 || bytes.size() * 2 != hex.size())
            return QStringLiteral("error: garbage HEX...: hexadecimal bytes expected");
        sim_.garbageBeforeNext(bytes);
        return kOk;
    }
    if (c == QLatin1String("split") && argc == 2) {
        if (!toNumber(w.at(1), 2, 255, a) || !toNumber(w.at(2), 0, 60000, b))
            return QStringLiteral("error: split PIECES PAUSE_MS");
        sim_.splitNext(int(a), int(b));
        return kOk;
    }
    if ((c == QLatin1String("babble") || c == QLatin1String("silent") || c == QLatin1String("pacing") ||
         c == QLatin1String("echo")) &&
        argc == 1) {
        if (!toSwitch(w.at(1), on))
            return QStringLiteral("error: %1 on|off").arg(c);
        if (c == QLatin1String("babble"))
            sim_.setBabble(on);
        else if (c == QLatin1String("silent"))
            sim_.setSilent(on);
        else if (c == QLatin1String("pacing"))
            sim_.setPacing(on);
        else
            sim_.setEcho(on);
        return kOk;
    }
    if (c == QLatin1String("counter") && argc == 2) {
        if (!toNumber(w.at(1), 0, 255, a) || !toNumber(w.at(2), 0, 255, b))
            return QStringLiteral("error: counter GROUP INDEX");
        if (a != 70 && a != 80 && a != 87)
            return QStringLiteral("error: unknown counter group %1 (70, 80, 87)").arg(a);
        return QString::number(sim_.auditCounter(quint8(a), quint8(b)));
    }
    if (c == QLatin1String("log") && argc <= 1) {
        a = 20;
        if (argc == 1 && !toNumber(w.at(1), 1, 1000000, a))
            return QStringLiteral("error: log [N]");
        return transactions(int(a));
    }
    return QStringLiteral("error: unknown command or wrong arguments: %1 (try help)")
        .arg(w.join(QLatin1Char(' ')));
}

} // namespace sim
