// The handlers the monitor registers: a probe that timestamps every tick
// pass, and a set of load handlers that count their calls and optionally
// keep the CPU busy for a while. All run on the measured scheduler's tick
// thread, so none of them allocates, blocks or traces.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "HandlerCheck.h"
#include "STickHandler.h"
#include "SchedulerSession.h"
#include "TickRecorder.h"

namespace tickmon {

/// Interval 1: runs on every pass and records CLOCK_MONOTONIC there.
struct TickProbe {
    explicit TickProbe(size_t ringCapacity) : recorder(ringCapacity) {}

    TickRecorder recorder;
    std::atomic<uint64_t> passes{0};
    STickHandler* handle = nullptr;
};

struct LoadHandler {
    std::string name;
    uint32_t interval = 1;
    int64_t workNs = 0;
    std::atomic<uint64_t> calls{0};
    STickHandler* handle = nullptr;
};

/// The probe and the load handlers, registered through the measured
/// scheduler's interface object.
class TickHandlers {
public:
    /// `count` load handlers named "tickmon-handler-<i>", with intervals taken
    /// in turn from `intervals`, handler i busy for `workNs[i]` per call (0
    /// beyond the vector).
    TickHandlers(uint32_t count, const std::vector<uint32_t>& intervals, const std::vector<int64_t>& workNs,
                 size_t ringCapacity);
    ~TickHandlers();
    TickHandlers(const TickHandlers&) = delete;
    TickHandlers& operator=(const TickHandlers&) = delete;

    /// Registers the probe first (so it runs first in every pass and its
    /// timestamp is not delayed by the others), then the load handlers.
    /// False with `error` set when the scheduler refuses one.
    bool registerAll(SchedulerSession& session, std::string& error);

    /// Unregisters every registered handler (its record is freed).
    void unregisterAll(SchedulerSession& session);

    TickProbe& probe() { return tickProbe; }
    LoadHandler& load(size_t index) { return loadHandlers[index]; }
    size_t loadCount() const { return count; }

    /// The call counts of the load handlers, for the self-test.
    std::vector<HandlerTally> tallies() const;

private:
    TickProbe tickProbe;
    size_t count;
    std::unique_ptr<LoadHandler[]> loadHandlers;
};

/// Spins on CLOCK_MONOTONIC for `ns` nanoseconds.
void busyWait(int64_t ns);

}  // namespace tickmon
