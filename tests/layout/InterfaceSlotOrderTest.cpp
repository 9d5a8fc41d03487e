// Clients call the interface objects' operations by slot position, so the
// slots stay consecutive pointer-sized words, in their fixed order, directly
// behind the object's vtable pointer and in front of its IInterface part.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "ExpectedLayout.h"
#include "ITickScheduler.h"
#include "ITickSchedulerFast.h"
#include "RawBytes.h"

using expected_layout::kFirstSlot;
using expected_layout::kPointerSize;
using expected_layout::kSlotStride;
using raw_bytes::offsetWithin;

namespace {

struct Slot {
    std::string name;
    std::size_t offset;
    std::size_t size;
};

template <typename Object, typename Member>
Slot slot(const Object& object, const char* name, const Member& member) {
    return Slot{name, offsetWithin(object, member), sizeof member};
}

std::vector<Slot> slotsOf(const ITickScheduler& object) {
    return {slot(object, "RegisterTickHandler", object.RegisterTickHandler),
            slot(object, "UnregisterTickHandler", object.UnregisterTickHandler),
            slot(object, "Freeze", object.Freeze),
            slot(object, "Unfreeze", object.Unfreeze),
            slot(object, "SetStartOffset", object.SetStartOffset),
            slot(object, "SetTickPriority", object.SetTickPriority),
            slot(object, "EnableTickHandler", object.EnableTickHandler),
            slot(object, "DisableTickHandler", object.DisableTickHandler),
            slot(object, "AddGroup", object.AddGroup),
            slot(object, "RemoveGroup", object.RemoveGroup),
            slot(object, "EnableTickGroup", object.EnableTickGroup),
            slot(object, "DisableTickGroup", object.DisableTickGroup)};
}

std::vector<Slot> slotsOf(const ITickSchedulerFast& object) {
    return {slot(object, "RegisterTickHandler", object.RegisterTickHandler),
            slot(object, "UnregisterTickHandler", object.UnregisterTickHandler),
            slot(object, "UnregisterTickHandlerFromOnTick", object.UnregisterTickHandlerFromOnTick),
            slot(object, "EnableTickHandler", object.EnableTickHandler),
            slot(object, "DisableTickHandler", object.DisableTickHandler),
            slot(object, "AddGroup", object.AddGroup),
            slot(object, "RemoveGroup", object.RemoveGroup),
            slot(object, "EnableTickGroup", object.EnableTickGroup),
            slot(object, "DisableTickGroup", object.DisableTickGroup)};
}

/// Slot i (from 0) lies at kFirstSlot + i * kSlotStride and is one pointer wide.
void expectConsecutiveSlots(const std::vector<Slot>& slots) {
    for (std::size_t i = 0; i < slots.size(); ++i) {
        SCOPED_TRACE("slot " + std::to_string(i + 1) + " " + slots[i].name);
        EXPECT_EQ(slots[i].size, kPointerSize);
        EXPECT_EQ(slots[i].offset - slots[0].offset, i * kSlotStride);
    }
}

/// Where the IInterface part of `object` starts, in bytes from the object.
template <typename Interface>
std::size_t interfacePartOffset(const Interface& object) {
    return offsetWithin(object, static_cast<const IInterface&>(object));
}

}  // namespace

TEST(TickSchedulerInterfaceLayout, SlotsAreConsecutivePointersInTheirFixedOrder) {
    const ITickScheduler object;
    expectConsecutiveSlots(slotsOf(object));
}

TEST(TickSchedulerInterfaceLayout, FirstSlotFollowsTheVtablePointer) {
    const ITickScheduler object;
    EXPECT_EQ(slotsOf(object).front().offset, kFirstSlot);
}

// A slot added, removed or widened would move the IInterface part.
TEST(TickSchedulerInterfaceLayout, TwelveSlotsFillTheObjectUpToItsInterfacePart) {
    const ITickScheduler object;
    EXPECT_EQ(interfacePartOffset(object), kFirstSlot + expected_layout::kTickSchedulerSlots * kSlotStride);
}

TEST(TickSchedulerFastInterfaceLayout, SlotsAreConsecutivePointersInTheirFixedOrder) {
    const ITickSchedulerFast object;
    expectConsecutiveSlots(slotsOf(object));
}

TEST(TickSchedulerFastInterfaceLayout, FirstSlotFollowsTheVtablePointer) {
    const ITickSchedulerFast object;
    EXPECT_EQ(slotsOf(object).front().offset, kFirstSlot);
}

TEST(TickSchedulerFastInterfaceLayout, NineSlotsFillTheObjectUpToItsInterfacePart) {
    const ITickSchedulerFast object;
    EXPECT_EQ(interfacePartOffset(object), kFirstSlot + expected_layout::kTickSchedulerFastSlots * kSlotStride);
}
