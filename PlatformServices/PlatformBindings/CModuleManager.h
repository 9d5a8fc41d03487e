/// @file
/// Module manager binding: module registration and phase callbacks.
///
/// The library calls the platform's module manager only through these
/// declarations; a platform whose own header has the same signatures can
/// replace this file.
#pragma once

#include <cstdint>

extern "C" {

/// A phase callback: called by the module manager with the record's context
/// and the phase being activated; returns a result code.
typedef uint32_t (*PhaseCallback)(void* context, uint32_t phase);

/// The record a module hands to the module manager for its phase callback.
/// The module keeps it in static storage; the module manager keeps its address.
struct SPhaseCallbackContext {
    void* context;           ///< Handed to `callback` unchanged.
    PhaseCallback callback;  ///< Called for each subscribed phase.
};

/// Registers a module. Result: below 32768 success, 32768 (TickResult::FirstError) and
/// above refusal.
uint32_t CModuleManager_RegisterModule(uint32_t moduleId, const char* moduleName);

/// Registers a module's phase callback with the phases it subscribes to,
/// in the order given. Result: below 32768 success, 32768 (TickResult::FirstError) and
/// above refusal.
uint32_t CModuleManager_RegisterCallback(uint32_t moduleId, const char* callbackName, uint32_t param1,
                                         SPhaseCallbackContext* callbackContext, uint32_t param2, uint32_t param3,
                                         const uint32_t* phases, uint32_t phaseCount);
}
