// Whether real-clock timing assertions can hold in this test run.
//
// Under CPU emulation (the cross-built suite runs under qemu-user) a 6 ms
// grid cannot be kept, so timing tests skip there with a stated reason while
// every logic test still runs. The cross test run sets ZYN_TS_EMULATED to the
// emulator's name.
#pragma once

#include <gtest/gtest.h>

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

}  // namespace test_environment

/// Skips the current test when timing bounds cannot hold here.
#define ZYN_TS_SKIP_IF_TIMING_UNRELIABLE()                                        \
    do {                                                                          \
        const std::string zynTsSkipReason = test_environment::timingSkipReason(); \
        if (!zynTsSkipReason.empty()) {                                           \
            GTEST_SKIP() << zynTsSkipReason;                                      \
        }                                                                         \
    } while (0)
