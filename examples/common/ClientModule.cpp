// Registration of an example client module; see ClientModule.h.

#include "ClientModule.h"

#include "TickResultCodes.h"

namespace {

constexpr uint32_t StartUpPhase = 12;
constexpr uint32_t ShutDownPhase = 16;
const uint32_t subscribedPhases[] = {StartUpPhase, ShutDownPhase};

uint32_t onPhaseActivation(void* context, uint32_t phase) {
    const SClientModule* module = static_cast<const SClientModule*>(context);
    switch (phase) {
        case StartUpPhase:
            return module->startUp();
        case ShutDownPhase:
            return module->shutDown();
        default:
            return TickResult::PhaseNotHandled;
    }
}

}  // namespace

uint32_t ClientModule_Register(SClientModule& module) {
    if (TickResult::isPlatformFailure(CModuleManager_RegisterModule(module.moduleId, module.moduleName))) {
        return TickResult::ModuleRegistrationFailed;
    }
    module.phaseCallbackContext.context = &module;
    module.phaseCallbackContext.callback = &onPhaseActivation;
    // 100, 3 and 0 are the values every module of the platform passes.
    const uint32_t result =
        CModuleManager_RegisterCallback(module.moduleId, module.callbackName, 100, &module.phaseCallbackContext, 3, 0,
                                        subscribedPhases, sizeof(subscribedPhases) / sizeof(subscribedPhases[0]));
    if (TickResult::isPlatformFailure(result)) {
        return TickResult::CallbackRegistrationFailed;
    }
    return TickResult::Success;
}
