// One fast tick, driven directly: order, enabled flag, group suppression,
// removal from inside a tick, a list that fails to deliver, and what the
// dispatch leaves behind.

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "FastSchedulerFixture.h"

namespace fast_test {
namespace {

bool tickMutexIsFree() {
    if (pthread_mutex_trylock(&module().tickMutex) != 0) {
        return false;
    }
    pthread_mutex_unlock(&module().tickMutex);
    return true;
}

class FastDispatch : public FastSchedulerWithThreeClients {
protected:
    FastDispatch() : FastSchedulerWithThreeClients("A", "B", "C") {}

    /// Registers A, B and C, then adds each client of `memberships` to its
    /// group.
    void registerThreeInGroups(std::initializer_list<std::pair<RecordingClient*, uint32_t>> memberships) {
        registerThree();
        for (const auto& [client, group] : memberships) {
            ASSERT_EQ(CTickSchedulerFast_AddGroup(client->handle, group), TickResult::Success);
        }
    }
};

TEST_F(FastDispatch, EmptyListOnlyTestsEmptinessAndCallsNothing) {
    tick();

    EXPECT_EQ(platform_double::listCalls(), std::vector<ListFunction>{ListFunction::IsEmpty});
    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_TRUE(tickMutexIsFree());
}

TEST_F(FastDispatch, CallsEveryHandlerInRegistrationOrderOnEveryTick) {
    registerThree();

    tick();
    tick();

    EXPECT_EQ(log, (Log{"A", "B", "C", "A", "B", "C"}));
}

TEST_F(FastDispatch, WalksTheListOncePerTick) {
    registerThree();

    tick();

    EXPECT_EQ(platform_double::listCalls(),
              (std::vector<ListFunction>{ListFunction::IsEmpty, ListFunction::StartIterationFromHead,
                                         ListFunction::GetNext, ListFunction::GetNext, ListFunction::GetNext}));
    EXPECT_TRUE(tickMutexIsFree());
}

TEST_F(FastDispatch, NormalPathDoesNotTouchTheTraceObject) {
    registerThree();

    tick();

    EXPECT_EQ(platform_double::isEnabledCalls(), 0u);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastDispatch, IgnoresTheContextArgument) {
    registerThree();
    int unrelated = 0;

    CTickSchedulerFast_OnTick(&unrelated);

    EXPECT_EQ(log, (Log{"A", "B", "C"}));
}

TEST_F(FastDispatch, DisabledHandlerIsSkippedAndTheOthersKeepTheirOrder) {
    registerThree();
    ASSERT_EQ(CTickSchedulerFast_DisableTickHandler(b.handle), TickResult::Success);

    tick();
    ASSERT_EQ(CTickSchedulerFast_EnableTickHandler(b.handle), TickResult::Success);
    tick();

    EXPECT_EQ(log, (Log{"A", "C", "A", "B", "C"}));
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastDispatch, HandlerWhoseEnabledHoldsTwoIsNeverCalled) {
    registerThree();
    b.handle->enabled.store(2);

    tick();
    tick();

    EXPECT_EQ(log, (Log{"A", "C", "A", "C"}));
}

TEST_F(FastDispatch, EnableAndDisableRefuseANullHandleSilently) {
    EXPECT_EQ(CTickSchedulerFast_EnableTickHandler(nullptr), TickResult::NullArgument);
    EXPECT_EQ(CTickSchedulerFast_DisableTickHandler(nullptr), TickResult::NullArgument);

    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastDispatch, HandlerDisabledByAnEarlierOneIsSkippedInTheSameTick) {
    struct Disabler {
        STickHandler* target;
        Log* log;
        static void onTick(void* context) {
            auto* self = static_cast<Disabler*>(context);
            self->log->push_back("D");
            CTickSchedulerFast_DisableTickHandler(self->target);
        }
    };
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    Disabler disabler{nullptr, &log};
    const ITickReceiver receiver{&disabler, &Disabler::onTick};
    STickHandler* disablerHandle = nullptr;
    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&disablerHandle, &receiver, "D"), TickResult::Success);
    ASSERT_EQ(c.registerHandler(), TickResult::Success);
    disabler.target = c.handle;

    tick();

    EXPECT_EQ(log, (Log{"A", "D"}));
}

TEST_F(FastDispatch, MemberOfADisabledGroupIsSkippedUntilTheGroupIsEnabled) {
    registerThreeInGroups({{&b, 1}});

    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(1), TickResult::Success);
    tick();
    ASSERT_EQ(CTickSchedulerFast_EnableTickGroup(1), TickResult::Success);
    tick();

    EXPECT_EQ(log, (Log{"A", "C", "A", "B", "C"}));
}

TEST_F(FastDispatch, DisablingGroupOneSparesMembersOfGroupZeroAndHandlersWithoutGroup) {
    registerThreeInGroups({{&a, 1}, {&b, 0}});

    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(1), TickResult::Success);
    tick();

    EXPECT_EQ(log, (Log{"B", "C"}));
}

TEST_F(FastDispatch, MemberOfBothGroupsIsSilentWhileEitherIsDisabled) {
    registerThreeInGroups({{&b, 0}, {&b, 1}});

    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(0), TickResult::Success);
    tick();
    ASSERT_EQ(CTickSchedulerFast_EnableTickGroup(0), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(1), TickResult::Success);
    tick();
    ASSERT_EQ(CTickSchedulerFast_EnableTickGroup(1), TickResult::Success);
    tick();

    EXPECT_EQ(log, (Log{"A", "C", "A", "C", "A", "B", "C"}));
}

TEST_F(FastDispatch, HandlerWithoutGroupIsNeverSuppressedByGroups) {
    registerThree();

    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(0), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(1), TickResult::Success);
    tick();

    EXPECT_EQ(log, (Log{"A", "B", "C"}));
}

/// A client that removes a handler (by default its own) from inside its tick.
struct SelfRemover {
    STickHandler* handle = nullptr;
    STickHandler** target = &handle;
    Log* log = nullptr;
    std::vector<uint32_t> results;

    static void onTick(void* context) {
        auto* self = static_cast<SelfRemover*>(context);
        self->log->push_back("R");
        self->results.push_back(CTickSchedulerFast_UnregisterTickHandlerFromOnTick(self->target));
    }

    uint32_t registerHandler(const char* name) {
        const ITickReceiver receiver{this, &SelfRemover::onTick};
        return CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, name);
    }
};

TEST_F(FastDispatch, HandlerRemovingItselfLetsTheRestOfTheTickRun) {
    SelfRemover remover;
    remover.log = &log;
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    ASSERT_EQ(remover.registerHandler("Remover"), TickResult::Success);
    ASSERT_EQ(c.registerHandler(), TickResult::Success);
    platform_double::reset();

    tick();

    EXPECT_EQ(log, (Log{"A", "R", "C"}));
    EXPECT_EQ(remover.results, std::vector<uint32_t>{TickResult::Success});
    EXPECT_EQ(remover.handle, nullptr);
    EXPECT_EQ(handlersInList(), (std::vector<STickHandler*>{a.handle, c.handle}));
    EXPECT_EQ(messagesOf(kUnregisterFromOnTick),
              std::vector<std::string>{"5:Tick Handler Remover unregistered successfully"});

    tick();
    EXPECT_EQ(log, (Log{"A", "R", "C", "A", "C"}));
    EXPECT_TRUE(tickMutexIsFree());
}

TEST_F(FastDispatch, LastHandlerRemovingItselfEndsTheTickCleanly) {
    SelfRemover remover;
    remover.log = &log;
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    ASSERT_EQ(remover.registerHandler("Last"), TickResult::Success);

    tick();
    tick();

    EXPECT_EQ(log, (Log{"A", "R", "A"}));
    EXPECT_EQ(remover.results, std::vector<uint32_t>{TickResult::Success});
}

TEST_F(FastDispatch, OnlyHandlerRemovingItselfLeavesAnEmptyList) {
    SelfRemover remover;
    remover.log = &log;
    ASSERT_EQ(remover.registerHandler("Only"), TickResult::Success);

    tick();
    platform_double::reset();
    tick();

    EXPECT_EQ(log, (Log{"R"}));
    EXPECT_TRUE(handlersInList().empty());
    EXPECT_EQ(platform_double::listCalls(), std::vector<ListFunction>{ListFunction::IsEmpty});
}

TEST_F(FastDispatch, HandlerMayRemoveAnEarlierHandlerFromInsideItsTick) {
    SelfRemover remover;
    remover.log = &log;
    remover.target = &a.handle;
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    ASSERT_EQ(remover.registerHandler("Remover"), TickResult::Success);
    ASSERT_EQ(c.registerHandler(), TickResult::Success);

    tick();
    remover.target = &remover.handle;
    tick();
    tick();

    EXPECT_EQ(log, (Log{"A", "R", "C", "R", "C", "C"}));
    EXPECT_EQ(remover.results, (std::vector<uint32_t>{TickResult::Success, TickResult::Success}));
    EXPECT_EQ(a.handle, nullptr);
}

TEST_F(FastDispatch, SecondRemovalThroughTheSameVariableFromInsideATickFails) {
    // Two handlers share one handle variable: the first removes the record
    // and clears the variable, the second passes the null on to the list.
    SelfRemover first;
    first.log = &log;
    SelfRemover second;
    second.log = &log;
    ASSERT_EQ(first.registerHandler("First"), TickResult::Success);
    ASSERT_EQ(second.registerHandler("Second"), TickResult::Success);
    STickHandler* secondRecord = second.handle;
    second.target = &first.handle;
    platform_double::reset();

    tick();

    EXPECT_EQ(first.results, std::vector<uint32_t>{TickResult::Success});
    EXPECT_EQ(second.results, std::vector<uint32_t>{TickResult::ListRemoveFailed});
    EXPECT_EQ(messagesOf(kUnregisterFromOnTick),
              (std::vector<std::string>{"5:Tick Handler First unregistered successfully",
                                        "1:Failed to remove Tick Handler from list, error: 0x00008003"}));
    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{secondRecord});
}

TEST_F(FastDispatch, ListDeliveringNullSkipsTheRestOfTheTick) {
    registerThree();
    platform_double::scriptListGetNextNullAt(2);

    tick();

    EXPECT_EQ(log, Log{"A"});
    EXPECT_EQ(messagesOf(kOnTick),
              std::vector<std::string>{"1:CTickSchedulerFast_OnTick failed in receiving tick handler"});
    const std::vector<platform_double::TraceRecord> records = platform_double::tracesOf(kOnTick);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].file, kSourceFile);
    EXPECT_TRUE(tickMutexIsFree());

    tick();
    EXPECT_EQ(log, (Log{"A", "A", "B", "C"}));
}

TEST_F(FastDispatch, ListDeliveringNullFirstCallsNothing) {
    registerThree();
    platform_double::scriptListGetNextNullAt(1);

    tick();

    EXPECT_TRUE(log.empty());
    EXPECT_EQ(messagesOf(kOnTick).size(), 1u);
    EXPECT_TRUE(tickMutexIsFree());
}

TEST_F(FastDispatch, ListFailureIsSilentWithTracingOff) {
    registerThree();
    platform_double::setTraceLevel(0);
    platform_double::scriptListGetNextNullAt(3);

    tick();

    EXPECT_EQ(log, (Log{"A", "B"}));
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastDispatch, ExceptionOfAHandlerLeavesTheDispatchWithTheMutexHeld) {
    struct Thrower {
        static void onTick(void*) { throw std::runtime_error("handler failed"); }
    };
    ASSERT_EQ(a.registerHandler(), TickResult::Success);
    const ITickReceiver receiver{nullptr, &Thrower::onTick};
    STickHandler* throwerHandle = nullptr;
    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&throwerHandle, &receiver, "Thrower"), TickResult::Success);
    ASSERT_EQ(c.registerHandler(), TickResult::Success);

    EXPECT_THROW(tick(), std::runtime_error);

    EXPECT_EQ(log, Log{"A"});
    EXPECT_FALSE(tickMutexIsFree());
    // Release it for the rest of the suite, as the process would never do.
    pthread_mutex_unlock(&module().tickMutex);
}

}  // namespace
}  // namespace fast_test
