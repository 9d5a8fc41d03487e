// A statistics clock that only the test moves: a tick function "takes" a
// known time by advancing it, so durations are exact whatever the host does.
#pragma once

#include <atomic>
#include <cstdint>

#include "StatisticsClock.h"
#include "ZynSupport/MonotonicClock.h"

namespace test_support {

class ScriptedClock {
public:
    static constexpr int64_t kMs = zyn_support::kNanosecondsPerMillisecond;
    static constexpr int64_t kUs = zyn_support::kNanosecondsPerMicrosecond;

    /// Installs the clock (starting at an arbitrary non-zero instant) for
    /// the lifetime of this object.
    ScriptedClock() {
        nowNs().store(1000 * kMs);
        zyn_ts::setStatisticsClock(&read);
    }
    ~ScriptedClock() { zyn_ts::setStatisticsClock(nullptr); }
    ScriptedClock(const ScriptedClock&) = delete;
    ScriptedClock& operator=(const ScriptedClock&) = delete;

    static void advance(int64_t ns) { nowNs().fetch_add(ns); }

    /// How often the library has read the clock since the process started.
    static uint64_t readings() { return readingCount().load(); }

    /// Runs `pass` and returns how many readings the library took in it
    /// before `seenInside`, a readings() count that the pass stores.
    template <typename Pass>
    static uint64_t readingsBefore(const uint64_t& seenInside, Pass pass) {
        const uint64_t before = readings();
        pass();
        return seenInside - before;
    }

private:
    static std::atomic<int64_t>& nowNs() {
        static std::atomic<int64_t> value{0};
        return value;
    }
    static std::atomic<uint64_t>& readingCount() {
        static std::atomic<uint64_t> value{0};
        return value;
    }
    static int64_t read() {
        readingCount().fetch_add(1);
        return nowNs().load();
    }
};

}  // namespace test_support
