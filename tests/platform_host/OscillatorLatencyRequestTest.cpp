// The tick oscillator on the reference platform and the CPU wake-up latency
// request its real-time thread holds, observed on a fake device. The host
// learns about the thread without ever asking it: start() returns while the
// thread has not run, and no signal is sent to it.

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "BoundedWait.h"
#include "Capabilities.h"
#include "FakeCpuLatencyDevice.h"
#include "PlatformHost/CpuLatencyHost.h"
#include "PlatformHost/TraceHost.h"
#include "ProbedOscillator.h"
#include "SignalMask.h"
#include "TickOscillator.h"

namespace {

using platform_host::cpuLatencyState;

/// What the tick thread sees of itself.
struct TickProbe {
    std::atomic<int> ticks{0};
    std::atomic<long> timerSlackNs{-1};
    std::atomic<bool> blocksEverySignal{false};
    std::atomic<int> mostPendingSignals{0};
};

void onTick(void* context) {
    auto* probe = static_cast<TickProbe*>(context);
    probe->timerSlackNs.store(::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0));
    probe->blocksEverySignal.store(callingThreadBlocksEverySignal());
    const int pending = pendingSignalsOfCallingThread();
    if (pending > probe->mostPendingSignals.load()) {
        probe->mostPendingSignals.store(pending);
    }
    probe->ticks.fetch_add(1);
}

void awaitTicks(const TickProbe& probe, int count, const std::string& what) {
    awaitWithin([&] { return probe.ticks.load() >= count; }, what);
}

/// Starts `oscillator` from a thread that blocks every signal, so that its
/// new thread does too (a thread inherits its creator's mask): a signal sent
/// to it stays pending, and no signal handler of it could answer anything.
/// The result of start(), and the starting thread's own timer slack.
std::pair<uint32_t, long> startBlockingEverySignal(TickOscillator& oscillator) {
    std::future<std::pair<uint32_t, long>> started = std::async(std::launch::async, [&oscillator] {
        blockEverySignal();
        const long slack = ::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
        return std::make_pair(oscillator.start(), slack);
    });
    return test_support::getWithin(started, "TickOscillator::start() returning");
}

class OscillatorLatencyRequestTest : public FakeCpuLatencyDeviceTest {
protected:
    void TearDown() override {
        platform_host::setTraceSink({});
        platform_host::setTraceLevel("ZYN.TS", 3);
        FakeCpuLatencyDeviceTest::TearDown();
    }
};

TEST_F(OscillatorLatencyRequestTest, RequestIsHeldWhileARealTimeOscillatorTicksAndLapsesOnItsOwnAfterItStops) {
    ProbedOscillator<TickProbe> ticking(TICK_DELAY_6MS, TICK_PRIORITY_NORMAL, &onTick);
    ASSERT_EQ(ticking.oscillator.start(), 0u);

    awaitTicks(ticking.probe, 3, "three ticks of the started oscillator");
    EXPECT_TRUE(cpuLatencyState().held);
    EXPECT_EQ(cpuLatencyState().holders, 1u);
    const int ticksSoFar = ticking.probe.ticks.load();
    awaitTicks(ticking.probe, ticksSoFar + 3, "three more ticks");
    EXPECT_TRUE(cpuLatencyState().held) << "held for as long as the oscillator ticks";
    EXPECT_EQ(openDescriptors(device), 1);
    EXPECT_EQ(valuesIn(device), std::vector<int32_t>{0});

    ASSERT_EQ(ticking.oscillator.stop(), 0u);
    // Nothing asks the host about the ended thread: it notices on its own.
    awaitWithin([&] { return openDescriptors(device) == 0; }, "the device closing after the oscillator stopped");
    EXPECT_FALSE(cpuLatencyState().held);
    EXPECT_EQ(cpuLatencyState().holders, 0u);
}

TEST_F(OscillatorLatencyRequestTest, StartReturnsWhileTheNewThreadIsHeldBeforeItsFirstStep) {
    // The thread's first step is the entry trace of its loop; a trace sink
    // holds it there until the test lets it go.
    test_support::Latch letGo("the test letting the oscillator thread go");
    std::atomic<bool> threadWasHeld{false};
    platform_host::setTraceLevel("ZYN.TS", 6);
    platform_host::setTraceSink([&](const std::string& line) {
        if (line.find(" ZYN.TS L6 -> run") != std::string::npos) {
            threadWasHeld.store(true);
            letGo.wait();
        }
    });
    ProbedOscillator<TickProbe> ticking(TICK_DELAY_6MS, TICK_PRIORITY_NORMAL, &onTick);

    const uint32_t result = startBlockingEverySignal(ticking.oscillator).first;

    // No ASSERT before the thread is let go: it must not stay held.
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(ticking.probe.ticks.load(), 0) << "the thread got past its first step";
    EXPECT_TRUE(cpuLatencyState().held) << "the request is held from start() on, whether the thread ran or not";
    EXPECT_EQ(cpuLatencyState().holders, 1u);
    letGo.open();

    awaitTicks(ticking.probe, 3, "three ticks after the oscillator thread was let go");
    EXPECT_TRUE(threadWasHeld.load());
    EXPECT_EQ(ticking.oscillator.stop(), 0u);
    platform_host::setTraceSink({});
    awaitRequestReleased();
}

TEST_F(OscillatorLatencyRequestTest, ThreadBlockingEverySignalIsSentNoneYetHoldsTheRequestAndGetsMinimalSlack) {
    // An unknown priority class maps to 0, which SCHED_RR refuses: the host
    // then lowers the thread's timer slack as well.
    ProbedOscillator<TickProbe> ticking(TICK_DELAY_1MS, static_cast<ETickPriority>(9), &onTick);

    const auto [result, starterSlack] = startBlockingEverySignal(ticking.oscillator);
    ASSERT_EQ(result, 0u);

    awaitTicks(ticking.probe, 20, "twenty ticks of the started oscillator");
    EXPECT_TRUE(cpuLatencyState().held);
    EXPECT_EQ(cpuLatencyState().holders, 1u);
    const int ticksSoFar = ticking.probe.ticks.load();
    awaitTicks(ticking.probe, ticksSoFar + 20, "twenty more ticks");
    ASSERT_EQ(ticking.oscillator.stop(), 0u);

    ASSERT_TRUE(ticking.probe.blocksEverySignal.load()) << "the tick thread did not inherit the blocked mask";
    EXPECT_EQ(ticking.probe.mostPendingSignals.load(), 0) << "a signal was sent to the tick thread";
    if (processMaySetOtherThreadsTimerSlack()) {
        EXPECT_EQ(ticking.probe.timerSlackNs.load(), 1);
    } else {
        EXPECT_EQ(ticking.probe.timerSlackNs.load(), starterSlack)
            << "without CAP_SYS_NICE the slack stays as inherited";
    }
    awaitRequestReleased();
}

}  // namespace
