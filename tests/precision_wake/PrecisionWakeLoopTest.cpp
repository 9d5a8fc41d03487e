// The oscillator's real loop with the precision wake, on a virtual clock:
// every sleep it asks for, every clock reading and every tick, to the
// nanosecond. Each clock reading costs the simulated thread a little virtual
// time, so that the spin on the clock reaches its grid point.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "AllocationCounter.h"
#include "ITickReceiver.h"
#include "OscillatorAttachment.h"
#include "ParkedOscillator.h"
#include "PlatformDouble.h"
#include "TickOscillator.h"
#include "TickPrecisionWake.h"
#include "VirtualClock.h"

namespace {

using virtual_clock::runTo;
using virtual_clock::Sleep;

constexpr int64_t kUs = 1000;
constexpr int64_t kMs = 1000 * kUs;
constexpr int64_t kSixMs = 6 * kMs;
// Off every whole second and every grid, as a real start instant is.
constexpr int64_t kStart = 4711LL * 1000 * kMs + 123456789;
constexpr int64_t kReadingCost = 200;
constexpr size_t kTickCapacity = 8192;

/// Records the virtual instant of every tick, without reading the clock
/// itself (a reading would be one of the loop's). Optionally counts the
/// allocations of the oscillator thread between two ticks.
class VirtualTicks {
public:
    VirtualTicks() { instants.reserve(kTickCapacity); }

    ITickReceiver* receiver() { return &record; }

    /// Counts the allocations made on the tick thread from tick `from` to
    /// tick `until`.
    void countAllocationsBetween(size_t from, size_t until) {
        countFrom = from;
        countUntil = until;
    }
    /// The allocations counted, or -1 when tick `until` never came.
    int64_t allocationsCounted() const { return counted; }

    std::vector<int64_t> ticks() const { return instants; }

private:
    static void onTick(void* self) { static_cast<VirtualTicks*>(self)->tick(); }

    void tick() {
        const size_t index = instants.size();
        if (index == countFrom) {
            scope.emplace();
        }
        if (index == countUntil && scope.has_value()) {
            counted = static_cast<int64_t>(scope->count());
            scope.reset();
        }
        if (index < kTickCapacity) {
            instants.push_back(virtual_clock::now());
        }
    }

    std::vector<int64_t> instants;
    size_t countFrom = SIZE_MAX;
    size_t countUntil = SIZE_MAX;
    std::optional<test_support::AllocationScope> scope;
    int64_t counted = -1;
    ITickReceiver record{this, &VirtualTicks::onTick};
};

/// An oscillator with (or without) its owner's attachment, on the virtual
/// clock.
class SimulatedOscillator {
public:
    explicit SimulatedOscillator(bool attached, int64_t nominalPeriod = kSixMs) {
        if (attached) {
            attachment = std::make_unique<zyn_ts::OscillatorAttachment>(&oscillator, nominalPeriod);
        }
    }
    ~SimulatedOscillator() { stop(); }

    zyn_ts::PrecisionWake& wake() { return attachment->wake; }

    /// Initialises, registers the recorder and starts; the thread parks at
    /// its first sleep call. Returns the grid origin: its first reading.
    int64_t start(ETickDelay delay) {
        EXPECT_EQ(0u, oscillator.initialize(delay, TICK_PRIORITY_HIGHEST));
        EXPECT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
        return virtual_clock::startParked(oscillator);
    }

    void stop() { virtual_clock::stopParked(oscillator); }

    /// Switches to the fixed `lead`, starts on the 6 ms grid, lets the thread
    /// run until it enters sleep call `sleepCall` and stops it there. Returns
    /// the grid origin.
    int64_t runWithFixedLead(int64_t lead, size_t sleepCall) {
        EXPECT_TRUE(wake().switchFixed(lead));
        const int64_t origin = start(TICK_DELAY_6MS);
        runTo(sleepCall);
        stop();
        return origin;
    }

    STickPrecisionWake figures() {
        STickPrecisionWake out{};
        out.size = sizeof(out);
        wake().copyTo(out);
        return out;
    }

    std::unique_ptr<zyn_ts::OscillatorAttachment> attachment;
    TickOscillator oscillator;
    VirtualTicks recorder;
};

/// The instant a sleep called right after a clock reading asked for: the
/// loop computes it from its reading, and calls the sleep one reading's cost
/// later.
int64_t askedFor(const Sleep& sleep) { return sleep.target() - kReadingCost; }

/// The first grid point of `origin`'s grid at or after `instant`.
int64_t gridPointAtOrAfter(int64_t instant, int64_t origin, int64_t period) {
    const int64_t sinceOrigin = instant - origin;
    return origin + ((sinceOrigin + period - 1) / period) * period;
}

/// Wake-ups late by up to three periods, some exactly on a later grid point:
/// a fixed pseudo-random sequence.
virtual_clock::WakeUpPlan latenessUpToThreePeriods(int64_t period) {
    return [period](size_t index, int64_t requestedEnd) {
        const uint64_t mixed = (static_cast<uint64_t>(index) + 1) * 6364136223846793005ULL + 1442695040888963407ULL;
        const int64_t lateness = static_cast<int64_t>((mixed >> 33U) % static_cast<uint64_t>(3 * period));
        return requestedEnd + (index % 7 == 3 ? period - (requestedEnd % period) : lateness);
    };
}

/// Wake-ups late by the plan's lateness behind the instant asked for.
virtual_clock::WakeUpPlan lateBy(std::function<int64_t(size_t)> lateness) {
    return
        [lateness = std::move(lateness)](size_t index, int64_t requestedEnd) { return requestedEnd + lateness(index); };
}

class PrecisionWakeLoop : public ::testing::Test {
protected:
    void SetUp() override {
        platform_double::reset();
        virtual_clock::install(kStart);
        virtual_clock::setReadingCost(kReadingCost);
    }
    void TearDown() override { virtual_clock::uninstall(); }
};

/// What a run leaves, relative to its origin.
struct LoopRecord {
    std::vector<int64_t> sleepCalls;
    std::vector<int64_t> sleepRequests;
    std::vector<int64_t> sleepEnds;
    std::vector<int64_t> readings;
    std::vector<int64_t> ticks;
};

LoopRecord recordRun(SimulatedOscillator& simulated, size_t sleeps) {
    const int64_t origin = simulated.start(TICK_DELAY_6MS);
    runTo(sleeps);
    simulated.stop();
    LoopRecord record;
    for (const Sleep& sleep : virtual_clock::sleeps()) {
        record.sleepCalls.push_back(sleep.calledAt - origin);
        record.sleepRequests.push_back(sleep.requestNs);
        record.sleepEnds.push_back(sleep.endedAt - origin);
        EXPECT_EQ(0, sleep.flags) << "a relative sleep";
    }
    for (const int64_t reading : virtual_clock::readings()) {
        record.readings.push_back(reading - origin);
    }
    for (const int64_t tick : simulated.recorder.ticks()) {
        record.ticks.push_back(tick - origin);
    }
    return record;
}

TEST_F(PrecisionWakeLoop, SwitchedOffTheLoopReadsAndSleepsExactlyAsWithoutAnAttachment) {
    constexpr size_t kSleeps = 400;
    LoopRecord plain;
    {
        virtual_clock::setWakeUpPlan(latenessUpToThreePeriods(kSixMs));
        SimulatedOscillator simulated(false);
        plain = recordRun(simulated, kSleeps);
    }
    virtual_clock::uninstall();
    virtual_clock::install(kStart);
    virtual_clock::setReadingCost(kReadingCost);
    virtual_clock::setWakeUpPlan(latenessUpToThreePeriods(kSixMs));
    LoopRecord off;
    {
        SimulatedOscillator simulated(true);
        // Switched on and off again before the start: off is off.
        simulated.wake().switchAdaptive();
        simulated.wake().switchOff();
        off = recordRun(simulated, kSleeps);
        EXPECT_EQ(0u, simulated.figures().ticks) << "no tick counted as a precise one";
        EXPECT_GT(simulated.figures().wakeUpAndPass.count, 0u) << "the off-mode figure comes from the loop's reading";
    }
    ASSERT_GE(plain.sleepCalls.size(), kSleeps);
    EXPECT_EQ(plain.sleepCalls, off.sleepCalls);
    EXPECT_EQ(plain.sleepRequests, off.sleepRequests);
    EXPECT_EQ(plain.sleepEnds, off.sleepEnds);
    EXPECT_EQ(plain.readings, off.readings);
    EXPECT_EQ(plain.ticks, off.ticks);
    // One reading to start with, then one per sleep.
    EXPECT_EQ(off.sleepCalls.size() + 1, off.readings.size());
}

TEST_F(PrecisionWakeLoop, FixedLeadSleepsToTheLeadBeforeEachGridPointAndDeliversOnIt) {
    constexpr int64_t kLead = 50 * kUs;
    virtual_clock::setWakeUpPlan(lateBy([](size_t index) { return static_cast<int64_t>(index * 37 % 45) * kUs; }));
    SimulatedOscillator simulated(true);
    const int64_t origin = simulated.runWithFixedLead(kLead, 300);

    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    const std::vector<int64_t> ticks = simulated.recorder.ticks();
    ASSERT_GE(sleeps.size(), 300u);
    ASSERT_GE(ticks.size(), 299u);
    for (size_t i = 0; i + 1 < sleeps.size() && i < ticks.size(); ++i) {
        const int64_t gridPoint = askedFor(sleeps[i]) + kLead;
        ASSERT_EQ(0, (gridPoint - origin) % kSixMs) << "sleep " << i << " does not end the lead before a grid point";
        ASSERT_GE(ticks[i], gridPoint) << "tick " << i << " came before its grid point";
        ASSERT_LT(ticks[i], gridPoint + 2 * kReadingCost) << "tick " << i << " came later than the spin allows";
        if (i > 0) {
            ASSERT_EQ(kSixMs, gridPoint - (askedFor(sleeps[i - 1]) + kLead)) << "one tick per grid point, none skipped";
        }
    }
    const STickPrecisionWake figures = simulated.figures();
    EXPECT_EQ(TICK_WAKE_FIXED, figures.mode);
    EXPECT_EQ(kLead, figures.leadNs);
    EXPECT_EQ(0u, figures.lateDespiteLead);
    EXPECT_GE(figures.ticks, 299u);
    EXPECT_LT(figures.delivery.maxNs, 2 * kReadingCost);
    EXPECT_EQ(44 * kUs + kReadingCost, figures.wakeUp.maxNs) << "the lateness behind the instant asked for";
    // The spin covered the lead minus the lateness of every wake-up.
    EXPECT_GT(figures.spinNs, 0);
}

TEST_F(PrecisionWakeLoop, WakeUpAfterTheGridPointDeliversAtOnceWithoutSpinning) {
    constexpr int64_t kLead = 50 * kUs;
    constexpr size_t kLateSleep = 5;
    virtual_clock::setWakeUpPlan(
        lateBy([](size_t index) { return index == kLateSleep ? kLead + 30 * kUs : 10 * kUs; }));
    SimulatedOscillator simulated(true);
    simulated.runWithFixedLead(kLead, 10);

    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    const std::vector<int64_t> ticks = simulated.recorder.ticks();
    const int64_t wokeAt = sleeps.at(kLateSleep).endedAt;
    size_t readingsBeforeNextSleep = 0;
    size_t readingsOfAnOnTimeTick = 0;
    for (const int64_t reading : virtual_clock::readings()) {
        readingsBeforeNextSleep += (reading >= wokeAt && reading <= sleeps.at(kLateSleep + 1).calledAt) ? 1 : 0;
        readingsOfAnOnTimeTick +=
            (reading >= sleeps.at(kLateSleep - 1).endedAt && reading <= sleeps.at(kLateSleep).calledAt) ? 1 : 0;
    }
    EXPECT_EQ(2u, readingsBeforeNextSleep) << "the wake-up's reading and the next iteration's, no spin";
    EXPECT_GT(readingsOfAnOnTimeTick, 2u) << "an on-time wake-up spins";
    EXPECT_EQ(wokeAt + kReadingCost, ticks.at(kLateSleep)) << "delivered right after the wake-up's reading";
    EXPECT_EQ(1u, simulated.figures().lateDespiteLead);
}

TEST_F(PrecisionWakeLoop, SignalBeforeTheLeadSleepsAgainAndTheTickComesOnItsGridPoint) {
    constexpr int64_t kLead = 50 * kUs;
    virtual_clock::interruptSleep(4, 1 * kMs);
    SimulatedOscillator simulated(true);
    const int64_t origin = simulated.runWithFixedLead(kLead, 8);

    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    const std::vector<int64_t> ticks = simulated.recorder.ticks();
    ASSERT_EQ(EINTR, sleeps.at(4).result);
    EXPECT_EQ(sleeps.at(4).target(), sleeps.at(5).target()) << "slept again to the same instant";
    const int64_t gridPoint = askedFor(sleeps.at(5)) + kLead;
    EXPECT_EQ(0, (gridPoint - origin) % kSixMs);
    // Sleeps 4 and 5 are one tick's: tick 4 belongs to them.
    EXPECT_GE(ticks.at(4), gridPoint);
    EXPECT_LT(ticks.at(4), gridPoint + 2 * kReadingCost);
    EXPECT_EQ(gridPoint + kSixMs - kLead, askedFor(sleeps.at(6)));
}

TEST_F(PrecisionWakeLoop, FrozenTheLoopSleepsToTheGridPointsThemselvesAndNeverSpins) {
    SimulatedOscillator simulated(true);
    simulated.wake().switchAdaptive();
    // start() initialises, which clears frozen: freeze after it, before the
    // first sleep call returns.
    virtual_clock::setWakeUpPlan(lateBy([](size_t) { return 5 * kUs; }));
    const int64_t origin = simulated.start(TICK_DELAY_6MS);
    EXPECT_EQ(0u, simulated.oscillator.freeze());
    runTo(50);

    const std::vector<Sleep> sleeps = virtual_clock::sleeps();
    for (size_t i = 1; i < sleeps.size(); ++i) {
        ASSERT_EQ(0, (askedFor(sleeps[i]) - origin) % kSixMs) << "sleep " << i << " does not end on a grid point";
    }
    // The start's reading, then per iteration one before its sleep and one
    // after it; the parked iteration has read before its sleep.
    EXPECT_EQ(2 * sleeps.size() + 2, virtual_clock::readings().size());
    EXPECT_TRUE(simulated.recorder.ticks().empty());

    EXPECT_EQ(0u, simulated.oscillator.unfreeze());
    runTo(60);
    simulated.stop();
    const std::vector<int64_t> ticks = simulated.recorder.ticks();
    ASSERT_GE(ticks.size(), 8u);
    // The iteration parked while frozen sleeps to its grid point itself
    // (called a reading late) and its wake-up, 5 us late, delivers at once
    // after one reading; every later one spins onto its grid point.
    EXPECT_EQ(kReadingCost + 5 * kUs + kReadingCost, (ticks[0] - origin) % kSixMs);
    for (size_t i = 1; i < ticks.size(); ++i) {
        EXPECT_LT((ticks[i] - origin) % kSixMs, 2 * kReadingCost) << "tick " << i;
    }
}

/// Runs the adaptive lead against wake-ups late by `lateness` and returns
/// the lead every sleep used, from the sleep's target to its grid point.
std::vector<int64_t> leadsUnderAdaptiveWake(ETickDelay delay, std::function<int64_t(size_t)> lateness,
                                            size_t sleepCount, STickPrecisionWake& figures) {
    const int64_t period = static_cast<int64_t>(delay) * kMs;
    virtual_clock::setWakeUpPlan(lateBy(std::move(lateness)));
    SimulatedOscillator simulated(true, period);
    simulated.wake().switchAdaptive();
    const int64_t origin = simulated.start(delay);
    runTo(sleepCount);
    simulated.stop();
    figures = simulated.figures();
    std::vector<int64_t> leads;
    for (const Sleep& sleep : virtual_clock::sleeps()) {
        leads.push_back(gridPointAtOrAfter(askedFor(sleep), origin, period) - askedFor(sleep));
    }
    return leads;
}

TEST_F(PrecisionWakeLoop, AdaptiveLeadConvergesOnTheHighPercentileOfTheWakeUpsPlusItsMargin) {
    // 98 % of the wake-ups 30 us late, 2 % 70 us: the 99.2nd percentile is
    // in the 70 us bin, whose upper edge is 71 us; the margin adds 10 us.
    STickPrecisionWake figures{};
    const std::vector<int64_t> leads = leadsUnderAdaptiveWake(
        TICK_DELAY_6MS, [](size_t index) { return (index % 50 == 7 ? 70 : 30) * kUs; }, 1300, figures);
    EXPECT_EQ(100 * kUs, leads.front()) << "the initial lead";
    EXPECT_EQ(81 * kUs, leads.back());
    EXPECT_EQ(81 * kUs, figures.leadNs);
    EXPECT_EQ(TICK_WAKE_ADAPTIVE, figures.mode);
    EXPECT_EQ(0u, figures.lateDespiteLead);
    EXPECT_EQ(600 * kUs, figures.leadCeilingNs);
    EXPECT_EQ(20 * kUs, figures.leadFloorNs);
}

TEST_F(PrecisionWakeLoop, AdaptiveLeadFollowsAWiderSpreadWithinItsCeiling) {
    STickPrecisionWake figures{};
    const std::vector<int64_t> leads = leadsUnderAdaptiveWake(
        TICK_DELAY_6MS, [](size_t index) { return static_cast<int64_t>(index % 10 == 0 ? 900 : 100) * kUs; }, 1300,
        figures);
    for (const int64_t lead : leads) {
        ASSERT_GE(lead, 20 * kUs);
        ASSERT_LE(lead, 600 * kUs);
    }
    EXPECT_EQ(600 * kUs, leads.back()) << "a 900 us spread is capped at 10 % of the period";
    EXPECT_GT(figures.lateDespiteLead, 0u) << "wake-ups beyond the ceiling come after the grid point";
}

TEST_F(PrecisionWakeLoop, AdaptiveLeadOfAPunctualKernelStaysOnItsFloor) {
    STickPrecisionWake figures{};
    const std::vector<int64_t> leads = leadsUnderAdaptiveWake(
        TICK_DELAY_1MS, [](size_t) { return 2 * kUs; }, 1300, figures);
    for (const int64_t lead : leads) {
        ASSERT_GE(lead, 20 * kUs);
        ASSERT_LE(lead, 100 * kUs) << "10 % of 1 ms";
    }
    EXPECT_EQ(100 * kUs, leads.front()) << "the initial lead, capped at the 1 ms grid's ceiling";
    EXPECT_EQ(20 * kUs, leads.back());
}

TEST_F(PrecisionWakeLoop, NothingIsAllocatedOnTheTickPathWhileTheLeadAdaptsAndTheFiguresReset) {
    virtual_clock::setWakeUpPlan(lateBy([](size_t index) { return static_cast<int64_t>(index * 13 % 90) * kUs; }));
    // Fewer spin readings to keep; room for all of them before the count.
    virtual_clock::setReadingCost(1000);
    virtual_clock::reserveRecords(4096, 1 << 19);
    // The per-tick trace line builds a text: a level below it.
    platform_double::setTraceLevel(6);
    SimulatedOscillator simulated(true);
    simulated.wake().switchAdaptive();
    simulated.recorder.countAllocationsBetween(10, 1400);
    simulated.start(TICK_DELAY_6MS);
    runTo(600);
    simulated.wake().requestReset();
    EXPECT_TRUE(simulated.wake().switchFixed(70 * kUs));
    runTo(700);
    simulated.wake().switchAdaptive();
    runTo(1500);
    simulated.stop();
    EXPECT_EQ(0, simulated.recorder.allocationsCounted());
    EXPECT_LT(simulated.figures().ticks, 1000u) << "the reset dropped the figures before it";
}

}  // namespace
