#pragma once

// How often the changer asks the device, and how long each of its waits may last.

namespace CcTalk {
namespace changer {

// Coin counters during an acceptance session.
const int pollIntervalMsecs = 200;
// The activity register while waiting for the device to finish something.
const int waitPollMsecs = 1000;
// After a reset, before the device is asked anything.
const int resetPauseMsecs = 5000;

// A wait's limit in time as the number of activity polls it takes.
constexpr int pollsWithin(long long msecs)
{
    return static_cast<int>(msecs / waitPollMsecs);
}

const int initialisationPolls = pollsWithin(300000);
const int acceptanceEndPolls = pollsWithin(300000);
// Before the acceptance counters are read: a session still open is not waited out.
const int acceptanceEndBeforeCountersPolls = pollsWithin(10000);
const int payoutEndPolls = pollsWithin(300000);
const int purgePolls = pollsWithin(2000000);

// A payout of so many coins: a minute, and two seconds a coin.
inline int payoutPolls(unsigned long long coins)
{
    return pollsWithin(60000 + 2000 * static_cast<long long>(coins));
}

} // namespace changer
} // namespace CcTalk
