// Handler timing and overrun attribution of the fast scheduler, on a clock
// the test moves: each tick function advances it by the time it is meant to
// take.

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <initializer_list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BoundedWait.h"
#include "FastSchedulerFixture.h"
#include "HandlerFigures.h"
#include "ScriptedClock.h"
#include "SizedRecords.h"
#include "StatisticsLoadState.h"
#include "TickStatistics.h"

namespace fast_test {
namespace {

using test_support::ScriptedClock;
constexpr int64_t kMs = ScriptedClock::kMs;
constexpr int64_t kUs = ScriptedClock::kUs;

/// A fast handler whose every call takes `duration` and runs an optional
/// action afterwards.
struct TimedClient {
    TimedClient(std::string clientName, int64_t callDuration) : name(std::move(clientName)), duration(callDuration) {}

    uint32_t registerHandler() {
        const ITickReceiver receiver{this, &TimedClient::onTick};
        return CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, name.c_str());
    }

    static void onTick(void* context) {
        auto* self = static_cast<TimedClient*>(context);
        ++self->calls;
        ScriptedClock::advance(self->duration);
        if (self->action) {
            self->action(self);
        }
    }

    std::string name;
    int64_t duration;
    STickHandler* handle = nullptr;
    int calls = 0;
    void (*action)(TimedClient*) = nullptr;
};

/// Registers `clients` in that order.
void registerTimed(std::initializer_list<TimedClient*> clients) {
    for (TimedClient* client : clients) {
        ASSERT_EQ(client->registerHandler(), TickResult::Success);
    }
}

STickHandlerStatistics handlerStatistics(const STickHandler* handler) {
    return sized_record::filledBy<STickHandlerStatistics>(
        [handler](STickHandlerStatistics* record) { return CTickSchedulerFast_GetHandlerStatistics(handler, record); });
}

STickSchedulerStatistics schedulerStatistics() {
    return sized_record::filledBy<STickSchedulerStatistics>(&CTickSchedulerFast_GetSchedulerStatistics);
}

class FastStatistics : public FastSchedulerTest {
protected:
    void SetUp() override {
        FastSchedulerTest::SetUp();
        ASSERT_EQ(CTickSchedulerFast_DisableStatistics(), TickResult::Success);
        ASSERT_EQ(CTickSchedulerFast_ResetStatistics(), TickResult::Success);
    }
    void TearDown() override {
        ASSERT_EQ(CTickSchedulerFast_DisableStatistics(), TickResult::Success);
        FastSchedulerTest::TearDown();
    }

    ScriptedClock clock;
};

TEST_F(FastStatistics, AreOffUntilSwitchedOnAndTimeNothing) {
    TimedClient slow("Slow", 2 * kMs);
    ASSERT_EQ(slow.registerHandler(), TickResult::Success);
    tick(3);
    EXPECT_EQ(slow.calls, 3);
    EXPECT_EQ(schedulerStatistics().enabled, 0u);
    EXPECT_EQ(schedulerStatistics().passes, 0u);
    EXPECT_EQ(handlerStatistics(slow.handle).calls, 0u);
    EXPECT_TRUE(messagesOf(kOnTick).empty());
}

TEST_F(FastStatistics, HandlerFiguresAndBudgetCounter) {
    TimedClient probe("Probe", 300 * kUs);
    ASSERT_EQ(probe.registerHandler(), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(250 * kUs), TickResult::Success);
    tick(2);
    probe.duration = 100 * kUs;
    tick();

    EXPECT_EQ(handler_figures::of(handlerStatistics(probe.handle)),
              (handler_figures::Figures{3, 700 * kUs, 100 * kUs, 300 * kUs, 100 * kUs, 2}));
    EXPECT_EQ(schedulerStatistics().passes, 3u);
    EXPECT_EQ(schedulerStatistics().periodNs, 1 * kMs);
}

TEST_F(FastStatistics, DisabledHandlersAreNotTimed) {
    TimedClient probe("Probe", 100 * kUs);
    ASSERT_EQ(probe.registerHandler(), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_DisableTickHandler(probe.handle), TickResult::Success);
    tick(2);
    EXPECT_EQ(handlerStatistics(probe.handle).calls, 0u);
    EXPECT_EQ(schedulerStatistics().passes, 2u);
}

TEST_F(FastStatistics, LongestPassNamesItsLongestHandlerAndOverrunsAreTracedOnceASecond) {
    TimedClient quick("Quick", 200 * kUs);
    TimedClient slow("Slow", 900 * kUs);
    registerTimed({&quick, &slow});
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    platform_double::reset();

    tick(5);  // five 1.1 ms passes
    EXPECT_EQ(messagesOf(kOnTick),
              (std::vector<std::string>{"2:CTickSchedulerFast pass took 1100.000 us, period 1000.000 us; longest tick "
                                        "handler Slow took 900.000 us; 0 earlier overruns not reported"}));
    const STickSchedulerStatistics figures = schedulerStatistics();
    EXPECT_EQ(figures.overruns, 5u);
    EXPECT_EQ(figures.longestPassNs, 1100 * kUs);
    EXPECT_STREQ(figures.longestPassCulprit, "Slow");
    EXPECT_EQ(figures.longestPassCulpritNs, 900 * kUs);

    ScriptedClock::advance(1000 * kMs);
    platform_double::reset();
    tick();
    EXPECT_EQ(messagesOf(kOnTick),
              (std::vector<std::string>{"2:CTickSchedulerFast pass took 1100.000 us, period 1000.000 us; longest tick "
                                        "handler Slow took 900.000 us; 4 earlier overruns not reported"}));
}

TEST_F(FastStatistics, ResetClearsTheFigures) {
    TimedClient slow("Slow", 2 * kMs);
    ASSERT_EQ(slow.registerHandler(), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    tick(2);
    ASSERT_EQ(CTickSchedulerFast_ResetStatistics(), TickResult::Success);
    EXPECT_EQ(handlerStatistics(slow.handle).calls, 0u);
    EXPECT_EQ(handlerStatistics(slow.handle).maxNs, 0);
    EXPECT_EQ(schedulerStatistics().passes, 0u);
    EXPECT_EQ(schedulerStatistics().overruns, 0u);
    EXPECT_STREQ(schedulerStatistics().longestPassCulprit, "");
    EXPECT_EQ(schedulerStatistics().enabled, 1u);
}

TEST_F(FastStatistics, OnlyTheFirstCallsOwnReadingStandsBetweenTheTickAndTheCall) {
    static uint64_t readingsAtTheCall = 0;
    TimedClient first("First", 1 * kMs);
    first.action = [](TimedClient*) { readingsAtTheCall = ScriptedClock::readings(); };
    registerTimed({&first});
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    EXPECT_EQ(ScriptedClock::readingsBefore(readingsAtTheCall, [] { tick(1); }), 1u);
    EXPECT_EQ(schedulerStatistics().passes, 1u);
}

TEST_F(FastStatistics, AHandlerRemovingItselfDuringItsTimedCallIsStillTheCulprit) {
    TimedClient quick("Quick", 100 * kUs);
    TimedClient leaving("Leaving", 3 * kMs);
    registerTimed({&quick, &leaving});
    leaving.action = [](TimedClient* self) {
        EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandlerFromOnTick(&self->handle), TickResult::Success);
    };
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    tick(2);
    EXPECT_EQ(leaving.calls, 1);
    EXPECT_EQ(quick.calls, 2);
    EXPECT_STREQ(schedulerStatistics().longestPassCulprit, "Leaving");
    EXPECT_EQ(schedulerStatistics().longestPassCulpritNs, 3 * kMs);
}

TEST_F(FastStatistics, QueriesRefuseNullTooSmallAndUnknown) {
    TimedClient probe("Probe", 0);
    ASSERT_EQ(probe.registerHandler(), TickResult::Success);
    STickHandlerStatistics record{};
    record.size = sizeof(record) - 1;
    EXPECT_EQ(CTickSchedulerFast_GetHandlerStatistics(probe.handle, &record), TickResult::NullArgument);
    record.size = sizeof(record);
    EXPECT_EQ(CTickSchedulerFast_GetHandlerStatistics(nullptr, &record), TickResult::NullArgument);
    STickSchedulerStatistics schedulerRecord{};
    schedulerRecord.size = 4;
    EXPECT_EQ(CTickSchedulerFast_GetSchedulerStatistics(&schedulerRecord), TickResult::NullArgument);
    STickHandler* const former = probe.handle;
    ASSERT_EQ(CTickSchedulerFast_UnregisterTickHandler(&probe.handle), TickResult::Success);
    EXPECT_EQ(CTickSchedulerFast_GetHandlerStatistics(former, &record), TickResult::UnknownHandler);
}

TEST_F(FastStatistics, TheEnvironmentSwitchesThemOnAtTheFirstInitialization) {
    CTickSchedulerFast_Uninitialize();
    statistics_test::resetStatisticsToLoadState(fastDispatchStatistics, 1 * kMs, fastHandlerSlots);
    ASSERT_EQ(setenv("ZYN_TICK_STATISTICS", "1", 1), 0);
    const uint32_t result = CTickSchedulerFast_Initialize();
    ASSERT_EQ(result, TickResult::Success);
    EXPECT_EQ(schedulerStatistics().enabled, 1u);

    // A later start-up leaves what a client decided meanwhile.
    ASSERT_EQ(CTickSchedulerFast_DisableStatistics(), TickResult::Success);
    CTickSchedulerFast_Uninitialize();
    const uint32_t again = CTickSchedulerFast_Initialize();
    unsetenv("ZYN_TICK_STATISTICS");
    ASSERT_EQ(again, TickResult::Success);
    EXPECT_EQ(schedulerStatistics().enabled, 0u);
}

// With the statistics switched on and off again the dispatch writes and
// returns exactly what it does with them never switched on.
TEST_F(FastStatistics, SwitchedOffAgainTheDispatchTracesWhatItAlwaysDid) {
    Log log;
    RecordingClient a("A", log);
    RecordingClient b("B", log);
    registerInOrder({&a, &b});
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(0), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_DisableStatistics(), TickResult::Success);
    platform_double::reset();
    tick(2);
    EXPECT_EQ(log, (std::vector<std::string>{"A", "B", "A", "B"}));
    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&a.handle), TickResult::Success);
    EXPECT_EQ(messagesOf(kUnregister), (std::vector<std::string>{"5:Tick Handler A unregistered successfully"}));
    EXPECT_EQ(schedulerStatistics().passes, 0u);
}

// Real clock: a client thread reads and resets while another thread runs
// passes; the race detector build checks that nothing is shared unguarded.
TEST_F(FastStatistics, ClientsQueryAndResetWhilePassesRun) {
    zyn_ts::setStatisticsClock(nullptr);
    TimedClient probe("Probe", 0);
    ASSERT_EQ(probe.registerHandler(), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_EnableStatistics(1), TickResult::Success);
    std::atomic<bool> stop{false};
    std::atomic<int> passes{0};
    std::thread ticker([&] {
        while (!stop.load()) {
            tick();
            passes.fetch_add(1);
        }
    });
    const auto deadline = std::chrono::steady_clock::now() + test_support::kStuckAfter;
    for (int round = 0; round < 2000 || passes.load() < 2000; ++round) {
        if (std::chrono::steady_clock::now() > deadline) {
            test_support::abortAsStuck("2000 passes of the ticker thread");
        }
        const STickHandlerStatistics figures = handlerStatistics(probe.handle);
        EXPECT_LE(figures.maxNs, figures.totalNs);
        EXPECT_LE(figures.minNs, figures.maxNs);
        const STickSchedulerStatistics scheduler = schedulerStatistics();
        EXPECT_LE(scheduler.overruns, scheduler.passes);
        if (round % 500 == 499) {
            ASSERT_EQ(CTickSchedulerFast_ResetStatistics(), TickResult::Success);
        }
    }
    stop.store(true);
    ticker.join();
}

}  // namespace
}  // namespace fast_test
