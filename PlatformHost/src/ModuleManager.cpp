// The reference module manager: modules, their phase callbacks and the phases
// each callback subscribes to; runs phases on request of the host.
//
// A module shut down keeps its callbacks, so phases run after the shut-down
// still reach it (it refuses them while not initialised), until it registers
// its id again: that starts a new life, in which the old callbacks are gone.

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "CModuleManager.h"
#include "PlatformHost/HostResultCodes.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "ZynSupport/GuardedMutex.h"

namespace {

namespace result = platform_host::host_result;

struct Callback {
    uint32_t moduleId;
    std::string name;
    // The module owns the record and keeps it alive; its fields are read when
    // the phase runs, so a module may fill them in after registering.
    SPhaseCallbackContext* record;
    std::vector<uint32_t> phases;
};

struct Registry {
    zyn_support::GuardedMutex mutex;
    std::map<uint32_t, bool> shutDownByModule ZYN_GUARDED_BY(mutex);  // every registered module
    std::vector<Callback> callbacks ZYN_GUARDED_BY(mutex);            // in registration order
};

// Modules register from their libraries' static constructors, possibly before
// this library's own statics exist: the registry is created on first use and
// never destroyed, so it also outlives every static destructor.
Registry& registry() {
    static auto* const instance = new Registry;
    return *instance;
}

bool contains(const std::vector<uint32_t>& phases, uint32_t phase) {
    return std::find(phases.begin(), phases.end(), phase) != phases.end();
}

// The callbacks of `phase`, copied so that they can be called without the
// lock. A shut-down phase marks every module registered now as shut down.
std::vector<Callback> beginPhase(uint32_t phase) {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    if (contains(platform_host::shutdownPhases(), phase)) {
        for (auto& module : reg.shutDownByModule) {
            module.second = true;
        }
    }
    std::vector<Callback> subscribers;
    std::copy_if(reg.callbacks.begin(), reg.callbacks.end(), std::back_inserter(subscribers),
                 [phase](const Callback& callback) { return contains(callback.phases, phase); });
    return subscribers;
}

}  // namespace

extern "C" uint32_t CModuleManager_RegisterModule(uint32_t moduleId, const char* moduleName) {
    if (moduleName == nullptr) {
        return result::ModuleManagerBadArgument;
    }
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    const auto [module, isNew] = reg.shutDownByModule.emplace(moduleId, false);
    if (isNew) {
        return result::Success;
    }
    if (!module->second) {
        return result::ModuleAlreadyRegistered;
    }
    // A new life of a module that was shut down.
    module->second = false;
    reg.callbacks.erase(std::remove_if(reg.callbacks.begin(), reg.callbacks.end(),
                                       [moduleId](const Callback& callback) { return callback.moduleId == moduleId; }),
                        reg.callbacks.end());
    return result::Success;
}

// The three parameters the platform interface carries for the manager's own
// use do not change how this manager runs phases.
extern "C" uint32_t CModuleManager_RegisterCallback(uint32_t moduleId, const char* callbackName, uint32_t /*param1*/,
                                                    SPhaseCallbackContext* callbackContext, uint32_t /*param2*/,
                                                    uint32_t /*param3*/, const uint32_t* phases, uint32_t phaseCount) {
    if (callbackName == nullptr || callbackContext == nullptr || callbackContext->callback == nullptr ||
        (phases == nullptr && phaseCount != 0)) {
        return result::ModuleManagerBadArgument;
    }
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    if (reg.shutDownByModule.count(moduleId) == 0) {
        return result::UnknownModule;
    }
    std::vector<uint32_t> subscribed;
    if (phaseCount != 0) {
        subscribed.assign(phases, phases + phaseCount);
    }
    reg.callbacks.push_back(Callback{moduleId, callbackName, callbackContext, std::move(subscribed)});
    return result::Success;
}

namespace platform_host {

const std::vector<uint32_t>& startupPhases() {
    static const std::vector<uint32_t> phases{11, 12, 13, 14, 15};
    return phases;
}

const std::vector<uint32_t>& shutdownPhases() {
    static const std::vector<uint32_t> phases{16};
    return phases;
}

std::vector<PhaseCallResult> runPhase(uint32_t phase) {
    // Called without the lock: a callback may register modules, callbacks or
    // interfaces. What it registers takes part from the next phase on.
    std::vector<PhaseCallResult> results;
    for (const Callback& callback : beginPhase(phase)) {
        const PhaseCallback function = callback.record->callback;
        const uint32_t called =
            function != nullptr ? function(callback.record->context, phase) : result::CallbackMissing;
        results.push_back(PhaseCallResult{callback.moduleId, callback.name, phase, called});
    }
    return results;
}

std::vector<PhaseCallResult> runPhases(const std::vector<uint32_t>& phases) {
    std::vector<PhaseCallResult> results;
    for (uint32_t phase : phases) {
        const std::vector<PhaseCallResult> phaseResults = runPhase(phase);
        results.insert(results.end(), phaseResults.begin(), phaseResults.end());
    }
    return results;
}

std::vector<PhaseCallResult> runStartup() { return runPhases(startupPhases()); }

std::vector<PhaseCallResult> runShutdown() { return runPhases(shutdownPhases()); }

bool isModuleRegistered(uint32_t moduleId) {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    return reg.shutDownByModule.count(moduleId) != 0;
}

void resetModuleManager() {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    reg.shutDownByModule.clear();
    reg.callbacks.clear();
}

}  // namespace platform_host
