// Bookkeeping both reference models share: handler records, outcomes, and
// the handle variables of the clients.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "HarnessLimits.h"

namespace zyn_fuzz {

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
    uint32_t client = 0;          ///< whose tick function the record calls
    uint32_t enabled = 1;         ///< as the client or the module last wrote it
    uint32_t interval = 0;        ///< due once every `interval` ticks
    int32_t prio = 5;             ///< lower runs earlier
    uint32_t counter = 0;         ///< ticks until due; 0: due on the next tick
    std::string name;             ///< as stored: at most 31 characters
    uint32_t groupMask = 0;       ///< one bit a group
    Place place = Place::Listed;  ///< where the module keeps the record
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
