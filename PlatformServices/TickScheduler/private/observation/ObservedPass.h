// A pass that someone watches: the statistics time it, the event ring
// records it, or an LTTng session traces it.
//
// Each scheduler decides once, at the start of a pass, whether anyone
// watches (isWatched); only then does it walk its handlers through the
// observed walk, which tells an ObservedPass about every call. The plain
// walk stays as it was, so a pass nobody watches pays a few loads a pass and
// nothing a handler.
#pragma once

#include <cstdint>

#include "DispatchStatistics.h"
#include "EventRing.h"
#include "STickHandler.h"
#include "StatisticsClock.h"
#include "TickPath.h"
#include "Tracepoints.h"

namespace zyn_ts {

/// Tick thread, at the start of a pass.
inline bool isWatched(const DispatchStatistics& statistics, const EventRing& ring) {
    return statistics.isOn() || ring.isOn() || tracepointsListening();
}

class ObservedPass {
public:
    /// Decides who watches this pass and marks its beginning.
    ZYN_TS_TICK_PATH ObservedPass(TracedScheduler watched, const DispatchStatistics& statistics, EventRing& events)
        : scheduler(watched), ring(events), timed(statistics.isOn()), captured(events.isOn()) {
        ZYN_TS_TRACEPOINT(pass_begin, static_cast<int>(scheduler));
        if (captured) {
            ring.write(TICK_EVENT_PASS_BEGIN, statisticsNowNs(), nullptr, nullptr, 0);
        }
    }
    ObservedPass(const ObservedPass&) = delete;
    ObservedPass& operator=(const ObservedPass&) = delete;

    /// Whether the statistics time this pass (they count its calls).
    bool isTimed() const { return timed; }
    PassTiming& timing() { return passTiming; }

    /// Right before the handler's tick function; `name` is a copy that
    /// outlives the call. Returns the start reading.
    ZYN_TS_TICK_PATH int64_t callBegins(const STickHandler* handler, const char* name) {
        ZYN_TS_TRACEPOINT(call_begin, static_cast<int>(scheduler), handler, name);
        const int64_t startNs = statisticsNowNs();
        if (captured) {
            ring.write(TICK_EVENT_CALL_BEGIN, startNs, handler, name, 0);
        }
        passTiming.callStarts(startNs);
        return startNs;
    }

    /// Right after it returned (the record may be gone: only its address and
    /// the copied name are used). Returns the end reading.
    ZYN_TS_TICK_PATH int64_t callEnds(const STickHandler* handler, const char* name) {
        const int64_t endNs = statisticsNowNs();
        ++handlersCalled;
        if (captured) {
            ring.write(TICK_EVENT_CALL_END, endNs, handler, name, 0);
        }
        ZYN_TS_TRACEPOINT(call_end, static_cast<int>(scheduler), handler, name);
        return endNs;
    }

    /// Marks the end of the pass (after the statistics closed it).
    ZYN_TS_TICK_PATH void ends() {
        if (captured) {
            ring.write(TICK_EVENT_PASS_END, statisticsNowNs(), nullptr, nullptr, handlersCalled);
        }
        ZYN_TS_TRACEPOINT(pass_end, static_cast<int>(scheduler), handlersCalled);
    }

private:
    TracedScheduler scheduler;
    EventRing& ring;
    bool timed;
    bool captured;
    uint32_t handlersCalled = 0;
    PassTiming passTiming;
};

/// What the overrun tracepoint says, when the statistics measured one.
inline void traceOverrunEvent(TracedScheduler scheduler, const OverrunReport& report) {
    if (report.overran) {
        ZYN_TS_TRACEPOINT(overrun, static_cast<int>(scheduler), report.passNs, report.periodNs, report.culprit,
                          report.culpritNs);
    }
}

}  // namespace zyn_ts
