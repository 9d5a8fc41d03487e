// CTickScheduler on the reference platform: its module manager runs the
// phases, clients take the "ITickScheduler" object from its broker, the
// oscillator ticks on the real clock every 6 ms, and the module's traces go
// through its trace service.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <initializer_list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CTickScheduler.h"
#include "ITickScheduler.h"
#include "InterfaceBroker.h"
#include "ModuleState.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "PlatformHost/TraceHost.h"
#include "TickResultCodes.h"
#include "TimingEnvironment.h"

namespace scheduler_test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kModuleId = 22000;
constexpr const char* kTraceModule = "ZYN.TS";
// Guards against a hang only; a working scheduler gets there in milliseconds.
constexpr std::chrono::seconds kHangGuard{20};
constexpr std::chrono::milliseconds kTickPeriod{6};

/// Polls `condition` until it holds; false when the hang guard ran out.
template <typename Condition>
bool eventually(Condition condition) {
    const Clock::time_point deadline = Clock::now() + kHangGuard;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// A tick function that counts its calls, keeps when they came and on which
/// thread (the oscillator's).
struct Recorder {
    std::mutex mutex;
    std::vector<Clock::time_point> times;
    std::atomic<uint64_t> calls{0};
    std::atomic<pid_t> threadId{0};

    static void onTick(void* context) {
        auto* recorder = static_cast<Recorder*>(context);
        recorder->threadId.store(static_cast<pid_t>(syscall(SYS_gettid)));
        {
            std::lock_guard<std::mutex> lock(recorder->mutex);
            recorder->times.push_back(Clock::now());
        }
        recorder->calls.fetch_add(1);
    }
    ITickReceiver receiver() { return ITickReceiver{this, &Recorder::onTick}; }
    std::vector<Clock::time_point> callTimes() {
        std::lock_guard<std::mutex> lock(mutex);
        return times;
    }
};

/// How often the thread `tid` of this process has blocked of its own accord,
/// as the kernel counts it; 0 when the thread is gone. A frozen oscillator
/// blocks exactly once per grid point, in its sleep.
uint64_t voluntarySleeps(pid_t tid) {
    std::ifstream status("/proc/self/task/" + std::to_string(tid) + "/status");
    const std::string key = "voluntary_ctxt_switches:";
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, key.size(), key) == 0) {
            return std::stoull(line.substr(key.size()));
        }
    }
    return 0;
}

/// Collects the lines of the reference trace service.
class TraceCapture {
public:
    TraceCapture() {
        platform_host::setTraceSink([this](const std::string& line) {
            std::lock_guard<std::mutex> lock(mutex);
            lines.push_back(line);
        });
    }
    ~TraceCapture() { platform_host::setTraceSink({}); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    /// The texts of the messages written at `level` under `function`, in order.
    std::vector<std::string> texts(uint32_t level, const std::string& function) {
        const std::string marker = std::string(kTraceModule) + " L" + std::to_string(level) + " " + function + ": ";
        std::vector<std::string> found;
        std::lock_guard<std::mutex> lock(mutex);
        for (const std::string& line : lines) {
            const std::string::size_type at = line.find(marker);
            if (at != std::string::npos) {
                found.push_back(line.substr(at + marker.size()));
            }
        }
        return found;
    }

private:
    std::mutex mutex;
    std::vector<std::string> lines;
};

/// The results that this module's callback gave for one phase.
std::vector<uint32_t> resultsOf(const std::vector<platform_host::PhaseCallResult>& results) {
    std::vector<uint32_t> ours;
    for (const platform_host::PhaseCallResult& result : results) {
        if (result.moduleId == kModuleId) {
            EXPECT_EQ(result.callbackName, "CCTickScheduler_OnPhaseActivation");
            ours.push_back(result.result);
        }
    }
    return ours;
}

std::vector<uint32_t> runPhase(uint32_t phase) { return resultsOf(platform_host::runPhase(phase)); }

ITickScheduler* brokerInterface() {
    return dynamic_cast<ITickScheduler*>(InterfaceBroker::getInstance()->getInterface("ITickScheduler"));
}

class SchedulerEndToEndTest : public ::testing::Test {
protected:
    // Only the test of the grid itself needs a real clock and skips under
    // CPU emulation; every other test checks logic that holds at any speed.
    void SetUp() override {
        startOver();
        platform_host::setTraceLevel(kTraceModule, 5);
    }
    void TearDown() override {
        // Records still in the list are freed by startOver(); those that a
        // shut-down took out of it are the test's to free.
        (void)tickScheduler.tickOscillator.stop();
        const std::vector<STickHandler*> listed = handlerList();
        for (STickHandler* record : kept) {
            if (std::find(listed.begin(), listed.end(), record) == listed.end()) {
                delete[] record;
            }
        }
        startOver();
    }

    /// A fresh module on a fresh platform.
    static void startOver() {
        resetModuleToLoadState();
        platform_host::resetModuleManager();
        (void)InterfaceBroker::getInstance()->unregisterInterface("ITickScheduler", nullptr);
    }

    /// Initialize, then phases 11 and 13, as the platform's start-up does.
    void initializeAndPrepare(ETickPriority priority = TICK_PRIORITY_LOWEST) {
        ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
        ASSERT_EQ(runPhase(11), std::vector<uint32_t>{TickResult::Success});
        ASSERT_EQ(runPhase(13), std::vector<uint32_t>{TickResult::Success});
    }

    /// Notes records that the test does not unregister, so that they are
    /// freed after the test whether or not a shut-down emptied the list.
    void keep(std::initializer_list<STickHandler*> records) { kept.insert(kept.end(), records); }

    std::vector<STickHandler*> kept;
};

TEST_F(SchedulerEndToEndTest, InitializeRegistersTheModuleItsCallbackAndItsInterface) {
    const ETickPriority priority = TICK_PRIORITY_LOW;
    ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
    EXPECT_TRUE(platform_host::isModuleRegistered(kModuleId));
    ITickScheduler* api = brokerInterface();
    ASSERT_NE(api, nullptr);
    EXPECT_EQ(api->RegisterTickHandler, &CTickScheduler_RegisterTickHandler);
    EXPECT_EQ(api->DisableTickGroup, &CTickScheduler_DisableTickGroup);

    // The callback is subscribed to exactly 11, 13, 14 and 16.
    EXPECT_EQ(runPhase(12), std::vector<uint32_t>{});
    EXPECT_EQ(runPhase(15), std::vector<uint32_t>{});
    EXPECT_EQ(runPhase(11), std::vector<uint32_t>{TickResult::Success});
    EXPECT_TRUE(tickScheduler.tickOscillator.isInitialized());
    EXPECT_EQ(tickScheduler.tickOscillator.getPriority(), 79);
    EXPECT_EQ(runPhase(13), std::vector<uint32_t>{TickResult::Success});
}

TEST_F(SchedulerEndToEndTest, HandlersRunOnRealSixMillisecondTicksAfterTheStartUpListing) {
    TraceCapture capture;
    Recorder early;
    Recorder fast;
    Recorder slow;
    STickHandler* earlyHandle = nullptr;
    const ITickReceiver earlyReceiver = early.receiver();
    // Registered before Initialize: kept and listed.
    ASSERT_EQ(CTickScheduler_RegisterTickHandler(&earlyHandle, &earlyReceiver, 4, "Early"), TickResult::Success);
    keep({earlyHandle});
    initializeAndPrepare();
    ITickScheduler* api = brokerInterface();
    ASSERT_NE(api, nullptr);
    STickHandler* fastHandle = nullptr;
    STickHandler* slowHandle = nullptr;
    const ITickReceiver fastReceiver = fast.receiver();
    const ITickReceiver slowReceiver = slow.receiver();
    ASSERT_EQ(api->RegisterTickHandler(&fastHandle, &fastReceiver, 1, "Fast"), TickResult::Success);
    ASSERT_EQ(api->RegisterTickHandler(&slowHandle, &slowReceiver, 2, "Slow"), TickResult::Success);
    keep({fastHandle, slowHandle});
    ASSERT_EQ(api->SetTickPriority(slowHandle, 2), TickResult::Success);

    ASSERT_EQ(runPhase(14), std::vector<uint32_t>{TickResult::Success});
    EXPECT_EQ(capture.texts(5, "CTickScheduler_PhaseModuleStartTick"),
              (std::vector<std::string>{"Starting TickScheduler with TickHandlers in the following order",
                                        "Slow: Prio = 2, tickInterval = 12, current interval = 0",
                                        "Early: Prio = 5, tickInterval = 24, current interval = 0",
                                        "Fast: Prio = 5, tickInterval = 6, current interval = 0"}));

    ASSERT_TRUE(eventually([&] { return fast.calls.load() >= 41; }));
    ASSERT_EQ(runPhase(16), std::vector<uint32_t>{TickResult::Success});

    // The same passes call Slow on every second and Early on every fourth tick.
    const uint64_t passes = fast.calls.load();
    EXPECT_NEAR(static_cast<double>(slow.calls.load()), passes / 2.0, 1.0);
    EXPECT_NEAR(static_cast<double>(early.calls.load()), passes / 4.0, 1.0);
}

TEST_F(SchedulerEndToEndTest, TicksComeOnTheSixMillisecondGridAndNeverEarly) {
    ZYN_TS_SKIP_IF_TIMING_UNRELIABLE();
    initializeAndPrepare();
    Recorder recorder;
    STickHandler* handle = nullptr;
    const ITickReceiver receiver = recorder.receiver();
    ASSERT_EQ(CTickScheduler_RegisterTickHandler(&handle, &receiver, 1, "Grid"), TickResult::Success);
    keep({handle});
    ASSERT_EQ(runPhase(14), std::vector<uint32_t>{TickResult::Success});
    ASSERT_TRUE(eventually([&] { return recorder.calls.load() >= 41; }));
    ASSERT_EQ(runPhase(16), std::vector<uint32_t>{TickResult::Success});

    // Never early: 40 periods take at least 40 x 6 ms, less the wake-up
    // latency of the first call.
    const std::vector<Clock::time_point> times = recorder.callTimes();
    ASSERT_GE(times.size(), 41u);
    EXPECT_GE(times[40] - times[0], 40 * kTickPeriod - kTickPeriod);
}

TEST_F(SchedulerEndToEndTest, EveryInterfaceSlotWorksOnTheTickingScheduler) {
    TraceCapture capture;
    initializeAndPrepare();
    ITickScheduler* api = brokerInterface();
    ASSERT_NE(api, nullptr);
    Recorder first;
    Recorder grouped;
    Recorder offset;
    STickHandler* firstHandle = nullptr;
    STickHandler* groupedHandle = nullptr;
    STickHandler* offsetHandle = nullptr;
    const ITickReceiver firstReceiver = first.receiver();
    const ITickReceiver groupedReceiver = grouped.receiver();
    const ITickReceiver offsetReceiver = offset.receiver();
    // Slot 1.
    ASSERT_EQ(api->RegisterTickHandler(&firstHandle, &firstReceiver, 1, "First"), TickResult::Success);
    ASSERT_EQ(api->RegisterTickHandler(&groupedHandle, &groupedReceiver, 1, "Grouped"), TickResult::Success);
    ASSERT_EQ(api->RegisterTickHandler(&offsetHandle, &offsetReceiver, 100000, "Offset"), TickResult::Success);
    keep({groupedHandle, offsetHandle});
    // Slots 9 and 12: a member of a disabled group is not called.
    ASSERT_EQ(api->AddGroup(groupedHandle, 1), TickResult::Success);
    ASSERT_EQ(api->DisableTickGroup(1), TickResult::Success);
    // Slot 5: one tick before the end of its interval, so due on the second
    // tick and then not for another ten minutes.
    ASSERT_EQ(api->SetStartOffset(offsetHandle, 99999), TickResult::Success);
    ASSERT_EQ(runPhase(14), std::vector<uint32_t>{TickResult::Success});

    ASSERT_TRUE(eventually([&] { return first.calls.load() >= 3; }));
    EXPECT_EQ(grouped.calls.load(), 0u);
    // Slot 11: the group runs again.
    ASSERT_EQ(api->EnableTickGroup(1), TickResult::Success);
    ASSERT_TRUE(eventually([&] { return grouped.calls.load() >= 2; }));
    // Slot 10: out of the group, it keeps running while the group is off.
    ASSERT_EQ(api->RemoveGroup(groupedHandle, 1), TickResult::Success);
    ASSERT_EQ(api->DisableTickGroup(1), TickResult::Success);
    uint64_t mark = grouped.calls.load();
    ASSERT_TRUE(eventually([&] { return grouped.calls.load() >= mark + 2; }));

    // Slot 8: once DisableTickHandler has returned, no further call comes...
    ASSERT_EQ(api->DisableTickHandler(firstHandle), TickResult::Success);
    const uint64_t firstAtDisable = first.calls.load();
    mark = grouped.calls.load();
    ASSERT_TRUE(eventually([&] { return grouped.calls.load() >= mark + 3; }));
    EXPECT_EQ(first.calls.load(), firstAtDisable);
    // ...until slot 7 enables it again.
    ASSERT_EQ(api->EnableTickHandler(firstHandle), TickResult::Success);
    ASSERT_TRUE(eventually([&] { return first.calls.load() >= firstAtDisable + 2; }));

    // Slot 6: moved in front of the others (listed order is the dispatch order).
    ASSERT_EQ(api->SetTickPriority(offsetHandle, -5), TickResult::Success);
    EXPECT_EQ(handlerList().front(), offsetHandle);
    EXPECT_EQ(capture.texts(5, "CTickScheduler_SetTickPriority"),
              std::vector<std::string>{"Tick Handler Offset changed priority to -5"});
    ASSERT_TRUE(eventually([&] { return offset.calls.load() >= 1; }));

    // Slot 3: once Freeze has returned, nothing runs. The frozen oscillator
    // still sleeps from grid point to grid point; eleven more sleeps of its
    // thread enclose ten whole grid points after the freeze, whatever the
    // clock or the host did meanwhile, and none of them may run a handler.
    ASSERT_EQ(api->Freeze(), TickResult::Success);
    const uint64_t frozenAt = first.calls.load() + grouped.calls.load();
    const pid_t oscillatorThread = first.threadId.load();
    const uint64_t sleepsAtFreeze = voluntarySleeps(oscillatorThread);
    ASSERT_NE(sleepsAtFreeze, 0u) << "no sleep count of the oscillator thread " << oscillatorThread;
    ASSERT_TRUE(eventually([&] { return voluntarySleeps(oscillatorThread) >= sleepsAtFreeze + 11; }))
        << "the frozen oscillator stopped passing grid points";
    EXPECT_EQ(first.calls.load() + grouped.calls.load(), frozenAt);
    // Slot 4: ticks resume.
    ASSERT_EQ(api->Unfreeze(), TickResult::Success);
    mark = first.calls.load();
    ASSERT_TRUE(eventually([&] { return first.calls.load() >= mark + 2; }));

    // Slot 2: unregistered and freed; the handle is cleared.
    ASSERT_EQ(api->UnregisterTickHandler(&firstHandle), TickResult::Success);
    EXPECT_EQ(firstHandle, nullptr);
    const uint64_t firstAtRemoval = first.calls.load();
    mark = grouped.calls.load();
    ASSERT_TRUE(eventually([&] { return grouped.calls.load() >= mark + 3; }));
    EXPECT_EQ(first.calls.load(), firstAtRemoval);
    EXPECT_EQ(capture.texts(5, "CTickScheduler_UnregisterTickHandler"),
              std::vector<std::string>{"Tick Handler First unregistered successfully"});
    EXPECT_EQ(offset.calls.load(), 1u);

    ASSERT_EQ(runPhase(16), std::vector<uint32_t>{TickResult::Success});
}

TEST_F(SchedulerEndToEndTest, PhaseSixteenShutsDownAndASecondInitializeStartsOver) {
    TraceCapture capture;
    initializeAndPrepare();
    ITickScheduler* api = brokerInterface();
    ASSERT_NE(api, nullptr);
    Recorder recorder;
    STickHandler* handle = nullptr;
    const ITickReceiver receiver = recorder.receiver();
    ASSERT_EQ(api->RegisterTickHandler(&handle, &receiver, 1, "Before"), TickResult::Success);
    keep({handle});
    ASSERT_EQ(runPhase(14), std::vector<uint32_t>{TickResult::Success});
    ASSERT_TRUE(eventually([&] { return recorder.calls.load() >= 2; }));

    ASSERT_EQ(runPhase(16), std::vector<uint32_t>{TickResult::Success});
    EXPECT_FALSE(tickScheduler.tickOscillator.isRunning());
    EXPECT_EQ(brokerInterface(), nullptr);
    EXPECT_TRUE(handlerList().empty());
    // The module stays registered with the module manager; its callback now
    // finds it uninitialised.
    EXPECT_TRUE(platform_host::isModuleRegistered(kModuleId));
    EXPECT_EQ(runPhase(11), std::vector<uint32_t>{TickResult::ModuleNotInitialized});
    EXPECT_EQ(capture.texts(2, "CTickScheduler_OnPhaseActivation"),
              std::vector<std::string>{"Tick Scheduler has not been initialized"});

    // After the shut-down phase the platform takes the module's registration
    // again: a second Initialize starts a new life of the module.
    const ETickPriority priority = TICK_PRIORITY_LOWEST;
    ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
    EXPECT_TRUE(capture.texts(1, "CTickScheduler_Initialize").empty());
    api = brokerInterface();
    ASSERT_NE(api, nullptr);
    ASSERT_EQ(runPhase(11), std::vector<uint32_t>{TickResult::Success});
    Recorder again;
    STickHandler* againHandle = nullptr;
    const ITickReceiver againReceiver = again.receiver();
    ASSERT_EQ(api->RegisterTickHandler(&againHandle, &againReceiver, 1, "After"), TickResult::Success);
    keep({againHandle});
    ASSERT_EQ(runPhase(14), std::vector<uint32_t>{TickResult::Success});
    ASSERT_TRUE(eventually([&] { return again.calls.load() >= 2; }));
    const uint64_t oldCalls = recorder.calls.load();
    ASSERT_EQ(runPhase(16), std::vector<uint32_t>{TickResult::Success});
    EXPECT_EQ(recorder.calls.load(), oldCalls);
}

}  // namespace
}  // namespace scheduler_test
