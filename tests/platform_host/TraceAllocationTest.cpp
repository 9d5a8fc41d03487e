// A trace record at a disabled level allocates nothing: the level test is one
// relaxed load, and the record calls return before building anything.
//
// This executable links the allocation counter, which replaces the global
// allocation functions to count the allocations made on the testing thread.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "AllocationCounter.h"
#include "KivTrace.h"
#include "PlatformHost/TraceHost.h"
#include "TraceCapture.h"

namespace {

const KivTraceHeader kHeader{"tests/platform_host/TraceAllocationTest.cpp", 1, "countedFunction"};

TEST(TraceAllocationTest, DisabledLevelsAllocateNothing) {
    TraceCapture capture;
    KivTrace trace("ALLOC.DISABLED", KIV_TRACE_WARNING, KIV_TRACE_HDR_FUNCTION);
    const std::string text = "a text long enough to need the heap if it were ever copied";

    const test_support::AllocationScope counting;
    bool anyEnabled = false;
    for (int i = 0; i < 1000; ++i) {
        anyEnabled = anyEnabled || trace.isEnabled(KIV_TRACE_DETAIL) || trace.isEnabled(KIV_TRACE_INFO);
        trace.logMsg(KIV_TRACE_DETAIL, kHeader, text);
        trace.logEnterMsg(KIV_TRACE_ENTER, kHeader);
        trace.logEnterMsg(KIV_TRACE_ENTER, kHeader, text);
    }
    const uint64_t allocations = counting.count();

    EXPECT_FALSE(anyEnabled);
    EXPECT_EQ(allocations, 0u);
    EXPECT_TRUE(capture.lines().empty());
}

// The counter sees the service's allocations at all: an enabled record is
// formatted on the heap.
TEST(TraceAllocationTest, EnabledLevelIsCounted) {
    TraceCapture capture;
    KivTrace trace("ALLOC.ENABLED", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    const std::string text = "a text long enough to need the heap when the line is built";

    const test_support::AllocationScope counting;
    trace.logMsg(KIV_TRACE_DETAIL, kHeader, text);
    const uint64_t allocations = counting.count();

    EXPECT_GT(allocations, 0u);
    EXPECT_EQ(capture.lines().size(), 1u);
}

}  // namespace
