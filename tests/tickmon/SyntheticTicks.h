// Synthetic tick timestamps with known latencies, for the analysis tests.
#pragma once

#include <cstdint>
#include <vector>

namespace synthetic {

constexpr int64_t kPeriodNs = 6000000;
/// A grid origin far from 0, like a real CLOCK_MONOTONIC reading.
constexpr int64_t kOriginNs = 123456789012345;

struct Tick {
    int64_t gridIndex;
    int64_t latencyNs;
};

/// origin + index x period + latency for each tick, in order.
inline std::vector<int64_t> timestamps(const std::vector<Tick>& ticks, int64_t periodNs = kPeriodNs) {
    std::vector<int64_t> result;
    for (const Tick& tick : ticks) {
        result.push_back(kOriginNs + tick.gridIndex * periodNs + tick.latencyNs);
    }
    return result;
}

/// `count` consecutive ticks, tick i late by latencyOf(i).
template <typename LatencyOf>
std::vector<Tick> consecutive(int64_t count, LatencyOf latencyOf) {
    std::vector<Tick> ticks;
    for (int64_t i = 0; i < count; ++i) {
        ticks.push_back(Tick{i, latencyOf(i)});
    }
    return ticks;
}

}  // namespace synthetic
