#include "StatisticsClock.h"

#include <atomic>
#include <ctime>

#include "TickPath.h"

namespace zyn_ts {

namespace {

constexpr int64_t kNsPerSecond = 1000000000;

// Read by the tick thread while a test thread may install another clock.
std::atomic<StatisticsClockSource> installedClock{&monotonicNowNs};

}  // namespace

ZYN_TS_TICK_PATH int64_t monotonicNowNs() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * kNsPerSecond + static_cast<int64_t>(now.tv_nsec);
}

void setStatisticsClock(StatisticsClockSource source) {
    installedClock.store(source != nullptr ? source : &monotonicNowNs, std::memory_order_relaxed);
}

ZYN_TS_TICK_PATH int64_t statisticsNowNs() { return installedClock.load(std::memory_order_relaxed)(); }

}  // namespace zyn_ts
