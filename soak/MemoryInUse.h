// The heap memory the process has in use, from the allocator's own count:
// the sanitizer's allocator when the build has one, else the C library's.
#pragma once

#include <cstddef>

namespace soak {

size_t memoryInUse();

/// Which allocator memoryInUse() asks, for the report.
const char* memoryCounter();

}  // namespace soak
