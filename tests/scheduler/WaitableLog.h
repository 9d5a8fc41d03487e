// A list that a tick function appends to on the oscillator's thread while the
// test waits, without hanging, until enough has arrived.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

namespace test_wait {

template <typename Entry>
class WaitableLog {
public:
    void add(Entry entry) {
        std::lock_guard<std::mutex> lock(mutex);
        entries.push_back(std::move(entry));
        arrived.notify_all();
    }

    /// Waits until `count` entries have arrived in all; false when `limit`
    /// passed first.
    bool waitForSize(size_t count, std::chrono::milliseconds limit) {
        std::unique_lock<std::mutex> lock(mutex);
        return arrived.wait_for(lock, limit, [&] { return entries.size() >= count; });
    }

    /// The entries so far, in the order they arrived.
    std::vector<Entry> snapshot() {
        std::lock_guard<std::mutex> lock(mutex);
        return entries;
    }

private:
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Entry> entries;
};

}  // namespace test_wait
