// Waits that end a stuck test within seconds.
//
// A test that waits for another thread (a latch, a join, a future) hangs for
// ever when the code under test deadlocks, and CTest only reports it at its
// own timeout minutes later, without saying what was awaited. These waits
// give up after kStuckAfter, name what never happened on stderr and abort
// the test program, so a regression fails at once and says where.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace test_support {

/// Far longer than any of these waits takes in a working build, even under
/// sanitizers or an emulator, and far shorter than CTest's timeout.
constexpr std::chrono::seconds kStuckAfter{10};

/// Reports that `what` did not happen in time and ends the test program:
/// the threads involved are blocked for good, so the test cannot go on.
[[noreturn]] inline void abortAsStuck(const std::string& what) {
    std::fprintf(stderr, "\nSTUCK: %s did not happen within %lld s; aborting the test program\n", what.c_str(),
                 static_cast<long long>(kStuckAfter.count()));
    std::fflush(stderr);
    std::abort();
}

/// A one-shot gate: wait() blocks until open() has been called, or aborts
/// the test program as stuck after kStuckAfter.
class Latch {
public:
    /// `event` names what opens the latch, for the message when it never does.
    explicit Latch(std::string event = "the awaited event") : awaited(std::move(event)) {}

    void open() {
        std::lock_guard<std::mutex> lock(mutex);
        opened = true;
        changed.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mutex);
        if (!changed.wait_for(lock, kStuckAfter, [this] { return opened; })) {
            abortAsStuck(awaited);
        }
    }
    bool isOpen() {
        std::lock_guard<std::mutex> lock(mutex);
        return opened;
    }

private:
    std::string awaited;
    std::mutex mutex;
    std::condition_variable changed;
    bool opened = false;
};

/// Polls `condition` every millisecond until it holds or `limit` has passed;
/// true when it holds. For a condition that may legitimately never hold, or
/// whose caller reports the failure itself; the limit only guards against a
/// hang.
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

/// Joins `thread` once `finished` says it has done its work; aborts the test
/// program as stuck when that takes longer than kStuckAfter.
template <typename Finished>
void joinWhenFinished(std::thread& thread, Finished finished, const std::string& what) {
    const auto deadline = std::chrono::steady_clock::now() + kStuckAfter;
    while (!finished()) {
        if (std::chrono::steady_clock::now() > deadline) {
            abortAsStuck(what);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    thread.join();
}

/// The value of `future`; aborts the test program as stuck when it is not
/// ready within kStuckAfter.
template <typename T>
T getWithin(std::future<T>& future, const std::string& what) {
    if (future.wait_for(kStuckAfter) != std::future_status::ready) {
        abortAsStuck(what);
    }
    return future.get();
}

}  // namespace test_support
