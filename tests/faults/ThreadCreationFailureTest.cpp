// Thread creation refused by the system: the oscillator's start reports it
// without a message and stays stopped, the scheduler's phase 14 reports the
// failed start, and the next start (or phase 14) runs the oscillator.

#include <cerrno>
#include <string>
#include <vector>

#include "FaultFixture.h"
#include "TickModuleIdentity.h"
#include "TimingEnvironment.h"

namespace {

using fault_test::CountingClient;
using fault_test::errorsAndWarnings;
using fault_test::eventually;

class ThreadCreationFailure : public fault_test::FaultTest, public ::testing::WithParamInterface<int> {};

TEST_P(ThreadCreationFailure, OscillatorStartFailsQuietlyAndStaysStoppedUntilTheNextStart) {
    CountingClient client;
    ITickReceiver receiver = client.receiver();
    TickOscillator oscillator;
    ASSERT_EQ(oscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH), TickResult::Success);
    ASSERT_EQ(oscillator.registerOnTick(&receiver), TickResult::Success);
    platform_double::clearTraces();

    thread_faults::failThreadCreation(GetParam());
    EXPECT_EQ(oscillator.start(), TickResult::ThreadCreationFailed);
    thread_faults::allowThreadCreation();

    EXPECT_EQ(thread_faults::refusedCreations(), 1u);
    EXPECT_FALSE(oscillator.isRunning());
    EXPECT_EQ(oscillator.nativeHandle(), 0u);
    EXPECT_TRUE(errorsAndWarnings().empty());
    EXPECT_TRUE(platform_double::schedulingCalls().empty()) << "nothing to schedule without a thread";
    EXPECT_TRUE(platform_double::namingCalls().empty());
    EXPECT_EQ(client.calls.load(), 0);

    EXPECT_EQ(oscillator.start(), TickResult::Success);
    EXPECT_TRUE(oscillator.isRunning());
    EXPECT_TRUE(eventually([&] { return client.calls.load() > 0; }));
    EXPECT_EQ(oscillator.stop(), TickResult::Success);
}

TEST_P(ThreadCreationFailure, SchedulerPhaseFourteenReportsTheFailedStartAndTheNextOneTicks) {
    CountingClient client;
    ASSERT_EQ(client.registerWithScheduler(1, "Waiting"), TickResult::Success);
    ASSERT_NO_FATAL_FAILURE(fault_test::initializeAndConfigureScheduler());
    platform_double::clearTraces();

    thread_faults::failThreadCreation(GetParam());
    EXPECT_EQ(CTickScheduler_OnPhaseActivation(nullptr, TickModule::Phase::StartTicks), TickResult::Failure);
    thread_faults::allowThreadCreation();

    EXPECT_EQ(errorsAndWarnings(),
              (std::vector<std::string>{"1:CTickScheduler_PhaseModuleStartTick:Failed to start TickOscillator",
                                        "1:CTickScheduler_OnPhaseActivation:Phase not handled: 14"}));
    EXPECT_FALSE(tickScheduler.tickOscillator.isRunning());
    EXPECT_EQ(tickScheduler.initialized.load(), 1u) << "the module stays initialised";
    EXPECT_EQ(client.calls.load(), 0);

    platform_double::clearTraces();
    EXPECT_EQ(CTickScheduler_OnPhaseActivation(nullptr, TickModule::Phase::StartTicks), TickResult::Success);
    EXPECT_TRUE(errorsAndWarnings().empty());
    EXPECT_TRUE(eventually([&] { return client.calls.load() > 0; }));
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&client.handle), TickResult::Success);
    CTickScheduler_Uninitialize();
    EXPECT_FALSE(tickScheduler.tickOscillator.isRunning());
}

TEST_P(ThreadCreationFailure, FastOscillatorStartedFromOutsideFailsTheSameWay) {
    CountingClient client;
    STickHandler* handle = nullptr;
    const ITickReceiver receiver = client.receiver();
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_RegisterTickHandler(&handle, &receiver, "Fast"), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_OnPhaseActivation(nullptr, TickModule::Phase::Configure), TickResult::Success);
    TickOscillator& oscillator = tickSchedulerFastModule.tickOscillator;

    thread_faults::failThreadCreation(GetParam());
    EXPECT_EQ(oscillator.start(), TickResult::ThreadCreationFailed);
    thread_faults::allowThreadCreation();
    EXPECT_FALSE(oscillator.isRunning());

    EXPECT_EQ(oscillator.start(), TickResult::Success);
    EXPECT_TRUE(eventually([&] { return client.calls.load() > 0; }));
    CTickSchedulerFast_Uninitialize();
    EXPECT_FALSE(oscillator.isRunning());
    EXPECT_EQ(CTickSchedulerFast_UnregisterTickHandler(&handle), TickResult::Success);
}

INSTANTIATE_TEST_SUITE_P(Errors, ThreadCreationFailure, ::testing::Values(EAGAIN, EPERM, ENOMEM),
                         fault_test::errnoName);

}  // namespace
