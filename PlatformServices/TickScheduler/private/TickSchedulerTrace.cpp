#include "TickSchedulerTrace.h"

// Constructed before, and destroyed after, every other static of the library:
// the scheduler modules' destructors stop oscillator threads that may still
// be tracing.
__attribute__((init_priority(101))) KivTrace tsTrace("ZYN.TS", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);
