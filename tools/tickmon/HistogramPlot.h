// The latency histogram as a PNG picture, drawn by gnuplot when it is
// installed. Without gnuplot the monitor says so and carries on: a missing
// picture never fails a run.
//
// The axis follows the run's figures: it reaches to the slowest tick when
// that is not far beyond the bulk of the ticks, and otherwise to the bulk's
// end (p99.9, but at most four times p99), with the slower ticks folded into
// one last bar that is labelled with where it starts and how many ticks it
// holds. The bars are as wide as a 1-2-5 step that gives about 60 of them, so
// a run of a few microseconds gets sub-microsecond bars. Dashed lines mark
// p50, p99 and the maximum, each labelled with its figure; the title names
// the run's settings.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace tickmon {

struct RunReport;

/// The run's settings that the picture's title names.
struct PlotSettings {
    /// The module whose grid was measured.
    std::string scheduler = "CTickScheduler";
    int64_t periodNs = 6000000;
    /// The priority asked for and what the kernel gave the oscillator thread,
    /// e.g. "ETickPriority 2 (SCHED_RR 79)".
    std::string priority;
    /// e.g. "CPU latency request 0 us" or "no CPU latency request held".
    std::string cpuLatency;
    /// How the oscillator thread waits for its grid point. There is one way
    /// today; a precision-wake setting names itself here.
    std::string wake = "relative sleep";
};

/// The settings of a finished run.
PlotSettings plotSettings(const RunReport& report);

/// Two lines: what is drawn and for how many ticks, then the settings.
std::string plotTitle(const PlotSettings& settings, uint64_t ticks);

/// What the picture shows, worked out from the latencies alone.
struct HistogramLayout {
    uint64_t ticks = 0;
    /// Bar i counts the ticks with a latency in [i * binNs, (i + 1) * binNs).
    int64_t binNs = 0;
    std::vector<uint64_t> barCounts;
    /// The end of the last regular bar: barCounts.size() * binNs.
    int64_t axisEndNs = 0;
    /// Ticks at or beyond axisEndNs, drawn as one last bar a bar's width
    /// after the axis end; 0 when the axis reaches the maximum.
    uint64_t tailTicks = 0;
    int64_t p50Ns = 0;
    int64_t p99Ns = 0;
    int64_t maxNs = 0;

    bool folded() const { return tailTicks != 0; }
    /// The space on each side of the folded tail's bar: a twentieth of the
    /// axis in whole bars, at least one, so its label stands clear of the
    /// axis's own.
    int64_t tailGapNs() const {
        return binNs == 0 ? 0 : std::max<int64_t>(1, (axisEndNs / 20 + binNs - 1) / binNs) * binNs;
    }
    /// Where the folded tail's bar stands (its centre).
    int64_t tailBarCentreNs() const { return axisEndNs + tailGapNs() + binNs / 2; }
    /// The right end of the x axis.
    int64_t xRangeEndNs() const { return folded() ? tailBarCentreNs() + binNs / 2 + tailGapNs() : axisEndNs; }
};

/// Lays the latencies (nanoseconds, any order; a negative one counts as 0)
/// out as bars. No latencies give an empty layout (ticks 0).
HistogramLayout layoutHistogram(const std::vector<int64_t>& latenciesNs);

/// The data file gnuplot reads: block 0 holds "<bar centre us> <count>" for
/// every bar with ticks, block 1 (after two blank lines) the folded tail's bar.
std::string gnuplotData(const HistogramLayout& layout);

/// The gnuplot commands that draw `layout` from the data in `dataPath` into
/// `pngPath`.
std::string gnuplotScript(const HistogramLayout& layout, const std::string& dataPath, const std::string& pngPath,
                          const std::string& title);

struct PlotOutcome {
    bool drawn = false;
    /// What happened, for the user: where the picture went, or why none.
    std::string message;
};

/// Draws the latencies into `pngPath` with `gnuplot`: a program name looked
/// up on PATH as the shell does (posix_spawnp), or a path. Without
/// latencies nothing is drawn.
PlotOutcome plotHistogram(const std::vector<int64_t>& latenciesNs, const PlotSettings& settings,
                          const std::string& pngPath, const std::string& gnuplot = "gnuplot");

}  // namespace tickmon
