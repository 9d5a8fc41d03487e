// The reference thread utilities: scheduling and naming of a running std::thread.

#include "ThreadUtilities.h"

#include <pthread.h>
#include <sched.h>

#include <cerrno>

#include "CpuLatency.h"
#include "TimerSlack.h"

namespace os_extension::thread_utilities {

namespace {

bool isRealTimePolicy(int policy) { return policy == SCHED_FIFO || policy == SCHED_RR; }

}  // namespace

// Returns 0, or the error of pthread_setschedparam (EPERM without the right to
// real-time scheduling, EINVAL for a priority outside the policy's range),
// or ESRCH for a thread that is not running. A refused real-time request
// leaves the thread's policy as it was and lowers its timer slack to the
// minimum instead, so that its sleeps stay precise (to within the kernel's
// wake-up latency) even without the priority. A thread asked to run with a
// real-time policy, granted or not, holds the CPU wake-up latency request
// until it ends (see PlatformHost/CpuLatencyHost.h).
int setScheduling(std::thread& thread, int policy, int priority) {
    if (!thread.joinable()) {
        return ESRCH;
    }
    sched_param parameters{};
    parameters.sched_priority = priority;
    const int refusal = ::pthread_setschedparam(thread.native_handle(), policy, &parameters);
    if (refusal != 0 && isRealTimePolicy(policy)) {
        platform_host::detail::lowerTimerSlack(thread.native_handle());
    }
    if (isRealTimePolicy(policy)) {
        platform_host::detail::holdCpuLatencyWhileRunning(thread.native_handle());
    }
    return refusal;
}

// Returns 0, ERANGE for a name longer than 15 characters (nothing applied), or
// ESRCH for a thread that is not running.
int setName(std::thread& thread, const std::string& name) {
    if (!thread.joinable()) {
        return ESRCH;
    }
    return ::pthread_setname_np(thread.native_handle(), name.c_str());
}

}  // namespace os_extension::thread_utilities
