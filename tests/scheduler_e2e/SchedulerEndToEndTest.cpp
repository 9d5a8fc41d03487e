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
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CTickScheduler.h"
#include "CpuWakeUpLatency.h"
#include "HostPlatformRun.h"
#include "ITickScheduler.h"
#include "InterfaceBroker.h"
#include "ModuleState.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "PlatformHost/TraceHost.h"
#include "Punctuality.h"
#include "RealTimeScope.h"
#include "ReferenceSleeper.h"
#include "TickGrid.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"
#include "TimingEnvironment.h"
#include "ZynSupport/MonotonicClock.h"

namespace scheduler_test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kModuleId = TickModule::SchedulerModuleId;
constexpr const char* kTraceModule = "ZYN.TS";
constexpr std::chrono::milliseconds kTickPeriod{6};
namespace Phase = TickModule::Phase;
using host_run::eventually;

/// A tick function that counts its calls, keeps when they came and on which
/// thread (the oscillator's).
struct Recorder {
    std::mutex mutex;
    std::vector<Clock::time_point> times;
    std::atomic<uint64_t> calls{0};
    std::atomic<pid_t> threadId{0};
    STickHandler* handle = nullptr;

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
    /// Registers through the client interface `api`, keeping the handle.
    uint32_t registerWith(ITickScheduler* api, uint32_t interval, const char* name) {
        const ITickReceiver tickReceiver = receiver();
        return api->RegisterTickHandler(&handle, &tickReceiver, interval, name);
    }
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

/// The lines of the reference trace service while it exists.
class ModuleTraces : public TraceCapture {
public:
    /// The texts of this module's messages at `level` under `function`.
    std::vector<std::string> texts(uint32_t level, const std::string& function) {
        return host_run::messageTexts(lines(), kTraceModule, level, function);
    }
};

const host_run::ModulePhases kModulePhases{kModuleId, "CCTickScheduler_OnPhaseActivation"};

std::vector<uint32_t> runPhase(uint32_t phase) { return kModulePhases.run(phase); }

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

    /// Initialize, then the configure and idle phases, as the platform's
    /// start-up does.
    void initializeAndPrepare(ETickPriority priority = TICK_PRIORITY_LOWEST) {
        ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
        ASSERT_EQ(runPhase(Phase::Configure), std::vector<uint32_t>{TickResult::Success});
        ASSERT_EQ(runPhase(Phase::Idle), std::vector<uint32_t>{TickResult::Success});
    }

    /// Registers `recorder` under `name` on every tick through `api`, runs
    /// the start phase and waits until it has been called twice.
    void startTickingWith(ITickScheduler* api, Recorder& recorder, const char* name) {
        ASSERT_EQ(recorder.registerWith(api, 1, name), TickResult::Success);
        keep({recorder.handle});
        ASSERT_EQ(runPhase(Phase::StartTicks), std::vector<uint32_t>{TickResult::Success});
        ASSERT_TRUE(eventually([&] { return recorder.calls.load() >= 2; }));
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

    // The callback is subscribed to exactly the configure, idle, start and
    // shut-down phases.
    EXPECT_EQ(runPhase(12), std::vector<uint32_t>{});
    EXPECT_EQ(runPhase(15), std::vector<uint32_t>{});
    EXPECT_EQ(runPhase(Phase::Configure), std::vector<uint32_t>{TickResult::Success});
    EXPECT_TRUE(tickScheduler.tickOscillator.isInitialized());
    EXPECT_EQ(tickScheduler.tickOscillator.getPriority(), 79);
    EXPECT_EQ(runPhase(Phase::Idle), std::vector<uint32_t>{TickResult::Success});
}

TEST_F(SchedulerEndToEndTest, HandlersRunOnRealSixMillisecondTicksAfterTheStartUpListing) {
    ModuleTraces capture;
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
    ASSERT_EQ(fast.registerWith(api, 1, "Fast"), TickResult::Success);
    ASSERT_EQ(slow.registerWith(api, 2, "Slow"), TickResult::Success);
    keep({fast.handle, slow.handle});
    ASSERT_EQ(api->SetTickPriority(slow.handle, 2), TickResult::Success);

    ASSERT_EQ(runPhase(Phase::StartTicks), std::vector<uint32_t>{TickResult::Success});
    EXPECT_EQ(capture.texts(5, "CTickScheduler_PhaseModuleStartTick"),
              (std::vector<std::string>{"Starting TickScheduler with TickHandlers in the following order",
                                        "Slow: Prio = 2, tickInterval = 12, current interval = 0",
                                        "Early: Prio = 5, tickInterval = 24, current interval = 0",
                                        "Fast: Prio = 5, tickInterval = 6, current interval = 0"}));

    ASSERT_TRUE(eventually([&] { return fast.calls.load() >= 41; }));
    ASSERT_EQ(runPhase(Phase::ShutDown), std::vector<uint32_t>{TickResult::Success});

    // The same passes call Slow on every second and Early on every fourth tick.
    const uint64_t passes = fast.calls.load();
    EXPECT_NEAR(static_cast<double>(slow.calls.load()), passes / 2.0, 1.0);
    EXPECT_NEAR(static_cast<double>(early.calls.load()), passes / 4.0, 1.0);
}

/// The instants of a tick function's calls on CLOCK_MONOTONIC, kept in room
/// reserved beforehand so that recording never allocates on the tick thread.
struct TickInstants {
    static constexpr size_t kCapacity = 4096;
    std::vector<int64_t> instants = std::vector<int64_t>(kCapacity);
    std::atomic<size_t> count{0};

    static void onTick(void* context) {
        auto* self = static_cast<TickInstants*>(context);
        const size_t index = self->count.load(std::memory_order_relaxed);
        if (index < kCapacity) {
            self->instants[index] = zyn_support::monotonicNowNs();
            self->count.store(index + 1, std::memory_order_release);
        }
    }
    std::vector<int64_t> recorded() const {
        return std::vector<int64_t>(
            instants.begin(), instants.begin() + static_cast<std::ptrdiff_t>(count.load(std::memory_order_acquire)));
    }
};

/// One start of the module with one handler on every tick, stopped by the
/// shut-down phase after about 100 ticks: every tick checked against the
/// grid that CTickScheduler_GetTickGrid reports, then its punctuality
/// judged against a plain sleep loop on a thread of the oscillator's
/// priority, measured before and after the run.
oscillator_test::Complaint runOneAttemptOnTheGrid(std::vector<STickHandler*>& records, bool judgePunctuality) {
    constexpr int64_t kPeriodNs = 6 * zyn_support::kNanosecondsPerMillisecond;
    // Priority 0, the highest: the oscillator then runs above every thread
    // of the machine but the kernel's own.
    constexpr int kOscillatorPriority = 99;
    const ETickPriority priority = TICK_PRIORITY_HIGHEST;
    EXPECT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
    EXPECT_EQ(runPhase(Phase::Configure), std::vector<uint32_t>{TickResult::Success});
    EXPECT_EQ(runPhase(Phase::Idle), std::vector<uint32_t>{TickResult::Success});
    const oscillator_test::ReferenceRun before =
        judgePunctuality ? oscillator_test::measureReference(kPeriodNs, 150 * zyn_support::kNanosecondsPerMillisecond,
                                                             kOscillatorPriority)
                         : oscillator_test::ReferenceRun{};
    TickInstants recorder;
    STickHandler* handle = nullptr;
    const ITickReceiver receiver{&recorder, &TickInstants::onTick};
    EXPECT_EQ(CTickScheduler_RegisterTickHandler(&handle, &receiver, 1, "Grid"), TickResult::Success);
    EXPECT_EQ(runPhase(Phase::StartTicks), std::vector<uint32_t>{TickResult::Success});
    EXPECT_TRUE(eventually([&] { return recorder.count.load() >= 100; })) << "the ticks did not come";
    STickGrid grid{};
    grid.size = sizeof(grid);
    EXPECT_EQ(CTickScheduler_GetTickGrid(&grid), TickResult::Success);
    const int64_t stopCalled = zyn_support::monotonicNowNs();
    EXPECT_EQ(runPhase(Phase::ShutDown), std::vector<uint32_t>{TickResult::Success});
    // Out of the list after the shut-down: the test frees it. Still listed,
    // it is freed with the module's state.
    const std::vector<STickHandler*> listed = handlerList();
    if (std::find(listed.begin(), listed.end(), handle) == listed.end()) {
        records.push_back(handle);
    }
    const oscillator_test::ReferenceRun after =
        judgePunctuality ? oscillator_test::measureReference(kPeriodNs, 150 * zyn_support::kNanosecondsPerMillisecond,
                                                             kOscillatorPriority)
                         : oscillator_test::ReferenceRun{};

    EXPECT_EQ(grid.running, 1u);
    EXPECT_EQ(grid.periodNs, kPeriodNs);
    // Exact on every tick: on grid point 1 or later, one tick per grid point.
    const std::vector<int64_t> ticks = recorder.recorded();
    int64_t previousPoint = 0;
    for (size_t i = 0; i < ticks.size(); ++i) {
        const int64_t sinceOrigin = ticks[i] - grid.originNs;
        EXPECT_GE(sinceOrigin, kPeriodNs) << "tick " << i + 1 << " came before grid point 1";
        const int64_t point = sinceOrigin / kPeriodNs;
        EXPECT_GT(point, previousPoint) << "ticks " << i << " and " << i + 1 << " on grid point " << point;
        previousPoint = point;
    }
    if (::testing::Test::HasFailure() || !judgePunctuality) {
        return oscillator_test::Complaint();
    }
    const oscillator_test::GridOrigin origin{grid.originNs, grid.originNs};
    return oscillator_test::judgePunctuality(ticks, origin, kPeriodNs, (stopCalled - grid.originNs) / kPeriodNs,
                                             oscillator_test::pooled(before, after));
}

TEST_F(SchedulerEndToEndTest, EveryTickComesOnItsOwnPointOfThePublishedGridAsSoonAsAPlainSleepWakes) {
    // Under CPU emulation the exact properties still hold on every tick;
    // only the punctuality cannot be judged there.
    const std::string emulated = test_environment::timingSkipReason();
    if (!emulated.empty()) {
        (void)runOneAttemptOnTheGrid(kept, false);
        if (!HasFailure()) {
            GTEST_SKIP() << "every tick came on a grid point of its own; punctuality not judged: " << emulated;
        }
        return;
    }
    {
        oscillator_test::RealTimeScope probe(oscillator_test::kTestThreadPriority);
        if (!probe.isGranted()) {
            ZYN_TS_SKIP_WITHOUT_REAL_TIME("the oscillator's punctuality needs SCHED_RR, which this system refuses");
        }
    }
    test_environment::CpuWakeUpLatencyRequest wakeUpLatency;
    const oscillator_test::AttemptsOutcome outcome = oscillator_test::decideOnSeveralAttempts([&](int /*attempt*/) {
        startOver();
        return runOneAttemptOnTheGrid(kept, true);
    });
    EXPECT_TRUE(outcome.punctual) << "fewer than " << oscillator_test::kAttemptsToPass << " of "
                                  << oscillator_test::kAttempts << " attempts were punctual:" << outcome.complaints;
}

TEST_F(SchedulerEndToEndTest, EveryInterfaceSlotWorksOnTheTickingScheduler) {
    ModuleTraces capture;
    initializeAndPrepare();
    ITickScheduler* api = brokerInterface();
    ASSERT_NE(api, nullptr);
    Recorder first;
    Recorder grouped;
    Recorder offset;
    // Slot 1.
    ASSERT_EQ(first.registerWith(api, 1, "First"), TickResult::Success);
    ASSERT_EQ(grouped.registerWith(api, 1, "Grouped"), TickResult::Success);
    ASSERT_EQ(offset.registerWith(api, 100000, "Offset"), TickResult::Success);
    STickHandler*& firstHandle = first.handle;
    STickHandler* const groupedHandle = grouped.handle;
    STickHandler* const offsetHandle = offset.handle;
    keep({groupedHandle, offsetHandle});
    // Slots 9 and 12: a member of a disabled group is not called.
    ASSERT_EQ(api->AddGroup(groupedHandle, 1), TickResult::Success);
    ASSERT_EQ(api->DisableTickGroup(1), TickResult::Success);
    // Slot 5: one tick before the end of its interval, so due on the second
    // tick and then not for another ten minutes.
    ASSERT_EQ(api->SetStartOffset(offsetHandle, 99999), TickResult::Success);
    ASSERT_EQ(runPhase(Phase::StartTicks), std::vector<uint32_t>{TickResult::Success});

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

    ASSERT_EQ(runPhase(Phase::ShutDown), std::vector<uint32_t>{TickResult::Success});
}

TEST_F(SchedulerEndToEndTest, PhaseSixteenShutsDownAndASecondInitializeStartsOver) {
    ModuleTraces capture;
    initializeAndPrepare();
    ITickScheduler* api = brokerInterface();
    ASSERT_NE(api, nullptr);
    Recorder recorder;
    ASSERT_NO_FATAL_FAILURE(startTickingWith(api, recorder, "Before"));

    ASSERT_EQ(runPhase(Phase::ShutDown), std::vector<uint32_t>{TickResult::Success});
    EXPECT_FALSE(tickScheduler.tickOscillator.isRunning());
    EXPECT_EQ(brokerInterface(), nullptr);
    EXPECT_TRUE(handlerList().empty());
    // The module stays registered with the module manager; its callback now
    // finds it uninitialised.
    EXPECT_TRUE(platform_host::isModuleRegistered(kModuleId));
    EXPECT_EQ(runPhase(Phase::Configure), std::vector<uint32_t>{TickResult::ModuleNotInitialized});
    EXPECT_EQ(capture.texts(2, "CTickScheduler_OnPhaseActivation"),
              std::vector<std::string>{"Tick Scheduler has not been initialized"});

    // After the shut-down phase the platform takes the module's registration
    // again: a second Initialize starts a new life of the module.
    const ETickPriority priority = TICK_PRIORITY_LOWEST;
    ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
    EXPECT_TRUE(capture.texts(1, "CTickScheduler_Initialize").empty());
    api = brokerInterface();
    ASSERT_NE(api, nullptr);
    ASSERT_EQ(runPhase(Phase::Configure), std::vector<uint32_t>{TickResult::Success});
    Recorder again;
    ASSERT_NO_FATAL_FAILURE(startTickingWith(api, again, "After"));
    const uint64_t oldCalls = recorder.calls.load();
    ASSERT_EQ(runPhase(Phase::ShutDown), std::vector<uint32_t>{TickResult::Success});
    EXPECT_EQ(recorder.calls.load(), oldCalls);
}

}  // namespace
}  // namespace scheduler_test
