#include "MemoryLock.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstring>

namespace tickmon {

MemoryLockOutcome lockMemory(bool wanted) {
    if (!wanted) {
        return MemoryLockOutcome{false, "not asked (--no-mlock)"};
    }
    if (::mlockall(MCL_CURRENT | MCL_FUTURE) == 0) {
        return MemoryLockOutcome{true, "locked (mlockall current and future)"};
    }
    return MemoryLockOutcome{false, std::string("refused: mlockall: ") + std::strerror(errno)};
}

}  // namespace tickmon
