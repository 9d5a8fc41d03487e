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
    std::vector<int64_t> ring;
    uint64_t mask;
    std::atomic<uint64_t> written{0};
    std::atomic<uint64_t> read{0};
    std::atomic<uint64_t> lostCount{0};
};

}  // namespace tickmon
