// What the end-to-end tests of both scheduler modules on the reference
// platform share: the results one module's phase callback gave, waiting for
// a condition without hanging, and reading the trace service's lines.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "BoundedWait.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "TraceCapture.h"

namespace host_run {

/// One module as the module manager calls it: its id and the name its phase
/// callback is registered under.
class ModulePhases {
public:
    ModulePhases(uint32_t id, std::string callback) : moduleId(id), callbackName(std::move(callback)) {}

    /// The results this module's callback gave among `results`; each must
    /// have come through its registered callback.
    std::vector<uint32_t> of(const std::vector<platform_host::PhaseCallResult>& results) const {
        std::vector<uint32_t> ours;
        for (const platform_host::PhaseCallResult& result : results) {
            if (result.moduleId == moduleId) {
                EXPECT_EQ(result.callbackName, callbackName);
                ours.push_back(result.result);
            }
        }
        return ours;
    }

    /// Runs `phase` through the module manager; the results of this module.
    std::vector<uint32_t> run(uint32_t phase) const { return of(platform_host::runPhase(phase)); }

private:
    uint32_t moduleId;
    std::string callbackName;
};

/// Guards against a hang only; a working scheduler gets anywhere here in
/// milliseconds.
constexpr std::chrono::seconds kHangGuard{20};

/// Polls `condition` until it holds; false when the hang guard ran out.
template <typename Condition>
bool eventually(Condition condition) {
    return test_support::eventually(condition, kHangGuard);
}

/// The texts of the messages among `lines` that trace module `traceModule`
/// wrote at `level` under `function`, in order.
inline std::vector<std::string> messageTexts(const std::vector<std::string>& lines, const std::string& traceModule,
                                             uint32_t level, const std::string& function) {
    const std::string marker = traceModule + " L" + std::to_string(level) + " " + function + ": ";
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        const std::string::size_type at = line.find(marker);
        if (at != std::string::npos) {
            found.push_back(line.substr(at + marker.size()));
        }
    }
    return found;
}

/// Whether any of `lines` holds `text`.
inline bool anyLineHolds(const std::vector<std::string>& lines, const std::string& text) {
    for (const std::string& line : lines) {
        if (line.find(text) != std::string::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace host_run
