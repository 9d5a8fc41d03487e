// The tick source of libZynTickScheduler running on the reference platform:
// its thread named and scheduled through the host thread utilities, its
// traces written by the host trace service.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Capabilities.h"
#include "PlatformHost/TraceHost.h"
#include "ProbedOscillator.h"
#include "TickOscillator.h"
#include "TraceCapture.h"

namespace {

struct TickProbe {
    std::atomic<int> ticks{0};
    std::atomic<pid_t> threadId{0};
    std::atomic<long> timerSlackNs{-1};
};

// Reads what only the tick thread can read without privileges: its own id
// and timer slack.
void onTick(void* context) {
    auto* probe = static_cast<TickProbe*>(context);
    probe->threadId.store(static_cast<pid_t>(::syscall(SYS_gettid)));
    probe->timerSlackNs.store(::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0));
    probe->ticks.fetch_add(1);
}

bool waitForTicks(const TickProbe& probe, int count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (probe.ticks.load() < count) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::string threadFile(pid_t tid, const std::string& name) {
    std::string path = "/proc/self/task/" + std::to_string(tid) + "/" + name;
    if (!std::ifstream(path).good()) {
        path = "/proc/" + std::to_string(tid) + "/" + name;
    }
    std::ifstream file(path);
    std::string content;
    std::getline(file, content);
    return content;
}

bool anyLineContains(const std::vector<std::string>& lines, const std::string& part) {
    for (const std::string& line : lines) {
        if (line.find(part) != std::string::npos) {
            return true;
        }
    }
    return false;
}

class OscillatorOnHostTest : public ::testing::Test {
protected:
    void TearDown() override { platform_host::setTraceLevel("ZYN.TS", 3); }
};

TEST_F(OscillatorOnHostTest, TicksArriveOnANamedThreadAndStartIsTraced) {
    TraceCapture capture;
    platform_host::setTraceLevel("ZYN.TS", 6);
    ProbedOscillator<TickProbe> ticking(TICK_DELAY_6MS, TICK_PRIORITY_NORMAL, &onTick);
    ASSERT_EQ(ticking.oscillator.start(), 0u);

    const bool ticked = waitForTicks(ticking.probe, 5);
    const pid_t tickThread = ticking.probe.threadId.load();
    const std::string name = threadFile(tickThread, "comm");
    int policy = -1;
    sched_param parameters{};
    ASSERT_EQ(pthread_getschedparam(ticking.oscillator.nativeHandle(), &policy, &parameters), 0);
    ticking.oscillator.stop();

    ASSERT_TRUE(ticked);
    EXPECT_NE(tickThread, static_cast<pid_t>(::syscall(SYS_gettid)));
    EXPECT_EQ(name, "zyn-ts-osc6");
    if (policy == SCHED_RR) {
        EXPECT_EQ(parameters.sched_priority, 79);
    } else if (processMaySetOtherThreadsTimerSlack()) {
        // Real-time refused on this machine: precise sleeps instead.
        EXPECT_EQ(ticking.probe.timerSlackNs.load(), 1);
    }
    const std::vector<std::string> lines = capture.lines();
    EXPECT_TRUE(anyLineContains(lines, " ZYN.TS L6 -> start")) << lines.size() << " lines";
    EXPECT_TRUE(anyLineContains(lines, " ZYN.TS L5 run:   Starting oscillator with delay 6 ms"));
}

TEST_F(OscillatorOnHostTest, RefusedPriorityStillTicksWithMinimalTimerSlack) {
    // An unknown priority class maps to 0, which SCHED_RR refuses everywhere.
    ProbedOscillator<TickProbe> ticking(TICK_DELAY_1MS, static_cast<ETickPriority>(9), &onTick);
    ASSERT_EQ(ticking.oscillator.start(), 0u);

    const bool ticked = waitForTicks(ticking.probe, 20);
    const pid_t tickThread = ticking.probe.threadId.load();
    int policy = -1;
    sched_param parameters{};
    ASSERT_EQ(pthread_getschedparam(ticking.oscillator.nativeHandle(), &policy, &parameters), 0);
    const std::string name = threadFile(tickThread, "comm");
    ticking.oscillator.stop();

    ASSERT_TRUE(ticked);
    EXPECT_EQ(policy, SCHED_OTHER);
    EXPECT_EQ(name, "zyn-ts-osc1");
    if (!processMaySetOtherThreadsTimerSlack()) {
        GTEST_SKIP() << "without CAP_SYS_NICE the host may not set the tick thread's timer slack";
    }
    EXPECT_EQ(ticking.probe.timerSlackNs.load(), 1);
}

}  // namespace
