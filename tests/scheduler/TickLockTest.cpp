// The tick lock and the operations built on it: enable, disable, freeze and
// unfreeze; client threads wait for a running pass, the tick thread does not.

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "SchedulerFixture.h"

namespace scheduler_test {
namespace {

using Calls = std::vector<std::string>;

// Guards against a hang only: a correct scheduler answers at once, a broken
// one would block until the pass ends. Never used to measure anything.
constexpr std::chrono::seconds kHangGuard = test_support::kStuckAfter;

/// A pass held open on its own thread: a handler that announces that it runs
/// and then blocks until released.
class HeldPass {
public:
    explicit HeldPass(CallLog* log)
        : gate("Gate", log), entered("the held pass reaching its gate handler"), release("the end of the held pass") {
        gate.action = [this] {
            entered.open();
            release.wait();
        };
    }
    ~HeldPass() { end(); }

    /// Lets a pass still parked in the gate run to its end.
    void end() {
        release.open();
        if (ticker.joinable()) {
            ticker.join();
        }
    }

    /// Registers the gate handler (interval 1) at the end of the list.
    STickHandler* registerGate() { return registerProbe(gate, 1); }

    /// Starts one pass on the tick thread and returns once the gate runs.
    void startAndWaitForGate() {
        ticker = std::thread([this] {
            tickThreadId.store(currentThreadId());
            tick();
            passReturned.store(true);
        });
        entered.wait();
    }

    /// Releases the pass and waits for it to return.
    void finish() {
        releasedAt = clock.now();
        release.open();
        test_support::joinWhenFinished(
            ticker, [this] { return passReturned.load(); }, "the held pass returning once released");
    }

    /// Orders the release against the return of client calls.
    EventClock clock;
    Probe gate;
    Latch entered;
    Latch release;
    std::thread ticker;
    std::atomic<pid_t> tickThreadId{0};
    std::atomic<bool> passReturned{false};
    uint64_t releasedAt = 0;
};

/// A client thread that calls one operation while a pass may be running.
class Client {
public:
    template <typename Operation>
    void start(EventClock& clock, Operation operation) {
        thread = std::thread([this, &clock, operation] {
            tid.store(currentThreadId());
            result = operation();
            returnedAt = clock.now();
            done.store(true);
        });
    }
    void join() {
        test_support::joinWhenFinished(
            thread, [this] { return done.load(); }, "a client call returning after the pass ended");
    }

    std::thread thread;
    std::atomic<pid_t> tid{0};
    std::atomic<bool> done{false};
    uint32_t result = 0xFFFFFFFFu;
    uint64_t returnedAt = 0;
};

class TickLockTest : public SchedulerTest {
protected:
    // A pass still parked in its gate (a test that stopped early) ends before
    // the module is put back into its load state.
    void TearDown() override {
        pass.end();
        SchedulerTest::TearDown();
    }

    /// Registers the gate handler and then "After" behind it; returns the
    /// handle of "After".
    STickHandler* registerGateAndAfter() {
        pass.registerGate();
        return registerProbe(after, 1);
    }

    /// Calls `operation` on a client thread while the held pass runs. The call
    /// must still be waiting once its thread has blocked or returned;
    /// `whileWaiting` then checks that nothing has changed yet. The pass is
    /// released, and the call must return only after that. Returns the call's
    /// result.
    template <typename Operation>
    uint32_t callWhileThePassRuns(
        const char* what, Operation operation, const std::function<void()>& whileWaiting = [] {}) {
        Client client;
        client.start(pass.clock, operation);
        waitUntilBlockedOrDone(client.tid, client.done);
        EXPECT_FALSE(client.done.load()) << what << " returned while the pass was running";
        whileWaiting();
        pass.finish();
        client.join();
        EXPECT_GT(client.returnedAt, pass.releasedAt) << what << " returned before the pass had ended";
        return client.result;
    }

    HeldPass pass{&log};
    Probe after{"After", &log};
};

TEST_F(TickLockTest, LockIsHeldWhenNoPassRuns) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_EQ(lock.mutex(), &tickScheduler.tickMutex);
}

TEST_F(TickLockTest, TickFunctionGetsTheLockAtOnce) {
    Probe probe("P", &log);
    bool owned = false;
    probe.action = [&] {
        std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
        owned = lock.owns_lock() && tickScheduler.inTick;
    };
    registerProbe(probe, 1);
    tick();
    EXPECT_TRUE(owned);
}

TEST_F(TickLockTest, EnableAndDisableWriteTheFlag) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 1);
    platform_double::clearTraces();
    EXPECT_EQ(CTickScheduler_DisableTickHandler(handle), TickResult::Success);
    EXPECT_EQ(handle->enabled.load(), 0u);
    EXPECT_EQ(CTickScheduler_EnableTickHandler(handle), TickResult::Success);
    EXPECT_EQ(handle->enabled.load(), 1u);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(TickLockTest, EnableNullHandleIsRefusedWithoutTrace) {
    EXPECT_EQ(CTickScheduler_EnableTickHandler(nullptr), TickResult::NullArgument);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(TickLockTest, DisableNullHandleIsRefusedWithoutTrace) {
    EXPECT_EQ(CTickScheduler_DisableTickHandler(nullptr), TickResult::NullArgument);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(TickLockTest, EnableWritesThroughAHandleThatIsNotInTheList) {
    STickHandler* record = new STickHandler[1]();
    record->enabled.store(0);
    EXPECT_EQ(CTickScheduler_EnableTickHandler(record), TickResult::Success);
    EXPECT_EQ(record->enabled.load(), 1u);
    EXPECT_EQ(CTickScheduler_DisableTickHandler(record), TickResult::Success);
    EXPECT_EQ(record->enabled.load(), 0u);
    delete[] record;
}

TEST_F(TickLockTest, FreezeAndUnfreezeSwitchTheOscillatorAndTraceOnlyItsEntries) {
    EXPECT_EQ(CTickScheduler_Freeze(), TickResult::Success);
    EXPECT_TRUE(tickScheduler.tickOscillator.isFrozen());
    EXPECT_EQ(CTickScheduler_Unfreeze(), TickResult::Success);
    EXPECT_FALSE(tickScheduler.tickOscillator.isFrozen());
    EXPECT_EQ(entries(), (std::vector<std::string>{"freeze", "unfreeze"}));
    EXPECT_TRUE(messages().empty());
}

TEST_F(TickLockTest, FreezeNeedsNoInitialize) {
    ASSERT_EQ(tickScheduler.initialized.load(), 0u);
    EXPECT_EQ(CTickScheduler_Freeze(), TickResult::Success);
    EXPECT_TRUE(tickScheduler.tickOscillator.isFrozen());
}

TEST_F(TickLockTest, ClientFreezeWaitsUntilTheRunningPassHasEnded) {
    registerGateAndAfter();
    pass.startAndWaitForGate();

    EXPECT_EQ(callWhileThePassRuns("Freeze", [] { return CTickScheduler_Freeze(); }), TickResult::Success);

    // The pass that was under way completed in full.
    EXPECT_EQ(log.take(), (Calls{"Gate", "After"}));
    tick();
    EXPECT_TRUE(log.take().empty());
}

TEST_F(TickLockTest, ClientRegistrationWaitsAndIsNotAppendedDuringThePass) {
    pass.registerGate();
    pass.startAndWaitForGate();
    Probe late("Late", &log);
    STickHandler* lateHandle = nullptr;
    const auto registerLate = [&] {
        const ITickReceiver receiver = late.receiver();
        return CTickScheduler_RegisterTickHandler(&lateHandle, &receiver, 1, "Late");
    };

    EXPECT_EQ(
        callWhileThePassRuns("RegisterTickHandler", registerLate,
                             [] { EXPECT_EQ(handlerList().size(), 1u) << "appended while the pass was running"; }),
        TickResult::Success);

    EXPECT_EQ(handlerList().size(), 2u);
    EXPECT_EQ(late.calls.load(), 0);
}

TEST_F(TickLockTest, ClientEnableWaitsUntilTheRunningPassHasEnded) {
    STickHandler* afterHandle = registerGateAndAfter();
    ASSERT_EQ(CTickScheduler_DisableTickHandler(afterHandle), TickResult::Success);
    pass.startAndWaitForGate();

    EXPECT_EQ(callWhileThePassRuns("EnableTickHandler", [&] { return CTickScheduler_EnableTickHandler(afterHandle); }),
              TickResult::Success);

    // Enabled only after the pass: it did not run in it.
    EXPECT_EQ(log.take(), (Calls{"Gate"}));
}

// ---- Every client change of the list or the masks waits for the pass ----------
// The pass is parked in the gate handler; "After" comes behind it in the list.
// Each operation must block until the pass has ended: had it gone through, the
// pass would have seen a changed list or mask, and the client would have
// returned before the release.

TEST_F(TickLockTest, ClientUnregisterWaitsAndTheRunningPassStillCallsTheRecord) {
    STickHandler* afterHandle = registerGateAndAfter();
    pass.startAndWaitForGate();

    EXPECT_EQ(callWhileThePassRuns(
                  "UnregisterTickHandler", [&] { return CTickScheduler_UnregisterTickHandler(&afterHandle); },
                  [] { EXPECT_EQ(handlerList().size(), 2u) << "removed from the list while the pass was running"; }),
              TickResult::Success);

    EXPECT_EQ(afterHandle, nullptr);
    // The record was neither freed nor removed under the pass: it ran in it.
    EXPECT_EQ(log.take(), (Calls{"Gate", "After"}));
    EXPECT_EQ(handlerList().size(), 1u);
}

TEST_F(TickLockTest, ClientPriorityChangeWaitsAndKeepsTheOrderOfTheRunningPass) {
    STickHandler* afterHandle = registerGateAndAfter();
    const std::vector<STickHandler*> orderAtStart = handlerList();
    ASSERT_NE(afterHandle->prio.load(), 0);
    pass.startAndWaitForGate();

    EXPECT_EQ(callWhileThePassRuns(
                  "SetTickPriority", [&] { return CTickScheduler_SetTickPriority(afterHandle, 0); },
                  [&] { EXPECT_EQ(handlerList(), orderAtStart) << "reordered while the pass was running"; }),
              TickResult::Success);

    EXPECT_EQ(log.take(), (Calls{"Gate", "After"}));
    // Moved in front only after the pass.
    EXPECT_EQ(handlerList().front(), afterHandle);
    tick();
    EXPECT_EQ(log.take(), (Calls{"After", "Gate"}));
}

TEST_F(TickLockTest, ClientDisableWaitsAndTheRunningPassStillCallsTheHandler) {
    STickHandler* afterHandle = registerGateAndAfter();
    pass.startAndWaitForGate();

    EXPECT_EQ(callWhileThePassRuns(
                  "DisableTickHandler", [&] { return CTickScheduler_DisableTickHandler(afterHandle); },
                  [&] { EXPECT_EQ(afterHandle->enabled.load(), 1u) << "disabled while the pass was running"; }),
              TickResult::Success);

    EXPECT_EQ(log.take(), (Calls{"Gate", "After"}));
    EXPECT_EQ(afterHandle->enabled.load(), 0u);
}

TEST_F(TickLockTest, ClientRemoveGroupWaitsAndTheRunningPassStillSkipsTheMember) {
    constexpr uint32_t kGroup = 1;
    STickHandler* afterHandle = registerGateAndAfter();
    ASSERT_EQ(CTickScheduler_AddGroup(afterHandle, kGroup), TickResult::Success);
    const uint32_t maskInGroup = afterHandle->groupMask.load();
    ASSERT_NE(maskInGroup, 0u);
    // With its group disabled, the member is skipped while it stays in the
    // group and called again once out of it: removing it under the running
    // pass would change what that pass calls.
    ASSERT_EQ(CTickScheduler_DisableTickGroup(kGroup), TickResult::Success);
    pass.startAndWaitForGate();
    const auto maskUnchanged = [&] {
        EXPECT_EQ(afterHandle->groupMask.load(), maskInGroup) << "group mask changed while the pass was running";
    };

    EXPECT_EQ(callWhileThePassRuns(
                  "RemoveGroup", [&] { return CTickScheduler_RemoveGroup(afterHandle, kGroup); }, maskUnchanged),
              TickResult::Success);

    // Removed only after the pass: the pass still skipped it...
    EXPECT_EQ(log.take(), (Calls{"Gate"}));
    EXPECT_EQ(afterHandle->groupMask.load(), 0u);
    // ...and the next pass calls it although its former group stays disabled.
    tick();
    EXPECT_EQ(log.take(), (Calls{"Gate", "After"}));
}

TEST_F(TickLockTest, ClientDisableOfAValidGroupWaitsAndTheRunningPassStillCallsItsMembers) {
    constexpr uint32_t kGroup = 1;
    STickHandler* afterHandle = registerGateAndAfter();
    ASSERT_EQ(CTickScheduler_AddGroup(afterHandle, kGroup), TickResult::Success);
    ASSERT_EQ(disabledGroups(), 0u);
    pass.startAndWaitForGate();

    EXPECT_EQ(callWhileThePassRuns(
                  "DisableTickGroup", [] { return CTickScheduler_DisableTickGroup(kGroup); },
                  [] { EXPECT_EQ(disabledGroups(), 0u) << "group disabled while the pass was running"; }),
              TickResult::Success);

    // Disabled only after the pass: its member ran in it, and not in the next.
    EXPECT_EQ(log.take(), (Calls{"Gate", "After"}));
    EXPECT_NE(disabledGroups(), 0u);
    tick();
    EXPECT_EQ(log.take(), (Calls{"Gate"}));
}

TEST_F(TickLockTest, SeveralWaitingClientsAreAllWokenAtTheEndOfThePass) {
    STickHandler* gate = pass.registerGate();
    pass.startAndWaitForGate();

    Client first;
    Client second;
    first.start(pass.clock, [&] { return CTickScheduler_EnableTickHandler(gate); });
    second.start(pass.clock, [] { return CTickScheduler_Unfreeze(); });
    waitUntilBlockedOrDone(first.tid, first.done);
    waitUntilBlockedOrDone(second.tid, second.done);
    EXPECT_FALSE(first.done.load());
    EXPECT_FALSE(second.done.load());
    pass.finish();
    first.join();
    second.join();
    EXPECT_GT(first.returnedAt, pass.releasedAt);
    EXPECT_GT(second.returnedAt, pass.releasedAt);
}

TEST_F(TickLockTest, TickFunctionCallsReturnAtOnce) {
    Probe caller("Caller", &log);
    Probe other("Other", &log);
    registerProbe(caller, 1);
    STickHandler* otherHandle = registerProbe(other, 1);
    std::vector<uint32_t> results;
    caller.action = [&] {
        // Each of these would wait for the pass that is running them if the
        // tick thread were not let through: the test would never end.
        results.push_back(CTickScheduler_DisableTickHandler(otherHandle));
        results.push_back(CTickScheduler_EnableTickHandler(otherHandle));
        results.push_back(CTickScheduler_AddGroup(otherHandle, 1));
        results.push_back(CTickScheduler_RemoveGroup(otherHandle, 1));
        results.push_back(CTickScheduler_EnableTickGroup(0));
        results.push_back(CTickScheduler_DisableTickGroup(1));
        results.push_back(CTickScheduler_EnableTickGroup(1));
        results.push_back(CTickScheduler_SetStartOffset(otherHandle, 0));
        results.push_back(CTickScheduler_Freeze());
        results.push_back(CTickScheduler_Unfreeze());
    };
    tick();
    EXPECT_EQ(results, std::vector<uint32_t>(10, TickResult::Success));
    EXPECT_EQ(log.take(), (Calls{"Caller", "Other"}));
}

TEST_F(TickLockTest, TickFunctionFreezeOnTheOscillatorThreadReturnsAtOnce) {
    // The same on the real oscillator thread: a tick function freezes the
    // scheduler, which would deadlock if the tick thread had to wait.
    Probe freezer("Freezer", &log);
    Latch frozen("the tick function's call to Freeze");
    std::atomic<uint32_t> result{0xFFFFFFFFu};
    freezer.action = [&] {
        if (!frozen.isOpen()) {
            result.store(CTickScheduler_Freeze());
            frozen.open();
        }
    };
    STickHandler* handle = registerProbe(freezer, 1);
    const ETickPriority priority = TICK_PRIORITY_LOWEST;
    ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
    ASSERT_NO_FATAL_FAILURE(runStartUpPhases());
    frozen.wait();
    CTickScheduler_Uninitialize();
    EXPECT_EQ(result.load(), TickResult::Success);
    EXPECT_EQ(freezer.calls.load(), 1);
    delete[] handle;  // shut-down empties the list without freeing records
}

TEST_F(TickLockTest, DisableOfABadGroupDoesNotWaitForTheRunningPass) {
    pass.registerGate();
    pass.startAndWaitForGate();

    std::future<uint32_t> refused = std::async(std::launch::async, [] { return CTickScheduler_DisableTickGroup(5); });
    const bool answered = refused.wait_for(kHangGuard) == std::future_status::ready;
    EXPECT_TRUE(answered) << "DisableTickGroup(5) waited for the pass";
    pass.finish();
    EXPECT_EQ(refused.get(), TickResult::GroupIdOutOfBounds);
}

TEST_F(TickLockTest, EnableOfABadGroupWaitsForTheRunningPass) {
    pass.registerGate();
    pass.startAndWaitForGate();

    EXPECT_EQ(callWhileThePassRuns("EnableTickGroup(5)", [] { return CTickScheduler_EnableTickGroup(5); }),
              TickResult::GroupIdOutOfBounds);
}

TEST_F(TickLockTest, AddGroupWithABadIdWaitsForTheRunningPass) {
    STickHandler* gate = pass.registerGate();
    pass.startAndWaitForGate();

    EXPECT_EQ(callWhileThePassRuns("AddGroup(7)", [gate] { return CTickScheduler_AddGroup(gate, 7); }),
              TickResult::GroupIdOutOfBounds);
}

TEST_F(TickLockTest, StartOffsetDoesNotWaitForTheRunningPass) {
    Probe other("Other", &log);
    pass.registerGate();
    STickHandler* otherHandle = registerProbe(other, 9);
    pass.startAndWaitForGate();

    std::future<uint32_t> written =
        std::async(std::launch::async, [otherHandle] { return CTickScheduler_SetStartOffset(otherHandle, 4); });
    const bool answered = written.wait_for(kHangGuard) == std::future_status::ready;
    EXPECT_TRUE(answered) << "SetStartOffset waited for the pass";
    pass.finish();
    EXPECT_EQ(written.get(), TickResult::Success);
    // Written before the pass reached the handler, which then advanced it.
    EXPECT_EQ(otherHandle->currentInterval.load(), 5u);
}

TEST_F(TickLockTest, UnchangedPriorityDoesNotTakeTheLock) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 1);
    STickHandler* stranger = new STickHandler[1]();
    stranger->prio.store(3);
    std::unique_lock<std::mutex> held(tickScheduler.tickMutex);
    std::future<uint32_t> same = std::async(std::launch::async, [handle, stranger] {
        const uint32_t first = CTickScheduler_SetTickPriority(handle, 5);
        const uint32_t second = CTickScheduler_SetTickPriority(stranger, 3);
        return first == TickResult::Success && second == TickResult::Success ? 0u : 1u;
    });
    const bool answered = same.wait_for(kHangGuard) == std::future_status::ready;
    held.unlock();
    EXPECT_TRUE(answered) << "an unchanged priority took the lock";
    EXPECT_EQ(same.get(), 0u);
    EXPECT_TRUE(platform_double::tracesOf("CTickScheduler_SetTickPriority").empty());
    delete[] stranger;
}

}  // namespace
}  // namespace scheduler_test
