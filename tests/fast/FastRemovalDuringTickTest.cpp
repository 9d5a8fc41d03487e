// Removal of any handler from inside a tick function, on the test double's
// list: who is called, what is left in the list, and what the walk traces.
// When tick functions remove every handler after the one called, the list has
// no element left to deliver and the walk ends with its level-1 message, once,
// on that tick only; any other removal leaves the trace quiet.

#include <string>
#include <vector>

#include "FastSchedulerFixture.h"
#include "RemovalDuringTick.h"

namespace {

using fast_test::messagesOf;

const std::string kNoElementMessage = "1:CTickSchedulerFast_OnTick failed in receiving tick handler";

class FastRemovalDuringTick : public fast_test::FastSchedulerTest {
protected:
    void TearDown() override {
        EXPECT_EQ(messagesOf("CTickSchedulerFast_OnTick"),
                  std::vector<std::string>(walksEndingWithoutElement, kNoElementMessage));
        fast_test::FastSchedulerTest::TearDown();
    }

    /// Ticks on which the removals left nothing after the handler called last.
    size_t walksEndingWithoutElement = 0;
};

TEST_F(FastRemovalDuringTick, RemovingTheNextHandlerSkipsItAndGoesOn) {
    fast_removal::removingTheNextHandlerSkipsItAndGoesOn();
}

TEST_F(FastRemovalDuringTick, RemovingTheNextHandlerWhenItIsTheLastEndsTheWalk) {
    walksEndingWithoutElement = 1;
    fast_removal::removingTheNextHandlerWhenItIsTheLastEndsTheWalk();
}

TEST_F(FastRemovalDuringTick, RemovingTheLastHandlerFromTheFirst) {
    fast_removal::removingTheLastHandlerFromTheFirst();
}

TEST_F(FastRemovalDuringTick, RemovingAnEarlierHandlerTakesEffectFromTheNextTick) {
    fast_removal::removingAnEarlierHandlerTakesEffectFromTheNextTick();
}

TEST_F(FastRemovalDuringTick, RemovingItselfAndThenTheNext) { fast_removal::removingItselfAndThenTheNext(); }

TEST_F(FastRemovalDuringTick, RemovingTheNextAndThenItself) { fast_removal::removingTheNextAndThenItself(); }

TEST_F(FastRemovalDuringTick, RemovingSeveralHandlersInARowAfterItself) {
    fast_removal::removingSeveralHandlersInARowAfterItself();
}

TEST_F(FastRemovalDuringTick, RemovingEveryOtherHandlerLeavesOnlyItself) {
    walksEndingWithoutElement = 1;
    fast_removal::removingEveryOtherHandlerLeavesOnlyItself();
}

TEST_F(FastRemovalDuringTick, RemovingAlternateHandlersFromTheFirst) {
    fast_removal::removingAlternateHandlersFromTheFirst();
}

TEST_F(FastRemovalDuringTick, LastHandlerRemovingEveryHandlerItselfIncluded) {
    fast_removal::lastHandlerRemovingEveryHandlerItselfIncluded();
}

TEST_F(FastRemovalDuringTick, FirstHandlerRemovingEveryHandlerItselfIncluded) {
    walksEndingWithoutElement = 1;
    fast_removal::firstHandlerRemovingEveryHandlerItselfIncluded();
}

TEST_F(FastRemovalDuringTick, RemovalsByTwoHandlersInOneTick) { fast_removal::removalsByTwoHandlersInOneTick(); }

TEST_F(FastRemovalDuringTick, ListHoldsExactlyTheHandlersLeftAfterTheTick) {
    fast_removal::RemoverRow row(4);
    row.when(1, {2, 1});
    row.tick();
    EXPECT_EQ(fast_test::handlersInList().size(), 2u);
    EXPECT_EQ(fast_test::module().handlerList.count, 2u);
}

}  // namespace
