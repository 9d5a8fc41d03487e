// Real-time round-robin scheduling for the threads of a timing test.
//
// On the target the oscillator thread runs under SCHED_RR; the platform
// double only records that request. Timing tests grant it themselves, and
// also to the test thread, so that the instants the test measures around its
// calls are not skewed by the other processes of a loaded machine. Where the
// system refuses real-time scheduling, the tests assert only what holds
// without it.
#pragma once

#include <pthread.h>
#include <sched.h>

namespace oscillator_test {

/// The priorities used by the timing tests: the oscillator above the test
/// thread, both above every normal process.
constexpr int kTestThreadPriority = 40;
constexpr int kOscillatorThreadPriority = 50;

/// Applies SCHED_RR at `priority` to `thread`; true when the system agreed.
inline bool applyRoundRobin(pthread_t thread, int priority) {
    sched_param parameters{};
    parameters.sched_priority = priority;
    return pthread_setschedparam(thread, SCHED_RR, &parameters) == 0;
}

/// Runs the calling thread under SCHED_RR for the life of the object.
class RealTimeScope {
public:
    explicit RealTimeScope(int priority) {
        pthread_getschedparam(pthread_self(), &previousPolicy, &previousParameters);
        granted = applyRoundRobin(pthread_self(), priority);
    }
    ~RealTimeScope() {
        if (granted) {
            pthread_setschedparam(pthread_self(), previousPolicy, &previousParameters);
        }
    }
    RealTimeScope(const RealTimeScope&) = delete;
    RealTimeScope& operator=(const RealTimeScope&) = delete;

    bool isGranted() const { return granted; }

private:
    int previousPolicy = SCHED_OTHER;
    sched_param previousParameters{};
    bool granted = false;
};

}  // namespace oscillator_test
