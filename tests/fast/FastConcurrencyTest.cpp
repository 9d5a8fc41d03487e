// The fast scheduler under several threads: clients registering,
// unregistering, enabling and regrouping while ticks run, and concurrent
// group changes. Run under ThreadSanitizer these also prove that no field is
// shared without synchronisation.

#include <array>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "BoundedWait.h"
#include "FastSchedulerFixture.h"
#include "TickModuleIdentity.h"

namespace {

using fast_test::handlersInList;
using fast_test::module;

/// A tick function that counts its calls.
struct Counter {
    std::atomic<uint64_t> calls{0};
    static void onTick(void* context) { static_cast<Counter*>(context)->calls.fetch_add(1, std::memory_order_relaxed); }
    ITickReceiver receiver() { return ITickReceiver{this, &Counter::onTick}; }
};

/// Calls the dispatch from its own thread until told to stop; counts ticks.
/// With a pause it leaves the processor to the other threads between ticks.
class Ticker {
public:
    explicit Ticker(std::chrono::microseconds pause = std::chrono::microseconds(0))
        : thread([this, pause] {
              while (!stopRequested.load()) {
                  CTickSchedulerFast_OnTick(nullptr);
                  ticks.fetch_add(1);
                  if (pause.count() > 0) {
                      std::this_thread::sleep_for(pause);
                  }
              }
          }) {}
    ~Ticker() { stop(); }

    uint64_t stop() {
        stopRequested.store(true);
        if (thread.joinable()) {
            thread.join();
        }
        return ticks.load();
    }

    uint64_t count() const { return ticks.load(); }

private:
    std::atomic<bool> stopRequested{false};
    std::atomic<uint64_t> ticks{0};
    std::thread thread;
};

/// Two threads that each repeat `step` until both have done `rounds` rounds,
/// so that they overlap even when one of them gets the processor late.
template <typename Step>
void runOverlapping(int rounds, Step step) {
    std::array<std::atomic<int>, 2> done{};
    auto body = [&](uint32_t id) {
        while (done[0].load() < rounds || done[1].load() < rounds) {
            step(id);
            done[id].fetch_add(1);
        }
    };
    std::thread first(body, 0u);
    std::thread second(body, 1u);
    first.join();
    second.join();
}

/// Waits until the ticker has delivered `more` further ticks.
void waitForTicks(const Ticker& ticker, uint64_t more) {
    const uint64_t target = ticker.count() + more;
    const auto deadline = std::chrono::steady_clock::now() + test_support::kStuckAfter;
    while (ticker.count() < target) {
        if (std::chrono::steady_clock::now() > deadline) {
            test_support::abortAsStuck("the ticker delivering further ticks");
        }
        std::this_thread::yield();
    }
}

class FastConcurrency : public fast_test::FastSchedulerTest {};

TEST_F(FastConcurrency, ClientsRegisterAndUnregisterWhileTicksRun) {
    constexpr int kClients = 3;
    constexpr int kRounds = 300;
    Counter steady;
    const ITickReceiver steadyReceiver = steady.receiver();
    STickHandler* steadyHandle = nullptr;
    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&steadyHandle, &steadyReceiver, "Steady"), TickResult::Success);
    std::array<Counter, kClients> clientCounters;
    std::array<std::atomic<int>, kClients> failures{};

    uint64_t ticks = 0;
    {
        Ticker ticker;
        std::vector<std::thread> clients;
        for (int c = 0; c < kClients; ++c) {
            clients.emplace_back([&, c] {
                const ITickReceiver receiver = clientCounters[c].receiver();
                for (int round = 0; round < kRounds; ++round) {
                    STickHandler* handle = nullptr;
                    int bad = 0;
                    bad += CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, "Client") != 0;
                    bad += CTickSchedulerFast_AddGroup(handle, static_cast<uint32_t>(round % 2)) != 0;
                    bad += CTickSchedulerFast_DisableTickHandler(handle) != 0;
                    bad += CTickSchedulerFast_EnableTickHandler(handle) != 0;
                    bad += CTickSchedulerFast_UnregisterTickHandler(&handle) != 0;
                    bad += handle != nullptr;
                    failures[c].fetch_add(bad);
                }
            });
        }
        for (std::thread& client : clients) {
            client.join();
        }
        ticks = ticker.stop();
    }

    for (int c = 0; c < kClients; ++c) {
        EXPECT_EQ(failures[c].load(), 0) << "client " << c;
    }
    // Churn around it never made the dispatch skip or repeat a handler.
    EXPECT_EQ(steady.calls.load(), ticks);
    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{steadyHandle});
}

TEST_F(FastConcurrency, HandlersRemovingThemselvesWhileClientsRegister) {
    // Each one-shot handler takes itself out from inside a tick while client
    // threads keep appending and removing handlers behind it. Registration
    // writes the handle only after it has released the mutex, so the record
    // may be called before its registrar knows the handle: a one-shot acts
    // only once its registrar has published the handle.
    struct OneShot {
        STickHandler* handle = nullptr;
        std::atomic<bool> ready{false};
        std::atomic<int> removals{0};
        std::atomic<uint32_t> result{0xFFFFFFFFu};
        static void onTick(void* context) {
            auto* self = static_cast<OneShot*>(context);
            if (!self->ready.load(std::memory_order_acquire)) {
                return;
            }
            self->removals.fetch_add(1);
            self->result.store(CTickSchedulerFast_UnregisterTickHandlerFromOnTick(&self->handle));
        }
    };
    constexpr int kOneShots = 200;
    std::vector<OneShot> oneShots(kOneShots);
    Counter churn;
    std::atomic<int> failures{0};

    {
        Ticker ticker;
        std::thread registrar([&] {
            for (OneShot& oneShot : oneShots) {
                const ITickReceiver receiver{&oneShot, &OneShot::onTick};
                failures.fetch_add(CTickSchedulerFast_RegisterTickHandler(&oneShot.handle, &receiver, "OneShot") != 0);
                oneShot.ready.store(true, std::memory_order_release);
            }
        });
        std::thread client([&] {
            const ITickReceiver receiver = churn.receiver();
            for (int round = 0; round < kOneShots; ++round) {
                STickHandler* handle = nullptr;
                failures.fetch_add(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, "Churn") != 0);
                failures.fetch_add(CTickSchedulerFast_UnregisterTickHandler(&handle) != 0);
            }
        });
        registrar.join();
        client.join();
        // Every one-shot is ready by now: the tick under way may miss some,
        // the one after it reaches them all.
        waitForTicks(ticker, 2);
    }

    EXPECT_EQ(failures.load(), 0);
    for (const OneShot& oneShot : oneShots) {
        EXPECT_EQ(oneShot.removals.load(), 1);
        EXPECT_EQ(oneShot.result.load(), TickResult::Success);
        EXPECT_EQ(oneShot.handle, nullptr);
    }
    EXPECT_TRUE(handlersInList().empty());
}

// Two threads change the same mask, one bit each. Only its own thread writes
// a bit, so right after each change the bit must read as just written: a
// change of the other thread that wrote back a stale copy of the word (a lost
// update) shows as a wrong bit.

TEST_F(FastConcurrency, ConcurrentMembershipChangesLoseNoUpdate) {
    constexpr int kHandlers = 4;
    constexpr int kRounds = 50000;
    std::array<Counter, kHandlers> counters;
    std::array<STickHandler*, kHandlers> handles{};
    for (int h = 0; h < kHandlers; ++h) {
        const ITickReceiver receiver = counters[h].receiver();
        ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&handles[h], &receiver, "Member"), TickResult::Success);
    }
    std::atomic<int> failures{0};
    std::atomic<int> lostUpdates{0};

    {
        Ticker ticker(std::chrono::microseconds(100));
        // Thread g changes only group g.
        runOverlapping(kRounds, [&](uint32_t group) {
            const uint32_t bit = 1u << group;
            for (STickHandler* handle : handles) {
                failures.fetch_add(CTickSchedulerFast_AddGroup(handle, group) != 0);
                lostUpdates.fetch_add((handle->groupMask.load() & bit) == 0);
                failures.fetch_add(CTickSchedulerFast_RemoveGroup(handle, group) != 0);
                lostUpdates.fetch_add((handle->groupMask.load() & bit) != 0);
            }
        });
    }

    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(lostUpdates.load(), 0);
    for (int h = 0; h < kHandlers; ++h) {
        EXPECT_EQ(handles[h]->groupMask.load(), 0u) << "handler " << h;
    }
}

TEST_F(FastConcurrency, ConcurrentGroupSwitchingLosesNoUpdate) {
    constexpr int kRounds = 200000;
    Counter member;
    const ITickReceiver receiver = member.receiver();
    STickHandler* handle = nullptr;
    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, "Member"), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_AddGroup(handle, 0), TickResult::Success);
    std::atomic<int> failures{0};
    std::atomic<int> lostUpdates{0};

    {
        Ticker ticker(std::chrono::microseconds(100));
        // Thread g switches only group g, and leaves it disabled.
        runOverlapping(kRounds, [&](uint32_t group) {
            const uint32_t bit = 1u << group;
            failures.fetch_add(CTickSchedulerFast_EnableTickGroup(group) != 0);
            lostUpdates.fetch_add((module().disabledGroupMask.load() & bit) != 0);
            failures.fetch_add(CTickSchedulerFast_DisableTickGroup(group) != 0);
            lostUpdates.fetch_add((module().disabledGroupMask.load() & bit) == 0);
        });
    }

    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(lostUpdates.load(), 0);
    EXPECT_EQ(module().disabledGroupMask.load(), 0x3u);
    // The dispatch sees the final state on the next tick.
    const uint64_t before = member.calls.load();
    CTickSchedulerFast_OnTick(nullptr);
    EXPECT_EQ(member.calls.load(), before);
}

TEST_F(FastConcurrency, ChangesFromAClientThreadAreSeenByTheNextTick) {
    Counter counter;
    const ITickReceiver receiver = counter.receiver();
    STickHandler* handle = nullptr;
    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, "Switched"), TickResult::Success);
    Ticker ticker;

    for (int round = 0; round < 50; ++round) {
        std::thread([handle] { CTickSchedulerFast_DisableTickHandler(handle); }).join();
        waitForTicks(ticker, 2);  // the tick that may have been under way, then one that must see it
        const uint64_t whileDisabled = counter.calls.load();
        waitForTicks(ticker, 3);
        ASSERT_EQ(counter.calls.load(), whileDisabled) << "round " << round;

        std::thread([handle] { CTickSchedulerFast_EnableTickHandler(handle); }).join();
        waitForTicks(ticker, 2);
        const uint64_t enabledAgain = counter.calls.load();
        waitForTicks(ticker, 3);
        ASSERT_GE(counter.calls.load(), enabledAgain + 2) << "round " << round;
    }
    ticker.stop();
}

TEST_F(FastConcurrency, ClientsChurnWhileTheOscillatorThreadTicks) {
    // The module never starts its oscillator; here the test starts it, as an
    // outside component would, so the real 1 ms thread drives the dispatch.
    ASSERT_EQ(CTickSchedulerFast_OnPhaseActivation(nullptr, TickModule::Phase::Configure), TickResult::Success);
    Counter steady;
    const ITickReceiver steadyReceiver = steady.receiver();
    STickHandler* steadyHandle = nullptr;
    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&steadyHandle, &steadyReceiver, "Steady"), TickResult::Success);
    ASSERT_EQ(module().tickOscillator.start(), TickResult::Success);

    std::atomic<int> failures{0};
    Counter churn;
    std::vector<std::thread> clients;
    for (int c = 0; c < 2; ++c) {
        clients.emplace_back([&] {
            const ITickReceiver receiver = churn.receiver();
            for (int round = 0; round < 200; ++round) {
                STickHandler* handle = nullptr;
                failures.fetch_add(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, "Churn") != 0);
                failures.fetch_add(CTickSchedulerFast_AddGroup(handle, 1) != 0);
                failures.fetch_add(CTickSchedulerFast_DisableTickGroup(1) != 0);
                failures.fetch_add(CTickSchedulerFast_EnableTickGroup(1) != 0);
                failures.fetch_add(CTickSchedulerFast_UnregisterTickHandler(&handle) != 0);
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    // Generous: only proves that ticks arrive at all.
    (void)test_support::eventually([&] { return steady.calls.load() >= 3; }, std::chrono::seconds(10));

    ASSERT_EQ(CTickSchedulerFast_OnPhaseActivation(nullptr, TickModule::Phase::ShutDown), TickResult::Success);
    EXPECT_FALSE(module().tickOscillator.isRunning());
    const uint64_t afterStop = steady.calls.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));

    EXPECT_EQ(failures.load(), 0);
    EXPECT_GE(afterStop, 3u);
    EXPECT_EQ(steady.calls.load(), afterStop);
    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{steadyHandle});
}

}  // namespace
