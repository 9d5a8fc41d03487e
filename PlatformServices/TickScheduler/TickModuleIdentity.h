/// @file
/// How the platform's module manager knows the two scheduler modules: their
/// module ids and the phase codes they subscribe to.
///
/// The module manager drives every module through numbered phases; these are
/// the numbers both schedulers register for, named once so that the library,
/// the reference platform, the tools and the tests say the same thing.
#pragma once

#include <cstdint>

/// Module ids and phase codes of the scheduler modules.
namespace TickModule {
/// Module id of `CTickScheduler` with the module manager.
constexpr uint32_t SchedulerModuleId = 22000;
/// Module id of `CTickSchedulerFast` with the module manager.
constexpr uint32_t FastSchedulerModuleId = 22001;

/// The phase codes the module manager announces.
namespace Phase {
/// Each module configures its oscillator and registers its tick receiver.
constexpr uint32_t Configure = 11;
/// Acknowledged by both modules; nothing changes.
constexpr uint32_t Idle = 13;
/// `CTickScheduler` lists its handlers and starts its oscillator; the fast
/// module does not subscribe to it.
constexpr uint32_t StartTicks = 14;
/// Each module stops its oscillator and withdraws its interface.
constexpr uint32_t ShutDown = 16;
}  // namespace Phase
}  // namespace TickModule
