#include "FaultInjection.h"

namespace tickmon {

bool FaultInjection::step(SchedulerSession& session) {
    const uint64_t passes = handlers.probe().passes.load(std::memory_order_relaxed);
    LoadHandler& victim = handlers.load(0);
    if (pending && !disabled && passes >= 1) {
        session.disableHandler(victim.handle);
        disabled = true;
        enableAfterPasses = passes + victim.interval + 1;
    } else if (pending && disabled && passes >= enableAfterPasses) {
        session.enableHandler(victim.handle);
        pending = false;
    }
    return !pending;
}

}  // namespace tickmon
