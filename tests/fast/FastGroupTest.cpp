// The fast scheduler's two tick groups: membership bits, disabled-group bits,
// argument checks and their messages.

#include <string>
#include <vector>

#include "FastSchedulerFixture.h"

namespace {

using fast_test::messagesOf;
using fast_test::module;

void noTick(void*) {}

uint32_t disabledGroups() { return module().disabledGroupMask.load(); }

class FastGroups : public fast_test::FastSchedulerTest {
protected:
    void SetUp() override {
        FastSchedulerTest::SetUp();
        const ITickReceiver receiver{nullptr, &noTick};
        ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, "G"), TickResult::Success);
        platform_double::reset();
    }

    uint32_t membership() const { return handle->groupMask.load(); }

    STickHandler* handle = nullptr;
};

TEST_F(FastGroups, AddGroupSetsTheGroupsBit) {
    EXPECT_EQ(CTickSchedulerFast_AddGroup(handle, 0), TickResult::Success);
    EXPECT_EQ(membership(), 0x1u);
    EXPECT_EQ(CTickSchedulerFast_AddGroup(handle, 1), TickResult::Success);
    EXPECT_EQ(membership(), 0x3u);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastGroups, AddingAGroupTwiceIsASuccessfulNoOp) {
    ASSERT_EQ(CTickSchedulerFast_AddGroup(handle, 1), TickResult::Success);

    EXPECT_EQ(CTickSchedulerFast_AddGroup(handle, 1), TickResult::Success);

    EXPECT_EQ(membership(), 0x2u);
}

TEST_F(FastGroups, RemoveGroupClearsOnlyTheGroupsBit) {
    ASSERT_EQ(CTickSchedulerFast_AddGroup(handle, 0), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_AddGroup(handle, 1), TickResult::Success);

    EXPECT_EQ(CTickSchedulerFast_RemoveGroup(handle, 0), TickResult::Success);

    EXPECT_EQ(membership(), 0x2u);
}

TEST_F(FastGroups, RemovingAGroupTheHandlerIsNotInIsASuccessfulNoOp) {
    EXPECT_EQ(CTickSchedulerFast_RemoveGroup(handle, 1), TickResult::Success);

    EXPECT_EQ(membership(), 0u);
}

TEST_F(FastGroups, AddGroupReportsANullHandle) {
    EXPECT_EQ(CTickSchedulerFast_AddGroup(nullptr, 0), TickResult::NullArgument);

    EXPECT_EQ(messagesOf("CTickSchedulerFast_AddGroup"), std::vector<std::string>{"1:tickHandler == NULL"});
    const std::vector<platform_double::TraceRecord> records = platform_double::traces();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].file, fast_test::kSourceFile);
}

TEST_F(FastGroups, AddGroupChecksTheHandleBeforeTheGroupId) {
    EXPECT_EQ(CTickSchedulerFast_AddGroup(nullptr, 5), TickResult::NullArgument);

    EXPECT_EQ(messagesOf("CTickSchedulerFast_AddGroup"), std::vector<std::string>{"1:tickHandler == NULL"});
}

TEST_F(FastGroups, RemoveGroupRefusesANullHandleSilently) {
    EXPECT_EQ(CTickSchedulerFast_RemoveGroup(nullptr, 0), TickResult::NullArgument);
    EXPECT_EQ(CTickSchedulerFast_RemoveGroup(nullptr, 7), TickResult::NullArgument);

    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastGroups, MembershipOfAGroupAboveOneIsRefused) {
    ASSERT_EQ(CTickSchedulerFast_AddGroup(handle, 0), TickResult::Success);

    EXPECT_EQ(CTickSchedulerFast_AddGroup(handle, 2), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickSchedulerFast_RemoveGroup(handle, 2), TickResult::GroupIdOutOfBounds);

    EXPECT_EQ(membership(), 0x1u);
    EXPECT_EQ(messagesOf("CTickSchedulerFast_AddGroup"), std::vector<std::string>{"1:Group ID out of bounds: 2"});
    EXPECT_EQ(messagesOf("CTickSchedulerFast_RemoveGroup"), std::vector<std::string>{"1:Group ID out of bounds: 2"});
}

TEST_F(FastGroups, EnablingGroupTwoIsRefusedAndLeavesTheMaskUnchanged) {
    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(0), TickResult::Success);

    EXPECT_EQ(CTickSchedulerFast_EnableTickGroup(2), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickSchedulerFast_DisableTickGroup(2), TickResult::GroupIdOutOfBounds);

    EXPECT_EQ(disabledGroups(), 0x1u);
    EXPECT_EQ(messagesOf("CTickSchedulerFast_EnableTickGroup"),
              std::vector<std::string>{"1:Group ID out of bounds: 2"});
    EXPECT_EQ(messagesOf("CTickSchedulerFast_DisableTickGroup"),
              std::vector<std::string>{"1:Group ID out of bounds: 2"});
}

TEST_F(FastGroups, GroupIdIsPrintedAsASignedNumber) {
    EXPECT_EQ(CTickSchedulerFast_DisableTickGroup(4294967295u), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickSchedulerFast_AddGroup(handle, 2147483648u), TickResult::GroupIdOutOfBounds);

    EXPECT_EQ(messagesOf("CTickSchedulerFast_DisableTickGroup"),
              std::vector<std::string>{"1:Group ID out of bounds: -1"});
    EXPECT_EQ(messagesOf("CTickSchedulerFast_AddGroup"),
              std::vector<std::string>{"1:Group ID out of bounds: -2147483648"});
}

TEST_F(FastGroups, RefusalsDoNotDependOnTracing) {
    platform_double::setTraceLevel(0);

    EXPECT_EQ(CTickSchedulerFast_AddGroup(nullptr, 0), TickResult::NullArgument);
    EXPECT_EQ(CTickSchedulerFast_AddGroup(handle, 2), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickSchedulerFast_EnableTickGroup(3), TickResult::GroupIdOutOfBounds);

    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastGroups, DisableSetsAndEnableClearsTheGroupsBit) {
    EXPECT_EQ(CTickSchedulerFast_DisableTickGroup(1), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 0x2u);
    EXPECT_EQ(CTickSchedulerFast_DisableTickGroup(0), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 0x3u);
    EXPECT_EQ(CTickSchedulerFast_EnableTickGroup(1), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 0x1u);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastGroups, EnablingAGroupThatWasNeverDisabledSucceeds) {
    EXPECT_EQ(CTickSchedulerFast_EnableTickGroup(0), TickResult::Success);

    EXPECT_EQ(disabledGroups(), 0u);
}

TEST_F(FastGroups, DisablingAnAlreadyDisabledGroupIsASuccessfulNoOp) {
    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(0), TickResult::Success);

    EXPECT_EQ(CTickSchedulerFast_DisableTickGroup(0), TickResult::Success);

    EXPECT_EQ(disabledGroups(), 0x1u);
}

TEST_F(FastGroups, GroupOperationsNeedNeitherInitialisationNorARegisteredHandle) {
    CTickSchedulerFast_Uninitialize();
    STickHandler unregistered{};

    EXPECT_EQ(CTickSchedulerFast_AddGroup(&unregistered, 1), TickResult::Success);
    EXPECT_EQ(CTickSchedulerFast_DisableTickGroup(1), TickResult::Success);

    EXPECT_EQ(unregistered.groupMask.load(), 0x2u);
    EXPECT_EQ(disabledGroups(), 0x2u);
}

TEST_F(FastGroups, InitializeEnablesEveryGroupAgain) {
    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(0), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(1), TickResult::Success);
    CTickSchedulerFast_Uninitialize();
    EXPECT_EQ(disabledGroups(), 0x3u);

    // Uninitialize keeps the list; free the handler before the list is
    // constructed anew.
    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handle), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    EXPECT_EQ(disabledGroups(), 0u);
}

}  // namespace
