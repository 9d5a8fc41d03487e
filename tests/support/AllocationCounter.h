// Counts heap allocations made by the current thread while a counting scope
// is open, and makes them fail while a failure scope is open. The test executable that links the ZynAllocationCounter
// objects has the global operator new/delete family replaced to do so.
#pragma once

#include <cstdint>

#include "NonCopyable.h"

namespace test_support {

/// Counts the allocations of this thread from construction to `count()`.
class AllocationScope : NonCopyable {
public:
    AllocationScope();
    ~AllocationScope();

    uint64_t count() const;

private:
    uint64_t startCount;
};

/// Every allocation of this thread fails (std::bad_alloc, or null from the
/// nothrow forms) from construction to destruction.
class AllocationFailureScope : NonCopyable {
public:
    AllocationFailureScope();
    ~AllocationFailureScope();

    /// The allocations refused so far.
    uint64_t refused() const;

private:
    uint64_t startRefused;
};

}  // namespace test_support
