// Bookkeeping both reference models share: the result codes and trace levels
// they expect, handler records, outcomes, and the handle variables of the
// clients.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
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

/// Where a record is as far as the module is concerned.
enum class Place {
    Listed,   ///< in the handler list
    Retired,  ///< unregistered during the running pass; freed when it ends
    Dropped,  ///< left out of the list by Uninitialize; the block stays valid
    Foreign,  ///< a record the module never created
    Freed,
};

/// A handler record as the model has it. The fast module keeps no interval,
/// priority or counter: for it these stay at the values its records get.
struct ModelRecord {
    uint32_t client = 0;
    uint32_t enabled = 1;
    uint32_t interval = 0;
    int32_t prio = 5;
    uint32_t counter = 0;
    std::string name;
    uint32_t groupMask = 0;
    Place place = Place::Listed;
};

/// What the model decided for one operation.
struct Outcome {
    bool skipped = false;  ///< not performed (it would break the rules a client must keep)
    bool hasResult = false;
    uint32_t result = 0;
    int slot = -1;                     ///< the slot an operation fills
    uint32_t newRecord = kNoRecord;    ///< the record Register creates
    uint32_t freedRecord = kNoRecord;  ///< the record an operation frees at once
};

/// An outcome that carries `result`.
inline Outcome resultOf(uint32_t result) {
    Outcome outcome;
    outcome.hasResult = true;
    outcome.result = result;
    return outcome;
}

/// An outcome for an operation that is not performed.
inline Outcome skipped() {
    Outcome outcome;
    outcome.skipped = true;
    return outcome;
}

/// The record a handle variable refers to, or null.
inline ModelRecord* recordIn(std::vector<ModelRecord>& records, const std::array<uint32_t, kSlots>& slots,
                             uint8_t slot) {
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
inline Outcome writeEnabled(ModelRecord* record, uint32_t value) {
    if (record == nullptr) {
        return skipped();
    }
    record->enabled = value;
    return Outcome{};
}

/// Puts `record` into the first empty handle variable; skipped when all are
/// taken.
inline Outcome fillFreeSlot(std::array<uint32_t, kSlots>& slots, uint32_t record) {
    const int target = firstFreeSlot(slots);
    if (target < 0) {
        return skipped();
    }
    slots[static_cast<size_t>(target)] = record;
    Outcome outcome;
    outcome.slot = target;
    return outcome;
}

}  // namespace zyn_fuzz
