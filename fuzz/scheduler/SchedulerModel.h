// A reference model of the CTickScheduler module, small enough to be
// obviously right: handler records, their dispatch order, the group and
// freeze state, the module's life cycle, and for each operation the result
// and the trace lines the library must produce.
//
// Tick passes run in step with the library: the target calls beginPass(),
// runs the library's tick, and asks nextCall() each time a tick function is
// entered; finishPass() then checks that no due handler was left out. The
// model follows the module's rules for changes made from inside a pass: the
// pass walks the handlers it started with; a handler unregistered during the
// pass is not called after its removal and is freed when the pass ends; a
// handler registered during the pass is first considered by the next pass; a
// new priority order applies from the next pass; every handler that stays
// registered advances its counter exactly once per pass.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ModelSupport.h"
#include "SchedulerOps.h"
#include "TraceLedger.h"

namespace sched_fuzz {

using zyn_fuzz::kNoRecord;
using zyn_fuzz::PlatformCalls;

/// Where a record is as far as the module is concerned.
enum class Place {
    Listed,   ///< in the handler list
    Retired,  ///< unregistered during the running pass; freed when it ends
    Dropped,  ///< left out of the list by Uninitialize; the block stays valid
    Foreign,  ///< a record the module never created
    Freed,
};

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
    int slot = -1;                   ///< the slot Register, LoadForeignRecord or CopyForeignHandle fills
    uint32_t newRecord = kNoRecord;  ///< the record Register creates
};

class SchedulerModel {
public:
    explicit SchedulerModel(zyn_fuzz::TraceLedger& ledger);

    /// The record id of the foreign record every input starts with.
    uint32_t foreignRecord() const { return foreign; }

    /// Applies an operation other than Tick; announces its trace lines.
    Outcome apply(const Op& op);

    /// Starts a tick pass; false when the pass runs no handler at all.
    bool beginPass();
    /// The record whose tick function must be entered next in this pass, or
    /// nothing when the pass must call no further handler.
    std::optional<uint32_t> nextCall();
    /// The tick function entered last throws.
    void noteThrow(ThrowKind kind, const std::string& what);
    /// Ends the pass; returns the records freed by its end. Fails when a
    /// due handler was not called.
    std::vector<uint32_t> finishPass();
    bool inPass() const { return passRunning; }

    // The state, for comparison with the library.
    const std::vector<uint32_t>& listed() const { return handlerList; }
    const std::vector<ModelRecord>& records() const { return allRecords; }
    const std::array<uint32_t, kSlots>& slots() const { return slotRecords; }
    uint32_t disabledGroups() const { return disabledGroupMask; }
    bool initialized() const { return isInitialized; }
    bool frozen() const { return isFrozen; }
    /// The priority Initialize stored, once an Initialize of this input has
    /// succeeded.
    std::optional<int32_t> tickPriority() const { return storedPriority; }
    /// True once phase 11 has configured the oscillator in this input.
    bool oscillatorReady() const { return oscillatorConfigured; }
    /// True while the thread that phase 14 started has not been stopped.
    bool oscillatorStarted() const { return oscillatorRunning; }
    const PlatformCalls& platformCalls() const { return calls; }

private:
    Outcome registerHandler(const Op& op);
    Outcome unregisterHandler(const Op& op);
    Outcome setEnabled(const Op& op, uint32_t value);
    Outcome setPriority(const Op& op);
    Outcome setStartOffset(const Op& op);
    Outcome addGroup(const Op& op);
    Outcome removeGroup(const Op& op);
    Outcome enableGroup(const Op& op);
    Outcome disableGroup(const Op& op);
    Outcome freeze(bool on);
    Outcome copyForeignHandle(const Op& op);
    Outcome initialize(const Op& op);
    Outcome phase(const Op& op);
    /// Phase 14's start of the oscillator; false when it refuses.
    bool startOscillator();
    void uninitialize();

    ModelRecord* recordIn(uint8_t slot) { return zyn_fuzz::recordIn(allRecords, slotRecords, slot); }
    int firstFreeSlot() const { return zyn_fuzz::firstFreeSlot(slotRecords); }
    void removeFromList(uint32_t record);
    void advance(ModelRecord& record);
    void finishCall();
    void message(uint32_t level, const std::string& function, const std::string& text);

    zyn_fuzz::TraceLedger& ledger;
    std::vector<ModelRecord> allRecords;
    std::vector<uint32_t> handlerList;
    std::array<uint32_t, kSlots> slotRecords;
    uint32_t foreign;
    uint32_t disabledGroupMask = 0;
    bool isInitialized = false;
    bool isFrozen = false;
    std::optional<int32_t> storedPriority;
    bool oscillatorConfigured = false;
    bool oscillatorRunning = false;
    PlatformCalls calls;

    bool passRunning = false;
    std::vector<uint32_t> passHandlers;
    size_t passPosition = 0;
    uint32_t calling = kNoRecord;
    ThrowKind callingThrows = ThrowKind::None;
    std::string callingWhat;
};

}  // namespace sched_fuzz
