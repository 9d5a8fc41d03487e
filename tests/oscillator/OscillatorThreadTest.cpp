// The oscillator thread as the system sees it: its name and the scheduling
// it asks the platform for.
#include <gtest/gtest.h>

#include <string>

#include "OscillatorFixture.h"
#include "PlatformDouble.h"
#include "ThreadIdentity.h"

namespace {

using oscillator_test::kernelThreadName;

class OscillatorThread : public oscillator_test::OscillatorFixture {
protected:
    /// Starts the oscillator and returns the kernel id of its thread.
    pid_t startAndFindThread(ETickDelay delay, ETickPriority priority) {
        EXPECT_TRUE(startRecording(delay, priority));
        EXPECT_TRUE(recorder.waitForTicks(1));
        return recorder.tickThreadId();
    }

    /// The kernel knows thread `tid` as `name`, and the oscillator asked the
    /// platform exactly once to give its own thread that name.
    void expectNamedOnce(pid_t tid, const std::string& name) {
        EXPECT_EQ(name, kernelThreadName(tid));
        const auto naming = platform_double::namingCalls();
        ASSERT_EQ(1u, naming.size());
        EXPECT_EQ(name, naming[0].name);
        EXPECT_EQ(oscillator.nativeHandle(), naming[0].thread);
    }
};

TEST_F(OscillatorThread, SixMsThreadIsNamedZynTsOsc6) {
    expectNamedOnce(startAndFindThread(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST), "zyn-ts-osc6");
}

TEST_F(OscillatorThread, OneMsThreadIsNamedZynTsOsc1) {
    expectNamedOnce(startAndFindThread(TICK_DELAY_1MS, TICK_PRIORITY_HIGH), "zyn-ts-osc1");
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
