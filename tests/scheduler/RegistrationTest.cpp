// Handler registration: the record, the null checks and where a new handler
// goes in the list.

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "FreshHandlerRecord.h"
#include "SchedulerFixture.h"

namespace scheduler_test {
namespace {

class RegistrationTest : public SchedulerTest {};

TEST_F(RegistrationTest, NewRecordHoldsTheCopiedReceiverAndDefaults) {
    int contextObject = 0;
    STickHandler* handle = nullptr;
    {
        // The caller's receiver may go away after the call: it is copied.
        const ITickReceiver receiver{&contextObject, &handler_record::noTick};
        ASSERT_EQ(CTickScheduler_RegisterTickHandler(&handle, &receiver, 7, "Audio"), TickResult::Success);
    }
    handler_record::expectFresh(handle, &contextObject, &handler_record::noTick, 7, "Audio");
    EXPECT_EQ(handlerList(), std::vector<STickHandler*>{handle});
}

TEST_F(RegistrationTest, SuccessTracesTheNameAtLevelFiveWithTwoBlanks) {
    Probe probe("Audio", &log);
    registerProbe(probe, 1);
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kRegister, "Register tick handler  Audio"}}));
    const std::vector<platform_double::TraceRecord> records = platform_double::tracesOf(kRegister);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].file, kSourceFile);
}

TEST_F(RegistrationTest, NameOfThirtyOneCharactersIsKeptWhole) {
    const std::string name(31, 'n');
    Probe probe(name, &log);
    STickHandler* handle = registerProbe(probe, 1);
    EXPECT_EQ(std::string(handle->name), name);
}

TEST_F(RegistrationTest, LongerNameIsCutToThirtyOneCharactersWhileTheTraceShowsItWhole) {
    const std::string name = std::string(31, 'a') + "BCDEFGHIJ";
    Probe probe(name, &log);
    STickHandler* handle = registerProbe(probe, 1);
    EXPECT_EQ(std::string(handle->name), std::string(31, 'a'));
    EXPECT_EQ(handle->name[31], '\0');
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kRegister, "Register tick handler  " + name}}));
}

TEST_F(RegistrationTest, NameOfThirtyTwoCharactersLosesItsLastCharacter) {
    const std::string name = std::string(31, 'x') + "Y";
    Probe probe(name, &log);
    STickHandler* handle = registerProbe(probe, 1);
    EXPECT_EQ(std::string(handle->name), std::string(31, 'x'));
}

TEST_F(RegistrationTest, EmptyNameIsAccepted) {
    Probe probe("", &log);
    STickHandler* handle = registerProbe(probe, 1);
    ASSERT_NE(handle, nullptr);
    EXPECT_STREQ(handle->name, "");
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kRegister, "Register tick handler  "}}));
}

TEST_F(RegistrationTest, NullHandleVariableIsRefused) {
    const ITickReceiver receiver{nullptr, &handler_record::noTick};
    EXPECT_EQ(CTickScheduler_RegisterTickHandler(nullptr, &receiver, 1, "A"), TickResult::NullArgument);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kRegister, "tickHandler == NULL"}}));
    EXPECT_TRUE(handlerList().empty());
}

TEST_F(RegistrationTest, NullReceiverIsRefusedAndTheHandleIsUntouched) {
    STickHandler* const sentinel = reinterpret_cast<STickHandler*>(0x1234);
    STickHandler* handle = sentinel;
    EXPECT_EQ(CTickScheduler_RegisterTickHandler(&handle, nullptr, 1, "A"), TickResult::NullArgument);
    EXPECT_EQ(handle, sentinel);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kRegister, "pITickReceiver == NULL"}}));
    EXPECT_TRUE(handlerList().empty());
}

TEST_F(RegistrationTest, NullNameIsRefusedAndTheHandleIsUntouched) {
    const ITickReceiver receiver{nullptr, &handler_record::noTick};
    STickHandler* handle = nullptr;
    EXPECT_EQ(CTickScheduler_RegisterTickHandler(&handle, &receiver, 1, nullptr), TickResult::NullArgument);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kRegister, "pszName == NULL"}}));
    EXPECT_TRUE(handlerList().empty());
}

TEST_F(RegistrationTest, WithAllThreePointersNullOnlyTheHandleVariableIsReported) {
    EXPECT_EQ(CTickScheduler_RegisterTickHandler(nullptr, nullptr, 1, nullptr), TickResult::NullArgument);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kRegister, "tickHandler == NULL"}}));
}

TEST_F(RegistrationTest, RefusalIsReturnedWithoutTraceWhenLevelOneIsDisabled) {
    platform_double::setTraceLevel(0);
    EXPECT_EQ(CTickScheduler_RegisterTickHandler(nullptr, nullptr, 1, nullptr), TickResult::NullArgument);
    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_GT(platform_double::isEnabledCalls(), 0u);
}

TEST_F(RegistrationTest, TracingKeepsTheCallersErrno) {
    Probe probe("Audio", &log);
    errno = ERANGE;
    registerProbe(probe, 1);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(messages().size(), 1u);
}

TEST_F(RegistrationTest, AnyIntervalIsTaken) {
    Probe zero("Zero", &log);
    Probe huge("Huge", &log);
    EXPECT_EQ(registerProbe(zero, 0)->tickInterval, 0u);
    EXPECT_EQ(registerProbe(huge, 0xFFFFFFFFu)->tickInterval, 0xFFFFFFFFu);
}

TEST_F(RegistrationTest, SameReceiverTwiceGivesTwoHandlesAndTwoCallsOnADueTick) {
    Probe probe("Twice", &log);
    STickHandler* first = registerProbe(probe, 1);
    STickHandler* second = registerProbe(probe, 1);
    EXPECT_NE(first, second);
    EXPECT_EQ(handlerList(), (std::vector<STickHandler*>{first, second}));
    tick();
    EXPECT_EQ(probe.calls.load(), 2);
    EXPECT_EQ(log.take(), (std::vector<std::string>{"Twice", "Twice"}));
}

TEST_F(RegistrationTest, NewHandlerLandsAtTheEndWhateverItsPriority) {
    Probe a("A", &log);
    Probe b("B", &log);
    Probe c("C", &log);
    STickHandler* handleA = registerProbe(a, 1);
    STickHandler* handleB = registerProbe(b, 1);
    ASSERT_EQ(CTickScheduler_SetTickPriority(handleA, 9), TickResult::Success);
    ASSERT_EQ(CTickScheduler_SetTickPriority(handleB, -4), TickResult::Success);
    STickHandler* handleC = registerProbe(c, 1);
    EXPECT_EQ(handlerList(), (std::vector<STickHandler*>{handleB, handleA, handleC}));
}

TEST_F(RegistrationTest, RegistrationNeedsNoInitialize) {
    ASSERT_EQ(tickScheduler.initialized.load(), 0u);
    Probe probe("Early", &log);
    STickHandler* handle = registerProbe(probe, 3);
    EXPECT_EQ(handlerList(), std::vector<STickHandler*>{handle});
}

TEST_F(RegistrationTest, NewHandlerIsDueOnTheFirstPassAfterItsRegistration) {
    Probe probe("Fresh", &log);
    registerProbe(probe, 4);
    tick();
    EXPECT_EQ(probe.calls.load(), 1);
}

}  // namespace
}  // namespace scheduler_test
