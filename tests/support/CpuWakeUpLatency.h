// Holding the CPU wake-up latency request for the life of a timing test.
//
// An idle CPU may sleep in a deep state from which waking takes hundreds of
// microseconds. Writing a 32-bit 0 to /dev/cpu_dma_latency and keeping the
// file open asks the kernel to keep wake-ups immediate, as a real-time
// system configures its target; closing the file withdraws the request. Only
// a privileged process may open the file: elsewhere the request is simply
// not held, and the tests compare against a reference measured under the
// same conditions anyway.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

namespace test_environment {

class CpuWakeUpLatencyRequest {
public:
    CpuWakeUpLatencyRequest() {
        descriptor = ::open("/dev/cpu_dma_latency", O_WRONLY | O_CLOEXEC);
        if (descriptor < 0) {
            return;
        }
        const int32_t noLatency = 0;
        if (::write(descriptor, &noLatency, sizeof(noLatency)) != static_cast<ssize_t>(sizeof(noLatency))) {
            ::close(descriptor);
            descriptor = -1;
        }
    }
    ~CpuWakeUpLatencyRequest() {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
    }
    CpuWakeUpLatencyRequest(const CpuWakeUpLatencyRequest&) = delete;
    CpuWakeUpLatencyRequest& operator=(const CpuWakeUpLatencyRequest&) = delete;

    /// True while the kernel holds the request.
    bool isHeld() const { return descriptor >= 0; }

private:
    int descriptor = -1;
};

}  // namespace test_environment
