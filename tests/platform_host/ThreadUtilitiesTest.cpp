// The reference thread utilities: name, scheduling, and the timer slack that
// stands in for a refused real-time priority.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "Capabilities.h"
#include "ParkedThread.h"
#include "SignalMask.h"
#include "ThreadUtilities.h"
#include "TimingEnvironment.h"

namespace {

using os_extension::thread_utilities::setName;
using os_extension::thread_utilities::setScheduling;

int policyOf(std::thread& thread, int* priority = nullptr) {
    int policy = -1;
    sched_param parameters{};
    EXPECT_EQ(pthread_getschedparam(thread.native_handle(), &policy, &parameters), 0);
    if (priority != nullptr) {
        *priority = parameters.sched_priority;
    }
    return policy;
}

TEST(ThreadUtilitiesTest, NameIsAppliedToTheThread) {
    ParkedThread parked;
    EXPECT_EQ(setName(parked.thread(), "zyn-ts-osc6"), 0);
    EXPECT_EQ(parked.readProcFile("comm"), "zyn-ts-osc6");
}

TEST(ThreadUtilitiesTest, NameLongerThanFifteenCharactersIsRefused) {
    ParkedThread parked;
    ASSERT_EQ(setName(parked.thread(), "short"), 0);
    EXPECT_NE(setName(parked.thread(), "sixteen-chars-xx"), 0);
    EXPECT_EQ(parked.readProcFile("comm"), "short");
}

TEST(ThreadUtilitiesTest, ThreadThatIsNotRunningIsRefused) {
    std::thread none;
    EXPECT_NE(setName(none, "nobody"), 0);
    EXPECT_NE(setScheduling(none, SCHED_RR, 10), 0);
}

TEST(ThreadUtilitiesTest, RoundRobinPriorityIsApplied) {
    ParkedThread parked;
    const int refusal = setScheduling(parked.thread(), SCHED_RR, 10);
    if (refusal != 0) {
        ZYN_TS_SKIP_WITHOUT_REAL_TIME(
            "this machine refuses SCHED_RR priority 10 ("
            << std::strerror(refusal)
            << "); RefusedRealTimePriorityKeepsPolicyAndLowersTimerSlackWithoutSignallingTheThread covers the refusal");
    }
    int priority = 0;
    EXPECT_EQ(policyOf(parked.thread(), &priority), SCHED_RR);
    EXPECT_EQ(priority, 10);
}

TEST(ThreadUtilitiesTest, RefusedRealTimePriorityKeepsPolicyAndLowersTimerSlackWithoutSignallingTheThread) {
    if (!processMaySetOtherThreadsTimerSlack()) {
        GTEST_SKIP() << "without CAP_SYS_NICE no thread may set another's timer slack; "
                        "RefusalForWantOfTheRightLeavesTimerSlackAsItWas covers that case";
    }
    ParkedThread parked;
    // A signal sent to the thread would stay pending, and no handler of it
    // could run and answer.
    parked.runThere(blockEverySignal);
    ASSERT_GT(parked.ownTimerSlack(), 1u) << "a new thread starts with the default slack";
    const int policyBefore = policyOf(parked.thread());

    // Priority 0 is outside the real-time range: refused everywhere.
    EXPECT_EQ(setScheduling(parked.thread(), SCHED_RR, 0), EINVAL);

    EXPECT_EQ(policyOf(parked.thread()), policyBefore);
    EXPECT_EQ(parked.ownTimerSlack(), 1u);
    int pending = -1;
    parked.runThere([&pending] { pending = pendingSignalsOfCallingThread(); });
    EXPECT_EQ(pending, 0) << "a signal was sent to the thread";
}

TEST(ThreadUtilitiesTest, RefusalForWantOfTheRightLeavesTimerSlackAsItWas) {
    ParkedThread parked;
    const unsigned long slackBefore = parked.ownTimerSlack();
    int refusal = 0;
    bool dropped = false;
    std::thread requester([&] {
        dropped = dropCapabilityOfCallingThread(CAP_SYS_NICE);
        refusal = setScheduling(parked.thread(), SCHED_RR, 10);
    });
    requester.join();
    if (refusal == 0) {
        GTEST_SKIP() << "SCHED_RR was granted even without CAP_SYS_NICE (RLIMIT_RTPRIO allows it)"
                     << (dropped ? "" : "; the capability could not be dropped");
    }
    EXPECT_EQ(refusal, EPERM);
    EXPECT_NE(policyOf(parked.thread()), SCHED_RR);
    EXPECT_EQ(parked.ownTimerSlack(), slackBefore);
}

TEST(ThreadUtilitiesTest, RefusedNonRealTimeRequestLeavesTimerSlackAlone) {
    ParkedThread parked;
    const unsigned long slackBefore = parked.ownTimerSlack();
    // SCHED_OTHER takes only priority 0.
    EXPECT_EQ(setScheduling(parked.thread(), SCHED_OTHER, 5), EINVAL);
    EXPECT_EQ(parked.ownTimerSlack(), slackBefore);
}

TEST(ThreadUtilitiesTest, NormalPolicyIsApplied) {
    ParkedThread parked;
    EXPECT_EQ(setScheduling(parked.thread(), SCHED_BATCH, 0), 0);
    EXPECT_EQ(policyOf(parked.thread()), SCHED_BATCH);
}

}  // namespace
