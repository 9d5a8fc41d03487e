#include "HistogramPlot.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "RunReport.h"
#include "Statistics.h"

extern char** environ;

namespace tickmon {
namespace {

/// A temporary file that is removed when it goes out of scope.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& contents) {
        const char* directory = std::getenv("TMPDIR");
        std::string pattern =
            std::string(directory != nullptr && *directory != '\0' ? directory : "/tmp") + "/zyn-tickmon-XXXXXX";
        const int fd = mkstemp(pattern.data());
        if (fd < 0) {
            return;
        }
        const bool written = write(fd, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size());
        close(fd);
        filePath = pattern;
        ok = written;
    }
    ~TemporaryFile() {
        if (!filePath.empty()) {
            std::remove(filePath.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool valid() const { return ok; }
    const std::string& path() const { return filePath; }

private:
    std::string filePath;
    bool ok = false;
};

/// The program could not be started because there is no such file.
constexpr int kNotFound = -2;
/// The status of a spawned child that could not run its program: where the
/// spawn cannot report the error to the parent itself (under qemu-user, for
/// one), the child ends with it, as a shell does for a command not found.
constexpr int kChildCouldNotRun = 127;

/// Runs `program script`, looking `program` up on PATH; its exit status,
/// kNotFound, or -1 when it could not run otherwise.
int runProgram(const std::string& program, const std::string& script) {
    char* const arguments[] = {const_cast<char*>(program.c_str()), const_cast<char*>(script.c_str()), nullptr};
    pid_t child = 0;
    const int spawnError = posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ);
    if (spawnError != 0) {
        return spawnError == ENOENT ? kNotFound : -1;
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status) == kChildCouldNotRun ? kNotFound : WEXITSTATUS(status);
}

/// About this many bars cover the axis.
constexpr int64_t kBarsOnTheAxis = 60;
/// The narrowest axis: a run whose ticks all come within a microsecond still
/// gets bars of a few nanoseconds, not of one.
constexpr int64_t kMinAxisNs = 1000;
/// The bulk of the ticks ends at p99.9, but never further than this many
/// times p99: with fewer than 1000 ticks p99.9 is the slowest tick itself.
constexpr int64_t kBulkEndInP99s = 4;
/// The axis reaches to the maximum when that is at most this much (in
/// halves) beyond the bulk's end: 3 halves, so at most a third of the
/// picture goes to the tail.
constexpr int64_t kWholeAxisHalves = 3;

/// The smallest of 1, 2, 5, 10, 20, 50, ... that is at least `value`.
int64_t stepOfOneTwoFive(int64_t value) {
    int64_t decade = 1;
    while (true) {
        for (const int64_t factor : {1, 2, 5}) {
            if (factor * decade >= value) {
                return factor * decade;
            }
        }
        decade *= 10;
    }
}

double toUs(int64_t ns) { return static_cast<double>(ns) / 1000.0; }

/// A latency for a label: three significant digits down to 0.01 us, whole
/// microseconds from 100 us on.
std::string usText(int64_t ns) {
    const double us = toUs(ns);
    char text[32];
    std::snprintf(text, sizeof text, us < 10.0 ? "%.2f" : us < 100.0 ? "%.1f" : "%.0f", us);
    return text;
}

/// A coordinate for gnuplot, exact to the nanosecond.
std::string coordinate(int64_t ns) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", toUs(ns));
    return text;
}

/// A single-quoted gnuplot string, where only a single quote needs escaping
/// (by doubling it); for paths.
std::string singleQuoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text) {
        out += c == '\'' ? std::string("''") : std::string(1, c);
    }
    return out + "'";
}

/// A double-quoted gnuplot string, which turns "\n" into a line break; for
/// the texts on the picture.
std::string doubleQuoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '\n') {
            out += "\\n";
        } else {
            if (c == '"' || c == '\\') {
                out += '\\';
            }
            out += c;
        }
    }
    return out + "\"";
}

struct Marker {
    const char* name;
    int64_t atNs;
    int64_t valueNs;
    const char* colour;
    /// Height of the label, as a fraction of the plot: the three labels sit
    /// one under the other, so close markers never print over each other.
    double labelHeight;
};

void appendMarker(std::ostringstream& script, const Marker& marker, const HistogramLayout& layout) {
    const std::string x = coordinate(marker.atNs);
    script << "set arrow from " << x << ", graph 0 to " << x
           << ", graph 1 nohead dashtype 2 linewidth 2 linecolor rgb '" << marker.colour << "' front\n";
    // A label near the right end goes left of its line, so it stays inside.
    const bool nearTheRightEnd = marker.atNs * 10 > layout.xRangeEndNs() * 7;
    script << "set label " << doubleQuoted(std::string(marker.name) + " " + usText(marker.valueNs) + " us") << " at "
           << x << ", graph " << marker.labelHeight
           << (nearTheRightEnd ? " right offset character -0.5, 0" : " left offset character 0.5, 0")
           << " textcolor rgb '" << marker.colour << "' front\n";
}

}  // namespace

PlotSettings plotSettings(const RunReport& report) {
    PlotSettings settings;
    settings.scheduler = schedulerModuleName(report.options.grid);
    settings.periodNs = report.ticks.periodNs;
    settings.priority = "ETickPriority " + std::to_string(report.options.priority);
    if (report.thread.found) {
        settings.priority += " (" + report.thread.policyName + " " + std::to_string(report.thread.priority) + ")";
    }
    const PunctualityReport& punctuality = report.punctuality;
    settings.cpuLatency = punctuality.cpuLatencyHeld && punctuality.cpuLatencyUs
                              ? "CPU latency request " + std::to_string(*punctuality.cpuLatencyUs) + " us"
                              : std::string("no CPU latency request held");
    settings.wake = wakeTitle(report.wake);
    return settings;
}

std::string plotTitle(const PlotSettings& settings, uint64_t ticks) {
    char period[32];
    std::snprintf(period, sizeof period, "%g ms", static_cast<double>(settings.periodNs) / 1e6);
    return std::string("zyn-tickmon: latency after the ") + period + " grid of " + settings.scheduler + ", " +
           std::to_string(ticks) + " ticks\nperiod " + period + " | " + settings.priority + " | " +
           settings.cpuLatency + " | wake: " + settings.wake;
}

HistogramLayout layoutHistogram(const std::vector<int64_t>& latenciesNs) {
    HistogramLayout layout;
    if (latenciesNs.empty()) {
        return layout;
    }
    std::vector<int64_t> sorted(latenciesNs.size());
    std::transform(latenciesNs.begin(), latenciesNs.end(), sorted.begin(),
                   [](int64_t ns) { return std::max<int64_t>(ns, 0); });
    std::sort(sorted.begin(), sorted.end());
    layout.ticks = sorted.size();
    layout.p50Ns = nearestRankPercentile(sorted, 0.5);
    layout.p99Ns = nearestRankPercentile(sorted, 0.99);
    layout.maxNs = sorted.back();

    const int64_t bulkEndNs = std::min(nearestRankPercentile(sorted, 0.999), kBulkEndInP99s * layout.p99Ns);
    const bool fold = layout.maxNs * 2 > bulkEndNs * kWholeAxisHalves;
    const int64_t lastDrawnNs = fold ? bulkEndNs : layout.maxNs;
    const int64_t spanNs = std::max(lastDrawnNs, kMinAxisNs);
    layout.binNs = stepOfOneTwoFive((spanNs + kBarsOnTheAxis - 1) / kBarsOnTheAxis);
    layout.barCounts.assign(static_cast<size_t>(lastDrawnNs / layout.binNs + 1), 0);
    layout.axisEndNs = static_cast<int64_t>(layout.barCounts.size()) * layout.binNs;
    for (const int64_t ns : sorted) {
        if (ns < layout.axisEndNs) {
            ++layout.barCounts[static_cast<size_t>(ns / layout.binNs)];
        } else {
            ++layout.tailTicks;
        }
    }
    return layout;
}

std::string gnuplotData(const HistogramLayout& layout) {
    std::ostringstream data;
    // Empty bars are left out: a logarithmic axis has no place for 0.
    for (size_t bar = 0; bar < layout.barCounts.size(); ++bar) {
        if (layout.barCounts[bar] != 0) {
            const int64_t centreNs = static_cast<int64_t>(bar) * layout.binNs + layout.binNs / 2;
            data << coordinate(centreNs) << ' ' << layout.barCounts[bar] << '\n';
        }
    }
    if (layout.folded()) {
        data << "\n\n" << coordinate(layout.tailBarCentreNs()) << ' ' << layout.tailTicks << '\n';
    }
    return data.str();
}

std::string gnuplotScript(const HistogramLayout& layout, const std::string& dataPath, const std::string& pngPath,
                          const std::string& title) {
    uint64_t tallest = std::max<uint64_t>(layout.tailTicks, 1);
    for (const uint64_t count : layout.barCounts) {
        tallest = std::max(tallest, count);
    }
    const int64_t ticStepNs = stepOfOneTwoFive((layout.axisEndNs + 9) / 10);
    std::ostringstream script;
    script << "set terminal png size 1000,600 noenhanced\n"
           << "set output " << singleQuoted(pngPath) << "\n"
           << "set title " << doubleQuoted(title) << "\n"
           << "set xlabel 'latency after the grid point (us)'\n"
           << "set ylabel 'ticks'\n"
           << "set logscale y\n"
           // Room above the tallest bar for the markers' labels.
           << "set yrange [0.5:" << tallest * 10 << "]\n"
           << "set xrange [0:" << coordinate(layout.xRangeEndNs()) << "]\n"
           << "set format x '%g'\n"
           // With a folded tail the axis's own tics stop short of its end, so
           // the tail's label has room.
           << "set xtics 0, " << coordinate(ticStepNs) << ", "
           << coordinate(layout.folded() ? layout.axisEndNs - ticStepNs / 2 : layout.axisEndNs) << "\n";
    if (layout.folded()) {
        script << "set arrow from " << coordinate(layout.axisEndNs) << ", graph 0 to " << coordinate(layout.axisEndNs)
               << ", graph 1 nohead dashtype 3 linecolor rgb '#8c8c8c'\n";
        script << "set xtics add ("
               << doubleQuoted(">= " + usText(layout.axisEndNs) + " us\n" + std::to_string(layout.tailTicks) + " ticks")
               << " " << coordinate(layout.tailBarCentreNs()) << ")\n";
    }
    script << "set grid\n"
           << "set style fill solid 0.6 border\n"
           << "set boxwidth " << coordinate(layout.binNs) << " absolute\n";
    appendMarker(script, {"p50", layout.p50Ns, layout.p50Ns, "#2ca02c", 0.96}, layout);
    appendMarker(script, {"p99", layout.p99Ns, layout.p99Ns, "#ff7f0e", 0.90}, layout);
    // The maximum lies in the folded tail's bar when there is one.
    appendMarker(script,
                 {layout.folded() ? "max (in the last bar)" : "max",
                  layout.folded() ? layout.tailBarCentreNs() : layout.maxNs, layout.maxNs, "#d62728", 0.84},
                 layout);
    script << "plot " << singleQuoted(dataPath) << " index 0 using 1:2 with boxes linecolor rgb '#4c72b0' notitle";
    if (layout.folded()) {
        script << ", '' index 1 using 1:2 with boxes linecolor rgb '#8c8c8c' notitle";
    }
    script << "\n";
    return script.str();
}

PlotOutcome plotHistogram(const std::vector<int64_t>& latenciesNs, const PlotSettings& settings,
                          const std::string& pngPath, const std::string& gnuplot) {
    PlotOutcome outcome;
    const HistogramLayout layout = layoutHistogram(latenciesNs);
    if (layout.ticks == 0) {
        outcome.message = "--plot: no ticks were recorded; no picture written to " + pngPath;
        return outcome;
    }
    const TemporaryFile data(gnuplotData(layout));
    const TemporaryFile script(gnuplotScript(layout, data.path(), pngPath, plotTitle(settings, layout.ticks)));
    if (!data.valid() || !script.valid()) {
        outcome.message = "--plot: could not write gnuplot's input files; no picture written to " + pngPath;
        return outcome;
    }
    const int status = runProgram(gnuplot, script.path());
    if (status == kNotFound) {
        outcome.message = "--plot: gnuplot is not installed (not found on PATH); no picture written to " + pngPath +
                          " (the run is not affected)";
        return outcome;
    }
    if (status != 0) {
        outcome.message =
            "--plot: " + gnuplot + " failed (status " + std::to_string(status) + "); no picture written to " + pngPath;
        return outcome;
    }
    outcome.drawn = true;
    outcome.message = "histogram picture written to " + pngPath;
    return outcome;
}

}  // namespace tickmon
