// The CPU wake-up latency request inside the host: counted holders and the
// device they keep open (see PlatformHost/CpuLatencyHost.h).
#pragma once

#include <pthread.h>

namespace platform_host::detail {

/// One more holder: the device is opened and written when this is the first.
void addCpuLatencyHolder();

/// One holder fewer: the device is closed when this was the last.
void removeCpuLatencyHolder();

/// Counts `thread` (of this process) as a holder until it ends; a thread that
/// already holds is not counted twice. Returns false when the thread could
/// not be reached (see RealTimeThreadHolders.cpp); it is then not counted.
bool holdCpuLatencyWhileRunning(pthread_t thread);

}  // namespace platform_host::detail
