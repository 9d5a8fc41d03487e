#include "HandlerTimeQuery.h"

#include "TickResultCodes.h"
#include "TickStatistics.h"

namespace tickmon {
namespace {

/// Appends the row of one registered handler; false when it is unknown.
bool appendRow(const SchedulerEntryPoints& library, const std::string& name, const STickHandler* handle,
               HandlerTimeReport& report) {
    STickHandlerStatistics figures{};
    figures.size = sizeof figures;
    if (handle == nullptr || library.getHandlerStatistics(handle, &figures) != TickResult::Success) {
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

bool enableHandlerTime(const SchedulerEntryPoints& library) {
    // The budget is the period: a call over it alone costs the next tick.
    return library.enableStatistics(0) == TickResult::Success && library.resetStatistics() == TickResult::Success;
}

HandlerTimeReport readHandlerTime(const SchedulerEntryPoints& library, TickHandlers& handlers) {
    HandlerTimeReport report;
    STickSchedulerStatistics scheduler{};
    scheduler.size = sizeof scheduler;
    if (library.getSchedulerStatistics(&scheduler) != TickResult::Success || scheduler.enabled == 0) {
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
    report.available = appendRow(library, "tickmon-probe", handlers.probe().handle, report);
    for (size_t i = 0; i < handlers.loadCount(); ++i) {
        LoadHandler& load = handlers.load(i);
        report.available = appendRow(library, load.name, load.handle, report) && report.available;
    }
    return report;
}

}  // namespace tickmon
