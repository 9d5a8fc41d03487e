// The grid an oscillator publishes into the record its owner attached: the
// start instant its thread computes every sleep from, published before the
// first tick, a new one with the next generation on every start, the same one
// across freeze and unfreeze, a new period published by the thread itself
// before it sleeps on it. Every tick is checked exactly against it: never
// before its grid point, never two on one grid point. Waits are bounded by
// generous deadlines; nothing here bounds timing.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "OscillatorAttachment.h"
#include "PlatformDouble.h"
#include "PublishedGrid.h"
#include "SynchronizedLog.h"
#include "TickOscillator.h"
#include "ZynSupport/MonotonicClock.h"

namespace {

using zyn_support::monotonicNowNs;

constexpr auto kTickTimeout = std::chrono::seconds(10);

/// What a reader finds in `grid` now.
zyn_ts::GridSnapshot readGrid(const zyn_ts::PublishedGrid& grid) {
    zyn_ts::GridSnapshot snapshot;
    EXPECT_TRUE(grid.read(snapshot)) << "a read gave up although the grid changed at most once during it";
    return snapshot;
}

/// Polls `condition` every millisecond for up to 10 s; true when it held.
template <typename Condition>
bool eventually(Condition condition) {
    const int64_t deadline = monotonicNowNs() + 10 * zyn_support::kNanosecondsPerSecond;
    while (!condition()) {
        if (monotonicNowNs() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Records the instant of every tick and the grid the oscillator had
/// published when the tick came.
class GridWitness {
public:
    explicit GridWitness(const zyn_ts::PublishedGrid& watched) : grid(watched) {}

    ITickReceiver receiver() { return ITickReceiver{this, &GridWitness::onTick}; }

    bool waitForTicks(size_t count) { return seen.waitFor(count, kTickTimeout); }

    std::vector<int64_t> tickInstants() {
        std::vector<int64_t> instants;
        for (const SeenTick& tick : seen.snapshot()) {
            instants.push_back(tick.instant);
        }
        return instants;
    }

    std::vector<zyn_ts::GridSnapshot> gridsSeen() {
        std::vector<zyn_ts::GridSnapshot> grids;
        for (const SeenTick& tick : seen.snapshot()) {
            grids.push_back(tick.grid);
        }
        return grids;
    }

private:
    struct SeenTick {
        int64_t instant;
        zyn_ts::GridSnapshot grid;
    };

    static void onTick(void* context) {
        auto* self = static_cast<GridWitness*>(context);
        const int64_t now = monotonicNowNs();
        self->seen.append(SeenTick{now, readGrid(self->grid)});
    }

    const zyn_ts::PublishedGrid& grid;
    test_support::SynchronizedLog<SeenTick> seen;
};

bool sameGrid(const zyn_ts::GridSnapshot& a, const zyn_ts::GridSnapshot& b) {
    return a.running == b.running && a.generation == b.generation && a.originNs == b.originNs &&
           a.periodNs == b.periodNs;
}

/// The grid point of each instant (the last one at or before it), checked
/// exactly: grid point 1 or later, strictly increasing.
void expectOneTickPerGridPointNeverEarly(const std::vector<int64_t>& instants, int64_t originNs, int64_t periodNs,
                                         int64_t afterPoint = 0) {
    int64_t previous = afterPoint;
    for (const int64_t instant : instants) {
        ASSERT_GE(instant, originNs + periodNs) << "a tick before grid point 1";
        const int64_t point = (instant - originNs) / periodNs;
        EXPECT_GT(point, previous) << "two ticks on grid point " << point;
        previous = point;
    }
}

class PublishedGrid : public ::testing::Test {
protected:
    void SetUp() override {
        platform_double::reset();
        ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
        receiver = witness.receiver();
        ASSERT_EQ(0u, oscillator.registerOnTick(&receiver));
    }
    void TearDown() override { oscillator.stop(); }

    /// Declared first: outlives the oscillator's thread.
    zyn_ts::OscillatorAttachment attachment{&oscillator};
    TickOscillator oscillator;
    GridWitness witness{attachment.grid};
    ITickReceiver receiver{};

    zyn_ts::GridSnapshot published() const { return readGrid(attachment.grid); }
};

TEST_F(PublishedGrid, NothingIsPublishedBeforeTheFirstStart) {
    const zyn_ts::GridSnapshot grid = published();
    EXPECT_FALSE(grid.running);
    EXPECT_EQ(0u, grid.generation);
    EXPECT_EQ(0, grid.originNs);
    EXPECT_EQ(0, grid.periodNs);
}

TEST_F(PublishedGrid, FirstTickAlreadySeesTheRunningGridAnchoredAfterTheStartCall) {
    const int64_t beforeStart = monotonicNowNs();
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(1)) << "STUCK: the ticks did not come within 10 s";
    const zyn_ts::GridSnapshot grid = witness.gridsSeen().front();
    EXPECT_TRUE(grid.running);
    EXPECT_EQ(1u, grid.generation);
    EXPECT_EQ(1000000, grid.periodNs);
    EXPECT_GE(grid.originNs, beforeStart);
    EXPECT_GE(witness.tickInstants().front(), grid.originNs + grid.periodNs);
}

TEST_F(PublishedGrid, EveryTickLiesOnItsOwnGridPointOfThePublishedOrigin) {
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(300)) << "STUCK: the ticks did not come within 10 s";
    oscillator.stop();
    const zyn_ts::GridSnapshot grid = published();
    expectOneTickPerGridPointNeverEarly(witness.tickInstants(), grid.originNs, grid.periodNs);
}

TEST_F(PublishedGrid, RestartPublishesALaterOriginWithTheNextGeneration) {
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(5)) << "STUCK: the ticks did not come within 10 s";
    oscillator.stop();
    const zyn_ts::GridSnapshot first = published();
    EXPECT_FALSE(first.running);
    EXPECT_EQ(1u, first.generation);
    const size_t firstRunTicks = witness.tickInstants().size();

    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(firstRunTicks + 50)) << "STUCK: the ticks did not come within 10 s";
    oscillator.stop();
    const zyn_ts::GridSnapshot second = published();
    EXPECT_EQ(2u, second.generation);
    EXPECT_GT(second.originNs, first.originNs);
    const std::vector<int64_t> all = witness.tickInstants();
    EXPECT_TRUE(sameGrid(witness.gridsSeen()[firstRunTicks], zyn_ts::GridSnapshot{true, 2, second.originNs, 1000000}));
    expectOneTickPerGridPointNeverEarly(std::vector<int64_t>(all.begin() + static_cast<long>(firstRunTicks), all.end()),
                                        second.originNs, second.periodNs);
}

TEST_F(PublishedGrid, UnfreezeResumesOnTheSameOriginWithoutATickOnASkippedPoint) {
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(5)) << "STUCK: the ticks did not come within 10 s";
    const zyn_ts::GridSnapshot before = published();
    oscillator.freeze();
    const size_t frozenAt = witness.tickInstants().size();
    const int64_t frozenSince = monotonicNowNs();
    // The thread keeps sleeping on its grid while frozen.
    while (monotonicNowNs() - frozenSince < 20 * before.periodNs) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(sameGrid(before, published()));
    oscillator.unfreeze();
    ASSERT_TRUE(witness.waitForTicks(frozenAt + 20)) << "STUCK: the ticks did not come within 10 s";
    oscillator.stop();

    const std::vector<zyn_ts::GridSnapshot> grids = witness.gridsSeen();
    for (size_t i = 0; i < grids.size(); ++i) {
        EXPECT_TRUE(sameGrid(grids[i], before)) << "tick " << i;
    }
    expectOneTickPerGridPointNeverEarly(witness.tickInstants(), before.originNs, before.periodNs);
}

TEST_F(PublishedGrid, RepeatedInitializeChangesThePeriodOnTheSameOriginAndGeneration) {
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(3)) << "STUCK: 3 ticks did not come within 10 s";
    const zyn_ts::GridSnapshot oneMs = published();
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGH));
    // The thread publishes the new period itself, before its first sleep on
    // it, so no tick on the new grid comes before the grid says 6 ms.
    ASSERT_TRUE(eventually([&] { return published().periodNs == 6000000; }))
        << "STUCK: the 6 ms period was not published within 10 s";
    const size_t changedAt = witness.tickInstants().size();
    const zyn_ts::GridSnapshot sixMs = published();
    EXPECT_EQ(oneMs.originNs, sixMs.originNs);
    EXPECT_EQ(oneMs.generation, sixMs.generation);
    EXPECT_TRUE(sixMs.running);

    ASSERT_TRUE(witness.waitForTicks(changedAt + 10)) << "STUCK: 10 ticks on 6 ms did not come within 10 s";
    oscillator.stop();
    const std::vector<int64_t> all = witness.tickInstants();
    expectOneTickPerGridPointNeverEarly(std::vector<int64_t>(all.begin() + static_cast<long>(changedAt), all.end()),
                                        sixMs.originNs, sixMs.periodNs);
    const std::vector<zyn_ts::GridSnapshot> grids = witness.gridsSeen();
    for (size_t i = changedAt; i < grids.size(); ++i) {
        EXPECT_EQ(6000000, grids[i].periodNs) << "tick " << i << " after the new period was published";
    }
}

TEST_F(PublishedGrid, StopPublishesNotRunningAndInitializeWhileStoppedKeepsTheLastThreadsGrid) {
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(3)) << "STUCK: 3 ticks did not come within 10 s";
    const zyn_ts::GridSnapshot running = published();
    oscillator.stop();
    const zyn_ts::GridSnapshot stopped = published();
    EXPECT_TRUE(sameGrid(stopped, zyn_ts::GridSnapshot{false, running.generation, running.originNs, 1000000}));

    // Only the oscillator thread writes the grid: with none running, a new
    // delay changes nothing there until the next start.
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGH));
    EXPECT_TRUE(sameGrid(stopped, published()));
}

TEST(PublishedGridAttachment, OscillatorWithoutARecordTicksAndPublishesNothing) {
    platform_double::reset();
    zyn_ts::OscillatorAttachment elsewhere{nullptr};
    TickOscillator oscillator;
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    GridWitness witness(elsewhere.grid);
    ITickReceiver receiver = witness.receiver();
    ASSERT_EQ(0u, oscillator.registerOnTick(&receiver));
    ASSERT_EQ(0u, oscillator.start());
    const bool ticked = witness.waitForTicks(3);
    oscillator.stop();
    ASSERT_TRUE(ticked) << "STUCK: 3 ticks did not come within 10 s";
    EXPECT_EQ(0u, elsewhere.grid.publishedVersion());
    EXPECT_TRUE(platform_double::messagesAt(KIV_TRACE_WARNING).empty());
}

TEST(PublishedGridAttachment, EachOfManyOscillatorsAliveAtOncePublishesIntoItsOwnRecord) {
    // More oscillators running at the same time than any fixed table would
    // hold: each tick function finds its own oscillator's running grid.
    platform_double::reset();
    platform_double::setTraceLevel(0);
    constexpr size_t kOscillators = 64;
    struct Setup {
        zyn_ts::OscillatorAttachment attachment{&oscillator};
        TickOscillator oscillator;
        GridWitness witness{attachment.grid};
        ITickReceiver receiver{};
    };
    std::vector<std::unique_ptr<Setup>> setups;
    const int64_t beforeStart = monotonicNowNs();
    for (size_t i = 0; i < kOscillators; ++i) {
        setups.push_back(std::make_unique<Setup>());
        Setup& setup = *setups.back();
        ASSERT_EQ(0u, setup.oscillator.initialize(TICK_DELAY_6MS, static_cast<ETickPriority>(7)));
        setup.receiver = setup.witness.receiver();
        ASSERT_EQ(0u, setup.oscillator.registerOnTick(&setup.receiver));
        ASSERT_EQ(0u, setup.oscillator.start());
    }
    for (size_t i = 0; i < kOscillators; ++i) {
        ASSERT_TRUE(setups[i]->witness.waitForTicks(2)) << "STUCK: oscillator " << i << " did not tick twice in 10 s";
    }
    for (size_t i = 0; i < kOscillators; ++i) {
        setups[i]->oscillator.stop();
    }
    for (size_t i = 0; i < kOscillators; ++i) {
        const zyn_ts::GridSnapshot seen = setups[i]->witness.gridsSeen().front();
        EXPECT_TRUE(seen.running) << "oscillator " << i;
        EXPECT_EQ(1u, seen.generation) << "oscillator " << i;
        EXPECT_EQ(6000000, seen.periodNs) << "oscillator " << i;
        EXPECT_GE(seen.originNs, beforeStart) << "oscillator " << i;
        const int64_t firstTick = setups[i]->witness.tickInstants().front();
        EXPECT_GE(firstTick, seen.originNs + seen.periodNs) << "oscillator " << i << " saw a grid not its own";
    }
}

TEST(PublishedGridAttachment, OscillatorsMadeOneAfterAnotherEachStartTheirRecordAtGenerationOne) {
    // A new oscillator often takes the address of the one destroyed before
    // it: it publishes into its own new record, not into the old one.
    platform_double::reset();
    for (int i = 0; i < 100; ++i) {
        auto oscillator = std::make_unique<TickOscillator>();
        const zyn_ts::OscillatorAttachment attachment{oscillator.get()};
        ASSERT_EQ(0u, oscillator->initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
        GridWitness witness(attachment.grid);
        ITickReceiver receiver = witness.receiver();
        ASSERT_EQ(0u, oscillator->registerOnTick(&receiver));
        ASSERT_EQ(0u, oscillator->start());
        ASSERT_TRUE(witness.waitForTicks(1)) << "STUCK: the ticks did not come within 10 s";
        oscillator->stop();
        const zyn_ts::GridSnapshot grid = witness.gridsSeen().front();
        ASSERT_TRUE(grid.running) << "oscillator " << i;
        ASSERT_EQ(1u, grid.generation) << "oscillator " << i << " published into a record with an old generation";
    }
}

}  // namespace
