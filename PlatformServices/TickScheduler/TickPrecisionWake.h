/// @file
/// Precision wake: ticks on their grid point instead of a kernel wake-up
/// latency after it, for a little CPU.
///
/// A sleeping oscillator can never be more punctual than the kernel wakes
/// it. With the precision wake on, a scheduler's oscillator sleeps until a
/// short lead before its next grid point, then reads CLOCK_MONOTONIC in a
/// tight loop until the grid point and delivers the tick. A lead that covers
/// the kernel's wake-up spread delivers almost every tick within a
/// microsecond or two of its grid point, at the cost of the lead's share of
/// one CPU (100 us of 6 ms is 1.7 %).
///
/// What always holds, on or off: a tick is never delivered before its grid
/// point, at most one tick is delivered per grid point, and grid points that
/// passed while the thread was late are skipped. A wake-up after the grid
/// point delivers at once, without spinning; a sleep that ends more than the
/// lead before the grid point (a signal) is slept again; while the scheduler
/// is frozen (or has no receiver) the oscillator sleeps to the grid point
/// itself and never spins. The spin is bounded by the lead, which never
/// exceeds half a period.
///
/// Modes, per scheduler (off by default):
/// - TICK_WAKE_OFF: the oscillator's loop is exactly the plain one (one clock
///   reading and one relative sleep per tick);
/// - TICK_WAKE_FIXED: the lead given;
/// - TICK_WAKE_ADAPTIVE: the lead follows the 99.2nd percentile of the
///   kernel's wake-up lateness over the last 1024 wake-ups, plus 10 us,
///   between a floor of 20 us and a ceiling of 10 % of the period; it starts
///   at 100 us (or the ceiling, if lower) and is recomputed every 64
///   wake-ups, without a lock and without allocation.
///
/// The environment variable ZYN_TICK_WAKE_LEAD switches both schedulers of
/// a process without a code change: "auto" (adaptive), "off", or a fixed
/// lead as a whole number of microseconds ("80" or "80us"). It is read once
/// per scheduler, at its first successful initialisation; an unreadable
/// value is ignored. Functions called later override it.
///
/// Figures: the oscillator thread measures, at no extra clock reading, how
/// late the kernel woke it and how late it delivered, as distributions
/// (count, p50, p99, max; percentiles to the histogram's resolution: 1 us up
/// to 512 us, about 3 % above), plus what the spin cost. With the mode off
/// the loop takes one clock reading per tick, right after the previous
/// tick's pass, and no reading at the wake-up: the off-mode figure is
/// therefore the lateness of that reading behind the grid point the sleep
/// before it asked for, that is the kernel's wake-up lateness plus the whole
/// tick pass (handlers included). With the mode on the reading at the
/// wake-up is the one the spin takes anyway, and the figures separate the
/// kernel's wake-up from the delivery.
///
/// Context: every function here may be called from any thread, including a
/// tick function of either scheduler and a client that holds the tick lock;
/// none takes a lock, allocates or waits. A switch takes effect from the
/// oscillator's next loop iteration (at most one period later); a reset is
/// applied by the oscillator thread at its next iteration, so figures read
/// right after a reset may still show the old ones for up to one period.
/// A query may combine figures of consecutive ticks, but never tears a
/// single value.
#pragma once

#include <cstdint>

#include "TickSchedulerExport.h"

/// The precision-wake mode of a scheduler's oscillator.
enum ETickWakeMode : uint32_t {
    TICK_WAKE_OFF = 0,       ///< plain sleep to the grid point (the default)
    TICK_WAKE_FIXED = 1,     ///< sleep to grid point - fixed lead, then spin
    TICK_WAKE_ADAPTIVE = 2,  ///< sleep to grid point - adaptive lead, then spin
};

/// One distribution of lateness, in nanoseconds.
struct STickLatenessFigures {
    uint64_t count;  ///< samples
    int64_t p50Ns;   ///< median (upper edge of its histogram bin), 0 without samples
    int64_t p99Ns;   ///< 99th percentile (upper edge of its bin), 0 without samples
    int64_t maxNs;   ///< largest sample, exact
};

/// The precision wake of one scheduler: its setting, what it costs, and how
/// late the kernel woke the oscillator and the oscillator delivered.
/// The caller sets `size`; the library fills its own fields and leaves any
/// bytes beyond them untouched, so that the record can grow later.
struct STickPrecisionWake {
    uint32_t size;             ///< the caller sets sizeof(STickPrecisionWake)
    uint32_t mode;             ///< ETickWakeMode set now
    int64_t fixedLeadNs;       ///< the lead of TICK_WAKE_FIXED (0 until one was set)
    int64_t leadNs;            ///< lead the oscillator used last (0 while off)
    int64_t leadFloorNs;       ///< adaptive lead's floor
    int64_t leadCeilingNs;     ///< adaptive lead's ceiling for the period used last
    uint64_t ticks;            ///< ticks delivered with the mode on
    uint64_t lateDespiteLead;  ///< of those, woken after their grid point (not spun)
    int64_t spinNs;            ///< time spun in total
    int64_t spanNs;            ///< time from the first to the last tick with the mode on
    uint32_t spinPpm;          ///< spinNs per spanNs in parts per million of one CPU
    uint32_t reserved;         ///< 0
    /// Mode on: how late the kernel woke the thread behind the instant it
    /// asked for (grid point - lead): the kernel's wake-up spread.
    STickLatenessFigures wakeUp;
    /// Mode on: how late the tick was delivered behind its grid point.
    STickLatenessFigures delivery;
    /// Mode off: the loop's one reading behind the grid point its previous
    /// sleep asked for: the kernel's wake-up plus the tick pass.
    STickLatenessFigures wakeUpAndPass;
};

extern "C" {

/// CTickScheduler's 6 ms oscillator: plain sleep (the default).
/// Always TickResult::Success (0).
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_SetWakeLeadOff(void);

/// Sleep to each grid point minus `leadNs`, then spin to it.
/// Results: TickResult::Success (0); TickResult::OutOfRange (32771) when
/// `leadNs` is below 1000 (1 us) or above half the scheduler's period
/// (3000000 for CTickScheduler, 500000 for CTickSchedulerFast): nothing
/// changed.
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_SetWakeLeadFixed(int64_t leadNs);

/// The adaptive lead (see above). Always TickResult::Success (0).
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_SetWakeLeadAdaptive(void);

/// Copies the setting and the figures since the last reset into
/// `*figures`. Results: TickResult::Success (0); TickResult::NullArgument
/// (32770) when `figures` is null or `figures->size` is smaller than
/// sizeof(STickPrecisionWake) (nothing written).
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_GetPrecisionWake(STickPrecisionWake* figures);

/// Asks the oscillator thread to drop its figures (counts, spin and the
/// three distributions, not the adaptive lead's history) at its next
/// iteration. Always TickResult::Success (0).
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass (the oscillator thread applies the reset at its next iteration).
ZYN_TS_EXPORT uint32_t CTickScheduler_ResetPrecisionWake(void);

/// CTickSchedulerFast's 1 ms oscillator: plain sleep (the default).
/// Always TickResult::Success (0).
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_SetWakeLeadOff(void);

/// CTickSchedulerFast's 1 ms oscillator: sleep to each grid point minus
/// `leadNs`, then spin to it. Results: TickResult::Success (0);
/// TickResult::OutOfRange (32771) when `leadNs` is below 1000 or above
/// 500000 (half the 1 ms period): nothing changed.
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_SetWakeLeadFixed(int64_t leadNs);

/// CTickSchedulerFast's 1 ms oscillator: the adaptive lead (ceiling 100 us).
/// Always TickResult::Success (0).
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_SetWakeLeadAdaptive(void);

/// CTickSchedulerFast's setting and figures, as
/// CTickScheduler_GetPrecisionWake. Results: TickResult::Success (0);
/// TickResult::NullArgument (32770).
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_GetPrecisionWake(STickPrecisionWake* figures);

/// CTickSchedulerFast's figures dropped at its oscillator's next iteration.
/// Always TickResult::Success (0).
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass (the oscillator thread applies the reset).
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_ResetPrecisionWake(void);
}
