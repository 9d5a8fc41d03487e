// A reference model of the CTickSchedulerFast module: its handler list in
// registration order, the group masks, the module's life cycle, the platform
// list's behaviour as the module relies on it, and for each operation the
// result and the trace lines the library must produce.
//
// A tick runs in step with the library: beginTick(), then nextCall() each
// time a tick function is entered, then finishTick(). The dispatch walks the
// live list with a cursor that has already moved past the element it
// delivered, so a tick function may remove itself or any other element; when
// it removes the one the cursor stands on, the cursor moves on to the element
// after it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FastOps.h"
#include "ModelSupport.h"
#include "TraceLedger.h"

namespace fast_fuzz {

using zyn_fuzz::kNoRecord;
using zyn_fuzz::PlatformCalls;

enum class Place { Listed, Foreign, Freed };

struct ModelRecord {
    uint32_t client = 0;
    uint32_t enabled = 1;
    std::string name;
    uint32_t groupMask = 0;
    Place place = Place::Listed;
};

struct Outcome {
    bool skipped = false;
    bool hasResult = false;
    uint32_t result = 0;
    int slot = -1;
    uint32_t newRecord = kNoRecord;
    uint32_t freedRecord = kNoRecord;
};

class FastModel {
public:
    explicit FastModel(zyn_fuzz::TraceLedger& ledger);

    uint32_t foreignRecord() const { return foreign; }

    /// Applies an operation other than Tick; announces its trace lines.
    Outcome apply(const Op& op);

    void beginTick();
    /// The record whose tick function must be entered next, if any.
    std::optional<uint32_t> nextCall();
    /// Fails when a due handler was not called.
    void finishTick();
    bool inTick() const { return ticking; }

    const std::vector<uint32_t>& list() const { return handlerList; }
    const std::vector<ModelRecord>& records() const { return allRecords; }
    const std::array<uint32_t, kSlots>& slots() const { return slotRecords; }
    uint32_t disabledGroups() const { return disabledGroupMask; }
    bool initialized() const { return isInitialized; }
    /// True once phase 11 has configured the oscillator in this input.
    bool oscillatorConfigured() const { return configured; }
    const PlatformCalls& platformCalls() const { return calls; }

private:
    Outcome registerHandler(const Op& op);
    Outcome unregisterHandler(const Op& op, const std::string& function);
    Outcome setEnabled(const Op& op, uint32_t value);
    Outcome addGroup(const Op& op);
    Outcome removeGroup(const Op& op);
    Outcome changeGroup(const Op& op, bool disable);
    Outcome initialize(const Op& op);
    Outcome phase(const Op& op);
    void uninitialize();

    ModelRecord* recordIn(uint8_t slot) { return zyn_fuzz::recordIn(allRecords, slotRecords, slot); }
    int firstFreeSlot() const { return zyn_fuzz::firstFreeSlot(slotRecords); }
    std::optional<uint32_t> successorOf(uint32_t record) const;
    /// One CList_GetNext as the double answers it.
    bool deliversNull();
    void message(uint32_t level, const std::string& function, const std::string& text);

    zyn_fuzz::TraceLedger& ledger;
    std::vector<ModelRecord> allRecords;
    std::vector<uint32_t> handlerList;
    std::array<uint32_t, kSlots> slotRecords;
    uint32_t foreign;
    uint32_t disabledGroupMask = 0;
    bool isInitialized = false;
    bool configured = false;
    uint32_t removeMissingResult = 32771;
    uint32_t getNextNullCountdown = 0;
    PlatformCalls calls;

    bool ticking = false;
    bool walkDone = false;
    std::optional<uint32_t> cursor;
};

}  // namespace fast_fuzz
