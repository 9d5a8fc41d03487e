// The checks the example programs print, and the start-up and shut-down
// results they check: one line per check, "ok" or "FAILED".
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include "PlatformHost/ModuleManagerHost.h"
#include "TickResultCodes.h"

namespace example_checks {

/// Number of checks that failed so far.
inline int failures = 0;

inline void check(bool holds, const char* what) {
    std::printf("%s: %s\n", holds ? "ok" : "FAILED", what);
    if (!holds) {
        ++failures;
    }
}

/// True when no phase callback returned an error; names each one that did.
inline bool allPhasesSucceeded(const std::vector<platform_host::PhaseCallResult>& results) {
    bool succeeded = true;
    for (const platform_host::PhaseCallResult& call : results) {
        if (TickResult::isError(call.result)) {
            std::printf("phase %u: %s returned %u\n", static_cast<unsigned>(call.phase), call.callbackName.c_str(),
                        static_cast<unsigned>(call.result));
            succeeded = false;
        }
    }
    return succeeded;
}

/// Prints the program's verdict line and returns its exit status: 0 when
/// every check held, 1 otherwise.
inline int verdict(const char* program) {
    std::printf("%s: %s\n", program, failures == 0 ? "all checks passed" : "some checks FAILED");
    return failures == 0 ? 0 : 1;
}

}  // namespace example_checks
