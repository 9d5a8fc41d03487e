// Results a fuzzed platform returns from its registration calls: successes,
// remarks, errors, and values with the top bit set (which count as success,
// since the library reads them as signed numbers).
#pragma once

#include <cstdint>
#include <string>

namespace zyn_fuzz {

/// Success comes four times, so that most inputs get past the platform.
constexpr uint32_t kPlatformResults[] = {0,           0,      0,      0,          1,           4097,
                                         32767,       32768,  32773,  32778,      0x7FFFFFFFu, 0x80000000u,
                                         0x80008000u, 0x9001, 0x9101, 0xFFFFFFFFu};

/// A platform result is a refusal when, read as a signed number, it is 32768
/// or more.
inline bool refused(uint32_t platformResult) { return static_cast<int32_t>(platformResult) >= 32768; }

/// "0x" and eight lower-case hex digits.
inline std::string hex8(uint32_t value) {
    static const char digits[] = "0123456789abcdef";
    std::string text = "0x";
    for (int shift = 28; shift >= 0; shift -= 4) {
        text.push_back(digits[(value >> shift) & 0xFu]);
    }
    return text;
}

}  // namespace zyn_fuzz
