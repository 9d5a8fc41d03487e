#include "BreakTrace.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <utility>

namespace tickmon {
namespace {

bool exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

/// Writes `text` to an existing file in one write (tracefs takes each write
/// as one record); empty on success, else the reason.
std::string writeOnce(const std::string& path, const std::string& text) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        return "cannot open " + path + ": " + std::strerror(errno);
    }
    const ssize_t written = ::write(fd, text.data(), text.size());
    const int error = errno;
    ::close(fd);
    if (written != static_cast<ssize_t>(text.size())) {
        return "cannot write " + path + ": " + std::strerror(written < 0 ? error : EIO);
    }
    return "";
}

}  // namespace

std::vector<std::string> defaultTracefsCandidates() { return {"/sys/kernel/tracing", "/sys/kernel/debug/tracing"}; }

std::optional<std::string> findTracefs(const std::vector<std::string>& candidates) {
    for (const std::string& directory : candidates) {
        if (exists(directory + "/trace_marker") && exists(directory + "/tracing_on")) {
            return directory;
        }
    }
    return std::nullopt;
}

BreakTrace::BreakTrace(std::string tracefsDirectory, int64_t thresholdNs)
    : tracefs(std::move(tracefsDirectory)), threshold(thresholdNs) {}

bool BreakTrace::add(int64_t latenessNs) {
    if (outcome.broke) {
        return true;
    }
    ++ticks;
    if (latenessNs > threshold) {
        breakAt(ticks, latenessNs);
    }
    return outcome.broke;
}

void BreakTrace::breakAt(uint64_t tick, int64_t latencyNs) {
    outcome.broke = true;
    outcome.tick = tick;
    outcome.latencyNs = latencyNs;
    char marker[160];
    std::snprintf(marker, sizeof marker, "zyn-tickmon: tick %" PRIu64 " %.3f us late (break-trace at %.3f us)\n", tick,
                  static_cast<double>(latencyNs) / 1000.0, static_cast<double>(threshold) / 1000.0);
    // The marker first, so that it is in the buffer when tracing stops.
    outcome.error = writeOnce(tracefs + "/trace_marker", marker);
    const std::string stopError = writeOnce(tracefs + "/tracing_on", "0");
    if (outcome.error.empty()) {
        outcome.error = stopError;
    }
}

}  // namespace tickmon
