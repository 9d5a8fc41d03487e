// The command lines of the tools (zyn-tickmon, zyn-soak, zyn-tickdemo), read
// by CLI11. Each value option is defined once: what it is for and what it
// accepts, in words that appear both in --help and in the one-line error for
// a refused value, next to the function that stores an accepted value.
#pragma once

#include <CLI/CLI.hpp>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace zyn_cli {

/// A command line for `program` that says what it does in `description`:
/// -h/--help prints the help, and a flag refuses "=value".
std::unique_ptr<CLI::App> makeApp(const std::string& program, const std::string& description);

/// An option that takes a value.
struct ValueOption {
    const char* name;       ///< "--priority", or "-p,--priority"
    const char* valueName;  ///< shown in the help: "P"
    std::string purpose;    ///< what it does, and its default
    std::string accepted;   ///< the values it takes: "an integer from 0 (highest) to 4 (lowest)"
    /// Stores `value`; false when it is not one of the accepted values.
    std::function<bool(const std::string& value)> store;
};

/// Adds `option` to `app` in the help group `group`. A refused value ends the
/// parse with "<name>: invalid value '<value>'; expected <accepted>".
CLI::Option* addValueOption(CLI::App& app, const std::string& group, ValueOption option);

enum class Outcome { Run, Help, Error };

struct Parsed {
    Outcome outcome = Outcome::Run;
    /// For Error: one line naming the option and what it accepts.
    std::string error;
};

/// Parses the arguments after the program name; --help wins over everything.
Parsed parse(CLI::App& app, const std::vector<std::string>& arguments);

/// Runs `run` unless the command line asks for help (printed on stdout,
/// exit 0) or is refused ("<program>: <error>" on stderr, exit 2).
int runParsed(CLI::App& app, int argc, char** argv, const std::function<int()>& run);

/// A decimal integer of digits only (no sign, no blanks, no other base)
/// from `low` to `high`.
template <typename Integer>
std::optional<Integer> integerIn(const std::string& text, Integer low, Integer high) {
    Integer value{};
    const char* end = text.data() + text.size();
    const bool digitsOnly = !text.empty() && text.front() != '-' && text.front() != '+';
    const std::from_chars_result read = std::from_chars(text.data(), end, value);
    if (!digitsOnly || read.ec != std::errc() || read.ptr != end || value < low || value > high) {
        return std::nullopt;
    }
    return value;
}

/// Stores `value` into `target` when there is one; whether there was.
template <typename Target, typename Value>
bool storeIfAny(Target& target, const std::optional<Value>& value) {
    if (value) {
        target = *value;
    }
    return value.has_value();
}

/// Stores the integer `text` into `target` when it lies from `low` to `high`.
template <typename Integer, typename Target>
bool storeInteger(const std::string& text, Target& target, Integer low, Integer high) {
    return storeIfAny(target, integerIn(text, low, high));
}

/// The items of a comma-separated list; none when an item is empty.
std::optional<std::vector<std::string>> commaSeparated(const std::string& text);

/// The comma-separated list `text` ("1,2,5"), each item read by `readItem`
/// (which gives an optional value); none when the list is empty, has an
/// empty item, an item `readItem` refuses, or more than `most` items.
template <typename Reader>
auto listOf(const std::string& text, Reader readItem, size_t most = SIZE_MAX)
    -> std::optional<std::vector<typename decltype(readItem(text))::value_type>> {
    std::vector<typename decltype(readItem(text))::value_type> values;
    const std::optional<std::vector<std::string>> items = commaSeparated(text);
    for (const std::string& item : items.value_or(std::vector<std::string>{})) {
        const auto value = readItem(item);
        if (!value || values.size() >= most) {
            return std::nullopt;
        }
        values.push_back(*value);
    }
    return values.empty() ? std::nullopt : std::make_optional(values);
}

/// An integer option's range, with what either end means where that helps:
/// "an integer from 0 (highest) to 4 (lowest)".
template <typename Integer>
struct IntegerRange {
    Integer low;
    Integer high;
    const char* lowMeaning = nullptr;
    const char* highMeaning = nullptr;

    std::string inWords() const {
        auto end = [](Integer value, const char* meaning) {
            return std::to_string(value) + (meaning != nullptr ? std::string(" (") + meaning + ")" : std::string());
        };
        return "an integer from " + end(low, lowMeaning) + " to " + end(high, highMeaning);
    }
};

/// Adds the integer option `name` that stores into `target` (an integer or
/// an optional one) a value within `range`.
template <typename Integer, typename Target>
CLI::Option* addIntegerOption(CLI::App& app, const std::string& group, const char* name, const char* valueName,
                              std::string purpose, const IntegerRange<Integer>& range, Target& target) {
    return addValueOption(
        app, group, {name, valueName, std::move(purpose), range.inWords(), [&target, range](const std::string& text) {
                         return storeInteger(text, target, range.low, range.high);
                     }});
}

}  // namespace zyn_cli
