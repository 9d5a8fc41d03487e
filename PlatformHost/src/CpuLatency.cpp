// The CPU wake-up latency request: its setting, its holders (the kernel ids of
// real-time threads; a later thread given the same id, once the kernel's ids
// wrap around, would extend the hold to its own life) and the device. All
// state is constant-initialised and trivially destructible, so that the
// watcher thread still finds it usable during process exit.

#include "CpuLatency.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "KivTrace.h"
#include "PlatformHost/CpuLatencyHost.h"
#include "ZynSupport/GuardedMutex.h"

namespace platform_host {
namespace {

constexpr const char* kEnvironmentVariable = "ZYN_CPU_LATENCY_US";
constexpr const char* kDefaultDevice = "/dev/cpu_dma_latency";
constexpr uint32_t kMaxHolders = 64;  // far more real-time threads than a process runs

zyn_support::GuardedMutex stateMutex;
CpuLatencyRequest request ZYN_GUARDED_BY(stateMutex);
bool configured = false;      // the environment was read
bool processExiting = false;  // no new opening after exit began
uint32_t holders ZYN_GUARDED_BY(stateMutex) = 0;
pid_t holderIds[kMaxHolders] ZYN_GUARDED_BY(stateMutex);  // the first `holders` are running
bool watcherRunning ZYN_GUARDED_BY(stateMutex) = false;
int deviceFd = -1;           // open while held
bool refusalTraced = false;  // one warning per process
char devicePath[256] = "";   // empty: the default device
char lastRefusal[256] = "";  // empty: not refused

const char* currentDevicePath() { return devicePath[0] != '\0' ? devicePath : kDefaultDevice; }

/// The host's own trace object. Never destroyed, so that the watcher may still
/// trace during process exit; at level 3, warnings are written unless the
/// platform lowers it.
KivTrace& hostTrace() {
    static KivTrace* const trace = new KivTrace("ZYN.HOST", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);
    return *trace;
}

/// Every trace site of the host: the level is tested before the text is
/// built, and errno is left as it was.
template <typename BuildText>
void traceHost(KivTraceLevel level, const KivTraceHeader& header, BuildText&& build) {
    if (hostTrace().isEnabled(level)) {
        const int savedErrno = errno;
        hostTrace().logMsg(level, header, build());
        errno = savedErrno;
    }
}

/// Reads ZYN_CPU_LATENCY_US once, before the first use of the setting; an
/// invalid value leaves the request as it was.
void configureFromEnvironment() ZYN_REQUIRES(stateMutex) {
    const char* text = configured ? nullptr : std::getenv(kEnvironmentVariable);
    configured = true;
    std::string error;
    if (text != nullptr && !parseCpuLatencyRequest(text, request, error)) {
        std::fprintf(stderr, "%s: %s; refused, the request stays at %u us\n", kEnvironmentVariable, error.c_str(),
                     request.microseconds);
    }
}

void closeDevice() {
    if (deviceFd >= 0) {
        ::close(deviceFd);
        deviceFd = -1;
    }
}

void refuse(const char* what, int error) ZYN_REQUIRES(stateMutex) {
    const std::string refusal =
        std::string("cannot ") + what + " " + currentDevicePath() + " (" + std::strerror(error) + ")";
    std::snprintf(lastRefusal, sizeof lastRefusal, "%s", refusal.c_str());
    if (refusalTraced) {
        return;
    }
    refusalTraced = true;
    // Read here, under the lock: the message is built in a function of its own.
    const uint32_t microseconds = request.microseconds;
    static const KivTraceHeader header{__FILE__, __LINE__, "platform_host::holdCpuLatency"};
    traceHost(KIV_TRACE_WARNING, header, [&] {
        return "CPU wake-up latency request of " + std::to_string(microseconds) + " us refused: " + refusal +
               "; ticks may wake up late from deep idle states. Grant it by running as root or giving the process "
               "write access to " +
               currentDevicePath() + " (e.g. a udev rule), or set " + kEnvironmentVariable + "=off to make no request";
    });
}

/// Makes the device match the setting while there are holders; writing a new
/// value replaces the previous request.
void applyWhileHeld() ZYN_REQUIRES(stateMutex) {
    if (holders == 0 || !request.enabled || processExiting) {
        closeDevice();
        return;
    }
    // Non-blocking: a FIFO standing in for the device must not block the
    // thread that starts an oscillator.
    if (deviceFd < 0) {
        deviceFd = ::open(currentDevicePath(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
        if (deviceFd < 0) {
            refuse("open", errno);
            return;
        }
    }
    const auto value = static_cast<int32_t>(request.microseconds);
    if (::write(deviceFd, &value, sizeof value) != static_cast<ssize_t>(sizeof value)) {
        refuse("write to", errno);
        closeDevice();
        return;
    }
    lastRefusal[0] = '\0';
}

/// Releases the request when the process exits (or the library is unloaded),
/// even with holders left. A destructor function rather than a static object:
/// the platform library has no static initialisers.
[[gnu::destructor]] void releaseAtExit() {
    const zyn_support::GuardedLock lock(stateMutex);
    processExiting = true;
    closeDevice();
}

bool isRunning(pid_t tid) {
    char path[48];
    std::snprintf(path, sizeof path, "/proc/self/task/%d", static_cast<int>(tid));
    return ::access(path, F_OK) == 0;
}

/// Forgets the holders that have ended; the device is closed when none is
/// left.
void forgetEndedHolders() ZYN_REQUIRES(stateMutex) {
    pid_t* const end = std::remove_if(holderIds, holderIds + holders, [](pid_t tid) { return !isRunning(tid); });
    holders = static_cast<uint32_t>(end - holderIds);
    if (holders == 0) {
        closeDevice();
    }
}

void* watchHolders(void* /*unused*/) {
    ::pthread_setname_np(::pthread_self(), "zyn-cpu-latency");
    for (;;) {
        const timespec interval{1, 0};
        ::nanosleep(&interval, nullptr);
        const zyn_support::GuardedLock lock(stateMutex);
        forgetEndedHolders();
        if (holders == 0) {
            watcherRunning = false;
            return nullptr;
        }
    }
}

/// Starts the watcher unless it runs: a detached thread of the normal policy,
/// whatever the caller's, with every signal blocked, so that it takes none
/// meant for the application's threads. Without it (no thread could be
/// created) ended holders are still noticed at the next call.
void startWatcher() ZYN_REQUIRES(stateMutex) {
    if (watcherRunning) {
        return;
    }
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    ::pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    ::pthread_attr_setschedpolicy(&attributes, SCHED_OTHER);
    sigset_t all;
    sigset_t previous;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &previous);
    pthread_t watcher;
    watcherRunning = ::pthread_create(&watcher, &attributes, &watchHolders, nullptr) == 0;
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    ::pthread_attr_destroy(&attributes);
}

}  // namespace

bool detail::holdCpuLatencyWhileRunning(pid_t tid) {
    const zyn_support::GuardedLock lock(stateMutex);
    configureFromEnvironment();
    forgetEndedHolders();
    if (std::find(holderIds, holderIds + holders, tid) != holderIds + holders) {
        return true;
    }
    if (holders == kMaxHolders || !isRunning(tid)) {
        return false;
    }
    holderIds[holders++] = tid;
    if (holders == 1) {
        applyWhileHeld();
    }
    startWatcher();
    return true;
}

bool parseCpuLatencyRequest(const std::string& text, CpuLatencyRequest& parsed, std::string& error) {
    if (text == "off") {
        parsed = CpuLatencyRequest{false, 0};
        return true;
    }
    // At most ten digits: the value cannot overflow before the range check.
    const bool digits = !text.empty() && text.size() <= 10 && text.find_first_not_of("0123456789") == std::string::npos;
    const uint64_t value = digits ? std::stoull(text) : 0;
    if (!digits || value > kMaxCpuLatencyUs) {
        error = "invalid value '" + text + "'; expected 'off' or microseconds from 0 to " +
                std::to_string(kMaxCpuLatencyUs);
        return false;
    }
    parsed = CpuLatencyRequest{true, static_cast<uint32_t>(value)};
    return true;
}

void setCpuLatencyRequest(const CpuLatencyRequest& newRequest) {
    const zyn_support::GuardedLock lock(stateMutex);
    configured = true;
    const bool changed = newRequest.enabled != request.enabled || newRequest.microseconds != request.microseconds;
    request = newRequest;
    if (changed) {
        applyWhileHeld();
    }
}

CpuLatencyRequest cpuLatencyRequest() {
    const zyn_support::GuardedLock lock(stateMutex);
    configureFromEnvironment();
    return request;
}

CpuLatencyState cpuLatencyState() {
    const zyn_support::GuardedLock lock(stateMutex);
    configureFromEnvironment();
    forgetEndedHolders();
    return CpuLatencyState{request, holders, deviceFd >= 0, lastRefusal, currentDevicePath()};
}

void setCpuLatencyDeviceForTesting(const std::string& path) {
    const zyn_support::GuardedLock lock(stateMutex);
    std::snprintf(devicePath, sizeof devicePath, "%s", path.c_str());
    refusalTraced = false;
}

}  // namespace platform_host
