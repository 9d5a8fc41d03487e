// Scripted results of clock_nanosleep, in a binary linked with
// --wrap=clock_nanosleep (the oscillator's timing loop is the only caller).
//
// Every call is logged, and so is every tick that a test's receiver notes, in
// one sequence, so a test can tell exactly what the loop did after each
// result: sleep again, retry, or deliver a tick.
#pragma once

#include <time.h>

#include <cstdint>
#include <vector>

namespace sleep_faults {

enum class Mode {
    Pass,               ///< the real sleep, its real result
    FailAfterSleeping,  ///< the real sleep, then `error`
    FailAtOnce,         ///< no sleep at all, `error`
    InterruptHalfway,   ///< half the requested sleep, the rest written back, EINTR
};

/// The next `count` calls (0: every call until disarmed) behave as `mode`.
void script(Mode mode, int error, uint32_t count);

/// Every call sleeps for real; the log is kept.
void disarm();

struct Event {
    enum Kind { Sleep, Tick } kind;
    // For sleeps:
    clockid_t clock = 0;
    int flags = 0;
    int64_t requestNs = 0;
    int64_t remainNs = 0;          ///< what was written back (EINTR)
    bool remainIsRequest = false;  ///< the same record for request and remainder
    int result = 0;
};

/// Records a tick in the sequence (call it from the receiver).
void noteTick();

/// The logged sequence; clearLog() starts a new one.
std::vector<Event> log();
void clearLog();

}  // namespace sleep_faults
