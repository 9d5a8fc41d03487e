// A trace record at a disabled level allocates nothing: the level test is one
// relaxed load, and the record calls return before building anything.
//
// This executable replaces the global allocation functions to count the
// allocations made on the testing thread.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include "KivTrace.h"
#include "PlatformHost/TraceHost.h"
#include "TraceCapture.h"

namespace {

thread_local long allocationsOnThisThread = 0;

void* countedAllocation(std::size_t size) {
    ++allocationsOnThisThread;
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void* operator new(std::size_t size) {
    void* memory = countedAllocation(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return countedAllocation(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return countedAllocation(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace {

const KivTraceHeader kHeader{"tests/platform_host/TraceAllocationTest.cpp", 1, "countedFunction"};

TEST(TraceAllocationTest, DisabledLevelsAllocateNothing) {
    TraceCapture capture;
    KivTrace trace("ALLOC.DISABLED", KIV_TRACE_WARNING, KIV_TRACE_HDR_FUNCTION);
    const std::string text = "a text long enough to need the heap if it were ever copied";

    const long before = allocationsOnThisThread;
    bool anyEnabled = false;
    for (int i = 0; i < 1000; ++i) {
        anyEnabled = anyEnabled || trace.isEnabled(KIV_TRACE_DETAIL) || trace.isEnabled(KIV_TRACE_INFO);
        trace.logMsg(KIV_TRACE_DETAIL, kHeader, text);
        trace.logEnterMsg(KIV_TRACE_ENTER, kHeader);
        trace.logEnterMsg(KIV_TRACE_ENTER, kHeader, text);
    }
    const long allocations = allocationsOnThisThread - before;

    EXPECT_FALSE(anyEnabled);
    EXPECT_EQ(allocations, 0);
    EXPECT_TRUE(capture.lines().empty());
}

// The counter sees the service's allocations at all: an enabled record is
// formatted on the heap.
TEST(TraceAllocationTest, EnabledLevelIsCounted) {
    TraceCapture capture;
    KivTrace trace("ALLOC.ENABLED", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    const std::string text = "a text long enough to need the heap when the line is built";

    const long before = allocationsOnThisThread;
    trace.logMsg(KIV_TRACE_DETAIL, kHeader, text);
    const long allocations = allocationsOnThisThread - before;

    EXPECT_GT(allocations, 0);
    EXPECT_EQ(capture.lines().size(), 1u);
}

}  // namespace
