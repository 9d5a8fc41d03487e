// Handler timing and overrun attribution, shared by both schedulers.
//
// Each module owns one DispatchStatistics and guards it with its own tick
// mutex: every member function below runs with that mutex held, on the tick
// thread during a pass or on a client thread between passes (or while the
// interval scheduler's pass has released the mutex around a call, which is
// why the pass writes a call's figures only after it has taken the mutex
// back). The only exception is isOn(), the one relaxed load a pass pays
// while the statistics are off.
//
// A handler's figures live in a side table keyed by the record's address,
// filled at registration, so the record itself (whose layout is fixed) holds
// nothing new and a pass finds a handler's entry in constant time without
// allocating. An entry of a handler removed during a pass stays until the
// pass ends, since the pass may still be timing its call.
#pragma once

#include <atomic>
#include <cstdint>
#include <ostream>
#include <unordered_map>

#include "STickHandler.h"
#include "TickSchedulerExport.h"
#include "TickStatistics.h"

namespace zyn_ts {

constexpr int64_t kNsPerMs = 1000000;

/// One handler's figures.
struct HandlerTiming {
    char name[32] = {};
    /// Kept in the form the queries hand out; `size` and `reserved` stay 0.
    STickHandlerStatistics figures = {};
    /// Unregistered during the open pass; erased when it ends.
    bool removed = false;
};

/// What a pass remembers while it runs: its start and its longest call.
/// A pass is timed from the start of its first call to its end (a pass that
/// calls nothing lasts 0): a clock reading of its own before the walk would
/// stand between the tick and the first handler, to time only the few
/// instructions before that handler's own reading.
struct PassTiming {
    bool started = false;
    int64_t startNs = 0;
    int64_t longestCallNs = -1;
    char longestCallName[32] = {};

    /// Tick thread, with or without the mutex: takes each call's start
    /// reading; the first one starts the pass.
    void callStarts(int64_t nowNs) {
        if (!started) {
            started = true;
            startNs = nowNs;
        }
    }
};

/// What a module traces at the end of an overrunning pass, when one is due.
struct OverrunReport {
    bool due = false;
    int64_t passNs = 0;
    int64_t periodNs = 0;
    int64_t culpritNs = 0;
    char culprit[32] = {};
    /// Overruns since the last message that were not reported.
    uint64_t suppressed = 0;
};

/// Streams nanoseconds as microseconds with three decimals ("6000.547"), so
/// that a pass just over the period never reads as equal to it.
struct Microseconds {
    int64_t ns;
};

inline std::ostream& operator<<(std::ostream& out, Microseconds time) {
    const int64_t magnitude = time.ns < 0 ? -time.ns : time.ns;
    const int64_t fraction = magnitude % 1000;
    return out << (time.ns < 0 ? "-" : "") << magnitude / 1000 << '.' << static_cast<char>('0' + fraction / 100)
               << static_cast<char>('0' + fraction / 10 % 10) << static_cast<char>('0' + fraction % 10);
}

class ZYN_TS_INTERNAL DispatchStatistics {
public:
    explicit DispatchStatistics(int64_t periodNs);

    /// The pass's one relaxed load while the statistics are off.
    bool isOn() const { return on.load(std::memory_order_relaxed); }

    /// A budget of 0 means the period.
    void switchOn(uint64_t handlerBudgetNs);
    void switchOff();
    /// ZYN_TICK_STATISTICS=1 (or any value but empty and "0") switches on
    /// with the default budget; otherwise nothing changes.
    void applyEnvironment();
    /// Clears every figure; keeps on/off, the budget and the table's entries.
    void reset();

    /// Adds an entry for a newly registered handler. An allocation failure
    /// leaves the handler without statistics (its query says unknown) rather
    /// than changing what the registration does.
    void addHandler(const STickHandler* handler);
    void removeHandler(const STickHandler* handler);
    void removeAllHandlers();

    /// Tick thread, mutex held. A pass that times itself opens with
    /// beginPass and closes with endPass; in between, each call is timed
    /// into the handler's entry with recordCall.
    void beginPass();
    /// The handler's entry, also when the handler was unregistered during the
    /// open pass (its figures still count for the pass); null when it has
    /// none. Valid until the pass ends, as long as no record is registered
    /// at the same address meanwhile: a module whose records are freed at
    /// once looks the entry up before the call, one whose records outlive
    /// the pass may look it up after.
    HandlerTiming* entryFor(const STickHandler* handler);
    void recordCall(PassTiming& pass, HandlerTiming* entry, int64_t callNs) const;
    OverrunReport endPass(PassTiming& pass);

    /// False when the handler has no entry.
    bool copyHandler(const STickHandler* handler, STickHandlerStatistics& out) const;
    void copyScheduler(STickSchedulerStatistics& out) const;

private:
    void countPass(const PassTiming& pass, int64_t passNs);
    OverrunReport rateLimitedReport(const PassTiming& pass, int64_t passNs, int64_t nowNs);

    std::atomic<bool> on{false};
    /// The period, the budget and the pass figures, kept in the form the
    /// query hands out; `size` and `enabled` are filled in by copyScheduler.
    STickSchedulerStatistics figures = {};

    std::unordered_map<const STickHandler*, HandlerTiming> handlers;
    bool passOpen = false;
    /// Entries marked removed during the open pass.
    uint32_t removedDuringPass = 0;

    bool overrunReported = false;
    int64_t lastOverrunReportNs = 0;
    uint64_t overrunsSinceReport = 0;
};

}  // namespace zyn_ts
