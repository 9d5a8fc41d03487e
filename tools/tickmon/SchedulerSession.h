// Brings libZynTickScheduler up and down the way a platform process does, for
// the grid the monitor measures:
// - CTickScheduler's 6 ms grid: both modules initialised, "ITickScheduler"
//   taken from the interface broker, phases 11, 13 and 14 through the module
//   manager (the module starts its oscillator at 14);
// - CTickSchedulerFast's 1 ms grid: the fast module alone, "ITickSchedulerFast"
//   from the broker, phases 11 and 13, then its oscillator started through
//   CTickSchedulerFast_GetTickOscillator, as an integrator does, since the
//   module never starts it. The 6 ms module stays down, so that no second
//   real-time thread competes with the measured one.
// The shut-down phase ends both. Nothing is reached through the library's
// private entry points.
#pragma once

#include <cstdint>
#include <string>

#include "ETickPriority.h"
#include "GridTally.h"
#include "ITickReceiver.h"
#include "ITickScheduler.h"
#include "ITickSchedulerFast.h"
#include "MonitorOptions.h"
#include "STickHandler.h"
#include "TickEventCapture.h"
#include "TickGrid.h"
#include "TickPrecisionWake.h"
#include "TickStatistics.h"

namespace tickmon {

/// The library's exported functions that the two schedulers offer alike,
/// for the grid the session measures.
struct SchedulerEntryPoints {
    const char* moduleName;
    const char* oscillatorThreadName;
    int64_t periodNs;
    uint32_t (*getTickGrid)(STickGrid*);
    uint32_t (*enableStatistics)(uint64_t);
    uint32_t (*resetStatistics)();
    uint32_t (*getHandlerStatistics)(const STickHandler*, STickHandlerStatistics*);
    uint32_t (*getSchedulerStatistics)(STickSchedulerStatistics*);
    uint32_t (*setWakeLeadOff)();
    uint32_t (*setWakeLeadFixed)(int64_t);
    uint32_t (*setWakeLeadAdaptive)();
    uint32_t (*getPrecisionWake)(STickPrecisionWake*);
    uint32_t (*startEventCapture)();
    uint32_t (*stopEventCapture)();
    uint32_t (*readEvents)(STickEvent*, uint32_t, uint32_t*, uint64_t*);
};

/// The entry points of the scheduler that owns `grid`.
const SchedulerEntryPoints& entryPointsOf(MonitoredGrid grid);

class SchedulerSession {
public:
    explicit SchedulerSession(MonitoredGrid grid) : measured(grid), library(entryPointsOf(grid)) {}

    const SchedulerEntryPoints& entryPoints() const { return library; }

    /// Initialises the measured grid's module (CTickScheduler with `priority`
    /// beside CTickSchedulerFast; or CTickSchedulerFast alone) and looks up
    /// its interface object. False with `error` set when any step fails.
    bool initialize(ETickPriority priority, std::string& error);

    /// Handler operations through the interface object; valid after a
    /// successful initialize. The fast scheduler has no interval: every
    /// handler runs on every tick, and `interval` must be 1 there.
    uint32_t registerHandler(STickHandler** handle, const ITickReceiver* receiver, uint32_t interval, const char* name);
    uint32_t unregisterHandler(STickHandler** handle);
    uint32_t enableHandler(STickHandler* handle);
    uint32_t disableHandler(STickHandler* handle);

    /// Phases 11 and 13: the oscillator is configured, not yet ticking.
    bool prepareTicks(std::string& error);

    /// The first tick from here: phase 14, and for the fast grid the start
    /// of its oscillator. False with `error` set when that fails.
    bool startTicks(std::string& error);

    /// Once this has returned, no further pass runs: CTickScheduler_Freeze
    /// waits for a running pass; the fast scheduler has no freeze, so its
    /// oscillator is stopped, which joins the thread after its last pass.
    void stopPasses();

    /// The grid the measured oscillator published, read through the exported
    /// query; false while the oscillator does not run.
    bool publishedGrid(PublishedGrid& grid) const;

    /// Runs the shut-down phase once; later calls do nothing.
    void shutDown();

private:
    bool runPhase(uint32_t phase, std::string& error);

    MonitoredGrid measured;
    const SchedulerEntryPoints& library;
    ETickPriority storedPriority = TICK_PRIORITY_NORMAL;
    ITickScheduler* scheduler = nullptr;
    ITickSchedulerFast* fast = nullptr;
    bool shutDownDone = false;
};

}  // namespace tickmon
