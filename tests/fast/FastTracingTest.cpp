// How the fast module traces: guarded by the level test, and never changing
// the errno its caller sees.

#include <cerrno>
#include <string>
#include <vector>

#include "FastSchedulerFixture.h"

namespace {

class FastTracing : public fast_test::FastSchedulerTest {};

TEST_F(FastTracing, TracingKeepsTheCallersErrno) {
    platform_double::scriptTraceErrno(EIO);
    STickHandler* handle = nullptr;

    errno = ENOENT;
    EXPECT_EQ(CTickSchedulerFast_RegisterTickHandler(nullptr, nullptr, nullptr), TickResult::NullArgument);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handle), TickResult::ListRemoveFailed);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(CTickSchedulerFast_AddGroup(nullptr, 0), TickResult::NullArgument);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(CTickSchedulerFast_DisableTickGroup(2), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(CTickSchedulerFast_OnPhaseActivation(nullptr, 12), TickResult::PhaseNotHandled);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::AlreadyInitialized);
    EXPECT_EQ(errno, ENOENT);

    // Every one of them did write its trace.
    EXPECT_EQ(platform_double::messagesAt(1).size(), 6u);
}

TEST_F(FastTracing, DisabledLevelsAreAskedForButNothingIsWritten) {
    platform_double::setTraceLevel(0);

    EXPECT_EQ(CTickSchedulerFast_RemoveGroup(nullptr, 0), TickResult::NullArgument);  // no trace site at all
    EXPECT_EQ(platform_double::isEnabledCalls(), 0u);
    EXPECT_EQ(CTickSchedulerFast_EnableTickGroup(9), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::AlreadyInitialized);

    EXPECT_GE(platform_double::isEnabledCalls(), 2u);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastTracing, EntryRecordOfInitializeNeedsLevelSix) {
    CTickSchedulerFast_Uninitialize();
    platform_double::reset();
    platform_double::setTraceLevel(5);

    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    EXPECT_TRUE(platform_double::traces().empty());
}

}  // namespace
