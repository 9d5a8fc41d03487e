// The tick grid queries of both modules: what they answer before a start,
// while ticking, across stop and start, across freeze and unfreeze, from a
// tick function and from another thread, and for records they cannot fill.
// Waits for ticks are bounded by generous timeouts; nothing here bounds
// timing.

#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "CTickSchedulerFastModule.h"
#include "SchedulerFixture.h"
#include "SizedRecords.h"
#include "SynchronizedLog.h"
#include "TickGrid.h"
#include "ZynSupport/MonotonicClock.h"

namespace scheduler_test {
namespace {

constexpr int64_t kSixMsNs = 6 * zyn_support::kNanosecondsPerMillisecond;
constexpr int64_t kOneMsNs = zyn_support::kNanosecondsPerMillisecond;
constexpr auto kTickTimeout = std::chrono::seconds(10);

using zyn_support::monotonicNowNs;

STickGrid emptyGrid() {
    STickGrid grid{};
    grid.size = sizeof(STickGrid);
    return grid;
}

bool sameGrid(const STickGrid& a, const STickGrid& b) {
    return a.running == b.running && a.generation == b.generation && a.originNs == b.originNs &&
           a.periodNs == b.periodNs;
}

/// What one tick function saw: when it ran and what the query answered there.
struct SeenTick {
    int64_t nowNs = 0;
    uint32_t result = 0;
    STickGrid grid{};
};

/// A tick function that queries the grid on every call and keeps the answers.
class GridQueryingTickFunction {
public:
    using Query = uint32_t (*)(STickGrid*);

    explicit GridQueryingTickFunction(Query gridQuery) : query(gridQuery) {}

    ITickReceiver receiver() { return ITickReceiver{this, &GridQueryingTickFunction::onTick}; }

    /// Waits until `count` ticks have been seen in all; false on timeout.
    bool waitForTicks(size_t count) { return seen.waitFor(count, kTickTimeout); }

    std::vector<SeenTick> ticks() { return seen.snapshot(); }

private:
    static void onTick(void* context) {
        auto* self = static_cast<GridQueryingTickFunction*>(context);
        SeenTick tick;
        tick.nowNs = monotonicNowNs();
        tick.grid = emptyGrid();
        tick.result = self->query(&tick.grid);
        self->seen.append(tick);
    }

    Query query;
    test_support::SynchronizedLog<SeenTick> seen;
};

class TickGridQueryTest : public SchedulerTest {
protected:
    void TearDown() override {
        (void)tickScheduler.tickOscillator.stop();
        (void)tickSchedulerFastModule.tickOscillator.stop();
        SchedulerTest::TearDown();
    }

    /// Initialises the module, registers `function` on every tick and runs
    /// the configure and start phases, which start the 6 ms oscillator.
    void startScheduler() {
        ETickPriority priority = TICK_PRIORITY_NORMAL;
        ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
        STickHandler* handle = nullptr;
        const ITickReceiver receiver = function.receiver();
        ASSERT_EQ(CTickScheduler_RegisterTickHandler(&handle, &receiver, 1, "grid-query"), TickResult::Success);
        ASSERT_NO_FATAL_FAILURE(runStartUpPhases());
    }

    /// Outlives TearDown, which stops the oscillator that calls it.
    GridQueryingTickFunction function{&CTickScheduler_GetTickGrid};
};

/// The grid point of every tick (the last one at or before it) is 1 or
/// later, and no two ticks share a grid point.
void expectEveryTickOnItsOwnGridPoint(const std::vector<SeenTick>& ticks, const STickGrid& grid) {
    int64_t previousPoint = 0;
    for (const SeenTick& tick : ticks) {
        const int64_t point = (tick.nowNs - grid.originNs) / grid.periodNs;
        EXPECT_GE(point, 1) << "a tick at or before grid point 0";
        EXPECT_GT(point, previousPoint) << "two ticks on grid point " << point;
        previousPoint = point;
    }
}

TEST_F(TickGridQueryTest, NullRecordIsRefusedByBothModules) {
    EXPECT_EQ(CTickScheduler_GetTickGrid(nullptr), TickResult::NullArgument);
    EXPECT_EQ(CTickSchedulerFast_GetTickGrid(nullptr), TickResult::NullArgument);
}

TEST_F(TickGridQueryTest, RecordSmallerThanTheGridIsRefusedAndLeftUntouched) {
    STickGrid grid{};
    grid.size = sizeof(STickGrid) - 1;
    grid.running = 77;
    grid.generation = 77;
    grid.originNs = 77;
    grid.periodNs = 77;
    EXPECT_EQ(CTickScheduler_GetTickGrid(&grid), TickResult::NullArgument);
    EXPECT_EQ(CTickSchedulerFast_GetTickGrid(&grid), TickResult::NullArgument);
    EXPECT_EQ(grid.running, 77u);
    EXPECT_EQ(grid.generation, 77u);
    EXPECT_EQ(grid.originNs, 77);
    EXPECT_EQ(grid.periodNs, 77);
}

TEST_F(TickGridQueryTest, LargerRecordIsFilledUpToTheGridAndTheRestLeftAlone) {
    sized_record::Grown<STickGrid> grown = sized_record::grown<STickGrid>(0x5a5a5a5a5a5a5a5aULL);
    grown.known.running = 77;
    EXPECT_EQ(CTickScheduler_GetTickGrid(&grown.known), TickResult::GridNotRunning);
    EXPECT_EQ(grown.known.running, 0u);
    EXPECT_EQ(grown.known.size, sizeof(grown));
    EXPECT_EQ(grown.later, 0x5a5a5a5a5a5a5a5aULL);
}

TEST_F(TickGridQueryTest, BeforeTheFirstStartTheRecordSaysNotRunningAndGenerationZero) {
    STickGrid grid = emptyGrid();
    grid.running = 77;
    grid.generation = 77;
    EXPECT_EQ(CTickScheduler_GetTickGrid(&grid), TickResult::GridNotRunning);
    EXPECT_FALSE(TickResult::isError(TickResult::GridNotRunning));
    EXPECT_EQ(grid.running, 0u);
    EXPECT_EQ(grid.generation, 0u);
    EXPECT_EQ(grid.originNs, 0);
    EXPECT_EQ(grid.periodNs, 0);
}

TEST_F(TickGridQueryTest, TickFunctionFindsTheRunningSixMsGridItIsCalledOn) {
    const int64_t beforeStart = monotonicNowNs();
    startScheduler();
    ASSERT_TRUE(function.waitForTicks(20)) << "the oscillator delivered no ticks";
    (void)tickScheduler.tickOscillator.stop();

    const std::vector<SeenTick> ticks = function.ticks();
    const STickGrid grid = ticks.front().grid;
    EXPECT_EQ(grid.running, 1u);
    EXPECT_EQ(grid.generation, 1u);
    EXPECT_EQ(grid.periodNs, kSixMsNs);
    EXPECT_GE(grid.originNs, beforeStart);
    for (const SeenTick& tick : ticks) {
        EXPECT_EQ(tick.result, TickResult::Success);
        EXPECT_TRUE(sameGrid(tick.grid, grid)) << "the grid changed under a running oscillator";
    }
    expectEveryTickOnItsOwnGridPoint(ticks, grid);
}

TEST_F(TickGridQueryTest, AnotherThreadReadsTheGridTheTickFunctionSaw) {
    startScheduler();
    ASSERT_TRUE(function.waitForTicks(1));

    STickGrid fromClient = emptyGrid();
    uint32_t clientResult = 0;
    std::thread client([&] { clientResult = CTickScheduler_GetTickGrid(&fromClient); });
    client.join();
    EXPECT_EQ(clientResult, TickResult::Success);
    EXPECT_TRUE(sameGrid(fromClient, function.ticks().front().grid));
}

TEST_F(TickGridQueryTest, StopKeepsTheLastGridAndStartPublishesANewOriginAndTheNextGeneration) {
    startScheduler();
    ASSERT_TRUE(function.waitForTicks(1));
    const STickGrid first = function.ticks().front().grid;

    (void)tickScheduler.tickOscillator.stop();
    STickGrid stopped = emptyGrid();
    EXPECT_EQ(CTickScheduler_GetTickGrid(&stopped), TickResult::GridNotRunning);
    EXPECT_EQ(stopped.running, 0u);
    EXPECT_EQ(stopped.generation, first.generation);
    EXPECT_EQ(stopped.originNs, first.originNs);
    EXPECT_EQ(stopped.periodNs, first.periodNs);

    const size_t ticksBefore = function.ticks().size();
    ASSERT_EQ(tickScheduler.tickOscillator.start(), TickResult::Success);
    ASSERT_TRUE(function.waitForTicks(ticksBefore + 1));
    (void)tickScheduler.tickOscillator.stop();
    const STickGrid second = function.ticks()[ticksBefore].grid;
    EXPECT_EQ(second.running, 1u);
    EXPECT_EQ(second.generation, first.generation + 1);
    EXPECT_GT(second.originNs, first.originNs);
    EXPECT_EQ(second.periodNs, kSixMsNs);
}

TEST_F(TickGridQueryTest, FreezeAndUnfreezeKeepTheOriginAndTheGeneration) {
    startScheduler();
    ASSERT_TRUE(function.waitForTicks(1));
    const STickGrid before = function.ticks().front().grid;

    ASSERT_EQ(CTickScheduler_Freeze(), TickResult::Success);
    STickGrid frozen = emptyGrid();
    EXPECT_EQ(CTickScheduler_GetTickGrid(&frozen), TickResult::Success);
    EXPECT_TRUE(sameGrid(frozen, before)) << "a frozen oscillator keeps running on its grid";
    const size_t ticksWhileFrozen = function.ticks().size();

    ASSERT_EQ(CTickScheduler_Unfreeze(), TickResult::Success);
    ASSERT_TRUE(function.waitForTicks(ticksWhileFrozen + 3));
    (void)tickScheduler.tickOscillator.stop();
    const std::vector<SeenTick> ticks = function.ticks();
    for (size_t i = ticksWhileFrozen; i < ticks.size(); ++i) {
        EXPECT_TRUE(sameGrid(ticks[i].grid, before)) << "tick " << i << " after unfreeze";
    }
    expectEveryTickOnItsOwnGridPoint(ticks, before);
}

TEST_F(TickGridQueryTest, FastModuleConfiguredButNotStartedSaysNotRunning) {
    ASSERT_EQ(tickSchedulerFastModule.tickOscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH),
              TickResult::Success);
    STickGrid grid = emptyGrid();
    EXPECT_EQ(CTickSchedulerFast_GetTickGrid(&grid), TickResult::GridNotRunning);
    EXPECT_EQ(grid.running, 0u);
}

TEST_F(TickGridQueryTest, FastModuleOscillatorOnceStartedPublishesItsOneMsGrid) {
    TickOscillator& oscillator = tickSchedulerFastModule.tickOscillator;
    ASSERT_EQ(oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH), TickResult::Success);
    STickGrid before = emptyGrid();
    (void)CTickSchedulerFast_GetTickGrid(&before);

    GridQueryingTickFunction fastFunction(&CTickSchedulerFast_GetTickGrid);
    ITickReceiver receiver = fastFunction.receiver();
    ASSERT_EQ(oscillator.registerOnTick(&receiver), TickResult::Success);
    ASSERT_EQ(oscillator.start(), TickResult::Success);
    const bool ticked = fastFunction.waitForTicks(20);
    (void)oscillator.stop();
    (void)oscillator.registerOnTick(nullptr);
    ASSERT_TRUE(ticked);

    const std::vector<SeenTick> ticks = fastFunction.ticks();
    const STickGrid grid = ticks.front().grid;
    EXPECT_EQ(ticks.front().result, TickResult::Success);
    EXPECT_EQ(grid.running, 1u);
    EXPECT_EQ(grid.periodNs, kOneMsNs);
    EXPECT_EQ(grid.generation, before.generation + 1);
    expectEveryTickOnItsOwnGridPoint(ticks, grid);

    STickGrid scheduler = emptyGrid();
    EXPECT_EQ(CTickScheduler_GetTickGrid(&scheduler), TickResult::GridNotRunning)
        << "each module answers for its own oscillator";
}

}  // namespace
}  // namespace scheduler_test
