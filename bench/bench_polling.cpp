// Acceptance polling: one coin-acceptance poll of CcTalk::Changer (the work its 200 ms timer
// does while coins are accepted and none arrive) against the simulated recycler on a
// pseudo-terminal. The CPU column of BM_AcceptancePoll is the driver's own thread; the
// process variant adds the simulator's I/O thread, which runs in the same process here.

#include "changer/changer.h"
#include "support/ptyrig.h"

#include <benchmark/benchmark.h>

#include <QObject>

namespace {

class PollingChanger : public CcTalk::Changer
{
public:
    void poll() { checkMoneyIn(); }
};

void BM_AcceptancePoll(benchmark::State& state)
{
    testsupport::PtyRig rig;
    if (!rig.opened()) {
        state.SkipWithError(qPrintable(rig.error));
        return;
    }
    PollingChanger changer;
    changer.setAddress(55);
    changer.setSerial(&rig.port);
    QString failure;
    QObject::connect(&changer, &CcTalk::Changer::error,
                     [&failure](const QString& message) { failure = message; });
    try {
        changer.init();
        changer.cashInStart(false, QSet<unsigned int>());
    } catch (const std::exception& e) {
        state.SkipWithError(e.what());
        return;
    }
    for (auto _ : state) {
        changer.poll();
        if (!failure.isEmpty()) {
            state.SkipWithError(failure.toUtf8().constData());
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(BM_AcceptancePoll)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_AcceptancePoll)->MeasureProcessCPUTime()->Unit(benchmark::kMicrosecond);
