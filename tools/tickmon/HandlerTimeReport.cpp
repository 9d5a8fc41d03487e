#include "HandlerTimeReport.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace tickmon {
namespace {

double toUs(int64_t ns) { return static_cast<double>(ns) / 1000.0; }

std::string line(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string line(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

}  // namespace

std::string formatHandlerTime(const HandlerTimeReport& report) {
    std::string out = "\nHandler time (measured by the scheduler, per call)\n";
    if (!report.available) {
        return out + "  not available: the scheduler's statistics could not be read\n";
    }
    out += line("  %-31s %10s %12s %12s %12s %12s\n", "handler", "calls", "min us", "mean us", "max us", "over budget");
    for (const HandlerTimeRow& row : report.handlers) {
        out += line("  %-31s %10" PRIu64 " %12.3f %12.3f %12.3f %12" PRIu64 "\n", row.name.c_str(), row.calls,
                    toUs(row.minNs), toUs(row.meanNs), toUs(row.maxNs), row.overBudget);
    }
    out += line("  passes longer than the %.3f ms period: %" PRIu64 " of %" PRIu64 "\n",
                static_cast<double>(report.budgetNs) / 1e6, report.overruns, report.passes);
    if (report.culprit.empty()) {
        out += line("  worst pass: %.3f us, no handler ran in it\n", toUs(report.longestPassNs));
    } else {
        out += line("  worst pass: %.3f us, culprit %s (%.3f us of it)\n", toUs(report.longestPassNs),
                    report.culprit.c_str(), toUs(report.culpritNs));
    }
    return out;
}

Json handlerTimeJson(const HandlerTimeReport& report) {
    if (!report.available) {
        return nullptr;
    }
    Json handlers = Json::array();
    for (const HandlerTimeRow& row : report.handlers) {
        handlers.push_back({{"name", row.name},
                            {"calls", row.calls},
                            {"min_ns", row.minNs},
                            {"mean_ns", row.meanNs},
                            {"max_ns", row.maxNs},
                            {"over_budget", row.overBudget}});
    }
    const Json culprit = report.culprit.empty() ? Json(nullptr) : Json(report.culprit);
    return {
        {"passes", report.passes},
        {"overruns", report.overruns},
        {"budget_ns", report.budgetNs},
        {"worst_pass", {{"duration_ns", report.longestPassNs}, {"culprit", culprit}, {"culprit_ns", report.culpritNs}}},
        {"handlers", handlers}};
}

}  // namespace tickmon
