// Unregistering fast tick handlers outside a tick: freeing, the handle
// variable, list failures and their message, and the unlocked variant.

#include <future>
#include <string>
#include <vector>

#include "BoundedWait.h"
#include "FastSchedulerFixture.h"

namespace fast_test {
namespace {

class FastUnregister : public FastSchedulerWithThreeClients {
protected:
    FastUnregister() : FastSchedulerWithThreeClients("A", "Audio", "C") {}

    RecordingClient& audio = b;
};

/// A record that was never registered, unregistered through `unregister`:
/// the list's code comes back, the handle variable keeps the record, and the
/// code is traced under `function`.
void expectRecordOutsideTheListRefused(uint32_t (*unregister)(STickHandler**), const char* function,
                                       const std::string& expectedMessage) {
    STickHandler foreign{};
    STickHandler* handle = &foreign;

    EXPECT_EQ(unregister(&handle), TickResult::ListRemoveFailed);

    EXPECT_EQ(handle, &foreign);
    EXPECT_EQ(messagesOf(function), std::vector<std::string>{expectedMessage});
}

TEST_F(FastUnregister, RemovesTheHandlerClearsTheHandleAndNamesIt) {
    registerThree();

    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&audio.handle), TickResult::Success);

    EXPECT_EQ(audio.handle, nullptr);
    EXPECT_EQ(handlersInList(), (std::vector<STickHandler*>{a.handle, c.handle}));
    EXPECT_EQ(messagesOf(kUnregister), std::vector<std::string>{"5:Tick Handler Audio unregistered successfully"});
    const std::vector<platform_double::TraceRecord> records = platform_double::traces();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].file, kSourceFile);
    EXPECT_EQ(platform_double::listCalls(), std::vector<ListFunction>{ListFunction::Remove});
}

TEST_F(FastUnregister, RemovedHandlerIsNoLongerCalled) {
    registerThree();
    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&audio.handle), TickResult::Success);

    tick();

    EXPECT_EQ(log, (Log{"A", "C"}));
}

TEST_F(FastUnregister, SuccessNeedsNoTracing) {
    registerThree();
    platform_double::setTraceLevel(1);

    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&audio.handle), TickResult::Success);

    EXPECT_EQ(audio.handle, nullptr);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastUnregister, SecondUnregisterThroughTheSameVariableReportsTheListsCode) {
    registerThree();
    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&audio.handle), TickResult::Success);
    platform_double::clearTraces();

    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&audio.handle), TickResult::ListRemoveFailed);

    EXPECT_EQ(audio.handle, nullptr);
    EXPECT_EQ(messagesOf(kUnregister),
              std::vector<std::string>{"1:Failed to remove Tick Handler from list, error: 0x00008003"});
    EXPECT_EQ(handlersInList(), (std::vector<STickHandler*>{a.handle, c.handle}));
}

TEST_F(FastUnregister, RecordNotInTheListIsLeftAloneWithTheListsCode) {
    registerThree();
    platform_double::scriptListRemoveMissingResult(0xDEADBEEFu);

    expectRecordOutsideTheListRefused(&CTickSchedulerFast_UnregisterTickHandler, kUnregister,
                                      "1:Failed to remove Tick Handler from list, error: 0xdeadbeef");
    EXPECT_EQ(handlersInList(), (std::vector<STickHandler*>{a.handle, audio.handle, c.handle}));
}

TEST_F(FastUnregister, ListFailureResultDoesNotDependOnTracing) {
    platform_double::setTraceLevel(0);
    STickHandler* handle = nullptr;

    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handle), TickResult::ListRemoveFailed);
    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandlerFromOnTick(&handle), TickResult::ListRemoveFailed);

    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastUnregister, NullHandleIsRefusedSilentlyByBothVariants) {
    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(nullptr), TickResult::NullArgument);
    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandlerFromOnTick(nullptr), TickResult::NullArgument);

    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_TRUE(platform_double::listCalls().empty());
}

TEST_F(FastUnregister, LockedVariantReleasesTheMutex) {
    registerThree();

    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&audio.handle), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&audio.handle), TickResult::ListRemoveFailed);

    ASSERT_EQ(pthread_mutex_trylock(&module().tickMutex), 0);
    pthread_mutex_unlock(&module().tickMutex);
}

TEST_F(FastUnregister, UnlockedVariantDoesNotTakeTheMutex) {
    // Held as the dispatch would hold it around a tick function. The call runs
    // on a thread of its own: a variant that took the mutex blocks there, and
    // the test reports it after a bounded wait instead of deadlocking itself.
    registerThree();
    ASSERT_EQ(pthread_mutex_lock(&module().tickMutex), 0);

    std::future<uint32_t> call = std::async(
        std::launch::async, [this] { return CTickSchedulerFast_UnregisterTickHandlerFromOnTick(&audio.handle); });
    const bool returnedWhileHeld = call.wait_for(test_support::kStuckAfter) == std::future_status::ready;
    pthread_mutex_unlock(&module().tickMutex);
    const uint32_t result = call.get();

    EXPECT_TRUE(returnedWhileHeld) << "the unlocked variant waited for the mutex the tick pass holds";
    EXPECT_EQ(result, TickResult::Success);
    EXPECT_EQ(audio.handle, nullptr);
    EXPECT_EQ(handlersInList(), (std::vector<STickHandler*>{a.handle, c.handle}));
    EXPECT_EQ(messagesOf(kUnregisterFromOnTick),
              std::vector<std::string>{"5:Tick Handler Audio unregistered successfully"});
}

TEST_F(FastUnregister, UnlockedVariantLeavesARecordThatIsNotInTheList) {
    expectRecordOutsideTheListRefused(&CTickSchedulerFast_UnregisterTickHandlerFromOnTick, kUnregisterFromOnTick,
                                      "1:Failed to remove Tick Handler from list, error: 0x00008003");
}

TEST_F(FastUnregister, WorksWhileTheModuleIsNotInitialised) {
    registerThree();
    CTickSchedulerFast_Uninitialize();

    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&a.handle), TickResult::Success);

    EXPECT_EQ(handlersInList(), (std::vector<STickHandler*>{audio.handle, c.handle}));
}

}  // namespace
}  // namespace fast_test
