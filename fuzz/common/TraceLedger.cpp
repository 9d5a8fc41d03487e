#include "TraceLedger.h"

#include "FuzzCheck.h"
#include "FuzzNames.h"
#include "PlatformDouble.h"

namespace zyn_fuzz {
namespace {

constexpr uint32_t kEntryLevel = 6;

std::string describe(uint32_t level, const std::string& file, const std::string& function, const std::string& text,
                     bool entry) {
    return "[" + std::to_string(level) + (entry ? " entry" : " msg") + "] " + file + " " + function + ": \"" +
           printable(text) + "\"";
}

std::string describe(const ExpectedLine& line) {
    return describe(line.level, line.file, line.function, line.text, line.entry);
}

std::string describe(const platform_double::TraceRecord& record) {
    return describe(record.level, record.file, record.function, record.text, record.entry);
}

bool same(const ExpectedLine& line, const platform_double::TraceRecord& record) {
    return line.level == record.level && line.file == record.file && line.function == record.function &&
           line.text == record.text && line.entry == record.entry;
}

}  // namespace

void TraceLedger::setLevel(uint32_t level) {
    maxLevel = level;
    platform_double::setTraceLevel(level);
}

void TraceLedger::message(uint32_t level, const char* file, const std::string& function, const std::string& text) {
    if (level <= maxLevel) {
        expected.push_back(ExpectedLine{level, file, function, text, false});
    }
}

void TraceLedger::entry(const char* file, const std::string& function, const std::string& text) {
    if (kEntryLevel <= maxLevel) {
        expected.push_back(ExpectedLine{kEntryLevel, file, function, text, true});
    }
}

void TraceLedger::verify(const std::string& where) {
    const std::vector<platform_double::TraceRecord> actual = platform_double::traces();
    bool equal = actual.size() == expected.size();
    for (size_t i = 0; equal && i < actual.size(); ++i) {
        equal = same(expected[i], actual[i]);
    }
    if (!equal) {
        std::string report = "trace lines differ " + where + "\n  library wrote:";
        for (const auto& record : actual) {
            report += "\n    " + describe(record);
        }
        report += "\n  model expects:";
        for (const auto& line : expected) {
            report += "\n    " + describe(line);
        }
        fail(report);
    }
    discard();
}

void TraceLedger::discard() {
    expected.clear();
    platform_double::clearTraces();
}

}  // namespace zyn_fuzz
