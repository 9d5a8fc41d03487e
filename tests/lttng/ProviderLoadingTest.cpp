// The tracepoint provider is optional: without it both schedulers start, run
// and answer exactly as with it, and nothing of LTTng's tracer is loaded;
// with it, the library opens it at the first initialisation and only then.
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "CTickSchedulerModule.h"
#include "PlatformDouble.h"
#include "TickEventCapture.h"
#include "TickResultCodes.h"

namespace {

bool mapped(const std::string& part) {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find(part) != std::string::npos) {
            return true;
        }
    }
    return false;
}

struct CountingHandler {
    static void onTick(void* context) { ++static_cast<CountingHandler*>(context)->calls; }
    int calls = 0;
    STickHandler* handle = nullptr;
};

/// Initialises both schedulers, runs three passes of each with one handler
/// and event capture on, and checks every result and count.
void runBothSchedulers() {
    platform_double::reset();
    const ETickPriority priority = TICK_PRIORITY_NORMAL;
    ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    CountingHandler interval;
    CountingHandler fast;
    const ITickReceiver intervalReceiver{&interval, &CountingHandler::onTick};
    const ITickReceiver fastReceiver{&fast, &CountingHandler::onTick};
    ASSERT_EQ(CTickScheduler_RegisterTickHandler(&interval.handle, &intervalReceiver, 1, "Interval"),
              TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&fast.handle, &fastReceiver, "Fast"), TickResult::Success);
    ASSERT_EQ(CTickScheduler_StartEventCapture(), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableTickHandler(interval.handle), TickResult::Success);
    ASSERT_EQ(CTickScheduler_EnableTickHandler(interval.handle), TickResult::Success);
    for (int pass = 0; pass < 3; ++pass) {
        CTickScheduler_OnTick(nullptr);
        CTickSchedulerFast_OnTick(nullptr);
    }
    EXPECT_EQ(interval.calls, 3);
    EXPECT_EQ(fast.calls, 3);
    STickEvent events[32];
    uint32_t count = 0;
    ASSERT_EQ(CTickScheduler_ReadEvents(events, 32, &count, nullptr), TickResult::Success);
    EXPECT_EQ(count, 12u);
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&interval.handle), TickResult::Success);
    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&fast.handle), TickResult::Success);
    EXPECT_EQ(CTickScheduler_StopEventCapture(), TickResult::Success);
    CTickScheduler_Uninitialize();
    CTickSchedulerFast_Uninitialize();
}

TEST(ProviderAbsent, SchedulersRunAsUsualAndNoTracerIsLoaded) {
    runBothSchedulers();
    EXPECT_FALSE(mapped("libZynTickSchedulerTracepoints"));
    EXPECT_FALSE(mapped("liblttng-ust.so"));
}

TEST(ProviderPresent, OpenedAtTheFirstInitializeAndTheSchedulersRunAsUsual) {
    if (!ZYN_TS_PROVIDER_BUILT) {
        GTEST_SKIP() << "this build has no tracepoints";
    }
    EXPECT_FALSE(mapped("libZynTickSchedulerTracepoints")) << "opened before any initialisation";
    // Opening the provider starts LTTng's tracer, which tries to reach a
    // session daemon: none of that may show in the caller's errno.
    platform_double::reset();
    const ETickPriority priority = TICK_PRIORITY_NORMAL;
    errno = EDOM;
    ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
    EXPECT_EQ(errno, EDOM);
    EXPECT_TRUE(mapped("libZynTickSchedulerTracepoints"));
    CTickScheduler_Uninitialize();
    runBothSchedulers();
    EXPECT_TRUE(mapped("libZynTickSchedulerTracepoints"));
    EXPECT_TRUE(mapped("liblttng-ust.so"));
}

}  // namespace
