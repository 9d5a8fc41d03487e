#include "StatisticsClock.h"

#include <atomic>
#include <ctime>

#include "ZynSupport/MonotonicClock.h"

namespace zyn_ts {

namespace {

// Read by the tick thread while a test thread may install another clock.
std::atomic<StatisticsClockSource> installedClock{&monotonicNowNs};

}  // namespace

int64_t monotonicNowNs() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return zyn_support::toNanoseconds(now);
}

void setStatisticsClock(StatisticsClockSource source) {
    installedClock.store(source != nullptr ? source : &monotonicNowNs, std::memory_order_relaxed);
}

int64_t statisticsNowNs() { return installedClock.load(std::memory_order_relaxed)(); }

}  // namespace zyn_ts
