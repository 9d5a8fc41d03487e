// start() when the system cannot create the oscillator thread.
#include <gtest/gtest.h>

#include "FailingThreadCreation.h"
#include "OscillatorFixture.h"
#include "PlatformDouble.h"

namespace {

using oscillator_test::ThreadCreationFailure;

class OscillatorThreadCreation : public oscillator_test::OscillatorFixture {};

TEST_F(OscillatorThreadCreation, FailedCreationReturns32777AndLeavesTheOscillatorStopped) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    {
        ThreadCreationFailure failure;
        EXPECT_EQ(32777u, oscillator.start());
        EXPECT_EQ(1, failure.refusals());
    }
    expectNoThreadStarted();
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
    ASSERT_TRUE(prepareRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    {
        ThreadCreationFailure failure;
        ASSERT_EQ(32777u, oscillator.start());
    }
    EXPECT_EQ(0u, oscillator.start());
    EXPECT_TRUE(oscillator.isRunning());
    EXPECT_TRUE(recorder.waitForTicks(3));
}

}  // namespace
