// Drives --timeline: switches the measured scheduler's event capture on
// before its first pass, drains the events into a TimelineWriter as the run
// goes, together with the probe's ticks, and closes the file at the end.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <vector>

#include "GridTally.h"
#include "SchedulerSession.h"
#include "TimelineWriter.h"

namespace tickmon {

class TimelineCapture {
public:
    /// Inactive (every call returns at once) when `file` is null.
    TimelineCapture(std::ostream* file, uint64_t maxBytes, const SchedulerEntryPoints& library)
        : file(file), maxBytes(maxBytes), library(library) {}

    bool active() const { return file != nullptr; }

    /// Before the ticks start. False when the library refused.
    bool startCapture();
    /// Once the run's origin is known: opens the timeline.
    void begin(int64_t originNs);
    /// Moves what the scheduler captured, and the ticks not yet written,
    /// into the file.
    void drain(const std::vector<int64_t>& timestamps, const PublishedGrid& grid);
    /// After the last pass: drains the rest, switches capture off, closes
    /// the file and says what it holds.
    std::optional<TimelineCounts> finish(const std::vector<int64_t>& timestamps, const PublishedGrid& grid);

private:
    std::ostream* file;
    uint64_t maxBytes;
    const SchedulerEntryPoints& library;
    std::unique_ptr<TimelineWriter> writer;
    std::vector<STickEvent> buffer;
};

}  // namespace tickmon
