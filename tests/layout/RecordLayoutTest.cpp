// The records that cross the library's boundary keep their field order,
// offsets and sizes on every target.

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "CModuleManager.h"
#include "ExpectedLayout.h"
#include "ITickReceiver.h"
#include "RawBytes.h"
#include "STickHandler.h"

using expected_layout::kHandler;
using expected_layout::kPointerSize;
using expected_layout::kTwoPointers;
using raw_bytes::bitsOf;
using raw_bytes::readAt;

// offsetof is only meaningful on standard-layout records; a record that lost
// that property would no longer have a layout a C client could mirror.
static_assert(std::is_standard_layout<ITickReceiver>::value, "ITickReceiver keeps a C layout");
static_assert(std::is_standard_layout<STickHandler>::value, "STickHandler keeps a C layout");
static_assert(std::is_standard_layout<SPhaseCallbackContext>::value, "SPhaseCallbackContext keeps a C layout");

namespace {

int receiverContextMarker;
void markerOnTick(void*) {}
uint32_t markerPhaseCallback(void*, uint32_t) { return 0; }

}  // namespace

TEST(TickReceiverLayout, ContextComesFirstThenOnTick) {
    EXPECT_EQ(offsetof(ITickReceiver, context), kTwoPointers.context);
    EXPECT_EQ(offsetof(ITickReceiver, onTick), kTwoPointers.function);
    EXPECT_EQ(sizeof(ITickReceiver), kTwoPointers.size);
    EXPECT_EQ(alignof(ITickReceiver), kPointerSize);
}

TEST(TickReceiverLayout, RawBytesHoldContextThenOnTick) {
    const ITickReceiver receiver{&receiverContextMarker, &markerOnTick};

    EXPECT_EQ(readAt<void*>(&receiver, kTwoPointers.context), static_cast<void*>(&receiverContextMarker));
    EXPECT_EQ(bitsOf(readAt<void (*)(void*)>(&receiver, kTwoPointers.function)), bitsOf(&markerOnTick));
}

TEST(PhaseCallbackRecordLayout, ContextComesFirstThenCallback) {
    EXPECT_EQ(offsetof(SPhaseCallbackContext, context), kTwoPointers.context);
    EXPECT_EQ(offsetof(SPhaseCallbackContext, callback), kTwoPointers.function);
    EXPECT_EQ(sizeof(SPhaseCallbackContext), kTwoPointers.size);
    EXPECT_EQ(alignof(SPhaseCallbackContext), kPointerSize);
}

TEST(PhaseCallbackRecordLayout, RawBytesHoldContextThenCallback) {
    const SPhaseCallbackContext record{&receiverContextMarker, &markerPhaseCallback};

    EXPECT_EQ(readAt<void*>(&record, kTwoPointers.context), static_cast<void*>(&receiverContextMarker));
    EXPECT_EQ(bitsOf(readAt<PhaseCallback>(&record, kTwoPointers.function)), bitsOf(&markerPhaseCallback));
}

TEST(TickHandlerLayout, FieldsKeepTheirOrderAndOffsets) {
    EXPECT_EQ(offsetof(STickHandler, tickReceiver), kHandler.tickReceiver);
    EXPECT_EQ(offsetof(STickHandler, enabled), kHandler.enabled);
    EXPECT_EQ(offsetof(STickHandler, tickInterval), kHandler.tickInterval);
    EXPECT_EQ(offsetof(STickHandler, prio), kHandler.prio);
    EXPECT_EQ(offsetof(STickHandler, currentInterval), kHandler.currentInterval);
    EXPECT_EQ(offsetof(STickHandler, name), kHandler.name);
    EXPECT_EQ(offsetof(STickHandler, groupMask), kHandler.groupMask);
}

TEST(TickHandlerLayout, RecordSizeAndAlignment) {
    EXPECT_EQ(sizeof(STickHandler), kHandler.size);
    EXPECT_EQ(alignof(STickHandler), kPointerSize);
}

TEST(TickHandlerLayout, FieldWidths) {
    EXPECT_EQ(sizeof(STickHandler::tickReceiver), kTwoPointers.size);
    EXPECT_EQ(sizeof(STickHandler::enabled), 4u);
    EXPECT_EQ(sizeof(STickHandler::tickInterval), 4u);
    EXPECT_EQ(sizeof(STickHandler::prio), 4u);
    EXPECT_EQ(sizeof(STickHandler::currentInterval), 4u);
    EXPECT_EQ(sizeof(STickHandler::name), kHandler.nameSize);
    EXPECT_EQ(sizeof(STickHandler::groupMask), 4u);
}

// The fields that cross threads are atomics; a client reading the record as
// plain words needs them to be bare words, not words beside a hidden lock.
TEST(TickHandlerLayout, AtomicFieldsAreBareLockFreeWords) {
    EXPECT_TRUE(std::atomic<uint32_t>::is_always_lock_free);
    EXPECT_TRUE(std::atomic<int32_t>::is_always_lock_free);
    EXPECT_EQ(alignof(std::atomic<uint32_t>), alignof(uint32_t));
    EXPECT_EQ(alignof(std::atomic<int32_t>), alignof(int32_t));
}

TEST(TickHandlerLayout, RawBytesHoldEveryFieldAtItsOffset) {
    STickHandler record{};
    record.tickReceiver.context = &receiverContextMarker;
    record.tickReceiver.onTick = &markerOnTick;
    record.enabled.store(0x11223344u, std::memory_order_relaxed);
    record.tickInterval = 0x55667788u;
    record.prio.store(-7, std::memory_order_relaxed);
    record.currentInterval.store(0x0a0b0c0du, std::memory_order_relaxed);
    std::strcpy(record.name, "0123456789abcdefghijklmnopqrstu");
    record.groupMask.store(0x80000003u, std::memory_order_relaxed);

    EXPECT_EQ(readAt<void*>(&record, kHandler.tickReceiver + kTwoPointers.context),
              static_cast<void*>(&receiverContextMarker));
    EXPECT_EQ(bitsOf(readAt<void (*)(void*)>(&record, kHandler.tickReceiver + kTwoPointers.function)),
              bitsOf(&markerOnTick));
    EXPECT_EQ(readAt<uint32_t>(&record, kHandler.enabled), 0x11223344u);
    EXPECT_EQ(readAt<uint32_t>(&record, kHandler.tickInterval), 0x55667788u);
    EXPECT_EQ(readAt<int32_t>(&record, kHandler.prio), -7);
    EXPECT_EQ(readAt<uint32_t>(&record, kHandler.currentInterval), 0x0a0b0c0du);
    EXPECT_STREQ(reinterpret_cast<const char*>(&record) + kHandler.name, "0123456789abcdefghijklmnopqrstu");
    EXPECT_EQ(readAt<uint32_t>(&record, kHandler.groupMask), 0x80000003u);
}
