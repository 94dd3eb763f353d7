// Change computation: time per call of calcDenomSums for 2 to 16 hoppers in both modes, over
// a fixed cycle of amounts from 0.10 to 500.00 roubles.

#include "cashcontrol/basiccashcontrol.h"
#include "cashcontrol/units.h"

#include <benchmark/benchmark.h>

#include <random>

namespace {

QList<CashControlUnit> recycler(int hoppers)
{
    // Rouble coins, largest first; a large recycler holds several hoppers of one coin.
    const unsigned int denoms[] = {1000, 500, 200, 100, 50, 10};
    std::mt19937 random(7);
    QList<CashControlUnit> units;
    for (int h = 0; h < hoppers; ++h) {
        CashControlUnit u;
        u.name = QStringLiteral("hopper%1").arg(h + 1);
        u.type = cashunits::hopperType;
        u.denom = denoms[h % 6];
        u.capacity = h % 2 ? 800 : 1000;
        u.count = 50 + static_cast<long long>(random() % 600);
        u.sum = u.count * u.denom;
        units << u;
    }
    CashControlUnit cashbox;
    cashbox.name = QStringLiteral("cashbox");
    cashbox.type = cashunits::cashboxType;
    units << cashbox;
    return units;
}

QVector<long long> amounts()
{
    std::mt19937 random(11);
    QVector<long long> list;
    for (int i = 0; i < 64; ++i)
        list << 10 * (1 + static_cast<long long>(random() % 5000));
    return list;
}

void BM_ChangeComputation(benchmark::State& state)
{
    const QList<CashControlUnit> units = recycler(int(state.range(0)));
    const auto mode = ECashControl::ChangeMode(state.range(1));
    const QVector<long long> cycle = amounts();
    int next = 0;
    long long planned = 0;
    long long asked = 0;
    for (auto _ : state) {
        const long long amount = cycle.at(next);
        next = (next + 1) % cycle.size();
        const SumDetailed plan = hw::BasicCashControl::calcDenomSums(units, amount, mode);
        planned += plan.sum();
        asked += amount;
        benchmark::DoNotOptimize(plan);
    }
    if (planned > asked)
        state.SkipWithError("a plan exceeded its amount");
    state.SetItemsProcessed(state.iterations());
    state.SetLabel(mode == ECashControl::Optimal ? "optimal" : "minimum");
}

} // namespace

BENCHMARK(BM_ChangeComputation)
    ->ArgNames({"hoppers", "mode"})
    ->ArgsProduct({benchmark::CreateDenseRange(2, 16, 1), {0, 1}})
    ->Unit(benchmark::kNanosecond);

BENCHMARK_MAIN();
