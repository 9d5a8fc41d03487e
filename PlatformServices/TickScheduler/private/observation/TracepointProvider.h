// Opens the zyn_tick tracepoint provider, when it is installed.
//
// The provider (libZynTickSchedulerTracepoints.so.1) holds the probes and
// links liblttng-ust; opening it connects the library's tracepoint sites to
// an LTTng session. It is looked for first beside the object that holds the
// library's code (the shared library, or the executable that linked the
// static archive), then on the loader's usual search path. Nothing happens
// when it is absent: the sites stay dormant.
//
// The environment variable ZYN_TICK_TRACEPOINTS chooses: unset, the search
// above; "off", no provider is opened (a provider preloaded with LD_PRELOAD
// still works); any other value, the path of the provider to open instead.
#pragma once

namespace zyn_ts {

/// Called by each scheduler's initialisation; acts on the first call in the
/// process only (later calls return at once). Never unloads the provider,
/// whose probes a tick may be running. Context: a client thread, never a
/// tick function (it may take the dynamic loader's lock). A no-op in a build
/// without tracepoints.
void openTracepointProviderOnce();

}  // namespace zyn_ts
