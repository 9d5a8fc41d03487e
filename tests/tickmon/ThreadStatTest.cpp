#include "ThreadStat.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace tickmon {
namespace {

/// A stat line as the kernel writes it, with fields 14, 15, 40 and 41 set.
std::string statLine(const std::string& comm, uint64_t utime, uint64_t stime, uint32_t rtPriority, uint32_t policy) {
    std::string line = "4242 (" + comm + ") S";
    for (int field = 4; field <= 52; ++field) {
        uint64_t value = static_cast<uint64_t>(field) * 100;  // recognisable filler
        if (field == 14)
            value = utime;
        if (field == 15)
            value = stime;
        if (field == 40)
            value = rtPriority;
        if (field == 41)
            value = policy;
        line += " " + std::to_string(value);
    }
    return line + "\n";
}

TEST(ThreadStat, ReadsNameTimesPriorityAndPolicy) {
    const std::optional<ThreadStat> stat = parseThreadStat(statLine("zyn-ts-osc6", 12, 34, 79, 2));
    ASSERT_TRUE(stat.has_value());
    EXPECT_EQ(stat->comm, "zyn-ts-osc6");
    EXPECT_EQ(stat->state, 'S');
    EXPECT_EQ(stat->utimeTicks, 12u);
    EXPECT_EQ(stat->stimeTicks, 34u);
    EXPECT_EQ(stat->rtPriority, 79u);
    EXPECT_EQ(stat->policy, 2u);
}

TEST(ThreadStat, NameMayHoldBlanksAndParentheses) {
    const std::optional<ThreadStat> stat = parseThreadStat(statLine("a) b (c", 1, 2, 0, 0));
    ASSERT_TRUE(stat.has_value());
    EXPECT_EQ(stat->comm, "a) b (c");
    EXPECT_EQ(stat->utimeTicks, 1u);
}

TEST(ThreadStat, RefusesTruncatedOrGarbledLines) {
    EXPECT_FALSE(parseThreadStat("").has_value());
    EXPECT_FALSE(parseThreadStat("4242 (x) S 1 2 3").has_value());
    std::string garbled = statLine("x", 1, 2, 3, 4);
    garbled.replace(garbled.find(" 1 2 "), 5, " 1 z ");
    EXPECT_FALSE(parseThreadStat(garbled).has_value());
}

TEST(ThreadStat, PolicyNames) {
    EXPECT_EQ(schedulingPolicyName(0), "SCHED_OTHER");
    EXPECT_EQ(schedulingPolicyName(1), "SCHED_FIFO");
    EXPECT_EQ(schedulingPolicyName(2), "SCHED_RR");
    EXPECT_EQ(schedulingPolicyName(3), "SCHED_BATCH");
    EXPECT_EQ(schedulingPolicyName(5), "SCHED_IDLE");
    EXPECT_EQ(schedulingPolicyName(6), "SCHED_DEADLINE");
    EXPECT_EQ(schedulingPolicyName(9), "policy 9");
}

TEST(ThreadStat, SchedstatRuntimeIsTheFirstField) {
    EXPECT_EQ(parseSchedstatRuntime("123456789 2000 17\n"), 123456789u);
    EXPECT_FALSE(parseSchedstatRuntime("").has_value());
    EXPECT_FALSE(parseSchedstatRuntime("x 1 2").has_value());
}

TEST(ThreadStat, FindsAThreadOfThisProcessByName) {
    std::atomic<pid_t> tid{0};
    std::atomic<bool> stop{false};
    std::thread worker([&] {
        pthread_setname_np(pthread_self(), "tickmon-test-t");
        tid = static_cast<pid_t>(syscall(SYS_gettid));
        while (!stop) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (tid == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            stop = true;
            worker.join();
            FAIL() << "STUCK: the worker thread did not report its id within 10 s";
        }
        std::this_thread::yield();
    }
    const std::vector<pid_t> found = findThreadsByName("tickmon-test-t");
    const std::optional<ThreadStat> stat = readThreadStat(tid);
    const std::optional<ThreadCpuTime> cpu = readThreadCpuTime(tid);
    stop = true;
    worker.join();
    EXPECT_EQ(found, (std::vector<pid_t>{tid.load()}));
    ASSERT_TRUE(stat.has_value());
    EXPECT_EQ(stat->comm, "tickmon-test-t");
    EXPECT_EQ(stat->policy, 0u);
    ASSERT_TRUE(cpu.has_value());
    EXPECT_TRUE(cpu->source == "schedstat" || cpu->source == "stat") << cpu->source;
    EXPECT_TRUE(findThreadsByName("no-such-thread").empty());
}

}  // namespace
}  // namespace tickmon
