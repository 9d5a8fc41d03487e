// Reading the kernel's text files (/proc, /sys) the one way the monitor
// does: a whole file at once, nothing when it cannot be read, and the fields
// of a thread's stat line counted as proc(5) counts them.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tickmon {

/// The whole file, or nothing when it cannot be opened.
std::optional<std::string> readWholeFile(const std::string& path);

/// "/proc/self/task/<tid>/<file>": a file of one thread of this process.
std::string taskFilePath(pid_t tid, const char* file);

/// The first field of a stat line after the thread's name, as proc(5)
/// numbers it (the state).
constexpr size_t kFirstStatFieldAfterName = 3;

/// The fields of a /proc stat line after the thread's name, which may hold
/// blanks and parentheses, so the name ends at the last ')'. Element 0 is
/// field kFirstStatFieldAfterName. Nothing when the line has no name.
std::optional<std::vector<std::string>> statFieldsAfterName(const std::string& line);

}  // namespace tickmon
