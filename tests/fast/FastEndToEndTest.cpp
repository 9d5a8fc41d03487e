// The fast module on the reference platform: its module manager runs the
// phases, clients take the interface object from its broker, and the module's
// traces go through its trace service.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "HostPlatformRun.h"
#include "ITickSchedulerFast.h"
#include "InterfaceBroker.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "PlatformHost/TraceHost.h"
#include "TickFastOscillator.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"

namespace {

constexpr uint32_t kModuleId = TickModule::FastSchedulerModuleId;
namespace Phase = TickModule::Phase;

const host_run::ModulePhases kModulePhases{kModuleId, "CCTickSchedulerFast_OnPhaseActivation"};

CTickSchedulerFast& module() { return tickSchedulerFastModule; }

/// The results the fast module's callback gave in `results`.
std::vector<uint32_t> fastResults(const std::vector<platform_host::PhaseCallResult>& results) {
    return kModulePhases.of(results);
}

ITickSchedulerFast* brokerInterface() {
    return dynamic_cast<ITickSchedulerFast*>(InterfaceBroker::getInstance()->getInterface("ITickSchedulerFast"));
}

/// Delivers one tick the way the oscillator does: through the receiver that
/// the configure phase registered with it. Deterministic, no thread involved.
void deliverTick() {
    ITickReceiver* const receiver = module().tickOscillator.getReceiver();
    ASSERT_NE(receiver, nullptr);
    receiver->onTick(receiver->context);
}

struct Counter {
    std::atomic<uint64_t> calls{0};
    static void onTick(void* context) { static_cast<Counter*>(context)->calls.fetch_add(1); }
    ITickReceiver receiver() { return ITickReceiver{this, &Counter::onTick}; }
};

/// Whether a trace line written since `capture` began holds `text`.
bool traced(TraceCapture& capture, const std::string& text) { return host_run::anyLineHolds(capture.lines(), text); }

/// A fresh module manager with the fast module initialised in it.
class FastEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        CTickSchedulerFast_Uninitialize();
        platform_host::resetModuleManager();
        ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    }

    void TearDown() override {
        CTickSchedulerFast_Uninitialize();
        platform_host::resetModuleManager();
    }
};

TEST_F(FastEndToEnd, ModuleAndCallbackAreRegisteredWithTheModuleManager) {
    EXPECT_TRUE(platform_host::isModuleRegistered(kModuleId));
    EXPECT_NE(brokerInterface(), nullptr);
}

TEST_F(FastEndToEnd, StartUpPhasesConfigureTheOscillatorWithoutStartingIt) {
    EXPECT_EQ(kModulePhases.run(Phase::Configure), std::vector<uint32_t>{TickResult::Success});
    EXPECT_EQ(kModulePhases.run(Phase::Idle), std::vector<uint32_t>{TickResult::Success});

    EXPECT_EQ(module().tickOscillator.getDelay(), TICK_DELAY_1MS);
    EXPECT_EQ(module().tickOscillator.getPriority(), 98);
    EXPECT_FALSE(module().tickOscillator.isRunning());
    EXPECT_EQ(module().initialized, 1u);
}

TEST_F(FastEndToEnd, TheWholeStartUpSequenceReachesTheModuleOnlyOnItsPhases) {
    // 12, 14 and 15 are not subscribed, so the module manager never calls the
    // module with them.
    EXPECT_EQ(fastResults(platform_host::runStartup()),
              (std::vector<uint32_t>{TickResult::Success, TickResult::Success}));
    EXPECT_FALSE(module().tickOscillator.isRunning());
}

TEST_F(FastEndToEnd, PhaseFourteenIsRefusedByTheCallback) {
    TraceCapture capture;
    EXPECT_TRUE(kModulePhases.run(Phase::StartTicks).empty());

    // A manager that called the module on a phase it did not subscribe to.
    EXPECT_EQ(CTickSchedulerFast_OnPhaseActivation(nullptr, Phase::StartTicks), TickResult::PhaseNotHandled);

    EXPECT_TRUE(traced(capture, "Phase not handled: 14"));
}

TEST_F(FastEndToEnd, PhaseSixteenShutsTheModuleDown) {
    ASSERT_EQ(kModulePhases.run(Phase::Configure), std::vector<uint32_t>{TickResult::Success});

    EXPECT_EQ(fastResults(platform_host::runShutdown()), std::vector<uint32_t>{TickResult::Success});

    EXPECT_EQ(module().initialized, 0u);
    EXPECT_EQ(brokerInterface(), nullptr);
    // Every later phase is refused until the module is initialised again.
    EXPECT_EQ(kModulePhases.run(Phase::Configure), std::vector<uint32_t>{TickResult::ModuleNotInitialized});
}

TEST_F(FastEndToEnd, RepeatedInitializeIsReportedNotRefused) {
    TraceCapture capture;

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::AlreadyInitialized);

    EXPECT_TRUE(traced(capture, "Has already been initialized"));
}

TEST_F(FastEndToEnd, InitializeAgainAfterPhaseSixteen) {
    ASSERT_EQ(kModulePhases.run(Phase::Configure), std::vector<uint32_t>{TickResult::Success});
    ASSERT_EQ(kModulePhases.run(Phase::ShutDown), std::vector<uint32_t>{TickResult::Success});

    // The module manager still knows the module from its first start; the
    // module registers with it again all the same.
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success)
        << "the module manager must accept a module that registers again after its shut-down";

    EXPECT_EQ(module().initialized, 1u);
    ASSERT_NE(brokerInterface(), nullptr);
    const std::vector<uint32_t> configured = kModulePhases.run(Phase::Configure);
    ASSERT_FALSE(configured.empty());
    for (uint32_t result : configured) {
        EXPECT_EQ(result, TickResult::Success);
    }
    Counter counter;
    const ITickReceiver receiver = counter.receiver();
    STickHandler* handle = nullptr;
    ASSERT_EQ(brokerInterface()->RegisterTickHandler(&handle, &receiver, "Again"), TickResult::Success);
    deliverTick();
    EXPECT_EQ(counter.calls.load(), 1u);
    EXPECT_EQ(brokerInterface()->UnregisterTickHandler(&handle), TickResult::Success);
}

TEST_F(FastEndToEnd, ClientsUseEveryInterfaceSlot) {
    ASSERT_EQ(kModulePhases.run(Phase::Configure), std::vector<uint32_t>{TickResult::Success});
    ITickSchedulerFast* const fast = brokerInterface();
    ASSERT_NE(fast, nullptr);

    // A handler that removes itself on its first tick, through slot 3.
    struct OneShot {
        ITickSchedulerFast* fast;
        STickHandler* handle;
        std::atomic<uint32_t> result{0xFFFFFFFFu};
        static void onTick(void* context) {
            auto* self = static_cast<OneShot*>(context);
            self->result.store(self->fast->UnregisterTickHandlerFromOnTick(&self->handle));
        }
    };
    OneShot oneShot{fast, nullptr};
    const ITickReceiver oneShotReceiver{&oneShot, &OneShot::onTick};
    Counter member;
    const ITickReceiver memberReceiver = member.receiver();
    STickHandler* memberHandle = nullptr;

    ASSERT_EQ(fast->RegisterTickHandler(&oneShot.handle, &oneShotReceiver, "OneShot"), TickResult::Success);  // 1
    ASSERT_EQ(fast->RegisterTickHandler(&memberHandle, &memberReceiver, "Member"), TickResult::Success);
    deliverTick();
    EXPECT_EQ(oneShot.result.load(), TickResult::Success);
    EXPECT_EQ(oneShot.handle, nullptr);
    EXPECT_EQ(member.calls.load(), 1u);

    ASSERT_EQ(fast->DisableTickHandler(memberHandle), TickResult::Success);  // 5
    deliverTick();
    EXPECT_EQ(member.calls.load(), 1u);
    ASSERT_EQ(fast->EnableTickHandler(memberHandle), TickResult::Success);  // 4
    deliverTick();
    EXPECT_EQ(member.calls.load(), 2u);

    ASSERT_EQ(fast->AddGroup(memberHandle, 1), TickResult::Success);  // 6
    ASSERT_EQ(fast->DisableTickGroup(1), TickResult::Success);        // 9
    deliverTick();
    EXPECT_EQ(member.calls.load(), 2u);
    ASSERT_EQ(fast->EnableTickGroup(1), TickResult::Success);  // 8
    deliverTick();
    EXPECT_EQ(member.calls.load(), 3u);
    ASSERT_EQ(fast->DisableTickGroup(1), TickResult::Success);
    ASSERT_EQ(fast->RemoveGroup(memberHandle, 1), TickResult::Success);  // 7
    deliverTick();
    EXPECT_EQ(member.calls.load(), 4u);
    ASSERT_EQ(fast->EnableTickGroup(1), TickResult::Success);

    ASSERT_EQ(fast->UnregisterTickHandler(&memberHandle), TickResult::Success);  // 2
    EXPECT_EQ(memberHandle, nullptr);
    deliverTick();
    EXPECT_EQ(member.calls.load(), 4u);
    // On the reference list a record that is not in the list is refused.
    EXPECT_EQ(fast->UnregisterTickHandler(&memberHandle), TickResult::ListRemoveFailed);
}

TEST_F(FastEndToEnd, TheExportedOscillatorIsTheModulesOwnOnEveryCall) {
    TickOscillator* const oscillator = CTickSchedulerFast_GetTickOscillator();
    EXPECT_EQ(oscillator, &module().tickOscillator);
    EXPECT_EQ(CTickSchedulerFast_GetTickOscillator(), oscillator);
}

TEST_F(FastEndToEnd, TicksFlowOnceTheIntegratorStartsTheOscillator) {
    // The module never starts its oscillator. The test starts it through the
    // exported access, as an integrator does; the real 1 ms thread then
    // drives the dispatch until phase 16 stops it.
    ASSERT_EQ(kModulePhases.run(Phase::Configure), std::vector<uint32_t>{TickResult::Success});
    ITickSchedulerFast* const fast = brokerInterface();
    ASSERT_NE(fast, nullptr);
    Counter counter;
    const ITickReceiver receiver = counter.receiver();
    STickHandler* handle = nullptr;
    ASSERT_EQ(fast->RegisterTickHandler(&handle, &receiver, "Live"), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_GetTickOscillator()->start(), TickResult::Success);

    // Generous: only proves that ticks arrive at all.
    (void)test_support::eventually([&] { return counter.calls.load() >= 5; }, std::chrono::seconds(10));
    ASSERT_EQ(kModulePhases.run(Phase::ShutDown), std::vector<uint32_t>{TickResult::Success});
    const uint64_t afterShutDown = counter.calls.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));

    EXPECT_GE(afterShutDown, 5u);
    EXPECT_EQ(counter.calls.load(), afterShutDown);
    EXPECT_FALSE(module().tickOscillator.isRunning());
    // The interface is withdrawn, the operations still work through the
    // pointers the client kept.
    EXPECT_EQ(brokerInterface(), nullptr);
    EXPECT_EQ(fast->UnregisterTickHandler(&handle), TickResult::Success);
}

}  // namespace
