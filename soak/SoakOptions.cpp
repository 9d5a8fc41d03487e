#include "SoakOptions.h"

#include <limits>
#include <string>

#include "CommandLine.h"

namespace soak {

std::unique_ptr<CLI::App> commandLine(SoakOptions& options) {
    std::unique_ptr<CLI::App> app = zyn_cli::makeApp(
        "zyn-soak",
        "Runs both tick schedulers with client threads churning handlers and checks calls, late calls, every pass on "
        "its own grid point and memory at the end. Exit status 0 when every check holds.");
    const zyn_cli::IntegerRange<uint32_t> anyCount{0, std::numeric_limits<uint32_t>::max()};
    zyn_cli::addIntegerOption(*app, "Options", "--seconds", "N",
                              "how long the clients churn, default " + std::to_string(options.seconds), anyCount,
                              options.seconds);
    zyn_cli::addIntegerOption(*app, "Options", "--seed", "N",
                              "seeds the clients' random choices, default " + std::to_string(options.seed), anyCount,
                              options.seed);
    return app;
}

}  // namespace soak
