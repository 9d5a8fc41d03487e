// The latency histogram as a PNG picture, drawn by gnuplot when it is
// installed. Without gnuplot the monitor says so and carries on: a missing
// picture never fails a run.
#pragma once

#include <optional>
#include <string>

#include "LatencyHistogram.h"

namespace tickmon {

/// The first executable `program` in the directories of `searchPath` (a
/// PATH-style list); none when it is not there.
std::optional<std::string> findOnPath(const std::string& program, const std::string& searchPath);

/// The gnuplot commands that draw the histogram in `dataPath` (lines of
/// "<microseconds> <count>") into `pngPath`.
std::string gnuplotScript(const std::string& dataPath, const std::string& pngPath, const std::string& title);

struct PlotOutcome {
    bool drawn = false;
    /// What happened, for the user: where the picture went, or why none.
    std::string message;
};

/// Draws `histogram` into `pngPath` with the gnuplot found on `searchPath`.
PlotOutcome plotHistogram(const LatencyHistogram& histogram, const std::string& pngPath, const std::string& title,
                          const std::string& searchPath);

}  // namespace tickmon
