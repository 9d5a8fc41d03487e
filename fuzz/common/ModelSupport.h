// Bookkeeping both reference models share: the result codes and trace levels
// they expect, outcomes, and the handle variables of the clients.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "HarnessLimits.h"

namespace zyn_fuzz {

/// Trace levels and result codes of the library.
namespace codes {

constexpr uint32_t kError = 1;
constexpr uint32_t kWarning = 2;
constexpr uint32_t kInfo = 5;

constexpr uint32_t kSuccess = 0;
constexpr uint32_t kAlreadyInitialized = 4097;
constexpr uint32_t kFailure = 32768;
constexpr uint32_t kNullArgument = 32770;
constexpr uint32_t kOutOfRange = 32771;
constexpr uint32_t kModuleRegistrationFailed = 32775;
constexpr uint32_t kCallbackRegistrationFailed = 32776;
constexpr uint32_t kPhaseNotHandled = 32779;
constexpr uint32_t kListRemoveFailed = 32780;
constexpr uint32_t kGroupIdOutOfBounds = 32782;
constexpr uint32_t kNotInitialized = 32788;

}  // namespace codes

/// An outcome that carries `result`.
template <typename Outcome>
Outcome resultOf(uint32_t result) {
    Outcome outcome;
    outcome.hasResult = true;
    outcome.result = result;
    return outcome;
}

/// An outcome for an operation that is not performed.
template <typename Outcome>
Outcome skipped() {
    Outcome outcome;
    outcome.skipped = true;
    return outcome;
}

/// The record a handle variable refers to, or null.
template <typename Record>
Record* recordIn(std::vector<Record>& records, const std::array<uint32_t, kSlots>& slots, uint8_t slot) {
    if (slot >= kSlots || slots[slot] == kNoRecord) {
        return nullptr;
    }
    return &records[slots[slot]];
}

/// The first empty handle variable, or -1.
inline int firstFreeSlot(const std::array<uint32_t, kSlots>& slots) {
    for (size_t i = 0; i < kSlots; ++i) {
        if (slots[i] == kNoRecord) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

/// Writes `value` into the enabled flag of a record; skipped without one.
template <typename Outcome, typename Record>
Outcome writeEnabled(Record* record, uint32_t value) {
    if (record == nullptr) {
        return skipped<Outcome>();
    }
    record->enabled = value;
    return Outcome{};
}

/// Puts `record` into the first empty handle variable; skipped when all are
/// taken.
template <typename Outcome>
Outcome fillFreeSlot(std::array<uint32_t, kSlots>& slots, uint32_t record) {
    const int target = firstFreeSlot(slots);
    if (target < 0) {
        return skipped<Outcome>();
    }
    slots[static_cast<size_t>(target)] = record;
    Outcome outcome;
    outcome.slot = target;
    return outcome;
}

}  // namespace zyn_fuzz
