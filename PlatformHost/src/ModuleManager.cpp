// The reference module manager: modules, their phase callbacks and the phases
// each callback subscribes to; runs phases on request of the host.
//
// A module id is registered once per life of the module. Once a shut-down
// phase has begun, every module registered at that moment is shut down, and
// its id may be registered again: the new registration starts a new life, and
// the callbacks of the old one are forgotten (the module registers them again).
// Until then the old callbacks stay, so phases run after the shut-down still
// reach the module, which refuses them while it is not initialised.

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "CModuleManager.h"
#include "PlatformHost/HostResultCodes.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "ZynSupport/GuardedMutex.h"

namespace {

namespace result = platform_host::host_result;

struct Module {
    uint32_t id;
    std::string name;
    bool shutDown;
};

struct Callback {
    uint32_t moduleId;
    std::string name;
    // The module owns the record and keeps it alive; its fields are read when
    // the phase runs, so a module may fill them in after registering.
    SPhaseCallbackContext* record;
    std::vector<uint32_t> phases;
    // The three values the platform interface carries for the manager's own
    // use; kept for diagnosis, they do not change how phases run.
    uint32_t param1;
    uint32_t param2;
    uint32_t param3;
};

struct Registry {
    zyn_support::GuardedMutex mutex;
    std::vector<Module> modules ZYN_GUARDED_BY(mutex);
    std::vector<Callback> callbacks ZYN_GUARDED_BY(mutex);  // in registration order
};

// Modules register from their libraries' static constructors, possibly before
// this library's own statics exist: the registry is created on first use and
// never destroyed, so it also outlives every static destructor.
Registry& registry() {
    static auto* const instance = new Registry;
    return *instance;
}

Module* findModule(Registry& reg, uint32_t moduleId) ZYN_REQUIRES(reg.mutex) {
    for (Module& module : reg.modules) {
        if (module.id == moduleId) {
            return &module;
        }
    }
    return nullptr;
}

bool isKnownModule(Registry& reg, uint32_t moduleId) ZYN_REQUIRES(reg.mutex) {
    return findModule(reg, moduleId) != nullptr;
}

void forgetCallbacksOf(Registry& reg, uint32_t moduleId) ZYN_REQUIRES(reg.mutex) {
    std::vector<Callback> kept;
    for (Callback& callback : reg.callbacks) {
        if (callback.moduleId != moduleId) {
            kept.push_back(std::move(callback));
        }
    }
    reg.callbacks = std::move(kept);
}

bool isShutdownPhase(uint32_t phase) {
    for (uint32_t shutdownPhase : platform_host::shutdownPhases()) {
        if (shutdownPhase == phase) {
            return true;
        }
    }
    return false;
}

bool subscribes(const Callback& callback, uint32_t phase) {
    for (uint32_t subscribed : callback.phases) {
        if (subscribed == phase) {
            return true;
        }
    }
    return false;
}

// The callbacks of `phase`, copied so that they can be called without the
// lock. A shut-down phase marks every module registered now as shut down.
std::vector<Callback> beginPhase(uint32_t phase) {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    if (isShutdownPhase(phase)) {
        for (Module& module : reg.modules) {
            module.shutDown = true;
        }
    }
    std::vector<Callback> subscribers;
    for (const Callback& callback : reg.callbacks) {
        if (subscribes(callback, phase)) {
            subscribers.push_back(callback);
        }
    }
    return subscribers;
}

uint32_t call(const Callback& callback, uint32_t phase) {
    const PhaseCallback function = callback.record->callback;
    if (function == nullptr) {
        return result::CallbackMissing;
    }
    return function(callback.record->context, phase);
}

}  // namespace

extern "C" uint32_t CModuleManager_RegisterModule(uint32_t moduleId, const char* moduleName) {
    if (moduleName == nullptr) {
        return result::ModuleManagerBadArgument;
    }
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    Module* const known = findModule(reg, moduleId);
    if (known == nullptr) {
        reg.modules.push_back(Module{moduleId, moduleName, false});
        return result::Success;
    }
    if (!known->shutDown) {
        return result::ModuleAlreadyRegistered;
    }
    // A new life of a module that was shut down.
    forgetCallbacksOf(reg, moduleId);
    known->name = moduleName;
    known->shutDown = false;
    return result::Success;
}

extern "C" uint32_t CModuleManager_RegisterCallback(uint32_t moduleId, const char* callbackName, uint32_t param1,
                                                    SPhaseCallbackContext* callbackContext, uint32_t param2,
                                                    uint32_t param3, const uint32_t* phases, uint32_t phaseCount) {
    if (callbackName == nullptr || callbackContext == nullptr || callbackContext->callback == nullptr ||
        (phases == nullptr && phaseCount != 0)) {
        return result::ModuleManagerBadArgument;
    }
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    if (!isKnownModule(reg, moduleId)) {
        return result::UnknownModule;
    }
    std::vector<uint32_t> subscribed;
    if (phaseCount != 0) {
        subscribed.assign(phases, phases + phaseCount);
    }
    reg.callbacks.push_back(
        Callback{moduleId, callbackName, callbackContext, std::move(subscribed), param1, param2, param3});
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
        const uint32_t callResult = call(callback, phase);
        results.push_back(PhaseCallResult{callback.moduleId, callback.name, phase, callResult});
    }
    return results;
}

std::vector<PhaseCallResult> runPhases(const std::vector<uint32_t>& phases) {
    std::vector<PhaseCallResult> results;
    for (uint32_t phase : phases) {
        std::vector<PhaseCallResult> phaseResults = runPhase(phase);
        results.insert(results.end(), phaseResults.begin(), phaseResults.end());
    }
    return results;
}

std::vector<PhaseCallResult> runStartup() { return runPhases(startupPhases()); }

std::vector<PhaseCallResult> runShutdown() { return runPhases(shutdownPhases()); }

bool isModuleRegistered(uint32_t moduleId) {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    return isKnownModule(reg, moduleId);
}

void resetModuleManager() {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    reg.modules.clear();
    reg.callbacks.clear();
}

}  // namespace platform_host
