// The CPU wake-up latency request: its setting, its holders and the device.
//
// The holders are the kernel ids of real-time threads. The host never asks a
// thread anything: it looks for the thread's /proc entry. (A later thread of
// this process given the same id, once the kernel's ids wrap around, would
// extend the hold to its own life.) All state is constant-initialised and
// trivially destructible, so that the watcher thread still finds it usable
// during process exit (after static destructors ran).

#include "CpuLatency.h"
#include "ZynSupport/GuardedMutex.h"

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
#include <mutex>

#include "HostTrace.h"
#include "PlatformHost/CpuLatencyHost.h"

namespace platform_host {
namespace detail {
namespace {

constexpr const char* kEnvironmentVariable = "ZYN_CPU_LATENCY_US";
constexpr const char* kDefaultDevice = "/dev/cpu_dma_latency";
constexpr size_t kPathCapacity = 256;
constexpr size_t kRefusalCapacity = 256;
constexpr uint32_t kMaxHolders = 64;  // far more real-time threads than a process runs
constexpr time_t kWatchIntervalSeconds = 1;

zyn_support::GuardedMutex stateMutex;
CpuLatencyRequest request ZYN_GUARDED_BY(stateMutex);
bool configured = false;      // the environment was read
bool processExiting = false;  // no new opening after exit began
uint32_t holders ZYN_GUARDED_BY(stateMutex) = 0;
pid_t holderIds[kMaxHolders] ZYN_GUARDED_BY(stateMutex);  // the first `holders` are running
bool watcherRunning ZYN_GUARDED_BY(stateMutex) = false;
int deviceFd = -1;                        // open while held
bool refusalTraced = false;               // one warning per process
char devicePath[kPathCapacity] = "";      // empty: the default device
char lastRefusal[kRefusalCapacity] = "";  // empty: not refused

const char* currentDevicePath() { return devicePath[0] != '\0' ? devicePath : kDefaultDevice; }

void copyText(char* destination, size_t capacity, const std::string& text) {
    std::snprintf(destination, capacity, "%s", text.c_str());
}

/// Reads ZYN_CPU_LATENCY_US once, before the first use of the setting.
void configureFromEnvironment() ZYN_REQUIRES(stateMutex) {
    if (configured) {
        return;
    }
    configured = true;
    const char* text = std::getenv(kEnvironmentVariable);
    if (text == nullptr) {
        return;
    }
    std::string error;
    CpuLatencyRequest fromEnvironment;
    if (parseCpuLatencyRequest(text, fromEnvironment, error)) {
        request = fromEnvironment;
        return;
    }
    std::fprintf(stderr, "%s: %s; refused, the request stays at %u us\n", kEnvironmentVariable, error.c_str(),
                 request.microseconds);
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
    copyText(lastRefusal, kRefusalCapacity, refusal);
    if (refusalTraced) {
        return;
    }
    refusalTraced = true;
    // Read here, under the lock: the message is built in a function of its own.
    const auto microseconds = request.microseconds;
    ZYN_HOST_TRACE(KIV_TRACE_WARNING, "platform_host::holdCpuLatency",
                   "CPU wake-up latency request of " << microseconds << " us refused: " << refusal
                                                     << "; ticks may wake up late from deep idle states. Grant it by "
                                                        "running as root or giving the process write access to "
                                                     << currentDevicePath() << " (e.g. a udev rule), or set "
                                                     << kEnvironmentVariable << "=off to make no request");
}

/// Writes the request's value to the open device (a new write replaces the
/// previous request).
bool writeValue() ZYN_REQUIRES(stateMutex) {
    const auto value = static_cast<int32_t>(request.microseconds);
    if (::write(deviceFd, &value, sizeof value) != static_cast<ssize_t>(sizeof value)) {
        refuse("write to", errno);
        closeDevice();
        return false;
    }
    return true;
}

/// Makes the device match the setting while there are holders.
void applyWhileHeld() ZYN_REQUIRES(stateMutex) {
    if (holders == 0 || !request.enabled || processExiting) {
        closeDevice();
        return;
    }
    if (deviceFd < 0) {
        // Non-blocking: a FIFO standing in for the device must not block the
        // thread that starts an oscillator.
        deviceFd = ::open(currentDevicePath(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
        if (deviceFd < 0) {
            refuse("open", errno);
            return;
        }
    }
    if (writeValue()) {
        lastRefusal[0] = '\0';
    }
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
        const timespec interval{kWatchIntervalSeconds, 0};
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

bool holdCpuLatencyWhileRunning(pid_t tid) {
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

}  // namespace detail

bool parseCpuLatencyRequest(const std::string& text, CpuLatencyRequest& parsed, std::string& error) {
    if (text == "off") {
        parsed = CpuLatencyRequest{false, 0};
        return true;
    }
    uint64_t value = 0;
    bool valid = !text.empty() && text.size() <= 10;
    for (const char c : text) {
        valid = valid && c >= '0' && c <= '9';
        value = valid ? value * 10 + static_cast<uint64_t>(c - '0') : value;
    }
    if (!valid || value > kMaxCpuLatencyUs) {
        error = "invalid value '" + text + "'; expected 'off' or microseconds from 0 to " +
                std::to_string(kMaxCpuLatencyUs);
        return false;
    }
    parsed = CpuLatencyRequest{true, static_cast<uint32_t>(value)};
    return true;
}

void setCpuLatencyRequest(const CpuLatencyRequest& newRequest) {
    using namespace detail;
    const zyn_support::GuardedLock lock(stateMutex);
    configured = true;
    const bool changed = newRequest.enabled != request.enabled || newRequest.microseconds != request.microseconds;
    request = newRequest;
    if (changed) {
        applyWhileHeld();
    }
}

CpuLatencyRequest cpuLatencyRequest() {
    using namespace detail;
    const zyn_support::GuardedLock lock(stateMutex);
    configureFromEnvironment();
    return request;
}

CpuLatencyState cpuLatencyState() {
    using namespace detail;
    const zyn_support::GuardedLock lock(stateMutex);
    configureFromEnvironment();
    forgetEndedHolders();
    CpuLatencyState state;
    state.request = request;
    state.holders = holders;
    state.held = deviceFd >= 0;
    state.refusal = lastRefusal;
    state.devicePath = currentDevicePath();
    return state;
}

void setCpuLatencyDeviceForTesting(const std::string& path) {
    using namespace detail;
    const zyn_support::GuardedLock lock(stateMutex);
    copyText(devicePath, kPathCapacity, path);
    refusalTraced = false;
}

}  // namespace platform_host
