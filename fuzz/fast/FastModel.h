// A reference model of the CTickSchedulerFast module: its handler list in
// registration order, the group masks, the module's life cycle, the platform
// list's behaviour as the module relies on it, and for each operation the
// result and the trace lines the library must produce.
//
// A tick runs in step with the library (ModelBase.h). The dispatch walks the
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

namespace zyn_fuzz::fast {

class FastModel : public ModelBase<Op> {
public:
    explicit FastModel(TraceLedger& ledger);

    /// Records the module compares: every one not freed.
    static bool compared(const ModelRecord& record) { return record.place != Place::Freed; }
    /// True once phase 11 has configured the oscillator in this input.
    bool oscillatorConfigured() const { return configured; }

private:
    Outcome applyOwn(const Op& op) override;
    Outcome unregisterHandler(const Op& op, const std::string& function);
    bool acceptsRegistration(const Op& op) override;
    /// Skips an Initialize that would abandon a list with handlers in it.
    Outcome initialize(const Op& op) override;
    std::optional<Outcome> applyOwnPhase(uint32_t phase) override;

    // The walk over the live list; a tick frees no record later than the
    // unregistration itself.
    void beginTick() override;
    std::optional<uint32_t> nextCall() override;
    std::vector<uint32_t> finishTick() override;
    bool inTick() const override { return ticking; }
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

}  // namespace zyn_fuzz::fast
