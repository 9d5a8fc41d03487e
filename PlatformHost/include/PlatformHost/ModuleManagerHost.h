// Host-side control of the reference module manager: what the platform's
// start-up code does on a target, running phases over the registered modules.
// Not a binding: the library never calls these.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform_host {

/// The result of one phase callback.
struct PhaseCallResult {
    uint32_t moduleId;
    std::string callbackName;
    uint32_t phase;
    uint32_t result;
};

/// Phases of the reference start-up sequence, in order: 11, 12, 13, 14, 15.
const std::vector<uint32_t>& startupPhases();
/// Phases of the reference shut-down sequence: 16.
const std::vector<uint32_t>& shutdownPhases();

/// Calls every callback subscribed to `phase`, in registration order, and
/// reports each callback's result. The callbacks run without the manager's
/// lock held, so they may register modules and callbacks; what they register
/// takes part from the next phase on. A phase of shutdownPhases() marks every
/// module registered at its start as shut down: such a module keeps its
/// callbacks, and may register its id again, which starts a new life in which
/// its old callbacks are forgotten.
std::vector<PhaseCallResult> runPhase(uint32_t phase);

/// Runs `phases` one after the other; the results of all callbacks in order.
std::vector<PhaseCallResult> runPhases(const std::vector<uint32_t>& phases);

/// runPhases(startupPhases()) and runPhases(shutdownPhases()).
std::vector<PhaseCallResult> runStartup();
std::vector<PhaseCallResult> runShutdown();

/// True when `moduleId` is registered.
bool isModuleRegistered(uint32_t moduleId);

/// Forgets every module and callback (for tests that start over).
void resetModuleManager();

}  // namespace platform_host
