#include "FastModel.h"

#include <algorithm>

#include "FuzzCheck.h"
#include "FuzzNames.h"
#include "ModelSupport.h"
#include "PlatformResults.h"

namespace fast_fuzz {

using zyn_fuzz::kFastSource;
using zyn_fuzz::kOscillatorSource;

namespace {

using namespace zyn_fuzz::codes;

constexpr auto resultOf = &zyn_fuzz::resultOf<Outcome>;
constexpr auto skipped = &zyn_fuzz::skipped<Outcome>;

std::string outOfBounds(uint32_t groupId) {
    return "Group ID out of bounds: " + std::to_string(static_cast<int32_t>(groupId));
}

}  // namespace

FastModel::FastModel(zyn_fuzz::TraceLedger& ledger) : ledger(ledger) {
    slotRecords.fill(kNoRecord);
    ModelRecord record;
    record.client = kClients;
    record.name = "foreign";
    record.place = Place::Foreign;
    foreign = 0;
    allRecords.push_back(record);
}

void FastModel::message(uint32_t level, const std::string& function, const std::string& text) {
    ledger.message(level, kFastSource, function, text);
}

std::optional<uint32_t> FastModel::successorOf(uint32_t record) const {
    auto at = std::find(handlerList.begin(), handlerList.end(), record);
    if (at == handlerList.end() || ++at == handlerList.end()) {
        return std::nullopt;
    }
    return *at;
}

Outcome FastModel::apply(const Op& op) {
    switch (op.kind) {
        case OpKind::Register:
            return registerHandler(op);
        case OpKind::Unregister:
            return unregisterHandler(op, "CTickSchedulerFast_UnregisterTickHandler");
        case OpKind::UnregisterFromOnTick:
            return unregisterHandler(op, "CTickSchedulerFast_UnregisterTickHandlerFromOnTick");
        case OpKind::Enable:
            return setEnabled(op, 1);
        case OpKind::Disable:
            return setEnabled(op, 0);
        case OpKind::AddGroup:
            return addGroup(op);
        case OpKind::RemoveGroup:
            return removeGroup(op);
        case OpKind::EnableGroup:
            return changeGroup(op, false);
        case OpKind::DisableGroup:
            return changeGroup(op, true);
        case OpKind::WriteEnabled:
            return zyn_fuzz::writeEnabled<Outcome>(recordIn(op.slot), op.a);
        case OpKind::LoadForeignRecord:
            return zyn_fuzz::fillFreeSlot<Outcome>(slotRecords, foreign);
        case OpKind::ArmNested:
            return Outcome{};
        case OpKind::TraceLevel:
            ledger.setLevel(op.a);
            return Outcome{};
        case OpKind::ScriptRemoveResult:
            removeMissingResult = op.a;
            return Outcome{};
        case OpKind::ScriptGetNextNull:
            getNextNullCountdown = op.a;
            return Outcome{};
        case OpKind::Initialize:
            return initialize(op);
        case OpKind::Uninitialize:
            uninitialize();
            return Outcome{};
        case OpKind::Phase:
            return phase(op);
        case OpKind::Tick:
            break;
    }
    zyn_fuzz::fail("a tick is not an operation for apply()");
}

Outcome FastModel::registerHandler(const Op& op) {
    const std::string function = "CTickSchedulerFast_RegisterTickHandler";
    const bool nullVariable = (op.variant & kNullHandleVariable) != 0;
    const int target = firstFreeSlot();
    if (!nullVariable && target < 0) {
        return skipped();
    }
    Outcome outcome = resultOf(kNullArgument);
    outcome.slot = nullVariable ? -1 : target;
    if (nullVariable || (op.variant & kNullReceiver) != 0) {
        message(kError, function, "Called with nullptr argument");
        return outcome;
    }
    if ((op.variant & kNullName) != 0) {
        message(kError, function, "Tick handler name pointer is invalid");
        return outcome;
    }
    ModelRecord record;
    record.client = op.client;
    record.name = zyn_fuzz::storedName(op.text);
    const auto id = static_cast<uint32_t>(allRecords.size());
    allRecords.push_back(record);
    handlerList.push_back(id);
    slotRecords[static_cast<size_t>(target)] = id;
    outcome.result = kSuccess;
    outcome.newRecord = id;
    return outcome;
}

Outcome FastModel::unregisterHandler(const Op& op, const std::string& function) {
    if (op.slot == kNullSlot) {
        return resultOf(kNullArgument);
    }
    const uint32_t id = slotRecords[op.slot];
    const bool listed = id != kNoRecord && allRecords[id].place == Place::Listed;
    if (!listed) {
        message(kError, function,
                "Failed to remove Tick Handler from list, error: " + zyn_fuzz::hex8(removeMissingResult));
        return resultOf(kListRemoveFailed);
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
    Outcome outcome = resultOf(kSuccess);
    outcome.freedRecord = id;
    return outcome;
}

Outcome FastModel::setEnabled(const Op& op, uint32_t value) {
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        return resultOf(kNullArgument);
    }
    record->enabled = value;
    return resultOf(kSuccess);
}

Outcome FastModel::addGroup(const Op& op) {
    const std::string function = "CTickSchedulerFast_AddGroup";
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        message(kError, function, "tickHandler == NULL");
        return resultOf(kNullArgument);
    }
    if (op.a > 1) {
        message(kError, function, outOfBounds(op.a));
        return resultOf(kGroupIdOutOfBounds);
    }
    record->groupMask |= 1u << op.a;
    return resultOf(kSuccess);
}

Outcome FastModel::removeGroup(const Op& op) {
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        return resultOf(kNullArgument);
    }
    if (op.a > 1) {
        message(kError, "CTickSchedulerFast_RemoveGroup", outOfBounds(op.a));
        return resultOf(kGroupIdOutOfBounds);
    }
    record->groupMask &= ~(1u << op.a);
    return resultOf(kSuccess);
}

Outcome FastModel::changeGroup(const Op& op, bool disable) {
    if (op.a > 1) {
        message(kError, disable ? "CTickSchedulerFast_DisableTickGroup" : "CTickSchedulerFast_EnableTickGroup",
                outOfBounds(op.a));
        return resultOf(kGroupIdOutOfBounds);
    }
    if (disable) {
        disabledGroupMask |= 1u << op.a;
    } else {
        disabledGroupMask &= ~(1u << op.a);
    }
    return resultOf(kSuccess);
}

Outcome FastModel::initialize(const Op& op) {
    const std::string function = "CTickSchedulerFast_Initialize";
    const bool reachesTheList =
        !isInitialized && !zyn_fuzz::refused(op.b) && !zyn_fuzz::refused(op.c) && !zyn_fuzz::refused(op.d);
    if (reachesTheList && !handlerList.empty()) {
        // A new list would abandon the records (and the platform list's
        // nodes) of the old one; the target never leaks them on purpose.
        return skipped();
    }
    ledger.entry(kFastSource, function);
    if (isInitialized) {
        message(kError, function, "Has already been initialized");
        return resultOf(kAlreadyInitialized);
    }
    ++calls.moduleRegistrations;
    if (zyn_fuzz::refused(op.b)) {
        message(kError, function, "Failed to register module with ModuleManager. Error = " + zyn_fuzz::hex8(op.b));
        return resultOf(kModuleRegistrationFailed);
    }
    ++calls.callbackRegistrations;
    if (zyn_fuzz::refused(op.c)) {
        message(kError, function, "Failed to register module callback. Error = " + zyn_fuzz::hex8(op.c));
        return resultOf(kCallbackRegistrationFailed);
    }
    ++calls.interfaceRegistrations;
    if (zyn_fuzz::refused(op.d)) {
        message(kError, function, "Failed to register ITickScheduler. Error = " + zyn_fuzz::hex8(op.d));
        return resultOf(kFailure);
    }
    disabledGroupMask = 0;
    isInitialized = true;
    return resultOf(kSuccess);
}

void FastModel::uninitialize() {
    ledger.entry(kOscillatorSource, "stop");
    ++calls.interfaceWithdrawals;
    isInitialized = false;
}

Outcome FastModel::phase(const Op& op) {
    if (!isInitialized) {
        return resultOf(kNotInitialized);
    }
    switch (op.a) {
        case 13:
            return resultOf(kSuccess);
        case 16:
            uninitialize();
            return resultOf(kSuccess);
        case 11:
            ledger.entry(kOscillatorSource, "initialize", "eDelay=1, ePriority=1");
            configured = true;
            return resultOf(kSuccess);
        default:
            message(kError, "CTickSchedulerFast_OnPhaseActivation", "Phase not handled: " + std::to_string(op.a));
            return resultOf(kPhaseNotHandled);
    }
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
            message(kError, "CTickSchedulerFast_OnTick", "CTickSchedulerFast_OnTick failed in receiving tick handler");
            walkDone = true;
            break;
        }
        if (!cursor) {
            // Every element after the last one delivered was removed during
            // the walk: the list delivers no element, which the dispatch
            // reports like any other missing element.
            message(kError, "CTickSchedulerFast_OnTick", "CTickSchedulerFast_OnTick failed in receiving tick handler");
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

void FastModel::finishTick() {
    const std::optional<uint32_t> missed = nextCall();
    if (missed) {
        const ModelRecord& record = allRecords[*missed];
        zyn_fuzz::fail("the tick ended without calling the due handler \"" + zyn_fuzz::printable(record.name) +
                       "\" of client " + std::to_string(record.client));
    }
    ticking = false;
    cursor.reset();
}

}  // namespace fast_fuzz
