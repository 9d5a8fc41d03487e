// Removal of any handler from inside a tick function, with the fast module on
// the reference platform's list service. Ticks are delivered by calling the
// module's dispatch directly; the module's list and mutex work zero-filled,
// so no start-up is needed. The sanitizer builds prove that no removal
// leaves the walk on freed memory.

#include "RemovalDuringTick.h"

namespace {

class FastRemovalOnHostList : public ::testing::TestWithParam<fast_removal::RemovalScenario> {};

TEST_P(FastRemovalOnHostList, CallsEachHandlerLeftOnce) { fast_removal::run(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Removal, FastRemovalOnHostList, ::testing::ValuesIn(fast_removal::removalScenarios()),
                         fast_removal::scenarioName);

}  // namespace
