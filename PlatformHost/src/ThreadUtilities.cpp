// The reference thread utilities: scheduling and naming of a running std::thread.
//
// Everything here acts on the thread from outside, through the kernel's id of
// the thread: the thread is never interrupted or asked to answer, so it may
// not have run at all yet.

#include "ThreadUtilities.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "CpuLatency.h"

namespace os_extension::thread_utilities {

namespace {

/// The kernel's id of `thread`, or 0 when it has ended. The CPU-time clock
/// id of a thread encodes it as the kernel defines (~tid << 3 | clock type).
pid_t kernelIdOf(std::thread& thread) {
    clockid_t clock = 0;
    if (::pthread_getcpuclockid(thread.native_handle(), &clock) != 0) {
        return 0;
    }
    return static_cast<pid_t>(~(clock >> 3));
}

/// Sets the timer slack of the thread to 1 ns, the minimum (0 would restore
/// the default). Linux lists the file under /proc/<tid> only, and lets a
/// process write it for another of its threads only with CAP_SYS_NICE.
void lowerTimerSlack(pid_t tid) {
    char path[48];
    std::snprintf(path, sizeof path, "/proc/%d/timerslack_ns", static_cast<int>(tid));
    const int fd = ::open(path, O_WRONLY | O_CLOEXEC);
    if (fd >= 0) {
        [[maybe_unused]] const ssize_t written = ::write(fd, "1", 1);  // refused: the slack stays as it was
        ::close(fd);
    }
}

}  // namespace

// Returns 0, or the error of pthread_setschedparam (EPERM without the right to
// real-time scheduling, EINVAL for a priority outside the policy's range),
// or ESRCH for a thread that is not running. A refused real-time request
// leaves the thread's policy as it was and lowers its timer slack to the
// minimum instead where the process may (CAP_SYS_NICE), so that its sleeps
// stay precise (to within the kernel's wake-up latency) even without the
// priority. A thread asked to run with a real-time policy, granted or not,
// holds the CPU wake-up latency request until it ends.
int setScheduling(std::thread& thread, int policy, int priority) {
    if (!thread.joinable()) {
        return ESRCH;
    }
    sched_param parameters{};
    parameters.sched_priority = priority;
    const int refusal = ::pthread_setschedparam(thread.native_handle(), policy, &parameters);
    if (policy == SCHED_FIFO || policy == SCHED_RR) {
        const pid_t tid = kernelIdOf(thread);
        if (refusal != 0) {
            lowerTimerSlack(tid);
        }
        platform_host::detail::holdCpuLatencyWhileRunning(tid);
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
