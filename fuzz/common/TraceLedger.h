// The trace lines the model expects, checked against what the library wrote
// into the platform double.
//
// The model announces every line the library must write, with the level
// filter applied as the trace service applies it; verify() then compares the
// announced lines with the double's record, line by line (level, source file,
// function, text, entry or message), and starts both afresh.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zyn_fuzz {

/// Where the library's trace sites live, as the build names them.
constexpr const char* kSchedulerSource = "PlatformServices/TickScheduler/private/CTickScheduler.cpp";
constexpr const char* kFastSource = "PlatformServices/TickScheduler/private/CTickSchedulerFast.cpp";
constexpr const char* kOscillatorSource = "PlatformServices/TickScheduler/private/CTickOscillator.cpp";

struct ExpectedLine {
    uint32_t level;
    std::string file;
    std::string function;
    std::string text;
    bool entry;
};

/// The levels of the library's messages.
enum TraceLevel : uint32_t { kError = 1, kWarning = 2, kInfo = 5 };

class TraceLedger {
public:
    /// Levels up to `maxLevel` are written, in the double and in the model.
    void setLevel(uint32_t maxLevel);
    uint32_t level() const { return maxLevel; }

    /// A message the library must write now, if its level is enabled.
    void message(uint32_t level, const char* file, const std::string& function, const std::string& text);
    /// A function-entry record (level 6), with an optional text.
    void entry(const char* file, const std::string& function, const std::string& text = std::string());

    /// Compares the announced lines with those the library wrote since the
    /// last check; fails with a report naming `where` on any difference.
    void verify(const std::string& where);

    /// Forgets both sides without comparing (for set-up and clean-up).
    void discard();

private:
    uint32_t maxLevel = 7;
    std::vector<ExpectedLine> expected;
};

}  // namespace zyn_fuzz
