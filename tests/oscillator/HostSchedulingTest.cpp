// The oscillator thread on the reference platform: the scheduling policy and
// priority the kernel really applied, read back from the running thread.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>

#include <cstring>
#include <string>

#include "ThreadIdentity.h"
#include "TickOscillator.h"
#include "TickRecorder.h"
#include "TimingEnvironment.h"

namespace {

using oscillator_test::kernelThreadName;
using oscillator_test::TickRecorder;

/// Empty when this process may give a thread SCHED_RR at `priority`;
/// otherwise why not.
std::string realTimeRefusal(int priority) {
    // Probed on the calling thread, whose scheduling is restored at once.
    int policy = SCHED_OTHER;
    sched_param previous{};
    pthread_getschedparam(pthread_self(), &policy, &previous);
    sched_param parameters{};
    parameters.sched_priority = priority;
    const int refusal = pthread_setschedparam(pthread_self(), SCHED_RR, &parameters);
    if (refusal == 0) {
        pthread_setschedparam(pthread_self(), policy, &previous);
        return std::string();
    }
    return "this machine refuses SCHED_RR priority " + std::to_string(priority) + " (" + std::strerror(refusal) +
           "): run as root or with CAP_SYS_NICE and a real-time budget";
}

struct AppliedScheduling {
    int policy = -1;
    int priority = -1;
};

AppliedScheduling schedulingOf(pthread_t thread) {
    AppliedScheduling applied;
    sched_param parameters{};
    if (pthread_getschedparam(thread, &applied.policy, &parameters) == 0) {
        applied.priority = parameters.sched_priority;
    }
    return applied;
}

class HostOscillatorScheduling : public ::testing::TestWithParam<std::pair<int32_t, int>> {
protected:
    void TearDown() override { oscillator.stop(); }

    TickOscillator oscillator;
    TickRecorder recorder;
};

TEST_P(HostOscillatorScheduling, ThreadRunsRoundRobinAtTheMappedPriority) {
    const int32_t tickPriority = GetParam().first;
    const int schedulingPriority = GetParam().second;
    const std::string refusal = realTimeRefusal(schedulingPriority);
    if (!refusal.empty()) {
        ZYN_TS_SKIP_WITHOUT_REAL_TIME(refusal);
    }
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, static_cast<ETickPriority>(tickPriority)));
    ASSERT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(recorder.waitForTicks(2));

    const AppliedScheduling applied = schedulingOf(oscillator.nativeHandle());
    EXPECT_EQ(SCHED_RR, applied.policy);
    EXPECT_EQ(schedulingPriority, applied.priority);
    EXPECT_EQ("zyn-ts-osc6", kernelThreadName(recorder.tickThreadId()));
}

INSTANTIATE_TEST_SUITE_P(MappedPriorities, HostOscillatorScheduling,
                         ::testing::Values(std::make_pair(0, 99), std::make_pair(1, 98), std::make_pair(2, 79),
                                           std::make_pair(4, 79)),
                         [](const ::testing::TestParamInfo<std::pair<int32_t, int>>& info) {
                             return "TickPriority" + std::to_string(info.param.first);
                         });

TEST(HostOscillator, RefusedPriorityZeroStillStartsAndTicks) {
    // An unknown tick priority maps to 0, which SCHED_RR does not accept: the
    // platform refuses, the oscillator ignores the refusal and ticks anyway
    // under the policy it had.
    TickOscillator oscillator;
    TickRecorder recorder;
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, static_cast<ETickPriority>(9)));
    ASSERT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
    ASSERT_EQ(0u, oscillator.start());
    EXPECT_TRUE(recorder.waitForTicks(5));
    const AppliedScheduling applied = schedulingOf(oscillator.nativeHandle());
    EXPECT_NE(SCHED_RR, applied.policy);
    EXPECT_EQ("zyn-ts-osc1", kernelThreadName(recorder.tickThreadId()));
    EXPECT_EQ(0u, oscillator.stop());
}

}  // namespace
