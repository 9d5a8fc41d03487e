// A reference model of the CTickScheduler module, small enough to be
// obviously right: handler records, their dispatch order, the group and
// freeze state, the module's life cycle, and for each operation the result
// and the trace lines the library must produce.
//
// Tick passes run in step with the library (ModelBase.h). The model follows the module's rules for changes made from
// inside a pass: the pass walks the handlers it started with; a handler unregistered during the pass is not called
// after its removal and is freed when the pass ends; a handler registered during the pass is first considered by the
// next pass; a new priority order applies from the next pass; every handler that stays registered advances its counter
// exactly once per pass.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ModelBase.h"
#include "SchedulerOps.h"
#include "TraceLedger.h"

namespace zyn_fuzz::sched {

class SchedulerModel : public ModelBase<Op> {
public:
    explicit SchedulerModel(TraceLedger& ledger);

    /// The tick function entered last throws.
    void noteThrow(ThrowKind kind, const std::string& what);
    /// Records the module compares: those it lists or a client still holds.
    static bool compared(const ModelRecord& record) {
        return record.place == Place::Listed || record.place == Place::Dropped || record.place == Place::Foreign;
    }
    bool frozen() const { return isFrozen; }
    /// The priority Initialize stored, once an Initialize of this input has
    /// succeeded.
    std::optional<int32_t> tickPriority() const { return storedPriority; }
    /// True once phase 11 has configured the oscillator in this input.
    bool oscillatorReady() const { return oscillatorConfigured; }
    /// True while the thread that phase 14 started has not been stopped.
    bool oscillatorStarted() const { return oscillatorRunning; }

private:
    // The operations, phases and life cycle of this module.
    Outcome applyOwn(const Op& op) override;
    Outcome unregisterHandler(const Op& op);
    Outcome setPriority(const Op& op);
    Outcome setStartOffset(const Op& op);
    Outcome freeze(bool on);
    Outcome copyForeignHandle(const Op& op);
    bool acceptsRegistration(const Op& op) override;
    Outcome initialize(const Op& op) override;
    void uninitialize() override;
    std::optional<Outcome> applyOwnPhase(uint32_t phase) override;
    Outcome startTicks();
    /// Phase 14's start of the oscillator; false when it refuses.
    bool startOscillator();
    void removeFromList(uint32_t record);

    // The pass: it walks the handlers it started with.
    void beginTick() override;
    std::optional<uint32_t> nextCall() override;
    std::vector<uint32_t> finishTick() override;
    bool inTick() const override { return passRunning; }
    void advance(ModelRecord& record);
    void finishCall();

    bool isFrozen = false;
    std::optional<int32_t> storedPriority;
    bool oscillatorConfigured = false;
    bool oscillatorRunning = false;

    bool passRunning = false;
    std::vector<uint32_t> passHandlers;
    size_t passPosition = 0;
    uint32_t calling = kNoRecord;
    ThrowKind callingThrows = ThrowKind::None;
    std::string callingWhat;
};

}  // namespace zyn_fuzz::sched
