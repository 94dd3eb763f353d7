#pragma once

#include "support/recordingdriver.h"
#include "support/simline.h"

#include <QByteArray>
#include <QList>
#include <QVariant>

namespace plugintest {

// The driver object against the simulated recycler on an in-process line: its pauses
// and its waits for answers move the line's virtual clock.
struct SimRig
{
    explicit SimRig(const sim::Config& config = sim::Config::defaults()) : line(config)
    {
        testsupport::RecordingChanger::setResetPending(false);
    }
    ~SimRig() { testsupport::RecordingChanger::setResetPending(false); }
    SimRig(const SimRig&) = delete;
    SimRig& operator=(const SimRig&) = delete;

    // init() and connect() as the host does.
    void start()
    {
        driver.recorder->runOn(line);
        driver.setProperty("serialObj", QVariant::fromValue<QObject*>(&line));
        driver.init();
        driver.connect();
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

} // namespace plugintest
