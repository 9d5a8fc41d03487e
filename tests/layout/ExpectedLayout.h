// The byte layout that clients built separately from the library rely on.
//
// Client modules are compiled on their own, often by other teams and other
// compiler releases, and reach the library's records and interface objects by
// fixed offsets. These are those offsets, written out for 32-bit targets
// (armhf, the platform's own) and 64-bit targets (aarch64, x86-64), so the
// layout tests catch any change of order, width or padding on every
// architecture the suite is built for.
#pragma once

#include <cstddef>

namespace expected_layout {

static_assert(sizeof(void*) == 4 || sizeof(void*) == 8, "the expected layouts cover 32-bit and 64-bit targets");

constexpr bool kPointers32 = sizeof(void*) == 4;
constexpr std::size_t kPointerSize = sizeof(void*);

/// A record of two pointers: ITickReceiver {context, onTick} and
/// SPhaseCallbackContext {context, callback}.
struct TwoPointerLayout {
    std::size_t context;
    std::size_t function;
    std::size_t size;
};

constexpr TwoPointerLayout kTwoPointers32{0, 4, 8};
constexpr TwoPointerLayout kTwoPointers64{0, 8, 16};
constexpr TwoPointerLayout kTwoPointers = kPointers32 ? kTwoPointers32 : kTwoPointers64;

/// STickHandler.
struct HandlerLayout {
    std::size_t tickReceiver;
    std::size_t enabled;
    std::size_t tickInterval;
    std::size_t prio;
    std::size_t currentInterval;
    std::size_t name;
    std::size_t nameSize;
    std::size_t groupMask;
    std::size_t size;
};

// 32-bit: the receiver's two pointers take 8 bytes and every later field
// follows without padding.
constexpr HandlerLayout kHandler32{0, 8, 12, 16, 20, 24, 32, 56, 60};
// 64-bit: the receiver takes 16 bytes; the record ends at 68 and is padded to
// 72 so that the pointers of the next record in an array stay 8-byte aligned.
constexpr HandlerLayout kHandler64{0, 16, 20, 24, 28, 32, 32, 64, 72};
constexpr HandlerLayout kHandler = kPointers32 ? kHandler32 : kHandler64;

/// The interface objects: the object's own vtable pointer comes first (its
/// only virtual operation is the destructor, and the virtual base IInterface
/// carries a string, so it cannot share that pointer), then the slots, one
/// pointer each, in their fixed order.
constexpr std::size_t kFirstSlot = kPointerSize;
constexpr std::size_t kSlotStride = kPointerSize;
constexpr std::size_t kTickSchedulerSlots = 12;
constexpr std::size_t kTickSchedulerFastSlots = 9;

}  // namespace expected_layout
