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

    // Header and data of every request that moves coins or changes what the device
    // counts (85, 125, 121, 120, 118), in their order.
    QList<QByteArray> movingRequests() const
    {
        QList<QByteArray> out;
        for (const sim::Transaction& t : line.transactions()) {
            if (t.header == 85 || t.header == 125 || t.header == 121 || t.header == 120 || t.header == 118)
                out << t.frame.mid(3, t.frame.size() - 4);
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
