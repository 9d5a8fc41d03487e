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
#include "ITickSchedulerFast.h"
#include "InterfaceBroker.h"
#include "PlatformHost/ModuleManagerHost.h"
#include "PlatformHost/TraceHost.h"
#include "TickResultCodes.h"

namespace {

constexpr uint32_t kModuleId = 22001;

CTickSchedulerFast& module() { return tickSchedulerFastModule; }

/// The results the fast module's callback gave in `results`.
std::vector<uint32_t> fastResults(const std::vector<platform_host::PhaseCallResult>& results) {
    std::vector<uint32_t> mine;
    for (const platform_host::PhaseCallResult& result : results) {
        if (result.moduleId == kModuleId) {
            EXPECT_EQ(result.callbackName, "CCTickSchedulerFast_OnPhaseActivation");
            mine.push_back(result.result);
        }
    }
    return mine;
}

ITickSchedulerFast* brokerInterface() {
    return dynamic_cast<ITickSchedulerFast*>(InterfaceBroker::getInstance()->getInterface("ITickSchedulerFast"));
}

/// Delivers one tick the way the oscillator does: through the receiver that
/// phase 11 registered with it. Deterministic, no thread involved.
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

/// Collects the trace lines of the reference trace service.
class TraceCapture {
public:
    TraceCapture() {
        platform_host::setTraceSink([this](const std::string& line) {
            const std::lock_guard<std::mutex> lock(mutex);
            lines.push_back(line);
        });
    }
    ~TraceCapture() { platform_host::setTraceSink({}); }

    bool contains(const std::string& text) {
        const std::lock_guard<std::mutex> lock(mutex);
        for (const std::string& line : lines) {
            if (line.find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

private:
    std::mutex mutex;
    std::vector<std::string> lines;
};

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
    EXPECT_EQ(fastResults(platform_host::runPhase(11)), std::vector<uint32_t>{TickResult::Success});
    EXPECT_EQ(fastResults(platform_host::runPhase(13)), std::vector<uint32_t>{TickResult::Success});

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
    EXPECT_TRUE(fastResults(platform_host::runPhase(14)).empty());

    // A manager that called the module on a phase it did not subscribe to.
    EXPECT_EQ(CTickSchedulerFast_OnPhaseActivation(nullptr, 14), TickResult::PhaseNotHandled);

    EXPECT_TRUE(capture.contains("Phase not handled: 14"));
}

TEST_F(FastEndToEnd, PhaseSixteenShutsTheModuleDown) {
    ASSERT_EQ(fastResults(platform_host::runPhase(11)), std::vector<uint32_t>{TickResult::Success});

    EXPECT_EQ(fastResults(platform_host::runShutdown()), std::vector<uint32_t>{TickResult::Success});

    EXPECT_EQ(module().initialized, 0u);
    EXPECT_EQ(brokerInterface(), nullptr);
    // Every later phase is refused until the module is initialised again.
    EXPECT_EQ(fastResults(platform_host::runPhase(11)), std::vector<uint32_t>{TickResult::ModuleNotInitialized});
}

TEST_F(FastEndToEnd, RepeatedInitializeIsReportedNotRefused) {
    TraceCapture capture;

    EXPECT_EQ(CTickSchedulerFast_Initialize(), TickResult::AlreadyInitialized);

    EXPECT_TRUE(capture.contains("Has already been initialized"));
}

TEST_F(FastEndToEnd, InitializeAgainAfterPhaseSixteen) {
    ASSERT_EQ(fastResults(platform_host::runPhase(11)), std::vector<uint32_t>{TickResult::Success});
    ASSERT_EQ(fastResults(platform_host::runPhase(16)), std::vector<uint32_t>{TickResult::Success});

    // The module manager still knows the module from its first start; the
    // module registers with it again all the same.
    ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success)
        << "the module manager must accept a module that registers again after its shut-down";

    EXPECT_EQ(module().initialized, 1u);
    ASSERT_NE(brokerInterface(), nullptr);
    const std::vector<uint32_t> phase11 = fastResults(platform_host::runPhase(11));
    ASSERT_FALSE(phase11.empty());
    for (uint32_t result : phase11) {
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
    ASSERT_EQ(fastResults(platform_host::runPhase(11)), std::vector<uint32_t>{TickResult::Success});
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

TEST_F(FastEndToEnd, TicksFlowOnceSomethingStartsTheOscillator) {
    // The module never starts its oscillator. Here the test starts it through
    // the module's state, as an outside component would; the real 1 ms thread
    // then drives the dispatch until phase 16 stops it.
    ASSERT_EQ(fastResults(platform_host::runPhase(11)), std::vector<uint32_t>{TickResult::Success});
    ITickSchedulerFast* const fast = brokerInterface();
    ASSERT_NE(fast, nullptr);
    Counter counter;
    const ITickReceiver receiver = counter.receiver();
    STickHandler* handle = nullptr;
    ASSERT_EQ(fast->RegisterTickHandler(&handle, &receiver, "Live"), TickResult::Success);
    ASSERT_EQ(module().tickOscillator.start(), TickResult::Success);

    // Generous: only proves that ticks arrive at all.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (counter.calls.load() < 5 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(fastResults(platform_host::runPhase(16)), std::vector<uint32_t>{TickResult::Success});
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
