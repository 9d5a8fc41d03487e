/// @file
/// The real-time priority class of an oscillator thread.
#pragma once

#include <cstdint>

/// Selects the SCHED_RR priority of the oscillator thread:
/// 0 -> 99, 1 -> 98, 2, 3 and 4 -> 79, any other value -> 0.
enum ETickPriority : int32_t {
    TICK_PRIORITY_HIGHEST = 0,
    TICK_PRIORITY_HIGH = 1,
    TICK_PRIORITY_NORMAL = 2,
    TICK_PRIORITY_LOW = 3,
    TICK_PRIORITY_LOWEST = 4,
};
