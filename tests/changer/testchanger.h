#pragma once

#include "requests.h"
#include "support/frames.h"
#include "support/logcapture.h"
#include "support/recordingchanger.h"
#include "support/simline.h"
#include "support/thrown.h"
#include "support/units.h"

#include <QList>
#include <QMap>
#include <QStringList>

#include <functional>

namespace changertest {

using testsupport::RecordingChanger;
using testsupport::significant;
using testsupport::thrown;
using testsupport::thrownText;

// A changer (of the test's class) at address 55 on the simulated recycler: its pauses
// and its waits for answers move the line's virtual clock.
template <class C> struct SimRigOf
{
    explicit SimRigOf(const sim::Config& config = sim::Config::defaults()) : line(config)
    {
        changer.setAddress(55);
        changer.setSerial(&line);
        changer.runOn(line);
        RecordingChanger::setResetPending(false);
        line.setRequestHook([this](const QByteArray& frame) {
            const auto it = hooks.constFind(quint8(frame.at(3)));
            if (it != hooks.constEnd())
                it.value()(frame);
        });
    }
    ~SimRigOf() { RecordingChanger::setResetPending(false); }
    Q_DISABLE_COPY(SimRigOf)

    // Runs a discovery of the recycler and forgets its traffic.
    void discover()
    {
        changer.loadCashUnits();
        line.clearTransactions();
    }

    // Runs the action on every request with this header, before the device answers it;
    // the action may take the request frame.
    void beforeAnswer(quint8 header, std::function<void(const QByteArray& request)> action)
    {
        hooks[header] = std::move(action);
    }
    void beforeAnswer(quint8 header, std::function<void()> action)
    {
        beforeAnswer(header, [action](const QByteArray&) { action(); });
    }
    // Requests with this header go to the device untouched again.
    void removeHook(quint8 header) { hooks.remove(header); }
    // The activity register reads these bits in turn, the last ones repeating.
    void activitySequence(const QList<quint16>& bits)
    {
        beforeAnswer(123, [this, bits, n = 0]() mutable {
            line.device().setActivityBits(bits.at(qMin(n++, bits.size() - 1)));
        });
    }
    // The device answers every request with this header with NAK.
    void refuse(quint8 header)
    {
        beforeAnswer(header, [this] { line.nakNext(); });
    }

    sim::Device& device() { return line.device(); }

    // The request frames sent to the device, in order.
    QList<QByteArray> writes() const
    {
        QList<QByteArray> out;
        for (const sim::Transaction& t : line.transactions())
            out << t.frame;
        return out;
    }

    // How many requests the device answered with NAK.
    int refusals() const
    {
        int n = 0;
        for (const sim::Transaction& t : line.transactions())
            n += t.answer.endsWith(testsupport::nak()) ? 1 : 0;
        return n;
    }

    testsupport::SimLine line;
    C changer;

private:
    QMap<quint8, std::function<void(const QByteArray&)>> hooks;
};

using SimChangerRig = SimRigOf<RecordingChanger>;

// The simulated recycler with the coins, hoppers and identification texts of
// DeviceModel::recycler.
inline sim::Config recycler(const QList<QByteArray>& coinIds, const QList<Hopper>& hoppers,
                            quint32 cashbox = 0)
{
    sim::Config c = sim::Config::defaults();
    c.acceptorFirmware = QStringLiteral("5.31");
    c.acceptorModel = QStringLiteral("C2-RU");
    c.acceptorSerial = 734112;
    c.coinIds.clear();
    for (int p = 1; p <= coinIds.size(); ++p)
        c.coinIds[p] = QString::fromLatin1(coinIds.at(p - 1));
    c.hoppers.clear();
    for (int h = 1; h <= hoppers.size(); ++h) {
        const Hopper& hopper = hoppers.at(h - 1);
        sim::HopperConfig hc;
        hc.coinId = QString::fromLatin1(hopper.coinId);
        hc.count = hopper.count;
        hc.capacity = hopper.capacity;
        hc.enabled = hopper.enabled;
        hc.firmware = QStringLiteral("2.0") + QString::number(h);
        hc.model = QStringLiteral("MH") + QString::number(h);
        hc.serial = quint32(1000 + h);
        c.hoppers << hc;
    }
    c.cashbox = cashbox;
    return c;
}

// A unit as discovery makes it, a hopper under any name.
inline CashControlUnit hopperUnit(const QString& name, unsigned int denom, long long count = 0)
{
    CashControlUnit unit = testsupport::hopper(0, denom, count);
    unit.name = name;
    return unit;
}

inline CashControlUnit cashboxUnit(long long sum = 0)
{
    return testsupport::cashbox(sum);
}

// A hopper's coins as the tests compare them: "<name>: <count> x <denomination>".
inline QString coinsOf(const CashControlUnit& unit)
{
    return QStringLiteral("%1: %2 x %3").arg(unit.name).arg(unit.count).arg(unit.denom);
}

} // namespace changertest
