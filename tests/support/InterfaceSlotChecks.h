// The slots of a scheduler's interface object, checked the same way for both
// modules. A module's tests describe its object with a slot list:
//
//   struct Slots {
//       /// std::tie of the object's function-pointer slots, in declaration order.
//       template <class Object> static auto of(Object& object);
//       /// std::make_tuple of the operations those slots must point to.
//       static auto operations();
//   };
//
// and the checks below work on any such list: whether every slot points to
// its operation, whether none is set, clearing them all, and what Initialize
// does to them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "InterfaceBroker.h"
#include "PlatformDouble.h"
#include "TickResultCodes.h"

namespace test_support {

/// Whether every slot of `object` points to its operation.
template <class Slots, class Object>
bool allSlotsFilled(const Object& object) {
    return Slots::of(object) == Slots::operations();
}

/// Whether every slot of `object` is null.
template <class Slots, class Object>
bool noSlotFilled(const Object& object) {
    return std::apply([](const auto&... slot) { return ((slot == nullptr) && ...); }, Slots::of(object));
}

/// Every slot cleared, as a client (or a stray write) might leave them.
template <class Slots, class Object>
void clearAllSlots(Object& object) {
    std::apply([](auto&... slot) { ((slot = nullptr), ...); }, Slots::of(object));
}

/// The object a module's first Initialize (from its uninitialised state)
/// publishes, as `published` finds it with the broker; null on a failure.
template <class Object, class Initialize>
Object* publishedAtInitialize(Initialize initialize, Object* (*published)()) {
    EXPECT_EQ(initialize(), TickResult::Success);
    Object* const object = published();
    EXPECT_NE(object, nullptr);
    return object;
}

/// What Initialize does to the slots of the object the module published:
/// every Initialize that gets past the module manager fills all of them
/// before it asks the broker to register the object, whether the broker then
/// accepts it or not.
template <class Slots, class Object, class Initialize>
void expectEveryInitializePastTheModuleManagerFillsAllSlotsFirst(Initialize initialize, void (*uninitialize)(),
                                                                 Object* (*published)()) {
    Object* const object = publishedAtInitialize(initialize, published);
    ASSERT_NE(object, nullptr);
    std::vector<bool> filledWhenAsked;
    platform_double::observeInterfaceRegistrations([&](const std::string& /*name*/, IInterface* iface) {
        filledWhenAsked.push_back(allSlotsFilled<Slots>(*dynamic_cast<Object*>(iface)));
    });

    for (const uint32_t brokerAnswer : {32768u, 0u}) {
        uninitialize();
        clearAllSlots<Slots>(*object);
        platform_double::scriptRegisterInterfaceResult(brokerAnswer);
        EXPECT_EQ(initialize(), brokerAnswer == 0 ? TickResult::Success : TickResult::Failure);
        EXPECT_TRUE(allSlotsFilled<Slots>(*object)) << "broker answer " << brokerAnswer;
    }
    EXPECT_EQ(filledWhenAsked, (std::vector<bool>{true, true}));
}

/// An Initialize that the module manager stops (its module or its callback
/// registration refused) leaves the cleared slots of the published object as
/// they are; the next successful one fills them.
template <class Slots, class Object, class Initialize>
void expectInitializeStoppedAtTheModuleManagerLeavesTheSlots(Initialize initialize, void (*uninitialize)(),
                                                             Object* (*published)()) {
    Object* const object = publishedAtInitialize(initialize, published);
    ASSERT_NE(object, nullptr);
    uninitialize();
    clearAllSlots<Slots>(*object);

    platform_double::scriptRegisterModuleResult(32775);
    EXPECT_EQ(initialize(), TickResult::ModuleRegistrationFailed);
    EXPECT_TRUE(noSlotFilled<Slots>(*object));
    platform_double::scriptRegisterModuleResult(0);
    platform_double::scriptRegisterCallbackResult(32776);
    EXPECT_EQ(initialize(), TickResult::CallbackRegistrationFailed);
    EXPECT_TRUE(noSlotFilled<Slots>(*object));
    platform_double::scriptRegisterCallbackResult(0);
    EXPECT_EQ(initialize(), TickResult::Success);
    EXPECT_TRUE(allSlotsFilled<Slots>(*object));
}

}  // namespace test_support
