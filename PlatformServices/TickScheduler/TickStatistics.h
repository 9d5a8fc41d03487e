/// @file
/// Which handler makes ticks late: opt-in timing of every handler call and of
/// every tick pass, for both schedulers.
///
/// The statistics are off by default. While they are off a scheduler behaves
/// exactly as without them: its tick pass pays one relaxed load, and
/// registering or unregistering a handler allocates nothing for them.
/// Switched on (by the functions below, or for a whole process by setting
/// the environment variable ZYN_TICK_STATISTICS to 1 before the process's
/// first successful initialisation of the scheduler), each pass measures
/// every handler it calls on CLOCK_MONOTONIC:
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
/// Context: every function here may be called from any thread, including a
/// tick function of either scheduler and a client that holds the tick lock.
/// None takes a lock, allocates, or waits for a running pass; a switch, a
/// reset or a budget takes effect at once, for the calls timed from then
/// on. The environment variable is read once, at the first successful
/// initialisation in the process: a later one never overrides what a client
/// switched meanwhile.
///
/// Each scheduler keeps its handlers' figures in a fixed table of static
/// storage (2048 slots; its memory is touched only as handlers are
/// registered). A handler registered while the table is filling up (rare
/// below about 1500 handlers) runs as usual and still names an overrun it
/// causes, but has no figures of its own. A
/// handler's figures go when it is unregistered, and all of them when its
/// scheduler is uninitialised (which empties or abandons its handler list).
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

/// Switches CTickScheduler's statistics on: calls timed from now on count. A
/// handler budget of 0 means the tick period (6 ms). Counts gathered earlier
/// are kept (see CTickScheduler_ResetStatistics). Result:
/// TickResult::Success (0).
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_EnableStatistics(uint64_t handlerBudgetNs);

/// Switches them off; the counts stay readable. Result: TickResult::Success
/// (0).
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_DisableStatistics(void);

/// Clears every count of the scheduler and of its handlers at once (the
/// figures read as zero from now on); whether the statistics are on and the
/// budget stay as they are. Result: TickResult::Success (0).
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_ResetStatistics(void);

/// Copies the timing of `handler` into `*statistics`.
/// Results: TickResult::Success (0); TickResult::NullArgument (32770) a null
/// pointer or a size below sizeof(STickHandlerStatistics);
/// TickResult::UnknownHandler (32781) `handler` is not registered with this
/// scheduler; TickResult::NoFigures (32783) `handler` has no figures because
/// the table had no room for it at its registration (or, while handlers without
/// figures exist, it is not registered). Read while a pass runs, two figures
/// may come from consecutive calls, but minimum <= maximum <= total always
/// holds.
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_GetHandlerStatistics(const STickHandler* handler,
                                                           STickHandlerStatistics* statistics);

/// Copies the scheduler's pass timing into `*statistics`.
/// Results: TickResult::Success (0); TickResult::NullArgument (32770) a null
/// pointer or a size below sizeof(STickSchedulerStatistics). Overruns never
/// exceed passes; the longest pass's culprit is empty while unknown.
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_GetSchedulerStatistics(STickSchedulerStatistics* statistics);

/// The same five for CTickSchedulerFast (period 1 ms), with the same results
/// and context: they never take the fast scheduler's mutex, so a fast tick
/// function may call them during the pass that holds it. This one switches
/// its statistics on.
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_EnableStatistics(uint64_t handlerBudgetNs);
/// Fast scheduler: switches the statistics off (counts stay readable).
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_DisableStatistics(void);
/// Fast scheduler: clears every count.
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_ResetStatistics(void);
/// Fast scheduler: copies one handler's timing; TickResult::UnknownHandler
/// (32781) for a handler it does not hold.
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_GetHandlerStatistics(const STickHandler* handler,
                                                               STickHandlerStatistics* statistics);
/// Fast scheduler: copies its pass timing.
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_GetSchedulerStatistics(STickSchedulerStatistics* statistics);
}
