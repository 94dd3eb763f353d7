#pragma once

#include "arguments.h"

#include <QList>
#include <QSet>
#include <QString>

namespace sim {
struct Config;
} // namespace sim

// The coins the built-in simulator drops into the acceptor while the tool accepts.
namespace tool {

// Coin position of the simulator that recognises this amount, 0 when none does.
int simulatorCoinPosition(const sim::Config& config, long long amount);

// False, with the reason, when an amount is no coin of the simulator.
bool simulatorHasCoins(const sim::Config& config, const QList<long long>& amounts, QString* error);

// The coins asked for with --sim-coins, else a few of those the recycler takes, largest first.
QList<int> coinsToDrop(const sim::Config& config, const Arguments& args, const QSet<unsigned int>& accepted);

// The value of the coin at each position.
QList<long long> coinValues(const sim::Config& config, const QList<int>& positions);

} // namespace tool
