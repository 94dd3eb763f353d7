#pragma once

#include "support/frames.h"
#include "support/recordingdriver.h"
#include "support/simline.h"

#include <QByteArray>
#include <QList>
#include <QSet>
#include <QVariant>

namespace plugintest {

// The driver object against the simulated recycler on an in-process line: its pauses
// and its waits for answers move the line's virtual clock.
struct SimRig
{
    explicit SimRig(const sim::Config& config = sim::Config::defaults()) : line(config)
    {
        testsupport::RecordingChanger::setResetPending(false);
        driver.recorder->runOn(line);
        driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&line));
    }
    ~SimRig() { testsupport::RecordingChanger::setResetPending(false); }
    Q_DISABLE_COPY(SimRig)

    // init() and connect() as the host does.
    void start()
    {
        driver.init();
        driver.connect();
    }

    // start(), then forgets what it sent.
    void connectDevice()
    {
        start();
        forget();
    }

    // The device answers every request with one of these headers with NAK.
    void nakHeaders(const QSet<quint8>& headers)
    {
        line.setRequestHook([this, headers](const QByteArray& frame) {
            if (headers.contains(quint8(frame.at(3))))
                line.nakNext();
        });
    }

    sim::Device& device() { return line.device(); }

    // Forgets the traffic and the pauses so far.
    void forget()
    {
        line.clearTransactions();
        driver.recorder->sleeps.clear();
    }

    // Header followed by the data bytes of every request, in order.
    QList<QByteArray> requests() const
    {
        QList<QByteArray> out;
        for (const sim::Transaction& t : line.transactions())
            out << t.frame.mid(3, t.frame.size() - 4);
        return out;
    }
    int count(quint8 header) const { return line.countHeader(header); }
    // Header and data of every request the device answered with NAK.
    QList<QByteArray> refusedRequests() const
    {
        QList<QByteArray> out;
        for (const sim::Transaction& t : line.transactions()) {
            if (t.answer.endsWith(testsupport::nak()))
                out << t.frame.mid(3, t.frame.size() - 4);
        }
        return out;
    }
    // The data bytes of every request with this header, in order.
    QList<QByteArray> dataOf(quint8 header) const
    {
        QList<QByteArray> out;
        for (const QByteArray& r : requests()) {
            if (quint8(r.at(0)) == header)
                out << r.mid(1);
        }
        return out;
    }

    // The requests that move coins or change what the device counts (85, 125, 121,
    // 120, 118), in their order.
    QList<QByteArray> movingRequests() const
    {
        QList<QByteArray> out;
        for (const QByteArray& r : requests()) {
            const quint8 header = quint8(r.at(0));
            if (header == 85 || header == 125 || header == 121 || header == 120 || header == 118)
                out << r;
        }
        return out;
    }
    int moves() const { return movingRequests().size(); }

    QList<int> hopperCounts() const
    {
        QList<int> counts;
        for (int h = 1; h <= line.device().hopperCount(); ++h)
            counts << line.device().hopperCount(h);
        return counts;
    }

    testsupport::SimLine line;
    testsupport::RecordingDriver driver;
};

// The recycler most driver tests use: positions 1..4 take 1.00, 2.00, 5.00 and
// 10.00; hopper1 holds 10 coins of 10.00, hopper2 20 of 5.00, hopper3 50 of 1.00; the
// cashbox 125.50.
inline sim::Config standardRecycler()
{
    sim::Config c = sim::Config::defaults();
    c.coinIds = {{1, QStringLiteral("RU100A")},
                 {2, QStringLiteral("RU200A")},
                 {3, QStringLiteral("RU500A")},
                 {4, QStringLiteral("RU1K0A")}};
    c.hoppers = c.hoppers.mid(0, 3);
    c.hoppers[0].coinId = QStringLiteral("RU1K0A");
    c.hoppers[0].count = 10;
    c.hoppers[0].capacity = 100;
    c.hoppers[1].coinId = QStringLiteral("RU500A");
    c.hoppers[1].count = 20;
    c.hoppers[1].capacity = 100;
    c.hoppers[2].coinId = QStringLiteral("RU100A");
    c.hoppers[2].count = 50;
    c.hoppers[2].capacity = 200;
    for (sim::HopperConfig& h : c.hoppers)
        h.enabled = true;
    c.cashbox = 12550;
    return c;
}

struct StandardRig : SimRig
{
    StandardRig() : SimRig(standardRecycler()) {}
};

} // namespace plugintest
