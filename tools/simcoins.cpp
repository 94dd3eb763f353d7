#include "simcoins.h"

#include "report.h"

#include "sim/simulator.h"

namespace tool {

int simulatorCoinPosition(const sim::Config& config, long long amount)
{
    for (auto it = config.coinIds.begin(); it != config.coinIds.end(); ++it)
        if (static_cast<long long>(sim::coinValue(it.value())) == amount)
            return it.key();
    return 0;
}

QList<int> coinsToDrop(const sim::Config& config, const Arguments& args, const QSet<unsigned int>& accepted)
{
    QList<int> positions;
    if (args.hasSimCoins) {
        for (const long long amount : args.simCoins)
            positions.append(simulatorCoinPosition(config, amount));
        return positions;
    }
    const QList<unsigned int> denoms = sortedDenoms(accepted);
    for (int i = denoms.size() - 1; i >= 0 && positions.size() < 3; --i) {
        const int position = simulatorCoinPosition(config, denoms.at(i));
        if (position > 0)
            positions.append(position);
    }
    return positions;
}

QList<long long> coinValues(const sim::Config& config, const QList<int>& positions)
{
    QList<long long> values;
    for (const int position : positions)
        values.append(sim::coinValue(config.coinIds.value(position)));
    return values;
}

} // namespace tool
