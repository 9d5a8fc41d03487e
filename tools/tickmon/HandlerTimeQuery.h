// Switches the measured scheduler's handler statistics on and reads them back
// for the monitor's handlers, through the library's exported functions.
#pragma once

#include "HandlerTimeReport.h"
#include "SchedulerSession.h"
#include "TickHandlers.h"

namespace tickmon {

/// Before the oscillator starts: every pass from the first is timed. False
/// when the library refuses.
bool enableHandlerTime(const SchedulerEntryPoints& library);

/// After the freeze, before the handlers are unregistered.
HandlerTimeReport readHandlerTime(const SchedulerEntryPoints& library, TickHandlers& handlers);

}  // namespace tickmon
