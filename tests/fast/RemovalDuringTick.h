// Handlers that remove handlers (themselves, their neighbours, any of the
// others) from inside their tick function, through the unlocked unregister
// variant, and a log of who was called on which tick. Shared by the tests
// that run the scenarios on the test double's list and on the reference
// platform's list.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "CTickSchedulerFastModule.h"
#include "TickResultCodes.h"

namespace fast_removal {

using Log = std::vector<std::string>;

/// One registered handler. On its first call it removes the handlers named in
/// `removes`, in that order, and keeps each result.
struct Remover {
    std::string label;
    Log* log = nullptr;
    STickHandler* handle = nullptr;
    std::vector<STickHandler**> removes;
    std::vector<uint32_t> results;
    bool called = false;

    static void onTick(void* context) {
        auto* self = static_cast<Remover*>(context);
        self->log->push_back(self->label);
        if (self->called) {
            return;
        }
        self->called = true;
        for (STickHandler** target : self->removes) {
            self->results.push_back(CTickSchedulerFast_UnregisterTickHandlerFromOnTick(target));
        }
    }
};

/// Handlers H0 .. H(n-1), registered in that order.
class RemoverRow {
public:
    explicit RemoverRow(size_t count) {
        for (size_t index = 0; index < count; ++index) {
            Remover& remover = row.emplace_back();
            remover.label = "H" + std::to_string(index);
            remover.log = &log;
            const ITickReceiver receiver{&remover, &Remover::onTick};
            EXPECT_EQ(CTickSchedulerFast_RegisterTickHandler(&remover.handle, &receiver, remover.label.c_str()),
                      TickResult::Success);
        }
    }

    RemoverRow(const RemoverRow&) = delete;
    RemoverRow& operator=(const RemoverRow&) = delete;

    /// Frees whatever is still registered.
    ~RemoverRow() {
        for (Remover& remover : row) {
            if (remover.handle != nullptr) {
                EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&remover.handle), TickResult::Success);
            }
        }
    }

    /// On its first call, handler `caller` removes `targets`, in that order.
    void when(size_t caller, std::vector<size_t> targets) {
        for (size_t target : targets) {
            row[caller].removes.push_back(&row[target].handle);
        }
    }

    /// The labels called during one tick.
    Log tick() {
        log.clear();
        CTickSchedulerFast_OnTick(nullptr);
        return log;
    }

    /// Every removal succeeded and left the removed handler's handle null.
    void expectRemoved(std::vector<size_t> removed) const {
        for (const Remover& remover : row) {
            EXPECT_EQ(remover.results, std::vector<uint32_t>(remover.removes.size(), TickResult::Success))
                << remover.label << "'s removals";
        }
        for (size_t index : removed) {
            EXPECT_EQ(row[index].handle, nullptr) << row[index].label << " is still registered";
        }
    }

private:
    Log log;
    std::deque<Remover> row;
};

/// One scenario: `handlers` handlers H0 .. H(n-1); on its first call,
/// handler `caller` removes `targets` in that order (for each entry of
/// `removals`). The first tick calls every handler not removed before the walk
/// reaches it, each exactly once; the next tick calls exactly the handlers
/// left, once each, in registration order.
struct RemovalScenario {
    const char* name;
    size_t handlers;
    std::vector<std::pair<size_t, std::vector<size_t>>> removals;
    Log firstTick;
    Log nextTick;
    std::vector<size_t> removed;
    /// The removals leave no element after the handler called last, so the
    /// walk of the first tick ends without one.
    bool walkEndsWithoutElement;
};

inline const std::vector<RemovalScenario>& removalScenarios() {
    static const std::vector<RemovalScenario> scenarios = {
        {"RemovingTheNextHandlerSkipsItAndGoesOn", 4, {{1, {2}}}, {"H0", "H1", "H3"}, {"H0", "H1", "H3"}, {2}, false},
        {"RemovingTheNextHandlerWhenItIsTheLastEndsTheWalk", 3, {{1, {2}}}, {"H0", "H1"}, {"H0", "H1"}, {2}, true},
        {"RemovingTheLastHandlerFromTheFirst", 4, {{0, {3}}}, {"H0", "H1", "H2"}, {"H0", "H1", "H2"}, {3}, false},
        {"RemovingAnEarlierHandlerTakesEffectFromTheNextTick",
         4,
         {{2, {0}}},
         {"H0", "H1", "H2", "H3"},
         {"H1", "H2", "H3"},
         {0},
         false},
        {"RemovingItselfAndThenTheNext", 4, {{1, {1, 2}}}, {"H0", "H1", "H3"}, {"H0", "H3"}, {1, 2}, false},
        {"RemovingTheNextAndThenItself", 4, {{1, {2, 1}}}, {"H0", "H1", "H3"}, {"H0", "H3"}, {1, 2}, false},
        {"RemovingSeveralHandlersInARowAfterItself",
         5,
         {{1, {2, 3}}},
         {"H0", "H1", "H4"},
         {"H0", "H1", "H4"},
         {2, 3},
         false},
        {"RemovingEveryOtherHandlerLeavesOnlyItself",
         5,
         {{2, {0, 1, 3, 4}}},
         {"H0", "H1", "H2"},
         {"H2"},
         {0, 1, 3, 4},
         true},
        {"RemovingAlternateHandlersFromTheFirst",
         6,
         {{0, {1, 3, 5}}},
         {"H0", "H2", "H4"},
         {"H0", "H2", "H4"},
         {1, 3, 5},
         false},
        {"LastHandlerRemovingEveryHandlerItselfIncluded",
         4,
         {{3, {0, 1, 2, 3}}},
         {"H0", "H1", "H2", "H3"},
         {},
         {0, 1, 2, 3},
         false},
        {"FirstHandlerRemovingEveryHandlerItselfIncluded", 4, {{0, {0, 1, 2, 3}}}, {"H0"}, {}, {0, 1, 2, 3}, true},
        {"RemovalsByTwoHandlersInOneTick",
         5,
         {{0, {1}}, {2, {3}}},
         {"H0", "H2", "H4"},
         {"H0", "H2", "H4"},
         {1, 3},
         false},
    };
    return scenarios;
}

/// Runs `scenario`: two ticks and the removals' results.
inline void run(const RemovalScenario& scenario) {
    RemoverRow row(scenario.handlers);
    for (const auto& [caller, targets] : scenario.removals) {
        row.when(caller, targets);
    }
    EXPECT_EQ(row.tick(), scenario.firstTick);
    EXPECT_EQ(row.tick(), scenario.nextTick);
    row.expectRemoved(scenario.removed);
}

/// Shows a scenario by its name in test listings and failures.
inline void PrintTo(const RemovalScenario& scenario, std::ostream* out) { *out << scenario.name; }

/// Names each instance of a parameterised test after its scenario.
inline std::string scenarioName(const ::testing::TestParamInfo<RemovalScenario>& info) { return info.param.name; }

}  // namespace fast_removal
