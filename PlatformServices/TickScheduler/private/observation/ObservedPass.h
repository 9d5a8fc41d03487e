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
#include <cstring>

#include "DispatchStatistics.h"
#include "EventRing.h"
#include "STickHandler.h"
#include "StatisticsClock.h"
#include "Tracepoints.h"

namespace zyn_ts {

/// Tick thread, at the start of a pass.
inline bool isWatched(const DispatchStatistics& statistics, const EventRing& ring) {
    return statistics.isOn() || ring.isOn() || tracepointsListening();
}

class ObservedPass {
public:
    /// Decides who watches this pass and marks its beginning.
    ObservedPass(TracedScheduler watched, DispatchStatistics& dispatchStatistics, EventRing& events)
        : scheduler(watched),
          statistics(dispatchStatistics),
          ring(events),
          timed(dispatchStatistics.isOn()),
          captured(events.isOn()) {
        ZYN_TS_TRACEPOINT(pass_begin, static_cast<int>(scheduler));
        if (captured) {
            ring.write(TICK_EVENT_PASS_BEGIN, statisticsNowNs(), nullptr, nullptr, 0);
        }
    }
    ObservedPass(const ObservedPass&) = delete;
    ObservedPass& operator=(const ObservedPass&) = delete;

    /// Calls `invoke(handler)` and tells every observer about it. The
    /// handler's figures and its name are taken before the call, which may
    /// unregister (in the fast module also free) its own record: after it
    /// only the record's address is used, and its figures count the call
    /// only while they still belong to it.
    template <typename Invoke>
    void call(const STickHandler& handler, Invoke&& invoke) {
        HandlerSlot* const slot = timed ? statistics.slotFor(&handler) : nullptr;
        char name[kNameBytes];
        std::memcpy(name, handler.name, sizeof(name));
        ZYN_TS_TRACEPOINT(call_begin, static_cast<int>(scheduler), &handler, name);
        const int64_t startNs = statisticsNowNs();
        if (captured) {
            ring.write(TICK_EVENT_CALL_BEGIN, startNs, &handler, name, 0);
        }
        passTiming.callStarts(startNs);
        invoke(handler);
        const int64_t endNs = statisticsNowNs();
        ++handlersCalled;
        if (captured) {
            ring.write(TICK_EVENT_CALL_END, endNs, &handler, name, 0);
        }
        ZYN_TS_TRACEPOINT(call_end, static_cast<int>(scheduler), &handler, name);
        if (timed) {
            const bool stillItsOwn = slot != nullptr && slot->key.load(std::memory_order_relaxed) == &handler;
            statistics.recordCall(passTiming, stillItsOwn ? slot : nullptr, name, endNs - startNs);
        }
    }

    /// Marks the end of the pass. Returns the statistics' account of an
    /// overrun (none when they did not time the pass), for the module to
    /// trace in its own words.
    OverrunReport ends() {
        OverrunReport report;
        if (timed) {
            report = statistics.endPass(passTiming);
            if (report.overran) {
                ZYN_TS_TRACEPOINT(overrun, static_cast<int>(scheduler), report.passNs, report.periodNs, report.culprit,
                                  report.culpritNs);
            }
        }
        if (captured) {
            ring.write(TICK_EVENT_PASS_END, statisticsNowNs(), nullptr, nullptr, handlersCalled);
        }
        ZYN_TS_TRACEPOINT(pass_end, static_cast<int>(scheduler), handlersCalled);
        return report;
    }

private:
    TracedScheduler scheduler;
    DispatchStatistics& statistics;
    EventRing& ring;
    bool timed;
    bool captured;
    uint32_t handlersCalled = 0;
    PassTiming passTiming;
};

}  // namespace zyn_ts
