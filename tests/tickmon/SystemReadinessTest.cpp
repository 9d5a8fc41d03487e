// The System section read from fixture trees of /proc and /sys: a PREEMPT_RT
// board, a VM with haltpoll, a laptop, and files that are missing or
// malformed.

#include "SystemReadiness.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tickmon {
namespace {

SystemRoots fixture(const std::string& name) {
    const std::string root = std::string(ZYN_TICKMON_FIXTURES) + "/system/" + name;
    return SystemRoots{root + "/proc", root + "/sys"};
}

RunGrants grantedRun(bool latencyHeld) {
    RunGrants grants;
    grants.ran = true;
    grants.realTimeGranted = true;
    grants.memoryLock = "locked (mlockall current and future)";
    grants.memoryLocked = true;
    grants.cpuLatencyRequest = latencyHeld ? "held at 0 us (/dev/cpu_dma_latency)" : "off (no request made)";
    grants.cpuLatencyHeld = latencyHeld;
    return grants;
}

const SystemFinding& find(const std::vector<SystemFinding>& findings, const std::string& key) {
    for (const SystemFinding& f : findings) {
        if (f.key == key) {
            return f;
        }
    }
    static const SystemFinding missing{"missing", "missing", "no finding with this key", false, ""};
    ADD_FAILURE() << "no finding " << key;
    return missing;
}

TEST(SystemReadiness, RealTimeBoardWithIsolatedCpusCostsNothing) {
    const auto findings = readSystemReadiness(fixture("rt-board"), grantedRun(true), std::nullopt);
    EXPECT_EQ(find(findings, "kernel").value, "6.6.30-rt30-arm64");
    EXPECT_EQ(find(findings, "preemption").value, "PREEMPT_RT");
    EXPECT_EQ(find(findings, "clocksource").value, "arch_sys_counter (available: arch_sys_counter)");
    EXPECT_EQ(find(findings, "timer_resolution").value, "1 ns");
    EXPECT_EQ(find(findings, "rt_throttling").value, "off");
    EXPECT_EQ(find(findings, "cpuidle_driver").value, "psci_idle");
    EXPECT_EQ(find(findings, "cpuidle_governor").value, "menu");
    EXPECT_EQ(find(findings, "idle_states").value, "WFI 1 us, cpu-sleep 250 us (disabled)");
    EXPECT_EQ(find(findings, "cpufreq_governor").value,
              "cpu0 performance, cpu1 performance, cpu2 performance, cpu3 performance");
    EXPECT_EQ(find(findings, "isolated_cpus").value, "2-3");
    EXPECT_EQ(find(findings, "nohz_full").value, "2-3");
    EXPECT_EQ(find(findings, "rlimit_rtprio").value, "99");
    EXPECT_EQ(find(findings, "rlimit_memlock").value, "unlimited bytes");
    EXPECT_EQ(find(findings, "steal_time").value, "0.00 % of CPU time");
    for (const SystemFinding& f : findings) {
        EXPECT_FALSE(f.costsLatency) << f.key << ": " << f.value;
    }
}

TEST(SystemReadiness, VirtualMachineWithHaltpollNeedsTheLatencyRequestAndShowsSteal) {
    const auto findings = readSystemReadiness(fixture("vm-haltpoll"), grantedRun(false), std::nullopt);
    const SystemFinding& preemption = find(findings, "preemption");
    EXPECT_EQ(preemption.value, "PREEMPT_DYNAMIC, mode voluntary");
    EXPECT_TRUE(preemption.costsLatency);
    EXPECT_NE(preemption.advice.find("preempt=full"), std::string::npos);
    EXPECT_EQ(find(findings, "cpuidle_driver").value, "haltpoll");
    const SystemFinding& idle = find(findings, "idle_states");
    EXPECT_EQ(idle.value, "POLL 0 us, haltpoll idle 1 us");
    EXPECT_TRUE(idle.costsLatency);
    EXPECT_NE(idle.advice.find("latency request"), std::string::npos);
    EXPECT_TRUE(find(findings, "cpu_latency_request").costsLatency);
    EXPECT_EQ(find(findings, "rt_throttling").value,
              "950000 us of every 1000000 us (95 %); only a real-time load above that is held back");
    EXPECT_EQ(find(findings, "cpufreq_governor").value, "none (fixed frequency or a VM)");
    EXPECT_EQ(find(findings, "isolated_cpus").value, "none");
    EXPECT_TRUE(find(findings, "isolated_cpus").costsLatency);
    EXPECT_EQ(find(findings, "nohz_full").value, "none");
    const SystemFinding& steal = find(findings, "steal_time");
    EXPECT_EQ(steal.value, "5.00 % of CPU time");
    EXPECT_TRUE(steal.costsLatency);
    EXPECT_EQ(steal.label, "steal time since boot");
}

TEST(SystemReadiness, HeldLatencyRequestAnswersTheIdleStateCost) {
    const auto findings = readSystemReadiness(fixture("vm-haltpoll"), grantedRun(true), std::nullopt);
    EXPECT_FALSE(find(findings, "idle_states").costsLatency);
    EXPECT_FALSE(find(findings, "cpu_latency_request").costsLatency);
    EXPECT_EQ(find(findings, "cpu_latency_request").value, "held at 0 us (/dev/cpu_dma_latency)");
}

TEST(SystemReadiness, StealTimeIsTakenOverTheRunWhenStartIsGiven) {
    const auto findings = readSystemReadiness(fixture("vm-haltpoll"), grantedRun(true), CpuTimes{9000, 490});
    const SystemFinding& steal = find(findings, "steal_time");
    EXPECT_EQ(steal.label, "steal time during the run");
    EXPECT_EQ(steal.value, "1.00 % of CPU time");  // 10 of the 1000 ticks since the start
}

TEST(SystemReadiness, LaptopWithDeepIdleStatesAndPowersaveGetsAdviceForEach) {
    const auto findings = readSystemReadiness(fixture("laptop"), grantedRun(false), std::nullopt);
    const SystemFinding& idle = find(findings, "idle_states");
    EXPECT_EQ(idle.value, "POLL 0 us, C1 2 us, C6 85 us, C10 890 us");
    EXPECT_TRUE(idle.costsLatency);
    const SystemFinding& cpufreq = find(findings, "cpufreq_governor");
    EXPECT_EQ(cpufreq.value, "cpu0 powersave, cpu1 powersave");
    EXPECT_TRUE(cpufreq.costsLatency);
    EXPECT_NE(cpufreq.advice.find("performance"), std::string::npos);
    const SystemFinding& clock = find(findings, "clocksource");
    EXPECT_TRUE(clock.costsLatency);
    EXPECT_NE(clock.advice.find("clocksource=tsc"), std::string::npos);
    EXPECT_EQ(find(findings, "preemption").value, "PREEMPT_DYNAMIC, mode unknown (debugfs not readable)");
    EXPECT_EQ(find(findings, "nohz_full").value, "unknown");
}

TEST(SystemReadiness, RefusedGrantsAreCostsWithTheirFix) {
    RunGrants grants = grantedRun(true);
    grants.realTimeGranted = false;
    grants.memoryLocked = false;
    grants.memoryLock = "refused: mlockall: Cannot allocate memory";
    const auto findings = readSystemReadiness(fixture("laptop"), grants, std::nullopt);
    EXPECT_TRUE(find(findings, "realtime_priority").costsLatency);
    EXPECT_NE(find(findings, "realtime_priority").advice.find("CAP_SYS_NICE"), std::string::npos);
    EXPECT_TRUE(find(findings, "memory_lock").costsLatency);
    EXPECT_NE(find(findings, "memory_lock").advice.find("RLIMIT_MEMLOCK"), std::string::npos);
}

TEST(SystemReadiness, NotAskingForTheMemoryLockIsNoCost) {
    RunGrants grants = grantedRun(true);
    grants.memoryLocked = false;
    grants.memoryLock = "not asked (--no-mlock)";
    const auto findings = readSystemReadiness(fixture("rt-board"), grants, std::nullopt);
    EXPECT_FALSE(find(findings, "memory_lock").costsLatency);
}

TEST(SystemReadiness, WithoutARunTheGrantsAreNotTried) {
    const auto findings = readSystemReadiness(fixture("rt-board"), RunGrants{}, std::nullopt);
    EXPECT_EQ(find(findings, "realtime_priority").value, "not tried (--system)");
    EXPECT_EQ(find(findings, "memory_lock").value, "not tried (--system)");
    EXPECT_EQ(find(findings, "cpu_latency_request").value, "not tried (--system)");
}

TEST(SystemReadiness, MalformedFilesReadAsUnknown) {
    const auto findings = readSystemReadiness(fixture("malformed"), grantedRun(true), std::nullopt);
    for (const char* key : {"kernel", "preemption", "clocksource", "timer_resolution", "rt_throttling",
                            "cpuidle_driver", "isolated_cpus", "rlimit_rtprio", "rlimit_memlock", "steal_time"}) {
        EXPECT_EQ(find(findings, key).value, "unknown") << key;
    }
    EXPECT_EQ(find(findings, "idle_states").value, "C1 ? us");
}

TEST(SystemReadiness, MissingTreeReadsAsUnknownEverywhere) {
    const SystemRoots nowhere{"/nonexistent/proc", "/nonexistent/sys"};
    const auto findings = readSystemReadiness(nowhere, RunGrants{}, CpuTimes{10, 1});
    ASSERT_FALSE(findings.empty());
    EXPECT_EQ(find(findings, "kernel").value, "unknown");
    EXPECT_EQ(find(findings, "idle_states").value, "none listed");
    EXPECT_EQ(find(findings, "steal_time").value, "unknown");
}

TEST(SystemReadiness, CpuTimesNeedTheWholeCpuLine) {
    const std::optional<CpuTimes> times = parseCpuTimes("cpu  1 2 3 4 5 6 7 8 9 10\ncpu0 1 1 1 1 1 1 1 1 0 0\n");
    ASSERT_TRUE(times.has_value());
    EXPECT_EQ(times->total, 36u);  // user to steal; guest time is inside user
    EXPECT_EQ(times->steal, 8u);
    EXPECT_FALSE(parseCpuTimes("cpu  1 2 3 4 5 6 7\n").has_value());
    EXPECT_FALSE(parseCpuTimes("cpu0 1 2 3 4 5 6 7 8\n").has_value());
    EXPECT_FALSE(parseCpuTimes("").has_value());
}

TEST(SystemReadiness, SectionTextMarksEachCostAndFollowsItWithItsFix) {
    const std::vector<SystemFinding> findings = {
        {"a", "clock source", "tsc", false, ""},
        {"b", "isolated CPUs", "none", true, "boot with isolcpus=N"},
    };
    EXPECT_EQ(formatSystemSection(findings),
              "\nSystem (what on this machine costs tick latency; ! marks a cost, -> its fix)\n"
              "    clock source: tsc\n"
              "  ! isolated CPUs: none\n"
              "      -> boot with isolcpus=N\n");
}

}  // namespace
}  // namespace tickmon
