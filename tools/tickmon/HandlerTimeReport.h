// Which handler makes ticks late: the scheduler's own timing of every handler
// call and of every pass, as the monitor reports it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "JsonRecord.h"

namespace tickmon {

struct HandlerTimeRow {
    std::string name;
    uint64_t calls = 0;
    int64_t minNs = 0;
    int64_t meanNs = 0;
    int64_t maxNs = 0;
    /// Calls longer than the budget (the tick period).
    uint64_t overBudget = 0;
};

struct HandlerTimeReport {
    /// False when the scheduler's statistics could not be read.
    bool available = false;
    uint64_t passes = 0;
    /// Passes longer than the period.
    uint64_t overruns = 0;
    int64_t budgetNs = 0;
    int64_t longestPassNs = 0;
    /// The handler that took most of the longest pass; empty if none ran.
    std::string culprit;
    int64_t culpritNs = 0;
    std::vector<HandlerTimeRow> handlers;
};

/// The "Handler time" section of the text report.
std::string formatHandlerTime(const HandlerTimeReport& report);

/// The "handler_time" object of the JSON record; null when the statistics
/// could not be read.
Json handlerTimeJson(const HandlerTimeReport& report);

}  // namespace tickmon
