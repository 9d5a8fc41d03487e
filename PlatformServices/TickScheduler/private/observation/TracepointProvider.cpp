#include "TracepointProvider.h"

#ifdef ZYN_TS_WITH_LTTNG

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

// The tracepoint definitions and their registration with liblttng-ust, when
// the latter is present: exactly one translation unit of the library holds
// them. Dynamic linkage: the probes come from the provider object at run
// time, never from a link-time dependency.
#define LTTNG_UST_TRACEPOINT_DEFINE
#define LTTNG_UST_TRACEPOINT_PROBE_DYNAMIC_LINKAGE
#include "ZynTickTracepoints.h"

namespace {

constexpr char kProviderFile[] = "libZynTickSchedulerTracepoints.so.1";
constexpr char kEnvironmentChoice[] = "ZYN_TICK_TRACEPOINTS";

/// The directory of the object this code was linked into, with its slash;
/// empty when the loader cannot say.
std::string ownDirectory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&zyn_ts::openTracepointProviderOnce), &info) == 0 || info.dli_fname == nullptr) {
        return {};
    }
    const char* const slash = std::strrchr(info.dli_fname, '/');
    return slash == nullptr ? std::string{}
                            : std::string(info.dli_fname, static_cast<size_t>(slash - info.dli_fname) + 1);
}

void* openProvider(const char* path) { return dlopen(path, RTLD_NOW | RTLD_GLOBAL); }

/// Opens the provider that ZYN_TICK_TRACEPOINTS names, or the first found
/// beside the library or on the loader's path.
void openChosenProvider() {
    const char* const choice = std::getenv(kEnvironmentChoice);  // NOLINT(concurrency-mt-unsafe)
    if (choice != nullptr && choice[0] != '\0') {
        if (std::strcmp(choice, "off") != 0) {
            (void)openProvider(choice);
        }
        return;
    }
    const std::string besideLibrary = ownDirectory() + kProviderFile;
    if (openProvider(besideLibrary.c_str()) == nullptr) {
        (void)openProvider(kProviderFile);
    }
}

}  // namespace

namespace zyn_ts {

void openTracepointProviderOnce() {
    static std::atomic<bool> attempted{false};
    if (attempted.exchange(true, std::memory_order_acq_rel)) {
        return;
    }
    // The caller's errno is its own: a provider that is not installed (the
    // usual case on a board) must not leave ENOENT behind an Initialize.
    const int callersErrno = errno;
    openChosenProvider();
    errno = callersErrno;
}

}  // namespace zyn_ts

#else

namespace zyn_ts {

void openTracepointProviderOnce() {}

}  // namespace zyn_ts

#endif
