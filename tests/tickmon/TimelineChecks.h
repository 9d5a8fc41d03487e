// Reads a Trace Event timeline as a user's viewer would and checks its
// shape: on the oscillator's track every call slice lies inside a pass
// slice, every slice that begins ends, passes follow each other in time.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <map>
#include <string>

namespace tickmon {

struct TimelineShape {
    std::map<std::string, uint64_t> callsPerHandler;
    uint64_t passes = 0;
    uint64_t ticks = 0;
    /// Empty when the shape is right; otherwise what is wrong.
    std::string problems;
};

inline TimelineShape checkTimeline(const nlohmann::json& document) {
    TimelineShape shape;
    if (!document.contains("traceEvents") || !document["traceEvents"].is_array()) {
        shape.problems = "no traceEvents array";
        return shape;
    }
    bool inPass = false;
    bool inCall = false;
    std::string callName;
    double lastTs = -1e300;
    double passEndTs = -1e300;
    for (const nlohmann::json& e : document["traceEvents"]) {
        const std::string ph = e.value("ph", "");
        if (!e.contains("ts") && ph != "M") {
            shape.problems += "an event without ts; ";
            continue;
        }
        if (e.value("name", "") == "tick" && ph == "i") {
            ++shape.ticks;
        }
        if (e.value("tid", 0) != 1 || (ph != "B" && ph != "E")) {
            continue;
        }
        const double ts = e["ts"].get<double>();
        if (ts < lastTs) {
            shape.problems += "slices out of time order at " + std::to_string(ts) + "; ";
        }
        lastTs = ts;
        if (ph == "B" && e.value("cat", "") == "pass") {
            if (inPass) {
                shape.problems += "a pass begins inside a pass; ";
            }
            if (ts < passEndTs) {
                shape.problems += "a pass begins before the previous one ended; ";
            }
            inPass = true;
        } else if (ph == "B" && e.value("cat", "") == "call") {
            if (!inPass || inCall) {
                shape.problems += "call " + e.value("name", "") + " outside a pass or inside a call; ";
            }
            inCall = true;
            callName = e.value("name", "");
        } else if (ph == "E" && inCall) {
            inCall = false;
            ++shape.callsPerHandler[callName];
        } else if (ph == "E" && inPass) {
            inPass = false;
            passEndTs = ts;
            if (!e.contains("args") || !e["args"].contains("incomplete")) {
                ++shape.passes;
            }
        } else {
            shape.problems += "an end without a beginning; ";
        }
    }
    if (inPass || inCall) {
        shape.problems += "a slice left open; ";
    }
    return shape;
}

}  // namespace tickmon
