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
#include "TickResultCodes.h"

using expected_layout::kFirstSlot;
using expected_layout::kHandler;
using expected_layout::kSlotStride;
using expected_layout::kTwoPointers;
using raw_bytes::bitsOf;
using raw_bytes::readAt;

namespace {

constexpr uint32_t kTickSchedulerModuleId = 22000;
constexpr uint32_t kTickSchedulerFastModuleId = 22001;

int clientContext;
void clientOnTick(void*) {}

using RegisterBySlot = uint32_t (*)(STickHandler**, const ITickReceiver*, uint32_t, const char*);
using RegisterFastBySlot = uint32_t (*)(STickHandler**, const ITickReceiver*, const char*);
using UnregisterBySlot = uint32_t (*)(STickHandler**);

/// The object registered with the broker under `name`, as its IInterface part.
const IInterface* publishedInterface(const std::string& name) {
    const IInterface* found = nullptr;
    for (const platform_double::BrokerCall& call : platform_double::brokerCalls()) {
        if (call.registration && call.name == name) {
            found = call.iface;
        }
    }
    return found;
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

class PublishedTickScheduler : public ::testing::Test {
protected:
    void SetUp() override {
        platform_double::reset();
        const ETickPriority priority = TICK_PRIORITY_NORMAL;
        ASSERT_EQ(CTickScheduler_Initialize(&priority), TickResult::Success);
        const IInterface* published = publishedInterface("ITickScheduler");
        ASSERT_NE(published, nullptr);
        object = dynamic_cast<const ITickScheduler*>(published);
        ASSERT_NE(object, nullptr);
    }
    void TearDown() override { CTickScheduler_Uninitialize(); }

    const ITickScheduler* object = nullptr;
};

class PublishedTickSchedulerFast : public ::testing::Test {
protected:
    void SetUp() override {
        platform_double::reset();
        ASSERT_EQ(CTickSchedulerFast_Initialize(), TickResult::Success);
        const IInterface* published = publishedInterface("ITickSchedulerFast");
        ASSERT_NE(published, nullptr);
        object = dynamic_cast<const ITickSchedulerFast*>(published);
        ASSERT_NE(object, nullptr);
    }
    void TearDown() override { CTickSchedulerFast_Uninitialize(); }

    const ITickSchedulerFast* object = nullptr;
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
    const ITickReceiver receiver{&clientContext, &clientOnTick};
    STickHandler* handle = nullptr;

    ASSERT_EQ(slotAt<RegisterBySlot>(*object, 0)(&handle, &receiver, 7, "LayoutProbe"), TickResult::Success);
    ASSERT_NE(handle, nullptr);
    expectFreshRecord(handle, 7, "LayoutProbe");

    EXPECT_EQ(slotAt<UnregisterBySlot>(*object, 1)(&handle), TickResult::Success);
    EXPECT_EQ(handle, nullptr);
}

TEST_F(PublishedTickScheduler, PhaseRecordReadsAsNullContextThenCallback) {
    const SPhaseCallbackContext* record = phaseRecordOf(kTickSchedulerModuleId);
    ASSERT_NE(record, nullptr);

    EXPECT_EQ(readAt<void*>(record, kTwoPointers.context), nullptr);
    const PhaseCallback callback = readAt<PhaseCallback>(record, kTwoPointers.function);
    ASSERT_NE(callback, nullptr);
    // Phase 13 changes nothing; phase 12 is one the module does not take.
    EXPECT_EQ(callback(nullptr, 13), TickResult::Success);
    EXPECT_EQ(callback(nullptr, 12), TickResult::PhaseNotHandled);
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
    const ITickReceiver receiver{&clientContext, &clientOnTick};
    STickHandler* handle = nullptr;

    ASSERT_EQ(slotAt<RegisterFastBySlot>(*object, 0)(&handle, &receiver, "FastLayoutProbe"), TickResult::Success);
    ASSERT_NE(handle, nullptr);
    // The fast module fills the record as the interval scheduler would for
    // interval 0.
    expectFreshRecord(handle, 0, "FastLayoutProbe");

    EXPECT_EQ(slotAt<UnregisterBySlot>(*object, 1)(&handle), TickResult::Success);
    EXPECT_EQ(handle, nullptr);
}

TEST_F(PublishedTickSchedulerFast, PhaseRecordReadsAsNullContextThenCallback) {
    const SPhaseCallbackContext* record = phaseRecordOf(kTickSchedulerFastModuleId);
    ASSERT_NE(record, nullptr);

    EXPECT_EQ(readAt<void*>(record, kTwoPointers.context), nullptr);
    const PhaseCallback callback = readAt<PhaseCallback>(record, kTwoPointers.function);
    ASSERT_NE(callback, nullptr);
    EXPECT_EQ(callback(nullptr, 13), TickResult::Success);
    EXPECT_EQ(callback(nullptr, 12), TickResult::PhaseNotHandled);
}
