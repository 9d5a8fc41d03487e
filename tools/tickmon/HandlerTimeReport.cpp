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

void writeHandlerTimeJson(JsonWriter& json, const HandlerTimeReport& report) {
    json.key("handler_time");
    if (!report.available) {
        json.null();
        return;
    }
    json.beginObject();
    json.key("passes").value(report.passes);
    json.key("overruns").value(report.overruns);
    json.key("budget_ns").value(report.budgetNs);
    json.key("worst_pass").beginObject();
    json.key("duration_ns").value(report.longestPassNs);
    json.key("culprit");
    report.culprit.empty() ? json.null() : json.value(report.culprit);
    json.key("culprit_ns").value(report.culpritNs);
    json.endObject();
    json.key("handlers").beginArray();
    for (const HandlerTimeRow& row : report.handlers) {
        json.beginObject();
        json.key("name").value(row.name);
        json.key("calls").value(row.calls);
        json.key("min_ns").value(row.minNs);
        json.key("mean_ns").value(row.meanNs);
        json.key("max_ns").value(row.maxNs);
        json.key("over_budget").value(row.overBudget);
        json.endObject();
    }
    json.endArray();
    json.endObject();
}

}  // namespace tickmon
