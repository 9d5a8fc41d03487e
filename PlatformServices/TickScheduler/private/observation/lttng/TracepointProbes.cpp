// The probes of the zyn_tick provider: the whole content of the provider's
// shared object. Loading it connects the library's dormant tracepoint sites
// to liblttng-ust; the library itself never links liblttng-ust.
#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#include "ZynTickTracepoints.h"
