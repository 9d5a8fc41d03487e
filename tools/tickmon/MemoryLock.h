// Locking the monitor's memory before the oscillator starts, so that no page
// fault (a first touch, or a page pushed out under memory pressure) delays a
// tick.
#pragma once

#include <string>

namespace tickmon {

struct MemoryLockOutcome {
    bool locked = false;
    /// "locked (mlockall current and future)", "not asked (--no-mlock)" or
    /// the refusal with its fix.
    std::string description;
};

/// mlockall(MCL_CURRENT | MCL_FUTURE) when `wanted`.
MemoryLockOutcome lockMemory(bool wanted);

}  // namespace tickmon
