// Time spans as the monitor's options write them: "10s", "500ms", "50us".
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tickmon {

constexpr int64_t kNanosPerMicro = 1000;
constexpr int64_t kNanosPerMilli = 1000 * kNanosPerMicro;
constexpr int64_t kNanosPerSecond = 1000 * kNanosPerMilli;

/// Parses a non-negative time span: a decimal number ("10", "2.5") followed by
/// one of the units ns, us, ms, s, min or h. A number without a unit is taken
/// in `defaultUnitNs`. Empty input, a negative number, an unknown unit,
/// trailing text and spans beyond about 292 years give no value.
std::optional<int64_t> parseTimeSpan(const std::string& text, int64_t defaultUnitNs);

/// Formats a span in the largest unit that keeps it readable, e.g.
/// "10 s", "500 ms", "50 us", "1.5 s".
std::string formatTimeSpan(int64_t nanoseconds);

}  // namespace tickmon
