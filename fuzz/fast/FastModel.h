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

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FastOps.h"
#include "ModelBase.h"
#include "TraceLedger.h"

namespace fast_fuzz {

using zyn_fuzz::kNoRecord;
using zyn_fuzz::ModelRecord;
using zyn_fuzz::Outcome;
using zyn_fuzz::Place;
using zyn_fuzz::PlatformCalls;

class FastModel : public zyn_fuzz::ModelBase<Op> {
public:
    explicit FastModel(zyn_fuzz::TraceLedger& ledger);

    void beginTick();
    /// The record whose tick function must be entered next, if any.
    std::optional<uint32_t> nextCall();
    /// Fails when a due handler was not called; a tick frees no record
    /// later than the unregistration itself.
    std::vector<uint32_t> finishTick();
    bool inTick() const { return ticking; }

    /// Records the module compares: every one not freed.
    static bool compared(const ModelRecord& record) { return record.place != Place::Freed; }
    /// True once phase 11 has configured the oscillator in this input.
    bool oscillatorConfigured() const { return configured; }

private:
    Outcome applyOwn(const Op& op) override;
    std::optional<Outcome> applyOwnPhase(uint32_t phase) override;
    bool acceptsRegistration(const Op& op) override;
    Outcome initialize(const Op& op) override;

    Outcome unregisterHandler(const Op& op, const std::string& function);
    std::optional<uint32_t> successorOf(uint32_t record) const;
    /// One CList_GetNext as the double answers it.
    bool deliversNull();

    bool configured = false;
    uint32_t removeMissingResult = 32771;
    uint32_t getNextNullCountdown = 0;

    bool ticking = false;
    bool walkDone = false;
    std::optional<uint32_t> cursor;
};

}  // namespace fast_fuzz
