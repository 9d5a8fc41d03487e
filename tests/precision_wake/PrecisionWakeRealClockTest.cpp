// The precision wake on the real clock: whatever the machine's load, no tick
// comes before its grid point and no two come for one grid point. Exact
// properties, checked on every tick.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "OscillatorAttachment.h"
#include "PlatformDouble.h"
#include "PublishedGrid.h"
#include "TickOscillator.h"
#include "TickPrecisionWake.h"
#include "TickRecorder.h"

namespace {

using oscillator_test::TickRecorder;

constexpr int64_t kMs = 1000000;

struct PreciseRun {
    std::vector<int64_t> ticks;
    int64_t origin = 0;
    int64_t period = 0;
    STickPrecisionWake figures{};
};

PreciseRun runWithPrecisionWake(ETickDelay delay, size_t tickCount, bool adaptive, int64_t fixedLead) {
    platform_double::reset();
    PreciseRun run;
    run.period = static_cast<int64_t>(delay) * kMs;
    TickRecorder recorder;
    auto oscillator = std::make_unique<TickOscillator>();
    zyn_ts::OscillatorAttachment record(oscillator.get(), run.period);
    if (adaptive) {
        record.wake.switchAdaptive();
    } else {
        EXPECT_TRUE(record.wake.switchFixed(fixedLead));
    }
    EXPECT_EQ(0u, oscillator->initialize(delay, TICK_PRIORITY_HIGHEST));
    EXPECT_EQ(0u, oscillator->registerOnTick(recorder.receiver()));
    EXPECT_EQ(0u, oscillator->start());
    EXPECT_TRUE(recorder.waitForTicks(tickCount, std::chrono::seconds(60)));
    oscillator->stop();
    zyn_ts::GridSnapshot grid;
    EXPECT_TRUE(record.grid.read(grid));
    run.origin = grid.originNs;
    run.ticks = recorder.ticks();
    run.figures.size = sizeof(run.figures);
    record.wake.copyTo(run.figures);
    oscillator.reset();
    return run;
}

/// Every tick lies in a later grid period than the one before, from the
/// first grid point on: none before its grid point, none twice for one.
void expectNeverEarlyAndOnePerGridPoint(const PreciseRun& run) {
    ASSERT_FALSE(run.ticks.empty());
    int64_t previousPoint = 0;
    for (size_t i = 0; i < run.ticks.size(); ++i) {
        const int64_t point = (run.ticks[i] - run.origin) / run.period;
        ASSERT_GT(point, previousPoint) << "tick " << i << ", " << run.ticks[i] - run.origin
                                        << " ns after the origin, came before its grid point or twice for one";
        previousPoint = point;
    }
    EXPECT_EQ(run.ticks.size(), run.figures.ticks) << "every tick counted in the figures";
    EXPECT_EQ(run.figures.ticks, run.figures.delivery.count);
}

TEST(PrecisionWakeOnTheRealClock, AdaptiveLeadOnTheOneMsGridNeverDeliversATickBeforeItsGridPoint) {
    const PreciseRun run = runWithPrecisionWake(TICK_DELAY_1MS, 1500, true, 0);
    expectNeverEarlyAndOnePerGridPoint(run);
    EXPECT_GE(run.figures.leadNs, 20000);
    EXPECT_LE(run.figures.leadNs, 100000);
}

TEST(PrecisionWakeOnTheRealClock, FixedLeadOnTheSixMsGridNeverDeliversATickBeforeItsGridPoint) {
    const PreciseRun run = runWithPrecisionWake(TICK_DELAY_6MS, 300, false, 200000);
    expectNeverEarlyAndOnePerGridPoint(run);
    EXPECT_EQ(200000, run.figures.leadNs);
}

}  // namespace
