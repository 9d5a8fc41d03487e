// Latency histogram in the text layout of cyclictest's -h output, so that
// plotting scripts written for cyclictest read it unchanged:
//
//   # Histogram
//   000000 000012        one line per microsecond bucket: "%06d %06lu"
//   ...
//   # Total: 000001667
//   # Min Latencies: 00000
//   # Avg Latencies: 00003
//   # Max Latencies: 00041
//   # Histogram Overflows: 00000
//   # Histogram Overflow at cycle number:
//   # Thread 0:
//
// Latencies are truncated to whole microseconds, as cyclictest does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tickmon {

struct LatencyHistogram {
    /// Ticks counted.
    uint64_t total = 0;
    /// buckets[i]: ticks with a latency of i microseconds.
    std::vector<uint64_t> buckets;
    /// Ticks at or beyond the last bucket, and the cycle numbers (0-based
    /// tick index) of the first kMaxOverflowCycles of them.
    uint64_t overflows = 0;
    std::vector<uint64_t> overflowCycles;
    uint64_t minUs = 0;
    uint64_t avgUs = 0;
    uint64_t maxUs = 0;
};

constexpr size_t kMaxOverflowCycles = 1000;

/// Sorts nanosecond latencies (in tick order) into `bucketCount` buckets.
LatencyHistogram buildHistogram(const std::vector<int64_t>& latenciesNs, uint32_t bucketCount);

/// The histogram as cyclictest -h text (one measuring thread).
std::string formatCyclictestHistogram(const LatencyHistogram& histogram);

}  // namespace tickmon
