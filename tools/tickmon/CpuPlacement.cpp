#include "CpuPlacement.h"

#include <sched.h>

#include <cerrno>
#include <cstring>

#include "ProcFiles.h"

namespace tickmon {
namespace {

bool applyToCallingThread(const std::vector<uint32_t>& cpus) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (const uint32_t cpu : cpus) {
        if (cpu < CPU_SETSIZE) {
            CPU_SET(cpu, &set);
        }
    }
    return ::sched_setaffinity(0, sizeof set, &set) == 0;
}

}  // namespace

std::string formatCpuList(const std::vector<uint32_t>& cpus) {
    std::string text;
    for (size_t i = 0; i < cpus.size();) {
        size_t last = i;
        while (last + 1 < cpus.size() && cpus[last + 1] == cpus[last] + 1) {
            ++last;
        }
        text += (text.empty() ? "" : ",") + std::to_string(cpus[i]);
        if (last > i) {
            text += "-" + std::to_string(cpus[last]);
        }
        i = last + 1;
    }
    return text.empty() ? "none" : text;
}

std::vector<uint32_t> allowedCpus(pid_t tid) {
    cpu_set_t set;
    CPU_ZERO(&set);
    std::vector<uint32_t> cpus;
    if (::sched_getaffinity(tid, sizeof set, &set) != 0) {
        return cpus;
    }
    for (uint32_t cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &set)) {
            cpus.push_back(cpu);
        }
    }
    return cpus;
}

std::string unavailableCpuError(const std::vector<uint32_t>& wanted, const std::vector<uint32_t>& available) {
    for (const uint32_t cpu : wanted) {
        bool found = false;
        for (const uint32_t candidate : available) {
            found = found || candidate == cpu;
        }
        if (!found) {
            return "--cpu: CPU " + std::to_string(cpu) + " is not available; this process may run on " +
                   formatCpuList(available);
        }
    }
    return "";
}

std::optional<uint32_t> parseLastCpu(const std::string& statLine) {
    constexpr size_t kProcessorField = 39;
    const std::optional<std::vector<std::string>> fields = statFieldsAfterName(statLine);
    if (!fields || fields->size() <= kProcessorField - kFirstStatFieldAfterName) {
        return std::nullopt;
    }
    const std::string& field = (*fields)[kProcessorField - kFirstStatFieldAfterName];
    if (field.empty() || field.size() > 9 || field.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(std::stoul(field));
}

std::optional<uint32_t> lastCpuOf(pid_t tid) {
    const std::optional<std::string> line = readWholeFile(taskFilePath(tid, "stat"));
    return line ? parseLastCpu(*line) : std::nullopt;
}

CallingThreadPinned::CallingThreadPinned(const std::vector<uint32_t>& cpus) {
    if (cpus.empty()) {
        return;
    }
    previous = allowedCpus(0);
    pinned = applyToCallingThread(cpus);
    if (!pinned) {
        refusal = std::string("sched_setaffinity: ") + std::strerror(errno);
    }
}

CallingThreadPinned::~CallingThreadPinned() {
    if (pinned) {
        applyToCallingThread(previous);
    }
}

}  // namespace tickmon
