#pragma once

#include "cctalk/package.h"

namespace CcTalk {

// Payout. A payout command is never repeated by the bus device: a lost answer does
// not tell whether the coins went out.

class SetChangeAlgorithm : public Request
{
public:
    enum Algorithm : int { LargestFirst = 0, Balanced = 2 };

    explicit SetChangeAlgorithm(Algorithm a);
};

class PayMoneyOut : public Request
{
public:
    explicit PayMoneyOut(unsigned int amount);
    bool canBeSentAgain() const override;
};

// Pairs (hopper, coins), one per call of addCount; more than 255 coins take
// several pairs.
class DispenseHopperPattern : public Request
{
public:
    DispenseHopperPattern();
    void addCount(unsigned char hopper, long long count);
    bool canBeSentAgain() const override;
};

class VerifyMoneyOutResp : public Response
{
public:
    VerifyMoneyOutResp(const Response& response = Response());
    unsigned char getEventCount() const;
    unsigned int getPaid() const;
    unsigned int getUnpaid() const;
};

} // namespace CcTalk
