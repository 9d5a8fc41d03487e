// What the fast scheduler does when its mutex cannot be initialised, locked
// or unlocked. The failures are injected for the module's mutex only.

#include <cerrno>
#include <string>
#include <vector>

#include "FastSchedulerFixture.h"
#include "MutexFaultInjection.h"
#include "TickModuleIdentity.h"

namespace fast_test {
namespace {

using mutex_faults::Operation;

pthread_mutex_t* tickMutex() { return &module().tickMutex; }

class FastMutexFailure : public FastSchedulerTest {
protected:
    void SetUp() override {
        mutex_faults::disarm();
        FastSchedulerTest::SetUp();
    }

    void TearDown() override {
        mutex_faults::disarm();
        FastSchedulerTest::TearDown();
    }

    /// Registers A through a handle variable that holds a sentinel: the call
    /// fails and the variable keeps the sentinel.
    void expectRegistrationFailsAndKeepsTheHandle() {
        STickHandler* const sentinel = reinterpret_cast<STickHandler*>(0x1234);
        a.handle = sentinel;

        EXPECT_EQ(a.registerHandler(), TickResult::MutexFailure);

        EXPECT_EQ(a.handle, sentinel);
        a.handle = nullptr;  // a record left in the list is freed by the fixture
    }

    Log log;
    RecordingClient a{"A", log};
    RecordingClient b{"B", log};
};

TEST_F(FastMutexFailure, RegistrationThatCannotLockRegistersNothing) {
    mutex_faults::failNth(Operation::Lock, tickMutex(), 1, EINVAL);

    expectRegistrationFailsAndKeepsTheHandle();

    EXPECT_TRUE(handlersInList().empty());
    EXPECT_TRUE(platform_double::listCalls().empty());
    EXPECT_EQ(messagesOf(kRegister),
              std::vector<std::string>{"1:Failed to lock mutex in CTickSchedulerFast_RegisterTickHandler"});
    EXPECT_EQ(mutex_faults::calls(Operation::Unlock), 0u);
}

TEST_F(FastMutexFailure, RegistrationThatCannotUnlockKeepsTheHandlerButWithholdsTheHandle) {
    mutex_faults::failNth(Operation::Unlock, tickMutex(), 1, EPERM);

    expectRegistrationFailsAndKeepsTheHandle();

    EXPECT_EQ(messagesOf(kRegister),
              std::vector<std::string>{"1:Failed to unlock mutex in CTickSchedulerFast_RegisterTickHandler"});
    const std::vector<STickHandler*> handlers = handlersInList();
    ASSERT_EQ(handlers.size(), 1u);
    EXPECT_STREQ(handlers[0]->name, "A");
    // The orphaned record still receives ticks.
    tick();
    EXPECT_EQ(log, Log{"A"});
}

TEST_F(FastMutexFailure, UnregisterThatCannotLockLeavesEverythingAsItWas) {
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    STickHandler* const record = a.handle;
    platform_double::reset();
    mutex_faults::failNth(Operation::Lock, tickMutex(), 1, EINVAL);

    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&a.handle), TickResult::MutexFailure);

    EXPECT_EQ(a.handle, record);
    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{record});
    EXPECT_TRUE(platform_double::listCalls().empty());
    EXPECT_EQ(messagesOf(kUnregister),
              std::vector<std::string>{"1:Failed to lock mutex in CTickSchedulerFast_UnregisterTickHandler"});
}

TEST_F(FastMutexFailure, UnregisterThatCannotUnlockStillRemovesAndFrees) {
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    ASSERT_EQ(b.registerHandler(), TickResult::Success);
    platform_double::reset();
    mutex_faults::failNth(Operation::Unlock, tickMutex(), 1, EPERM);

    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&a.handle), TickResult::MutexFailure);

    EXPECT_EQ(a.handle, nullptr);
    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{b.handle});
    EXPECT_EQ(messagesOf(kUnregister),
              (std::vector<std::string>{"5:Tick Handler A unregistered successfully",
                                        "1:Failed to unlock mutex in CTickSchedulerFast_UnregisterTickHandler"}));
}

TEST_F(FastMutexFailure, UnlockFailureOutranksAFailedRemoval) {
    STickHandler* handle = nullptr;
    mutex_faults::failNth(Operation::Unlock, tickMutex(), 1, EPERM);

    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handle), TickResult::MutexFailure);

    EXPECT_EQ(messagesOf(kUnregister),
              (std::vector<std::string>{"1:Failed to remove Tick Handler from list, error: 0x00008003",
                                        "1:Failed to unlock mutex in CTickSchedulerFast_UnregisterTickHandler"}));
}

TEST_F(FastMutexFailure, UnlockedVariantNeverTouchesTheMutex) {
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    mutex_faults::failAlways(Operation::Lock, tickMutex(), EINVAL);
    mutex_faults::failAlways(Operation::Unlock, tickMutex(), EPERM);

    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandlerFromOnTick(&a.handle), TickResult::Success);

    EXPECT_EQ(mutex_faults::calls(Operation::Lock), 0u);
    EXPECT_EQ(mutex_faults::calls(Operation::Unlock), 0u);
    EXPECT_TRUE(handlersInList().empty());
}

TEST_F(FastMutexFailure, TickThatCannotLockIsSkippedSilently) {
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    ASSERT_EQ(b.registerHandler(), TickResult::Success);
    platform_double::reset();
    mutex_faults::failNth(Operation::Lock, tickMutex(), 1, EINVAL);

    tick();

    EXPECT_TRUE(log.empty());
    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_TRUE(platform_double::listCalls().empty());
    EXPECT_EQ(mutex_faults::calls(Operation::Unlock), 0u);

    tick();
    EXPECT_EQ(log, (Log{"A", "B"}));
}

TEST_F(FastMutexFailure, TickIgnoresAFailingUnlock) {
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    platform_double::reset();
    mutex_faults::failNth(Operation::Unlock, tickMutex(), 1, EPERM);

    tick();

    EXPECT_EQ(log, Log{"A"});
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastMutexFailure, InitializeThatCannotInitialiseTheMutexKeepsItsRegistrations) {
    CTickSchedulerFast_Uninitialize();
    platform_double::reset();
    mutex_faults::failNth(Operation::Init, tickMutex(), 1, EAGAIN);

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::MutexFailure);

    EXPECT_EQ(module().initialized, 0u);
    EXPECT_EQ(platform_double::moduleRegistrations().size(), 1u);
    EXPECT_EQ(platform_double::callbackRegistrations().size(), 1u);
    const std::vector<platform_double::BrokerCall> broker = platform_double::brokerCalls();
    ASSERT_EQ(broker.size(), 1u);
    EXPECT_TRUE(broker[0].registration);
    EXPECT_NE(InterfaceBroker::getInstance()->getInterface("ITickSchedulerFast"), nullptr);
    EXPECT_TRUE(platform_double::listCalls().empty());
    EXPECT_TRUE(messagesOf(kInitialize).empty());
    EXPECT_EQ(CTickSchedulerFast_OnPhaseActivation(nullptr, TickModule::Phase::Idle), TickResult::ModuleNotInitialized);

    // Nothing was undone, so the next attempt goes through every step again.
    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    EXPECT_EQ(platform_double::moduleRegistrations().size(), 2u);
    EXPECT_EQ(mutex_faults::calls(Operation::Init), 2u);
    EXPECT_EQ(module().initialized, 1u);
}

TEST_F(FastMutexFailure, OtherMutexesAreNotAffected) {
    pthread_mutex_t other = PTHREAD_MUTEX_INITIALIZER;
    mutex_faults::failAlways(Operation::Lock, tickMutex(), EINVAL);

    EXPECT_EQ(pthread_mutex_lock(&other), 0);
    EXPECT_EQ(pthread_mutex_unlock(&other), 0);
    EXPECT_EQ(a.registerHandler(), TickResult::MutexFailure);
}

}  // namespace
}  // namespace fast_test
