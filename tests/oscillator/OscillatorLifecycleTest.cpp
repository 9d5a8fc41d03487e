// The oscillator's operations and states: results, configuration, the priority
// mapping, receivers, freeze, stop and restart. Ticks are awaited with
// generous timeouts; nothing here bounds timing.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "OscillatorFixture.h"
#include "PlatformDouble.h"

namespace {

class OscillatorLifecycle : public oscillator_test::OscillatorFixture {};

TEST_F(OscillatorLifecycle, ConstructedOscillatorIsIdleWithDefaults) {
    EXPECT_FALSE(oscillator.isInitialized());
    EXPECT_FALSE(oscillator.isRunning());
    EXPECT_FALSE(oscillator.isFrozen());
    EXPECT_EQ(0, oscillator.getPriority());
    EXPECT_EQ(TICK_DELAY_6MS, oscillator.getDelay());
    EXPECT_EQ(nullptr, oscillator.getReceiver());
    EXPECT_EQ(nullptr, oscillator.getCompensation());
    EXPECT_EQ(std::thread::native_handle_type{}, oscillator.nativeHandle());
}

TEST_F(OscillatorLifecycle, InitializeWithSixMsInstallsTheSixMsCompensation) {
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    EXPECT_TRUE(oscillator.isInitialized());
    EXPECT_EQ(TICK_DELAY_6MS, oscillator.getDelay());
    EXPECT_EQ(&TickOscillator::tickCompensation6MS, oscillator.getCompensation());
}

TEST_F(OscillatorLifecycle, InitializeWithOneMsInstallsTheOneMsCompensation) {
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    EXPECT_TRUE(oscillator.isInitialized());
    EXPECT_EQ(TICK_DELAY_1MS, oscillator.getDelay());
    EXPECT_EQ(&TickOscillator::tickCompensation1MS, oscillator.getCompensation());
}

TEST_F(OscillatorLifecycle, DelayFiveIsRejectedAndLeavesTheOscillatorUninitialized) {
    EXPECT_EQ(32770u, oscillator.initialize(static_cast<ETickDelay>(5), TICK_PRIORITY_HIGHEST));
    EXPECT_FALSE(oscillator.isInitialized());
    EXPECT_EQ(0, oscillator.getPriority());
    EXPECT_EQ(TICK_DELAY_6MS, oscillator.getDelay());
    EXPECT_EQ(nullptr, oscillator.getCompensation());

    EXPECT_EQ(32772u, oscillator.start());
    EXPECT_FALSE(oscillator.isRunning());
    EXPECT_EQ(std::vector<std::string>{"TickOscillator is already initialized"}, platform_double::messagesAt(1));
}

TEST_F(OscillatorLifecycle, EveryDelayOtherThanOneOrSixIsRejected) {
    for (uint32_t delay : {0u, 2u, 3u, 4u, 5u, 7u, 12u, 1000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(32770u, oscillator.initialize(static_cast<ETickDelay>(delay), TICK_PRIORITY_HIGHEST)) << delay;
    }
    EXPECT_FALSE(oscillator.isInitialized());
}

TEST_F(OscillatorLifecycle, RejectedDelayChangesNothingOfAnEarlierConfiguration) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_LOW));
    oscillator.freeze();
    EXPECT_EQ(32770u, oscillator.initialize(static_cast<ETickDelay>(2), TICK_PRIORITY_HIGHEST));
    EXPECT_TRUE(oscillator.isInitialized());
    EXPECT_EQ(TICK_DELAY_1MS, oscillator.getDelay());
    EXPECT_EQ(79, oscillator.getPriority());
    EXPECT_EQ(&TickOscillator::tickCompensation1MS, oscillator.getCompensation());
    EXPECT_TRUE(oscillator.isFrozen());
}

struct PriorityCase {
    int32_t tickPriority;
    int32_t schedulingPriority;
};

class PriorityMapping : public ::testing::TestWithParam<PriorityCase> {
protected:
    void SetUp() override { platform_double::reset(); }
};

TEST_P(PriorityMapping, TickPriorityMapsToItsSchedulingPriority) {
    TickOscillator oscillator;
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, static_cast<ETickPriority>(GetParam().tickPriority)));
    EXPECT_TRUE(oscillator.isInitialized());
    EXPECT_EQ(GetParam().schedulingPriority, oscillator.getPriority());
}

INSTANTIATE_TEST_SUITE_P(AllValues, PriorityMapping,
                         ::testing::Values(PriorityCase{0, 99}, PriorityCase{1, 98}, PriorityCase{2, 79},
                                           PriorityCase{3, 79}, PriorityCase{4, 79}, PriorityCase{5, 0},
                                           PriorityCase{7, 0}, PriorityCase{-1, 0}, PriorityCase{-2147483647 - 1, 0},
                                           PriorityCase{2147483647, 0}),
                         [](const ::testing::TestParamInfo<PriorityCase>& info) {
                             const int32_t value = info.param.tickPriority;
                             return (value < 0 ? std::string("Minus") + std::to_string(-(int64_t{value}))
                                               : std::to_string(value));
                         });

TEST_F(OscillatorLifecycle, SuccessiveInitializeCallsEachApplyTheirPriority) {
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, static_cast<ETickPriority>(7)));
    EXPECT_EQ(0, oscillator.getPriority());
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_LOW));
    EXPECT_EQ(79, oscillator.getPriority());
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGHEST));
    EXPECT_EQ(99, oscillator.getPriority());
}

TEST_F(OscillatorLifecycle, RepeatedInitializeReappliesSettingsAndClearsFrozen) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    oscillator.freeze();
    ASSERT_TRUE(oscillator.isFrozen());
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_LOWEST));
    EXPECT_FALSE(oscillator.isFrozen());
    EXPECT_EQ(TICK_DELAY_1MS, oscillator.getDelay());
    EXPECT_EQ(79, oscillator.getPriority());
    EXPECT_EQ(&TickOscillator::tickCompensation1MS, oscillator.getCompensation());
}

TEST_F(OscillatorLifecycle, StartBeforeInitializeIsRefused) {
    EXPECT_EQ(32772u, oscillator.start());
    expectNoThreadStarted();
}

TEST_F(OscillatorLifecycle, SecondStartWithoutStopIsRefusedAndKeepsTheFirstThread) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    ASSERT_EQ(0u, oscillator.start());
    const auto firstThread = oscillator.nativeHandle();
    EXPECT_EQ(32774u, oscillator.start());
    EXPECT_TRUE(oscillator.isRunning());
    EXPECT_EQ(firstThread, oscillator.nativeHandle());
    EXPECT_EQ(1u, platform_double::schedulingCalls().size());
    EXPECT_EQ(1u, platform_double::namingCalls().size());
}

TEST_F(OscillatorLifecycle, StartAfterStopStartsANewThread) {
    ASSERT_TRUE(startRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_TRUE(recorder.waitForTicks(3));
    const pid_t firstThread = recorder.tickThreadId();
    EXPECT_EQ(0u, oscillator.stop());
    EXPECT_FALSE(oscillator.isRunning());
    EXPECT_EQ(std::thread::native_handle_type{}, oscillator.nativeHandle());

    const size_t ticksOfFirstRun = recorder.count();
    EXPECT_EQ(0u, oscillator.start());
    EXPECT_TRUE(oscillator.isRunning());
    ASSERT_TRUE(recorder.waitForTicks(ticksOfFirstRun + 3));
    EXPECT_NE(firstThread, recorder.tickThreadId());
    EXPECT_EQ(2u, platform_double::schedulingCalls().size());
    EXPECT_EQ(2u, platform_double::namingCalls().size());
}

TEST_F(OscillatorLifecycle, TicksCarryTheReceiverContext) {
    ASSERT_TRUE(prepareRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    EXPECT_EQ(recorder.receiver(), oscillator.getReceiver());
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_TRUE(recorder.waitForTicks(2));
    EXPECT_EQ(static_cast<void*>(&recorder), recorder.lastContext());
    EXPECT_NE(gettid(), recorder.tickThreadId());
}

TEST_F(OscillatorLifecycle, RegisterOnTickBeforeInitializeIsRefused) {
    EXPECT_EQ(32772u, oscillator.registerOnTick(recorder.receiver()));
    EXPECT_EQ(nullptr, oscillator.getReceiver());
    EXPECT_EQ(32772u, oscillator.registerOnTick(nullptr));
}

TEST_F(OscillatorLifecycle, RegisterOnTickWorksBeforeAndAfterStart) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_EQ(0u, oscillator.start());
    EXPECT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
    EXPECT_TRUE(recorder.waitForTicks(3));
}

TEST_F(OscillatorLifecycle, NullReceiverIsAcceptedAndStopsDelivery) {
    ASSERT_TRUE(startRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_TRUE(recorder.waitForTicks(3));

    EXPECT_EQ(0u, oscillator.registerOnTick(nullptr));
    const size_t atTheChange = recorder.count();
    EXPECT_EQ(nullptr, oscillator.getReceiver());
    // Only a tick that read the receiver just before the change may still
    // arrive, however late the machine lets it run.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_LE(recorder.count(), atTheChange + 1);
    EXPECT_TRUE(oscillator.isRunning());
}

TEST_F(OscillatorLifecycle, NullReceiverFromTheStartDeliversNoTicks) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    EXPECT_EQ(0u, oscillator.registerOnTick(nullptr));
    ASSERT_EQ(0u, oscillator.start());
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_TRUE(oscillator.isRunning());
    EXPECT_EQ(0u, oscillator.stop());
    EXPECT_EQ(0u, recorder.count());
}

TEST_F(OscillatorLifecycle, ReceiverIsKeptAcrossStopAndStart) {
    ASSERT_TRUE(startRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_TRUE(recorder.waitForTicks(1));
    ASSERT_EQ(0u, oscillator.stop());
    EXPECT_EQ(recorder.receiver(), oscillator.getReceiver());
    const size_t before = recorder.count();
    ASSERT_EQ(0u, oscillator.start());
    EXPECT_TRUE(recorder.waitForTicks(before + 2));
}

TEST_F(OscillatorLifecycle, FreezeOnANeverInitializedOscillatorSetsTheFlag) {
    EXPECT_EQ(0u, oscillator.freeze());
    EXPECT_TRUE(oscillator.isFrozen());
    EXPECT_FALSE(oscillator.isInitialized());
    EXPECT_EQ(0u, oscillator.unfreeze());
    EXPECT_FALSE(oscillator.isFrozen());
}

TEST_F(OscillatorLifecycle, FrozenOscillatorKeepsRunningWithoutTicksAndStops) {
    ASSERT_TRUE(prepareRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    EXPECT_EQ(0u, oscillator.freeze());
    ASSERT_EQ(0u, oscillator.start());
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_TRUE(oscillator.isRunning());
    EXPECT_EQ(0u, recorder.count());
    EXPECT_EQ(0u, oscillator.stop());
    EXPECT_FALSE(oscillator.isRunning());
    EXPECT_EQ(0u, recorder.count());
}

TEST_F(OscillatorLifecycle, UnfreezeResumesDelivery) {
    ASSERT_TRUE(prepareRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_EQ(0u, oscillator.freeze());
    ASSERT_EQ(0u, oscillator.start());
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(0u, recorder.count());
    EXPECT_EQ(0u, oscillator.unfreeze());
    EXPECT_TRUE(recorder.waitForTicks(3));
}

TEST_F(OscillatorLifecycle, StopWithoutAThreadReturnsZero) {
    EXPECT_EQ(0u, oscillator.stop());
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    EXPECT_EQ(0u, oscillator.stop());
    EXPECT_EQ(0u, oscillator.stop());
    EXPECT_FALSE(oscillator.isRunning());
}

TEST_F(OscillatorLifecycle, NoTickArrivesAfterStopReturns) {
    ASSERT_TRUE(startRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_TRUE(recorder.waitForTicks(5));
    ASSERT_EQ(0u, oscillator.stop());
    const size_t afterStop = recorder.count();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(afterStop, recorder.count());
}

TEST_F(OscillatorLifecycle, DestructorStopsAndJoinsARunningThread) {
    auto owned = std::make_unique<TickOscillator>();
    ASSERT_EQ(0u, owned->initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_EQ(0u, owned->registerOnTick(recorder.receiver()));
    ASSERT_EQ(0u, owned->start());
    ASSERT_TRUE(recorder.waitForTicks(3));
    owned.reset();
    const size_t afterDestruction = recorder.count();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(afterDestruction, recorder.count());
}

TEST_F(OscillatorLifecycle, RefusedSchedulingOrNamingDoesNotFailStart) {
    platform_double::scriptSetSchedulingResult(1);
    platform_double::scriptSetNameResult(34);
    ASSERT_TRUE(prepareRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    EXPECT_EQ(0u, oscillator.start());
    EXPECT_TRUE(oscillator.isRunning());
    EXPECT_TRUE(recorder.waitForTicks(3));
}

}  // namespace
