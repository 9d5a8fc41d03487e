// Event capture: each scheduler's passes and handler calls come out in the
// order they happened, with handles, names and the statistics' clock; a
// reader that stops draining loses events, counted, while the passes go on
// without waiting or allocating; capture and statistics are independent.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "BothSchedulers.h"
#include "EventRing.h"
#include "ScriptedClock.h"
#include "TickEventCapture.h"

namespace statistics_test {
namespace {

using test_support::ScriptedClock;
constexpr int64_t kMs = ScriptedClock::kMs;

using Scheduler = SchedulerEntryPoints;

std::vector<STickEvent> readAll(const Scheduler& scheduler, uint64_t* lost = nullptr) {
    std::vector<STickEvent> events(TICK_EVENT_CAPACITY + 1);
    uint32_t count = 0;
    EXPECT_EQ(scheduler.readEvents(events.data(), static_cast<uint32_t>(events.size()), &count, lost),
              TickResult::Success);
    events.resize(count);
    return events;
}

class EventCaptureTest : public BothSchedulersTest, public ::testing::WithParamInterface<Scheduler> {
protected:
    void TearDown() override {
        (void)GetParam().stopEventCapture();
        (void)readAll(GetParam());
        BothSchedulersTest::TearDown();
    }

    /// Registers `handler` as `name` with the scheduler under test, then
    /// starts that scheduler's capture.
    void registerAndStartCapture(ActionHandler& handler, const char* name) const {
        ASSERT_EQ(GetParam().registerHandler(handler, name), TickResult::Success);
        ASSERT_EQ(GetParam().startEventCapture(), TickResult::Success);
    }
};

INSTANTIATE_TEST_SUITE_P(BothSchedulers, EventCaptureTest, ::testing::Values(kScheduler, kFast),
                         [](const ::testing::TestParamInfo<Scheduler>& info) { return std::string(info.param.name); });

TEST_P(EventCaptureTest, PassesAndCallsComeOutInOrderWithHandlesNamesAndTimes) {
    const Scheduler& scheduler = GetParam();
    const ScriptedClock clock;
    ActionHandler first([] { ScriptedClock::advance(2 * kMs); });
    ActionHandler second([] { ScriptedClock::advance(kMs / 2); });
    ASSERT_EQ(scheduler.registerHandler(first, "First"), TickResult::Success);
    ASSERT_EQ(scheduler.registerHandler(second, "Second"), TickResult::Success);
    ASSERT_EQ(scheduler.startEventCapture(), TickResult::Success);

    constexpr int kPasses = 3;
    for (int pass = 0; pass < kPasses; ++pass) {
        scheduler.onTick(nullptr);
    }
    uint64_t lost = 99;
    const std::vector<STickEvent> events = readAll(scheduler, &lost);
    EXPECT_EQ(lost, 0u);
    ASSERT_EQ(events.size(), static_cast<size_t>(kPasses * 6));
    for (int pass = 0; pass < kPasses; ++pass) {
        const STickEvent* const e = &events[static_cast<size_t>(pass) * 6];
        EXPECT_EQ(e[0].kind, TICK_EVENT_PASS_BEGIN);
        EXPECT_EQ(e[1].kind, TICK_EVENT_CALL_BEGIN);
        EXPECT_EQ(e[1].handle, reinterpret_cast<uintptr_t>(first.handle));
        EXPECT_STREQ(e[1].name, "First");
        EXPECT_EQ(e[2].kind, TICK_EVENT_CALL_END);
        EXPECT_EQ(e[2].handle, reinterpret_cast<uintptr_t>(first.handle));
        EXPECT_EQ(e[2].timeNs - e[1].timeNs, 2 * kMs);
        EXPECT_EQ(e[3].kind, TICK_EVENT_CALL_BEGIN);
        EXPECT_STREQ(e[3].name, "Second");
        EXPECT_EQ(e[4].kind, TICK_EVENT_CALL_END);
        EXPECT_EQ(e[4].timeNs - e[3].timeNs, kMs / 2);
        EXPECT_EQ(e[5].kind, TICK_EVENT_PASS_END);
        EXPECT_EQ(e[5].handlersCalled, 2u);
        for (int i = 1; i < 6; ++i) {
            EXPECT_LE(e[i - 1].timeNs, e[i].timeNs) << "event " << i << " of pass " << pass;
        }
    }
    EXPECT_EQ(events.back().timeNs - events.front().timeNs, kPasses * (2 * kMs + kMs / 2));
}

TEST_P(EventCaptureTest, NothingIsWrittenBeforeTheStartOrAfterTheStop) {
    const Scheduler& scheduler = GetParam();
    ActionHandler handler([] {});
    ASSERT_EQ(scheduler.registerHandler(handler, "Quiet"), TickResult::Success);
    scheduler.onTick(nullptr);
    EXPECT_TRUE(readAll(scheduler).empty());

    ASSERT_EQ(scheduler.startEventCapture(), TickResult::Success);
    scheduler.onTick(nullptr);
    ASSERT_EQ(scheduler.stopEventCapture(), TickResult::Success);
    scheduler.onTick(nullptr);
    scheduler.onTick(nullptr);
    // The one captured pass stays readable after the stop.
    EXPECT_EQ(readAll(scheduler).size(), 4u);
    EXPECT_EQ(handler.calls.load(), 4);
}

TEST_P(EventCaptureTest, ARestartDropsWhatTheLastCaptureLeft) {
    const Scheduler& scheduler = GetParam();
    ActionHandler handler([] {});
    ASSERT_NO_FATAL_FAILURE(registerAndStartCapture(handler, "Again"));
    scheduler.onTick(nullptr);
    ASSERT_EQ(scheduler.startEventCapture(), TickResult::Success);
    scheduler.onTick(nullptr);
    const std::vector<STickEvent> events = readAll(scheduler);
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events.front().kind, TICK_EVENT_PASS_BEGIN);
}

TEST_P(EventCaptureTest, AReaderThatStopsDrainingLosesEventsCountedAndPassesNeverWait) {
    const Scheduler& scheduler = GetParam();
    ActionHandler handler([] {});
    ASSERT_NO_FATAL_FAILURE(registerAndStartCapture(handler, "Flood"));

    // Four events a pass: the ring fills after a quarter of its capacity in
    // passes, and every later event is lost.
    constexpr int kPasses = TICK_EVENT_CAPACITY / 4 + 1000;
    runPassesOnOwnThread(scheduler.onTick, kPasses, std::string(scheduler.name) + " passes into a full ring");
    EXPECT_EQ(handler.calls.load(), kPasses);

    uint64_t lost = 0;
    std::vector<STickEvent> events = readAll(scheduler, &lost);
    EXPECT_EQ(events.size(), static_cast<size_t>(TICK_EVENT_CAPACITY));
    EXPECT_EQ(lost, static_cast<uint64_t>(kPasses) * 4 - TICK_EVENT_CAPACITY);
    EXPECT_EQ(events.front().kind, TICK_EVENT_PASS_BEGIN);

    // Drained, the ring takes events again, and the lost count was taken.
    scheduler.onTick(nullptr);
    events = readAll(scheduler, &lost);
    EXPECT_EQ(events.size(), 4u);
    EXPECT_EQ(lost, 0u);
}

TEST_P(EventCaptureTest, CapturingPassesAllocateNothing) {
    const Scheduler& scheduler = GetParam();
    ActionHandler handler([] {});
    ASSERT_NO_FATAL_FAILURE(registerAndStartCapture(handler, "Counted"));
    scheduler.onTick(nullptr);  // whatever a first pass sets up
    // The platform double's list logs its calls into a vector of its own:
    // each measurement starts it empty, so that only the scheduler differs.
    const auto allocationsOf50Passes = [&scheduler] {
        platform_double::reset();
        const test_support::AllocationScope scope;
        for (int pass = 0; pass < 50; ++pass) {
            scheduler.onTick(nullptr);
        }
        return scope.count();
    };
    ASSERT_EQ(scheduler.stopEventCapture(), TickResult::Success);
    const uint64_t withoutCapture = allocationsOf50Passes();
    ASSERT_EQ(scheduler.startEventCapture(), TickResult::Success);
    const uint64_t withCapture = allocationsOf50Passes();
    EXPECT_EQ(withCapture, withoutCapture);
    if (scheduler.onTick == &CTickScheduler_OnTick) {
        EXPECT_EQ(withCapture, 0u);
    }
    EXPECT_EQ(readAll(scheduler).size(), 50u * 4);
}

TEST_P(EventCaptureTest, CaptureLeavesTheStatisticsOffAndTheyLeaveItOff) {
    const Scheduler& scheduler = GetParam();
    ActionHandler handler([] {});
    ASSERT_NO_FATAL_FAILURE(registerAndStartCapture(handler, "Independent"));
    scheduler.onTick(nullptr);
    STickSchedulerStatistics figures{};
    figures.size = sizeof(figures);
    ASSERT_EQ(scheduler.getSchedulerStatistics(&figures), TickResult::Success);
    EXPECT_EQ(figures.passes, 0u);
    ASSERT_EQ(scheduler.stopEventCapture(), TickResult::Success);
    (void)readAll(scheduler);

    const uint32_t switchedOn = scheduler.registerHandler == &registerWithScheduler
                                    ? CTickScheduler_EnableStatistics(0)
                                    : CTickSchedulerFast_EnableStatistics(0);
    ASSERT_EQ(switchedOn, TickResult::Success);
    scheduler.onTick(nullptr);
    EXPECT_TRUE(readAll(scheduler).empty());
    ASSERT_EQ(scheduler.getSchedulerStatistics(&figures), TickResult::Success);
    EXPECT_EQ(figures.passes, 1u);
}

TEST_P(EventCaptureTest, ATickFunctionMayReadStopAndRestartTheCaptureOfEitherScheduler) {
    const Scheduler& scheduler = GetParam();
    ASSERT_EQ(kScheduler.startEventCapture(), TickResult::Success);
    ASSERT_EQ(kFast.startEventCapture(), TickResult::Success);
    std::vector<uint32_t> counts;
    ActionHandler reader([&] {
        for (const Scheduler* other : {&kScheduler, &kFast}) {
            STickEvent events[8];
            uint32_t count = 0;
            uint64_t lost = 0;
            EXPECT_EQ(other->readEvents(events, 8, &count, &lost), TickResult::Success);
            counts.push_back(count);
            EXPECT_EQ(other->stopEventCapture(), TickResult::Success);
            EXPECT_EQ(other->startEventCapture(), TickResult::Success);
        }
    });
    ASSERT_EQ(scheduler.registerHandler(reader, "Reader"), TickResult::Success);
    runPassesOnOwnThread(scheduler.onTick, 3, std::string(scheduler.name) + " passes that read the events");
    ASSERT_EQ(counts.size(), 6u);
    // Its own scheduler's ring holds the pass's beginning and the reader's
    // call when the reader looks.
    const size_t own = scheduler.onTick == &CTickScheduler_OnTick ? 0 : 1;
    EXPECT_EQ(counts[own], 2u);
    EXPECT_EQ(counts[1 - own], 0u);
    (void)kScheduler.stopEventCapture();
    (void)kFast.stopEventCapture();
    (void)readAll(kScheduler);
    (void)readAll(kFast);
}

TEST(EventRing, AFailingFirstAllocationLeavesCaptureOff) {
    if (zyn_ts::fastEventRing.isMade()) {
        GTEST_SKIP() << "an earlier test in this process made the ring already";
    }
    {
        const test_support::AllocationFailureScope failing;
        EXPECT_EQ(CTickSchedulerFast_StartEventCapture(), TickResult::Failure);
    }
    EXPECT_FALSE(zyn_ts::fastEventRing.isOn());
    EXPECT_FALSE(zyn_ts::fastEventRing.isMade());
    EXPECT_EQ(CTickSchedulerFast_StartEventCapture(), TickResult::Success);
    EXPECT_TRUE(zyn_ts::fastEventRing.isOn());
    (void)CTickSchedulerFast_StopEventCapture();
}

TEST(EventRing, NullArgumentsAreRefused) {
    uint32_t count = 7;
    STickEvent event{};
    EXPECT_EQ(CTickScheduler_ReadEvents(&event, 1, nullptr, nullptr), TickResult::NullArgument);
    EXPECT_EQ(CTickScheduler_ReadEvents(nullptr, 1, &count, nullptr), TickResult::NullArgument);
    EXPECT_EQ(CTickSchedulerFast_ReadEvents(nullptr, 1, &count, nullptr), TickResult::NullArgument);
    EXPECT_EQ(CTickSchedulerFast_ReadEvents(nullptr, 0, &count, nullptr), TickResult::Success);
    EXPECT_EQ(count, 0u);
}

}  // namespace
}  // namespace statistics_test
