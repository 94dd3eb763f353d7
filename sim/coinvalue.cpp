#include "coinvalue.h"

#include "cctalk/coinid.h"

namespace sim {

quint32 coinValue(const QString& coinId)
{
    return CcTalk::CoinId(coinId).getDenom();
}

bool sameCoin(const QString& a, const QString& b)
{
    return a.size() == 6 && a.left(5) == b.left(5);
}

} // namespace sim
