// A tick receiver for tests: records the instant and the thread of every tick
// it receives, and can give each tick some work to do.
//
// The oscillator thread writes, the test thread reads: every recorded instant
// is published by a release store of the count, so a reader that loads the
// count first may read that many instants while ticks keep coming.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "ITickReceiver.h"
#include "ZynSupport/MonotonicClock.h"

namespace oscillator_test {

class TickRecorder {
public:
    static constexpr size_t kCapacity = 8192;

    TickRecorder() : instants(kCapacity), receiverRecord{this, &TickRecorder::onTickThunk} {}
    TickRecorder(const TickRecorder&) = delete;
    TickRecorder& operator=(const TickRecorder&) = delete;

    /// The record to register with the oscillator; its context is this recorder.
    ITickReceiver* receiver() { return &receiverRecord; }

    /// Work done on every tick after its instant is recorded, given the tick's
    /// index and instant. Set it before the oscillator starts.
    void setWork(std::function<void(size_t index, int64_t instant)> perTick) { work = std::move(perTick); }

    /// Ticks received so far (the instants of the first kCapacity are kept).
    size_t count() const { return received.load(std::memory_order_acquire); }

    /// The recorded instants, as far as they are published.
    std::vector<int64_t> ticks() const {
        const size_t n = count() < kCapacity ? count() : kCapacity;
        return std::vector<int64_t>(instants.begin(), instants.begin() + static_cast<std::ptrdiff_t>(n));
    }

    /// The kernel thread id of the thread that delivered the latest tick.
    pid_t tickThreadId() const { return threadId.load(std::memory_order_acquire); }

    /// The context pointer of the latest tick (it must be this recorder).
    void* lastContext() const { return context.load(std::memory_order_acquire); }

    /// Waits until at least `n` ticks arrived or `timeout` passed; true when they did.
    bool waitForTicks(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const {
        const int64_t deadline = zyn_support::monotonicNowNs() +
                                 static_cast<int64_t>(timeout.count()) * zyn_support::kNanosecondsPerMillisecond;
        while (count() < n) {
            if (zyn_support::monotonicNowNs() > deadline) {
                return false;
            }
            // Rarely enough not to disturb the ticks being timed: a waiting
            // test thread that woke every few hundred microseconds would
            // cost the oscillator what the reference, measured meanwhile
            // asleep, never pays.
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

private:
    static void onTickThunk(void* self) {
        auto* recorder = static_cast<TickRecorder*>(self);
        recorder->context.store(self, std::memory_order_relaxed);
        recorder->record(zyn_support::monotonicNowNs());
    }

    void record(int64_t instant) {
        const size_t index = received.load(std::memory_order_relaxed);
        if (index < kCapacity) {
            instants[index] = instant;
        }
        threadId.store(static_cast<pid_t>(gettid()), std::memory_order_relaxed);
        received.store(index + 1, std::memory_order_release);
        if (work) {
            work(index, instant);
        }
    }

    std::vector<int64_t> instants;
    std::atomic<size_t> received{0};
    std::atomic<pid_t> threadId{0};
    std::atomic<void*> context{nullptr};
    std::function<void(size_t, int64_t)> work;
    ITickReceiver receiverRecord;
};

}  // namespace oscillator_test
