#include "simcoins.h"

#include "report.h"

#include "hostkit/amount.h"
#include "sim/simulator.h"

#include <QStringList>

#include <algorithm>

namespace tool {

int simulatorCoinPosition(const sim::Config& config, long long amount)
{
    for (auto it = config.coinIds.begin(); it != config.coinIds.end(); ++it)
        if (static_cast<long long>(sim::coinValue(it.value())) == amount)
            return it.key();
    return 0;
}

bool simulatorHasCoins(const sim::Config& config, const QList<long long>& amounts, QString* error)
{
    for (const long long amount : amounts) {
        if (simulatorCoinPosition(config, amount) != 0)
            continue;
        QList<long long> values;
        for (const QString& id : config.coinIds)
            if (!values.contains(sim::coinValue(id)))
                values.append(sim::coinValue(id));
        std::sort(values.begin(), values.end());
        QStringList known;
        for (const long long v : values)
            known.append(hostkit::formatAmount(v));
        *error = QStringLiteral("--sim-coins: the simulator has no coin of %1 (it knows %2)")
                     .arg(hostkit::formatAmount(amount), known.join(QStringLiteral(", ")));
        return false;
    }
    return true;
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
