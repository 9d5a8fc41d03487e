// The reference module manager: registration, refusals and running phases.

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "CModuleManager.h"
#include "PlatformHost/HostResultCodes.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "TickModuleIdentity.h"

namespace {

namespace result = platform_host::host_result;
using platform_host::PhaseCallResult;

struct Call {
    std::string who;
    uint32_t phase;
};

std::vector<Call> calls;

// Each callback's context names it and carries the result it returns.
struct CallbackIdentity {
    std::string name;
    uint32_t resultToReturn;
};

uint32_t recordingCallback(void* context, uint32_t phase) {
    const auto* identity = static_cast<const CallbackIdentity*>(context);
    calls.push_back(Call{identity->name, phase});
    return identity->resultToReturn;
}

class ModuleManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        platform_host::resetModuleManager();
        calls.clear();
    }
    void TearDown() override { platform_host::resetModuleManager(); }

    static uint32_t registerCallback(uint32_t moduleId, const char* name, SPhaseCallbackContext& record,
                                     const std::vector<uint32_t>& phases) {
        return CModuleManager_RegisterCallback(moduleId, name, 100, &record, 3, 0, phases.data(),
                                               static_cast<uint32_t>(phases.size()));
    }

    /// Subscribes a recording callback of module `moduleId` to `phases`: it
    /// is registered as `name`_OnPhase, records its calls as `name` and
    /// returns `resultToReturn`.
    uint32_t subscribeRecording(uint32_t moduleId, const std::string& name, const std::vector<uint32_t>& phases,
                                uint32_t resultToReturn = 0) {
        Subscriber& subscriber = subscribers.emplace_back();
        subscriber.identity = CallbackIdentity{name, resultToReturn};
        subscriber.record = SPhaseCallbackContext{&subscriber.identity, &recordingCallback};
        return registerCallback(moduleId, (name + "_OnPhase").c_str(), subscriber.record, phases);
    }

private:
    struct Subscriber {
        CallbackIdentity identity;
        SPhaseCallbackContext record;
    };
    // The module manager keeps the record's address: a deque never moves
    // its elements.
    std::deque<Subscriber> subscribers;
};

TEST_F(ModuleManagerTest, RegisteredModuleIsKnown) {
    EXPECT_FALSE(platform_host::isModuleRegistered(TickModule::SchedulerModuleId));
    EXPECT_EQ(CModuleManager_RegisterModule(TickModule::SchedulerModuleId, "CTickScheduler"), result::Success);
    EXPECT_TRUE(platform_host::isModuleRegistered(TickModule::SchedulerModuleId));
    EXPECT_FALSE(platform_host::isModuleRegistered(TickModule::FastSchedulerModuleId));
}

TEST_F(ModuleManagerTest, DuplicateModuleIdIsRefused) {
    ASSERT_EQ(CModuleManager_RegisterModule(TickModule::SchedulerModuleId, "First"), result::Success);
    const uint32_t refusal = CModuleManager_RegisterModule(TickModule::SchedulerModuleId, "Second");
    EXPECT_EQ(refusal, result::ModuleAlreadyRegistered);
    EXPECT_GE(refusal, 32768u);
    EXPECT_TRUE(platform_host::isModuleRegistered(TickModule::SchedulerModuleId));
}

TEST_F(ModuleManagerTest, NullModuleNameIsRefused) {
    EXPECT_EQ(CModuleManager_RegisterModule(7, nullptr), result::ModuleManagerBadArgument);
    EXPECT_FALSE(platform_host::isModuleRegistered(7));
}

TEST_F(ModuleManagerTest, CallbackForUnknownModuleIsRefusedAndNeverCalled) {
    CallbackIdentity identity{"orphan", 0};
    SPhaseCallbackContext record{&identity, &recordingCallback};
    const uint32_t refusal = registerCallback(4711, "Orphan_OnPhase", record, {11});
    EXPECT_EQ(refusal, result::UnknownModule);
    EXPECT_GE(refusal, 32768u);
    EXPECT_TRUE(platform_host::runPhase(11).empty());
    EXPECT_TRUE(calls.empty());
}

TEST_F(ModuleManagerTest, CallbackWithoutRecordFunctionOrPhasesIsRefused) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "M"), result::Success);
    SPhaseCallbackContext noFunction{nullptr, nullptr};
    CallbackIdentity identity{"m", 0};
    SPhaseCallbackContext record{&identity, &recordingCallback};
    EXPECT_EQ(registerCallback(1, "M_OnPhase", noFunction, {11}), result::ModuleManagerBadArgument);
    EXPECT_EQ(CModuleManager_RegisterCallback(1, "M_OnPhase", 100, nullptr, 3, 0, nullptr, 0),
              result::ModuleManagerBadArgument);
    EXPECT_EQ(CModuleManager_RegisterCallback(1, nullptr, 100, &record, 3, 0, nullptr, 0),
              result::ModuleManagerBadArgument);
    EXPECT_EQ(CModuleManager_RegisterCallback(1, "M_OnPhase", 100, &record, 3, 0, nullptr, 2),
              result::ModuleManagerBadArgument);
    EXPECT_TRUE(platform_host::runPhase(11).empty());
}

TEST_F(ModuleManagerTest, CallbackWithEmptyPhaseListIsAcceptedAndNeverCalled) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "M"), result::Success);
    CallbackIdentity identity{"m", 0};
    SPhaseCallbackContext record{&identity, &recordingCallback};
    EXPECT_EQ(CModuleManager_RegisterCallback(1, "M_OnPhase", 100, &record, 3, 0, nullptr, 0), result::Success);
    platform_host::runStartup();
    platform_host::runShutdown();
    EXPECT_TRUE(calls.empty());
}

TEST_F(ModuleManagerTest, PhaseCallsSubscribersInRegistrationOrder) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    ASSERT_EQ(CModuleManager_RegisterModule(2, "B"), result::Success);
    ASSERT_EQ(subscribeRecording(2, "B", {11, 14}), result::Success);
    ASSERT_EQ(subscribeRecording(1, "A1", {11}), result::Success);
    ASSERT_EQ(subscribeRecording(1, "A2", {14, 11}), result::Success);

    const std::vector<PhaseCallResult> results = platform_host::runPhase(11);

    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].who, "B");
    EXPECT_EQ(calls[1].who, "A1");
    EXPECT_EQ(calls[2].who, "A2");
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[0].moduleId, 2u);
    EXPECT_EQ(results[0].callbackName, "B_OnPhase");
    EXPECT_EQ(results[1].moduleId, 1u);
    EXPECT_EQ(results[1].callbackName, "A1_OnPhase");
    EXPECT_EQ(results[2].callbackName, "A2_OnPhase");
    for (const PhaseCallResult& callResult : results) {
        EXPECT_EQ(callResult.phase, 11u);
    }
}

TEST_F(ModuleManagerTest, PhaseReachesOnlyItsSubscribers) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    ASSERT_EQ(subscribeRecording(1, "A", {11, 13, 16}), result::Success);

    EXPECT_TRUE(platform_host::runPhase(14).empty());
    EXPECT_TRUE(platform_host::runPhase(12).empty());
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(platform_host::runPhase(13).size(), 1u);
}

TEST_F(ModuleManagerTest, PhaseReportsEachCallbackResult) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    ASSERT_EQ(CModuleManager_RegisterModule(2, "B"), result::Success);
    ASSERT_EQ(subscribeRecording(1, "A", {14}), result::Success);
    ASSERT_EQ(subscribeRecording(2, "B", {14}, 32779), result::Success);

    const std::vector<PhaseCallResult> results = platform_host::runPhase(14);

    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].result, 0u);
    EXPECT_EQ(results[1].result, 32779u);
}

TEST_F(ModuleManagerTest, CallbackReceivesItsRecordContextAndThePhase) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    CallbackIdentity a{"context-of-A", 0};
    SPhaseCallbackContext record{&a, &recordingCallback};
    ASSERT_EQ(registerCallback(1, "A_OnPhase", record, {16}), result::Success);

    platform_host::runPhase(16);

    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].who, "context-of-A");
    EXPECT_EQ(calls[0].phase, 16u);
}

TEST_F(ModuleManagerTest, RecordIsReadWhenThePhaseRuns) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    CallbackIdentity before{"before", 0};
    CallbackIdentity after{"after", 0};
    SPhaseCallbackContext record{&before, &recordingCallback};
    ASSERT_EQ(registerCallback(1, "A_OnPhase", record, {11}), result::Success);
    record.context = &after;

    platform_host::runPhase(11);

    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].who, "after");
}

TEST_F(ModuleManagerTest, CallbackClearedAfterRegistrationIsReportedNotCalled) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    CallbackIdentity a{"A", 0};
    SPhaseCallbackContext record{&a, &recordingCallback};
    ASSERT_EQ(registerCallback(1, "A_OnPhase", record, {11}), result::Success);
    record.callback = nullptr;

    const std::vector<PhaseCallResult> results = platform_host::runPhase(11);

    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].result, result::CallbackMissing);
    EXPECT_TRUE(calls.empty());
}

// A callback that registers a module and a callback of its own: with the
// manager's lock held during the call this would never return.
SPhaseCallbackContext lateRecord{nullptr, nullptr};
CallbackIdentity lateIdentity{"late", 0};

uint32_t registeringCallback(void* /*context*/, uint32_t phase) {
    calls.push_back(Call{"registering", phase});
    static const uint32_t phases[] = {11};
    lateRecord = SPhaseCallbackContext{&lateIdentity, &recordingCallback};
    const uint32_t moduleResult = CModuleManager_RegisterModule(99, "Late");
    const uint32_t callbackResult =
        CModuleManager_RegisterCallback(99, "Late_OnPhase", 100, &lateRecord, 3, 0, phases, 1);
    return moduleResult | callbackResult;
}

TEST_F(ModuleManagerTest, CallbackMayRegisterWhileThePhaseRuns) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    SPhaseCallbackContext record{nullptr, &registeringCallback};
    ASSERT_EQ(registerCallback(1, "A_OnPhase", record, {11}), result::Success);

    const std::vector<PhaseCallResult> first = platform_host::runPhase(11);
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0].result, result::Success);
    EXPECT_TRUE(platform_host::isModuleRegistered(99));

    // What was registered during the phase takes part from the next run on.
    calls.clear();
    record.callback = &recordingCallback;
    CallbackIdentity a{"A", 0};
    record.context = &a;
    const std::vector<PhaseCallResult> second = platform_host::runPhase(11);
    ASSERT_EQ(second.size(), 2u);
    EXPECT_EQ(second[1].callbackName, "Late_OnPhase");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].who, "late");
}

TEST_F(ModuleManagerTest, StartupRunsPhasesElevenToFifteenInOrderAndShutdownSixteen) {
    EXPECT_EQ(platform_host::startupPhases(), (std::vector<uint32_t>{11, 12, 13, 14, 15}));
    EXPECT_EQ(platform_host::shutdownPhases(), (std::vector<uint32_t>{16}));
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    CallbackIdentity a{"A", 0};
    SPhaseCallbackContext record{&a, &recordingCallback};
    ASSERT_EQ(registerCallback(1, "A_OnPhase", record, {16, 15, 14, 13, 12, 11}), result::Success);

    const std::vector<PhaseCallResult> startup = platform_host::runStartup();
    ASSERT_EQ(startup.size(), 5u);
    for (uint32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(startup[i].phase, 11 + i);
        EXPECT_EQ(calls[i].phase, 11 + i);
    }
    const std::vector<PhaseCallResult> shutdown = platform_host::runShutdown();
    ASSERT_EQ(shutdown.size(), 1u);
    EXPECT_EQ(shutdown[0].phase, 16u);
}

TEST_F(ModuleManagerTest, RunPhasesConcatenatesResultsInPhaseOrder) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    ASSERT_EQ(CModuleManager_RegisterModule(2, "B"), result::Success);
    ASSERT_EQ(subscribeRecording(1, "A", {11, 13}), result::Success);
    ASSERT_EQ(subscribeRecording(2, "B", {13, 11}), result::Success);

    const std::vector<PhaseCallResult> results = platform_host::runPhases({13, 11});

    ASSERT_EQ(results.size(), 4u);
    EXPECT_EQ(results[0].phase, 13u);
    EXPECT_EQ(results[0].moduleId, 1u);
    EXPECT_EQ(results[1].phase, 13u);
    EXPECT_EQ(results[1].moduleId, 2u);
    EXPECT_EQ(results[2].phase, 11u);
    EXPECT_EQ(results[3].phase, 11u);
}

TEST_F(ModuleManagerTest, StartupDoesNotFreeAModuleId) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    platform_host::runStartup();
    EXPECT_EQ(CModuleManager_RegisterModule(1, "A"), result::ModuleAlreadyRegistered);
}

TEST_F(ModuleManagerTest, ShutDownModuleKeepsItsCallbacks) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    CallbackIdentity a{"A", 0};
    SPhaseCallbackContext record{&a, &recordingCallback};
    ASSERT_EQ(registerCallback(1, "A_OnPhase", record, {11, 16}), result::Success);
    platform_host::runShutdown();
    calls.clear();

    EXPECT_EQ(platform_host::runPhase(11).size(), 1u);
    EXPECT_EQ(calls.size(), 1u);
}

TEST_F(ModuleManagerTest, ModuleRegistersAgainAfterShutdownAsANewLife) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    CallbackIdentity a{"A", 0};
    SPhaseCallbackContext record{&a, &recordingCallback};
    ASSERT_EQ(registerCallback(1, "A_OnPhase", record, {11, 16}), result::Success);
    ASSERT_EQ(platform_host::runPhase(16).size(), 1u);
    calls.clear();

    EXPECT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    // The old life's callback is gone until the module registers it again.
    EXPECT_TRUE(platform_host::runPhase(11).empty());
    ASSERT_EQ(registerCallback(1, "A_OnPhase", record, {11, 16}), result::Success);
    EXPECT_EQ(platform_host::runPhase(11).size(), 1u);
    EXPECT_EQ(calls.size(), 1u);
    // The new life is live again: a second registration is a duplicate.
    EXPECT_EQ(CModuleManager_RegisterModule(1, "A"), result::ModuleAlreadyRegistered);
}

TEST_F(ModuleManagerTest, ShutdownEndsEveryModuleNotOnlyItsSubscribers) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    ASSERT_EQ(CModuleManager_RegisterModule(2, "B"), result::Success);
    CallbackIdentity b{"B", 0};
    SPhaseCallbackContext record{&b, &recordingCallback};
    ASSERT_EQ(registerCallback(2, "B_OnPhase", record, {11}), result::Success);
    platform_host::runShutdown();
    EXPECT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    EXPECT_EQ(CModuleManager_RegisterModule(2, "B"), result::Success);
}

TEST_F(ModuleManagerTest, ResetForgetsModulesAndCallbacks) {
    ASSERT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
    CallbackIdentity a{"A", 0};
    SPhaseCallbackContext record{&a, &recordingCallback};
    ASSERT_EQ(registerCallback(1, "A_OnPhase", record, {11}), result::Success);

    platform_host::resetModuleManager();

    EXPECT_FALSE(platform_host::isModuleRegistered(1));
    EXPECT_TRUE(platform_host::runPhase(11).empty());
    EXPECT_EQ(CModuleManager_RegisterModule(1, "A"), result::Success);
}

}  // namespace
