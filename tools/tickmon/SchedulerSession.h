// Brings libZynTickScheduler up and down the way a platform process does:
// both modules initialised, "ITickScheduler" taken from the interface broker,
// the start-up phases run through the module manager, the shut-down phase at
// the end.
// Nothing is reached through the library's private entry points.
#pragma once

#include <cstdint>
#include <string>

#include "ETickPriority.h"
#include "GridTally.h"
#include "ITickScheduler.h"

namespace tickmon {

class SchedulerSession {
public:
    /// Initialises CTickScheduler (with `priority`) and CTickSchedulerFast and
    /// looks up "ITickScheduler". False with `error` set when any step fails.
    bool initialize(ETickPriority priority, std::string& error);

    /// The scheduler's interface object; valid after a successful initialize.
    ITickScheduler& scheduler() const { return *interface; }

    /// Runs phase `phase` through the module manager; false with `error` set
    /// when a module of the library returns an error.
    bool runPhase(uint32_t phase, std::string& error);

    /// The grid CTickScheduler's oscillator published, read through the
    /// exported query; false while the oscillator does not run.
    bool publishedGrid(PublishedGrid& grid) const;

    /// Runs the shut-down phase once; later calls do nothing.
    void shutDown();

private:
    ETickPriority storedPriority = TICK_PRIORITY_NORMAL;
    ITickScheduler* interface = nullptr;
    bool shutDownDone = false;
};

}  // namespace tickmon
