// The kernel-trace hook, against a fixture tracefs directory.

#include "BreakTrace.h"

#include <gtest/gtest.h>

#include <string>

#include "TemporaryDirectory.h"

namespace tickmon {
namespace {

class BreakTraceTest : public ::testing::Test {
protected:
    void SetUp() override {
        directory.write("trace_marker", "");
        directory.write("tracing_on", "1");
    }
    TemporaryDirectory directory;
};

TEST_F(BreakTraceTest, TracefsIsTheFirstCandidateWithMarkerAndSwitch) {
    TemporaryDirectory empty;
    EXPECT_EQ(findTracefs({empty.path(), directory.path()}), directory.path());
    EXPECT_FALSE(findTracefs({empty.path(), "/nonexistent/tracing"}).has_value());
    EXPECT_EQ(defaultTracefsCandidates(),
              (std::vector<std::string>{"/sys/kernel/tracing", "/sys/kernel/debug/tracing"}));
}

TEST_F(BreakTraceTest, TicksWithinTheThresholdLeaveTracingAlone) {
    BreakTrace trace(directory.path(), 50000);
    for (int64_t tick = 0; tick < 100; ++tick) {
        EXPECT_FALSE(trace.add((tick % 3) * 25000));  // 50 us itself is not later than 50 us
    }
    EXPECT_FALSE(trace.result().broke);
    EXPECT_EQ(TemporaryDirectory::read(directory.file("tracing_on")), "1");
    EXPECT_EQ(TemporaryDirectory::read(directory.file("trace_marker")), "");
}

TEST_F(BreakTraceTest, FirstLateTickWritesOneMarkerAndStopsTracing) {
    BreakTrace trace(directory.path(), 50000);
    EXPECT_FALSE(trace.add(0));
    EXPECT_FALSE(trace.add(10000));
    EXPECT_TRUE(trace.add(80000));   // tick 3, 80 us late
    EXPECT_TRUE(trace.add(900000));  // later ones change nothing

    EXPECT_TRUE(trace.result().broke);
    EXPECT_EQ(trace.result().tick, 3u);
    EXPECT_EQ(trace.result().latencyNs, 80000);
    EXPECT_EQ(trace.result().error, "");
    EXPECT_EQ(TemporaryDirectory::read(directory.file("trace_marker")),
              "zyn-tickmon: tick 3 80.000 us late (break-trace at 50.000 us)\n");
    EXPECT_EQ(TemporaryDirectory::read(directory.file("tracing_on")), "0");
}

TEST_F(BreakTraceTest, UnwritableTracefsIsReportedNotFatal) {
    BreakTrace trace(directory.path() + "/gone", 1000);
    EXPECT_FALSE(trace.add(0));
    EXPECT_TRUE(trace.add(5000));
    EXPECT_NE(trace.result().error.find("cannot open"), std::string::npos) << trace.result().error;
}

}  // namespace
}  // namespace tickmon
