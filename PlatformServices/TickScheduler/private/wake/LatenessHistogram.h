// A distribution of lateness with one writer and any number of readers.
//
// The oscillator thread adds a sample per tick; any thread copies count,
// percentiles and maximum without a lock. Every field is a relaxed atomic of
// its own, written with a plain load and store (never a read-modify-write:
// there is one writer), so a reader never sees a torn value; it may see the
// bins of one tick and the count of the next. Bins are 1 us wide up to
// 512 us, then 32 per octave (about 3 % wide) up to 2^20 us (about a
// second); later samples fall into the last bin. Nothing allocates.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

struct STickLatenessFigures;

namespace zyn_ts {

class LatenessHistogram {
public:
    static constexpr size_t kLinearBins = 512;
    static constexpr size_t kBinsPerOctave = 32;
    static constexpr size_t kOctaves = 11;  // 2^9 .. 2^20 us
    static constexpr size_t kBins = kLinearBins + kBinsPerOctave * kOctaves;

    /// Writer only. A negative lateness counts as 0.
    void add(int64_t latenessNs) {
        const int64_t sample = latenessNs > 0 ? latenessNs : 0;
        bump(bins[binOf(sample)], uint64_t{1});
        if (sample > maxNs.load(std::memory_order_relaxed)) {
            maxNs.store(sample, std::memory_order_relaxed);
        }
    }

    /// Writer only: every sample dropped.
    void clear();

    /// Any thread: count, p50, p99 and maximum of the samples so far.
    void copyTo(STickLatenessFigures& figures) const;

    /// The bin of a lateness of `ns` (>= 0).
    static size_t binOf(int64_t ns);
    /// The largest lateness, in ns, that falls into `bin`.
    static int64_t upperEdgeNs(size_t bin);

private:
    template <typename T>
    static void bump(std::atomic<T>& field, T by) {
        field.store(field.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
    }

    std::array<std::atomic<uint64_t>, kBins> bins{};
    std::atomic<int64_t> maxNs{0};
};

}  // namespace zyn_ts
