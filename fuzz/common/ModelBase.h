// What both reference models keep and do alike: the handler records and the
// clients' handle variables, the handler list, the group mask, the module's
// initialisation with the platform and its phases, and the operations whose
// rules the two modules share. A model adds its own operations (applyOwn),
// its own phases (applyOwnPhase) and its tick walk.
//
// The two modules word some trace lines differently; ModuleTexts holds those
// differences, so every line the model announces stays the library's own.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "FuzzNames.h"
#include "ModelSupport.h"
#include "PlatformResults.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"
#include "TraceLedger.h"

namespace zyn_fuzz {

/// How a module words the trace lines the models share.
struct ModuleTexts {
    const char* source;     ///< the module's source file, as its trace sites name it
    const char* prefix;     ///< of every function name: "CTickScheduler_"
    const char* errorJoin;  ///< between a refusal and the platform's result
    bool moduleRefusalShowsError;
    const char* addGroupWithoutHandler;
    const char* groupEnabled;           ///< before the channel of an enabled group; null: no line
    const char* groupDisabled;          ///< before the channel of a disabled group; null: no line
    const char* phaseBeforeInitialize;  ///< warning for a phase before Initialize; null: no line
};

template <typename Op>
class ModelBase {
public:
    ModelBase(TraceLedger& ledger, const ModuleTexts& texts, uint32_t foreignInterval) : ledger(ledger), texts(texts) {
        slotRecords.fill(kNoRecord);
        ModelRecord record;
        record.client = kClients;
        record.interval = foreignInterval;
        record.name = "foreign";
        record.place = Place::Foreign;
        allRecords.push_back(record);
    }
    virtual ~ModelBase() = default;
    ModelBase(const ModelBase&) = delete;
    ModelBase& operator=(const ModelBase&) = delete;

    /// The record id of the foreign record every input starts with.
    static constexpr uint32_t foreignRecord() { return kForeign; }

    /// Applies an operation other than Tick; announces its trace lines.
    Outcome apply(const Op& op) {
        using Kind = decltype(op.kind);
        switch (op.kind) {
            case Kind::Register:
                return registerHandler(op);
            case Kind::Enable:
                return setEnabled(op, 1);
            case Kind::Disable:
                return setEnabled(op, 0);
            case Kind::AddGroup:
                return addGroup(op);
            case Kind::RemoveGroup:
                return removeGroup(op);
            case Kind::EnableGroup:
                return changeGroup(op, false);
            case Kind::DisableGroup:
                return changeGroup(op, true);
            case Kind::WriteEnabled:
                return writeEnabled(recordIn(op.slot), op.a);
            case Kind::LoadForeignRecord:
                return fillFreeSlot(slotRecords, kForeign);
            case Kind::ArmNested:
                return Outcome{};
            case Kind::TraceLevel:
                ledger.setLevel(op.a);
                return Outcome{};
            case Kind::Initialize:
                return initialize(op);
            case Kind::Uninitialize:
                uninitialize();
                return Outcome{};
            case Kind::Phase:
                return phase(op);
            case Kind::Tick:
                fail("a tick is not an operation for apply()");
            default:
                return applyOwn(op);
        }
    }

    // The tick walk, in step with the library's dispatch: the session calls
    // beginTick(), runs the library's tick, and asks nextCall() each time a
    // tick function is entered; finishTick() then checks that no due
    // handler was left out.

    virtual void beginTick() = 0;
    /// The record whose tick function must be entered next, or nothing when
    /// the tick must call no further handler.
    virtual std::optional<uint32_t> nextCall() = 0;
    /// Ends the tick; returns the records freed by its end.
    virtual std::vector<uint32_t> finishTick() = 0;
    virtual bool inTick() const = 0;

    // The state, for comparison with the library.
    const std::vector<uint32_t>& listed() const { return handlerList; }
    const std::vector<ModelRecord>& records() const { return allRecords; }
    const std::array<uint32_t, kSlots>& slots() const { return slotRecords; }
    uint32_t disabledGroups() const { return disabledGroupMask; }
    bool initialized() const { return isInitialized; }
    const PlatformCalls& platformCalls() const { return calls; }

protected:
    static constexpr uint32_t kForeign = 0;

    /// The module's own operations.
    virtual Outcome applyOwn(const Op& op) = 0;
    /// The module's own phases; nothing for a phase it does not handle.
    virtual std::optional<Outcome> applyOwnPhase(uint32_t phase) = 0;
    /// Checks the arguments of a Register the way the module does, with its
    /// trace lines; false when the module refuses them.
    virtual bool acceptsRegistration(const Op& op) = 0;

    virtual Outcome initialize(const Op& op) {
        const std::string function = named("Initialize");
        ledger.entry(texts.source, function);
        if (isInitialized) {
            message(kError, function, "Has already been initialized");
            return resultOf(TickResult::AlreadyInitialized);
        }
        ++calls.moduleRegistrations;
        if (refused(op.b)) {
            message(kError, function,
                    "Failed to register module with ModuleManager" +
                        (texts.moduleRefusalShowsError ? texts.errorJoin + hex8(op.b) : std::string()));
            return resultOf(TickResult::ModuleRegistrationFailed);
        }
        ++calls.callbackRegistrations;
        if (refused(op.c)) {
            message(kError, function, std::string("Failed to register module callback") + texts.errorJoin + hex8(op.c));
            return resultOf(TickResult::CallbackRegistrationFailed);
        }
        ++calls.interfaceRegistrations;
        if (refused(op.d)) {
            message(kError, function, std::string("Failed to register ITickScheduler") + texts.errorJoin + hex8(op.d));
            return resultOf(TickResult::Failure);
        }
        disabledGroupMask = 0;
        isInitialized = true;
        return resultOf(TickResult::Success);
    }

    virtual void uninitialize() {
        ledger.entry(kOscillatorSource, "stop");
        ++calls.interfaceWithdrawals;
        isInitialized = false;
    }

    /// The module's function `name`, as trace lines name it.
    std::string named(const char* name) const { return texts.prefix + std::string(name); }

    void message(uint32_t level, const std::string& function, const std::string& text) {
        ledger.message(level, texts.source, function, text);
    }

    ModelRecord* recordIn(uint8_t slot) { return zyn_fuzz::recordIn(allRecords, slotRecords, slot); }
    int firstFreeSlot() const { return zyn_fuzz::firstFreeSlot(slotRecords); }

    /// Fails when the tick walk left out a handler that was due.
    void checkNoneMissed(const std::optional<uint32_t>& missed) const {
        if (missed) {
            const ModelRecord& record = allRecords[*missed];
            fail("the tick ended without calling the due handler \"" + printable(record.name) + "\" of client " +
                 std::to_string(record.client));
        }
    }

    TraceLedger& ledger;
    std::vector<ModelRecord> allRecords;
    std::vector<uint32_t> handlerList;
    std::array<uint32_t, kSlots> slotRecords;
    uint32_t disabledGroupMask = 0;
    bool isInitialized = false;
    PlatformCalls calls;

private:
    Outcome registerHandler(const Op& op) {
        const bool nullVariable = (op.variant & kNullHandleVariable) != 0;
        const int target = firstFreeSlot();
        if (!nullVariable && target < 0) {
            return skipped();  // every handle variable is taken
        }
        Outcome outcome = resultOf(TickResult::NullArgument);
        outcome.slot = nullVariable ? -1 : target;
        if (!acceptsRegistration(op)) {
            return outcome;
        }
        ModelRecord record;
        record.client = op.client;
        record.interval = op.a;
        record.name = storedName(op.text);
        const auto id = static_cast<uint32_t>(allRecords.size());
        allRecords.push_back(record);
        handlerList.push_back(id);
        slotRecords[static_cast<size_t>(target)] = id;
        outcome.result = TickResult::Success;
        outcome.newRecord = id;
        return outcome;
    }

    Outcome setEnabled(const Op& op, uint32_t value) {
        ModelRecord* record = recordIn(op.slot);
        if (record == nullptr) {
            return resultOf(TickResult::NullArgument);
        }
        record->enabled = value;
        return resultOf(TickResult::Success);
    }

    /// A group id past the two groups is refused with its trace line.
    bool groupInBounds(uint32_t groupId, const std::string& function) {
        if (groupId > 1) {
            message(kError, function, "Group ID out of bounds: " + std::to_string(static_cast<int32_t>(groupId)));
            return false;
        }
        return true;
    }

    Outcome addGroup(const Op& op) {
        ModelRecord* record = recordIn(op.slot);
        if (record == nullptr) {
            message(kError, named("AddGroup"), texts.addGroupWithoutHandler);
            return resultOf(TickResult::NullArgument);
        }
        if (!groupInBounds(op.a, named("AddGroup"))) {
            return resultOf(TickResult::GroupIdOutOfBounds);
        }
        record->groupMask |= 1u << op.a;
        return resultOf(TickResult::Success);
    }

    Outcome removeGroup(const Op& op) {
        ModelRecord* record = recordIn(op.slot);
        if (record == nullptr) {
            return resultOf(TickResult::NullArgument);
        }
        if (!groupInBounds(op.a, named("RemoveGroup"))) {
            return resultOf(TickResult::GroupIdOutOfBounds);
        }
        record->groupMask &= ~(1u << op.a);
        return resultOf(TickResult::Success);
    }

    Outcome changeGroup(const Op& op, bool disable) {
        const std::string function = named(disable ? "DisableTickGroup" : "EnableTickGroup");
        if (!groupInBounds(op.a, function)) {
            return resultOf(TickResult::GroupIdOutOfBounds);
        }
        if (disable) {
            disabledGroupMask |= 1u << op.a;
        } else {
            disabledGroupMask &= ~(1u << op.a);
        }
        const char* text = disable ? texts.groupDisabled : texts.groupEnabled;
        if (text != nullptr) {
            message(kInfo, function, text + ("channel " + std::to_string(op.a + 1)) + "(" + std::to_string(op.a) + ")");
        }
        return resultOf(TickResult::Success);
    }

    Outcome phase(const Op& op) {
        const std::string function = named("OnPhaseActivation");
        if (!isInitialized) {
            if (texts.phaseBeforeInitialize != nullptr) {
                message(kWarning, function, texts.phaseBeforeInitialize);
            }
            return resultOf(TickResult::ModuleNotInitialized);
        }
        if (op.a == TickModule::Phase::Idle) {
            return resultOf(TickResult::Success);
        }
        if (op.a == TickModule::Phase::ShutDown) {
            uninitialize();
            return resultOf(TickResult::Success);
        }
        if (std::optional<Outcome> own = applyOwnPhase(op.a)) {
            return *own;
        }
        message(kError, function, "Phase not handled: " + std::to_string(op.a));
        return resultOf(TickResult::PhaseNotHandled);
    }

    const ModuleTexts& texts;
};

}  // namespace zyn_fuzz
