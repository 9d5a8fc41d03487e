#include "PlatformRegistration.h"

#include <cstddef>

#include "TickResultCodes.h"
#include "TraceSite.h"

namespace zyn_ts {

namespace {

// The module manager gives these three arguments of the callback
// registration their meaning; both modules pass them unchanged.
constexpr uint32_t kCallbackParam1 = 100;
constexpr uint32_t kCallbackParam2 = 3;
constexpr uint32_t kCallbackParam3 = 0;

/// One module's text for one step, and whether the platform's answer
/// follows it as eight hex digits.
struct Words {
    const char* text;
    bool withPlatformResult;
};

/// A step's text in each module's words. The fast module's interface text
/// names ITickScheduler, as it always has.
struct StepWords {
    Words scheduler;
    Words fastScheduler;
};

// Indexed by StartUpStep.
constexpr StepWords kRefusalWords[] = {
    {{"Has already been initialized", false}, {"Has already been initialized", false}},
    {{"Failed to register module with ModuleManager", false},
     {"Failed to register module with ModuleManager. Error = ", true}},
    {{"Failed to register module callback with error ", true}, {"Failed to register module callback. Error = ", true}},
    {{"Failed to register ITickScheduler with error ", true}, {"Failed to register ITickScheduler. Error = ", true}},
};

constexpr uint32_t kRefusalResults[] = {TickResult::AlreadyInitialized, TickResult::ModuleRegistrationFailed,
                                        TickResult::CallbackRegistrationFailed, TickResult::Failure};

static_assert(sizeof(kRefusalWords) / sizeof(kRefusalWords[0]) == static_cast<size_t>(StartUpStep::Done),
              "one text a refusing step");
static_assert(sizeof(kRefusalResults) / sizeof(kRefusalResults[0]) == static_cast<size_t>(StartUpStep::Done),
              "one result a refusing step");

StartUpOutcome takeSteps(bool alreadyInitialized, const ModulePlatformNames& names, const uint32_t* phases,
                         uint32_t phaseCount, SPhaseCallbackContext& callbackRecord, PhaseCallback callback,
                         InterfacePreparation prepareInterface) {
    if (alreadyInitialized) {
        return {StartUpStep::InitializedCheck, TickResult::Success};
    }
    uint32_t platformResult = CModuleManager_RegisterModule(names.moduleId, names.moduleName);
    if (TickResult::isPlatformFailure(platformResult)) {
        return {StartUpStep::Module, platformResult};
    }
    callbackRecord.context = nullptr;
    callbackRecord.callback = callback;
    platformResult =
        CModuleManager_RegisterCallback(names.moduleId, names.callbackName, kCallbackParam1, &callbackRecord,
                                        kCallbackParam2, kCallbackParam3, phases, phaseCount);
    if (TickResult::isPlatformFailure(platformResult)) {
        return {StartUpStep::Callback, platformResult};
    }
    IInterface& interfaceObject = prepareInterface();
    platformResult = InterfaceBroker::getInstance()->registerInterface(names.interfaceName, &interfaceObject);
    if (TickResult::isPlatformFailure(platformResult)) {
        return {StartUpStep::Interface, platformResult};
    }
    return {StartUpStep::Done, platformResult};
}

}  // namespace

uint32_t startUpWithPlatform(bool alreadyInitialized, const ModulePlatformNames& names, const uint32_t* phases,
                             uint32_t phaseCount, SPhaseCallbackContext& callbackRecord, PhaseCallback callback,
                             InterfacePreparation prepareInterface, RefusalTrace trace) {
    const StartUpOutcome outcome =
        takeSteps(alreadyInitialized, names, phases, phaseCount, callbackRecord, callback, prepareInterface);
    if (outcome.failedStep == StartUpStep::Done) {
        return TickResult::Success;
    }
    trace(outcome);
    return kRefusalResults[static_cast<size_t>(outcome.failedStep)];
}

std::ostream& operator<<(std::ostream& out, const RefusalText& refusal) {
    const StepWords& step = kRefusalWords[static_cast<size_t>(refusal.outcome.failedStep)];
    const Words& words = refusal.wording == ModuleWording::Scheduler ? step.scheduler : step.fastScheduler;
    out << words.text;
    if (words.withPlatformResult) {
        out << Hex8{refusal.outcome.platformResult};
    }
    return out;
}

}  // namespace zyn_ts
