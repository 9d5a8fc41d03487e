/// @file
/// Result codes of the library.
///
/// Every operation returns an unsigned 32-bit result: 0 success, 1 to 32767
/// success with a remark, 32768 and above an error.
#pragma once

#include <cstdint>

/// The result codes and their tests.
namespace TickResult {
/// Success.
constexpr uint32_t Success = 0;
/// The module was already initialised; nothing was done (not an error).
constexpr uint32_t AlreadyInitialized = 4097;  // 0x1001
/// The tick grid query filled its record, and the oscillator does not run
/// (not an error; see TickGrid.h).
constexpr uint32_t GridNotRunning = 4098;  // 0x1002
/// General failure.
constexpr uint32_t Failure = 32768;  // 0x8000
/// A required pointer or handle is null; for the oscillator, a bad delay.
constexpr uint32_t NullArgument = 32770;  // 0x8002
/// A start offset not below the handler's tick interval.
constexpr uint32_t OutOfRange = 32771;  // 0x8003
/// The oscillator has not been initialised.
constexpr uint32_t NotInitialized = 32772;  // 0x8004
/// The oscillator thread is already running.
constexpr uint32_t AlreadyRunning = 32774;  // 0x8006
/// Module registration with the module manager failed.
constexpr uint32_t ModuleRegistrationFailed = 32775;  // 0x8007
/// Phase-callback registration with the module manager failed.
constexpr uint32_t CallbackRegistrationFailed = 32776;  // 0x8008
/// The oscillator thread could not be created.
constexpr uint32_t ThreadCreationFailed = 32777;  // 0x8009
/// A mutex could not be initialised, locked or unlocked.
constexpr uint32_t MutexFailure = 32778;  // 0x800A
/// The phase code is not one the module handles.
constexpr uint32_t PhaseNotHandled = 32779;  // 0x800B
/// A handler could not be removed from the fast handler list.
constexpr uint32_t ListRemoveFailed = 32780;  // 0x800C
/// A statistics query named a handler that is not registered with the
/// scheduler asked.
constexpr uint32_t UnknownHandler = 32781;  // 0x800D
/// A tick group id other than 0 or 1.
constexpr uint32_t GroupIdOutOfBounds = 32782;  // 0x800E
/// A statistics query named a handle without figures of its own: the
/// statistics table had no room for some handler at its registration, and
/// this handle is one of those handlers or is not registered at all.
constexpr uint32_t NoFigures = 32783;  // 0x800F
/// A phase callback arrived while the module is not initialised.
constexpr uint32_t ModuleNotInitialized = 32788;  // 0x8014

/// First error value.
constexpr uint32_t FirstError = 32768;

/// True for an error result of this library (unsigned test).
constexpr bool isError(uint32_t result) { return result >= FirstError; }

/// True when a result received from the platform or the oscillator counts as
/// a failure: read as a signed 32-bit number it is 32768 or more, so a value
/// with the top bit set counts as success.
constexpr bool isPlatformFailure(uint32_t result) {
    return static_cast<int32_t>(result) >= static_cast<int32_t>(FirstError);
}
}  // namespace TickResult
