// The CPU wake-up latency request inside the host: the real-time threads that
// hold it and the device they keep open (see PlatformHost/CpuLatencyHost.h).
#pragma once

#include <sys/types.h>

namespace platform_host::detail {

/// Counts the thread with kernel id `tid` (a thread of this process) as a
/// holder until it ends; a thread that already holds is not counted twice.
/// The end is seen when /proc/self/task/<tid> is gone: checked whenever a
/// holder is added or the state is read, and once a second by a watcher
/// thread that runs while there are holders. Returns false when the thread is
/// not running or the table of holders is full; it is then not counted.
bool holdCpuLatencyWhileRunning(pid_t tid);

}  // namespace platform_host::detail
