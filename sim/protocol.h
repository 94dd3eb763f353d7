#pragma once

#include <QtGlobal>

// The numbers the recycler speaks on the line, as ccTalk and the device define them. The model
// keeps its own copy so that a test running the driver against it checks the driver's numbers.

namespace sim {

// Command headers the recycler answers.
namespace cmd {
enum : quint8 {
    Reset = 1,
    SetChangeAlgorithm = 80,
    ReqCoinsInByType = 82,
    ReqControllerManifest = 84,
    DispenseHopperPattern = 85,
    ReqAuditCounter = 86,
    ClearAuditCounter = 87,
    ReqRealTimeClock = 115,
    ModRealTimeClock = 116,
    ReqCashboxValue = 117,
    ModCashboxValue = 118,
    ReqHopperBalance = 119,
    ModHopperBalance = 120,
    PurgeHopper = 121,
    ReqErrorStatus = 122,
    ReqActivityReg = 123,
    VerifyMoneyOut = 124,
    PayMoneyOut = 125,
    ModVarSet = 165,
    ReqCoinId = 184,
    ReqBuildCode = 192,
    ModInhibitStatus = 231,
    PerformSelfcheck = 232,
    ReadInputLines = 237,
    ReqSoftwareRevision = 241,
    ReqSerialNumber = 242,
    ReqProductCode = 244,
    ReqEquipmentCategoryId = 245,
    ReqManufacturerId = 246,
    ReqVarSet = 247,
    SimplePoll = 254,
};
} // namespace cmd

// Bits of the 16-bit activity register (header 123).
namespace activity {
enum : quint16 { CoinAcceptance = 4, Payout = 8, Fault = 16, Initialisation = 64, Warning = 4096 };
} // namespace activity

// Controller manifest (header 84): the unit asked (hopper h is unit h + 2) and the item.
namespace unitinfo {
enum : quint8 { CoinAcceptor = 2 };
enum : quint8 { Enabled = 0, Firmware = 1, Model = 4, SerialNumber = 5, Capacity = 8 };
} // namespace unitinfo

// Error status codes (header 122) the model raises by itself.
namespace errcode {
enum : quint8 { HopperEmpty = 1, HopperJam = 2, NeedSelfCheck = 255 };
} // namespace errcode

// Self-check fault codes (header 232) the model raises by itself.
namespace selfcheck {
enum : quint8 { DoorOpen = 51 };
} // namespace selfcheck

// Audit counter groups (headers 86 and 87).
namespace audit {
enum : quint8 { Accepted = 70, PaidOut = 80, Purged = 87 };
} // namespace audit

// Change algorithms the device accepts (header 80).
namespace changealgorithm {
enum : int { LargestFirst = 0, Balanced = 2 };
} // namespace changealgorithm

} // namespace sim
