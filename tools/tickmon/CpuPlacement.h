// Pinning the oscillator thread to chosen CPUs and reporting where it ran.
//
// The library creates the thread itself, so the monitor pins the thread that
// starts it for that moment: a new thread inherits its creator's CPU set.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tickmon {

/// "0-3,6" for {0, 1, 2, 3, 6}; "none" for an empty list.
std::string formatCpuList(const std::vector<uint32_t>& cpus);

/// The CPUs thread `tid` may run on (0: the calling thread); empty when the
/// kernel does not say.
std::vector<uint32_t> allowedCpus(pid_t tid);

/// Empty when every CPU of `wanted` is in `available`; else one line naming
/// the first that is not.
std::string unavailableCpuError(const std::vector<uint32_t>& wanted, const std::vector<uint32_t>& available);

/// The CPU a thread last ran on: field 39 of its stat line.
std::optional<uint32_t> parseLastCpu(const std::string& statLine);
std::optional<uint32_t> lastCpuOf(pid_t tid);

/// Restricts the calling thread to `cpus` while alive (nothing for an empty
/// list), and restores its previous set after.
class CallingThreadPinned {
public:
    explicit CallingThreadPinned(const std::vector<uint32_t>& cpus);
    ~CallingThreadPinned();
    CallingThreadPinned(const CallingThreadPinned&) = delete;
    CallingThreadPinned& operator=(const CallingThreadPinned&) = delete;

    /// Empty, or why the kernel refused.
    const std::string& error() const { return refusal; }

private:
    std::vector<uint32_t> previous;
    bool pinned = false;
    std::string refusal;
};

}  // namespace tickmon
