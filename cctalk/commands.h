#pragma once

// Every ccTalk request and answer class of the driver.
#include "cctalk/auditcommands.h"
#include "cctalk/coincommands.h"
#include "cctalk/coinid.h"
#include "cctalk/faults.h"
#include "cctalk/hoppercommands.h"
#include "cctalk/identcommands.h"
#include "cctalk/package.h"
#include "cctalk/payoutcommands.h"
#include "cctalk/statecommands.h"
