// A fake CPU wake-up latency device (a regular file in a fresh directory)
// standing in for /dev/cpu_dma_latency, and what a test reads from it.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "BoundedWait.h"
#include "PlatformHost/CpuLatencyHost.h"

/// Descriptors of this process open on `path` (all of them when empty).
inline int openDescriptors(const std::string& path = "") {
    int count = 0;
    DIR* directory = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(directory)) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        char target[512] = {};
        const std::string link = std::string("/proc/self/fd/") + entry->d_name;
        const ssize_t length = ::readlink(link.c_str(), target, sizeof target - 1);
        if (length > 0 && (path.empty() || path == target)) {
            ++count;
        }
    }
    ::closedir(directory);
    return path.empty() ? count - 1 : count;  // not the directory's own
}

inline std::vector<int32_t> valuesIn(const std::string& path) {
    std::vector<int32_t> values;
    const int fd = ::open(path.c_str(), O_RDONLY);
    int32_t value = 0;
    while (::read(fd, &value, sizeof value) == static_cast<ssize_t>(sizeof value)) {
        values.push_back(value);
    }
    ::close(fd);
    return values;
}

/// Polls `done` every millisecond; aborts the test program as stuck, naming
/// `what`, when it is still false after test_support::kStuckAfter.
template <typename Done>
void awaitWithin(Done done, const std::string& what) {
    const auto deadline = std::chrono::steady_clock::now() + test_support::kStuckAfter;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            test_support::abortAsStuck(what);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// The host ends the request some time after its last holder ended.
inline void awaitRequestReleased() {
    awaitWithin(
        [] {
            const platform_host::CpuLatencyState state = platform_host::cpuLatencyState();
            return !state.held && state.holders == 0;
        },
        "the release of the latency request after its last holder ended");
}

/// Each test starts with the default request of 0 us on its own fake device,
/// and ends once the request its threads held is released.
class FakeCpuLatencyDeviceTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/cpu-latency-test-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        directory = pattern;
        device = directory + "/cpu_dma_latency";
        ::close(::open(device.c_str(), O_CREAT | O_WRONLY, 0600));
        platform_host::setCpuLatencyDeviceForTesting(device);
        platform_host::setCpuLatencyRequest(platform_host::CpuLatencyRequest{});
    }
    void TearDown() override {
        awaitRequestReleased();
        ::unlink(device.c_str());
        ::rmdir(directory.c_str());
    }

    std::string directory;
    std::string device;
};
