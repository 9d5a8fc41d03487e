// Several client threads register, unregister, re-prioritise, enable and
// group handlers for a few seconds while a tick thread runs passes back to
// back, and a tick function keeps changing the list from inside the passes.
// Afterwards the scheduler's invariants are checked. Run under the thread
// sanitizer, this also proves the locking free of data races.

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "SchedulerFixture.h"

namespace scheduler_test {
namespace {

constexpr int kClientThreads = 4;
constexpr int kSlotsPerClient = 6;
constexpr std::chrono::seconds kRunTime{2};

struct Shared {
    std::atomic<uint64_t> callsAfterRemoval{0};
    std::atomic<uint64_t> passSeenUnderTickLock{0};
    std::atomic<uint64_t> unexpectedResults{0};
    std::atomic<uint64_t> calls{0};
};

/// One handler slot. A client thread owns its slots: only it registers,
/// changes and unregisters their handlers.
struct Slot {
    Shared* shared = nullptr;
    std::atomic<bool> live{false};
    STickHandler* handle = nullptr;

    ITickReceiver receiver() { return ITickReceiver{this, &Slot::onTick}; }

    static void onTick(void* context) {
        auto* slot = static_cast<Slot*>(context);
        slot->shared->calls.fetch_add(1, std::memory_order_relaxed);
        if (!slot->live.load()) {
            slot->shared->callsAfterRemoval.fetch_add(1);
        }
    }
};

void expectResult(Shared& shared, uint32_t result, uint32_t expected) {
    if (result != expected) {
        shared.unexpectedResults.fetch_add(1);
    }
}

void registerSlot(Shared& shared, Slot& slot, uint32_t interval) {
    // Live before the call: the first pass may come before the call returns.
    slot.live.store(true);
    const ITickReceiver receiver = slot.receiver();
    expectResult(shared, CTickScheduler_RegisterTickHandler(&slot.handle, &receiver, interval, "stress"),
                 TickResult::Success);
}

void unregisterSlot(Shared& shared, Slot& slot) {
    expectResult(shared, CTickScheduler_UnregisterTickHandler(&slot.handle), TickResult::Success);
    // Once the call has returned no pass may call the handler any more.
    slot.live.store(false);
}

/// One random operation of a client thread on one of its slots.
void clientStep(Shared& shared, Slot& slot, std::minstd_rand& random) {
    const uint32_t choice = random() % 12;
    if (slot.handle == nullptr || choice < 2) {
        if (slot.handle == nullptr) {
            registerSlot(shared, slot, random() % 4);
        } else {
            unregisterSlot(shared, slot);
        }
        return;
    }
    STickHandler* const handle = slot.handle;
    const uint32_t group = random() % 2;
    switch (choice) {
        case 2:
        case 3:
            expectResult(shared, CTickScheduler_SetTickPriority(handle, static_cast<int32_t>(random() % 7) - 3),
                         TickResult::Success);
            break;
        case 4:
            expectResult(shared, CTickScheduler_DisableTickHandler(handle), TickResult::Success);
            break;
        case 5:
            expectResult(shared, CTickScheduler_EnableTickHandler(handle), TickResult::Success);
            break;
        case 6:
            expectResult(shared, CTickScheduler_AddGroup(handle, group), TickResult::Success);
            break;
        case 7:
            expectResult(shared, CTickScheduler_RemoveGroup(handle, group), TickResult::Success);
            break;
        case 8: {
            const uint32_t offset = random() % 4;
            const uint32_t result = CTickScheduler_SetStartOffset(handle, offset);
            expectResult(shared, result, offset < handle->tickInterval ? TickResult::Success : TickResult::OutOfRange);
            break;
        }
        case 9:
            expectResult(
                shared,
                random() % 2 == 0 ? CTickScheduler_DisableTickGroup(group) : CTickScheduler_EnableTickGroup(group),
                TickResult::Success);
            break;
        case 10:
            expectResult(shared, CTickScheduler_Freeze(), TickResult::Success);
            expectResult(shared, CTickScheduler_Unfreeze(), TickResult::Success);
            break;
        default: {
            // A client that holds the tick lock never sees a pass under way.
            std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
            if (tickScheduler.inTick) {
                shared.passSeenUnderTickLock.fetch_add(1);
            }
            break;
        }
    }
}

/// The tick function that changes the list from inside every pass: it
/// replaces a temporary handler and moves itself by priority.
struct Churn {
    Shared* shared = nullptr;
    Slot temporary;
    STickHandler* self = nullptr;
    std::minstd_rand random{7};

    static void onTick(void* context) {
        auto* churn = static_cast<Churn*>(context);
        Shared& shared = *churn->shared;
        if (churn->temporary.handle != nullptr) {
            unregisterSlot(shared, churn->temporary);
        }
        registerSlot(shared, churn->temporary, 1);
        const int32_t priority = static_cast<int32_t>(churn->random() % 5) - 2;
        expectResult(shared, CTickScheduler_SetTickPriority(churn->self, priority), TickResult::Success);
    }
};

class StressTest : public SchedulerTest {};

TEST_F(StressTest, ConcurrentClientsAndReentrantChangesKeepTheSchedulerConsistent) {
    // Errors only: the success messages of a few hundred thousand calls would
    // pile up in the double.
    platform_double::setTraceLevel(2);
    Shared shared;
    std::array<std::array<Slot, kSlotsPerClient>, kClientThreads> slots;
    for (auto& clientSlots : slots) {
        for (Slot& slot : clientSlots) {
            slot.shared = &shared;
        }
    }
    Churn churn;
    churn.shared = &shared;
    churn.temporary.shared = &shared;
    const ITickReceiver churnReceiver{&churn, &Churn::onTick};
    ASSERT_EQ(CTickScheduler_RegisterTickHandler(&churn.self, &churnReceiver, 1, "churn"), TickResult::Success);

    std::atomic<bool> stop{false};
    std::atomic<uint64_t> passes{0};
    // Stands in for the oscillator thread, ticking back to back so that
    // passes and client calls overlap as often as possible.
    std::thread ticker([&] {
        while (!stop.load()) {
            tick();
            passes.fetch_add(1, std::memory_order_relaxed);
        }
    });
    std::vector<std::thread> clients;
    std::atomic<uint64_t> steps{0};
    for (int c = 0; c < kClientThreads; ++c) {
        clients.emplace_back([&, c] {
            std::minstd_rand random(static_cast<unsigned>(c + 1));
            while (!stop.load()) {
                Slot& slot = slots[static_cast<size_t>(c)][random() % kSlotsPerClient];
                clientStep(shared, slot, random);
                steps.fetch_add(1, std::memory_order_relaxed);
            }
        });
    }
    const auto deadline = std::chrono::steady_clock::now() + kRunTime;
    while (std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    stop.store(true);
    for (std::thread& client : clients) {
        client.join();
    }
    ticker.join();

    EXPECT_EQ(shared.callsAfterRemoval.load(), 0u);
    EXPECT_EQ(shared.passSeenUnderTickLock.load(), 0u);
    EXPECT_EQ(shared.unexpectedResults.load(), 0u);
    EXPECT_GT(passes.load(), 0u);
    EXPECT_GT(steps.load(), 0u);
    EXPECT_GT(shared.calls.load(), 0u);
    EXPECT_TRUE(messages().empty()) << messages().front();

    // The list holds exactly the handlers that are registered, once each.
    std::set<STickHandler*> expected{churn.self, churn.temporary.handle};
    for (auto& clientSlots : slots) {
        for (Slot& slot : clientSlots) {
            if (slot.handle != nullptr) {
                expected.insert(slot.handle);
            }
        }
    }
    const std::vector<STickHandler*> list = handlerList();
    const std::set<STickHandler*> listed(list.begin(), list.end());
    EXPECT_EQ(listed.size(), list.size()) << "a handler is listed twice";
    EXPECT_EQ(listed, expected);
    EXPECT_FALSE(tickScheduler.inTick);
    EXPECT_TRUE(tickScheduler.retiredHandlers.empty());
    EXPECT_FALSE(tickScheduler.tickOscillator.isFrozen());
    EXPECT_GE(tickScheduler.passHandlers.capacity(), tickScheduler.tickHandlers.capacity());
    for (STickHandler* handler : list) {
        EXPECT_LT(handler->currentInterval.load(), std::max(handler->tickInterval, 1u));
        EXPECT_EQ(handler->groupMask.load() & ~3u, 0u);
        EXPECT_LE(handler->enabled.load(), 1u);
    }
}

}  // namespace
}  // namespace scheduler_test
