/// @file
/// Where a scheduler's ticks are due: the grid of its oscillator.
///
/// Tick k of an oscillator thread is due at originNs + k x periodNs on
/// CLOCK_MONOTONIC, where the origin is the instant the thread took as its
/// start (grid point 0, on which no tick is delivered; the first tick is due
/// at grid point 1). A tick is never delivered before its grid point, at most
/// one tick is delivered per grid point, and a grid point that has passed
/// while the thread was late is skipped. A module that samples or transmits
/// at a fixed phase of the tick computes that phase from this record.
///
/// The oscillator thread publishes its origin before it delivers its first
/// tick, so a tick function always finds its own grid here. start() returns
/// before the thread has read its start instant: in that short moment the
/// query still describes the previous grid (running = 0).
#pragma once

#include <cstdint>

#include "TickSchedulerExport.h"

/// A snapshot of one scheduler's tick grid. The caller sets `size`; the
/// library fills the other fields and leaves any bytes beyond its own record
/// untouched, so that the record can grow later.
struct STickGrid {
    uint32_t size;        ///< the caller sets sizeof(STickGrid)
    uint32_t running;     ///< 1 while the oscillator thread runs, else 0
    uint64_t generation;  ///< 0 before the first start; +1 on every start
    int64_t originNs;     ///< CLOCK_MONOTONIC instant of grid point 0, ns
    int64_t periodNs;     ///< grid period, ns
};

extern "C" {

/// Copies the grid of CTickScheduler's 6 ms oscillator into `*grid`.
///
/// - Running: the record of the current thread (running = 1); result
///   TickResult::Success (0).
/// - Not running (never started, stopped, or not yet past its start): running
///   = 0 with the origin, period and generation of the last thread, all 0
///   before the first start; result 4098 (TickResult::GridNotRunning, a
///   success with a remark: the record is filled and valid).
/// - Frozen: the thread runs on its grid without delivering ticks, so the
///   record is that of a running oscillator and keeps its origin across
///   freeze and unfreeze.
/// - A stop followed by a start publishes a new origin and a generation one
///   higher. A repeated initialize with another delay keeps the origin and
///   the generation; the thread publishes the new period when it computes
///   its next sleep, before that sleep, so no tick on the new period comes
///   before the record shows it (until then, at most one old period after
///   initialize returned, the record shows the old period).
/// - Only the oscillator thread writes the record (at its start, on a new
///   delay, at its end), and a reader never waits for it: it copies the
///   record again if the thread republished it meanwhile, up to four times.
///   Only if the thread republished it seven times or more during each of
///   the four copies (a reader kept off its CPU for several periods inside
///   each of them) does the query give up and answer as for a grid never
///   started: 4098 with every field 0. A tick function's query never does.
///
/// Results: TickResult::Success (0); TickResult::GridNotRunning (4098) not
/// running; TickResult::NullArgument (32770) when
/// `grid` is null or `grid->size` is smaller than sizeof(STickGrid) (nothing
/// written).
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass (wait-free, takes no lock).
ZYN_TS_EXPORT uint32_t CTickScheduler_GetTickGrid(STickGrid* grid);

/// The same for CTickSchedulerFast's 1 ms oscillator, which the module
/// configures but never starts itself: without an owner that starts it the
/// result is TickResult::GridNotRunning (4098) with running = 0.
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass (wait-free, takes no lock).
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_GetTickGrid(STickGrid* grid);
}
