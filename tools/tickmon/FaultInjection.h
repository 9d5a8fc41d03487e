// --inject-fault: a check of the checker.
#pragma once

#include <cstdint>

#include "SchedulerSession.h"
#include "TickHandlers.h"

namespace tickmon {

/// Disables the first load handler for a few passes: the scheduler then
/// calls it less often than its interval requires, and the self-test must
/// catch it.
class FaultInjection {
public:
    FaultInjection(bool wanted, TickHandlers& handlers) : pending(wanted), handlers(handlers) {}

    /// Advances the injection; true once it is over (or was never wanted).
    bool step(SchedulerSession& session);

private:
    bool pending;
    bool disabled = false;
    uint64_t enableAfterPasses = 0;
    TickHandlers& handlers;
};

}  // namespace tickmon
