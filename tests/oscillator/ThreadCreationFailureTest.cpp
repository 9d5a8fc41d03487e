// start() when the system cannot create the oscillator thread.
#include <gtest/gtest.h>

#include <cerrno>

#include "OscillatorFixture.h"
#include "PlatformDouble.h"
#include "ThreadCreationFaults.h"

namespace {

using thread_faults::ThreadCreationRefused;

class OscillatorThreadCreation : public oscillator_test::OscillatorFixture {};

TEST_F(OscillatorThreadCreation, FailedCreationReturns32777AndLeavesTheOscillatorStopped) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    {
        const ThreadCreationRefused failure(EAGAIN);
        EXPECT_EQ(32777u, oscillator.start());
        EXPECT_EQ(1u, thread_faults::refusedCreations());
    }
    expectNoThreadStarted();
}

TEST_F(OscillatorThreadCreation, FailedCreationWritesOnlyTheEntry) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    platform_double::clearTraces();
    {
        const ThreadCreationRefused failure(EAGAIN);
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
        const ThreadCreationRefused failure(EAGAIN);
        ASSERT_EQ(32777u, oscillator.start());
    }
    EXPECT_EQ(0u, oscillator.start());
    EXPECT_TRUE(oscillator.isRunning());
    EXPECT_TRUE(recorder.waitForTicks(3));
}

}  // namespace
