// Host-side control of the reference trace service.
//
// Each KivTrace object has a level, starting at its constructor's level. The
// environment variable KIV_TRACE (for example "ZYN.TS:7" or
// "ZYN.TS:7,OTHER:2") overrides it per module name; it is read once, and a
// malformed value is reported once on stderr and ignored.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace platform_host {

/// Sets the level of every trace object with `moduleName`, now and for those
/// constructed later (levels up to and including `level` are enabled).
void setTraceLevel(const std::string& moduleName, uint32_t level);

/// The current level of `moduleName` (0 when unknown).
uint32_t traceLevel(const std::string& moduleName);

/// Where finished lines go: by default stderr. An empty function restores
/// stderr. The sink is called with one complete line, without the newline,
/// one line at a time (never concurrently), so it needs no lock of its own; it
/// must not trace or call setTraceSink itself. Once setTraceSink returns, the
/// previous sink is not running and is not called again.
///
/// A line reads: "<seconds>.<microseconds> <tid> <module> L<level> <function>:
/// <text>" for a message and "... L<level> -> <function>[: <text>]" for a
/// function entry; the timestamp is CLOCK_MONOTONIC and the tid the kernel's.
void setTraceSink(std::function<void(const std::string& line)> sink);

}  // namespace platform_host
