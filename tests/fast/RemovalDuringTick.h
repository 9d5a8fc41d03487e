// Handlers that remove handlers (themselves, their neighbours, any of the
// others) from inside their tick function, through the unlocked unregister
// variant, and a log of who was called on which tick. Shared by the tests
// that run the scenarios on the test double's list and on the reference
// platform's list.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <string>
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

// Each scenario: the first tick calls every handler not removed before the
// walk reaches it, each exactly once; the next ticks call exactly the
// handlers left, once each, in registration order.

inline void removingTheNextHandlerSkipsItAndGoesOn() {
    RemoverRow row(4);
    row.when(1, {2});
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H3"}));
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H3"}));
    row.expectRemoved({2});
}

inline void removingTheNextHandlerWhenItIsTheLastEndsTheWalk() {
    RemoverRow row(3);
    row.when(1, {2});
    EXPECT_EQ(row.tick(), (Log{"H0", "H1"}));
    EXPECT_EQ(row.tick(), (Log{"H0", "H1"}));
    row.expectRemoved({2});
}

inline void removingTheLastHandlerFromTheFirst() {
    RemoverRow row(4);
    row.when(0, {3});
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H2"}));
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H2"}));
    row.expectRemoved({3});
}

inline void removingAnEarlierHandlerTakesEffectFromTheNextTick() {
    RemoverRow row(4);
    row.when(2, {0});
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H2", "H3"}));
    EXPECT_EQ(row.tick(), (Log{"H1", "H2", "H3"}));
    row.expectRemoved({0});
}

inline void removingItselfAndThenTheNext() {
    RemoverRow row(4);
    row.when(1, {1, 2});
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H3"}));
    EXPECT_EQ(row.tick(), (Log{"H0", "H3"}));
    row.expectRemoved({1, 2});
}

inline void removingTheNextAndThenItself() {
    RemoverRow row(4);
    row.when(1, {2, 1});
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H3"}));
    EXPECT_EQ(row.tick(), (Log{"H0", "H3"}));
    row.expectRemoved({1, 2});
}

inline void removingSeveralHandlersInARowAfterItself() {
    RemoverRow row(5);
    row.when(1, {2, 3});
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H4"}));
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H4"}));
    row.expectRemoved({2, 3});
}

inline void removingEveryOtherHandlerLeavesOnlyItself() {
    RemoverRow row(5);
    row.when(2, {0, 1, 3, 4});
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H2"}));
    EXPECT_EQ(row.tick(), (Log{"H2"}));
    row.expectRemoved({0, 1, 3, 4});
}

inline void removingAlternateHandlersFromTheFirst() {
    RemoverRow row(6);
    row.when(0, {1, 3, 5});
    EXPECT_EQ(row.tick(), (Log{"H0", "H2", "H4"}));
    EXPECT_EQ(row.tick(), (Log{"H0", "H2", "H4"}));
    row.expectRemoved({1, 3, 5});
}

inline void lastHandlerRemovingEveryHandlerItselfIncluded() {
    RemoverRow row(4);
    row.when(3, {0, 1, 2, 3});
    EXPECT_EQ(row.tick(), (Log{"H0", "H1", "H2", "H3"}));
    EXPECT_EQ(row.tick(), Log{});
    row.expectRemoved({0, 1, 2, 3});
}

inline void firstHandlerRemovingEveryHandlerItselfIncluded() {
    RemoverRow row(4);
    row.when(0, {0, 1, 2, 3});
    EXPECT_EQ(row.tick(), Log{"H0"});
    EXPECT_EQ(row.tick(), Log{});
    row.expectRemoved({0, 1, 2, 3});
}

inline void removalsByTwoHandlersInOneTick() {
    RemoverRow row(5);
    row.when(0, {1});
    row.when(2, {3});
    EXPECT_EQ(row.tick(), (Log{"H0", "H2", "H4"}));
    EXPECT_EQ(row.tick(), (Log{"H0", "H2", "H4"}));
    row.expectRemoved({1, 3});
}

}  // namespace fast_removal
