// ZYN_CPU_LATENCY_US, read once per process: each value has its own
// executable, built with the request it must produce and whether the value
// (then "35us") is refused with one line on stderr.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "PlatformHost/CpuLatencyHost.h"

namespace {

/// What the first use of the setting writes to stderr.
std::string stderrOfFirstUse(platform_host::CpuLatencyRequest& request) {
    std::fflush(stderr);
    char path[] = "/tmp/cpu-latency-stderr-XXXXXX";
    const int file = ::mkstemp(path);
    const int saved = ::dup(STDERR_FILENO);
    ::dup2(file, STDERR_FILENO);
    request = platform_host::cpuLatencyRequest();
    std::fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    ::close(file);
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    ::unlink(path);
    return text.str();
}

TEST(CpuLatencyEnvironmentTest, EnvironmentSetsTheRequestOrIsRefusedWithOneLine) {
    platform_host::CpuLatencyRequest request;
    const std::string reported = stderrOfFirstUse(request);
    EXPECT_EQ(request.enabled, ZYN_EXPECT_ENABLED);
    EXPECT_EQ(request.microseconds, static_cast<uint32_t>(ZYN_EXPECT_US));
    const std::string refusal = ZYN_EXPECT_REFUSED ? "ZYN_CPU_LATENCY_US: invalid value '35us'; expected 'off' or "
                                                     "microseconds from 0 to 2000000000; refused, the request "
                                                     "stays at 0 us\n"
                                                   : "";
    EXPECT_EQ(reported, refusal);
    // Read once: a later change of the variable has no effect.
    ::setenv("ZYN_CPU_LATENCY_US", "123", 1);
    EXPECT_EQ(platform_host::cpuLatencyRequest().microseconds, static_cast<uint32_t>(ZYN_EXPECT_US));
}

}  // namespace
