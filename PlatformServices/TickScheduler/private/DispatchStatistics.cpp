#include "DispatchStatistics.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "StatisticsClock.h"
#include "TickPath.h"

namespace zyn_ts {

namespace {

constexpr const char* kEnvironmentSwitch = "ZYN_TICK_STATISTICS";
/// A persistently slow handler may not flood the trace.
constexpr int64_t kOverrunReportIntervalNs = 1000 * kNsPerMs;

/// The record's name is always NUL-terminated within its 32 bytes.
void copyName(char (&target)[32], const char (&source)[32]) {
    std::memcpy(target, source, sizeof(target));
    target[sizeof(target) - 1] = '\0';
}

}  // namespace

DispatchStatistics::DispatchStatistics(int64_t periodNs) {
    figures.periodNs = periodNs;
    figures.handlerBudgetNs = periodNs;
}

void DispatchStatistics::switchOn(uint64_t budgetNs) {
    figures.handlerBudgetNs =
        budgetNs == 0 ? figures.periodNs : static_cast<int64_t>(std::min<uint64_t>(budgetNs, INT64_MAX));
    on.store(true, std::memory_order_relaxed);
}

void DispatchStatistics::switchOff() { on.store(false, std::memory_order_relaxed); }

void DispatchStatistics::applyEnvironment() {
    // Read only by Initialize, which the platform calls before any phase on
    // one thread; nothing in the library changes the environment.
    const char* value = std::getenv(kEnvironmentSwitch);  // NOLINT(concurrency-mt-unsafe)
    if (value != nullptr && value[0] != '\0' && std::strcmp(value, "0") != 0) {
        switchOn(0);
    }
}

void DispatchStatistics::reset() {
    for (auto& entry : handlers) {
        entry.second.figures = STickHandlerStatistics{};
    }
    figures.passes = 0;
    figures.overruns = 0;
    figures.longestPassNs = 0;
    figures.longestPassCulpritNs = 0;
    figures.longestPassCulprit[0] = '\0';
    overrunReported = false;
    lastOverrunReportNs = 0;
    overrunsSinceReport = 0;
}

void DispatchStatistics::addHandler(const STickHandler* handler) {
    try {
        HandlerTiming& timing = handlers[handler];
        timing = HandlerTiming{};
        copyName(timing.name, handler->name);
    } catch (const std::bad_alloc&) {
        // The handler runs as usual; only its figures are missing.
    }
}

void DispatchStatistics::removeHandler(const STickHandler* handler) {
    const auto found = handlers.find(handler);
    if (found == handlers.end()) {
        return;
    }
    if (passOpen) {
        // The pass may be timing this very handler's call.
        if (!found->second.removed) {
            found->second.removed = true;
            ++removedDuringPass;
        }
        return;
    }
    handlers.erase(found);
}

void DispatchStatistics::removeAllHandlers() {
    handlers.clear();
    removedDuringPass = 0;
}

ZYN_TS_TICK_PATH void DispatchStatistics::beginPass() { passOpen = true; }

ZYN_TS_TICK_PATH HandlerTiming* DispatchStatistics::entryFor(const STickHandler* handler) {
    const auto found = handlers.find(handler);
    return found == handlers.end() ? nullptr : &found->second;
}

ZYN_TS_TICK_PATH void DispatchStatistics::recordCall(PassTiming& pass, HandlerTiming* entry, int64_t callNs) const {
    if (entry == nullptr) {
        return;
    }
    STickHandlerStatistics& handlerFigures = entry->figures;
    handlerFigures.minNs = handlerFigures.calls == 0 ? callNs : std::min(handlerFigures.minNs, callNs);
    handlerFigures.maxNs = std::max(handlerFigures.maxNs, callNs);
    handlerFigures.lastNs = callNs;
    handlerFigures.totalNs += callNs;
    ++handlerFigures.calls;
    if (callNs > figures.handlerBudgetNs) {
        ++handlerFigures.overBudget;
    }
    if (callNs > pass.longestCallNs) {
        pass.longestCallNs = callNs;
        std::memcpy(pass.longestCallName, entry->name, sizeof(pass.longestCallName));
    }
}

ZYN_TS_TICK_PATH OverrunReport DispatchStatistics::endPass(PassTiming& pass) {
    const int64_t endNs = statisticsNowNs();
    const int64_t passNs = pass.started ? endNs - pass.startNs : 0;
    countPass(pass, passNs);
    if (removedDuringPass != 0) {
        for (auto entry = handlers.begin(); entry != handlers.end();) {
            entry = entry->second.removed ? handlers.erase(entry) : std::next(entry);
        }
        removedDuringPass = 0;
    }
    passOpen = false;
    if (passNs <= figures.periodNs) {
        return OverrunReport{};
    }
    ++figures.overruns;
    return rateLimitedReport(pass, passNs, endNs);
}

void DispatchStatistics::countPass(const PassTiming& pass, int64_t passNs) {
    ++figures.passes;
    if (passNs > figures.longestPassNs) {
        figures.longestPassNs = passNs;
        figures.longestPassCulpritNs = std::max<int64_t>(pass.longestCallNs, 0);
        std::memcpy(figures.longestPassCulprit, pass.longestCallName, sizeof(figures.longestPassCulprit));
    }
}

OverrunReport DispatchStatistics::rateLimitedReport(const PassTiming& pass, int64_t passNs, int64_t nowNs) {
    if (overrunReported && nowNs - lastOverrunReportNs < kOverrunReportIntervalNs) {
        ++overrunsSinceReport;
        return OverrunReport{};
    }
    OverrunReport report;
    report.due = true;
    report.passNs = passNs;
    report.periodNs = figures.periodNs;
    report.culpritNs = std::max<int64_t>(pass.longestCallNs, 0);
    std::memcpy(report.culprit, pass.longestCallName, sizeof(report.culprit));
    report.suppressed = overrunsSinceReport;
    overrunReported = true;
    lastOverrunReportNs = nowNs;
    overrunsSinceReport = 0;
    return report;
}

bool DispatchStatistics::copyHandler(const STickHandler* handler, STickHandlerStatistics& out) const {
    const auto found = handlers.find(handler);
    if (found == handlers.end() || found->second.removed) {
        return false;
    }
    // Everything but the size, which is the caller's.
    const uint32_t callerSize = out.size;
    out = found->second.figures;
    out.size = callerSize;
    return true;
}

void DispatchStatistics::copyScheduler(STickSchedulerStatistics& out) const {
    // Everything but the size, which is the caller's.
    const uint32_t callerSize = out.size;
    out = figures;
    out.size = callerSize;
    out.enabled = isOn() ? 1u : 0u;
}

}  // namespace zyn_ts
