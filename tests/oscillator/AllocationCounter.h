// Counts heap allocations made by the current thread while a counting scope
// is open. The test binary that links AllocationCounter.cpp replaces the
// global operator new/delete family to do so.
#pragma once

#include <cstdint>

namespace oscillator_test {

/// Counts the allocations of this thread from construction to `count()`.
class AllocationScope {
public:
    AllocationScope();
    ~AllocationScope();
    AllocationScope(const AllocationScope&) = delete;
    AllocationScope& operator=(const AllocationScope&) = delete;

    uint64_t count() const;

private:
    uint64_t startCount;
};

}  // namespace oscillator_test
