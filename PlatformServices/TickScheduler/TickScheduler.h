/// @file
/// Everything a client of libZynTickScheduler uses.
#pragma once

#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "ETickDelay.h"
#include "ETickPriority.h"
#include "ITickReceiver.h"
#include "ITickScheduler.h"
#include "ITickSchedulerFast.h"
#include "STickHandler.h"
#include "TickFastOscillator.h"
#include "TickGrid.h"
#include "TickModuleIdentity.h"
#include "TickOscillator.h"
#include "TickPrecisionWake.h"
#include "TickResultCodes.h"
#include "TickSchedulerExport.h"
#include "TickSchedulerTrace.h"
#include "TickStatistics.h"
