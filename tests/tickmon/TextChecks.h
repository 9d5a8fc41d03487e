// Checks of the monitor's text output (reports, status lines, plot scripts):
// whether it holds the lines and phrases a reader looks for.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace tickmon {

/// Whether `part` occurs in `text`.
inline bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

/// Whether every one of `parts` occurs in `text`; a failure names the parts
/// that are missing and shows the whole text.
inline ::testing::AssertionResult containsAll(const std::string& text, std::initializer_list<std::string> parts) {
    std::string missing;
    for (const std::string& part : parts) {
        if (!contains(text, part)) {
            missing += "\n  missing: " + part;
        }
    }
    if (missing.empty()) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << missing << "\nin:\n" << text;
}

}  // namespace tickmon
