// Writes a run as a timeline in the Trace Event Format (JSON), which
// Perfetto's UI and chrome://tracing open: one track for the oscillator
// thread with each tick (an instant with its grid point and lateness), each
// pass as a slice with its handler calls nested in it, counters for the
// lateness and for the handlers' time per pass, and a track that marks the
// run's stalls (gaps of more than one and a half periods between ticks).
//
// Written as the run goes, so that a long run never holds its timeline in
// memory; once the file reaches its size limit, no further pass or tick is
// written (the file stays valid and says that it was cut).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "GridTally.h"
#include "TickEventCapture.h"

namespace tickmon {

/// What a timeline holds, for the report and for checking it.
struct TimelineCounts {
    uint64_t ticks = 0;
    uint64_t passes = 0;
    std::map<std::string, uint64_t> callsPerHandler;
    uint64_t stalls = 0;
    /// Events the library dropped because the monitor fell behind.
    uint64_t lostEvents = 0;
    /// The size limit cut the timeline short.
    bool truncated = false;
};

class TimelineWriter {
public:
    /// Times are written relative to `originNs` (the run's start), in
    /// microseconds. `title` names the process track, `threadName` the
    /// oscillator's.
    TimelineWriter(std::ostream& out, const std::string& title, const std::string& threadName, int64_t originNs,
                   uint64_t maxBytes);

    /// The ticks of `timestamps` not yet written, judged against `grid`.
    void addTicks(const std::vector<int64_t>& timestamps, const PublishedGrid& grid);
    /// Events drained from the scheduler, with the count it lost meanwhile.
    void addEvents(const STickEvent* events, size_t count, uint64_t lost);
    /// Closes the file's JSON; nothing may be added afterwards.
    void finish();

    const TimelineCounts& counts() const { return totals; }

private:
    void write(const std::string& event);
    bool full() const { return written >= maxBytes; }
    std::string timeUs(int64_t ns) const;
    void addEvent(const STickEvent& event);
    void closeOpenSlices(int64_t atNs);
    /// Ends the innermost open slice of the oscillator's track at `ts`.
    void endSlice(const std::string& ts, const std::string& args = "");
    /// Ends the open call's slice at `ts`, if a call is open.
    void endOpenCall(const std::string& ts);

    std::ostream& out;
    int64_t originNs;
    uint64_t maxBytes;
    uint64_t written = 0;
    bool first = true;
    size_t ticksSeen = 0;
    int64_t previousTickNs = 0;
    /// Inside a pass, and a call, that are being written: a size cut waits
    /// for the pass's end.
    bool inPass = false;
    bool inCall = false;
    int64_t passHandlerNs = 0;
    int64_t callBeganNs = 0;
    TimelineCounts totals;
};

}  // namespace tickmon
