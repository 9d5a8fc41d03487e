#include "HistogramPlot.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

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

std::string histogramData(const LatencyHistogram& histogram) {
    std::ostringstream data;
    // Empty buckets are left out: a logarithmic axis has no place for 0.
    for (size_t us = 0; us < histogram.buckets.size(); ++us) {
        if (histogram.buckets[us] != 0) {
            data << us << ' ' << histogram.buckets[us] << '\n';
        }
    }
    return data.str();
}

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

}  // namespace

std::string gnuplotScript(const std::string& dataPath, const std::string& pngPath, const std::string& title) {
    // Paths and title go into single-quoted gnuplot strings, where only a
    // single quote needs escaping (by doubling it).
    auto quoted = [](const std::string& text) {
        std::string out = "'";
        for (const char c : text) {
            out += c == '\'' ? std::string("''") : std::string(1, c);
        }
        return out + "'";
    };
    std::ostringstream script;
    script << "set terminal png size 1000,600 noenhanced\n"
           << "set output " << quoted(pngPath) << "\n"
           << "set title " << quoted(title) << "\n"
           << "set xlabel 'latency after the grid (us)'\n"
           << "set ylabel 'ticks'\n"
           << "set logscale y\n"
           << "set grid\n"
           << "set style fill solid 0.6\n"
           << "plot " << quoted(dataPath) << " using 1:2 with boxes notitle\n";
    return script.str();
}

PlotOutcome plotHistogram(const LatencyHistogram& histogram, const std::string& pngPath, const std::string& title,
                          const std::string& gnuplot) {
    PlotOutcome outcome;
    const TemporaryFile data(histogramData(histogram));
    const TemporaryFile script(gnuplotScript(data.path(), pngPath, title));
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
