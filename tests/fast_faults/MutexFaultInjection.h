// Scripted failures of pthread_mutex_init, pthread_mutex_lock and
// pthread_mutex_unlock for one chosen mutex, in a binary linked with
// --wrap for those three functions.
//
// Every other mutex of the process (std::mutex in the test double, in
// GoogleTest, in the C++ runtime) goes through the same wrappers and is never
// affected: a failure is injected only for the target address and only while
// armed.
#pragma once

#include <pthread.h>

#include <cstdint>

namespace mutex_faults {

enum class Operation { Init, Lock, Unlock };

/// From now on, the `nth` call (1 = the next one) of `operation` on `target`
/// fails with `error`; the calls before it and after it behave normally.
void failNth(Operation operation, pthread_mutex_t* target, uint32_t nth, int error);

/// Every call of `operation` on `target` fails with `error` until disarmed.
void failAlways(Operation operation, pthread_mutex_t* target, int error);

/// No more injected failures.
void disarm();

/// Calls of `operation` on `target` since the last disarm, failed or not.
uint32_t calls(Operation operation);

}  // namespace mutex_faults
