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

/// The handler and group slots both interfaces end with, in their order.
template <typename Interface>
void appendHandlerAndGroupSlots(std::vector<Slot>& slots, const Interface& object) {
    slots.insert(
        slots.end(),
        {slot(object, "EnableTickHandler", object.EnableTickHandler),
         slot(object, "DisableTickHandler", object.DisableTickHandler), slot(object, "AddGroup", object.AddGroup),
         slot(object, "RemoveGroup", object.RemoveGroup), slot(object, "EnableTickGroup", object.EnableTickGroup),
         slot(object, "DisableTickGroup", object.DisableTickGroup)});
}

std::vector<Slot> slotsOf(const ITickScheduler& object) {
    std::vector<Slot> slots = {slot(object, "RegisterTickHandler", object.RegisterTickHandler),
                               slot(object, "UnregisterTickHandler", object.UnregisterTickHandler),
                               slot(object, "Freeze", object.Freeze),
                               slot(object, "Unfreeze", object.Unfreeze),
                               slot(object, "SetStartOffset", object.SetStartOffset),
                               slot(object, "SetTickPriority", object.SetTickPriority)};
    appendHandlerAndGroupSlots(slots, object);
    return slots;
}

std::vector<Slot> slotsOf(const ITickSchedulerFast& object) {
    std::vector<Slot> slots = {slot(object, "RegisterTickHandler", object.RegisterTickHandler),
                               slot(object, "UnregisterTickHandler", object.UnregisterTickHandler),
                               slot(object, "UnregisterTickHandlerFromOnTick", object.UnregisterTickHandlerFromOnTick)};
    appendHandlerAndGroupSlots(slots, object);
    return slots;
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

/// What each interface object declares, and the name its tests carry.
template <typename Interface>
struct Declared;

template <>
struct Declared<ITickScheduler> {
    static constexpr std::size_t kSlots = expected_layout::kTickSchedulerSlots;
    static constexpr const char* kName = "TickScheduler";
};

template <>
struct Declared<ITickSchedulerFast> {
    static constexpr std::size_t kSlots = expected_layout::kTickSchedulerFastSlots;
    static constexpr const char* kName = "TickSchedulerFast";
};

struct InterfaceName {
    template <typename Interface>
    static std::string GetName(int) {
        return Declared<Interface>::kName;
    }
};

template <typename Interface>
class InterfaceLayout : public ::testing::Test {};

using InterfaceObjects = ::testing::Types<ITickScheduler, ITickSchedulerFast>;
TYPED_TEST_SUITE(InterfaceLayout, InterfaceObjects, InterfaceName);

}  // namespace

TYPED_TEST(InterfaceLayout, SlotsAreConsecutivePointersInTheirFixedOrder) {
    const TypeParam object;
    const std::vector<Slot> slots = slotsOf(object);
    EXPECT_EQ(slots.size(), Declared<TypeParam>::kSlots);
    expectConsecutiveSlots(slots);
}

TYPED_TEST(InterfaceLayout, FirstSlotFollowsTheVtablePointer) {
    const TypeParam object;
    EXPECT_EQ(slotsOf(object).front().offset, kFirstSlot);
}

// A slot added, removed or widened would move the IInterface part.
TYPED_TEST(InterfaceLayout, DeclaredSlotsFillTheObjectUpToItsInterfacePart) {
    const TypeParam object;
    EXPECT_EQ(interfacePartOffset(object), kFirstSlot + Declared<TypeParam>::kSlots * kSlotStride);
}
