// The CPU wake-up latency request: its setting, its holders and the device.
//
// All state is constant-initialised and trivially destructible, so that a
// thread ending during process exit (after this file's static destructors
// ran) still finds it usable.

#include "CpuLatency.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

std::mutex stateMutex;
CpuLatencyRequest request;                // guarded by stateMutex
bool configured = false;                  // the environment was read
bool processExiting = false;              // no new opening after exit began
uint32_t holders = 0;                     // guarded by stateMutex
int deviceFd = -1;                        // open while held
bool refusalTraced = false;               // one warning per process
char devicePath[kPathCapacity] = "";      // empty: the default device
char lastRefusal[kRefusalCapacity] = "";  // empty: not refused

const char* currentDevicePath() { return devicePath[0] != '\0' ? devicePath : kDefaultDevice; }

void copyText(char* destination, size_t capacity, const std::string& text) {
    std::snprintf(destination, capacity, "%s", text.c_str());
}

/// Reads ZYN_CPU_LATENCY_US once, before the first use of the setting.
void configureFromEnvironment() {
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

void refuse(const char* what, int error) {
    const std::string refusal =
        std::string("cannot ") + what + " " + currentDevicePath() + " (" + std::strerror(error) + ")";
    copyText(lastRefusal, kRefusalCapacity, refusal);
    if (refusalTraced) {
        return;
    }
    refusalTraced = true;
    ZYN_HOST_TRACE(KIV_TRACE_WARNING, "platform_host::holdCpuLatency",
                   "CPU wake-up latency request of " << request.microseconds << " us refused: " << refusal
                                                     << "; ticks may wake up late from deep idle states. Grant it by "
                                                        "running as root or giving the process write access to "
                                                     << currentDevicePath() << " (e.g. a udev rule), or set "
                                                     << kEnvironmentVariable << "=off to make no request");
}

/// Writes the request's value to the open device (a new write replaces the
/// previous request).
bool writeValue() {
    const auto value = static_cast<int32_t>(request.microseconds);
    if (::write(deviceFd, &value, sizeof value) != static_cast<ssize_t>(sizeof value)) {
        refuse("write to", errno);
        closeDevice();
        return false;
    }
    return true;
}

/// Makes the device match the setting while there are holders.
void applyWhileHeld() {
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
    const std::lock_guard<std::mutex> lock(stateMutex);
    processExiting = true;
    closeDevice();
}

}  // namespace

void addCpuLatencyHolder() {
    const std::lock_guard<std::mutex> lock(stateMutex);
    configureFromEnvironment();
    ++holders;
    if (holders == 1) {
        applyWhileHeld();
    }
}

void removeCpuLatencyHolder() {
    const std::lock_guard<std::mutex> lock(stateMutex);
    if (holders > 0) {
        --holders;
    }
    if (holders == 0) {
        closeDevice();
    }
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
    const std::lock_guard<std::mutex> lock(stateMutex);
    configured = true;
    const bool changed = newRequest.enabled != request.enabled || newRequest.microseconds != request.microseconds;
    request = newRequest;
    if (changed) {
        applyWhileHeld();
    }
}

CpuLatencyRequest cpuLatencyRequest() {
    using namespace detail;
    const std::lock_guard<std::mutex> lock(stateMutex);
    configureFromEnvironment();
    return request;
}

CpuLatencyState cpuLatencyState() {
    using namespace detail;
    const std::lock_guard<std::mutex> lock(stateMutex);
    configureFromEnvironment();
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
    const std::lock_guard<std::mutex> lock(stateMutex);
    copyText(devicePath, kPathCapacity, path);
    refusalTraced = false;
}

}  // namespace platform_host
