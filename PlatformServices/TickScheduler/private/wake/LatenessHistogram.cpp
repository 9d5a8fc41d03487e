#include "LatenessHistogram.h"

#include "TickPrecisionWake.h"
#include "ZynSupport/MonotonicClock.h"

namespace zyn_ts {
namespace {

constexpr size_t kFirstOctaveExponent = 9;  // 512 us

/// floor(log2(value)) for value > 0.
size_t log2Floor(uint64_t value) {
    size_t exponent = 0;
    while (value > 1) {
        value >>= 1U;
        ++exponent;
    }
    return exponent;
}

/// The smallest value whose share of `total` samples, counted from the
/// bottom, reaches `perMille` per thousand: the upper edge of its bin.
int64_t percentile(const std::array<uint64_t, LatenessHistogram::kBins>& bins, uint64_t total, uint64_t perMille) {
    if (total == 0) {
        return 0;
    }
    const uint64_t rank = (total * perMille + 999) / 1000;  // 1-based, rounded up
    uint64_t seen = 0;
    for (size_t bin = 0; bin < bins.size(); ++bin) {
        seen += bins[bin];
        if (seen >= rank) {
            return LatenessHistogram::upperEdgeNs(bin);
        }
    }
    return LatenessHistogram::upperEdgeNs(bins.size() - 1);
}

}  // namespace

size_t LatenessHistogram::binOf(int64_t ns) {
    const auto us = static_cast<uint64_t>(ns / zyn_support::kNanosecondsPerMicrosecond);
    if (us < kLinearBins) {
        return static_cast<size_t>(us);
    }
    const size_t exponent = log2Floor(us);
    if (exponent >= kFirstOctaveExponent + kOctaves) {
        return kBins - 1;
    }
    const size_t sub = static_cast<size_t>(us >> (exponent - 5U)) & (kBinsPerOctave - 1);
    return kLinearBins + (exponent - kFirstOctaveExponent) * kBinsPerOctave + sub;
}

int64_t LatenessHistogram::upperEdgeNs(size_t bin) {
    if (bin < kLinearBins) {
        return static_cast<int64_t>(bin + 1) * zyn_support::kNanosecondsPerMicrosecond - 1;
    }
    const size_t octave = (bin - kLinearBins) / kBinsPerOctave;
    const size_t sub = (bin - kLinearBins) % kBinsPerOctave;
    const size_t exponent = kFirstOctaveExponent + octave;
    const uint64_t width = uint64_t{1} << (exponent - 5U);
    const uint64_t upperUs = (uint64_t{1} << exponent) + (sub + 1) * width;
    return static_cast<int64_t>(upperUs) * zyn_support::kNanosecondsPerMicrosecond - 1;
}

void LatenessHistogram::clear() {
    for (std::atomic<uint64_t>& bin : bins) {
        bin.store(0, std::memory_order_relaxed);
    }
    maxNs.store(0, std::memory_order_relaxed);
}

void LatenessHistogram::copyTo(STickLatenessFigures& figures) const {
    std::array<uint64_t, kBins> copy{};
    uint64_t total = 0;
    for (size_t bin = 0; bin < kBins; ++bin) {
        copy[bin] = bins[bin].load(std::memory_order_relaxed);
        total += copy[bin];
    }
    const int64_t maximum = maxNs.load(std::memory_order_relaxed);
    figures.count = total;
    // A bin's upper edge may lie above the exact maximum: a percentile is
    // reported no higher than the maximum.
    const int64_t p50 = percentile(copy, total, 500);
    const int64_t p99 = percentile(copy, total, 990);
    const int64_t ceiling = maximum > 0 ? maximum : 0;
    figures.p50Ns = total == 0 ? 0 : (p50 < ceiling ? p50 : ceiling);
    figures.p99Ns = total == 0 ? 0 : (p99 < ceiling ? p99 : ceiling);
    figures.maxNs = total == 0 ? 0 : maximum;
}

}  // namespace zyn_ts
