// Command line of zyn-tickdemo.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <memory>
#include <optional>

struct DemoOptions {
    int32_t priority = 2;  ///< ETickPriority: 0 highest ... 4 lowest
    uint32_t ticks = 167;  ///< 167 x 6 ms: about one second
    /// Level of the library's trace module; unset leaves it alone.
    std::optional<uint32_t> traceLevel;
};

/// The command line of zyn-tickdemo, storing into `options`.
std::unique_ptr<CLI::App> demoCommandLine(DemoOptions& options);
