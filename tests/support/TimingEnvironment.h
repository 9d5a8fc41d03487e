// Whether real-clock timing assertions can hold in this test run.
//
// Under CPU emulation (the cross-built suite runs under qemu-user) a 6 ms
// grid cannot be kept, so timing tests skip there with a stated reason while
// every logic test still runs. The cross test run sets ZYN_TS_EMULATED to the
// emulator's name.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace test_environment {

/// Empty when timing bounds can hold; otherwise the reason they cannot.
inline std::string timingSkipReason() {
    const char* emulator = std::getenv("ZYN_TS_EMULATED");
    if (emulator != nullptr && *emulator != '\0') {
        return std::string("real-clock timing bounds cannot hold under CPU emulation (") + emulator + ")";
    }
    return std::string();
}

/// True where real-time scheduling must be granted: in CI (CI=true), which
/// runs as root. A refusal there means the timing tests would judge nothing,
/// so it fails them instead of skipping them.
inline bool realTimeIsRequired() {
    const char* ci = std::getenv("CI");
    return ci != nullptr && std::string(ci) == "true" && ::geteuid() == 0;
}

}  // namespace test_environment

/// Ends the current test when SCHED_RR was refused for the reason `reason`:
/// a failure where real-time scheduling must be granted, a skip elsewhere.
#define ZYN_TS_SKIP_WITHOUT_REAL_TIME(reason)                                                                   \
    do {                                                                                                        \
        if (test_environment::realTimeIsRequired()) {                                                           \
            FAIL() << "SCHED_RR refused in CI, where the tests run as root and must be granted it: " << reason; \
        }                                                                                                       \
        GTEST_SKIP() << reason;                                                                                 \
    } while (0)

/// Skips the current test when timing bounds cannot hold here.
#define ZYN_TS_SKIP_IF_TIMING_UNRELIABLE()                                        \
    do {                                                                          \
        const std::string zynTsSkipReason = test_environment::timingSkipReason(); \
        if (!zynTsSkipReason.empty()) {                                           \
            GTEST_SKIP() << zynTsSkipReason;                                      \
        }                                                                         \
    } while (0)
