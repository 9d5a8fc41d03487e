// A trace object constructed by a library initialised before the platform
// library works fully: the level from KIV_TRACE applied at construction, and
// run-time changes by module name still reach it.

#include <gtest/gtest.h>

#include <string>

#include "KivTrace.h"
#include "PlatformHost/TraceHost.h"

const char* earlyTracerConstructorOutcome();
KivTrace& earlyTracerTrace();

namespace {

TEST(LoadOrderTest, TraceObjectFromEarlierLibrarySeesTheEnvironmentLevel) {
    EXPECT_EQ(std::string(earlyTracerConstructorOutcome()), "level from KIV_TRACE");
    EXPECT_EQ(platform_host::traceLevel("EARLY.TRACER"), 6u);
}

TEST(LoadOrderTest, RunTimeChangeReachesTheEarlyObject) {
    platform_host::setTraceLevel("EARLY.TRACER", 7);
    EXPECT_TRUE(earlyTracerTrace().isEnabled(KIV_TRACE_DETAIL));
    platform_host::setTraceLevel("EARLY.TRACER", 1);
    EXPECT_FALSE(earlyTracerTrace().isEnabled(KIV_TRACE_WARNING));
}

}  // namespace
