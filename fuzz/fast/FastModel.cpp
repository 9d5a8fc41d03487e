#include "FastModel.h"

#include <algorithm>

#include "FuzzCheck.h"
#include "FuzzNames.h"
#include "ModelSupport.h"
#include "PlatformResults.h"
#include "TickModuleIdentity.h"

namespace zyn_fuzz::fast {

namespace {

const ModuleTexts kTexts{
    kFastSource, "CTickSchedulerFast_", ". Error = ", true, "tickHandler == NULL", nullptr, nullptr, nullptr};

// The fast module's records have no interval.
constexpr uint32_t kForeignInterval = 0;

}  // namespace

FastModel::FastModel(zyn_fuzz::TraceLedger& ledger) : ModelBase(ledger, kTexts, kForeignInterval) {}

std::optional<uint32_t> FastModel::successorOf(uint32_t record) const {
    auto at = std::find(handlerList.begin(), handlerList.end(), record);
    if (at == handlerList.end() || ++at == handlerList.end()) {
        return std::nullopt;
    }
    return *at;
}

Outcome FastModel::applyOwn(const Op& op) {
    switch (op.kind) {
        case OpKind::Unregister:
            return unregisterHandler(op, named("UnregisterTickHandler"));
        case OpKind::UnregisterFromOnTick:
            return unregisterHandler(op, named("UnregisterTickHandlerFromOnTick"));
        case OpKind::ScriptRemoveResult:
            removeMissingResult = op.a;
            return Outcome{};
        case OpKind::ScriptGetNextNull:
            getNextNullCountdown = op.a;
            return Outcome{};
        default:
            zyn_fuzz::fail("an operation the fast model does not know");
    }
}

bool FastModel::acceptsRegistration(const Op& op) {
    const std::string function = named("RegisterTickHandler");
    if ((op.variant & (kNullHandleVariable | kNullReceiver)) != 0) {
        message(kError, function, "Called with nullptr argument");
        return false;
    }
    if ((op.variant & kNullName) != 0) {
        message(kError, function, "Tick handler name pointer is invalid");
        return false;
    }
    return true;
}

Outcome FastModel::unregisterHandler(const Op& op, const std::string& function) {
    if (op.slot == kNullSlot) {
        return resultOf(TickResult::NullArgument);
    }
    const uint32_t id = slotRecords[op.slot];
    const bool listed = id != kNoRecord && allRecords[id].place == Place::Listed;
    if (!listed) {
        message(kError, function,
                "Failed to remove Tick Handler from list, error: " + zyn_fuzz::hex8(removeMissingResult));
        return resultOf(TickResult::ListRemoveFailed);
    }
    ModelRecord& record = allRecords[id];
    if (ticking && cursor && *cursor == id) {
        // The walk's cursor stands on this element: the list moves it on to
        // the element after it, or past the end.
        cursor = successorOf(id);
    }
    handlerList.erase(std::find(handlerList.begin(), handlerList.end(), id));
    message(kInfo, function, "Tick Handler " + record.name + " unregistered successfully");
    record.place = Place::Freed;
    slotRecords[op.slot] = kNoRecord;
    Outcome outcome = resultOf(TickResult::Success);
    outcome.freedRecord = id;
    return outcome;
}

Outcome FastModel::initialize(const Op& op) {
    const bool reachesTheList =
        !isInitialized && !zyn_fuzz::refused(op.b) && !zyn_fuzz::refused(op.c) && !zyn_fuzz::refused(op.d);
    if (reachesTheList && !handlerList.empty()) {
        // A new list would abandon the records (and the platform list's
        // nodes) of the old one; the target never leaks them on purpose.
        return skipped();
    }
    return ModelBase::initialize(op);
}

std::optional<Outcome> FastModel::applyOwnPhase(uint32_t phase) {
    if (phase != TickModule::Phase::Configure) {
        return std::nullopt;
    }
    ledger.entry(kOscillatorSource, "initialize", "eDelay=1, ePriority=1");
    configured = true;
    return resultOf(TickResult::Success);
}

bool FastModel::deliversNull() {
    if (getNextNullCountdown == 0) {
        return false;
    }
    return --getNextNullCountdown == 0;
}

void FastModel::beginTick() {
    ticking = true;
    walkDone = handlerList.empty();
    cursor = walkDone ? std::nullopt : std::optional<uint32_t>(handlerList.front());
}

std::optional<uint32_t> FastModel::nextCall() {
    while (ticking && !walkDone) {
        if (deliversNull()) {
            message(kError, named("OnTick"), "CTickSchedulerFast_OnTick failed in receiving tick handler");
            walkDone = true;
            break;
        }
        if (!cursor) {
            // Every element after the last one delivered was removed during
            // the walk: the list delivers no element, which the dispatch
            // reports like any other missing element.
            message(kError, named("OnTick"), "CTickSchedulerFast_OnTick failed in receiving tick handler");
            walkDone = true;
            break;
        }
        const uint32_t id = *cursor;
        cursor = successorOf(id);
        walkDone = !cursor;  // the end comes together with the last element
        const ModelRecord& record = allRecords[id];
        if (record.enabled == 1 && (record.groupMask & disabledGroupMask) == 0) {
            return id;
        }
    }
    return std::nullopt;
}

std::vector<uint32_t> FastModel::finishTick() {
    checkNoneMissed(nextCall());
    ticking = false;
    cursor.reset();
    return {};
}

}  // namespace zyn_fuzz::fast
