// Handler timing and overrun attribution, shared by both schedulers.
//
// Nothing here takes a lock, allocates or waits, so that every statistics
// function may be called from any thread, a tick function of either
// scheduler included, without ever waiting for a pass:
//
// - The switch, the budget and a reset are atomics. A reset starts a new
//   epoch: figures stamped with an older one read as zero, and the tick
//   thread clears them the next time it writes them.
// - A handler's figures live in a slot of a fixed table that the module
//   provides in static storage (untouched pages cost no memory), found by
//   the record's address with linear probing. Registration claims a slot,
//   unregistration leaves a tombstone; a new table generation (the module's
//   handler list emptied or built anew) drops every slot at once.
// - Every slot and the pass figures are written by one writer at a time:
//   the module's tick pass, or a registration or unregistration that holds
//   the module's mutex between passes (or runs in a tick function on the
//   tick thread itself).
// - A reader never waits for the writer, however often it writes: the
//   writer stores a call's figures in a fixed order (release) and a reader
//   loads them in the opposite order (acquire), so that what it reads keeps
//   the figures' relations (minimum <= maximum <= total; overruns <=
//   passes) even while passes run back to back, although two figures may
//   then come from consecutive calls. Only what must stay whole is guarded
//   by a sequence count: the epoch while the writer clears a slot after a
//   reset (a reader that meets it reads zero, which is what a reset means),
//   and the longest pass with its culprit's name, which changes rarely (a
//   reader that meets it mid-change on every one of a bounded number of
//   attempts reports that pass's name as unknown).
//
// Sequence counts use no standalone fences (ThreadSanitizer does not model
// them): a write section starts with an acquire increment, so its field
// stores cannot move before it, and stores its fields with release; a
// reader loads them with acquire, so once it sees any new value it also sees
// the odd (or a later) count on its second look and retries.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ostream>

#include "STickHandler.h"
#include "TickSchedulerExport.h"
#include "TickStatistics.h"
#include "ZynSupport/MonotonicClock.h"

namespace zyn_ts {

/// Slots of each module's handler table. A handler whose slot would lie
/// too far from where its address hashes to (the table is filling up) runs
/// without figures of its own; up to about three quarters of the table
/// that is rare.
constexpr size_t kHandlerSlots = 2048;

/// A handler name as the statistics carry it: the record's 32 bytes.
constexpr size_t kNameBytes = sizeof(STickHandler::name);

/// One handler's figures in the table.
struct HandlerSlot {
    /// The table generation the slot was claimed in; any other means free.
    std::atomic<uint32_t> generation;
    /// The reset epoch the figures belong to; older ones read as zero, and
    /// 0 while the writer clears them.
    std::atomic<uint32_t> epoch;
    /// The handler's record; null never claimed in this generation, or the
    /// tombstone of an unregistered handler.
    std::atomic<const STickHandler*> key;
    std::atomic<uint64_t> calls;
    std::atomic<uint64_t> overBudget;
    std::atomic<int64_t> totalNs;
    std::atomic<int64_t> minNs;
    std::atomic<int64_t> maxNs;
    std::atomic<int64_t> lastNs;
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
    char longestCallName[kNameBytes] = {};

    /// Tick thread: takes each call's start reading; the first one starts
    /// the pass.
    void callStarts(int64_t nowNs) {
        if (!started) {
            started = true;
            startNs = nowNs;
        }
    }
};

/// An overrunning pass, as the statistics measured it: `overran` for every
/// one, `due` when the rate limit lets its trace message through.
struct OverrunReport {
    bool overran = false;
    bool due = false;
    int64_t passNs = 0;
    int64_t periodNs = 0;
    int64_t culpritNs = 0;
    char culprit[kNameBytes] = {};
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
    /// `slots` is the module's table, zero-filled static storage of
    /// `slotCount` entries (a power of two). Constant-initialised, so a
    /// registration from another static constructor finds it ready.
    template <size_t SlotCount>
    constexpr DispatchStatistics(int64_t periodNs, HandlerSlot (&slots)[SlotCount])
        : table(slots), tableMask(SlotCount - 1), period(periodNs), budgetNs(periodNs) {
        static_assert(SlotCount != 0 && (SlotCount & (SlotCount - 1)) == 0, "a power of two");
    }

    // ---- Switches: any thread, no lock, no wait ------------------------------

    /// The pass's one relaxed load while the statistics are off.
    bool isOn() const { return on.load(std::memory_order_relaxed); }
    /// A budget of 0 means the period.
    void switchOn(uint64_t handlerBudgetNs);
    void switchOff();
    /// ZYN_TICK_STATISTICS=1 (or any value but empty and "0") switches on
    /// with the default budget. Consulted at the first call only, so that a
    /// later start-up never overrides what a client decided meanwhile.
    void applyEnvironmentOnce();
    /// Clears every figure from now on; keeps on/off, the budget and the
    /// handlers' slots.
    void reset();

    // ---- The handler table: one writer at a time (see the file comment) ------

    /// Claims a slot for a newly registered handler, with zero figures. A
    /// full table leaves the handler without figures.
    void addHandler(const STickHandler* handler);
    void removeHandler(const STickHandler* handler);
    /// Drops every slot at once; any thread, no lock.
    void dropAllHandlers();

    // ---- The pass: tick thread, one pass at a time --------------------------

    /// The handler's slot, or null when it has none.
    HandlerSlot* slotFor(const STickHandler* handler) const;
    /// Adds one call of `callNs` to `slot` (when there is one) and to the
    /// pass; `name` is the handler's, taken from its record.
    void recordCall(PassTiming& pass, HandlerSlot* slot, const char (&name)[kNameBytes], int64_t callNs);
    OverrunReport endPass(PassTiming& pass);

    // ---- Queries: any thread, no lock, a bounded number of retries -----------

    /// TickResult::Success; TickResult::NoFigures when the handler has no
    /// slot while handlers beyond the table's capacity are registered;
    /// TickResult::UnknownHandler when it has none otherwise.
    uint32_t copyHandler(const STickHandler* handler, STickHandlerStatistics& out) const;
    void copyScheduler(STickSchedulerStatistics& out) const;

private:
    struct PassFigures {
        /// The reset epoch of the figures, as a slot's.
        std::atomic<uint32_t> epoch{0};
        std::atomic<uint64_t> passes{0};
        std::atomic<uint64_t> overruns{0};
        /// Odd while the writer changes the longest pass and its culprit.
        std::atomic<uint32_t> longestSequence{0};
        std::atomic<int64_t> longestPassNs{0};
        std::atomic<int64_t> longestPassCulpritNs{0};
        /// The culprit's name, as words so that it is read like the rest.
        std::atomic<uint64_t> culprit[kNameBytes / sizeof(uint64_t)]{};
    };

    /// The tick thread's own state of the overrun message's rate limit.
    struct OverrunLimit {
        uint32_t epoch = 0;
        bool reported = false;
        int64_t lastReportNs = 0;
        uint64_t sinceReport = 0;
    };

    HandlerSlot* findSlot(const STickHandler* handler, uint32_t currentGeneration) const;
    void countPass(const PassTiming& pass, int64_t passNs, uint32_t currentEpoch);
    OverrunReport rateLimitedReport(const PassTiming& pass, int64_t passNs, int64_t nowNs, uint32_t currentEpoch);

    HandlerSlot* table;
    size_t tableMask;
    int64_t period;

    std::atomic<bool> on{false};
    std::atomic<bool> environmentConsulted{false};
    std::atomic<int64_t> budgetNs;
    std::atomic<uint32_t> resetEpoch{1};
    /// Starts at 1, so that a zero-filled slot is free.
    std::atomic<uint32_t> generation{1};
    /// Registered handlers of this generation that found no free slot.
    std::atomic<uint32_t> handlersWithoutSlot{0};

    PassFigures passFigures;
    OverrunLimit overrunLimit;
};

}  // namespace zyn_ts
