// Host-side control of the CPU wake-up latency request.
//
// An idle CPU sleeps in a C-state whose exit latency delays every wake-up: on
// a VM with the haltpoll driver, or a board with deep idle states, a tick can
// come up to milliseconds late. Linux lets a process cap that latency while it
// keeps /dev/cpu_dma_latency open with a 32-bit value in microseconds written
// to it (a PM QoS request; it lapses when the file is closed).
//
// The host holds that request while at least one real-time thread runs in the
// process: a thread counts from the moment its real-time scheduling is set
// through the thread utilities until it ends. The request is released when the
// last such thread has ended, and at process exit. The host sees that a thread
// has ended without involving the thread: its /proc/self/task entry is gone.
// It looks whenever another real-time thread is added or cpuLatencyState() is
// called, and once a second on a thread of its own, "zyn-cpu-latency", which
// runs (with every signal blocked) only while there are holders; so the
// request lapses at most about a second after the last holder ended.
//
// Default: 0 us (the shallowest idle state only). The environment variable
// ZYN_CPU_LATENCY_US ("off", or microseconds from 0 to 2000000000) changes it
// without recompiling; it is read once, and an invalid value is reported once
// on stderr and refused (the default stays). A device that cannot be opened
// or written (not root, a container) gives one level-2 warning of the trace
// object "ZYN.HOST" and nothing else: the threads run as they would without.
#pragma once

#include <cstdint>
#include <string>

namespace platform_host {

/// The largest request accepted, in microseconds (the kernel takes a signed
/// 32-bit value).
constexpr uint32_t kMaxCpuLatencyUs = 2000000000;

struct CpuLatencyRequest {
    /// false: no request is made at all.
    bool enabled = true;
    uint32_t microseconds = 0;
};

/// Reads "off" or a decimal number of microseconds (0 to kMaxCpuLatencyUs).
/// On failure returns false and sets `error` to one line naming what is
/// accepted.
bool parseCpuLatencyRequest(const std::string& text, CpuLatencyRequest& request, std::string& error);

/// Sets the request for this process, overriding ZYN_CPU_LATENCY_US. Applied
/// at once when it is held (a new value is written, "off" releases it).
void setCpuLatencyRequest(const CpuLatencyRequest& request);

/// The request in force (the default, the environment's, or the last set).
CpuLatencyRequest cpuLatencyRequest();

struct CpuLatencyState {
    CpuLatencyRequest request;
    /// Real-time threads of this process that are running (those that ended
    /// are forgotten by this call).
    uint32_t holders = 0;
    /// The device is open with the request's value written to it.
    bool held = false;
    /// Why the device refused the request (empty when it did not).
    std::string refusal;
    std::string devicePath;
};

CpuLatencyState cpuLatencyState();

/// Tests only: the path opened instead of /dev/cpu_dma_latency (a regular
/// file or a FIFO). Takes effect at the next opening.
void setCpuLatencyDeviceForTesting(const std::string& path);

}  // namespace platform_host
