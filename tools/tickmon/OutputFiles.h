// The files a run writes besides its report on stdout.
#pragma once

#include <fstream>
#include <memory>
#include <string>

#include "MonitorOptions.h"

namespace tickmon {

/// The --json, --histogram and --timeline files, opened before the run so that a bad
/// path is a usage error and not a lost run.
struct OutputFiles {
    std::unique_ptr<std::ofstream> json;
    std::unique_ptr<std::ofstream> histogram;
    std::unique_ptr<std::ofstream> timeline;

    /// Opens (and truncates) each file the options name; false with `error`
    /// naming the option, the path and the reason when one cannot be written.
    bool open(const MonitorOptions& options, std::string& error);
};

}  // namespace tickmon
