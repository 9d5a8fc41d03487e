#include "SleepFaults.h"

#include <cerrno>
#include <mutex>

#include "ZynSupport/MonotonicClock.h"

extern "C" int __real_clock_nanosleep(clockid_t clock, int flags, const struct timespec* request,
                                      struct timespec* remain);

namespace sleep_faults {
namespace {

struct State {
    std::mutex mutex;
    Mode mode = Mode::Pass;
    int error = 0;
    uint32_t remaining = 0;
    bool unlimited = false;
    std::vector<Event> events;
};

State& state() {
    static State* const instance = new State;
    return *instance;
}

/// The mode of this call, counting it against the script.
Mode takeMode(int& error) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.mode == Mode::Pass || (!s.unlimited && s.remaining == 0)) {
        return Mode::Pass;
    }
    if (!s.unlimited) {
        --s.remaining;
    }
    error = s.error;
    return s.mode;
}

void record(const Event& event) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.events.push_back(event);
}

}  // namespace

void script(Mode mode, int error, uint32_t count) {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.mode = mode;
    s.error = error;
    s.remaining = count;
    s.unlimited = count == 0;
}

void disarm() { script(Mode::Pass, 0, 0); }

void noteTick() {
    Event event{};
    event.kind = Event::Tick;
    record(event);
}

std::vector<Event> log() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.events;
}

void clearLog() {
    State& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.events.clear();
}

}  // namespace sleep_faults

using sleep_faults::Event;
using sleep_faults::Mode;

extern "C" int __wrap_clock_nanosleep(clockid_t clock, int flags, const struct timespec* request,
                                      struct timespec* remain) {
    Event event{};
    event.kind = Event::Sleep;
    event.clock = clock;
    event.flags = flags;
    event.requestNs = zyn_support::toNanoseconds(*request);
    event.remainIsRequest = remain == request;
    int error = 0;
    switch (sleep_faults::takeMode(error)) {
        case Mode::Pass:
            event.result = __real_clock_nanosleep(clock, flags, request, remain);
            break;
        case Mode::FailAfterSleeping:
            (void)__real_clock_nanosleep(clock, flags, request, nullptr);
            event.result = error;
            break;
        case Mode::FailAtOnce:
            event.result = error;
            break;
        case Mode::InterruptHalfway: {
            const int64_t requested = event.requestNs;
            const timespec half = zyn_support::toTimespec(requested / 2);
            (void)__real_clock_nanosleep(clock, 0, &half, nullptr);
            event.remainNs = requested - requested / 2;
            if (remain != nullptr) {
                *remain = zyn_support::toTimespec(event.remainNs);
            }
            event.result = EINTR;
            break;
        }
    }
    sleep_faults::record(event);
    return event.result;
}
