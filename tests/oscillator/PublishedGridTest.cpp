// The grid an oscillator publishes for its owners: the start instant its
// thread computes every sleep from, published before the first tick, a new
// one with the next generation on every start, the same one across freeze
// and unfreeze. Every tick is checked exactly against it: never before its
// grid point, never two on one grid point. Waits are bounded by generous
// timeouts; nothing here bounds timing.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "PlatformDouble.h"
#include "PublishedGrid.h"
#include "SynchronizedLog.h"
#include "TickOscillator.h"
#include "ZynSupport/MonotonicClock.h"

namespace {

using zyn_support::monotonicNowNs;

constexpr auto kTickTimeout = std::chrono::seconds(10);

/// Records the instant of every tick and the grid the oscillator had
/// published when the tick came.
class GridWitness {
public:
    explicit GridWitness(const TickOscillator& watched) : oscillator(watched) {}

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
        self->seen.append(SeenTick{now, zyn_ts::readGrid(self->oscillator)});
    }

    const TickOscillator& oscillator;
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

    TickOscillator oscillator;
    GridWitness witness{oscillator};
    ITickReceiver receiver{};
};

TEST_F(PublishedGrid, NothingIsPublishedBeforeTheFirstStart) {
    const zyn_ts::GridSnapshot grid = zyn_ts::readGrid(oscillator);
    EXPECT_FALSE(grid.running);
    EXPECT_EQ(0u, grid.generation);
    EXPECT_EQ(0, grid.originNs);
    EXPECT_EQ(0, grid.periodNs);
}

TEST_F(PublishedGrid, FirstTickAlreadySeesTheRunningGridAnchoredAfterTheStartCall) {
    const int64_t beforeStart = monotonicNowNs();
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(1));
    const zyn_ts::GridSnapshot grid = witness.gridsSeen().front();
    EXPECT_TRUE(grid.running);
    EXPECT_EQ(1u, grid.generation);
    EXPECT_EQ(1000000, grid.periodNs);
    EXPECT_GE(grid.originNs, beforeStart);
    EXPECT_GE(witness.tickInstants().front(), grid.originNs + grid.periodNs);
}

TEST_F(PublishedGrid, EveryTickLiesOnItsOwnGridPointOfThePublishedOrigin) {
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(300));
    oscillator.stop();
    const zyn_ts::GridSnapshot grid = zyn_ts::readGrid(oscillator);
    expectOneTickPerGridPointNeverEarly(witness.tickInstants(), grid.originNs, grid.periodNs);
}

TEST_F(PublishedGrid, RestartPublishesALaterOriginWithTheNextGeneration) {
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(5));
    oscillator.stop();
    const zyn_ts::GridSnapshot first = zyn_ts::readGrid(oscillator);
    EXPECT_FALSE(first.running);
    EXPECT_EQ(1u, first.generation);
    const size_t firstRunTicks = witness.tickInstants().size();

    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(firstRunTicks + 50));
    oscillator.stop();
    const zyn_ts::GridSnapshot second = zyn_ts::readGrid(oscillator);
    EXPECT_EQ(2u, second.generation);
    EXPECT_GT(second.originNs, first.originNs);
    const std::vector<int64_t> all = witness.tickInstants();
    EXPECT_TRUE(sameGrid(witness.gridsSeen()[firstRunTicks], zyn_ts::GridSnapshot{true, 2, second.originNs, 1000000}));
    expectOneTickPerGridPointNeverEarly(std::vector<int64_t>(all.begin() + static_cast<long>(firstRunTicks), all.end()),
                                        second.originNs, second.periodNs);
}

TEST_F(PublishedGrid, UnfreezeResumesOnTheSameOriginWithoutATickOnASkippedPoint) {
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(5));
    const zyn_ts::GridSnapshot before = zyn_ts::readGrid(oscillator);
    oscillator.freeze();
    const size_t frozenAt = witness.tickInstants().size();
    const int64_t frozenSince = monotonicNowNs();
    // The thread keeps sleeping on its grid while frozen.
    while (monotonicNowNs() - frozenSince < 20 * before.periodNs) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(sameGrid(before, zyn_ts::readGrid(oscillator)));
    oscillator.unfreeze();
    ASSERT_TRUE(witness.waitForTicks(frozenAt + 20));
    oscillator.stop();

    const std::vector<zyn_ts::GridSnapshot> grids = witness.gridsSeen();
    for (size_t i = 0; i < grids.size(); ++i) {
        EXPECT_TRUE(sameGrid(grids[i], before)) << "tick " << i;
    }
    expectOneTickPerGridPointNeverEarly(witness.tickInstants(), before.originNs, before.periodNs);
}

TEST_F(PublishedGrid, RepeatedInitializeChangesThePeriodOnTheSameOriginAndGeneration) {
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(witness.waitForTicks(3));
    const zyn_ts::GridSnapshot oneMs = zyn_ts::readGrid(oscillator);
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGH));
    const zyn_ts::GridSnapshot sixMs = zyn_ts::readGrid(oscillator);
    EXPECT_EQ(6000000, sixMs.periodNs);
    EXPECT_EQ(oneMs.originNs, sixMs.originNs);
    EXPECT_EQ(oneMs.generation, sixMs.generation);
    EXPECT_TRUE(sixMs.running);

    // The tick in progress may still have been timed on the old period;
    // every tick after it lies on the 6 ms grid of the same origin.
    const size_t changedAt = witness.tickInstants().size() + 1;
    ASSERT_TRUE(witness.waitForTicks(changedAt + 10));
    oscillator.stop();
    const std::vector<int64_t> all = witness.tickInstants();
    expectOneTickPerGridPointNeverEarly(std::vector<int64_t>(all.begin() + static_cast<long>(changedAt), all.end()),
                                        sixMs.originNs, sixMs.periodNs);
}

TEST(PublishedGridSlots, DestroyedOscillatorsFreeTheirSlotsForNewOnes) {
    // Far more oscillators than the library keeps slots for, one after
    // another: each one still publishes its grid.
    platform_double::reset();
    for (int i = 0; i < 100; ++i) {
        auto oscillator = std::make_unique<TickOscillator>();
        ASSERT_EQ(0u, oscillator->initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
        GridWitness witness(*oscillator);
        ITickReceiver receiver = witness.receiver();
        ASSERT_EQ(0u, oscillator->registerOnTick(&receiver));
        ASSERT_EQ(0u, oscillator->start());
        ASSERT_TRUE(witness.waitForTicks(1));
        oscillator->stop();
        const zyn_ts::GridSnapshot grid = witness.gridsSeen().front();
        ASSERT_TRUE(grid.running) << "oscillator " << i;
        ASSERT_EQ(1u, grid.generation) << "oscillator " << i << " got a slot with an old generation";
    }
}

}  // namespace
