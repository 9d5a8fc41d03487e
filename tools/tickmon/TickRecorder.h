// Hands tick timestamps from the tick thread to the monitor's main thread.
//
// The probe handler runs on the scheduler's real-time thread, where nothing
// may allocate or block: it writes into a ring allocated up front, and the
// main thread drains the ring into its own storage while the run goes on.
// One producer (the tick thread) and one consumer (the main thread).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tickmon {

class TickRecorder {
public:
    /// `capacity` timestamps fit between two drains (rounded up to a power
    /// of two).
    explicit TickRecorder(size_t capacity);

    /// Tick thread: stores one timestamp; when the ring is full the
    /// timestamp is counted as lost instead. Never allocates or blocks.
    void record(int64_t timestampNs);

    /// Main thread: appends every stored timestamp to `into`, oldest first;
    /// returns how many.
    size_t drain(std::vector<int64_t>& into);

    /// Timestamps dropped because the ring was full.
    uint64_t lost() const { return lostCount.load(std::memory_order_relaxed); }

private:
    /// Keeps what each side writes on a cache line of its own, so that the
    /// tick thread does not fetch the main thread's line on every tick.
    static constexpr size_t kCacheLine = 64;

    std::vector<int64_t> ring;
    uint64_t mask;
    // Tick thread's line.
    alignas(kCacheLine) std::atomic<uint64_t> written{0};
    /// The main thread's read position as the tick thread last saw it: the
    /// ring has at least this much room, so the shared position is only
    /// read again when the ring looks full.
    uint64_t readSeenByRecorder = 0;
    std::atomic<uint64_t> lostCount{0};
    // Main thread's line.
    alignas(kCacheLine) std::atomic<uint64_t> read{0};
};

}  // namespace tickmon
