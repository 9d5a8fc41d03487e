// The heap blocks allocated between two points of the run and still live at
// the second, each with the call stack that allocated it: when the memory
// check finds the heap grew, the report says by what, instead of only by how
// much.
//
// Recording is armed and disarmed by the caller; while disarmed an
// allocation costs one relaxed load. The table is fixed (no allocation of its
// own); blocks beyond its capacity are counted, not recorded.
#pragma once

#include <cstddef>

namespace soak {

/// Forgets what an earlier arming recorded and starts recording allocations
/// and releases (the unwinder's one-time set-up, which allocates, is done
/// first, so that no recording allocates).
void armLiveBlocks();

/// Stops recording; the table keeps what was live.
void disarmLiveBlocks();

/// Called by the allocation hooks.
void blockAllocated(const volatile void* block, size_t size);
void blockReleased(const volatile void* block);

/// The blocks recorded and not released since, and those that were
/// allocated while the table was full.
size_t liveBlockCount();
size_t unrecordedBlockCount();

/// Prints each block allocated while armed and not released since, with its
/// call stack, to stderr; returns how many there were.
size_t printLiveBlocks();

}  // namespace soak
