/// @file
/// The tick period of an oscillator.
#pragma once

#include <cstdint>

/// Tick period in milliseconds. Only 1 and 6 are accepted by
/// TickOscillator::initialize.
enum ETickDelay : uint32_t {
    TICK_DELAY_1MS = 1,
    TICK_DELAY_6MS = 6,
};
