// Start-up and shut-down of the fast module against the platform double:
// registrations and their failures, the interface object, the phase
// callback and what each phase does.

#include <chrono>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "FastSchedulerFixture.h"
#include "ITickSchedulerFast.h"
#include "InterfaceSlotChecks.h"
#include "TickModuleIdentity.h"

namespace fast_test {
namespace {

namespace Phase = TickModule::Phase;
constexpr uint32_t kModuleId = TickModule::FastSchedulerModuleId;
constexpr const char* kPhaseCallback = "CTickSchedulerFast_OnPhaseActivation";

/// The nine slots of ITickSchedulerFast and the operations they point to.
struct FastSlots {
    template <class Object>
    static auto of(Object& o) {
        return std::tie(o.RegisterTickHandler, o.UnregisterTickHandler, o.UnregisterTickHandlerFromOnTick,
                        o.EnableTickHandler, o.DisableTickHandler, o.AddGroup, o.RemoveGroup, o.EnableTickGroup,
                        o.DisableTickGroup);
    }
    static auto operations() {
        return std::make_tuple(&CTickSchedulerFast_RegisterTickHandler, &CTickSchedulerFast_UnregisterTickHandler,
                               &CTickSchedulerFast_UnregisterTickHandlerFromOnTick,
                               &CTickSchedulerFast_EnableTickHandler, &CTickSchedulerFast_DisableTickHandler,
                               &CTickSchedulerFast_AddGroup, &CTickSchedulerFast_RemoveGroup,
                               &CTickSchedulerFast_EnableTickGroup, &CTickSchedulerFast_DisableTickGroup);
    }
};

/// The module uninitialised, with the double's records cleared.
class FastLifecycle : public FastSchedulerTest {
protected:
    void SetUp() override {
        FastSchedulerTest::SetUp();
        CTickSchedulerFast_Uninitialize();
        platform_double::reset();
    }

    static uint32_t phase(uint32_t code) { return CTickSchedulerFast_OnPhaseActivation(nullptr, code); }

    static ITickSchedulerFast* registeredInterface() {
        return dynamic_cast<ITickSchedulerFast*>(InterfaceBroker::getInstance()->getInterface("ITickSchedulerFast"));
    }

    /// Initialize fails with `result` and the one error `message`, after the
    /// platform has seen `modules` module, `callbacks` callback and
    /// `interfaces` interface registrations; no list is built and the module
    /// stays uninitialised.
    static void expectInitializeRefused(uint32_t result, const std::string& message, size_t modules, size_t callbacks,
                                        size_t interfaces) {
        EXPECT_EQ(CTickSchedulerFast_Initialize(), result);

        EXPECT_EQ(messagesOf(kInitialize), std::vector<std::string>{message});
        EXPECT_EQ(platform_double::moduleRegistrations().size(), modules);
        EXPECT_EQ(platform_double::callbackRegistrations().size(), callbacks);
        EXPECT_EQ(platform_double::brokerCalls().size(), interfaces);
        EXPECT_TRUE(platform_double::listCalls().empty());
        EXPECT_EQ(module().initialized, 0u);
    }
};

TEST_F(FastLifecycle, InitializeRegistersModuleCallbackAndInterface) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    const auto modules = platform_double::moduleRegistrations();
    ASSERT_EQ(modules.size(), 1u);
    EXPECT_EQ(modules[0].moduleId, kModuleId);
    EXPECT_EQ(modules[0].moduleName, "CTickSchedulerFast");

    const auto callbacks = platform_double::callbackRegistrations();
    ASSERT_EQ(callbacks.size(), 1u);
    EXPECT_EQ(callbacks[0].moduleId, kModuleId);
    EXPECT_EQ(callbacks[0].callbackName, "CCTickSchedulerFast_OnPhaseActivation");
    EXPECT_EQ(callbacks[0].param1, 100u);
    EXPECT_EQ(callbacks[0].param2, 3u);
    EXPECT_EQ(callbacks[0].param3, 0u);
    EXPECT_EQ(callbacks[0].phases, (std::vector<uint32_t>{Phase::Configure, Phase::Idle, Phase::ShutDown}));
    ASSERT_NE(callbacks[0].callbackContext, nullptr);
    EXPECT_EQ(callbacks[0].callbackContext->context, nullptr);
    EXPECT_EQ(callbacks[0].callbackContext->callback, &CTickSchedulerFast_OnPhaseActivation);

    const auto broker = platform_double::brokerCalls();
    ASSERT_EQ(broker.size(), 1u);
    EXPECT_TRUE(broker[0].registration);
    EXPECT_EQ(broker[0].name, "ITickSchedulerFast");
    EXPECT_NE(dynamic_cast<ITickSchedulerFast*>(broker[0].iface), nullptr);

    EXPECT_EQ(module().initialized, 1u);
    EXPECT_EQ(platform_double::listCalls(), std::vector<ListFunction>{ListFunction::Construct});
}

TEST_F(FastLifecycle, InitializeWritesOnlyItsEntryRecord) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    const auto records = platform_double::traces();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(records[0].entry);
    EXPECT_EQ(records[0].level, 6u);
    EXPECT_EQ(records[0].function, kInitialize);
    EXPECT_EQ(records[0].file, kSourceFile);
    EXPECT_EQ(records[0].text, "");
}

TEST_F(FastLifecycle, InterfaceSlotsReachTheFastOperationsInOrder) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    ITickSchedulerFast* const iface = registeredInterface();
    ASSERT_NE(iface, nullptr);

    EXPECT_EQ(FastSlots::of(*iface), FastSlots::operations());
    EXPECT_TRUE(iface->name.empty());
}

TEST_F(FastLifecycle, EveryInitializePastTheModuleManagerFillsAllSlotsBeforeTheBrokerIsAsked) {
    test_support::expectEveryInitializePastTheModuleManagerFillsAllSlotsFirst<FastSlots>(
        &CTickSchedulerFast_Initialize, &CTickSchedulerFast_Uninitialize, &registeredInterface);
}

TEST_F(FastLifecycle, InitializeStoppedAtTheModuleManagerLeavesTheSlotsAsTheyAre) {
    test_support::expectInitializeStoppedAtTheModuleManagerLeavesTheSlots<FastSlots>(
        &CTickSchedulerFast_Initialize, &CTickSchedulerFast_Uninitialize, &registeredInterface);
}

TEST_F(FastLifecycle, TheSameInterfaceObjectIsRegisteredEveryTime) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    CTickSchedulerFast_Uninitialize();
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    const auto broker = platform_double::brokerCalls();
    ASSERT_EQ(broker.size(), 3u);
    EXPECT_EQ(broker[0].iface, broker[2].iface);
}

TEST_F(FastLifecycle, SecondInitializeReportsTheRepetitionWithoutTouchingThePlatform) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    platform_double::reset();

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::AlreadyInitialized);

    EXPECT_EQ(messagesOf(kInitialize), std::vector<std::string>{"1:Has already been initialized"});
    EXPECT_TRUE(platform_double::moduleRegistrations().empty());
    EXPECT_TRUE(platform_double::callbackRegistrations().empty());
    EXPECT_TRUE(platform_double::brokerCalls().empty());
    EXPECT_TRUE(platform_double::listCalls().empty());
    EXPECT_EQ(module().initialized, 1u);
}

TEST_F(FastLifecycle, RefusedModuleRegistrationStopsBeforeTheCallback) {
    platform_double::scriptRegisterModuleResult(32773);

    expectInitializeRefused(TickResult::ModuleRegistrationFailed,
                            "1:Failed to register module with ModuleManager. Error = 0x00008005", 1, 0, 0);
}

TEST_F(FastLifecycle, RefusedCallbackRegistrationKeepsTheModuleRegistered) {
    platform_double::scriptRegisterCallbackResult(0x7FFFFFFFu);

    expectInitializeRefused(TickResult::CallbackRegistrationFailed,
                            "1:Failed to register module callback. Error = 0x7fffffff", 1, 1, 0);
}

TEST_F(FastLifecycle, RefusedInterfaceRegistrationReportsItUnderTheSchedulersInterfaceName) {
    platform_double::scriptRegisterInterfaceResult(32768);

    expectInitializeRefused(TickResult::Failure, "1:Failed to register ITickScheduler. Error = 0x00008000", 1, 1, 1);
}

TEST_F(FastLifecycle, PlatformResultWithTheTopBitSetCountsAsSuccess) {
    platform_double::scriptRegisterModuleResult(0x80000000u);
    platform_double::scriptRegisterCallbackResult(0x80000000u);
    platform_double::scriptRegisterInterfaceResult(0xFFFFFFFFu);

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    EXPECT_EQ(module().initialized, 1u);
    EXPECT_TRUE(messagesOf(kInitialize).empty());
}

TEST_F(FastLifecycle, PlatformResultOfExactly32768CountsAsFailure) {
    platform_double::scriptRegisterModuleResult(32768);

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::ModuleRegistrationFailed);
}

TEST_F(FastLifecycle, PlatformRemarkBelow32768CountsAsSuccess) {
    platform_double::scriptRegisterModuleResult(32767);
    platform_double::scriptRegisterCallbackResult(4097);

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
}

TEST_F(FastLifecycle, FailureResultsDoNotDependOnTracing) {
    platform_double::setTraceLevel(0);
    platform_double::scriptRegisterCallbackResult(40000);

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::CallbackRegistrationFailed);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(FastLifecycle, FailedInitializeStartsAgainWithTheModuleRegistration) {
    platform_double::scriptRegisterInterfaceResult(40000);
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Failure);
    platform_double::scriptRegisterInterfaceResult(0);

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    EXPECT_EQ(platform_double::moduleRegistrations().size(), 2u);
    EXPECT_EQ(platform_double::callbackRegistrations().size(), 2u);
    EXPECT_EQ(platform_double::brokerCalls().size(), 2u);
    EXPECT_NE(registeredInterface(), nullptr);
}

TEST_F(FastLifecycle, InitializeAfterUninitializeRegistersEverythingAgain) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    CTickSchedulerFast_Uninitialize();
    platform_double::reset();

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    EXPECT_EQ(platform_double::moduleRegistrations().size(), 1u);
    EXPECT_EQ(platform_double::callbackRegistrations().size(), 1u);
    EXPECT_EQ(platform_double::brokerCalls().size(), 1u);
    EXPECT_NE(registeredInterface(), nullptr);
    EXPECT_EQ(module().initialized, 1u);
}

TEST_F(FastLifecycle, NewInitializeStartsAnEmptyListAndAbandonsTheOldRecords) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    std::vector<std::string> log;
    RecordingClient client("Old", log);
    ASSERT_EQ(client.registerHandler(), TickResult::Success);
    CTickSchedulerFast_Uninitialize();
    const CList oldList = module().handlerList;

    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    tick();

    EXPECT_TRUE(handlersInList().empty());
    EXPECT_TRUE(log.empty());
    // The module left the record alone; the test frees it and the old list's
    // node itself.
    CList abandoned = oldList;
    EXPECT_EQ(platform_double::listElements(&abandoned), std::vector<void*>{client.handle});
    ASSERT_EQ(CList_Remove(&abandoned, client.handle), 0u);
    delete client.handle;
}

TEST_F(FastLifecycle, UninitializeWithdrawsTheInterfaceAndKeepsHandlersAndGroups) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    std::vector<std::string> log;
    RecordingClient client("Kept", log);
    ASSERT_EQ(client.registerHandler(), TickResult::Success);
    ASSERT_EQ(CTickSchedulerFast_DisableTickGroup(1), TickResult::Success);
    platform_double::reset();

    CTickSchedulerFast_Uninitialize();

    EXPECT_EQ(module().initialized, 0u);
    const auto broker = platform_double::brokerCalls();
    ASSERT_EQ(broker.size(), 1u);
    EXPECT_FALSE(broker[0].registration);
    EXPECT_EQ(broker[0].name, "ITickSchedulerFast");
    EXPECT_EQ(broker[0].removedOut, nullptr);
    EXPECT_EQ(handlersInList(), std::vector<STickHandler*>{client.handle});
    EXPECT_EQ(module().disabledGroupMask.load(), 0x2u);
    EXPECT_TRUE(platform_double::tracesOf("CTickSchedulerFast_Uninitialize").empty());
    EXPECT_TRUE(platform_double::listCalls().empty());
}

TEST_F(FastLifecycle, UninitializeNeedsNoInitialisedModule) {
    CTickSchedulerFast_Uninitialize();

    EXPECT_EQ(module().initialized, 0u);
    EXPECT_EQ(platform_double::brokerCalls().size(), 1u);
}

TEST_F(FastLifecycle, PhasesBeforeInitializeAreRefusedSilently) {
    const bool wasConfigured = module().tickOscillator.isInitialized();

    for (uint32_t code : {Phase::Configure, Phase::Idle, Phase::StartTicks, Phase::ShutDown, 12u}) {
        EXPECT_EQ(phase(code), TickResult::ModuleNotInitialized) << "phase " << code;
    }

    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_TRUE(platform_double::brokerCalls().empty());
    // Phase 11 configured nothing.
    EXPECT_EQ(module().tickOscillator.isInitialized(), wasConfigured);
    EXPECT_EQ(module().tickOscillator.getReceiver(), nullptr);
    EXPECT_EQ(module().tickOscillator.getDelay(), TICK_DELAY_6MS);
}

TEST_F(FastLifecycle, PhaseElevenConfiguresTheOscillatorButDoesNotStartIt) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    EXPECT_EQ(phase(Phase::Configure), TickResult::Success);

    const TickOscillator& oscillator = module().tickOscillator;
    EXPECT_TRUE(oscillator.isInitialized());
    EXPECT_EQ(oscillator.getDelay(), TICK_DELAY_1MS);
    EXPECT_EQ(oscillator.getPriority(), 98);  // ETickPriority 1
    EXPECT_FALSE(oscillator.isRunning());
    EXPECT_FALSE(oscillator.isFrozen());
    ITickReceiver* const receiver = oscillator.getReceiver();
    ASSERT_NE(receiver, nullptr);
    EXPECT_EQ(receiver->context, &module());
    EXPECT_EQ(receiver->onTick, &CTickSchedulerFast_OnTick);
    EXPECT_TRUE(platform_double::schedulingCalls().empty());
    EXPECT_TRUE(messagesOf(kPhaseCallback).empty());
}

TEST_F(FastLifecycle, ConfiguredReceiverDispatchesTheHandlers) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    ASSERT_EQ(phase(Phase::Configure), TickResult::Success);
    std::vector<std::string> log;
    RecordingClient client("A", log);
    ASSERT_EQ(client.registerHandler(), TickResult::Success);

    ITickReceiver* const receiver = module().tickOscillator.getReceiver();
    receiver->onTick(receiver->context);

    EXPECT_EQ(log, std::vector<std::string>{"A"});
}

TEST_F(FastLifecycle, PhaseElevenAgainConfiguresTheSameReceiverAgain) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    ASSERT_EQ(phase(Phase::Configure), TickResult::Success);
    ITickReceiver* const first = module().tickOscillator.getReceiver();
    module().tickOscillator.initialize(TICK_DELAY_6MS, TICK_PRIORITY_LOWEST);

    EXPECT_EQ(phase(Phase::Configure), TickResult::Success);

    EXPECT_EQ(module().tickOscillator.getReceiver(), first);
    EXPECT_EQ(module().tickOscillator.getDelay(), TICK_DELAY_1MS);
    EXPECT_EQ(module().tickOscillator.getPriority(), 98);
}

TEST_F(FastLifecycle, PhaseThirteenIsAcknowledgedAndChangesNothing) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    platform_double::reset();

    EXPECT_EQ(phase(Phase::Idle), TickResult::Success);

    EXPECT_EQ(module().initialized, 1u);
    EXPECT_EQ(module().tickOscillator.getReceiver(), nullptr);
    EXPECT_TRUE(platform_double::traces().empty());
    EXPECT_TRUE(platform_double::brokerCalls().empty());
}

TEST_F(FastLifecycle, UnknownPhasesAreNotHandled) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    platform_double::reset();

    for (uint32_t code : {12u, Phase::StartTicks, 15u, 4000000000u}) {
        EXPECT_EQ(phase(code), TickResult::PhaseNotHandled) << "phase " << code;
    }

    EXPECT_EQ(messagesOf(kPhaseCallback),
              (std::vector<std::string>{"1:Phase not handled: 12", "1:Phase not handled: 14", "1:Phase not handled: 15",
                                        "1:Phase not handled: 4000000000"}));
    EXPECT_EQ(platform_double::tracesOf(kPhaseCallback)[0].file, kSourceFile);
    EXPECT_EQ(module().initialized, 1u);
    EXPECT_EQ(module().tickOscillator.getReceiver(), nullptr);
}

TEST_F(FastLifecycle, PhaseSixteenUninitialisesSoALaterPhaseElevenIsRefused) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    platform_double::reset();

    EXPECT_EQ(phase(Phase::ShutDown), TickResult::Success);

    EXPECT_EQ(module().initialized, 0u);
    const auto broker = platform_double::brokerCalls();
    ASSERT_EQ(broker.size(), 1u);
    EXPECT_FALSE(broker[0].registration);
    EXPECT_EQ(phase(Phase::Configure), TickResult::ModuleNotInitialized);
    EXPECT_EQ(module().tickOscillator.getReceiver(), nullptr);
}

TEST_F(FastLifecycle, ModuleManagerReachesThePhaseCallbackThroughTheRegisteredRecord) {
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);

    EXPECT_EQ(platform_double::activatePhase(kModuleId, Phase::Configure), TickResult::Success);
    EXPECT_EQ(platform_double::activatePhase(kModuleId, Phase::Idle), TickResult::Success);
    EXPECT_EQ(platform_double::activatePhase(kModuleId, Phase::StartTicks), TickResult::PhaseNotHandled);
    EXPECT_EQ(platform_double::activatePhase(kModuleId, Phase::ShutDown), TickResult::Success);
    EXPECT_EQ(platform_double::activatePhase(kModuleId, Phase::Configure), TickResult::ModuleNotInitialized);
}

TEST_F(FastLifecycle, UninitializeStopsAnOscillatorStartedFromOutside) {
    // Nothing in the module starts its oscillator; the test does it, as an
    // outside component could, and shut-down must still stop and join it.
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
    ASSERT_EQ(phase(Phase::Configure), TickResult::Success);
    ASSERT_EQ(module().tickOscillator.start(), TickResult::Success);
    ASSERT_TRUE(module().tickOscillator.isRunning());

    EXPECT_EQ(phase(Phase::ShutDown), TickResult::Success);

    EXPECT_FALSE(module().tickOscillator.isRunning());
    EXPECT_EQ(module().tickOscillator.nativeHandle(), 0u);
}

}  // namespace
}  // namespace fast_test
