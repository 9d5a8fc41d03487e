// The timeline file: valid Trace Event JSON whose slices nest (every call
// inside its pass, passes in time order), whose counts are those of what it
// was given, which survives lost events and cuts at its size limit on a
// pass boundary.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "TimelineChecks.h"
#include "TimelineWriter.h"

namespace tickmon {
namespace {

constexpr int64_t kMs = 1000000;
constexpr int64_t kOrigin = 5000 * kMs;

STickEvent event(uint32_t kind, int64_t timeNs, const char* name = "", uint64_t handle = 0, uint32_t called = 0) {
    STickEvent e{};
    e.kind = kind;
    e.timeNs = timeNs;
    e.handle = handle;
    e.handlersCalled = called;
    std::strncpy(e.name, name, sizeof(e.name) - 1);
    return e;
}

/// `passes` passes 6 ms apart, each calling "A" (1 ms) and "B" (0.5 ms).
std::vector<STickEvent> passesOfTwoCalls(int passes) {
    std::vector<STickEvent> events;
    for (int p = 0; p < passes; ++p) {
        const int64_t t = kOrigin + p * 6 * kMs + 100000;
        events.push_back(event(TICK_EVENT_PASS_BEGIN, t));
        events.push_back(event(TICK_EVENT_CALL_BEGIN, t + 1000, "A", 0x10));
        events.push_back(event(TICK_EVENT_CALL_END, t + 1000 + kMs, "A", 0x10));
        events.push_back(event(TICK_EVENT_CALL_BEGIN, t + 2000 + kMs, "B", 0x20));
        events.push_back(event(TICK_EVENT_CALL_END, t + 2000 + kMs + kMs / 2, "B", 0x20));
        events.push_back(event(TICK_EVENT_PASS_END, t + 3000 + kMs + kMs / 2, "", 0, 2));
    }
    return events;
}

nlohmann::json parsed(const std::string& text) {
    nlohmann::json document;
    EXPECT_NO_THROW(document = nlohmann::json::parse(text)) << text.substr(0, 400);
    return document;
}

TEST(TimelineWriter, PassesAndCallsNestAndTheCountsAreWhatItWasGiven) {
    std::ostringstream file;
    TimelineWriter writer(file, "zyn-tickmon: CTickScheduler", "zyn-ts-osc6", kOrigin, 1U << 20U);
    const std::vector<STickEvent> events = passesOfTwoCalls(3);
    writer.addEvents(events.data(), 2, 0);
    writer.addEvents(events.data() + 2, events.size() - 2, 0);
    writer.addTicks({kOrigin + 100000, kOrigin + 6 * kMs + 90000}, PublishedGrid{kOrigin, 6 * kMs, 1});
    writer.finish();

    const nlohmann::json document = parsed(file.str());
    const TimelineShape shape = checkTimeline(document);
    EXPECT_TRUE(shape.problems.empty()) << shape.problems;
    EXPECT_EQ(shape.passes, 3u);
    EXPECT_EQ(shape.callsPerHandler.at("A"), 3u);
    EXPECT_EQ(shape.callsPerHandler.at("B"), 3u);
    EXPECT_EQ(shape.ticks, 2u);
    EXPECT_EQ(document["otherData"]["passes"], 3);
    EXPECT_EQ(document["otherData"]["ticks"], 2);
    EXPECT_EQ(writer.counts().passes, 3u);
    EXPECT_EQ(writer.counts().callsPerHandler.at("B"), 3u);

    // The second tick: grid point 1, 90 us late; times in microseconds from
    // the origin, exact to the nanosecond.
    bool foundSecondTick = false;
    for (const nlohmann::json& e : document["traceEvents"]) {
        if (e.value("name", "") == "tick" && e["args"]["grid_point"] == 1) {
            foundSecondTick = true;
            EXPECT_DOUBLE_EQ(e["ts"].get<double>(), 6090.0);
            EXPECT_DOUBLE_EQ(e["args"]["lateness_us"].get<double>(), 90.0);
        }
        if (e.value("name", "") == "handler time (us)") {
            EXPECT_DOUBLE_EQ(e["args"]["handlers"].get<double>(), 1500.0);
        }
    }
    EXPECT_TRUE(foundSecondTick);
}

TEST(TimelineWriter, LostEventsAreCountedAndLeaveNoSliceOpen) {
    std::ostringstream file;
    TimelineWriter writer(file, "t", "osc", kOrigin, 1U << 20U);
    std::vector<STickEvent> events = passesOfTwoCalls(3);
    // The second pass loses everything after its first call began.
    events.erase(events.begin() + 8, events.begin() + 12);
    writer.addEvents(events.data(), 8, 0);
    writer.addEvents(events.data() + 8, events.size() - 8, 4);
    writer.finish();

    const nlohmann::json document = parsed(file.str());
    const TimelineShape shape = checkTimeline(document);
    EXPECT_TRUE(shape.problems.empty()) << shape.problems;
    EXPECT_EQ(shape.passes, 2u) << "the incomplete pass is closed, not counted";
    EXPECT_EQ(document["otherData"]["lost_events"], 4);
    EXPECT_EQ(writer.counts().lostEvents, 4u);
}

TEST(TimelineWriter, TheSizeLimitCutsAtAPassBoundaryAndTheFileStaysValid) {
    std::ostringstream file;
    constexpr uint64_t kLimit = 4096;
    TimelineWriter writer(file, "t", "osc", kOrigin, kLimit);
    const std::vector<STickEvent> events = passesOfTwoCalls(100);
    writer.addEvents(events.data(), events.size(), 0);
    writer.finish();

    const nlohmann::json document = parsed(file.str());
    const TimelineShape shape = checkTimeline(document);
    EXPECT_TRUE(shape.problems.empty()) << shape.problems;
    EXPECT_GT(shape.passes, 0u);
    EXPECT_LT(shape.passes, 100u);
    EXPECT_EQ(document["otherData"]["truncated"], true);
    EXPECT_EQ(document["otherData"]["passes"], shape.passes);
    // At most one pass beyond the limit.
    EXPECT_LT(file.str().size(), kLimit + 1024);
}

TEST(TimelineWriter, AGapOfMoreThanOneAndAHalfPeriodsIsMarkedAsAStall) {
    std::ostringstream file;
    TimelineWriter writer(file, "t", "osc", kOrigin, 1U << 20U);
    const PublishedGrid grid{kOrigin, 6 * kMs, 1};
    writer.addTicks({kOrigin + 50000, kOrigin + 6 * kMs + 50000, kOrigin + 24 * kMs + 70000}, grid);
    writer.finish();

    const nlohmann::json document = parsed(file.str());
    int stalls = 0;
    for (const nlohmann::json& e : document["traceEvents"]) {
        if (e.value("name", "") == "stall") {
            ++stalls;
            EXPECT_EQ(e["args"]["missed_points"], 2);
            EXPECT_DOUBLE_EQ(e["ts"].get<double>(), 6050.0);
            EXPECT_DOUBLE_EQ(e["dur"].get<double>(), 18020.0);
        }
    }
    EXPECT_EQ(stalls, 1);
    EXPECT_EQ(writer.counts().stalls, 1u);
}

TEST(TimelineChecks, ACallOutsideItsPassIsAProblem) {
    const nlohmann::json document = {
        {"traceEvents",
         {{{"name", "A"}, {"cat", "call"}, {"ph", "B"}, {"pid", 1}, {"tid", 1}, {"ts", 1.0}},
          {{"ph", "E"}, {"pid", 1}, {"tid", 1}, {"ts", 2.0}}}}};
    EXPECT_FALSE(checkTimeline(document).problems.empty());
}

}  // namespace
}  // namespace tickmon
