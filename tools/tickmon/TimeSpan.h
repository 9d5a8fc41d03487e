// Time spans as the monitor's options write them: "10s", "500ms", "50us".
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tickmon {

/// Reads a non-negative time span: a decimal number ("10", "2.5", ".5")
/// followed by one of the units ns, us, ms, s, min or h; a number without a
/// unit is taken in `defaultUnitNs`. Anything else, and spans beyond about
/// 292 years, give no value.
std::optional<int64_t> parseTimeSpan(const std::string& text, int64_t defaultUnitNs);

}  // namespace tickmon
