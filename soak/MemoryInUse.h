// The heap memory the process has in use, from the allocator's own count:
// the sanitizer's allocator when the build has one, else the C library's.
#pragma once

#include <cstddef>

namespace soak {

size_t memoryInUse();

/// Which allocator memoryInUse() asks, for the report.
const char* memoryCounter();

/// Routes every allocation and release of the process to the live-block
/// record (LiveBlocks.h), which ignores them until it is armed.
void watchAllocations();

}  // namespace soak
