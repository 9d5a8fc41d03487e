// A list that one thread (a tick, a trace sink) appends to while the test
// thread waits for entries and reads a copy of them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

namespace test_support {

template <typename Entry>
class SynchronizedLog {
public:
    void append(Entry entry) {
        const std::lock_guard<std::mutex> lock(mutex);
        entries.push_back(std::move(entry));
        arrived.notify_all();
    }

    /// Waits until at least `count` entries arrived; false when `timeout`
    /// passed first.
    bool waitFor(size_t count, std::chrono::nanoseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex);
        return arrived.wait_for(lock, timeout, [&] { return entries.size() >= count; });
    }

    /// A copy of the entries so far.
    std::vector<Entry> snapshot() {
        const std::lock_guard<std::mutex> lock(mutex);
        return entries;
    }

private:
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Entry> entries;
};

}  // namespace test_support
