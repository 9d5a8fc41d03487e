// start() when the system cannot create the oscillator thread.
#include <gtest/gtest.h>

#include "FailingThreadCreation.h"
#include "PlatformDouble.h"
#include "TickOscillator.h"
#include "TickRecorder.h"

namespace {

using oscillator_test::ThreadCreationFailure;
using oscillator_test::TickRecorder;

class OscillatorThreadCreation : public ::testing::Test {
protected:
    void SetUp() override { platform_double::reset(); }
    void TearDown() override { oscillator.stop(); }

    TickOscillator oscillator;
    TickRecorder recorder;
};

TEST_F(OscillatorThreadCreation, FailedCreationReturns32777AndLeavesTheOscillatorStopped) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    {
        ThreadCreationFailure failure;
        EXPECT_EQ(32777u, oscillator.start());
        EXPECT_EQ(1, failure.refusals());
    }
    EXPECT_FALSE(oscillator.isRunning());
    EXPECT_EQ(std::thread::native_handle_type{}, oscillator.nativeHandle());
    EXPECT_TRUE(platform_double::schedulingCalls().empty());
    EXPECT_TRUE(platform_double::namingCalls().empty());
}

TEST_F(OscillatorThreadCreation, FailedCreationWritesOnlyTheEntry) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    platform_double::clearTraces();
    {
        ThreadCreationFailure failure;
        ASSERT_EQ(32777u, oscillator.start());
    }
    const auto records = platform_double::traces();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("start", records[0].function);
    EXPECT_TRUE(records[0].entry);
}

TEST_F(OscillatorThreadCreation, StartSucceedsOnceThreadsCanBeCreatedAgain) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
    {
        ThreadCreationFailure failure;
        ASSERT_EQ(32777u, oscillator.start());
    }
    EXPECT_EQ(0u, oscillator.start());
    EXPECT_TRUE(oscillator.isRunning());
    EXPECT_TRUE(recorder.waitForTicks(3));
}

}  // namespace
