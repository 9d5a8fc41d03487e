#include "TimeSpan.h"

#include <charconv>
#include <cmath>
#include <map>
#include <system_error>

#include "ZynSupport/MonotonicClock.h"

namespace tickmon {

std::optional<int64_t> parseTimeSpan(const std::string& text, int64_t defaultUnitNs) {
    using namespace zyn_support;
    static const std::map<std::string, int64_t> kUnits = {
        {"ns", 1},
        {"us", kNanosecondsPerMicrosecond},
        {"ms", kNanosecondsPerMillisecond},
        {"s", kNanosecondsPerSecond},
        {"min", 60 * kNanosecondsPerSecond},
        {"h", 3600 * kNanosecondsPerSecond},
    };
    double number = 0.0;
    const char* end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const std::string unit(read.ptr, end);
    const auto scale = unit.empty() ? kUnits.end() : kUnits.find(unit);
    if (read.ec != std::errc() || text.front() == '-' || (!unit.empty() && scale == kUnits.end())) {
        return std::nullopt;
    }
    // Rounded to whole nanoseconds, which keeps "0.1s" exact.
    const double ns = number * static_cast<double>(unit.empty() ? defaultUnitNs : scale->second);
    if (!(ns < 9.2e18)) {
        return std::nullopt;
    }
    return std::llround(ns);
}

}  // namespace tickmon
