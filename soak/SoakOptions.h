// Command line of zyn-soak.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <memory>

namespace soak {

struct SoakOptions {
    uint32_t seconds = 600;  ///< how long the clients churn
    uint32_t seed = 1;       ///< seeds the clients' random choices
};

/// The command line of zyn-soak, storing into `options`.
std::unique_ptr<CLI::App> commandLine(SoakOptions& options);

}  // namespace soak
