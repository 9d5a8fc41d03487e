// The lead of the adaptive precision wake: how long before its grid point
// the oscillator asks to be woken, so that the kernel's wake-up spread is
// covered and the rest is spun.
//
// It keeps the kernel's wake-up lateness (behind the instant asked for) of
// the last kWindow wake-ups in 1 us bins and, every kRecomputeEvery
// wake-ups, sets the lead to their 99.2nd percentile plus kMarginNs, between
// kFloorNs and a ceiling of 10 % of the period. Until kRecomputeEvery
// wake-ups are known it keeps kInitialNs (or the ceiling, if lower). Only
// the oscillator thread uses it: fixed arrays, no lock, no allocation.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zyn_ts {

class AdaptiveLead {
public:
    static constexpr size_t kWindow = 1024;
    static constexpr size_t kRecomputeEvery = 64;
    static constexpr size_t kBins = 1024;  // 1 us each; later wake-ups count in the last
    static constexpr int64_t kFloorNs = 20000;
    static constexpr int64_t kMarginNs = 10000;
    static constexpr int64_t kInitialNs = 100000;
    static constexpr uint64_t kPercentilePerMille = 992;

    /// The ceiling on a grid of `periodNs`: 10 % of it.
    static constexpr int64_t ceilingFor(int64_t periodNs) { return periodNs / 10; }

    /// The lead to use on a grid of `periodNs`.
    int64_t leadFor(int64_t periodNs) const {
        const int64_t ceiling = ceilingFor(periodNs);
        const int64_t wanted = known < kRecomputeEvery ? kInitialNs : percentileLeadNs;
        if (wanted > ceiling) {
            return ceiling > kFloorNs ? ceiling : kFloorNs;
        }
        return wanted > kFloorNs ? wanted : kFloorNs;
    }

    /// One wake-up, `latenessNs` behind the instant asked for.
    void addWakeUp(int64_t latenessNs);

    /// The wake-ups in the window.
    size_t samples() const { return known; }

private:
    void recompute();

    std::array<uint16_t, kWindow> window{};
    std::array<uint16_t, kBins> counts{};
    size_t next = 0;
    size_t known = 0;
    size_t sinceRecompute = 0;
    int64_t percentileLeadNs = kInitialNs;
};

}  // namespace zyn_ts
