// The reference thread utilities: name, scheduling, and the timer slack that
// stands in for a refused real-time priority.

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "ParkedThread.h"
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
        ZYN_TS_SKIP_WITHOUT_REAL_TIME("this machine refuses SCHED_RR priority 10 ("
                                      << std::strerror(refusal)
                                      << "); RefusedRealTimePriorityLowersTimerSlack covers the refusal");
    }
    int priority = 0;
    EXPECT_EQ(policyOf(parked.thread(), &priority), SCHED_RR);
    EXPECT_EQ(priority, 10);
}

TEST(ThreadUtilitiesTest, RefusedRealTimePriorityKeepsPolicyAndLowersTimerSlack) {
    ParkedThread parked;
    ASSERT_GT(parked.ownTimerSlack(), 1u) << "a new thread starts with the default slack";
    const int policyBefore = policyOf(parked.thread());

    // Priority 0 is outside the real-time range: refused everywhere.
    EXPECT_EQ(setScheduling(parked.thread(), SCHED_RR, 0), EINVAL);

    EXPECT_EQ(policyOf(parked.thread()), policyBefore);
    EXPECT_EQ(parked.ownTimerSlack(), 1u);
    // Reading another thread's slack from /proc takes CAP_SYS_NICE.
    const std::string fromProc = parked.readProcFile("timerslack_ns");
    if (!fromProc.empty()) {
        EXPECT_EQ(fromProc, "1");
    }
}

// Capabilities are per thread on Linux: this thread can give up the right to
// real-time scheduling without affecting the rest of the test process.
bool dropRealTimeRight() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    if (::syscall(SYS_capget, &header, data) != 0) {
        return false;
    }
    data[CAP_SYS_NICE / 32].effective &= ~(1u << (CAP_SYS_NICE % 32));
    return ::syscall(SYS_capset, &header, data) == 0;
}

TEST(ThreadUtilitiesTest, PermissionRefusalLowersTimerSlack) {
    ParkedThread parked;
    int refusal = 0;
    bool dropped = false;
    std::thread requester([&] {
        dropped = dropRealTimeRight();
        refusal = setScheduling(parked.thread(), SCHED_RR, 10);
    });
    requester.join();
    if (refusal == 0) {
        GTEST_SKIP() << "SCHED_RR was granted even without CAP_SYS_NICE (RLIMIT_RTPRIO allows it)"
                     << (dropped ? "" : "; the capability could not be dropped");
    }
    EXPECT_EQ(refusal, EPERM);
    EXPECT_NE(policyOf(parked.thread()), SCHED_RR);
    EXPECT_EQ(parked.ownTimerSlack(), 1u);
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
