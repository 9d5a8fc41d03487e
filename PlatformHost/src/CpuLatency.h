// The CPU wake-up latency request inside the host (see
// PlatformHost/CpuLatencyHost.h): what the thread utilities tell it.
#pragma once

#include <sys/types.h>

namespace platform_host::detail {

/// Counts the running thread with kernel id `tid` as a holder until it ends
/// (once, however often it is added). Returns false when the thread is not
/// running or the table of holders is full; it is then not counted.
bool holdCpuLatencyWhileRunning(pid_t tid);

}  // namespace platform_host::detail
