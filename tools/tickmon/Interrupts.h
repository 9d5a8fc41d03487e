// Ctrl-C and SIGTERM end a run with its report, and never reach the
// real-time thread.
#pragma once

#include <signal.h>

namespace tickmon {

/// Ctrl-C and SIGTERM end the run with a report; a second one ends the
/// process at once (the handler is reset after the first).
void installInterruptHandlers();

/// Whether Ctrl-C or SIGTERM came since installInterruptHandlers.
bool interruptRequested();

/// Blocks SIGINT and SIGTERM while alive: threads started meanwhile (the
/// oscillator) inherit the mask, so the signals always reach the main thread
/// and never interrupt the real-time thread's sleep.
class InterruptsBlocked {
public:
    InterruptsBlocked();
    ~InterruptsBlocked();
    InterruptsBlocked(const InterruptsBlocked&) = delete;
    InterruptsBlocked& operator=(const InterruptsBlocked&) = delete;

private:
    sigset_t previous;
};

}  // namespace tickmon
