#include "LatencyHistogram.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace tickmon {

LatencyHistogram buildHistogram(const std::vector<int64_t>& latenciesNs, uint32_t bucketCount) {
    LatencyHistogram histogram;
    histogram.buckets.assign(bucketCount, 0);
    uint64_t sumUs = 0;
    for (size_t cycle = 0; cycle < latenciesNs.size(); ++cycle) {
        const uint64_t us = static_cast<uint64_t>(std::max<int64_t>(latenciesNs[cycle], 0) / 1000);
        if (us < bucketCount) {
            ++histogram.buckets[us];
        } else {
            ++histogram.overflows;
            if (histogram.overflowCycles.size() < kMaxOverflowCycles) {
                histogram.overflowCycles.push_back(cycle);
            }
        }
        histogram.minUs = cycle == 0 ? us : std::min(histogram.minUs, us);
        histogram.maxUs = std::max(histogram.maxUs, us);
        sumUs += us;
    }
    histogram.total = latenciesNs.size();
    histogram.avgUs = histogram.total == 0 ? 0 : sumUs / histogram.total;
    return histogram;
}

namespace {

void appendFormatted(std::string& out, const char* format, uint64_t value) {
    char line[64];
    std::snprintf(line, sizeof line, format, value);
    out += line;
}

}  // namespace

std::string formatCyclictestHistogram(const LatencyHistogram& histogram) {
    std::string out = "# Histogram\n";
    out.reserve(out.size() + histogram.buckets.size() * 14 + 256);
    for (size_t bucket = 0; bucket < histogram.buckets.size(); ++bucket) {
        char line[64];
        std::snprintf(line, sizeof line, "%06d %06" PRIu64 "\n", static_cast<int>(bucket), histogram.buckets[bucket]);
        out += line;
    }
    appendFormatted(out, "# Total: %09" PRIu64 "\n", histogram.total);
    appendFormatted(out, "# Min Latencies: %05" PRIu64 "\n", histogram.minUs);
    appendFormatted(out, "# Avg Latencies: %05" PRIu64 "\n", histogram.avgUs);
    appendFormatted(out, "# Max Latencies: %05" PRIu64 "\n", histogram.maxUs);
    appendFormatted(out, "# Histogram Overflows: %05" PRIu64 "\n", histogram.overflows);
    out += "# Histogram Overflow at cycle number:\n# Thread 0:";
    for (const uint64_t cycle : histogram.overflowCycles) {
        appendFormatted(out, " %05" PRIu64, cycle);
    }
    if (histogram.overflows > histogram.overflowCycles.size()) {
        appendFormatted(out, " # %05" PRIu64 " others", histogram.overflows - histogram.overflowCycles.size());
    }
    out += "\n";
    return out;
}

}  // namespace tickmon
