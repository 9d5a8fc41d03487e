// Tick groups: membership, switching whole groups off and on, and the checks
// of the four group operations.

#include <string>
#include <vector>

#include "SchedulerFixture.h"

namespace scheduler_test {
namespace {

constexpr const char* kAdd = "CTickScheduler_AddGroup";
constexpr const char* kRemove = "CTickScheduler_RemoveGroup";
constexpr const char* kEnable = "CTickScheduler_EnableTickGroup";
constexpr const char* kDisable = "CTickScheduler_DisableTickGroup";

constexpr uint32_t kMinusOne = 0xFFFFFFFFu;

class GroupsTest : public SchedulerTest {
protected:
    void SetUp() override {
        SchedulerTest::SetUp();
        handle = registerProbe(probe, 1);
        platform_double::clearTraces();
    }

    Probe probe{"Member", &log};
    STickHandler* handle = nullptr;
};

TEST_F(GroupsTest, AddGroupSetsTheBitsOfGroupsZeroAndOne) {
    EXPECT_EQ(CTickScheduler_AddGroup(handle, 0), TickResult::Success);
    EXPECT_EQ(handle->groupMask.load(), 1u);
    EXPECT_EQ(CTickScheduler_AddGroup(handle, 1), TickResult::Success);
    EXPECT_EQ(handle->groupMask.load(), 3u);
    EXPECT_EQ(CTickScheduler_AddGroup(handle, 1), TickResult::Success);
    EXPECT_EQ(handle->groupMask.load(), 3u);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(GroupsTest, RemoveGroupClearsOnlyItsBit) {
    ASSERT_EQ(CTickScheduler_AddGroup(handle, 0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_AddGroup(handle, 1), TickResult::Success);
    EXPECT_EQ(CTickScheduler_RemoveGroup(handle, 0), TickResult::Success);
    EXPECT_EQ(handle->groupMask.load(), 2u);
    EXPECT_EQ(CTickScheduler_RemoveGroup(handle, 0), TickResult::Success);
    EXPECT_EQ(handle->groupMask.load(), 2u);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(GroupsTest, GroupIdsAboveOneAreRefusedByEveryOperation) {
    for (uint32_t id : {2u, 3u, 31u, 32u, 1000u}) {
        EXPECT_EQ(CTickScheduler_AddGroup(handle, id), TickResult::GroupIdOutOfBounds) << id;
        EXPECT_EQ(CTickScheduler_RemoveGroup(handle, id), TickResult::GroupIdOutOfBounds) << id;
        EXPECT_EQ(CTickScheduler_EnableTickGroup(id), TickResult::GroupIdOutOfBounds) << id;
        EXPECT_EQ(CTickScheduler_DisableTickGroup(id), TickResult::GroupIdOutOfBounds) << id;
    }
    EXPECT_EQ(handle->groupMask.load(), 0u);
    EXPECT_EQ(disabledGroups(), 0u);
}

TEST_F(GroupsTest, OutOfBoundsIdIsTracedInDecimalUnderEachOperation) {
    EXPECT_EQ(CTickScheduler_AddGroup(handle, 2), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickScheduler_RemoveGroup(handle, 3), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickScheduler_EnableTickGroup(4), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickScheduler_DisableTickGroup(5), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kAdd, "Group ID out of bounds: 2"},
                                             {1, kRemove, "Group ID out of bounds: 3"},
                                             {1, kEnable, "Group ID out of bounds: 4"},
                                             {1, kDisable, "Group ID out of bounds: 5"}}));
}

TEST_F(GroupsTest, MinusOneIsRefusedAndPrintedAsMinusOne) {
    EXPECT_EQ(CTickScheduler_AddGroup(handle, kMinusOne), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickScheduler_RemoveGroup(handle, kMinusOne), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickScheduler_EnableTickGroup(kMinusOne), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(CTickScheduler_DisableTickGroup(kMinusOne), TickResult::GroupIdOutOfBounds);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kAdd, "Group ID out of bounds: -1"},
                                             {1, kRemove, "Group ID out of bounds: -1"},
                                             {1, kEnable, "Group ID out of bounds: -1"},
                                             {1, kDisable, "Group ID out of bounds: -1"}}));
}

TEST_F(GroupsTest, AddGroupWithANullHandlerAndABadIdReportsTheNullHandler) {
    EXPECT_EQ(CTickScheduler_AddGroup(nullptr, 9), TickResult::NullArgument);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kAdd, "CTickScheduler_AddGroup tickHandler == NULL"}}));
}

TEST_F(GroupsTest, RemoveGroupWithANullHandlerIsRefusedWithoutTrace) {
    EXPECT_EQ(CTickScheduler_RemoveGroup(nullptr, 0), TickResult::NullArgument);
    EXPECT_EQ(CTickScheduler_RemoveGroup(nullptr, 9), TickResult::NullArgument);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(GroupsTest, EnablingGroupZeroTracesItsDoubledText) {
    EXPECT_EQ(CTickScheduler_EnableTickGroup(0), TickResult::Success);
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kEnable, "Enabled tick group, Enabled tick group channel 1(0)"}}));
}

TEST_F(GroupsTest, EnablingGroupOneTracesChannelTwo) {
    EXPECT_EQ(CTickScheduler_EnableTickGroup(1), TickResult::Success);
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kEnable, "Enabled tick group, Enabled tick group channel 2(1)"}}));
}

TEST_F(GroupsTest, DisablingGroupsSetsTheirBitsAndTracesTheirTexts) {
    EXPECT_EQ(CTickScheduler_DisableTickGroup(1), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 2u);
    EXPECT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 3u);
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kDisable, "Disabled tick group Disabled tick group channel 2(1)"},
                                             {5, kDisable, "Disabled tick group Disabled tick group channel 1(0)"}}));
}

TEST_F(GroupsTest, EnablingClearsOnlyItsBit) {
    ASSERT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableTickGroup(1), TickResult::Success);
    EXPECT_EQ(CTickScheduler_EnableTickGroup(0), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 2u);
}

TEST_F(GroupsTest, EnablingAnEnabledGroupTracesAgain) {
    EXPECT_EQ(CTickScheduler_EnableTickGroup(1), TickResult::Success);
    EXPECT_EQ(CTickScheduler_EnableTickGroup(1), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 0u);
    EXPECT_EQ(messages(), (std::vector<Line>{{5, kEnable, "Enabled tick group, Enabled tick group channel 2(1)"},
                                             {5, kEnable, "Enabled tick group, Enabled tick group channel 2(1)"}}));
}

TEST_F(GroupsTest, DisablingADisabledGroupTracesAgain) {
    EXPECT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    EXPECT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 1u);
    EXPECT_EQ(messages().size(), 2u);
}

TEST_F(GroupsTest, HandlerInBothGroupsRunsOnlyWhileBothAreEnabled) {
    ASSERT_EQ(CTickScheduler_AddGroup(handle, 0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_AddGroup(handle, 1), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    tick();
    EXPECT_EQ(probe.calls.load(), 0);
    ASSERT_EQ(CTickScheduler_EnableTickGroup(0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableTickGroup(1), TickResult::Success);
    tick();
    EXPECT_EQ(probe.calls.load(), 0);
    ASSERT_EQ(CTickScheduler_EnableTickGroup(1), TickResult::Success);
    tick();
    EXPECT_EQ(probe.calls.load(), 1);
}

TEST_F(GroupsTest, ReenabledMemberResumesOnItsOwnGrid) {
    Probe slow("Slow", &log);
    STickHandler* slowHandle = registerProbe(slow, 3);
    ASSERT_EQ(CTickScheduler_AddGroup(slowHandle, 0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_AddGroup(slowHandle, 1), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    tick(2);  // counter 0 -> 1 -> 2, the call on the first tick was not made
    ASSERT_EQ(CTickScheduler_EnableTickGroup(0), TickResult::Success);
    tick();  // counter 2 on entry: not due, and the missed call is not made up
    EXPECT_EQ(slow.calls.load(), 0);
    tick();  // counter 0 on entry
    EXPECT_EQ(slow.calls.load(), 1);
}

TEST_F(GroupsTest, HandlerInNoGroupIsNeverStoppedByGroups) {
    ASSERT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableTickGroup(1), TickResult::Success);
    tick(2);
    EXPECT_EQ(probe.calls.load(), 2);
}

TEST_F(GroupsTest, DisablingAGroupWithoutMembersSetsItsBitAndLaterHandlersRunUntilAdded) {
    ASSERT_EQ(CTickScheduler_AddGroup(handle, 0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
    EXPECT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 1u);

    Probe later("Later", &log);
    STickHandler* laterHandle = registerProbe(later, 1);
    tick();
    EXPECT_EQ(later.calls.load(), 1);
    ASSERT_EQ(CTickScheduler_AddGroup(laterHandle, 0), TickResult::Success);
    tick();
    EXPECT_EQ(later.calls.load(), 1);
}

TEST_F(GroupsTest, MembershipIsWrittenIntoARecordThatIsNotRegistered) {
    STickHandler* stranger = new STickHandler[1]();
    EXPECT_EQ(CTickScheduler_AddGroup(stranger, 1), TickResult::Success);
    EXPECT_EQ(stranger->groupMask.load(), 2u);
    EXPECT_EQ(CTickScheduler_RemoveGroup(stranger, 1), TickResult::Success);
    EXPECT_EQ(stranger->groupMask.load(), 0u);
    delete[] stranger;
}

TEST_F(GroupsTest, InitializeEnablesBothGroupsAgain) {
    ASSERT_EQ(CTickScheduler_DisableTickGroup(0), TickResult::Success);
    ASSERT_EQ(CTickScheduler_DisableTickGroup(1), TickResult::Success);
    const ETickPriority priority = TICK_PRIORITY_NORMAL;
    ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
    EXPECT_EQ(disabledGroups(), 0u);
}

}  // namespace
}  // namespace scheduler_test
