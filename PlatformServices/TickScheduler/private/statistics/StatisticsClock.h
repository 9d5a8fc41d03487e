// The clock that times handler calls and tick passes: CLOCK_MONOTONIC, unless
// a white-box test installs its own so that it decides how long each call
// takes.
#pragma once

#include <cstdint>

#include "TickSchedulerExport.h"

namespace zyn_ts {

using StatisticsClockSource = int64_t (*)();

/// Nanoseconds on CLOCK_MONOTONIC.
ZYN_TS_INTERNAL int64_t monotonicNowNs();

/// Replaces the clock; null restores CLOCK_MONOTONIC. For tests.
ZYN_TS_INTERNAL void setStatisticsClock(StatisticsClockSource source);

/// The current time of the installed clock, ns.
ZYN_TS_INTERNAL int64_t statisticsNowNs();

}  // namespace zyn_ts
