// The oscillator thread as the system sees it: its name and the scheduling
// it asks the platform for.
#include <gtest/gtest.h>

#include "PlatformDouble.h"
#include "ThreadIdentity.h"
#include "TickOscillator.h"
#include "TickRecorder.h"

namespace {

using oscillator_test::kernelThreadName;
using oscillator_test::TickRecorder;

class OscillatorThread : public ::testing::Test {
protected:
    void SetUp() override { platform_double::reset(); }
    void TearDown() override { oscillator.stop(); }

    /// Starts the oscillator and returns the kernel id of its thread.
    pid_t startAndFindThread(ETickDelay delay, ETickPriority priority) {
        EXPECT_EQ(0u, oscillator.initialize(delay, priority));
        EXPECT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
        EXPECT_EQ(0u, oscillator.start());
        EXPECT_TRUE(recorder.waitForTicks(1));
        return recorder.tickThreadId();
    }

    TickOscillator oscillator;
    TickRecorder recorder;
};

TEST_F(OscillatorThread, SixMsThreadIsNamedZynTsOsc6) {
    const pid_t tid = startAndFindThread(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST);
    EXPECT_EQ("zyn-ts-osc6", kernelThreadName(tid));
    const auto naming = platform_double::namingCalls();
    ASSERT_EQ(1u, naming.size());
    EXPECT_EQ("zyn-ts-osc6", naming[0].name);
    EXPECT_EQ(oscillator.nativeHandle(), naming[0].thread);
}

TEST_F(OscillatorThread, OneMsThreadIsNamedZynTsOsc1) {
    const pid_t tid = startAndFindThread(TICK_DELAY_1MS, TICK_PRIORITY_HIGH);
    EXPECT_EQ("zyn-ts-osc1", kernelThreadName(tid));
    const auto naming = platform_double::namingCalls();
    ASSERT_EQ(1u, naming.size());
    EXPECT_EQ("zyn-ts-osc1", naming[0].name);
}

TEST_F(OscillatorThread, NameFollowsTheDelayOfTheLatestInitialize) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    const pid_t tid = startAndFindThread(TICK_DELAY_1MS, TICK_PRIORITY_HIGHEST);
    EXPECT_EQ("zyn-ts-osc1", kernelThreadName(tid));
}

TEST_F(OscillatorThread, SchedulingAsksForRoundRobinWithTheMappedPriority) {
    startAndFindThread(TICK_DELAY_6MS, TICK_PRIORITY_HIGH);
    const auto scheduling = platform_double::schedulingCalls();
    ASSERT_EQ(1u, scheduling.size());
    EXPECT_EQ(2, scheduling[0].policy);
    EXPECT_EQ(98, scheduling[0].priority);
    EXPECT_EQ(oscillator.nativeHandle(), scheduling[0].thread);
}

TEST_F(OscillatorThread, EveryPriorityIsAppliedAsMapped) {
    const struct {
        int32_t tickPriority;
        int schedulingPriority;
    } cases[] = {{0, 99}, {1, 98}, {2, 79}, {3, 79}, {4, 79}, {5, 0}, {-1, 0}};
    for (const auto& c : cases) {
        platform_double::reset();
        ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, static_cast<ETickPriority>(c.tickPriority)));
        ASSERT_EQ(0u, oscillator.start());
        const auto scheduling = platform_double::schedulingCalls();
        ASSERT_EQ(oscillator.stop(), 0u);
        ASSERT_EQ(1u, scheduling.size()) << c.tickPriority;
        EXPECT_EQ(2, scheduling[0].policy) << c.tickPriority;
        EXPECT_EQ(c.schedulingPriority, scheduling[0].priority) << c.tickPriority;
    }
}

}  // namespace
