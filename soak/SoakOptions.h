// Command line of zyn-soak.
#pragma once

#include <cstdint>

namespace soak {

struct SoakOptions {
    uint32_t seconds = 600;  ///< how long the clients churn
    uint32_t seed = 1;       ///< seeds the clients' random choices
};

/// Parses --seconds N and --seed N; prints usage and returns false on a bad
/// command line (or --help).
bool parseOptions(int argc, char** argv, SoakOptions& options);

}  // namespace soak
