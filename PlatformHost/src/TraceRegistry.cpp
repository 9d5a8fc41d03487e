#include "TraceRegistry.h"
#include "ZynSupport/GuardedMutex.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

#include "PlatformHost/TraceHost.h"
#include "TraceLevelList.h"

namespace platform_host::detail {

namespace {

using TraceSink = std::function<void(const std::string&)>;

struct TraceRegistry {
    zyn_support::GuardedMutex mutex;
    TraceState* objects ZYN_GUARDED_BY(mutex) = nullptr;                 // live trace objects
    std::map<std::string, uint32_t> levelsByName ZYN_GUARDED_BY(mutex);  // KIV_TRACE, then setTraceLevel
    zyn_support::GuardedMutex outputMutex;                               // also serialises output
    TraceSink sink ZYN_GUARDED_BY(outputMutex);
};

void writeAllToStderr(const std::string& text) {
    const char* data = text.data();
    std::size_t left = text.size();
    while (left > 0) {
        const ssize_t written = ::write(STDERR_FILENO, data, left);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;  // nowhere else to report a broken stderr
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}

void applyEnvironment(TraceRegistry& reg) {
    // Read once, while the registry is created; nothing in this process is
    // expected to change the environment concurrently with the first trace.
    const char* value = std::getenv("KIV_TRACE");  // NOLINT(concurrency-mt-unsafe)
    if (value == nullptr) {
        return;
    }
    TraceLevelList levels;
    if (!parseTraceLevelList(value, levels)) {
        writeAllToStderr(std::string("KIV_TRACE: ignoring malformed value \"") + value +
                         "\" (expected MODULE:LEVEL[,MODULE:LEVEL...] with levels 0 to 7)\n");
        return;
    }
    // Not yet shared with any other thread; the lock costs nothing and keeps
    // every access to the levels under it.
    const zyn_support::GuardedLock lock(reg.mutex);
    for (const auto& entry : levels) {
        reg.levelsByName[entry.first] = entry.second;
    }
}

TraceRegistry* createRegistry() {
    auto* reg = new TraceRegistry;
    applyEnvironment(*reg);
    return reg;
}

TraceRegistry& registry() {
    // Created on first use, KIV_TRACE read exactly once; never destroyed.
    static TraceRegistry* const instance = createRegistry();
    return *instance;
}

}  // namespace

TraceState* attachTraceObject(const char* moduleName, uint32_t defaultLevel, uint32_t headerOption) {
    TraceRegistry& reg = registry();
    auto* state =
        new TraceState{{defaultLevel}, headerOption, moduleName != nullptr ? moduleName : "?", nullptr, nullptr};
    const zyn_support::GuardedLock lock(reg.mutex);
    const auto level = reg.levelsByName.find(state->moduleName);
    if (level != reg.levelsByName.end()) {
        state->level.store(level->second, std::memory_order_relaxed);
    }
    state->next = reg.objects;
    if (reg.objects != nullptr) {
        reg.objects->previous = state;
    }
    reg.objects = state;
    return state;
}

void detachTraceObject(TraceState* state) {
    if (state == nullptr) {
        return;
    }
    TraceRegistry& reg = registry();
    {
        const zyn_support::GuardedLock lock(reg.mutex);
        if (state->previous != nullptr) {
            state->previous->next = state->next;
        } else {
            reg.objects = state->next;
        }
        if (state->next != nullptr) {
            state->next->previous = state->previous;
        }
    }
    delete state;
}

void emitTraceLine(const std::string& line) {
    TraceRegistry& reg = registry();
    const zyn_support::GuardedLock lock(reg.outputMutex);
    if (reg.sink) {
        reg.sink(line);
        return;
    }
    writeAllToStderr(line + '\n');
}

}  // namespace platform_host::detail

namespace platform_host {

void setTraceLevel(const std::string& moduleName, uint32_t level) {
    detail::TraceRegistry& reg = detail::registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    reg.levelsByName[moduleName] = level;
    for (detail::TraceState* state = reg.objects; state != nullptr; state = state->next) {
        if (state->moduleName == moduleName) {
            state->level.store(level, std::memory_order_relaxed);
        }
    }
}

uint32_t traceLevel(const std::string& moduleName) {
    detail::TraceRegistry& reg = detail::registry();
    const zyn_support::GuardedLock lock(reg.mutex);
    const auto level = reg.levelsByName.find(moduleName);
    if (level != reg.levelsByName.end()) {
        return level->second;
    }
    for (const detail::TraceState* state = reg.objects; state != nullptr; state = state->next) {
        if (state->moduleName == moduleName) {
            return state->level.load(std::memory_order_relaxed);
        }
    }
    return 0;
}

void setTraceSink(std::function<void(const std::string& line)> sink) {
    detail::TraceRegistry& reg = detail::registry();
    // Taking the output lock means that once this returns, the previous sink
    // is no longer running on any thread and will not be called again.
    const zyn_support::GuardedLock lock(reg.outputMutex);
    reg.sink = std::move(sink);
}

}  // namespace platform_host
