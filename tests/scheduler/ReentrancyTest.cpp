// Registering, unregistering and re-prioritising handlers from inside a tick
// function: the running pass keeps walking the handlers it started with, a
// removed handler is not called after its removal, and the changed list
// applies from the next pass. The address sanitizer build proves that no
// freed record is touched.

#include <deque>
#include <stdexcept>
#include <string>
#include <vector>

#include "SchedulerFixture.h"

namespace scheduler_test {
namespace {

using Calls = std::vector<std::string>;
using Handles = std::vector<STickHandler*>;

class ReentrancyTest : public SchedulerTest {
protected:
    /// Registers probes named A, B, C, ... with interval 1.
    Handles registerNamed(const std::vector<std::string>& names) {
        Handles handles;
        for (const std::string& name : names) {
            probes.emplace_back(name, &log);
            handles.push_back(registerProbe(probes.back(), 1));
        }
        return handles;
    }
    Probe& probe(size_t index) { return probes[index]; }

    std::deque<Probe> probes;
};

TEST_F(ReentrancyTest, HandlerRegisteredDuringAPassIsFirstCalledInTheNextPass) {
    Handles h = registerNamed({"A", "B"});
    Probe fresh("Fresh", &log);
    STickHandler* freshHandle = nullptr;
    probe(0).action = [&] {
        if (freshHandle == nullptr) {
            const ITickReceiver receiver = fresh.receiver();
            EXPECT_EQ(CTickScheduler_RegisterTickHandler(&freshHandle, &receiver, 1, "Fresh"), TickResult::Success);
        }
    };
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "B"}));
    EXPECT_EQ(handlerList(), (Handles{h[0], h[1], freshHandle}));
    // Not counted in the pass it was registered in.
    EXPECT_EQ(freshHandle->currentInterval.load(), 0u);
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "B", "Fresh"}));
}

TEST_F(ReentrancyTest, ManyRegistrationsDuringAPassThatGrowTheListAreSafe) {
    Handles h = registerNamed({"A", "B", "C"});
    std::deque<Probe> added;
    Handles addedHandles;
    probe(0).action = [&] {
        if (!addedHandles.empty()) {
            return;
        }
        for (int i = 0; i < 100; ++i) {
            added.emplace_back("N" + std::to_string(i), nullptr);
            addedHandles.push_back(registerProbe(added.back(), 1));
        }
    };
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "B", "C"}));
    EXPECT_EQ(handlerList().size(), 103u);
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "B", "C"}));  // the added ones do not log
    for (const Probe& p : added) {
        EXPECT_EQ(p.calls.load(), 1) << p.name;
    }
    // The pass copy has grown with the list, at the end of the pass.
    EXPECT_GE(tickScheduler.passHandlers.capacity(), tickScheduler.tickHandlers.capacity());
}

TEST_F(ReentrancyTest, HandlerUnregisteringItselfIsFreedAtTheEndOfThePass) {
    Handles h = registerNamed({"A", "B", "C"});
    STickHandler* own = h[1];
    STickHandler* ownAtEndOfCall = h[1];
    size_t retiredDuringPass = 0;
    probe(1).action = [&] {
        EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&own), TickResult::Success);
        ownAtEndOfCall = own;
        std::lock_guard<std::mutex> lock(tickScheduler.tickMutex);
        retiredDuringPass = tickScheduler.retiredHandlers.size();
    };
    platform_double::clearTraces();
    tick();
    EXPECT_EQ(ownAtEndOfCall, nullptr);  // the caller's handle is cleared at once
    EXPECT_EQ(retiredDuringPass, 1u);
    EXPECT_TRUE(tickScheduler.retiredHandlers.empty());
    EXPECT_EQ(log.take(), (Calls{"A", "B", "C"}));
    EXPECT_EQ(handlerList(), (Handles{h[0], h[2]}));
    // The trace is written at the call, while the record still exists.
    EXPECT_EQ(
        messages(),
        (std::vector<Line>{{5, "CTickScheduler_UnregisterTickHandler", "Tick Handler B unregistered successfully"}}));
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "C"}));
}

TEST_F(ReentrancyTest, HandlerRemovedBeforeItsTurnIsNotCalledAndTheOthersStillRunOnce) {
    Handles h = registerNamed({"A", "B", "C", "D"});
    STickHandler* b = h[1];
    probe(0).action = [&] {
        if (b != nullptr) {
            EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&b), TickResult::Success);
        }
    };
    tick();
    // C is not passed over, as it would be if the pass walked the shifted list.
    EXPECT_EQ(log.take(), (Calls{"A", "C", "D"}));
    EXPECT_EQ(handlerList(), (Handles{h[0], h[2], h[3]}));
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "C", "D"}));
}

TEST_F(ReentrancyTest, RemovingAnEarlierHandlerLeavesTheLaterCountersAdvancedExactlyOnce) {
    Handles h = registerNamed({"A", "B", "C", "D"});
    // Intervals of 3 make a double or a missing advance visible in the counters.
    for (STickHandler* handle : h) {
        handle->tickInterval = 3;
    }
    STickHandler* a = h[0];
    probe(1).action = [&] {
        if (a != nullptr) {
            EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&a), TickResult::Success);
        }
    };
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "B", "C", "D"}));
    for (size_t i = 1; i < h.size(); ++i) {
        EXPECT_EQ(h[i]->currentInterval.load(), 1u) << "handler " << i;
    }
}

TEST_F(ReentrancyTest, UnregisteringEveryHandlerDuringAPassEndsWithAnEmptyList) {
    Handles h = registerNamed({"A", "B", "C"});
    Handles victims = h;
    probe(1).action = [&] {
        for (STickHandler*& victim : victims) {
            EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&victim), TickResult::Success);
        }
    };
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "B"}));
    EXPECT_TRUE(handlerList().empty());
    EXPECT_TRUE(tickScheduler.retiredHandlers.empty());
    tick();
    EXPECT_TRUE(log.take().empty());
}

TEST_F(ReentrancyTest, HandlerRegisteredAndUnregisteredInTheSamePassIsFreed) {
    registerNamed({"A"});
    Probe brief("Brief", &log);
    bool done = false;
    probe(0).action = [&] {
        if (done) {
            return;
        }
        done = true;
        STickHandler* handle = registerProbe(brief, 1);
        EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&handle), TickResult::Success);
        EXPECT_EQ(handle, nullptr);
    };
    tick(2);
    EXPECT_EQ(brief.calls.load(), 0);
    EXPECT_EQ(handlerList().size(), 1u);
    EXPECT_TRUE(tickScheduler.retiredHandlers.empty());
}

TEST_F(ReentrancyTest, RecordRemovedInThePassIsNotFoundByALaterPriorityChange) {
    Handles h = registerNamed({"A", "B", "C"});
    STickHandler* b = h[1];
    STickHandler* copyOfB = b;  // the copy a client kept
    uint32_t priorityResult = 0;
    probe(0).action = [&] {
        if (b == nullptr) {
            return;
        }
        EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&b), TickResult::Success);
    };
    probe(2).action = [&] {
        if (copyOfB != nullptr) {
            priorityResult = CTickScheduler_SetTickPriority(copyOfB, 1);
            copyOfB = nullptr;
        }
    };
    tick();
    EXPECT_EQ(priorityResult, TickResult::Failure);
    EXPECT_EQ(handlerList(), (Handles{h[0], h[2]}));
}

TEST_F(ReentrancyTest, NewPriorityOrderAppliesFromTheNextPass) {
    Handles h = registerNamed({"A", "B", "C", "D"});
    bool moved = false;
    probe(1).action = [&] {
        if (!moved) {
            moved = true;
            // D to the front, A to the back.
            EXPECT_EQ(CTickScheduler_SetTickPriority(h[3], 1), TickResult::Success);
            EXPECT_EQ(CTickScheduler_SetTickPriority(h[0], 9), TickResult::Success);
        }
    };
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "B", "C", "D"}));
    EXPECT_EQ(handlerList(), (Handles{h[3], h[1], h[2], h[0]}));
    tick();
    EXPECT_EQ(log.take(), (Calls{"D", "B", "C", "A"}));
}

TEST_F(ReentrancyTest, ReprioritisedHandlersAdvanceTheirCountersExactlyOnce) {
    Handles h = registerNamed({"A", "B", "C", "D"});
    for (STickHandler* handle : h) {
        handle->tickInterval = 5;
    }
    probe(1).action = [&] {
        EXPECT_EQ(CTickScheduler_SetTickPriority(h[3], -1), TickResult::Success);
        EXPECT_EQ(CTickScheduler_SetTickPriority(h[0], 8), TickResult::Success);
        EXPECT_EQ(CTickScheduler_SetTickPriority(h[1], 3), TickResult::Success);
    };
    tick();
    for (STickHandler* handle : h) {
        EXPECT_EQ(handle->currentInterval.load(), 1u) << handle->name;
    }
    EXPECT_EQ(log.take(), (Calls{"A", "B", "C", "D"}));
}

TEST_F(ReentrancyTest, HandlerUnregisteringItselfWhileThrowingIsTracedAndFreed) {
    Handles h = registerNamed({"A", "B"});
    STickHandler* own = h[0];
    probe(0).action = [&] {
        EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&own), TickResult::Success);
        throw std::runtime_error("leaving");
    };
    platform_double::clearTraces();
    tick();
    EXPECT_EQ(log.take(), (Calls{"A", "B"}));
    // The name is read from the record, which outlives the pass it was removed in.
    EXPECT_EQ(messages(), (std::vector<Line>{
                              {5, "CTickScheduler_UnregisterTickHandler", "Tick Handler A unregistered successfully"},
                              {1, "CTickScheduler_OnTick", "Failed to execute TickHandler A. Runtime error: leaving"},
                          }));
    EXPECT_EQ(handlerList(), (Handles{h[1]}));
}

}  // namespace
}  // namespace scheduler_test
