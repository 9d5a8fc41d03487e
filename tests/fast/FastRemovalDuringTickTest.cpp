// Removal of any handler from inside a tick function, on the test double's
// list: who is called, what is left in the list, and what the walk traces.
// When tick functions remove every handler after the one called, the list has
// no element left to deliver and the walk ends with its level-1 message, once,
// on that tick only; any other removal leaves the trace quiet.

#include <string>
#include <vector>

#include "FastSchedulerFixture.h"
#include "RemovalDuringTick.h"

namespace fast_test {
namespace {

const std::string kNoElementMessage = "1:CTickSchedulerFast_OnTick failed in receiving tick handler";

class FastRemovalDuringTick : public FastSchedulerTest {};

class FastRemovalScenario : public FastSchedulerTest,
                            public ::testing::WithParamInterface<fast_removal::RemovalScenario> {};

TEST_P(FastRemovalScenario, CallsEachHandlerLeftOnceAndTracesOnlyAWalkEndingWithoutElement) {
    fast_removal::run(GetParam());

    EXPECT_EQ(messagesOf(kOnTick),
              std::vector<std::string>(GetParam().walkEndsWithoutElement ? 1 : 0, kNoElementMessage));
}

INSTANTIATE_TEST_SUITE_P(Removal, FastRemovalScenario, ::testing::ValuesIn(fast_removal::removalScenarios()),
                         fast_removal::scenarioName);

TEST_F(FastRemovalDuringTick, ListHoldsExactlyTheHandlersLeftAfterTheTick) {
    fast_removal::RemoverRow row(4);
    row.when(1, {2, 1});
    row.tick();
    EXPECT_EQ(handlersInList().size(), 2u);
    EXPECT_EQ(module().handlerList.count, 2u);
    EXPECT_TRUE(messagesOf(kOnTick).empty());
}

}  // namespace
}  // namespace fast_test
