#include "VirtualClock.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <limits>
#include <map>
#include <mutex>

#include "ZynSupport/MonotonicClock.h"

extern "C" int __real_clock_gettime(clockid_t clock, struct timespec* value);
extern "C" int __real_clock_nanosleep(clockid_t clock, int flags, const struct timespec* request,
                                      struct timespec* remain);

namespace virtual_clock {
namespace {

constexpr size_t kNoPark = std::numeric_limits<size_t>::max();
/// Generous for a sanitizer build on a loaded machine; a loop that never
/// reaches the awaited sleep fails the test within this.
constexpr auto kRealTimeout = std::chrono::seconds(30);

struct State {
    std::mutex mutex;
    std::condition_variable changed;
    pthread_t installer{};
    int64_t now = 0;
    size_t calls = 0;
    size_t parkAt = kNoPark;
    size_t parkedAt = kNoPark;
    bool released = false;
    bool endOverridden = false;
    int64_t parkedEnd = 0;
    WakeUpPlan plan;
    int64_t readingCost = 0;
    std::map<size_t, int64_t> interruptions;
    std::vector<Sleep> sleeps;
    std::vector<int64_t> readings;
};

std::atomic<bool> installed{false};

State& state() {
    static State* const instance = new State;
    return *instance;
}

/// True when the calling thread lives on the virtual clock.
bool isSimulated(clockid_t clock) {
    return clock == CLOCK_MONOTONIC && installed.load(std::memory_order_acquire) &&
           pthread_equal(pthread_self(), state().installer) == 0;
}

/// Waits, with the lock held, while the test keeps sleep call `index` parked.
void parkIfAsked(State& s, std::unique_lock<std::mutex>& lock, size_t index) {
    if (s.released || index != s.parkAt) {
        return;
    }
    s.parkedAt = index;
    s.changed.notify_all();
    s.changed.wait(lock, [&] { return s.released || s.parkAt != index || !installed.load(); });
    s.parkedAt = kNoPark;
}

/// When the sleep ends: never before the instant it asked for.
int64_t endOf(State& s, size_t index, int64_t requestedEnd) {
    int64_t end = requestedEnd;
    if (s.endOverridden) {
        end = s.parkedEnd;
        s.endOverridden = false;
    } else if (s.plan) {
        end = s.plan(index, requestedEnd);
    }
    return std::max(end, requestedEnd);
}

int simulatedSleep(int flags, const timespec* request, timespec* remain) {
    State& s = state();
    std::unique_lock<std::mutex> lock(s.mutex);
    Sleep sleep;
    sleep.clock = CLOCK_MONOTONIC;
    sleep.flags = flags;
    sleep.remainIsRequest = remain == request;
    sleep.calledAt = s.now;
    const int64_t requestedEnd = (flags & TIMER_ABSTIME) != 0 ? zyn_support::toNanoseconds(*request)
                                                              : s.now + zyn_support::toNanoseconds(*request);
    sleep.requestNs = requestedEnd - sleep.calledAt;
    const size_t index = s.calls++;
    parkIfAsked(s, lock, index);
    int64_t end = endOf(s, index, requestedEnd);
    const auto interruption = s.interruptions.find(index);
    if (interruption != s.interruptions.end()) {
        end = sleep.calledAt + interruption->second;
        sleep.result = EINTR;
        sleep.remainNs = requestedEnd - end;
        if (remain != nullptr && (flags & TIMER_ABSTIME) == 0) {
            *remain = zyn_support::toTimespec(sleep.remainNs);
        }
    }
    s.now = std::max(s.now, end);
    sleep.endedAt = s.now;
    s.sleeps.push_back(sleep);
    return sleep.result;
}

}  // namespace

void install(int64_t startNs) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.installer = pthread_self();
    s.now = startNs;
    s.calls = 0;
    s.parkAt = 0;
    s.parkedAt = kNoPark;
    s.released = false;
    s.endOverridden = false;
    s.plan = nullptr;
    s.readingCost = 0;
    s.interruptions.clear();
    s.sleeps.clear();
    s.readings.clear();
    installed.store(true, std::memory_order_release);
}

void uninstall() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    installed.store(false, std::memory_order_release);
    s.changed.notify_all();
}

int64_t now() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.now;
}

void advance(int64_t nanoseconds) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.now += nanoseconds;
}

void setWakeUpPlan(WakeUpPlan plan) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.plan = std::move(plan);
}

void setReadingCost(int64_t nanoseconds) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.readingCost = nanoseconds;
}

void interruptSleep(size_t sleepIndex, int64_t afterNs) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.interruptions[sleepIndex] = afterNs;
}

bool runUntilSleep(size_t sleepIndex) {
    State& s = state();
    std::unique_lock<std::mutex> lock(s.mutex);
    if (s.parkedAt == sleepIndex) {
        return true;
    }
    if (s.calls > sleepIndex) {
        return false;  // that call is already past
    }
    s.parkAt = sleepIndex;
    s.released = false;
    s.changed.notify_all();
    return s.changed.wait_for(lock, kRealTimeout, [&] { return s.parkedAt == sleepIndex; });
}

void parkAtSleep(size_t sleepIndex) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.parkAt = sleepIndex;
    s.released = false;
}

void endParkedSleepAt(int64_t instant) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.endOverridden = true;
    s.parkedEnd = instant;
}

void releaseParked() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.released = true;
    s.changed.notify_all();
}

void reserveRecords(size_t sleepCount, size_t readingCount) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.sleeps.reserve(sleepCount);
    s.readings.reserve(readingCount);
}

std::vector<Sleep> sleeps() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.sleeps;
}

std::vector<int64_t> readings() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.readings;
}

}  // namespace virtual_clock

extern "C" int __wrap_clock_gettime(clockid_t clock, struct timespec* value) {
    if (!virtual_clock::isSimulated(clock)) {
        return __real_clock_gettime(clock, value);
    }
    virtual_clock::State& s = virtual_clock::state();
    std::lock_guard<std::mutex> lock(s.mutex);
    *value = zyn_support::toTimespec(s.now);
    s.readings.push_back(s.now);
    s.now += s.readingCost;
    return 0;
}

extern "C" int __wrap_clock_nanosleep(clockid_t clock, int flags, const struct timespec* request,
                                      struct timespec* remain) {
    if (!virtual_clock::isSimulated(clock)) {
        return __real_clock_nanosleep(clock, flags, request, remain);
    }
    return virtual_clock::simulatedSleep(flags, request, remain);
}
