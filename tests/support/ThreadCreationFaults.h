// Scripted failures of thread creation.
//
// std::thread creates its thread inside the C++ runtime library, out of reach
// of link-time wrapping, so this binary defines pthread_create itself: the
// runtime's call resolves to it, and while a failure is armed it refuses with
// the armed error, which makes the std::thread constructor throw. Otherwise it
// hands the call on to the sanitizer's interceptor when there is one, else to
// the C library.
#pragma once

#include <cstdint>

#include "NonCopyable.h"

namespace thread_faults {

/// From now on every thread creation of the process fails with `error`.
void failThreadCreation(int error);

/// Thread creation works again.
void allowThreadCreation();

/// Creations refused since the last failThreadCreation.
uint32_t refusedCreations();

/// While an object of this class exists, every thread creation of the process
/// fails with `error` (std::thread then throws std::system_error).
class ThreadCreationRefused : test_support::NonCopyable {
public:
    explicit ThreadCreationRefused(int error) { failThreadCreation(error); }
    ~ThreadCreationRefused() { allowThreadCreation(); }
};

}  // namespace thread_faults
