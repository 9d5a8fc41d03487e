// What the modules hand out, read back byte by byte the way separately built
// clients and the module manager read it: the interface objects in the
// broker, the phase-callback records, and the handler records behind the
// handles.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "CModuleManager.h"
#include "CTickScheduler.h"
#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "ETickPriority.h"
#include "ExpectedLayout.h"
#include "ITickScheduler.h"
#include "ITickSchedulerFast.h"
#include "InterfaceBroker.h"
#include "PlatformDouble.h"
#include "RawBytes.h"
#include "STickHandler.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"

using expected_layout::kFirstSlot;
using expected_layout::kHandler;
using expected_layout::kSlotStride;
using expected_layout::kTwoPointers;
using raw_bytes::bitsOf;
using raw_bytes::readAt;

namespace {

int clientContext;
void clientOnTick(void*) {}

using RegisterBySlot = uint32_t (*)(STickHandler**, const ITickReceiver*, uint32_t, const char*);
using RegisterFastBySlot = uint32_t (*)(STickHandler**, const ITickReceiver*, const char*);
using UnregisterBySlot = uint32_t (*)(STickHandler**);

/// The object registered with the broker under `name`, as the interface
/// `Interface`; null when none was or it is of another type.
template <typename Interface>
const Interface* publishedInterface(const std::string& name) {
    const IInterface* found = nullptr;
    for (const platform_double::BrokerCall& call : platform_double::brokerCalls()) {
        if (call.registration && call.name == name) {
            found = call.iface;
        }
    }
    return dynamic_cast<const Interface*>(found);
}

/// The phase-callback record the module `moduleId` handed to the module manager.
const SPhaseCallbackContext* phaseRecordOf(uint32_t moduleId) {
    const SPhaseCallbackContext* found = nullptr;
    for (const platform_double::CallbackRegistration& registration : platform_double::callbackRegistrations()) {
        if (registration.moduleId == moduleId) {
            found = registration.callbackContext;
        }
    }
    return found;
}

/// The function pointer held by slot `index` (from 0) of `object`.
template <typename Function, typename Interface>
Function slotAt(const Interface& object, std::size_t index) {
    return readAt<Function>(&object, kFirstSlot + index * kSlotStride);
}

/// The bits every slot of `object` holds, in slot order.
template <typename Interface>
std::vector<std::uintptr_t> slotBits(const Interface& object, std::size_t slotCount) {
    std::vector<std::uintptr_t> bits;
    for (std::size_t i = 0; i < slotCount; ++i) {
        bits.push_back(bitsOf(slotAt<void (*)()>(object, i)));
    }
    return bits;
}

/// Checks a freshly registered record by its bytes.
void expectFreshRecord(const STickHandler* record, uint32_t tickInterval, const char* name) {
    EXPECT_EQ(readAt<void*>(record, kHandler.tickReceiver + kTwoPointers.context), static_cast<void*>(&clientContext));
    EXPECT_EQ(bitsOf(readAt<void (*)(void*)>(record, kHandler.tickReceiver + kTwoPointers.function)),
              bitsOf(&clientOnTick));
    EXPECT_EQ(readAt<uint32_t>(record, kHandler.enabled), 1u);
    EXPECT_EQ(readAt<uint32_t>(record, kHandler.tickInterval), tickInterval);
    EXPECT_EQ(readAt<int32_t>(record, kHandler.prio), 5);
    EXPECT_EQ(readAt<uint32_t>(record, kHandler.currentInterval), 0u);
    EXPECT_STREQ(reinterpret_cast<const char*>(record) + kHandler.name, name);
    EXPECT_EQ(readAt<uint32_t>(record, kHandler.groupMask), 0u);
}

/// The record behind a handle that slot 0 of `object` just handed out reads
/// as a fresh one; slot 1 unregisters it and clears the handle.
template <typename Interface>
void expectFreshRecordThenUnregisterBySlot(const Interface& object, STickHandler* handle, uint32_t tickInterval,
                                           const char* name) {
    ASSERT_NE(handle, nullptr);
    expectFreshRecord(handle, tickInterval, name);
    EXPECT_EQ(slotAt<UnregisterBySlot>(object, 1)(&handle), TickResult::Success);
    EXPECT_EQ(handle, nullptr);
}

/// The record module `moduleId` handed to the module manager reads as a null
/// context, then a callback that acknowledges the idle phase and refuses
/// phase 12, which neither module takes.
void expectPhaseRecordOfNullContextThenCallback(uint32_t moduleId) {
    const SPhaseCallbackContext* record = phaseRecordOf(moduleId);
    ASSERT_NE(record, nullptr);

    EXPECT_EQ(readAt<void*>(record, kTwoPointers.context), nullptr);
    const PhaseCallback callback = readAt<PhaseCallback>(record, kTwoPointers.function);
    ASSERT_NE(callback, nullptr);
    EXPECT_EQ(callback(nullptr, TickModule::Phase::Idle), TickResult::Success);
    EXPECT_EQ(callback(nullptr, 12), TickResult::PhaseNotHandled);
}

/// An interface object a module published, and a handle and receiver for
/// registering through its slots as a client would.
template <typename Interface>
class PublishedObject : public ::testing::Test {
protected:
    /// Finds the object the module published under `name` once `initialize`
    /// succeeded.
    void findPublished(uint32_t initializeResult, const char* name) {
        ASSERT_EQ(initializeResult, TickResult::Success);
        object = publishedInterface<Interface>(name);
        ASSERT_NE(object, nullptr) << "no " << name << " in the broker";
    }

    const Interface* object = nullptr;
    const ITickReceiver receiver{&clientContext, &clientOnTick};
    STickHandler* handle = nullptr;
};

class PublishedTickScheduler : public PublishedObject<ITickScheduler> {
protected:
    void SetUp() override {
        platform_double::reset();
        const ETickPriority priority = TICK_PRIORITY_NORMAL;
        findPublished(CTickScheduler_Initialize(&priority), "ITickScheduler");
    }
    void TearDown() override { CTickScheduler_Uninitialize(); }
};

class PublishedTickSchedulerFast : public PublishedObject<ITickSchedulerFast> {
protected:
    void SetUp() override {
        platform_double::reset();
        findPublished(CTickSchedulerFast_Initialize(), "ITickSchedulerFast");
    }
    void TearDown() override { CTickSchedulerFast_Uninitialize(); }
};

}  // namespace

TEST_F(PublishedTickScheduler, SlotsHoldTheOperationsInTheirFixedOrder) {
    const std::vector<std::uintptr_t> expected = {bitsOf(&CTickScheduler_RegisterTickHandler),
                                                  bitsOf(&CTickScheduler_UnregisterTickHandler),
                                                  bitsOf(&CTickScheduler_Freeze),
                                                  bitsOf(&CTickScheduler_Unfreeze),
                                                  bitsOf(&CTickScheduler_SetStartOffset),
                                                  bitsOf(&CTickScheduler_SetTickPriority),
                                                  bitsOf(&CTickScheduler_EnableTickHandler),
                                                  bitsOf(&CTickScheduler_DisableTickHandler),
                                                  bitsOf(&CTickScheduler_AddGroup),
                                                  bitsOf(&CTickScheduler_RemoveGroup),
                                                  bitsOf(&CTickScheduler_EnableTickGroup),
                                                  bitsOf(&CTickScheduler_DisableTickGroup)};

    EXPECT_EQ(slotBits(*object, expected_layout::kTickSchedulerSlots), expected);
}

TEST_F(PublishedTickScheduler, HandlerRegisteredThroughTheFirstSlotReadsAsTheClientExpects) {
    ASSERT_EQ(slotAt<RegisterBySlot>(*object, 0)(&handle, &receiver, 7, "LayoutProbe"), TickResult::Success);
    expectFreshRecordThenUnregisterBySlot(*object, handle, 7, "LayoutProbe");
}

TEST_F(PublishedTickScheduler, PhaseRecordReadsAsNullContextThenCallback) {
    expectPhaseRecordOfNullContextThenCallback(TickModule::SchedulerModuleId);
}

TEST_F(PublishedTickSchedulerFast, SlotsHoldTheOperationsInTheirFixedOrder) {
    const std::vector<std::uintptr_t> expected = {bitsOf(&CTickSchedulerFast_RegisterTickHandler),
                                                  bitsOf(&CTickSchedulerFast_UnregisterTickHandler),
                                                  bitsOf(&CTickSchedulerFast_UnregisterTickHandlerFromOnTick),
                                                  bitsOf(&CTickSchedulerFast_EnableTickHandler),
                                                  bitsOf(&CTickSchedulerFast_DisableTickHandler),
                                                  bitsOf(&CTickSchedulerFast_AddGroup),
                                                  bitsOf(&CTickSchedulerFast_RemoveGroup),
                                                  bitsOf(&CTickSchedulerFast_EnableTickGroup),
                                                  bitsOf(&CTickSchedulerFast_DisableTickGroup)};

    EXPECT_EQ(slotBits(*object, expected_layout::kTickSchedulerFastSlots), expected);
}

TEST_F(PublishedTickSchedulerFast, HandlerRegisteredThroughTheFirstSlotReadsAsTheClientExpects) {
    ASSERT_EQ(slotAt<RegisterFastBySlot>(*object, 0)(&handle, &receiver, "FastLayoutProbe"), TickResult::Success);
    // The fast module fills the record as the interval scheduler would for
    // interval 0.
    expectFreshRecordThenUnregisterBySlot(*object, handle, 0, "FastLayoutProbe");
}

TEST_F(PublishedTickSchedulerFast, PhaseRecordReadsAsNullContextThenCallback) {
    expectPhaseRecordOfNullContextThenCallback(TickModule::FastSchedulerModuleId);
}
