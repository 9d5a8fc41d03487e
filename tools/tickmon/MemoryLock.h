// Locking the monitor's memory before the oscillator starts, so that no page
// fault (a first touch, or a page pushed out under memory pressure) delays a
// tick.
//
// mlockall(MCL_FUTURE) also locks every later mapping, thread stacks
// included, and a mapping that would exceed RLIMIT_MEMLOCK then fails: with
// the usual 8 MiB limit and no CAP_IPC_LOCK, the lock itself succeeds but the
// oscillator's thread (an 8 MiB stack) could no longer be created. So the
// lock is asked for only where it cannot starve later mappings.
#pragma once

#include <cstdint>
#include <string>

namespace tickmon {

struct MemoryLockOutcome {
    bool locked = false;
    /// "locked (mlockall current and future)", "not asked (--no-mlock)" or
    /// why it was not locked, with the fix.
    std::string description;
};

/// What the process may lock.
struct MemoryLockRights {
    /// CAP_IPC_LOCK in the effective set: no limit applies.
    bool capIpcLock = false;
    /// RLIMIT_MEMLOCK's soft limit is unlimited.
    bool unlimited = false;
    uint64_t limitBytes = 0;
};

/// From CapEff of /proc/self/status and getrlimit(RLIMIT_MEMLOCK).
MemoryLockRights readMemoryLockRights();

/// True when the hexadecimal CapEff value holds CAP_IPC_LOCK (bit 14).
bool capEffHasIpcLock(const std::string& procSelfStatus);

/// mlockall(MCL_CURRENT | MCL_FUTURE) when `wanted` and `rights` allow it
/// without a limit.
MemoryLockOutcome lockMemory(bool wanted, const MemoryLockRights& rights);

}  // namespace tickmon
