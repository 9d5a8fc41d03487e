// The reference trace service: one KivTrace per module with a level per
// object, the levels set per module name (from KIV_TRACE and setTraceLevel),
// and where finished lines go.
//
// Trace objects are constructed from static constructors of libraries that
// may be initialised before this one, and destroyed from static destructors
// that may run after it is finalised. So nothing here is a non-trivial static:
// the registry is created on first use (reading KIV_TRACE then, once) and is
// never destroyed.

#include "KivTrace.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <list>
#include <map>
#include <utility>

#include "PlatformHost/TraceHost.h"
#include "TraceLevelList.h"
#include "TraceLine.h"
#include "ZynSupport/GuardedMutex.h"

namespace {

/// What a KivTrace's `impl` points to.
struct TraceState {
    TraceState(std::string name, uint32_t initialLevel, uint32_t option)
        : level(initialLevel), headerOption(option), moduleName(std::move(name)) {}

    /// Read on every level test by any thread: a relaxed atomic, so that the
    /// test is a single load and a level change is seen promptly.
    std::atomic<uint32_t> level;
    const uint32_t headerOption;
    const std::string moduleName;
};

struct Registry {
    zyn_support::GuardedMutex mutex;
    std::list<TraceState> objects ZYN_GUARDED_BY(mutex);                 // live trace objects, oldest first
    std::map<std::string, uint32_t> levelsByName ZYN_GUARDED_BY(mutex);  // KIV_TRACE, then setTraceLevel
    zyn_support::GuardedMutex outputMutex;                               // also serialises output
    std::function<void(const std::string&)> sink ZYN_GUARDED_BY(outputMutex);
};

void writeAllToStderr(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) {
            return;  // nowhere else to report a broken stderr
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
}

Registry* createRegistry() {
    auto* reg = new Registry;
    // Read once, here; nothing in this process is expected to change the
    // environment concurrently with the first trace.
    const char* value = std::getenv("KIV_TRACE");  // NOLINT(concurrency-mt-unsafe)
    platform_host::detail::TraceLevelList levels;
    if (value != nullptr && !platform_host::detail::parseTraceLevelList(value, levels)) {
        writeAllToStderr(std::string("KIV_TRACE: ignoring malformed value \"") + value +
                         "\" (expected MODULE:LEVEL[,MODULE:LEVEL...] with levels 0 to 7)\n");
    }
    // Not yet shared with any other thread; the lock costs nothing and keeps
    // every access to the levels under it.
    const zyn_support::GuardedLock lock(reg->mutex);
    for (const auto& [name, level] : levels) {
        reg->levelsByName[name] = level;
    }
    return reg;
}

Registry& registry() {
    static Registry* const instance = createRegistry();
    return *instance;
}

// A new object's level is the one set for its module name, if any.
TraceState* attach(const char* moduleName, uint32_t defaultLevel, uint32_t headerOption) {
    const std::string name = moduleName != nullptr ? moduleName : "?";
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    const auto set = reg.levelsByName.find(name);
    return &reg.objects.emplace_back(name, set != reg.levelsByName.end() ? set->second : defaultLevel, headerOption);
}

bool isEnabledIn(const void* impl, KivTraceLevel level) {
    const auto* state = static_cast<const TraceState*>(impl);
    return state != nullptr && level != 0 && level <= state->level.load(std::memory_order_relaxed);
}

// Formats and writes one record if its level is enabled, one line at a time.
// Tracing must never fail the traced code: a record that cannot be built (out
// of memory) or that the sink throws on is dropped, and errno is kept.
void writeRecord(const void* impl, KivTraceLevel level, const KivTraceHeader& header, const std::string* text,
                 bool entry) noexcept {
    if (!isEnabledIn(impl, level)) {
        return;
    }
    const auto& state = *static_cast<const TraceState*>(impl);
    const int savedErrno = errno;
    try {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        const auto threadId = static_cast<pid_t>(::syscall(SYS_gettid));
        const std::string line = platform_host::detail::formatTraceLine(
            {now, threadId, &state.moduleName, level, state.headerOption, &header, text, entry});
        Registry& reg = registry();
        const zyn_support::GuardedLock lock(reg.outputMutex);
        if (reg.sink) {
            reg.sink(line);
        } else {
            writeAllToStderr(line + '\n');
        }
    } catch (...) {
        // Dropped: see above.
    }
    errno = savedErrno;
}

}  // namespace

KivTrace::KivTrace(const char* moduleName, KivTraceLevel defaultLevel, KivTraceHdrOption headerOption)
    : impl(attach(moduleName, defaultLevel, headerOption)) {}

KivTrace::~KivTrace() {
    {
        Registry& reg = registry();
        const zyn_support::GuardedLock lock(reg.mutex);
        reg.objects.remove_if([this](const TraceState& state) { return &state == impl; });
    }
    // A static trace object may still be asked by another library's static
    // destructor that runs later: with no state it reports every level
    // disabled. The store is volatile so that it is not dropped as a store to
    // an object whose lifetime ends.
    *static_cast<void* volatile*>(&impl) = nullptr;
}

bool KivTrace::isEnabled(KivTraceLevel level) const { return isEnabledIn(impl, level); }

void KivTrace::logMsg(KivTraceLevel level, const KivTraceHeader& header, const std::string& text) {
    writeRecord(impl, level, header, &text, false);
}

void KivTrace::logEnterMsg(KivTraceLevel level, const KivTraceHeader& header) {
    writeRecord(impl, level, header, nullptr, true);
}

void KivTrace::logEnterMsg(KivTraceLevel level, const KivTraceHeader& header, const std::string& text) {
    writeRecord(impl, level, header, &text, true);
}

namespace platform_host {

void setTraceLevel(const std::string& moduleName, uint32_t level) {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    reg.levelsByName[moduleName] = level;
    for (TraceState& state : reg.objects) {
        if (state.moduleName == moduleName) {
            state.level.store(level, std::memory_order_relaxed);
        }
    }
}

// The level set for the name, otherwise that of its newest live object.
uint32_t traceLevel(const std::string& moduleName) {
    Registry& reg = registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    const auto set = reg.levelsByName.find(moduleName);
    if (set != reg.levelsByName.end()) {
        return set->second;
    }
    const auto newest = std::find_if(reg.objects.rbegin(), reg.objects.rend(),
                                     [&moduleName](const TraceState& state) { return state.moduleName == moduleName; });
    return newest != reg.objects.rend() ? newest->level.load(std::memory_order_relaxed) : 0;
}

void setTraceSink(std::function<void(const std::string& line)> sink) {
    Registry& reg = registry();
    // Taking the output lock means that once this returns, the previous sink
    // is no longer running on any thread and will not be called again.
    const zyn_support::GuardedLock lock(reg.outputMutex);
    reg.sink = std::move(sink);
}

}  // namespace platform_host
