// Lowering the timer slack of a thread.
//
// Linux lets a sleep of a normal (non-real-time) thread end up to its timer
// slack late (50 us by default) so that wake-ups can be merged. A thread that
// was refused a real-time priority still keeps precise sleeps with a slack of
// 1 ns. The kernel offers this only to the thread itself
// (prctl(PR_SET_TIMERSLACK)), so for another thread the call is made on that
// thread: it is sent a real-time signal whose handler makes the call there.
#pragma once

#include <pthread.h>

#include <cstdint>

namespace platform_host::detail {

/// Sets the timer slack of `thread` (a thread of this process) to 1 ns, the
/// minimum. On the calling thread directly; on another thread through a
/// signal, which interrupts a sleep of that thread (it sees EINTR), and only
/// when the signal is free for this use (its disposition is the default, or
/// this service already owns it) and that thread does not block it; waits up
/// to `timeoutMs` for the other thread to run the handler. Returns true when
/// the slack was set.
bool lowerTimerSlack(pthread_t thread, uint32_t timeoutMs = 200);

/// The signal used to reach other threads (a real-time signal near the top of
/// the range, where applications rarely claim one).
int timerSlackSignal();

}  // namespace platform_host::detail
