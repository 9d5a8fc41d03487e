// Watches the scheduler's oscillator thread through /proc: found by its
// name, its policy and priority as the kernel applied them, and the CPU time
// it uses per second of run.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "OscillatorThreadReport.h"
#include "ThreadStat.h"

namespace tickmon {

class OscillatorThreadWatch {
public:
    explicit OscillatorThreadWatch(std::string threadName) : name(std::move(threadName)) {}

    /// Looks for the thread for up to `timeoutNs` (its name is applied just
    /// after it starts); then takes the first CPU-time sample.
    bool begin(int64_t timeoutNs);

    /// Takes the last sample and reads the thread's scheduling; call while
    /// the thread still runs.
    OscillatorThreadReport finish();

private:
    std::string name;
    pid_t tid = 0;
    std::optional<ThreadCpuTime> startCpu;
    int64_t startNs = 0;
};

}  // namespace tickmon
