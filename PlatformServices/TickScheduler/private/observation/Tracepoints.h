// The library's LTTng tracepoint sites.
//
// Built with LTTng-UST's headers (ZYN_TS_WITH_LTTNG), each site is one load
// of the tracepoint's state and a branch that predicts "no session": the
// probes are in a separate provider object that the library opens when it is
// installed (TracepointProvider.h), so the library never links liblttng-ust
// and a board without LTTng runs the same binary with every site dormant.
// Built without them, the sites compile to nothing.
//
// The tick path asks tracepointsListening() once a pass and walks its
// handlers with the observed walk only then; the plain walk carries no site.
#pragma once

#ifdef ZYN_TS_WITH_LTTNG
#include "ZynTickTracepoints.h"
#define ZYN_TS_TRACEPOINT(event, ...) lttng_ust_tracepoint(zyn_tick, event, __VA_ARGS__)
#define ZYN_TS_TRACEPOINT_ENABLED(event) lttng_ust_tracepoint_enabled(zyn_tick, event)
#else
// The arguments are still "used", so that a build without tracepoints
// compiles the same code without unused-variable warnings; they are plain
// values, which the optimiser drops.
#define ZYN_TS_TRACEPOINT(event, ...) ::zyn_ts::ignoreTracepoint(__VA_ARGS__)
#define ZYN_TS_TRACEPOINT_ENABLED(event) false
#endif

namespace zyn_ts {

template <typename... Arguments>
inline void ignoreTracepoint(const Arguments&... /*arguments*/) {}

/// The scheduler field of every event.
enum class TracedScheduler : int { Scheduler = 0, Fast = 1 };

/// True while a session records any of a pass's events.
inline bool tracepointsListening() {
    return ZYN_TS_TRACEPOINT_ENABLED(pass_begin) || ZYN_TS_TRACEPOINT_ENABLED(pass_end) ||
           ZYN_TS_TRACEPOINT_ENABLED(call_begin) || ZYN_TS_TRACEPOINT_ENABLED(call_end) ||
           ZYN_TS_TRACEPOINT_ENABLED(overrun);
}

}  // namespace zyn_ts
