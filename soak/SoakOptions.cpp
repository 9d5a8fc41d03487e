#include "SoakOptions.h"

#include <limits>
#include <string>

#include "CommandLine.h"

namespace soak {

namespace {
constexpr uint32_t kMost = std::numeric_limits<uint32_t>::max();
}  // namespace

std::unique_ptr<CLI::App> commandLine(SoakOptions& options) {
    std::unique_ptr<CLI::App> app = zyn_cli::makeApp(
        "zyn-soak",
        "Runs both tick schedulers with client threads churning handlers and checks calls, late calls, every pass on "
        "its own grid point and memory at the end. Exit status 0 when every check holds.");
    const std::string anyInteger = "an integer from 0 to " + std::to_string(kMost);
    zyn_cli::addValueOption(
        *app, "Options",
        {"--seconds", "N", "how long the clients churn, default " + std::to_string(options.seconds), anyInteger,
         [&options](const std::string& text) { return zyn_cli::storeInteger(text, options.seconds, 0U, kMost); }});
    zyn_cli::addValueOption(
        *app, "Options",
        {"--seed", "N", "seeds the clients' random choices, default " + std::to_string(options.seed), anyInteger,
         [&options](const std::string& text) { return zyn_cli::storeInteger(text, options.seed, 0U, kMost); }});
    return app;
}

}  // namespace soak
