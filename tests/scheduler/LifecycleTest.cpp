// The module's life cycle on the platform double: Initialize and its platform
// registrations, the phase callback, the start-up listing and Uninitialize.

#include <string>
#include <tuple>
#include <vector>

#include "ITickScheduler.h"
#include "InterfaceSlotChecks.h"
#include "SchedulerFixture.h"

namespace scheduler_test {
namespace {

constexpr const char* kInitialize = "CTickScheduler_Initialize";
constexpr const char* kPhase = "CTickScheduler_OnPhaseActivation";
constexpr const char* kStartTick = "CTickScheduler_PhaseModuleStartTick";
constexpr const char* kHeading = "Starting TickScheduler with TickHandlers in the following order";
constexpr uint32_t kModuleId = TickModule::SchedulerModuleId;
namespace Phase = TickModule::Phase;

/// The twelve slots of ITickScheduler and the operations they point to.
struct SchedulerSlots {
    template <class Object>
    static auto of(Object& o) {
        return std::tie(o.RegisterTickHandler, o.UnregisterTickHandler, o.Freeze, o.Unfreeze, o.SetStartOffset,
                        o.SetTickPriority, o.EnableTickHandler, o.DisableTickHandler, o.AddGroup, o.RemoveGroup,
                        o.EnableTickGroup, o.DisableTickGroup);
    }
    static auto operations() {
        return std::make_tuple(
            &CTickScheduler_RegisterTickHandler, &CTickScheduler_UnregisterTickHandler, &CTickScheduler_Freeze,
            &CTickScheduler_Unfreeze, &CTickScheduler_SetStartOffset, &CTickScheduler_SetTickPriority,
            &CTickScheduler_EnableTickHandler, &CTickScheduler_DisableTickHandler, &CTickScheduler_AddGroup,
            &CTickScheduler_RemoveGroup, &CTickScheduler_EnableTickGroup, &CTickScheduler_DisableTickGroup);
    }
};

class LifecycleTest : public SchedulerTest {
protected:
    uint32_t initialize(ETickPriority priority = TICK_PRIORITY_NORMAL) { return CTickScheduler_Initialize(&priority); }
    uint32_t phase(uint32_t code) { return platform_double::activatePhase(kModuleId, code); }
    uint32_t runPhaseDirectly(uint32_t code) { return CTickScheduler_OnPhaseActivation(nullptr, code); }
};

// ---- Initialize ---------------------------------------------------------------------

TEST_F(LifecycleTest, InitializeRegistersModuleCallbackAndInterfaceInThisOrder) {
    ASSERT_EQ(initialize(TICK_PRIORITY_LOW), TickResult::Success);

    const std::vector<platform_double::ModuleRegistration> modules = platform_double::moduleRegistrations();
    ASSERT_EQ(modules.size(), 1u);
    EXPECT_EQ(modules[0].moduleId, kModuleId);
    EXPECT_EQ(modules[0].moduleName, "CTickScheduler");

    const std::vector<platform_double::CallbackRegistration> callbacks = platform_double::callbackRegistrations();
    ASSERT_EQ(callbacks.size(), 1u);
    EXPECT_EQ(callbacks[0].moduleId, kModuleId);
    EXPECT_EQ(callbacks[0].callbackName, "CCTickScheduler_OnPhaseActivation");
    EXPECT_EQ(callbacks[0].param1, 100u);
    EXPECT_EQ(callbacks[0].callbackContext, &phaseCallbackContext);
    EXPECT_EQ(callbacks[0].param2, 3u);
    EXPECT_EQ(callbacks[0].param3, 0u);
    EXPECT_EQ(callbacks[0].phases,
              (std::vector<uint32_t>{Phase::Configure, Phase::Idle, Phase::ShutDown, Phase::StartTicks}));
    EXPECT_EQ(phaseCallbackContext.context, nullptr);
    EXPECT_EQ(phaseCallbackContext.callback, &CTickScheduler_OnPhaseActivation);

    const std::vector<platform_double::BrokerCall> broker = platform_double::brokerCalls();
    ASSERT_EQ(broker.size(), 1u);
    EXPECT_TRUE(broker[0].registration);
    EXPECT_EQ(broker[0].name, "ITickScheduler");
    EXPECT_EQ(InterfaceBroker::getInstance()->getInterface("ITickScheduler"), broker[0].iface);

    EXPECT_EQ(tickScheduler.initialized.load(), 1u);
    EXPECT_EQ(tickScheduler.tickPriority, TICK_PRIORITY_LOW);
    EXPECT_EQ(entries(), std::vector<std::string>{kInitialize});
    EXPECT_TRUE(messages().empty());
}

TEST_F(LifecycleTest, PublishedObjectIsTheInterfacePartOfAnITickSchedulerWithItsTwelveSlots) {
    ASSERT_EQ(initialize(), TickResult::Success);
    IInterface* published = InterfaceBroker::getInstance()->getInterface("ITickScheduler");
    ASSERT_NE(published, nullptr);
    EXPECT_TRUE(published->name.empty());
    auto* object = dynamic_cast<ITickScheduler*>(published);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(SchedulerSlots::of(*object), SchedulerSlots::operations());
}

TEST_F(LifecycleTest, InitializeTwiceAnswersAlreadyInitializedAndKeepsThePriority) {
    ASSERT_EQ(initialize(TICK_PRIORITY_HIGH), TickResult::Success);
    platform_double::clearTraces();
    EXPECT_EQ(initialize(TICK_PRIORITY_LOWEST), TickResult::AlreadyInitialized);
    EXPECT_EQ(tickScheduler.tickPriority, TICK_PRIORITY_HIGH);
    EXPECT_EQ(platform_double::moduleRegistrations().size(), 1u);
    EXPECT_EQ(platform_double::callbackRegistrations().size(), 1u);
    EXPECT_EQ(platform_double::brokerCalls().size(), 1u);
    EXPECT_EQ(entries(), std::vector<std::string>{kInitialize});
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kInitialize, "Has already been initialized"}}));
}

TEST_F(LifecycleTest, RefusedModuleRegistrationStopsInitialize) {
    platform_double::scriptRegisterModuleResult(32768);
    // The priority is read only after every registration has succeeded.
    EXPECT_EQ(CTickScheduler_Initialize(nullptr), TickResult::ModuleRegistrationFailed);
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kInitialize, "Failed to register module with ModuleManager"}}));
    EXPECT_TRUE(platform_double::callbackRegistrations().empty());
    EXPECT_TRUE(platform_double::brokerCalls().empty());
    EXPECT_EQ(tickScheduler.initialized.load(), 0u);
}

TEST_F(LifecycleTest, RefusedCallbackRegistrationIsTracedInEightHexDigits) {
    platform_double::scriptRegisterCallbackResult(32778);
    EXPECT_EQ(CTickScheduler_Initialize(nullptr), TickResult::CallbackRegistrationFailed);
    EXPECT_EQ(messages(),
              (std::vector<Line>{{1, kInitialize, "Failed to register module callback with error 0x0000800a"}}));
    // The module registration stays in place.
    EXPECT_EQ(platform_double::moduleRegistrations().size(), 1u);
    EXPECT_TRUE(platform_double::brokerCalls().empty());
    EXPECT_EQ(tickScheduler.initialized.load(), 0u);
}

TEST_F(LifecycleTest, RefusedInterfaceRegistrationIsTracedInEightHexDigits) {
    platform_double::scriptRegisterInterfaceResult(0x7FFFFFFFu);
    EXPECT_EQ(CTickScheduler_Initialize(nullptr), TickResult::Failure);
    EXPECT_EQ(messages(),
              (std::vector<Line>{{1, kInitialize, "Failed to register ITickScheduler with error 0x7fffffff"}}));
    EXPECT_EQ(platform_double::moduleRegistrations().size(), 1u);
    EXPECT_EQ(platform_double::callbackRegistrations().size(), 1u);
    EXPECT_EQ(tickScheduler.initialized.load(), 0u);
}

TEST_F(LifecycleTest, FailedInitializeLeavesThePriorityAndTheModuleUninitialised) {
    platform_double::scriptRegisterInterfaceResult(32768);
    const ETickPriority priority = TICK_PRIORITY_HIGHEST;
    tickScheduler.tickPriority = TICK_PRIORITY_LOWEST;
    EXPECT_EQ(CTickScheduler_Initialize(&priority), TickResult::Failure);
    EXPECT_EQ(tickScheduler.tickPriority, TICK_PRIORITY_LOWEST);
    // The callback was registered and still arrives: it finds the module uninitialised.
    EXPECT_EQ(phase(Phase::Configure), TickResult::ModuleNotInitialized);
    EXPECT_FALSE(tickScheduler.tickOscillator.isInitialized());
}

TEST_F(LifecycleTest, InitializeTriesEveryStepAgainAfterARefusal) {
    platform_double::scriptRegisterModuleResult(32775);
    ASSERT_EQ(CTickScheduler_Initialize(nullptr), TickResult::ModuleRegistrationFailed);
    platform_double::scriptRegisterModuleResult(0);
    EXPECT_EQ(initialize(), TickResult::Success);
    EXPECT_EQ(platform_double::moduleRegistrations().size(), 2u);
    EXPECT_EQ(platform_double::callbackRegistrations().size(), 1u);
}

TEST_F(LifecycleTest, PlatformResultWithTheTopBitSetCountsAsSuccess) {
    platform_double::scriptRegisterModuleResult(0x80000000u);
    platform_double::scriptRegisterCallbackResult(0x80000000u);
    platform_double::scriptRegisterInterfaceResult(0xFFFFFFFFu);
    EXPECT_EQ(initialize(), TickResult::Success);
    EXPECT_EQ(tickScheduler.initialized.load(), 1u);
    EXPECT_TRUE(messages().empty());
}

TEST_F(LifecycleTest, PlatformResultOfExactly32768CountsAsFailure) {
    platform_double::scriptRegisterModuleResult(32767);
    platform_double::scriptRegisterCallbackResult(32768);
    EXPECT_EQ(CTickScheduler_Initialize(nullptr), TickResult::CallbackRegistrationFailed);
    EXPECT_EQ(messages(),
              (std::vector<Line>{{1, kInitialize, "Failed to register module callback with error 0x00008000"}}));
}

TEST_F(LifecycleTest, InitializeAfterUninitializeRegistersTheSameObjectAgain) {
    ASSERT_EQ(initialize(), TickResult::Success);
    CTickScheduler_Uninitialize();
    ASSERT_EQ(initialize(TICK_PRIORITY_LOWEST), TickResult::Success);
    const std::vector<platform_double::BrokerCall> broker = platform_double::brokerCalls();
    ASSERT_EQ(broker.size(), 3u);
    EXPECT_TRUE(broker[2].registration);
    EXPECT_EQ(broker[2].iface, broker[0].iface);
    EXPECT_EQ(platform_double::moduleRegistrations().size(), 2u);
    EXPECT_EQ(tickScheduler.tickPriority, TICK_PRIORITY_LOWEST);
}

ITickScheduler* publishedObject() {
    return dynamic_cast<ITickScheduler*>(InterfaceBroker::getInstance()->getInterface("ITickScheduler"));
}

TEST_F(LifecycleTest, EveryInitializePastTheModuleManagerFillsAllSlotsBeforeTheBrokerIsAsked) {
    test_support::expectEveryInitializePastTheModuleManagerFillsAllSlotsFirst<SchedulerSlots>(
        [this] { return initialize(); }, &CTickScheduler_Uninitialize, &publishedObject);
}

TEST_F(LifecycleTest, InitializeStoppedAtTheModuleManagerLeavesTheSlotsAsTheyAre) {
    test_support::expectInitializeStoppedAtTheModuleManagerLeavesTheSlots<SchedulerSlots>(
        [this] { return initialize(); }, &CTickScheduler_Uninitialize, &publishedObject);
}

// ---- Phases -----------------------------------------------------------------------------

TEST_F(LifecycleTest, AnyPhaseBeforeInitializeIsRefusedAndDoesNothing) {
    for (uint32_t code : {Phase::Configure, Phase::Idle, Phase::StartTicks, Phase::ShutDown, 12u}) {
        platform_double::clearTraces();
        EXPECT_EQ(runPhaseDirectly(code), TickResult::ModuleNotInitialized) << code;
        EXPECT_EQ(messages(), (std::vector<Line>{{2, kPhase, "Tick Scheduler has not been initialized"}})) << code;
    }
    EXPECT_FALSE(tickScheduler.tickOscillator.isInitialized());
    EXPECT_FALSE(tickScheduler.tickOscillator.isRunning());
    EXPECT_TRUE(platform_double::brokerCalls().empty());
}

TEST_F(LifecycleTest, PhaseElevenPreparesTheOscillatorAndItsReceiver) {
    ASSERT_EQ(initialize(TICK_PRIORITY_HIGH), TickResult::Success);
    platform_double::clearTraces();
    EXPECT_EQ(phase(Phase::Configure), TickResult::Success);
    EXPECT_TRUE(tickScheduler.tickOscillator.isInitialized());
    EXPECT_EQ(tickScheduler.tickOscillator.getDelay(), TICK_DELAY_6MS);
    EXPECT_EQ(tickScheduler.tickOscillator.getPriority(), 98);
    EXPECT_EQ(tickScheduler.tickOscillator.getReceiver(), &schedulerTickReceiver);
    EXPECT_EQ(schedulerTickReceiver.context, &tickScheduler);
    EXPECT_EQ(schedulerTickReceiver.onTick, &CTickScheduler_OnTick);
    EXPECT_FALSE(tickScheduler.tickOscillator.isRunning());
    EXPECT_TRUE(messages().empty());
}

TEST_F(LifecycleTest, PhaseThirteenChangesNothing) {
    Probe probe("P", &log);
    registerProbe(probe, 2);
    ASSERT_EQ(initialize(), TickResult::Success);
    const std::vector<STickHandler*> before = handlerList();
    platform_double::clearTraces();
    EXPECT_EQ(phase(Phase::Idle), TickResult::Success);
    EXPECT_EQ(handlerList(), before);
    EXPECT_FALSE(tickScheduler.tickOscillator.isInitialized());
    EXPECT_EQ(tickScheduler.initialized.load(), 1u);
    EXPECT_TRUE(platform_double::traces().empty());
}

TEST_F(LifecycleTest, PhasesTwelveAndFifteenAreNotHandled) {
    ASSERT_EQ(initialize(), TickResult::Success);
    platform_double::clearTraces();
    for (uint32_t code : {12u, 15u, 0u, 4000000000u}) {
        EXPECT_EQ(phase(code), TickResult::PhaseNotHandled) << "phase " << code;
    }
    EXPECT_EQ(messages(), (std::vector<Line>{{1, kPhase, "Phase not handled: 12"},
                                             {1, kPhase, "Phase not handled: 15"},
                                             {1, kPhase, "Phase not handled: 0"},
                                             {1, kPhase, "Phase not handled: 4000000000"}}));
}

TEST_F(LifecycleTest, PhaseFourteenWithoutHandlersTracesOnlyTheHeadingAndStarts) {
    ASSERT_EQ(initialize(), TickResult::Success);
    ASSERT_EQ(phase(Phase::Configure), TickResult::Success);
    platform_double::clearTraces();
    EXPECT_EQ(phase(Phase::StartTicks), TickResult::Success);
    EXPECT_TRUE(tickScheduler.tickOscillator.isRunning());
    const std::vector<Line> listing = {{5, kStartTick, kHeading}};
    std::vector<Line> ours;
    for (const Line& line : messages()) {
        if (line.function == kStartTick) {
            ours.push_back(line);
        }
    }
    EXPECT_EQ(ours, listing);
    const std::vector<std::string> entered = entries();
    ASSERT_GE(entered.size(), 2u);
    EXPECT_EQ(entered[0], kStartTick);
    EXPECT_EQ(entered[1], "start");
}

TEST_F(LifecycleTest, StartUpListingShowsEveryHandlerInDispatchOrder) {
    Probe audio("Audio", &log);
    Probe video("Video", &log);
    Probe longName(std::string(31, 'L'), &log);
    STickHandler* audioHandle = registerProbe(audio, 10);
    STickHandler* videoHandle = registerProbe(video, 3);
    registerProbe(longName, 1);
    ASSERT_EQ(CTickScheduler_SetTickPriority(audioHandle, 7), TickResult::Success);
    ASSERT_EQ(CTickScheduler_SetTickPriority(videoHandle, -3), TickResult::Success);
    ASSERT_EQ(CTickScheduler_SetStartOffset(videoHandle, 2), TickResult::Success);
    ASSERT_EQ(initialize(), TickResult::Success);
    ASSERT_EQ(phase(Phase::Configure), TickResult::Success);
    // Freeze so that no tick changes the counters shown below.
    ASSERT_EQ(CTickScheduler_Freeze(), TickResult::Success);
    platform_double::clearTraces();
    ASSERT_EQ(CTickScheduler_PhaseModuleStartTick(), TickResult::Success);
    std::vector<Line> listing;
    for (const Line& line : messages()) {
        if (line.function == kStartTick) {
            listing.push_back(line);
        }
    }
    EXPECT_EQ(listing, (std::vector<Line>{
                           {5, kStartTick, kHeading},
                           {5, kStartTick, "Video: Prio = -3, tickInterval = 18, current interval = 2"},
                           {5, kStartTick, std::string(31, 'L') + ": Prio = 5, tickInterval = 6, current interval = 0"},
                           {5, kStartTick, "Audio: Prio = 7, tickInterval = 60, current interval = 0"},
                       }));
    (void)tickScheduler.tickOscillator.stop();  // before the probes go out of scope
}

TEST_F(LifecycleTest, ListingShowsSixTimesTheIntervalAsASigned32BitNumber) {
    Probe big("Big", &log);
    registerProbe(big, 0x80000000u / 6u + 1u);  // 6 x interval passes 2^31
    ASSERT_EQ(initialize(), TickResult::Success);
    platform_double::clearTraces();
    // No phase 11: the start fails, which is fine for reading the listing.
    EXPECT_EQ(CTickScheduler_PhaseModuleStartTick(), TickResult::Failure);
    const std::vector<Line> all = messages();
    ASSERT_GE(all.size(), 2u);
    EXPECT_EQ(all[1], (Line{5, kStartTick, "Big: Prio = 5, tickInterval = -2147483644, current interval = 0"}));
}

TEST_F(LifecycleTest, ListingIsLeftOutWhenLevelFiveIsDisabled) {
    Probe probe("P", &log);
    registerProbe(probe, 1);
    ASSERT_EQ(initialize(), TickResult::Success);
    ASSERT_EQ(phase(Phase::Configure), TickResult::Success);
    platform_double::setTraceLevel(4);
    platform_double::clearTraces();
    EXPECT_EQ(phase(Phase::StartTicks), TickResult::Success);
    EXPECT_TRUE(platform_double::tracesOf(kStartTick).empty());
    // The oscillator ticks the probe: stop it before the probe goes out of scope.
    (void)tickScheduler.tickOscillator.stop();
}

TEST_F(LifecycleTest, PhaseFourteenWithoutPhaseElevenFailsWithTwoErrorLines) {
    ASSERT_EQ(initialize(), TickResult::Success);
    platform_double::clearTraces();
    EXPECT_EQ(phase(Phase::StartTicks), TickResult::Failure);
    EXPECT_FALSE(tickScheduler.tickOscillator.isRunning());
    std::vector<Line> errors;
    for (const Line& line : messages()) {
        if (line.level == 1) {
            errors.push_back(line);
        }
    }
    EXPECT_EQ(errors, (std::vector<Line>{{1, "start", "TickOscillator is already initialized"},
                                         {1, kStartTick, "Failed to start TickOscillator"},
                                         {1, kPhase, "Phase not handled: 14"}}));
}

TEST_F(LifecycleTest, HandlersRegisteredBeforeInitializeAreListedAndCalledAfterTheStart) {
    Probe early("Early", &log);
    Latch called("the first tick after the oscillator started");
    early.action = [&called] { called.open(); };
    STickHandler* handle = registerProbe(early, 1);
    ASSERT_EQ(initialize(), TickResult::Success);
    ASSERT_EQ(phase(Phase::Configure), TickResult::Success);
    ASSERT_EQ(phase(Phase::Idle), TickResult::Success);
    ASSERT_EQ(phase(Phase::StartTicks), TickResult::Success);
    called.wait();
    CTickScheduler_Uninitialize();
    delete[] handle;  // shut-down empties the list without freeing records
    const std::vector<platform_double::TraceRecord> listing = platform_double::tracesOf(kStartTick);
    bool listed = false;
    for (const platform_double::TraceRecord& record : listing) {
        listed = listed || record.text == "Early: Prio = 5, tickInterval = 6, current interval = 0";
    }
    EXPECT_TRUE(listed);
}

// ---- Shut-down --------------------------------------------------------------------------

TEST_F(LifecycleTest, PhaseSixteenStopsWithdrawsAndEmptiesTheListWithoutFreeing) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 1);
    ASSERT_EQ(initialize(), TickResult::Success);
    ASSERT_EQ(phase(Phase::Configure), TickResult::Success);
    ASSERT_EQ(phase(Phase::StartTicks), TickResult::Success);
    platform_double::clearTraces();

    EXPECT_EQ(phase(Phase::ShutDown), TickResult::Success);
    EXPECT_FALSE(tickScheduler.tickOscillator.isRunning());
    EXPECT_EQ(tickScheduler.initialized.load(), 0u);
    EXPECT_TRUE(handlerList().empty());
    const std::vector<platform_double::BrokerCall> broker = platform_double::brokerCalls();
    ASSERT_EQ(broker.size(), 2u);
    EXPECT_FALSE(broker[1].registration);
    EXPECT_EQ(broker[1].name, "ITickScheduler");
    EXPECT_EQ(broker[1].removedOut, nullptr);
    EXPECT_EQ(InterfaceBroker::getInstance()->getInterface("ITickScheduler"), nullptr);
    // Uninitialize itself writes nothing; only the oscillator's stop entry.
    EXPECT_TRUE(messagesExcept("run").empty());
    EXPECT_EQ(entries("run"), std::vector<std::string>{"stop"});

    // The record is still a valid block; unregistering it now finds nothing.
    EXPECT_STREQ(handle->name, "P");
    STickHandler* copy = handle;
    EXPECT_EQ(CTickScheduler_UnregisterTickHandler(&copy), TickResult::Success);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(messagesExcept("run"),
              (std::vector<Line>{{2, "CTickScheduler_UnregisterTickHandler",
                                  "Tick Handler unregister unsuccessful : Tick handler doesn't exist"}}));
    delete[] handle;
}

TEST_F(LifecycleTest, PhasesAfterUninitializeAreRefused) {
    ASSERT_EQ(initialize(), TickResult::Success);
    ASSERT_EQ(phase(Phase::ShutDown), TickResult::Success);
    platform_double::clearTraces();
    EXPECT_EQ(phase(Phase::Configure), TickResult::ModuleNotInitialized);
    EXPECT_EQ(messages(), (std::vector<Line>{{2, kPhase, "Tick Scheduler has not been initialized"}}));
}

TEST_F(LifecycleTest, UninitializeRunsEveryStepEvenWhenNeverInitialised) {
    Probe probe("P", &log);
    STickHandler* handle = registerProbe(probe, 1);
    CTickScheduler_Uninitialize();
    EXPECT_TRUE(handlerList().empty());
    const std::vector<platform_double::BrokerCall> broker = platform_double::brokerCalls();
    ASSERT_EQ(broker.size(), 1u);
    EXPECT_FALSE(broker[0].registration);
    EXPECT_EQ(tickScheduler.initialized.load(), 0u);
    delete[] handle;
}

TEST_F(LifecycleTest, HandlersRegisteredAfterUninitializeAreKept) {
    ASSERT_EQ(initialize(), TickResult::Success);
    CTickScheduler_Uninitialize();
    Probe probe("Late", &log);
    STickHandler* handle = registerProbe(probe, 1);
    EXPECT_EQ(handlerList(), std::vector<STickHandler*>{handle});
}

}  // namespace
}  // namespace scheduler_test
