// The tick grid of one oscillator thread, published for any thread to read.
//
// One thread writes it (the oscillator thread: at its start, when it applies
// a new delay, and when its loop ends); any number of threads read it, a
// tick function included. Neither side ever waits for the other: the writer
// fills the next slot of a small ring and then publishes its version; a
// reader copies the slot of the version it saw and keeps the copy when the
// writer has not come far enough since to be rewriting that slot.
//
// Every field is an atomic (no standalone fences, which ThreadSanitizer does
// not model). The writer stores a slot's fields with release after it
// released the version before; a reader loads them with acquire. So a reader
// whose copy caught any value of a rewrite of its slot (the rewrite for
// version v + kSlots begins after version v + kSlots - 1 was published) finds
// at least v + kSlots - 1 when it looks at the version again, and drops the
// copy. Nothing here allocates or locks.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace zyn_ts {

/// One published state of a grid.
struct GridSnapshot {
    bool running = false;
    uint64_t generation = 0;
    int64_t originNs = 0;
    int64_t periodNs = 0;
};

/// A wait-free single-writer record of a grid. All zero (not running,
/// generation 0) until the first publish.
class PublishedGrid {
public:
    /// Slots in the ring: a reader's copy survives kSlots - 2 publications
    /// made while it copies.
    static constexpr uint64_t kSlots = 8;
    /// Copies a read makes before it gives up.
    static constexpr int kReadAttempts = 4;

    PublishedGrid() = default;
    PublishedGrid(const PublishedGrid&) = delete;
    PublishedGrid& operator=(const PublishedGrid&) = delete;

    /// Writer only: makes `snapshot` the grid that readers see. Wait-free:
    /// four stores into the next slot, then one store of the version.
    void publish(const GridSnapshot& snapshot) {
        fill(snapshot);
        commit();
    }

    /// Writer only (or with no writer running): what was published last.
    GridSnapshot lastPublished() const { return copyOf(publishedVersion()); }

    /// Any thread: copies the current grid into `snapshot` and returns true.
    /// Wait-free: at most kReadAttempts copies of 32 bytes, no wait for the
    /// writer. A copy is dropped only when the writer published kSlots - 1
    /// times or more while it was being made; the read gives up, returns
    /// false and leaves `snapshot` untouched only when that happened to every
    /// one of its kReadAttempts copies, that is when the writer published at
    /// least kReadAttempts x (kSlots - 1) times (28) during one read. The
    /// oscillator thread
    /// publishes at its start, at most once per loop iteration (a sleep to
    /// the next grid point apart) and at its end, so that takes a reader
    /// kept off its CPU for several periods inside each of four copies in a
    /// row. A reader on the writer's own thread (a tick function) never
    /// drops a copy.
    bool read(GridSnapshot& snapshot) const {
        return readInterleaved(snapshot, [] {});
    }

    /// read(), with `between` called after each copy and before the copy is
    /// judged: where a writer that overtakes the reader acts, for tests that
    /// play that interleaving without threads.
    template <typename Between>
    bool readInterleaved(GridSnapshot& snapshot, Between between) const {
        for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
            const uint64_t version = publishedVersion();
            const GridSnapshot copy = copyOf(version);
            between();
            if (slotUntouchedSince(version)) {
                snapshot = copy;
                return true;
            }
        }
        return false;
    }

    // The steps a publish and a read are made of, public so that tests can
    // interleave them without threads.

    /// Writer: stores `snapshot` into the slot of the next version.
    void fill(const GridSnapshot& snapshot);
    /// Writer: publishes the version whose slot fill() wrote.
    void commit();
    /// The latest published version (acquire); 0 before the first publish.
    uint64_t publishedVersion() const { return version.load(std::memory_order_acquire); }
    /// The slot of `seenVersion` as it is now (acquire loads).
    GridSnapshot copyOf(uint64_t seenVersion) const;
    /// True while the writer cannot have begun to rewrite the slot of
    /// `seenVersion`: it published fewer than kSlots - 1 versions since.
    bool slotUntouchedSince(uint64_t seenVersion) const {
        return version.load(std::memory_order_acquire) - seenVersion < kSlots - 1;
    }

private:
    struct Slot {
        std::atomic<uint32_t> running{0};
        std::atomic<uint64_t> generation{0};
        std::atomic<int64_t> originNs{0};
        std::atomic<int64_t> periodNs{0};
    };

    std::array<Slot, kSlots> slots{};
    std::atomic<uint64_t> version{0};
};

}  // namespace zyn_ts
