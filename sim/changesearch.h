#pragma once

#include <QVector>

namespace sim {

// One hopper's coins as the change search sees them.
struct Stock
{
    int hopper;
    quint32 value;
    int count;
    int capacity;
};

// Coins making up exactly the amount, added to take[hopper - 1]; false when no combination of the
// stock does. Balanced takes from the fullest hoppers, any other algorithm the largest coins first.
bool planChange(quint32 amount, const QVector<Stock>& stock, int algorithm, QVector<int>& take);

} // namespace sim
