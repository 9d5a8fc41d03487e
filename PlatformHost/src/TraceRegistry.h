// The process-wide state of the trace service: the live trace objects, the
// levels set per module name (from KIV_TRACE and setTraceLevel) and where
// finished lines go.
//
// Trace objects are constructed from static constructors of libraries that
// may be initialised before this one, and destroyed from static destructors
// that may run after it is finalised. So nothing here is a non-trivial static:
// the registry is created on first use (reading KIV_TRACE then, once) and is
// never destroyed.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "KivTrace.h"

namespace platform_host::detail {

/// What a KivTrace's `impl` points to.
struct TraceState {
    /// Read on every level test by any thread: a relaxed atomic, so that the
    /// test is a single load and a level change is seen promptly.
    std::atomic<uint32_t> level;
    uint32_t headerOption;
    std::string moduleName;
    // The registry's list of live objects; guarded by the registry's lock.
    TraceState* previous;
    TraceState* next;
};

/// Creates the state of a new trace object and enters it in the registry. Its
/// level is the one set for `moduleName` (KIV_TRACE or setTraceLevel) if any,
/// otherwise `defaultLevel`.
TraceState* attachTraceObject(const char* moduleName, uint32_t defaultLevel, uint32_t headerOption);

/// Removes the state from the registry and frees it.
void detachTraceObject(TraceState* state);

/// Hands one finished line (without newline) to the sink, or writes it with
/// its newline to stderr in a single write. Lines never interleave.
void emitTraceLine(const std::string& line);

}  // namespace platform_host::detail
