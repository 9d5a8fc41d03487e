#include "TimelineWriter.h"

#include <cinttypes>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace tickmon {
namespace {

// One process, two tracks: the oscillator thread's and the stalls'.
constexpr char kOscillatorTrack[] = "\"pid\":1,\"tid\":1";
constexpr char kStallTrack[] = "\"pid\":1,\"tid\":2";

std::string quoted(const char* text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string handleText(uint64_t handle) {
    char text[24];
    std::snprintf(text, sizeof(text), "\"0x%" PRIx64 "\"", handle);
    return text;
}

/// Nanoseconds as microseconds with three decimals: exact, and short.
std::string microseconds(int64_t ns) {
    const uint64_t magnitude = ns < 0 ? 0 - static_cast<uint64_t>(ns) : static_cast<uint64_t>(ns);
    char text[32];
    std::snprintf(text, sizeof(text), "%s%" PRIu64 ".%03" PRIu64, ns < 0 ? "-" : "", magnitude / 1000,
                  magnitude % 1000);
    return text;
}

std::string metadata(const char* what, const char* track, const std::string& name) {
    return std::string("{\"name\":\"") + what + "\",\"ph\":\"M\"," + track +
           ",\"args\":{\"name\":" + quoted(name.c_str()) + "}}";
}

}  // namespace

TimelineWriter::TimelineWriter(std::ostream& stream, const std::string& title, const std::string& threadName,
                               int64_t runOriginNs, uint64_t limitBytes)
    : out(stream), originNs(runOriginNs), maxBytes(limitBytes) {
    out << "{\"displayTimeUnit\":\"ns\",\"traceEvents\":[\n";
    write(std::string("{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":1,\"args\":{\"name\":") + quoted(title.c_str()) +
          "}}");
    write(metadata("thread_name", kOscillatorTrack, threadName));
    write(metadata("thread_name", kStallTrack, "stalls"));
}

void TimelineWriter::write(const std::string& event) {
    if (!first) {
        out << ",\n";
    }
    first = false;
    out << event;
    written += event.size() + 2;
}

std::string TimelineWriter::timeUs(int64_t ns) const { return microseconds(ns - originNs); }

void TimelineWriter::endSlice(const std::string& ts, const std::string& args) {
    write(std::string("{\"ph\":\"E\",") + kOscillatorTrack + ",\"ts\":" + ts +
          (args.empty() ? std::string() : ",\"args\":{" + args + "}") + "}");
}

void TimelineWriter::addTicks(const std::vector<int64_t>& timestamps, const PublishedGrid& grid) {
    for (; ticksSeen < timestamps.size(); ++ticksSeen) {
        const int64_t ns = timestamps[ticksSeen];
        if (full()) {
            totals.truncated = true;
            continue;
        }
        const int64_t sinceOrigin = ns - grid.originNs;
        const int64_t point = grid.periodNs > 0 ? sinceOrigin / grid.periodNs : 0;
        const std::string lateness = microseconds(sinceOrigin - point * grid.periodNs);
        const std::string ts = timeUs(ns);
        write(std::string("{\"name\":\"tick\",\"ph\":\"i\",\"s\":\"t\",") + kOscillatorTrack + ",\"ts\":" + ts +
              ",\"args\":{\"grid_point\":" + std::to_string(point) + ",\"lateness_us\":" + lateness + "}}");
        write("{\"name\":\"lateness (us)\",\"ph\":\"C\",\"pid\":1,\"ts\":" + ts +
              ",\"args\":{\"lateness\":" + lateness + "}}");
        ++totals.ticks;
        if (totals.ticks > 1 && grid.periodNs > 0 && (ns - previousTickNs) * 2 > grid.periodNs * 3) {
            const int64_t missed = (ns - previousTickNs + grid.periodNs / 2) / grid.periodNs - 1;
            write(std::string("{\"name\":\"stall\",\"ph\":\"X\",") + kStallTrack + ",\"ts\":" + timeUs(previousTickNs) +
                  ",\"dur\":" + microseconds(ns - previousTickNs) +
                  ",\"args\":{\"missed_points\":" + std::to_string(missed) + "}}");
            ++totals.stalls;
        }
        previousTickNs = ns;
    }
}

void TimelineWriter::addEvents(const STickEvent* events, size_t count, uint64_t lost) {
    if (lost != 0) {
        totals.lostEvents += lost;
        const int64_t at = count != 0 ? events[0].timeNs : previousTickNs;
        write(std::string("{\"name\":\"events lost\",\"ph\":\"i\",\"s\":\"g\",") + kOscillatorTrack +
              ",\"ts\":" + timeUs(at) + ",\"args\":{\"count\":" + std::to_string(lost) + "}}");
    }
    for (size_t i = 0; i < count; ++i) {
        addEvent(events[i]);
    }
}

void TimelineWriter::endOpenCall(const std::string& ts) {
    if (inCall) {
        endSlice(ts);
        inCall = false;
    }
}

void TimelineWriter::closeOpenSlices(int64_t atNs) {
    // Only after a loss: the events that would have closed them were dropped.
    endOpenCall(timeUs(atNs));
    if (inPass) {
        endSlice(timeUs(atNs), "\"incomplete\":true");
        inPass = false;
    }
}

void TimelineWriter::addEvent(const STickEvent& event) {
    const std::string ts = timeUs(event.timeNs);
    switch (event.kind) {
        case TICK_EVENT_PASS_BEGIN:
            closeOpenSlices(event.timeNs);
            if (full()) {
                totals.truncated = true;
                return;
            }
            inPass = true;
            passHandlerNs = 0;
            write(std::string("{\"name\":\"pass\",\"cat\":\"pass\",\"ph\":\"B\",") + kOscillatorTrack +
                  ",\"ts\":" + ts + "}");
            return;
        case TICK_EVENT_CALL_BEGIN:
            if (!inPass) {
                return;
            }
            endOpenCall(ts);
            inCall = true;
            callBeganNs = event.timeNs;
            write("{\"name\":" + quoted(event.name) + ",\"cat\":\"call\",\"ph\":\"B\"," + kOscillatorTrack +
                  ",\"ts\":" + ts + ",\"args\":{\"handle\":" + handleText(event.handle) + "}}");
            return;
        case TICK_EVENT_CALL_END:
            if (!inCall) {
                return;
            }
            inCall = false;
            passHandlerNs += event.timeNs - callBeganNs;
            ++totals.callsPerHandler[event.name];
            endSlice(ts);
            return;
        case TICK_EVENT_PASS_END:
            if (!inPass) {
                return;
            }
            endOpenCall(ts);
            inPass = false;
            ++totals.passes;
            endSlice(ts, "\"handlers_called\":" + std::to_string(event.handlersCalled));
            write("{\"name\":\"handler time (us)\",\"ph\":\"C\",\"pid\":1,\"ts\":" + ts +
                  ",\"args\":{\"handlers\":" + microseconds(passHandlerNs) + "}}");
            return;
        default:
            return;
    }
}

void TimelineWriter::finish() {
    closeOpenSlices(previousTickNs);
    out << "\n],\"otherData\":"
        << nlohmann::json{{"ticks", totals.ticks},
                          {"passes", totals.passes},
                          {"stalls", totals.stalls},
                          {"lost_events", totals.lostEvents},
                          {"truncated", totals.truncated}}
               .dump()
        << "}\n";
    out.flush();
}

}  // namespace tickmon
