#include "CommandLine.h"

#include <cstdio>
#include <sstream>

namespace zyn_cli {

namespace {

/// Whether CLI11's `message` is about the option `name` ("--cpu"): it starts
/// with the name, with or without its dashes.
bool isAbout(const std::string& message, const std::string& name) {
    const std::string bare = name.substr(name.find_first_not_of('-'));
    for (const std::string& start : {name, bare}) {
        if (message.size() > start.size() && message.rfind(start, 0) == 0 &&
            (message[start.size()] == ':' || message[start.size()] == ' ')) {
            return true;
        }
    }
    return false;
}

/// The one-line error for CLI11's "wrong number of values", which names the
/// option first: what the option takes instead.
std::string explainMismatch(CLI::App& app, const std::string& message) {
    for (CLI::Option* option : app.get_options()) {
        const std::string name = option->get_name();
        if (name.empty() || !isAbout(message, name)) {
            continue;
        }
        if (option->get_expected_min() == 0) {
            return name + ": takes no value";
        }
        return name + ": missing value; expected " + option->get_validator(0)->get_name();
    }
    return message;
}

}  // namespace

std::unique_ptr<CLI::App> makeApp(const std::string& program, const std::string& description) {
    auto app = std::make_unique<CLI::App>(description, program);
    app->option_defaults()->disable_flag_override();
    app->set_help_flag("-h,--help", "this text");
    app->get_formatter()->column_width(28);
    return app;
}

CLI::Option* addValueOption(CLI::App& app, const std::string& group, ValueOption option) {
    const std::string name = option.name;
    const std::string accepted = option.accepted;
    const auto store = option.store;
    // The value is checked and stored in one step: the check is the store.
    CLI::Validator storeOrRefuse(
        [name, accepted, store](std::string& value) {
            return store(value) ? std::string() : "invalid value '" + value + "'; expected " + accepted;
        },
        "");
    // The validator's name keeps the accepted values for a missing value's error.
    storeOrRefuse.name(accepted);
    return app.add_option(name)
        ->description(option.purpose + "; " + accepted)
        ->type_name(option.valueName)
        ->check(storeOrRefuse)
        ->group(group)
        ->take_last();
}

Parsed parse(CLI::App& app, const std::vector<std::string>& arguments) {
    Parsed parsed;
    // CLI11 takes the arguments last first.
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        parsed.outcome = Outcome::Help;
    } catch (const CLI::ExtrasError&) {
        parsed.outcome = Outcome::Error;
        parsed.error = "unknown option '" + app.remaining().front() + "' (see --help)";
    } catch (const CLI::ArgumentMismatch& error) {
        parsed.outcome = Outcome::Error;
        parsed.error = explainMismatch(app, error.what());
    } catch (const CLI::ParseError& error) {
        parsed.outcome = Outcome::Error;
        parsed.error = error.what();
    }
    return parsed;
}

std::optional<std::vector<std::string>> commaSeparated(const std::string& text) {
    std::vector<std::string> items;
    std::istringstream in(text);
    for (std::string item; std::getline(in, item, ',');) {
        items.push_back(item);
    }
    if (text.empty() || text.back() == ',') {
        return std::nullopt;
    }
    for (const std::string& item : items) {
        if (item.empty()) {
            return std::nullopt;
        }
    }
    return items;
}

int runParsed(CLI::App& app, int argc, char** argv, const std::function<int()>& run) {
    const Parsed parsed = parse(app, std::vector<std::string>(argv + 1, argv + argc));
    switch (parsed.outcome) {
        case Outcome::Help:
            std::fputs(app.help().c_str(), stdout);
            return 0;
        case Outcome::Error:
            std::fprintf(stderr, "%s: %s\n", app.get_name().c_str(), parsed.error.c_str());
            return 2;
        case Outcome::Run:
            break;
    }
    return run();
}

}  // namespace zyn_cli
