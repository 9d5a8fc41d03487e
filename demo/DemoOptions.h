// Command line of zyn-tickdemo.
#pragma once

#include <cstdint>
#include <string>

struct DemoOptions {
    int32_t priority = 2;     ///< ETickPriority: 0 highest ... 4 lowest
    uint32_t ticks = 167;     ///< 167 x 6 ms: about one second
    int32_t traceLevel = -1;  ///< level of the library's trace module; -1 leaves it alone
    bool help = false;
};

/// Fills `options` from the arguments. Returns false, with `error` set, for an
/// unknown option or a value out of range.
bool parseDemoOptions(int argc, char** argv, DemoOptions& options, std::string& error);

/// The usage text.
std::string demoUsage(const char* program);
