// The records that cross the library's boundary keep their field order,
// offsets and sizes on every target: checked by the compiler, so a changed
// layout stops the build (the cross builds included) rather than a test run.
// Reading a filled record's raw bytes at these offsets would only repeat
// what the compiler has proved.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "CModuleManager.h"
#include "ExpectedLayout.h"
#include "ITickReceiver.h"
#include "STickHandler.h"

using expected_layout::kHandler;
using expected_layout::kPointerSize;
using expected_layout::kTwoPointers;

// offsetof is only meaningful on standard-layout records; a record that lost
// that property would no longer have a layout a C client could mirror.
static_assert(std::is_standard_layout<ITickReceiver>::value, "ITickReceiver keeps a C layout");
static_assert(std::is_standard_layout<STickHandler>::value, "STickHandler keeps a C layout");
static_assert(std::is_standard_layout<SPhaseCallbackContext>::value, "SPhaseCallbackContext keeps a C layout");

// Offsets, sizes and alignments are known to the compiler: a changed layout
// stops the build of this file instead of failing at run time.
static_assert(offsetof(ITickReceiver, context) == kTwoPointers.context, "ITickReceiver: context comes first");
static_assert(offsetof(ITickReceiver, onTick) == kTwoPointers.function, "ITickReceiver: onTick follows context");
static_assert(sizeof(ITickReceiver) == kTwoPointers.size, "ITickReceiver is two pointers");
static_assert(alignof(ITickReceiver) == kPointerSize, "ITickReceiver is pointer-aligned");

static_assert(offsetof(SPhaseCallbackContext, context) == kTwoPointers.context,
              "SPhaseCallbackContext: context comes first");
static_assert(offsetof(SPhaseCallbackContext, callback) == kTwoPointers.function,
              "SPhaseCallbackContext: callback follows context");
static_assert(sizeof(SPhaseCallbackContext) == kTwoPointers.size, "SPhaseCallbackContext is two pointers");
static_assert(alignof(SPhaseCallbackContext) == kPointerSize, "SPhaseCallbackContext is pointer-aligned");

static_assert(offsetof(STickHandler, tickReceiver) == kHandler.tickReceiver, "STickHandler: tickReceiver offset");
static_assert(offsetof(STickHandler, enabled) == kHandler.enabled, "STickHandler: enabled offset");
static_assert(offsetof(STickHandler, tickInterval) == kHandler.tickInterval, "STickHandler: tickInterval offset");
static_assert(offsetof(STickHandler, prio) == kHandler.prio, "STickHandler: prio offset");
static_assert(offsetof(STickHandler, currentInterval) == kHandler.currentInterval,
              "STickHandler: currentInterval offset");
static_assert(offsetof(STickHandler, name) == kHandler.name, "STickHandler: name offset");
static_assert(offsetof(STickHandler, groupMask) == kHandler.groupMask, "STickHandler: groupMask offset");
static_assert(sizeof(STickHandler) == kHandler.size, "STickHandler: record size");
static_assert(alignof(STickHandler) == kPointerSize, "STickHandler is pointer-aligned");

static_assert(sizeof(STickHandler::tickReceiver) == kTwoPointers.size, "STickHandler: tickReceiver width");
static_assert(sizeof(STickHandler::enabled) == 4, "STickHandler: enabled is a 32-bit word");
static_assert(sizeof(STickHandler::tickInterval) == 4, "STickHandler: tickInterval is a 32-bit word");
static_assert(sizeof(STickHandler::prio) == 4, "STickHandler: prio is a 32-bit word");
static_assert(sizeof(STickHandler::currentInterval) == 4, "STickHandler: currentInterval is a 32-bit word");
static_assert(sizeof(STickHandler::name) == kHandler.nameSize, "STickHandler: name width");
static_assert(sizeof(STickHandler::groupMask) == 4, "STickHandler: groupMask is a 32-bit word");

// The fields that cross threads are atomics; a client reading the record as
// plain words needs them to be bare words, not words beside a hidden lock.
static_assert(std::atomic<uint32_t>::is_always_lock_free, "32-bit atomics are lock-free");
static_assert(std::atomic<int32_t>::is_always_lock_free, "signed 32-bit atomics are lock-free");
static_assert(alignof(std::atomic<uint32_t>) == alignof(uint32_t), "atomic words are aligned as plain words");
static_assert(alignof(std::atomic<int32_t>) == alignof(int32_t), "signed atomic words are aligned as plain words");
