// How a scheduler module starts up with the platform: it refuses a second
// initialisation, then registers the module and its phase callback with the
// module manager, prepares its interface object, and registers that object
// with the interface broker, in this order, and stops at the first step the
// platform refuses. Both modules take
// exactly these steps. Nothing here traces: each module traces a refusal
// from its own source file, in its own words (RefusalText).
#pragma once

#include <cstdint>
#include <ostream>

#include "CModuleManager.h"
#include "InterfaceBroker.h"

namespace zyn_ts {

/// The names under which the platform knows one module.
struct ModulePlatformNames {
    uint32_t moduleId;
    const char* moduleName;
    /// The name the module manager knows the phase callback by.
    const char* callbackName;
    /// The name of the module's interface object with the broker.
    const char* interfaceName;
};

/// The steps in the order they are taken; `Done` when all succeeded.
enum class StartUpStep : uint8_t { InitializedCheck, Module, Callback, Interface, Done };

/// Where the start-up stopped and what the platform answered there.
struct StartUpOutcome {
    StartUpStep failedStep;
    uint32_t platformResult;
};

/// Traces a refusal; each module passes its own, so that the trace carries
/// the module's source file.
using RefusalTrace = void (*)(const StartUpOutcome& outcome);

/// Constructs the module's interface object on its first call and stores
/// every operation into its slots on every call, so that each start-up that
/// gets past the module manager hands the broker a complete object, whatever
/// a client did to a slot since; returns the object's IInterface part.
using InterfacePreparation = IInterface& (*)();

/// Takes the steps: refused at once when `alreadyInitialized`; the phase
/// callback subscribes to `phaseCount` phases from `phases`;
/// `prepareInterface` runs only once both module-manager steps succeeded,
/// right before the broker is asked. The module
/// manager keeps the addresses of the phase list and of the callback record
/// (filled right before it is handed over), so both must live in static
/// storage. No step undoes an earlier one: what the platform accepted stays
/// registered. Results: TickResult::Success; on a refusal, after `trace`,
/// TickResult::AlreadyInitialized, ModuleRegistrationFailed,
/// CallbackRegistrationFailed or Failure (the interface) by step.
uint32_t startUpWithPlatform(bool alreadyInitialized, const ModulePlatformNames& names, const uint32_t* phases,
                             uint32_t phaseCount, SPhaseCallbackContext& callbackRecord, PhaseCallback callback,
                             InterfacePreparation prepareInterface, RefusalTrace trace);

/// The same for a phase list given as a static array.
template <uint32_t PhaseCount>
uint32_t startUpWithPlatform(bool alreadyInitialized, const ModulePlatformNames& names,
                             const uint32_t (&phases)[PhaseCount], SPhaseCallbackContext& callbackRecord,
                             PhaseCallback callback, InterfacePreparation prepareInterface, RefusalTrace trace) {
    return startUpWithPlatform(alreadyInitialized, names, phases, PhaseCount, callbackRecord, callback,
                               prepareInterface, trace);
}

/// Whose words a refusal is traced in: the two modules' texts drifted apart
/// long ago, and each keeps its own.
enum class ModuleWording : uint8_t { Scheduler, FastScheduler };

/// Streams the text of the step at which `outcome` stopped, in `wording`.
struct RefusalText {
    ModuleWording wording;
    const StartUpOutcome& outcome;
};

std::ostream& operator<<(std::ostream& out, const RefusalText& refusal);

}  // namespace zyn_ts
