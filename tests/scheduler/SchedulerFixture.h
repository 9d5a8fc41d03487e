// Shared pieces of the CTickScheduler tests: a fixture that puts the module
// back into its load state around every test, tick functions that record
// their calls, trace-line helpers and thread helpers.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <new>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BoundedWait.h"
#include "CTickScheduler.h"
#include "CTickSchedulerModule.h"
#include "ModuleState.h"
#include "PlatformDouble.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"

namespace scheduler_test {

constexpr const char* kSourceFile = "PlatformServices/TickScheduler/private/CTickScheduler.cpp";

// The functions the module's traces are written under.
constexpr const char* kRegister = "CTickScheduler_RegisterTickHandler";
constexpr const char* kUnregister = "CTickScheduler_UnregisterTickHandler";
constexpr const char* kSetPriority = "CTickScheduler_SetTickPriority";
constexpr const char* kSetOffset = "CTickScheduler_SetStartOffset";
constexpr const char* kOnTick = "CTickScheduler_OnTick";
constexpr const char* kAdd = "CTickScheduler_AddGroup";
constexpr const char* kRemove = "CTickScheduler_RemoveGroup";
constexpr const char* kEnable = "CTickScheduler_EnableTickGroup";
constexpr const char* kDisable = "CTickScheduler_DisableTickGroup";

// ---- Tick functions ---------------------------------------------------------

/// Names of tick functions in the order they were called (thread-safe).
class CallLog {
public:
    void add(const std::string& name) {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(name);
    }
    std::vector<std::string> take() {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::string> result;
        result.swap(calls);
        return result;
    }

private:
    std::mutex mutex;
    std::vector<std::string> calls;
};

/// The context of a test tick function: logs its name, counts its calls and
/// runs an optional action on every call.
struct Probe {
    Probe(std::string probeName, CallLog* probeLog) : name(std::move(probeName)), log(probeLog) {}

    std::string name;
    CallLog* log;
    std::function<void()> action;
    std::atomic<int> calls{0};

    ITickReceiver receiver() { return ITickReceiver{this, &Probe::onTick}; }

    static void onTick(void* context) {
        auto* probe = static_cast<Probe*>(context);
        probe->calls.fetch_add(1);
        if (probe->log != nullptr) {
            probe->log->add(probe->name);
        }
        if (probe->action) {
            probe->action();
        }
    }
};

/// Registers a handler for `probe` named after it; fails the test on error.
inline STickHandler* registerProbe(Probe& probe, uint32_t tickInterval) {
    STickHandler* handle = nullptr;
    const ITickReceiver receiver = probe.receiver();
    EXPECT_EQ(CTickScheduler_RegisterTickHandler(&handle, &receiver, tickInterval, probe.name.c_str()),
              TickResult::Success);
    return handle;
}

// ---- Trace lines --------------------------------------------------------------

/// A trace message as the tests compare it: level, function, text.
struct Line {
    uint32_t level;
    std::string function;
    std::string text;
    bool operator==(const Line& other) const {
        return level == other.level && function == other.function && text == other.text;
    }
};

inline std::ostream& operator<<(std::ostream& out, const Line& line) {
    return out << "{" << line.level << ", \"" << line.function << "\", \"" << line.text << "\"}";
}

/// Every message (not entry record) written since the last reset, in order.
inline std::vector<Line> messages() {
    std::vector<Line> lines;
    for (const platform_double::TraceRecord& record : platform_double::traces()) {
        if (!record.entry) {
            lines.push_back(Line{record.level, record.function, record.text});
        }
    }
    return lines;
}

/// Every message except those written under `function`: for the oscillator
/// loop ("run"), whose lines depend on when its thread gets to run.
inline std::vector<Line> messagesExcept(const std::string& function) {
    std::vector<Line> lines;
    for (const Line& line : messages()) {
        if (line.function != function) {
            lines.push_back(line);
        }
    }
    return lines;
}

/// The functions of every entry record written since the last reset, except
/// those of `except`.
inline std::vector<std::string> entries(const std::string& except = std::string()) {
    std::vector<std::string> names;
    for (const platform_double::TraceRecord& record : platform_double::traces()) {
        if (record.entry && record.function != except) {
            names.push_back(record.function);
        }
    }
    return names;
}

/// Runs the configure and start phases through the module manager, as the
/// platform does at start-up: the oscillator starts ticking the handlers.
inline void runStartUpPhases() {
    for (uint32_t phase : {TickModule::Phase::Configure, TickModule::Phase::StartTicks}) {
        ASSERT_EQ(platform_double::activatePhase(TickModule::SchedulerModuleId, phase), TickResult::Success)
            << "phase " << phase;
    }
}

/// The fixture of every test: the module and the platform double start from
/// their load state, and the module is put back into it afterwards.
class SchedulerTest : public ::testing::Test {
protected:
    void SetUp() override {
        resetModuleToLoadState();
        platform_double::reset();
    }
    void TearDown() override { resetModuleToLoadState(); }

    CallLog log;
};

// ---- Threads ------------------------------------------------------------------

/// A one-shot gate whose wait fails the run within seconds instead of
/// hanging until CTest's timeout.
using test_support::Latch;

inline pid_t currentThreadId() { return static_cast<pid_t>(syscall(SYS_gettid)); }

/// The scheduler state letter of a thread of this process ('R', 'S', ...).
inline char threadState(pid_t tid) {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string content((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const std::string::size_type end = content.rfind(')');
    if (end == std::string::npos || end + 2 >= content.size()) {
        return '?';
    }
    return content[end + 2];
}

/// Yields until the thread `tid` sleeps in the kernel or `done` is set, i.e.
/// until a thread that was told to call in has either returned or blocked.
inline void waitUntilBlockedOrDone(const std::atomic<pid_t>& tid, const std::atomic<bool>& done) {
    const auto deadline = std::chrono::steady_clock::now() + test_support::kStuckAfter;
    while (!done.load()) {
        if (std::chrono::steady_clock::now() > deadline) {
            test_support::abortAsStuck("the watched thread blocking or finishing");
        }
        const pid_t id = tid.load();
        if (id != 0) {
            const char state = threadState(id);
            if (state == 'S' || state == 'D') {
                return;
            }
        }
        std::this_thread::yield();
    }
}

/// Issues ordered events across threads, to compare when things happened.
class EventClock {
public:
    uint64_t now() { return ++counter; }

private:
    std::atomic<uint64_t> counter{0};
};

}  // namespace scheduler_test
