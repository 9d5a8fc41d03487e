// The tick lock of CTickScheduler failing: every operation that enters
// through the tick lock lets the mutex's system error through and changes
// nothing, the operations that never take the lock are not affected, a tick
// pass that cannot lock or relock throws the same way, and the next call
// works again. (The module's std::mutex reaches pthread_mutex_lock inline,
// where this binary's link-time wrapping injects the failure; unlocking a
// std::mutex is not checked by anyone.)

#include <cerrno>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

#include "FaultFixture.h"
#include "InterfaceBroker.h"
#include "TickModuleIdentity.h"

namespace {

using fault_test::CountingClient;
using mutex_faults::Operation;

pthread_mutex_t* tickMutex() { return tickScheduler.tickMutex.native_handle(); }

/// The state an operation could change, to prove a failed one changed none.
struct Snapshot {
    std::vector<STickHandler*> handlers;
    uint32_t enabled;
    int32_t prio;
    uint32_t counter;
    uint32_t groupMask;
    uint32_t disabledGroups;
    uint32_t initialized;
    bool frozen;
    bool inTick;

    static Snapshot of(const STickHandler* handler) {
        return Snapshot{tickScheduler.tickHandlers,
                        handler->enabled.load(),
                        handler->prio.load(),
                        handler->currentInterval.load(),
                        handler->groupMask.load(),
                        tickScheduler.disabledGroupMask.load(),
                        tickScheduler.initialized.load(),
                        tickScheduler.tickOscillator.isFrozen(),
                        tickScheduler.inTick};
    }

    bool operator==(const Snapshot& other) const {
        return handlers == other.handlers && enabled == other.enabled && prio == other.prio &&
               counter == other.counter && groupMask == other.groupMask && disabledGroups == other.disabledGroups &&
               initialized == other.initialized && frozen == other.frozen && inTick == other.inTick;
    }
};

class SchedulerMutexFailure : public fault_test::FaultTest {
protected:
    void SetUp() override {
        FaultTest::SetUp();
        const ETickPriority priority = TICK_PRIORITY_NORMAL;
        ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
        const ITickReceiver receiver = client.receiver();
        ASSERT_EQ(CTickScheduler_RegisterTickHandler(&handle, &receiver, 2, "Guarded"), TickResult::Success);
        ASSERT_EQ(CTickScheduler_DisableTickGroup(1), TickResult::Success);
        platform_double::clearTraces();
    }

    /// Runs `operation` with the next lock of the tick mutex failing with
    /// `error`; expects the system error to come through with that code.
    void expectLockFailure(const std::function<void()>& operation, int error = EINVAL) {
        mutex_faults::failNth(Operation::Lock, tickMutex(), 1, error);
        try {
            operation();
            ADD_FAILURE() << "no system error came through";
        } catch (const std::system_error& failure) {
            EXPECT_EQ(failure.code().value(), error);
        }
        EXPECT_EQ(mutex_faults::calls(Operation::Lock), 1u);
        mutex_faults::disarm();
    }

    CountingClient client;
    STickHandler* handle = nullptr;
};

struct LockedOperation {
    const char* name;
    std::function<uint32_t(STickHandler*&)> call;
};

class EveryLockedOperation : public SchedulerMutexFailure, public ::testing::WithParamInterface<LockedOperation> {};

TEST_P(EveryLockedOperation, LetsTheSystemErrorThroughChangesNothingAndWorksOnTheNextCall) {
    const LockedOperation& operation = GetParam();
    const Snapshot before = Snapshot::of(handle);
    STickHandler* const handleBefore = handle;

    expectLockFailure([&] { operation.call(handle); });

    EXPECT_EQ(handle, handleBefore) << "the handle variable stays as it was";
    EXPECT_TRUE(Snapshot::of(handle) == before);
    EXPECT_TRUE(fault_test::errorsAndWarnings().empty());
    EXPECT_TRUE(tickScheduler.tickMutex.try_lock()) << "a failed lock must not leave the mutex held";
    tickScheduler.tickMutex.unlock();

    EXPECT_EQ(operation.call(handle), TickResult::Success) << "the next call works";
}

STickHandler* extraHandle = nullptr;

const LockedOperation kLockedOperations[] = {
    {"Register",
     [](STickHandler*&) {
         const ITickReceiver receiver{nullptr, &CountingClient::onTick};
         const uint32_t result = CTickScheduler_RegisterTickHandler(&extraHandle, &receiver, 1, "Extra");
         if (result == TickResult::Success) {
             CTickScheduler_UnregisterTickHandler(&extraHandle);
         }
         return result;
     }},
    {"Unregister", [](STickHandler*& handle) { return CTickScheduler_UnregisterTickHandler(&handle); }},
    {"SetTickPriority", [](STickHandler*& handle) { return CTickScheduler_SetTickPriority(handle, 9); }},
    {"EnableTickHandler", [](STickHandler*& handle) { return CTickScheduler_EnableTickHandler(handle); }},
    {"DisableTickHandler", [](STickHandler*& handle) { return CTickScheduler_DisableTickHandler(handle); }},
    {"Freeze", [](STickHandler*&) { return CTickScheduler_Freeze(); }},
    {"Unfreeze", [](STickHandler*&) { return CTickScheduler_Unfreeze(); }},
    {"AddGroup", [](STickHandler*& handle) { return CTickScheduler_AddGroup(handle, 0); }},
    {"RemoveGroup", [](STickHandler*& handle) { return CTickScheduler_RemoveGroup(handle, 0); }},
    {"EnableTickGroup", [](STickHandler*&) { return CTickScheduler_EnableTickGroup(1); }},
    {"DisableTickGroup", [](STickHandler*&) { return CTickScheduler_DisableTickGroup(0); }},
    {"PhaseCallback",
     [](STickHandler*&) { return CTickScheduler_OnPhaseActivation(nullptr, TickModule::Phase::Idle); }},
};

INSTANTIATE_TEST_SUITE_P(TickLock, EveryLockedOperation, ::testing::ValuesIn(kLockedOperations),
                         [](const ::testing::TestParamInfo<LockedOperation>& info) { return info.param.name; });

TEST_F(SchedulerMutexFailure, WaitForTickAndLockThrowsTheErrorOfTheMutex) {
    expectLockFailure([] { CTickScheduler_WaitForTickAndLock(); }, EDEADLK);
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    EXPECT_TRUE(lock.owns_lock());
}

TEST_F(SchedulerMutexFailure, UninitializeThatCannotLockLeavesTheModuleInitialised) {
    expectLockFailure([] { CTickScheduler_Uninitialize(); });
    EXPECT_EQ(tickScheduler.initialized.load(), 1u);
    EXPECT_EQ(tickScheduler.tickHandlers, std::vector<STickHandler*>{handle});
    EXPECT_NE(InterfaceBroker::getInstance()->getInterface("ITickScheduler"), nullptr) << "still offered";

    // Records the list drops are the client's to free: unregister first.
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    CTickScheduler_Uninitialize();
    EXPECT_EQ(tickScheduler.initialized.load(), 0u);
    EXPECT_EQ(InterfaceBroker::getInstance()->getInterface("ITickScheduler"), nullptr);
}

TEST_F(SchedulerMutexFailure, OperationsThatTakeNoLockAreNotAffected) {
    mutex_faults::failAlways(Operation::Lock, tickMutex(), EINVAL);
    EXPECT_EQ(CTickScheduler_SetStartOffset(handle, 1), TickResult::Success);
    EXPECT_EQ(CTickScheduler_SetTickPriority(handle, 5), TickResult::Success) << "unchanged priority";
    EXPECT_EQ(CTickScheduler_DisableTickGroup(2), TickResult::GroupIdOutOfBounds);
    STickHandler* none = nullptr;
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&none), TickResult::Success);
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(nullptr), TickResult::NullArgument);
    EXPECT_EQ(mutex_faults::calls(Operation::Lock), 0u);
    EXPECT_EQ(handle->currentInterval.load(), 1u);
}

TEST_F(SchedulerMutexFailure, TickThatCannotLockThrowsAndRunsNothing) {
    expectLockFailure([] { CTickScheduler_OnTick(&tickScheduler); }, EAGAIN);
    EXPECT_EQ(client.calls.load(), 0);
    EXPECT_FALSE(tickScheduler.inTick);
    EXPECT_EQ(handle->currentInterval.load(), 0u);

    CTickScheduler_OnTick(&tickScheduler);
    EXPECT_EQ(client.calls.load(), 1) << "the next tick runs the due handler";
    EXPECT_EQ(handle->currentInterval.load(), 1u);
}

TEST_F(SchedulerMutexFailure, TickThatCannotRelockAfterATickFunctionThrowsWithoutHoldingTheMutex) {
    CountingClient second;
    STickHandler* secondHandle = nullptr;
    const ITickReceiver receiver = second.receiver();
    ASSERT_EQ(CTickScheduler_RegisterTickHandler(&secondHandle, &receiver, 1, "Second"), TickResult::Success);

    // The first lock starts the pass; the second is the relock after the
    // first tick function.
    mutex_faults::failNth(Operation::Lock, tickMutex(), 2, EINVAL);
    EXPECT_THROW(CTickScheduler_OnTick(&tickScheduler), std::system_error);
    mutex_faults::disarm();

    EXPECT_EQ(client.calls.load(), 1);
    EXPECT_EQ(second.calls.load(), 0) << "the pass ends at the failed relock";
    EXPECT_TRUE(tickScheduler.tickMutex.try_lock());
    tickScheduler.tickMutex.unlock();

    // The next pass on the tick thread runs to its end and closes the pass.
    CTickScheduler_OnTick(&tickScheduler);
    EXPECT_EQ(second.calls.load(), 1);
    EXPECT_FALSE(tickScheduler.inTick);
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    EXPECT_TRUE(lock.owns_lock());
    lock.unlock();
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&secondHandle), TickResult::Success);
}

}  // namespace
