// The tick grid queries of both modules: what they answer before a start,
// while ticking, across stop and start, across freeze and unfreeze, from a
// tick function and from another thread, beside many other oscillators, while
// the delay keeps changing, and for records they cannot fill. Waits are
// bounded by generous deadlines; the only duration asserted is a hang
// detector far above any real read.

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "BoundedWait.h"
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

/// A tick function that reads its module's grid on every tick and keeps what
/// a torn, foreign or hanging read would show. Only the tick thread writes the
/// plain fields; the test reads them after the thread was joined.
class GridReadWatch {
public:
    using Query = uint32_t (*)(STickGrid*);

    explicit GridReadWatch(Query gridQuery) : query(gridQuery) {}

    ITickReceiver receiver() { return ITickReceiver{this, &GridReadWatch::onTick}; }

    size_t readsSoFar() const { return reads.load(std::memory_order_acquire); }

    Query query;
    std::atomic<size_t> reads{0};
    STickGrid first{};
    int64_t longestReadNs = 0;
    size_t oneMsReads = 0;
    size_t sixMsReads = 0;
    size_t inconsistentReads = 0;
    STickGrid firstInconsistent{};
    uint32_t firstInconsistentResult = 0;

private:
    static void onTick(void* context) {
        auto* self = static_cast<GridReadWatch*>(context);
        STickGrid grid = emptyGrid();
        const int64_t before = monotonicNowNs();
        const uint32_t result = self->query(&grid);
        const int64_t took = monotonicNowNs() - before;
        self->longestReadNs = std::max(self->longestReadNs, took);
        if (self->reads.load(std::memory_order_relaxed) == 0) {
            self->first = grid;
        }
        const bool knownPeriod = grid.periodNs == kOneMsNs || grid.periodNs == kSixMsNs;
        const bool sameThread = grid.originNs == self->first.originNs && grid.generation == self->first.generation;
        if (result != TickResult::Success || grid.running != 1u || !knownPeriod || !sameThread) {
            if (self->inconsistentReads++ == 0) {
                self->firstInconsistent = grid;
                self->firstInconsistentResult = result;
            }
        }
        self->oneMsReads += grid.periodNs == kOneMsNs ? 1 : 0;
        self->sixMsReads += grid.periodNs == kSixMsNs ? 1 : 0;
        self->reads.fetch_add(1, std::memory_order_release);
    }
};

class TickGridQueryTest : public SchedulerTest {
protected:
    void TearDown() override {
        (void)tickScheduler.tickOscillator.stop();
        (void)tickSchedulerFastModule.tickOscillator.stop();
        (void)tickSchedulerFastModule.tickOscillator.registerOnTick(nullptr);
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

    /// Outlive TearDown, which stops the oscillators that call them.
    GridQueryingTickFunction function{&CTickScheduler_GetTickGrid};
    GridQueryingTickFunction fastFunction{&CTickSchedulerFast_GetTickGrid};
    GridReadWatch readWatch{&CTickSchedulerFast_GetTickGrid};
    ITickReceiver fastReceiver{};
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

/// The oscillator threads that have begun their loop: each writes its
/// starting line right after it read its start instant.
size_t oscillatorLoopsStarted() {
    size_t started = 0;
    for (const platform_double::TraceRecord& record : platform_double::tracesOf("run")) {
        started += (!record.entry && record.level == KIV_TRACE_INFO) ? 1 : 0;
    }
    return started;
}

/// Every answer a module's tick function got describes that module's running
/// grid: its own period, and an origin no older than its own start.
void expectOwnRunningGrid(const std::vector<SeenTick>& ticks, int64_t periodNs, int64_t startedAfterNs) {
    for (const SeenTick& tick : ticks) {
        EXPECT_EQ(tick.result, TickResult::Success);
        EXPECT_EQ(tick.grid.running, 1u);
        EXPECT_EQ(tick.grid.periodNs, periodNs);
        EXPECT_GE(tick.grid.originNs, startedAfterNs) << "a grid older than the module's own start";
    }
}

TEST_F(TickGridQueryTest, BothModulesAnswerForTheirOwnGridsWhileAHundredOtherOscillatorsRun) {
    // Oscillators a platform makes of its own, all running before the
    // modules start: none of them takes anything the modules' grids need.
    constexpr size_t kOtherOscillators = 100;
    const ETickPriority unmappedPriority = static_cast<ETickPriority>(7);
    std::vector<std::unique_ptr<TickOscillator>> others;
    for (size_t i = 0; i < kOtherOscillators; ++i) {
        others.push_back(std::make_unique<TickOscillator>());
        ASSERT_EQ(others.back()->initialize(TICK_DELAY_6MS, unmappedPriority), TickResult::Success);
        ASSERT_EQ(others.back()->start(), TickResult::Success) << "oscillator " << i;
    }
    ASSERT_TRUE(test_support::eventually([&] { return oscillatorLoopsStarted() >= kOtherOscillators; },
                                         std::chrono::seconds(10)))
        << "STUCK: only " << oscillatorLoopsStarted() << " of " << kOtherOscillators
        << " other oscillator threads began their loop within 10 s";

    const int64_t beforeStart = monotonicNowNs();
    ASSERT_NO_FATAL_FAILURE(startScheduler());
    TickOscillator& fast = tickSchedulerFastModule.tickOscillator;
    ASSERT_EQ(fast.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH), TickResult::Success);
    fastReceiver = fastFunction.receiver();
    ASSERT_EQ(fast.registerOnTick(&fastReceiver), TickResult::Success);
    ASSERT_EQ(fast.start(), TickResult::Success);
    ASSERT_TRUE(function.waitForTicks(5)) << "STUCK: CTickScheduler's tick function was not called 5 times in 10 s";
    ASSERT_TRUE(fastFunction.waitForTicks(5))
        << "STUCK: CTickSchedulerFast's tick function was not called 5 times in 10 s";

    STickGrid scheduler = emptyGrid();
    STickGrid fastGrid = emptyGrid();
    EXPECT_EQ(CTickScheduler_GetTickGrid(&scheduler), TickResult::Success);
    EXPECT_EQ(CTickSchedulerFast_GetTickGrid(&fastGrid), TickResult::Success);
    (void)fast.stop();
    (void)tickScheduler.tickOscillator.stop();

    expectOwnRunningGrid({SeenTick{0, TickResult::Success, scheduler}}, kSixMsNs, beforeStart);
    expectOwnRunningGrid({SeenTick{0, TickResult::Success, fastGrid}}, kOneMsNs, beforeStart);
    expectOwnRunningGrid(function.ticks(), kSixMsNs, beforeStart);
    expectOwnRunningGrid(fastFunction.ticks(), kOneMsNs, beforeStart);
    std::vector<Line> warnings;
    for (const Line& line : messages()) {
        if (line.level == static_cast<uint32_t>(KIV_TRACE_WARNING)) {
            warnings.push_back(line);
        }
    }
    EXPECT_TRUE(warnings.empty()) << warnings.size() << " warnings, the first " << warnings.front();
}

/// The first CPU the process may run on, to put two threads on the same one.
int firstAllowedCpu() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0) {
        return -1;
    }
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &allowed)) {
            return cpu;
        }
    }
    return -1;
}

bool pinToCpu(pthread_t thread, int cpu) {
    if (cpu < 0) {
        return false;
    }
    cpu_set_t only;
    CPU_ZERO(&only);
    CPU_SET(cpu, &only);
    return pthread_setaffinity_np(thread, sizeof(only), &only) == 0;
}

/// A normal (SCHED_OTHER) thread that re-initialises the oscillator with 1 and
/// 6 ms in turn until it is told to stop; joined on destruction.
class DelayFlipper {
public:
    DelayFlipper(TickOscillator& flipped, int cpu) : oscillator(flipped) {
        worker = std::thread([this] {
            bool oneMs = true;
            while (!stopRequested.load(std::memory_order_relaxed)) {
                (void)oscillator.initialize(oneMs ? TICK_DELAY_1MS : TICK_DELAY_6MS, TICK_PRIORITY_HIGH);
                oneMs = !oneMs;
                flips.fetch_add(1, std::memory_order_relaxed);
            }
        });
        pinned = pinToCpu(worker.native_handle(), cpu);
    }
    ~DelayFlipper() {
        stopRequested.store(true, std::memory_order_relaxed);
        worker.join();
    }
    DelayFlipper(const DelayFlipper&) = delete;
    DelayFlipper& operator=(const DelayFlipper&) = delete;

    bool pinned = false;
    std::atomic<uint64_t> flips{0};

private:
    TickOscillator& oscillator;
    std::atomic<bool> stopRequested{false};
    std::thread worker;
};

TEST_F(TickGridQueryTest, RealTimeTickFunctionReadsAConsistentGridPromptlyWhileTheDelayKeepsChanging) {
    // The tick thread at SCHED_RR 98 and a normal thread that keeps changing
    // the delay share one CPU, so the tick thread pre-empts the other one at
    // any point of its initialize: no read may wait for it to go on.
    platform_double::setTraceLevel(0);
    TickOscillator& oscillator = tickSchedulerFastModule.tickOscillator;
    ASSERT_EQ(oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH), TickResult::Success);
    fastReceiver = readWatch.receiver();
    ASSERT_EQ(oscillator.registerOnTick(&fastReceiver), TickResult::Success);
    ASSERT_EQ(oscillator.start(), TickResult::Success);
    const int cpu = firstAllowedCpu();
    sched_param realTime{};
    realTime.sched_priority = 98;
    const bool realTimeGranted = pthread_setschedparam(oscillator.nativeHandle(), SCHED_RR, &realTime) == 0;
    const bool oscillatorPinned = pinToCpu(oscillator.nativeHandle(), cpu);

    constexpr size_t kReads = 600;
    {
        const DelayFlipper flipper(oscillator, cpu);
        const bool enoughReads =
            test_support::eventually([&] { return readWatch.readsSoFar() >= kReads; }, std::chrono::seconds(20));
        ASSERT_TRUE(enoughReads) << "STUCK: the tick function read the grid only " << readWatch.readsSoFar()
                                 << " times in 20 s while the delay changed " << flipper.flips.load() << " times";
        EXPECT_GT(flipper.flips.load(), 0u);
        if (!flipper.pinned || !oscillatorPinned) {
            GTEST_LOG_(INFO) << "threads not pinned to one CPU: the pre-emption is left to chance";
        }
    }
    (void)oscillator.stop();

    EXPECT_EQ(readWatch.inconsistentReads, 0u)
        << "first: result " << readWatch.firstInconsistentResult << ", running " << readWatch.firstInconsistent.running
        << ", generation " << readWatch.firstInconsistent.generation << " (first read " << readWatch.first.generation
        << "), origin " << readWatch.firstInconsistent.originNs << " (first read " << readWatch.first.originNs
        << "), period " << readWatch.firstInconsistent.periodNs;
    EXPECT_EQ(readWatch.first.running, 1u);
    EXPECT_GT(readWatch.oneMsReads, 0u) << "the 1 ms delay never reached the grid";
    EXPECT_GT(readWatch.sixMsReads, 0u) << "the 6 ms delay never reached the grid";
    if (realTimeGranted) {
        // Not a speed bound: a read that waits for a pre-empted normal thread
        // lasts until the kernel throttles real-time threads, near a second.
        EXPECT_LT(readWatch.longestReadNs, 100 * kOneMsNs) << "a read from a real-time tick function hung";
    } else {
        GTEST_LOG_(INFO) << "SCHED_RR refused: a normal-priority tick function may wait, its read time is not judged";
    }
}

}  // namespace
}  // namespace scheduler_test
