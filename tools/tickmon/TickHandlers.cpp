#include "TickHandlers.h"

#include "ZynSupport/MonotonicClock.h"

namespace tickmon {
namespace {

void onProbeTick(void* context) {
    TickProbe& probe = *static_cast<TickProbe*>(context);
    probe.recorder.record(zyn_support::monotonicNowNs());
    probe.passes.fetch_add(1, std::memory_order_relaxed);
}

void onLoadTick(void* context) {
    LoadHandler& handler = *static_cast<LoadHandler*>(context);
    handler.calls.fetch_add(1, std::memory_order_relaxed);
    if (handler.workNs > 0) {
        busyWait(handler.workNs);
    }
}

}  // namespace

void busyWait(int64_t ns) { zyn_support::spinUntilNs(zyn_support::monotonicNowNs() + ns); }

TickHandlers::TickHandlers(uint32_t handlerCount, const std::vector<uint32_t>& intervals,
                           const std::vector<int64_t>& workNs, size_t ringCapacity)
    : tickProbe(ringCapacity), count(handlerCount), loadHandlers(new LoadHandler[handlerCount]) {
    for (size_t i = 0; i < count; ++i) {
        loadHandlers[i].name = "tickmon-handler-" + std::to_string(i);
        loadHandlers[i].interval = intervals.empty() ? 1 : intervals[i % intervals.size()];
        loadHandlers[i].workNs = i < workNs.size() ? workNs[i] : 0;
    }
}

TickHandlers::~TickHandlers() = default;

bool TickHandlers::registerAll(SchedulerSession& session, std::string& error) {
    const ITickReceiver probeReceiver{&tickProbe, &onProbeTick};
    uint32_t result = session.registerHandler(&tickProbe.handle, &probeReceiver, 1, "tickmon-probe");
    if (result != 0) {
        error = "registering the probe handler failed with result " + std::to_string(result);
        return false;
    }
    for (size_t i = 0; i < count; ++i) {
        LoadHandler& handler = loadHandlers[i];
        const ITickReceiver receiver{&handler, &onLoadTick};
        result = session.registerHandler(&handler.handle, &receiver, handler.interval, handler.name.c_str());
        if (result != 0) {
            error = "registering " + handler.name + " failed with result " + std::to_string(result);
            return false;
        }
    }
    return true;
}

void TickHandlers::unregisterAll(SchedulerSession& session) {
    if (tickProbe.handle != nullptr) {
        session.unregisterHandler(&tickProbe.handle);
    }
    for (size_t i = 0; i < count; ++i) {
        if (loadHandlers[i].handle != nullptr) {
            session.unregisterHandler(&loadHandlers[i].handle);
        }
    }
}

std::vector<HandlerTally> TickHandlers::tallies() const {
    std::vector<HandlerTally> result;
    result.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        result.push_back(HandlerTally{loadHandlers[i].name, loadHandlers[i].interval, loadHandlers[i].calls.load()});
    }
    return result;
}

}  // namespace tickmon
