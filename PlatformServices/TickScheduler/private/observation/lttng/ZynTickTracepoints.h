// The zyn_tick tracepoint provider: what the library tells an LTTng session.
//
// The library's tracepoint sites are compiled against this header; the probes
// live in the provider's own shared object (TracepointProbes.cpp), which links
// liblttng-ust and which the library opens at run time when it is installed.
// Without it every site stays dormant: one load and a predicted branch.
//
// Every event of a scheduler names it (an enumeration: CTickScheduler,
// CTickSchedulerFast); handler events carry the handle (the record's address)
// and the name.
#pragma GCC system_header

#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER zyn_tick

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "ZynTickTracepoints.h"

#if !defined(ZYN_TICK_TRACEPOINTS_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define ZYN_TICK_TRACEPOINTS_H

#include <lttng/tracepoint.h>
#include <stdint.h>

// The event definitions read best laid out as LTTng's documentation lays them.
// clang-format off

LTTNG_UST_TRACEPOINT_ENUM(zyn_tick, scheduler,
    LTTNG_UST_TP_ENUM_VALUES(
        lttng_ust_field_enum_value("CTickScheduler", 0)
        lttng_ust_field_enum_value("CTickSchedulerFast", 1)))

/* The oscillator woke for a grid point and hands the tick on: the grid point
   at or before the wake-up, and how far past it. */
LTTNG_UST_TRACEPOINT_EVENT(zyn_tick, tick,
    LTTNG_UST_TP_ARGS(uint32_t, period_us, uint64_t, grid_point, int64_t, lateness_ns),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_integer(uint32_t, period_us, period_us)
        lttng_ust_field_integer(uint64_t, grid_point, grid_point)
        lttng_ust_field_integer(int64_t, lateness_ns, lateness_ns)))

LTTNG_UST_TRACEPOINT_EVENT(zyn_tick, pass_begin,
    LTTNG_UST_TP_ARGS(int, scheduler),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_enum(zyn_tick, scheduler, int, scheduler, scheduler)))

LTTNG_UST_TRACEPOINT_EVENT(zyn_tick, pass_end,
    LTTNG_UST_TP_ARGS(int, scheduler, uint32_t, handlers_called),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_enum(zyn_tick, scheduler, int, scheduler, scheduler)
        lttng_ust_field_integer(uint32_t, handlers_called, handlers_called)))

LTTNG_UST_TRACEPOINT_EVENT_CLASS(zyn_tick, handler_class,
    LTTNG_UST_TP_ARGS(int, scheduler, const void*, handle, const char*, name),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_enum(zyn_tick, scheduler, int, scheduler, scheduler)
        lttng_ust_field_integer_hex(uintptr_t, handle, (uintptr_t)handle)
        lttng_ust_field_string(name, name)))

LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(zyn_tick, handler_class, zyn_tick, call_begin,
    LTTNG_UST_TP_ARGS(int, scheduler, const void*, handle, const char*, name))
LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(zyn_tick, handler_class, zyn_tick, call_end,
    LTTNG_UST_TP_ARGS(int, scheduler, const void*, handle, const char*, name))
LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(zyn_tick, handler_class, zyn_tick, handler_registered,
    LTTNG_UST_TP_ARGS(int, scheduler, const void*, handle, const char*, name))
LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(zyn_tick, handler_class, zyn_tick, handler_unregistered,
    LTTNG_UST_TP_ARGS(int, scheduler, const void*, handle, const char*, name))
LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(zyn_tick, handler_class, zyn_tick, handler_enabled,
    LTTNG_UST_TP_ARGS(int, scheduler, const void*, handle, const char*, name))
LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(zyn_tick, handler_class, zyn_tick, handler_disabled,
    LTTNG_UST_TP_ARGS(int, scheduler, const void*, handle, const char*, name))

/* A pass longer than the tick period, as the statistics measured it (only
   while they are on): its length and the handler that took most of it. */
LTTNG_UST_TRACEPOINT_EVENT(zyn_tick, overrun,
    LTTNG_UST_TP_ARGS(int, scheduler, int64_t, pass_ns, int64_t, period_ns, const char*, culprit,
                      int64_t, culprit_ns),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_enum(zyn_tick, scheduler, int, scheduler, scheduler)
        lttng_ust_field_integer(int64_t, pass_ns, pass_ns)
        lttng_ust_field_integer(int64_t, period_ns, period_ns)
        lttng_ust_field_string(culprit, culprit)
        lttng_ust_field_integer(int64_t, culprit_ns, culprit_ns)))

/* A thread asks for CTickScheduler's tick lock, and gets it after waiting
   waited_ns (for the mutex and for a running pass). Its release is the
   caller's: the lock is the caller's own std::unique_lock from then on. */
LTTNG_UST_TRACEPOINT_EVENT(zyn_tick, tick_lock_wait,
    LTTNG_UST_TP_ARGS(int, scheduler),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_enum(zyn_tick, scheduler, int, scheduler, scheduler)))

LTTNG_UST_TRACEPOINT_EVENT(zyn_tick, tick_lock_taken,
    LTTNG_UST_TP_ARGS(int, scheduler, int64_t, waited_ns, int, waited_for_pass),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_enum(zyn_tick, scheduler, int, scheduler, scheduler)
        lttng_ust_field_integer(int64_t, waited_ns, waited_ns)
        lttng_ust_field_integer(int, waited_for_pass, waited_for_pass)))

/* The module manager's phase callback of a scheduler module, with its result. */
LTTNG_UST_TRACEPOINT_EVENT(zyn_tick, module_phase,
    LTTNG_UST_TP_ARGS(int, scheduler, uint32_t, phase, uint32_t, result),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_enum(zyn_tick, scheduler, int, scheduler, scheduler)
        lttng_ust_field_integer(uint32_t, phase, phase)
        lttng_ust_field_integer_hex(uint32_t, result, result)))

// clang-format on

#endif /* ZYN_TICK_TRACEPOINTS_H */

#include <lttng/tracepoint-event.h>
