// The latency histogram as a PNG picture, drawn by gnuplot when it is
// installed. Without gnuplot the monitor says so and carries on: a missing
// picture never fails a run.
#pragma once

#include <string>

#include "LatencyHistogram.h"

namespace tickmon {

/// The gnuplot commands that draw the histogram in `dataPath` (lines of
/// "<microseconds> <count>") into `pngPath`.
std::string gnuplotScript(const std::string& dataPath, const std::string& pngPath, const std::string& title);

struct PlotOutcome {
    bool drawn = false;
    /// What happened, for the user: where the picture went, or why none.
    std::string message;
};

/// Draws `histogram` into `pngPath` with `gnuplot`: a program name looked up
/// on PATH as the shell does (posix_spawnp), or a path.
PlotOutcome plotHistogram(const LatencyHistogram& histogram, const std::string& pngPath, const std::string& title,
                          const std::string& gnuplot = "gnuplot");

}  // namespace tickmon
