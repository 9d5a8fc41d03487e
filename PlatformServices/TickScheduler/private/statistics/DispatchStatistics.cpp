#include "DispatchStatistics.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "StatisticsClock.h"
#include "TickResultCodes.h"

namespace zyn_ts {

namespace {

constexpr const char* kEnvironmentSwitch = "ZYN_TICK_STATISTICS";
/// A persistently slow handler may not flood the trace.
constexpr int64_t kOverrunReportIntervalNs = 1000 * zyn_support::kNanosecondsPerMillisecond;
/// Attempts of a reader of the longest pass before it reports its culprit as
/// unknown, and how many times an attempt looks again for a write section to
/// end. The section changes only when a pass is the longest yet, so a read
/// fails only when its writer stalls in the middle of one (pre-empted, or on
/// a CPU the reader keeps busy) for the whole bound: some hundred
/// microseconds at most.
constexpr int kReadAttempts = 64;
constexpr int kLooksPerAttempt = 1024;
/// A slot's epoch while the writer clears its figures.
constexpr uint32_t kClearing = 0;
/// The key an unregistered handler leaves behind: probing goes on past it.
const STickHandler* const kTombstone = reinterpret_cast<const STickHandler*>(alignof(STickHandler));

/// How far a handler's slot may lie from its home slot. The bound keeps a
/// lookup short whatever the table holds (a handler without a slot costs at
/// most this many probes per call); a handler that finds no free slot
/// within it has no figures.
constexpr size_t kMaxProbes = 32;

constexpr size_t kNameWords = kNameBytes / sizeof(uint64_t);
static_assert(kNameBytes % sizeof(uint64_t) == 0, "the name is copied in whole words");

size_t slotIndexOf(const STickHandler* handler, size_t mask) {
    // Records are heap blocks: their low bits carry no information.
    const auto address = reinterpret_cast<uintptr_t>(handler);
    return static_cast<size_t>((address >> 4u) * 0x9E3779B1u) & mask;
}

/// Opens a write section of a sequence count (see the header's comment).
void beginWrite(std::atomic<uint32_t>& sequence) { sequence.fetch_add(1, std::memory_order_acquire); }
void endWrite(std::atomic<uint32_t>& sequence) { sequence.fetch_add(1, std::memory_order_release); }

/// The sequence count once no write section is open, or an odd count when
/// one stays open for the whole bound.
uint32_t evenSequence(const std::atomic<uint32_t>& sequence) {
    uint32_t value = sequence.load(std::memory_order_acquire);
    for (int look = 1; (value & 1u) != 0 && look < kLooksPerAttempt; ++look) {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
        value = sequence.load(std::memory_order_acquire);
    }
    return value;
}

template <typename T>
void put(std::atomic<T>& field, T value) {
    field.store(value, std::memory_order_release);
}

template <typename T>
T get(const std::atomic<T>& field) {
    return field.load(std::memory_order_acquire);
}

/// The writer's own view of a field it alone writes.
template <typename T>
T own(const std::atomic<T>& field) {
    return field.load(std::memory_order_relaxed);
}

/// Zeroes the figures, stamped with `epoch` afterwards; a reader that meets
/// the slot meanwhile reads zero. Fields in the order recordCall stores them.
void clearFigures(HandlerSlot& slot, uint32_t epoch) {
    put(slot.epoch, kClearing);
    put<int64_t>(slot.totalNs, 0);
    put<int64_t>(slot.maxNs, 0);
    put<int64_t>(slot.minNs, 0);
    put<int64_t>(slot.lastNs, 0);
    put<uint64_t>(slot.overBudget, 0);
    put<uint64_t>(slot.calls, 0);
    put(slot.epoch, epoch);
}

}  // namespace

// ---- Switches -----------------------------------------------------------------

void DispatchStatistics::switchOn(uint64_t handlerBudgetNs) {
    budgetNs.store(handlerBudgetNs == 0 ? period : static_cast<int64_t>(std::min<uint64_t>(handlerBudgetNs, INT64_MAX)),
                   std::memory_order_relaxed);
    on.store(true, std::memory_order_relaxed);
}

void DispatchStatistics::switchOff() { on.store(false, std::memory_order_relaxed); }

void DispatchStatistics::applyEnvironmentOnce() {
    if (environmentConsulted.exchange(true, std::memory_order_relaxed)) {
        return;
    }
    // Read at start-up only; nothing in the library changes the environment.
    const char* value = std::getenv(kEnvironmentSwitch);  // NOLINT(concurrency-mt-unsafe)
    if (value != nullptr && value[0] != '\0' && std::strcmp(value, "0") != 0) {
        switchOn(0);
    }
}

void DispatchStatistics::reset() { resetEpoch.fetch_add(1, std::memory_order_relaxed); }

// ---- The handler table ----------------------------------------------------------

HandlerSlot* DispatchStatistics::findSlot(const STickHandler* handler, uint32_t currentGeneration) const {
    size_t index = slotIndexOf(handler, tableMask);
    for (size_t probes = 0; probes < kMaxProbes && probes <= tableMask; ++probes, index = (index + 1) & tableMask) {
        HandlerSlot& slot = table[index];
        if (slot.generation.load(std::memory_order_acquire) != currentGeneration) {
            return nullptr;
        }
        const STickHandler* const key = slot.key.load(std::memory_order_acquire);
        if (key == handler) {
            return &slot;
        }
        if (key == nullptr) {
            return nullptr;
        }
    }
    return nullptr;
}

void DispatchStatistics::addHandler(const STickHandler* handler) {
    const uint32_t currentGeneration = generation.load(std::memory_order_relaxed);
    size_t index = slotIndexOf(handler, tableMask);
    for (size_t probes = 0; probes < kMaxProbes && probes <= tableMask; ++probes, index = (index + 1) & tableMask) {
        HandlerSlot& slot = table[index];
        const bool current = own(slot.generation) == currentGeneration;
        const STickHandler* const key = own(slot.key);
        if (current && key != nullptr && key != kTombstone) {
            continue;
        }
        put(slot.generation, currentGeneration);
        clearFigures(slot, resetEpoch.load(std::memory_order_relaxed));
        put(slot.key, handler);
        return;
    }
    // No free slot near its home: the handler runs as usual, without
    // figures of its own.
    handlersWithoutSlot.fetch_add(1, std::memory_order_relaxed);
}

void DispatchStatistics::removeHandler(const STickHandler* handler) {
    HandlerSlot* const slot = findSlot(handler, generation.load(std::memory_order_relaxed));
    if (slot == nullptr) {
        uint32_t without = handlersWithoutSlot.load(std::memory_order_relaxed);
        while (without != 0 &&
               !handlersWithoutSlot.compare_exchange_weak(without, without - 1, std::memory_order_relaxed)) {}
        return;
    }
    put(slot->key, kTombstone);
}

void DispatchStatistics::dropAllHandlers() {
    generation.fetch_add(1, std::memory_order_acq_rel);
    handlersWithoutSlot.store(0, std::memory_order_relaxed);
}

// ---- The pass -------------------------------------------------------------------

HandlerSlot* DispatchStatistics::slotFor(const STickHandler* handler) const {
    return findSlot(handler, generation.load(std::memory_order_acquire));
}

void DispatchStatistics::recordCall(PassTiming& pass, HandlerSlot* slot, const char (&name)[kNameBytes],
                                    int64_t callNs) {
    if (callNs > pass.longestCallNs) {
        pass.longestCallNs = callNs;
        std::memcpy(pass.longestCallName, name, sizeof(pass.longestCallName));
        pass.longestCallName[kNameBytes - 1] = '\0';
    }
    if (slot == nullptr) {
        return;
    }
    const uint32_t currentEpoch = resetEpoch.load(std::memory_order_relaxed);
    if (own(slot->epoch) != currentEpoch) {
        clearFigures(*slot, currentEpoch);
    }
    // Total, maximum, minimum before the count: a reader loads them in the
    // opposite order (see the header).
    const uint64_t calls = own(slot->calls);
    put(slot->totalNs, own(slot->totalNs) + callNs);
    put(slot->maxNs, std::max(own(slot->maxNs), callNs));
    put(slot->minNs, calls == 0 ? callNs : std::min(own(slot->minNs), callNs));
    put(slot->lastNs, callNs);
    if (callNs > budgetNs.load(std::memory_order_relaxed)) {
        put(slot->overBudget, own(slot->overBudget) + 1);
    }
    put(slot->calls, calls + 1);
}

OverrunReport DispatchStatistics::endPass(PassTiming& pass) {
    const int64_t endNs = statisticsNowNs();
    const int64_t passNs = pass.started ? endNs - pass.startNs : 0;
    const uint32_t currentEpoch = resetEpoch.load(std::memory_order_relaxed);
    countPass(pass, passNs, currentEpoch);
    if (passNs <= period) {
        return OverrunReport{};
    }
    return rateLimitedReport(pass, passNs, endNs, currentEpoch);
}

void DispatchStatistics::countPass(const PassTiming& pass, int64_t passNs, uint32_t currentEpoch) {
    PassFigures& figures = passFigures;
    const bool stale = own(figures.epoch) != currentEpoch;
    if (stale) {
        put(figures.epoch, kClearing);
        put<uint64_t>(figures.passes, 0);
        put<uint64_t>(figures.overruns, 0);
    }
    // Passes before overruns: a reader loads them in the opposite order.
    put(figures.passes, own(figures.passes) + 1);
    if (passNs > period) {
        put(figures.overruns, own(figures.overruns) + 1);
    }
    if (stale || passNs > own(figures.longestPassNs)) {
        beginWrite(figures.longestSequence);
        put(figures.longestPassNs, passNs);
        put(figures.longestPassCulpritNs, std::max<int64_t>(pass.longestCallNs, 0));
        uint64_t words[kNameWords] = {};
        std::memcpy(words, pass.longestCallName, sizeof(words));
        for (size_t i = 0; i < kNameWords; ++i) {
            put(figures.culprit[i], words[i]);
        }
        endWrite(figures.longestSequence);
    }
    if (stale) {
        put(figures.epoch, currentEpoch);
    }
}

OverrunReport DispatchStatistics::rateLimitedReport(const PassTiming& pass, int64_t passNs, int64_t nowNs,
                                                    uint32_t currentEpoch) {
    OverrunLimit& limit = overrunLimit;
    if (limit.epoch != currentEpoch) {
        limit = OverrunLimit{};
        limit.epoch = currentEpoch;
    }
    OverrunReport report;
    report.overran = true;
    report.passNs = passNs;
    report.periodNs = period;
    report.culpritNs = std::max<int64_t>(pass.longestCallNs, 0);
    std::memcpy(report.culprit, pass.longestCallName, sizeof(report.culprit));
    if (limit.reported && nowNs - limit.lastReportNs < kOverrunReportIntervalNs) {
        ++limit.sinceReport;
        return report;
    }
    report.due = true;
    report.suppressed = limit.sinceReport;
    limit.reported = true;
    limit.lastReportNs = nowNs;
    limit.sinceReport = 0;
    return report;
}

// ---- Queries --------------------------------------------------------------------

uint32_t DispatchStatistics::copyHandler(const STickHandler* handler, STickHandlerStatistics& out) const {
    const uint32_t currentGeneration = generation.load(std::memory_order_acquire);
    const HandlerSlot* const slot = findSlot(handler, currentGeneration);
    if (slot == nullptr) {
        return handlersWithoutSlot.load(std::memory_order_relaxed) != 0 ? TickResult::NoFigures
                                                                        : TickResult::UnknownHandler;
    }
    const uint32_t currentEpoch = resetEpoch.load(std::memory_order_relaxed);
    const uint32_t epochBefore = get(slot->epoch);
    STickHandlerStatistics copy = {};
    // The opposite of the order recordCall stores them in.
    copy.calls = get(slot->calls);
    copy.overBudget = get(slot->overBudget);
    copy.lastNs = get(slot->lastNs);
    copy.minNs = get(slot->minNs);
    copy.maxNs = get(slot->maxNs);
    copy.totalNs = get(slot->totalNs);
    if (get(slot->key) != handler || get(slot->generation) != currentGeneration) {
        return TickResult::UnknownHandler;
    }
    if (epochBefore != currentEpoch || get(slot->epoch) != epochBefore) {
        // Reset since, or being cleared for a reset meanwhile.
        copy = STickHandlerStatistics{};
    }
    // Everything but the size, which is the caller's.
    copy.size = out.size;
    out = copy;
    return TickResult::Success;
}

void DispatchStatistics::copyScheduler(STickSchedulerStatistics& out) const {
    const PassFigures& figures = passFigures;
    STickSchedulerStatistics copy = {};
    const uint32_t currentEpoch = resetEpoch.load(std::memory_order_relaxed);
    const uint32_t epochBefore = get(figures.epoch);
    copy.overruns = get(figures.overruns);
    copy.passes = get(figures.passes);
    for (int attempt = 0; attempt < kReadAttempts; ++attempt) {
        const uint32_t before = evenSequence(figures.longestSequence);
        if ((before & 1u) != 0) {
            continue;
        }
        copy.longestPassNs = get(figures.longestPassNs);
        copy.longestPassCulpritNs = get(figures.longestPassCulpritNs);
        uint64_t words[kNameWords] = {};
        for (size_t i = 0; i < kNameWords; ++i) {
            words[i] = get(figures.culprit[i]);
        }
        if (figures.longestSequence.load(std::memory_order_relaxed) == before) {
            std::memcpy(copy.longestPassCulprit, words, sizeof(copy.longestPassCulprit));
            copy.longestPassCulprit[kNameBytes - 1] = '\0';
            break;
        }
        // Still changing after every attempt: the pass stays, its culprit
        // is reported as unknown.
        copy.longestPassCulpritNs = 0;
    }
    if (epochBefore != currentEpoch || get(figures.epoch) != epochBefore) {
        copy = STickSchedulerStatistics{};
    }
    copy.size = out.size;
    copy.enabled = isOn() ? 1u : 0u;
    copy.periodNs = period;
    copy.handlerBudgetNs = budgetNs.load(std::memory_order_relaxed);
    out = copy;
}

}  // namespace zyn_ts
