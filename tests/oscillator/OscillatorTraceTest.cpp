// What the oscillator writes to the trace, word for word, and what tracing
// must never do: build texts for disabled levels or change the caller's errno.
#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "OscillatorFixture.h"
#include "PlatformDouble.h"
#include "TickSchedulerTrace.h"

namespace {

using platform_double::TraceRecord;
using test_support::AllocationScope;

const char* const kSourceFile = "PlatformServices/TickScheduler/private/CTickOscillator.cpp";

void expectRecord(const TraceRecord& record, uint32_t level, const std::string& function, const std::string& text,
                  bool entry) {
    EXPECT_EQ(level, record.level);
    EXPECT_EQ(function, record.function);
    EXPECT_EQ(text, record.text);
    EXPECT_EQ(entry, record.entry);
    EXPECT_EQ(kSourceFile, record.file);
    EXPECT_GT(record.line, 0u);
}

size_t countOf(const std::vector<TraceRecord>& records, uint32_t level, const std::string& text) {
    size_t n = 0;
    for (const TraceRecord& record : records) {
        if (!record.entry && record.level == level && record.text == text) {
            ++n;
        }
    }
    return n;
}

std::string expectedStartLine(uint32_t delayMs) {
    timespec resolution{};
    clock_getres(CLOCK_MONOTONIC, &resolution);
    return "  Starting oscillator with delay " + std::to_string(delayMs) + " ms, resolution " +
           std::to_string(resolution.tv_nsec) + " ns";
}

class OscillatorTrace : public oscillator_test::OscillatorFixture {};

// ---- entry records and messages --------------------------------------------

TEST_F(OscillatorTrace, InitializeEntryCarriesDelayAndPriority) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    const auto records = platform_double::traces();
    ASSERT_EQ(1u, records.size());
    expectRecord(records[0], 6, "initialize", "eDelay=6, ePriority=0", true);
}

TEST_F(OscillatorTrace, InitializeEntryShowsUnknownPrioritiesAsSignedNumbers) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, static_cast<ETickPriority>(-3)));
    const auto records = platform_double::traces();
    ASSERT_EQ(1u, records.size());
    expectRecord(records[0], 6, "initialize", "eDelay=1, ePriority=-3", true);
}

TEST_F(OscillatorTrace, RejectedDelayWritesTheEntryAndNoMessage) {
    ASSERT_EQ(32770u, oscillator.initialize(static_cast<ETickDelay>(5), TICK_PRIORITY_HIGHEST));
    const auto records = platform_double::traces();
    ASSERT_EQ(1u, records.size());
    expectRecord(records[0], 6, "initialize", "eDelay=5, ePriority=0", true);
}

TEST_F(OscillatorTrace, StartBeforeInitializeWritesTheEstablishedRefusalText) {
    ASSERT_EQ(32772u, oscillator.start());
    const auto records = platform_double::traces();
    ASSERT_EQ(2u, records.size());
    expectRecord(records[0], 6, "start", "", true);
    expectRecord(records[1], 1, "start", "TickOscillator is already initialized", false);
}

TEST_F(OscillatorTrace, StartWhileRunningWarnsThatTheThreadIsAlreadyRunning) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    ASSERT_EQ(0u, oscillator.start());
    platform_double::clearTraces();
    ASSERT_EQ(32774u, oscillator.start());
    const auto records = platform_double::tracesOf("start");
    ASSERT_EQ(2u, records.size());
    expectRecord(records[0], 6, "start", "", true);
    expectRecord(records[1], 2, "start", "Thread is already running", false);
}

TEST_F(OscillatorTrace, SuccessfulStartWritesOnlyItsEntry) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    platform_double::clearTraces();
    ASSERT_EQ(0u, oscillator.start());
    const auto records = platform_double::tracesOf("start");
    ASSERT_EQ(1u, records.size());
    expectRecord(records[0], 6, "start", "", true);
}

TEST_F(OscillatorTrace, RegisterOnTickBeforeInitializeWritesNotInitializedWithoutEntry) {
    ASSERT_EQ(32772u, oscillator.registerOnTick(recorder.receiver()));
    const auto records = platform_double::traces();
    ASSERT_EQ(1u, records.size());
    expectRecord(records[0], 1, "registerOnTick", "Not initialized", false);
}

TEST_F(OscillatorTrace, SuccessfulRegisterOnTickWritesNothing) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    platform_double::clearTraces();
    ASSERT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(OscillatorTrace, StopFreezeAndUnfreezeWriteTheirEntries) {
    ASSERT_EQ(0u, oscillator.stop());
    ASSERT_EQ(0u, oscillator.freeze());
    ASSERT_EQ(0u, oscillator.unfreeze());
    const auto records = platform_double::traces();
    ASSERT_EQ(3u, records.size());
    expectRecord(records[0], 6, "stop", "", true);
    expectRecord(records[1], 6, "freeze", "", true);
    expectRecord(records[2], 6, "unfreeze", "", true);
}

TEST_F(OscillatorTrace, RunWritesItsEntryAndTheStartingLineWithTheClockResolution) {
    ASSERT_TRUE(startRecording(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    ASSERT_TRUE(recorder.waitForTicks(1));
    ASSERT_EQ(0u, oscillator.stop());
    const auto records = platform_double::tracesOf("run");
    ASSERT_GE(records.size(), 2u);
    expectRecord(records[0], 6, "run", "", true);
    expectRecord(records[1], 5, "run", expectedStartLine(6), false);
}

TEST_F(OscillatorTrace, OneMsStartingLineNamesItsDelay) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_EQ(0u, oscillator.stop());
    EXPECT_EQ(1u, countOf(platform_double::tracesOf("run"), 5, expectedStartLine(1)));
}

TEST_F(OscillatorTrace, EveryDeliveredTickIsTracedAtLevelSeven) {
    ASSERT_TRUE(startRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_TRUE(recorder.waitForTicks(10));
    ASSERT_EQ(0u, oscillator.stop());
    const auto records = platform_double::tracesOf("run");
    EXPECT_EQ(recorder.count(), countOf(records, 7, "Running OnTick"));
    for (const TraceRecord& record : records) {
        if (record.level == 7) {
            expectRecord(record, 7, "run", "Running OnTick", false);
        }
    }
}

TEST_F(OscillatorTrace, TicksAreNotTracedBelowLevelSeven) {
    platform_double::setTraceLevel(6);
    ASSERT_TRUE(startRecording(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_TRUE(recorder.waitForTicks(10));
    ASSERT_EQ(0u, oscillator.stop());
    EXPECT_EQ(0u, countOf(platform_double::traces(), 7, "Running OnTick"));
    EXPECT_EQ(1u, countOf(platform_double::traces(), 5, expectedStartLine(1)));
}

TEST_F(OscillatorTrace, FrozenOrReceiverlessLoopTracesNoTicks) {
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH));
    ASSERT_EQ(0u, oscillator.start());
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
    ASSERT_EQ(0u, oscillator.freeze());
    ASSERT_EQ(0u, oscillator.registerOnTick(recorder.receiver()));
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
    ASSERT_EQ(0u, oscillator.stop());
    EXPECT_EQ(0u, recorder.count());
    EXPECT_EQ(0u, countOf(platform_double::traces(), 7, "Running OnTick"));
}

// ---- level gating ----------------------------------------------------------

TEST_F(OscillatorTrace, OnlyEnabledLevelsAreWritten) {
    platform_double::setTraceLevel(1);
    ASSERT_EQ(32772u, oscillator.start());
    const auto records = platform_double::traces();
    ASSERT_EQ(1u, records.size());
    expectRecord(records[0], 1, "start", "TickOscillator is already initialized", false);

    platform_double::clearTraces();
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_EQ(32774u, oscillator.start());
    ASSERT_EQ(0u, oscillator.stop());
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(OscillatorTrace, StartingLineNeedsLevelFive) {
    platform_double::setTraceLevel(4);
    ASSERT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_EQ(0u, oscillator.stop());
    EXPECT_TRUE(platform_double::traces().empty());

    platform_double::setTraceLevel(5);
    ASSERT_EQ(0u, oscillator.start());
    ASSERT_EQ(0u, oscillator.stop());
    const auto records = platform_double::traces();
    ASSERT_EQ(1u, records.size());
    expectRecord(records[0], 5, "run", expectedStartLine(6), false);
}

TEST_F(OscillatorTrace, DisabledTracingWritesNothingButStillAsksTheLevel) {
    platform_double::setTraceLevel(0);
    EXPECT_EQ(32772u, oscillator.registerOnTick(nullptr));
    EXPECT_EQ(32772u, oscillator.start());
    EXPECT_EQ(32770u, oscillator.initialize(static_cast<ETickDelay>(9), TICK_PRIORITY_HIGHEST));
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    EXPECT_EQ(0u, oscillator.freeze());
    EXPECT_EQ(0u, oscillator.unfreeze());
    EXPECT_EQ(0u, oscillator.stop());
    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_GE(platform_double::isEnabledCalls(), 7u);
}

TEST_F(OscillatorTrace, TextsAreNotBuiltWhenTheirLevelIsDisabled) {
    platform_double::setTraceLevel(0);
    {
        AllocationScope scope;
        EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
        EXPECT_EQ(0u, scope.count()) << "initialize built its entry text although level 6 is disabled";
    }
    TickOscillator fresh;
    {
        AllocationScope scope;
        EXPECT_EQ(32772u, fresh.start());
        EXPECT_EQ(0u, scope.count()) << "start built its refusal text although level 1 is disabled";
    }
}

TEST_F(OscillatorTrace, EnabledLevelsDoBuildTheirTexts) {
    // The counterpart of the test above: it shows that the allocation count
    // does see a text being built.
    AllocationScope scope;
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    EXPECT_GT(scope.count(), 0u);
}

// ---- errno -----------------------------------------------------------------

TEST_F(OscillatorTrace, TraceServiceFailureWouldChangeErrno) {
    // Shows that the scripted trace service really clobbers errno, so the
    // test below proves something.
    platform_double::scriptTraceErrno(EIO);
    errno = EDOM;
    static const KivTraceHeader header{"here", 1, "test"};
    tsTrace.logMsg(KIV_TRACE_ERROR, header, "text");
    EXPECT_EQ(EIO, errno);
}

TEST_F(OscillatorTrace, TracingKeepsTheCallersErrno) {
    platform_double::scriptTraceErrno(EIO);

    errno = EDOM;
    EXPECT_EQ(32772u, oscillator.registerOnTick(nullptr));
    EXPECT_EQ(EDOM, errno) << "registerOnTick refusal";

    errno = ERANGE;
    EXPECT_EQ(32772u, oscillator.start());
    EXPECT_EQ(ERANGE, errno) << "start refusal";

    errno = EDOM;
    EXPECT_EQ(0u, oscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_HIGHEST));
    EXPECT_EQ(EDOM, errno) << "initialize entry";

    errno = ERANGE;
    EXPECT_EQ(0u, oscillator.freeze());
    EXPECT_EQ(0u, oscillator.unfreeze());
    EXPECT_EQ(ERANGE, errno) << "freeze/unfreeze entries";

    errno = EDOM;
    EXPECT_EQ(0u, oscillator.start());
    EXPECT_EQ(32774u, oscillator.start());
    EXPECT_EQ(0u, oscillator.stop());
    EXPECT_EQ(EDOM, errno) << "start, start refusal and stop";
    EXPECT_FALSE(platform_double::traces().empty());
}

}  // namespace
