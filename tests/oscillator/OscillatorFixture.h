// The setting of most oscillator tests: a fresh platform double, one
// oscillator and a recorder for its ticks. The oscillator is stopped after
// every test, so that no thread outlives the test that started it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

#include "PlatformDouble.h"
#include "TickOscillator.h"
#include "TickRecorder.h"

namespace oscillator_test {

class OscillatorFixture : public ::testing::Test {
protected:
    void SetUp() override { platform_double::reset(); }
    void TearDown() override { oscillator.stop(); }

    /// Initialises the oscillator and registers the recorder; names the step
    /// that failed, if one did.
    ::testing::AssertionResult prepareRecording(ETickDelay delay, ETickPriority priority) {
        if (const uint32_t result = oscillator.initialize(delay, priority); result != 0u) {
            return ::testing::AssertionFailure() << "initialize returned " << result;
        }
        if (const uint32_t result = oscillator.registerOnTick(recorder.receiver()); result != 0u) {
            return ::testing::AssertionFailure() << "registerOnTick returned " << result;
        }
        return ::testing::AssertionSuccess();
    }

    /// No oscillator thread exists, and none was ever handed to the platform
    /// for its scheduling or its name.
    void expectNoThreadStarted() {
        EXPECT_FALSE(oscillator.isRunning());
        EXPECT_EQ(std::thread::native_handle_type{}, oscillator.nativeHandle());
        EXPECT_TRUE(platform_double::schedulingCalls().empty());
        EXPECT_TRUE(platform_double::namingCalls().empty());
    }

    /// prepareRecording, then starts the oscillator.
    ::testing::AssertionResult startRecording(ETickDelay delay, ETickPriority priority) {
        ::testing::AssertionResult prepared = prepareRecording(delay, priority);
        if (!prepared) {
            return prepared;
        }
        if (const uint32_t result = oscillator.start(); result != 0u) {
            return ::testing::AssertionFailure() << "start returned " << result;
        }
        return ::testing::AssertionSuccess();
    }

    TickOscillator oscillator;
    TickRecorder recorder;
};

}  // namespace oscillator_test
