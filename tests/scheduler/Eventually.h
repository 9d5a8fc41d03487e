// Waiting for something another thread does, without hanging the test
// program when it never happens: the one poll loop of the scheduler tests.
#pragma once

#include <chrono>
#include <thread>

namespace test_wait {

/// Polls `condition` every millisecond until it holds or `limit` has passed;
/// true when it holds. The limit only guards against a hang.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace test_wait
