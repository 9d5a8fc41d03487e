// Removal of any handler from inside a tick function, with the fast module on
// the reference platform's list service. Ticks are delivered by calling the
// module's dispatch directly; the module's list and mutex work zero-filled,
// so no start-up is needed. The sanitizer builds prove that no removal
// leaves the walk on freed memory.

#include "RemovalDuringTick.h"

namespace {

TEST(FastRemovalOnHostList, RemovingTheNextHandlerSkipsItAndGoesOn) {
    fast_removal::removingTheNextHandlerSkipsItAndGoesOn();
}

TEST(FastRemovalOnHostList, RemovingTheNextHandlerWhenItIsTheLastEndsTheWalk) {
    fast_removal::removingTheNextHandlerWhenItIsTheLastEndsTheWalk();
}

TEST(FastRemovalOnHostList, RemovingTheLastHandlerFromTheFirst) { fast_removal::removingTheLastHandlerFromTheFirst(); }

TEST(FastRemovalOnHostList, RemovingAnEarlierHandlerTakesEffectFromTheNextTick) {
    fast_removal::removingAnEarlierHandlerTakesEffectFromTheNextTick();
}

TEST(FastRemovalOnHostList, RemovingItselfAndThenTheNext) { fast_removal::removingItselfAndThenTheNext(); }

TEST(FastRemovalOnHostList, RemovingTheNextAndThenItself) { fast_removal::removingTheNextAndThenItself(); }

TEST(FastRemovalOnHostList, RemovingSeveralHandlersInARowAfterItself) {
    fast_removal::removingSeveralHandlersInARowAfterItself();
}

TEST(FastRemovalOnHostList, RemovingEveryOtherHandlerLeavesOnlyItself) {
    fast_removal::removingEveryOtherHandlerLeavesOnlyItself();
}

TEST(FastRemovalOnHostList, RemovingAlternateHandlersFromTheFirst) {
    fast_removal::removingAlternateHandlersFromTheFirst();
}

TEST(FastRemovalOnHostList, LastHandlerRemovingEveryHandlerItselfIncluded) {
    fast_removal::lastHandlerRemovingEveryHandlerItselfIncluded();
}

TEST(FastRemovalOnHostList, FirstHandlerRemovingEveryHandlerItselfIncluded) {
    fast_removal::firstHandlerRemovingEveryHandlerItselfIncluded();
}

TEST(FastRemovalOnHostList, RemovalsByTwoHandlersInOneTick) { fast_removal::removalsByTwoHandlersInOneTick(); }

}  // namespace
