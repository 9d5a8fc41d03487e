/// @file
/// Thread utilities binding: scheduling and naming of a running std::thread.
#pragma once

#include <string>
#include <thread>

namespace os_extension::thread_utilities {

/// Applies `policy` and `priority` to the thread. Returns 0 on success,
/// non-zero when the system refuses.
int setScheduling(std::thread& thread, int policy, int priority);

/// Applies `name` (at most 15 characters on Linux) to the thread. Returns 0
/// on success, non-zero on failure.
int setName(std::thread& thread, const std::string& name);

}  // namespace os_extension::thread_utilities
