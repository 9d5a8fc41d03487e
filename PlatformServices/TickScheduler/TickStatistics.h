/// @file
/// Which handler makes ticks late: opt-in timing of every handler call and of
/// every tick pass, for both schedulers.
///
/// The statistics are off by default. While they are off a scheduler behaves
/// exactly as without them, and its tick pass pays one relaxed load. Switched
/// on (by the functions below, or for a whole process by setting the
/// environment variable ZYN_TICK_STATISTICS to 1 before the scheduler is
/// initialised), each pass measures every handler it calls on
/// CLOCK_MONOTONIC:
///
/// - per handler: calls, total, minimum, maximum and last execution time, and
///   the calls that took longer than the handler budget;
/// - per scheduler: passes, passes longer than the tick period (overruns),
///   the longest pass and, for it, the handler that took most of it.
///
/// A pass longer than the period also writes one level-2 trace message that
/// names the scheduler, the pass duration and its longest handler, at most
/// once a second per scheduler; the next message counts the ones left out.
///
/// Both records carry their size first: the caller sets it, the library fills
/// its own fields and leaves any bytes beyond them untouched, so that the
/// records can grow later. Handler times are those of the tick function
/// alone; a pass's time runs from the start of its first call to its end,
/// so it includes the scheduler's own work between and after the calls (a
/// pass that calls no handler lasts 0).
#pragma once

#include <cstdint>

#include "STickHandler.h"
#include "TickSchedulerExport.h"

/// The timing of one handler since registration or the last reset.
struct STickHandlerStatistics {
    uint32_t size;        ///< the caller sets sizeof(STickHandlerStatistics)
    uint32_t reserved;    ///< 0
    uint64_t calls;       ///< calls timed
    uint64_t overBudget;  ///< calls longer than the handler budget
    int64_t totalNs;      ///< sum of the call times, ns
    int64_t minNs;        ///< shortest call, ns (0 before the first call)
    int64_t maxNs;        ///< longest call, ns
    int64_t lastNs;       ///< the latest call, ns
};

/// The timing of one scheduler's passes since it was loaded or last reset.
struct STickSchedulerStatistics {
    uint32_t size;                 ///< the caller sets sizeof(STickSchedulerStatistics)
    uint32_t enabled;              ///< 1 while the statistics are on
    uint64_t passes;               ///< passes timed
    uint64_t overruns;             ///< passes longer than the period
    int64_t periodNs;              ///< the scheduler's tick period, ns
    int64_t handlerBudgetNs;       ///< a call longer than this counts as over budget
    int64_t longestPassNs;         ///< the longest pass, ns
    int64_t longestPassCulpritNs;  ///< the time its longest handler took in it, ns
    char longestPassCulprit[32];   ///< that handler's name; empty while unknown
};

extern "C" {

/// Switches CTickScheduler's statistics on from its next pass. A handler
/// budget of 0 means the tick period (6 ms). Counts gathered earlier are kept
/// (see CTickScheduler_ResetStatistics). Waits for a running pass, like every
/// operation that changes the scheduler. Result: TickResult::Success (0).
ZYN_TS_EXPORT uint32_t CTickScheduler_EnableStatistics(uint64_t handlerBudgetNs);

/// Switches them off from the next pass; the counts stay readable.
/// Result: TickResult::Success (0).
ZYN_TS_EXPORT uint32_t CTickScheduler_DisableStatistics(void);

/// Clears every count of the scheduler and of its handlers; whether the
/// statistics are on and the budget stay as they are.
/// Result: TickResult::Success (0).
ZYN_TS_EXPORT uint32_t CTickScheduler_ResetStatistics(void);

/// Copies the timing of `handler` into `*statistics`.
/// Results: TickResult::Success (0); TickResult::NullArgument (32770) a null
/// pointer or a size below sizeof(STickHandlerStatistics);
/// TickResult::UnknownHandler (32781)
/// `handler` is not registered with this scheduler. Safe from any thread,
/// including a tick function.
ZYN_TS_EXPORT uint32_t CTickScheduler_GetHandlerStatistics(const STickHandler* handler,
                                                           STickHandlerStatistics* statistics);

/// Copies the scheduler's pass timing into `*statistics`.
/// Results: TickResult::Success (0); TickResult::NullArgument (32770) a null
/// pointer or a size below sizeof(STickSchedulerStatistics). Safe from any
/// thread.
ZYN_TS_EXPORT uint32_t CTickScheduler_GetSchedulerStatistics(STickSchedulerStatistics* statistics);

/// The same five for CTickSchedulerFast (period 1 ms); this one switches its
/// statistics on. They take the fast
/// scheduler's mutex, which its dispatch holds for a whole pass: call them
/// from client threads, never from a fast tick function. Besides the results
/// above they return TickResult::MutexFailure (32778) when that mutex cannot
/// be locked.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_EnableStatistics(uint64_t handlerBudgetNs);
/// Fast scheduler: switches the statistics off (counts stay readable).
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_DisableStatistics(void);
/// Fast scheduler: clears every count.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_ResetStatistics(void);
/// Fast scheduler: copies one handler's timing; TickResult::UnknownHandler
/// (32781) for a handler it does not hold.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_GetHandlerStatistics(const STickHandler* handler,
                                                               STickHandlerStatistics* statistics);
/// Fast scheduler: copies its pass timing.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_GetSchedulerStatistics(STickSchedulerStatistics* statistics);
}
