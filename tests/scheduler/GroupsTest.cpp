// Tick groups: membership, switching whole groups off and on, and the checks
// of the four group operations.

#include <ostream>
#include <string>
#include <vector>

#include "SchedulerFixture.h"

namespace scheduler_test {
namespace {

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

// ---- Membership and whole groups ---------------------------------------------
// Adding and removing set and clear only the group's bit of the handler's
// mask, silently, whether or not the bit was already so. Switching a whole
// group off and on sets and clears only its bit of the disabled mask, and
// traces its text every time, even when it changes nothing.

enum class GroupOperation { Add, Remove, Enable, Disable };

/// One group operation (on the fixture's handler where it takes one), and both
/// masks right after it.
struct GroupStep {
    GroupOperation operation;
    uint32_t group;
    uint32_t memberMaskAfter;
    uint32_t disabledMaskAfter;
};

struct GroupCase {
    const char* name;
    std::vector<GroupStep> steps;
    std::vector<Line> lines;
};

uint32_t apply(const GroupStep& step, STickHandler* handle) {
    switch (step.operation) {
        case GroupOperation::Add:
            return CTickScheduler_AddGroup(handle, step.group);
        case GroupOperation::Remove:
            return CTickScheduler_RemoveGroup(handle, step.group);
        case GroupOperation::Enable:
            return CTickScheduler_EnableTickGroup(step.group);
        case GroupOperation::Disable:
            return CTickScheduler_DisableTickGroup(step.group);
    }
    return TickResult::Failure;
}

constexpr GroupOperation kAddTo = GroupOperation::Add;
constexpr GroupOperation kRemoveFrom = GroupOperation::Remove;
constexpr GroupOperation kSwitchOn = GroupOperation::Enable;
constexpr GroupOperation kSwitchOff = GroupOperation::Disable;

const Line kEnabledZero{5, kEnable, "Enabled tick group, Enabled tick group channel 1(0)"};
const Line kEnabledOne{5, kEnable, "Enabled tick group, Enabled tick group channel 2(1)"};
const Line kDisabledZero{5, kDisable, "Disabled tick group Disabled tick group channel 1(0)"};
const Line kDisabledOne{5, kDisable, "Disabled tick group Disabled tick group channel 2(1)"};

const std::vector<GroupCase> kGroupCases = {
    {"AddGroupSetsTheBitsOfGroupsZeroAndOne", {{kAddTo, 0, 1u, 0u}, {kAddTo, 1, 3u, 0u}, {kAddTo, 1, 3u, 0u}}, {}},
    {"RemoveGroupClearsOnlyItsBit",
     {{kAddTo, 0, 1u, 0u}, {kAddTo, 1, 3u, 0u}, {kRemoveFrom, 0, 2u, 0u}, {kRemoveFrom, 0, 2u, 0u}},
     {}},
    {"EnablingGroupZeroTracesItsDoubledText", {{kSwitchOn, 0, 0u, 0u}}, {kEnabledZero}},
    {"EnablingGroupOneTracesChannelTwo", {{kSwitchOn, 1, 0u, 0u}}, {kEnabledOne}},
    {"DisablingGroupsSetsTheirBitsAndTracesTheirTexts",
     {{kSwitchOff, 1, 0u, 2u}, {kSwitchOff, 0, 0u, 3u}},
     {kDisabledOne, kDisabledZero}},
    {"EnablingClearsOnlyItsBit",
     {{kSwitchOff, 0, 0u, 1u}, {kSwitchOff, 1, 0u, 3u}, {kSwitchOn, 0, 0u, 2u}},
     {kDisabledZero, kDisabledOne, kEnabledZero}},
    {"EnablingAnEnabledGroupTracesAgain", {{kSwitchOn, 1, 0u, 0u}, {kSwitchOn, 1, 0u, 0u}}, {kEnabledOne, kEnabledOne}},
    {"DisablingADisabledGroupTracesAgain",
     {{kSwitchOff, 0, 0u, 1u}, {kSwitchOff, 0, 0u, 1u}},
     {kDisabledZero, kDisabledZero}},
};

/// Shows a case by its name in test listings and failures.
void PrintTo(const GroupCase& groupCase, std::ostream* out) { *out << groupCase.name; }

class GroupOperationTest : public GroupsTest, public ::testing::WithParamInterface<GroupCase> {};

TEST_P(GroupOperationTest, SetsExactlyItsBitsAndTracesWhatItDoes) {
    for (const GroupStep& step : GetParam().steps) {
        EXPECT_EQ(apply(step, handle), TickResult::Success) << "group " << step.group;
        EXPECT_EQ(handle->groupMask.load(), step.memberMaskAfter) << "group " << step.group;
        EXPECT_EQ(disabledGroups(), step.disabledMaskAfter) << "group " << step.group;
    }
    EXPECT_EQ(messages(), GetParam().lines);
    EXPECT_TRUE(entries().empty());
}

INSTANTIATE_TEST_SUITE_P(Groups, GroupOperationTest, ::testing::ValuesIn(kGroupCases),
                         [](const ::testing::TestParamInfo<GroupCase>& info) { return info.param.name; });

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
