// Trace levels: per object, from the constructor, changed at run time by
// module name. Module names are unique per test: levels set by name persist
// for the life of the process.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "KivTrace.h"
#include "PlatformHost/TraceHost.h"
#include "TraceCapture.h"

namespace {

const KivTraceHeader kHeader{"tests/platform_host/TraceLevelTest.cpp", 1, "testFunction"};

void expectEnabledUpTo(const KivTrace& trace, uint32_t highest) {
    for (uint32_t level = 1; level <= 7; ++level) {
        EXPECT_EQ(trace.isEnabled(static_cast<KivTraceLevel>(level)), level <= highest) << "level " << level;
    }
}

TEST(TraceLevelTest, ObjectStartsAtItsConstructorLevel) {
    const KivTrace notice("LEVEL.CTOR.A", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);
    const KivTrace detail("LEVEL.CTOR.B", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    expectEnabledUpTo(notice, 3);
    expectEnabledUpTo(detail, 7);
    EXPECT_EQ(platform_host::traceLevel("LEVEL.CTOR.A"), 3u);
}

TEST(TraceLevelTest, LevelZeroIsNeverEnabled) {
    const KivTrace trace("LEVEL.ZERO", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    EXPECT_FALSE(trace.isEnabled(static_cast<KivTraceLevel>(0)));
}

TEST(TraceLevelTest, RunTimeChangeReachesEveryObjectOfThatModule) {
    const KivTrace first("LEVEL.CHANGE", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);
    const KivTrace second("LEVEL.CHANGE", KIV_TRACE_WARNING, KIV_TRACE_HDR_FUNCTION);
    const KivTrace other("LEVEL.CHANGE.OTHER", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);

    platform_host::setTraceLevel("LEVEL.CHANGE", 6);

    expectEnabledUpTo(first, 6);
    expectEnabledUpTo(second, 6);
    expectEnabledUpTo(other, 3);
    EXPECT_EQ(platform_host::traceLevel("LEVEL.CHANGE"), 6u);

    platform_host::setTraceLevel("LEVEL.CHANGE", 1);
    expectEnabledUpTo(first, 1);
}

TEST(TraceLevelTest, RunTimeChangeAppliesToObjectsConstructedLater) {
    platform_host::setTraceLevel("LEVEL.LATER", 7);
    const KivTrace later("LEVEL.LATER", KIV_TRACE_ERROR, KIV_TRACE_HDR_FUNCTION);
    expectEnabledUpTo(later, 7);
}

TEST(TraceLevelTest, ZeroDisablesAModule) {
    const KivTrace trace("LEVEL.OFF", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    platform_host::setTraceLevel("LEVEL.OFF", 0);
    expectEnabledUpTo(trace, 0);
}

TEST(TraceLevelTest, UnknownModuleHasLevelZero) {
    EXPECT_EQ(platform_host::traceLevel("LEVEL.NOBODY"), 0u);
    {
        const KivTrace gone("LEVEL.GONE", KIV_TRACE_INFO, KIV_TRACE_HDR_FUNCTION);
        EXPECT_EQ(platform_host::traceLevel("LEVEL.GONE"), 5u);
    }
    EXPECT_EQ(platform_host::traceLevel("LEVEL.GONE"), 0u);
}

TEST(TraceLevelTest, DisabledLevelsWriteNothing) {
    TraceCapture capture;
    KivTrace trace("LEVEL.SILENT", KIV_TRACE_WARNING, KIV_TRACE_HDR_FUNCTION);
    trace.logMsg(KIV_TRACE_INFO, kHeader, "not written");
    trace.logEnterMsg(KIV_TRACE_ENTER, kHeader);
    trace.logEnterMsg(KIV_TRACE_ENTER, kHeader, "not written either");
    EXPECT_TRUE(capture.lines().empty());
    trace.logMsg(KIV_TRACE_WARNING, kHeader, "written");
    EXPECT_EQ(capture.lines().size(), 1u);
}

TEST(TraceLevelTest, LevelChangesWhileOtherThreadsTrace) {
    TraceCapture capture;
    KivTrace trace("LEVEL.RACE", KIV_TRACE_ERROR, KIV_TRACE_HDR_FUNCTION);
    std::atomic<bool> stop{false};
    std::thread tracer([&] {
        while (!stop.load()) {
            trace.logMsg(KIV_TRACE_INFO, kHeader, "maybe");
        }
    });
    for (int i = 0; i < 2000; ++i) {
        platform_host::setTraceLevel("LEVEL.RACE", (i % 2 == 0) ? 7 : 1);
    }
    platform_host::setTraceLevel("LEVEL.RACE", 1);
    stop.store(true);
    tracer.join();
    for (const std::string& line : capture.lines()) {
        EXPECT_NE(line.find("LEVEL.RACE L5 testFunction: maybe"), std::string::npos) << line;
    }
}

}  // namespace
