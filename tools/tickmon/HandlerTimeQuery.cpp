#include "HandlerTimeQuery.h"

#include "TickResultCodes.h"
#include "TickStatistics.h"

namespace tickmon {
namespace {

/// Appends the row of one registered handler; false when it is unknown.
bool appendRow(const std::string& name, const STickHandler* handle, HandlerTimeReport& report) {
    STickHandlerStatistics figures{};
    figures.size = sizeof figures;
    if (handle == nullptr || CTickScheduler_GetHandlerStatistics(handle, &figures) != TickResult::Success) {
        return false;
    }
    HandlerTimeRow row;
    row.name = name;
    row.calls = figures.calls;
    row.minNs = figures.minNs;
    row.maxNs = figures.maxNs;
    row.meanNs = figures.calls == 0 ? 0 : figures.totalNs / static_cast<int64_t>(figures.calls);
    row.overBudget = figures.overBudget;
    report.handlers.push_back(row);
    return true;
}

}  // namespace

bool enableHandlerTime() {
    // The budget is the period: a call over it alone costs the next tick.
    return CTickScheduler_EnableStatistics(0) == TickResult::Success &&
           CTickScheduler_ResetStatistics() == TickResult::Success;
}

HandlerTimeReport readHandlerTime(TickHandlers& handlers) {
    HandlerTimeReport report;
    STickSchedulerStatistics scheduler{};
    scheduler.size = sizeof scheduler;
    if (CTickScheduler_GetSchedulerStatistics(&scheduler) != TickResult::Success || scheduler.enabled == 0) {
        return report;
    }
    report = HandlerTimeReport{false,
                               scheduler.passes,
                               scheduler.overruns,
                               scheduler.handlerBudgetNs,
                               scheduler.longestPassNs,
                               scheduler.longestPassCulprit,
                               scheduler.longestPassCulpritNs,
                               {}};
    report.available = appendRow("tickmon-probe", handlers.probe().handle, report);
    for (size_t i = 0; i < handlers.loadCount(); ++i) {
        LoadHandler& load = handlers.load(i);
        report.available = appendRow(load.name, load.handle, report) && report.available;
    }
    return report;
}

}  // namespace tickmon
