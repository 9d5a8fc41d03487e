#include "TimeSpan.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <limits>

namespace tickmon {
namespace {

struct Unit {
    const char* suffix;
    int64_t nanoseconds;
};

constexpr Unit kUnits[] = {
    {"ns", 1},
    {"us", kNanosPerMicro},
    {"ms", kNanosPerMilli},
    {"s", kNanosPerSecond},
    {"min", 60 * kNanosPerSecond},
    {"h", 3600 * kNanosPerSecond},
};

std::optional<int64_t> unitNanoseconds(const std::string& suffix, int64_t defaultUnitNs) {
    if (suffix.empty()) {
        return defaultUnitNs;
    }
    for (const Unit& unit : kUnits) {
        if (suffix == unit.suffix) {
            return unit.nanoseconds;
        }
    }
    return std::nullopt;
}

/// Splits "12.5ms" into its number part "12.5" and its unit part "ms"; false
/// when the number part is not digits with at most one decimal point.
bool splitNumberAndUnit(const std::string& text, std::string& number, std::string& unit) {
    size_t end = 0;
    bool seenDigit = false;
    bool seenPoint = false;
    while (end < text.size()) {
        const unsigned char c = static_cast<unsigned char>(text[end]);
        if (std::isdigit(c) != 0) {
            seenDigit = true;
        } else if (c == '.' && !seenPoint) {
            seenPoint = true;
        } else {
            break;
        }
        ++end;
    }
    number = text.substr(0, end);
    unit = text.substr(end);
    return seenDigit;
}

}  // namespace

std::optional<int64_t> parseTimeSpan(const std::string& text, int64_t defaultUnitNs) {
    std::string number;
    std::string unit;
    if (!splitNumberAndUnit(text, number, unit)) {
        return std::nullopt;
    }
    const std::optional<int64_t> scale = unitNanoseconds(unit, defaultUnitNs);
    if (!scale) {
        return std::nullopt;
    }
    // Whole and fractional parts are kept apart so that "10s" is exact.
    const size_t point = number.find('.');
    const std::string whole = number.substr(0, point);
    const std::string fraction = point == std::string::npos ? std::string() : number.substr(point + 1);
    const int64_t limit = std::numeric_limits<int64_t>::max();
    int64_t wholeValue = 0;
    for (const char digit : whole) {
        if (wholeValue > (limit - (digit - '0')) / 10) {
            return std::nullopt;
        }
        wholeValue = wholeValue * 10 + (digit - '0');
    }
    if (wholeValue > limit / *scale) {
        return std::nullopt;
    }
    double fractionValue = 0.0;
    double weight = 0.1;
    for (const char digit : fraction) {
        fractionValue += (digit - '0') * weight;
        weight /= 10.0;
    }
    const int64_t fractionNs = static_cast<int64_t>(std::llround(fractionValue * static_cast<double>(*scale)));
    if (wholeValue * *scale > limit - fractionNs) {
        return std::nullopt;
    }
    return wholeValue * *scale + fractionNs;
}

std::string formatTimeSpan(int64_t nanoseconds) {
    const Unit* chosen = &kUnits[0];
    for (const Unit& unit : kUnits) {
        if (unit.nanoseconds <= kNanosPerSecond && nanoseconds >= unit.nanoseconds) {
            chosen = &unit;
        }
    }
    char text[64];
    const double value = static_cast<double>(nanoseconds) / static_cast<double>(chosen->nanoseconds);
    std::snprintf(text, sizeof text, "%.6g %s", value, chosen->suffix);
    return text;
}

}  // namespace tickmon
