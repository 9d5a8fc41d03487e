#include "MemoryLock.h"

#include <sys/mman.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "ProcFiles.h"

namespace tickmon {
namespace {

constexpr int kCapIpcLock = 14;

}  // namespace

bool capEffHasIpcLock(const std::string& procSelfStatus) {
    std::istringstream lines(procSelfStatus);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind("CapEff:", 0) != 0) {
            continue;
        }
        const size_t start = line.find_first_not_of(" \t", 7);
        const std::string hex = start == std::string::npos ? "" : line.substr(start);
        if (hex.empty() || hex.size() > 16 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
            return false;
        }
        return ((std::stoull(hex, nullptr, 16) >> kCapIpcLock) & 1U) != 0;
    }
    return false;
}

MemoryLockRights readMemoryLockRights() {
    MemoryLockRights rights;
    rights.capIpcLock = capEffHasIpcLock(readWholeFile("/proc/self/status").value_or(""));
    rlimit limit{};
    if (::getrlimit(RLIMIT_MEMLOCK, &limit) == 0) {
        rights.unlimited = limit.rlim_cur == RLIM_INFINITY;
        rights.limitBytes = static_cast<uint64_t>(limit.rlim_cur);
    }
    return rights;
}

MemoryLockOutcome lockMemory(bool wanted, const MemoryLockRights& rights) {
    if (!wanted) {
        return MemoryLockOutcome{false, "not asked (--no-mlock)"};
    }
    if (!rights.capIpcLock && !rights.unlimited) {
        return MemoryLockOutcome{false, "not locked: RLIMIT_MEMLOCK is " + std::to_string(rights.limitBytes) +
                                            " bytes without CAP_IPC_LOCK, too little for the threads' stacks"};
    }
    if (::mlockall(MCL_CURRENT | MCL_FUTURE) == 0) {
        return MemoryLockOutcome{true, "locked (mlockall current and future)"};
    }
    return MemoryLockOutcome{false, std::string("not locked: mlockall: ") + std::strerror(errno)};
}

}  // namespace tickmon
