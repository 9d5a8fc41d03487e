#include "SchedulerModel.h"

#include <ctime>

#include <algorithm>

#include "FuzzCheck.h"
#include "FuzzNames.h"
#include "ModelSupport.h"
#include "PlatformResults.h"

namespace sched_fuzz {

using zyn_fuzz::kOscillatorSource;
using zyn_fuzz::kSchedulerSource;

namespace {

using namespace zyn_fuzz::codes;

constexpr auto resultOf = &zyn_fuzz::resultOf<Outcome>;
constexpr auto skipped = &zyn_fuzz::skipped<Outcome>;

std::string channelText(uint32_t groupId) { return "channel " + std::to_string(groupId + 1); }

}  // namespace

SchedulerModel::SchedulerModel(zyn_fuzz::TraceLedger& ledger) : ledger(ledger) {
    slotRecords.fill(kNoRecord);
    ModelRecord record;
    record.client = kClients;
    record.interval = 7;
    record.name = "foreign";
    record.place = Place::Foreign;
    foreign = 0;
    allRecords.push_back(record);
}

void SchedulerModel::message(uint32_t level, const std::string& function, const std::string& text) {
    ledger.message(level, kSchedulerSource, function, text);
}

void SchedulerModel::removeFromList(uint32_t record) {
    handlerList.erase(std::remove(handlerList.begin(), handlerList.end(), record), handlerList.end());
}

void SchedulerModel::advance(ModelRecord& record) {
    record.counter += 1;
    if (record.counter >= record.interval) {
        record.counter = 0;
    }
}

Outcome SchedulerModel::apply(const Op& op) {
    switch (op.kind) {
        case OpKind::Register:
            return registerHandler(op);
        case OpKind::Unregister:
            return unregisterHandler(op);
        case OpKind::Enable:
            return setEnabled(op, 1);
        case OpKind::Disable:
            return setEnabled(op, 0);
        case OpKind::SetPriority:
            return setPriority(op);
        case OpKind::SetStartOffset:
            return setStartOffset(op);
        case OpKind::AddGroup:
            return addGroup(op);
        case OpKind::RemoveGroup:
            return removeGroup(op);
        case OpKind::EnableGroup:
            return enableGroup(op);
        case OpKind::DisableGroup:
            return disableGroup(op);
        case OpKind::Freeze:
            return freeze(true);
        case OpKind::Unfreeze:
            return freeze(false);
        case OpKind::WriteEnabled:
            return zyn_fuzz::writeEnabled<Outcome>(recordIn(op.slot), op.a);
        case OpKind::LoadForeignRecord:
            return zyn_fuzz::fillFreeSlot<Outcome>(slotRecords, foreign);
        case OpKind::CopyForeignHandle:
            return copyForeignHandle(op);
        case OpKind::ArmNested:
        case OpKind::ArmThrow:
            return Outcome{};
        case OpKind::TraceLevel:
            ledger.setLevel(op.a);
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

Outcome SchedulerModel::registerHandler(const Op& op) {
    const std::string function = "CTickScheduler_RegisterTickHandler";
    const bool nullVariable = (op.variant & kNullHandleVariable) != 0;
    const int target = firstFreeSlot();
    if (!nullVariable && target < 0) {
        return skipped();  // every handle variable is taken
    }
    Outcome outcome;
    outcome.hasResult = true;
    outcome.slot = nullVariable ? -1 : target;
    outcome.result = kNullArgument;
    if (nullVariable) {
        message(kError, function, "tickHandler == NULL");
        return outcome;
    }
    if ((op.variant & kNullReceiver) != 0) {
        message(kError, function, "pITickReceiver == NULL");
        return outcome;
    }
    if ((op.variant & kNullName) != 0) {
        message(kError, function, "pszName == NULL");
        return outcome;
    }
    message(kInfo, function, "Register tick handler  " + zyn_fuzz::asCString(op.text));
    ModelRecord record;
    record.client = op.client;
    record.interval = op.a;
    record.name = zyn_fuzz::storedName(op.text);
    const auto id = static_cast<uint32_t>(allRecords.size());
    allRecords.push_back(record);
    handlerList.push_back(id);
    slotRecords[static_cast<size_t>(target)] = id;
    outcome.result = kSuccess;
    outcome.newRecord = id;
    return outcome;
}

Outcome SchedulerModel::unregisterHandler(const Op& op) {
    const std::string function = "CTickScheduler_UnregisterTickHandler";
    if (op.slot == kNullSlot) {
        message(kError, function, "Called with nullptr argument");
        return resultOf(kNullArgument);
    }
    const uint32_t id = slotRecords[op.slot];
    if (id == kNoRecord) {
        message(kWarning, function, "Error Unregistering Tick Handler");
        return resultOf(kSuccess);
    }
    ModelRecord& record = allRecords[id];
    if (record.place == Place::Listed) {
        removeFromList(id);
        message(kInfo, function, "Tick Handler " + record.name + " unregistered successfully");
        // During a pass the record may still be in the pass's own list of
        // handlers, so it lives until the pass has ended.
        record.place = passRunning ? Place::Retired : Place::Freed;
    } else {
        message(kWarning, function, "Tick Handler unregister unsuccessful : Tick handler doesn't exist");
    }
    slotRecords[op.slot] = kNoRecord;
    return resultOf(kSuccess);
}

Outcome SchedulerModel::setEnabled(const Op& op, uint32_t value) {
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        return resultOf(kNullArgument);
    }
    record->enabled = value;
    return resultOf(kSuccess);
}

Outcome SchedulerModel::setPriority(const Op& op) {
    const std::string function = "CTickScheduler_SetTickPriority";
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        message(kError, function, "Called with nullptr argument");
        return resultOf(kNullArgument);
    }
    const auto priority = static_cast<int32_t>(op.a);
    if (record->prio == priority) {
        return resultOf(kSuccess);
    }
    if (record->place != Place::Listed) {
        message(kError, function,
                "Tick Handler change priority unsuccessful: Tick Handler " + record->name + " not found");
        return resultOf(kFailure);
    }
    const uint32_t id = slotRecords[op.slot];
    removeFromList(id);
    record->prio = priority;
    auto place = std::find_if(handlerList.begin(), handlerList.end(),
                              [&](uint32_t other) { return allRecords[other].prio > priority; });
    handlerList.insert(place, id);
    message(kInfo, function, "Tick Handler " + record->name + " changed priority to " + std::to_string(priority));
    return resultOf(kSuccess);
}

Outcome SchedulerModel::setStartOffset(const Op& op) {
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        message(kError, "CTickScheduler_SetStartOffset", "Called with nullptr argument");
        return resultOf(kNullArgument);
    }
    if (op.a < record->interval) {
        record->counter = op.a;
        return resultOf(kSuccess);
    }
    return resultOf(kOutOfRange);
}

Outcome SchedulerModel::addGroup(const Op& op) {
    const std::string function = "CTickScheduler_AddGroup";
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        message(kError, function, "CTickScheduler_AddGroup tickHandler == NULL");
        return resultOf(kNullArgument);
    }
    if (op.a > 1) {
        message(kError, function, "Group ID out of bounds: " + std::to_string(static_cast<int32_t>(op.a)));
        return resultOf(kGroupIdOutOfBounds);
    }
    record->groupMask |= 1u << op.a;
    return resultOf(kSuccess);
}

Outcome SchedulerModel::removeGroup(const Op& op) {
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        return resultOf(kNullArgument);
    }
    if (op.a > 1) {
        message(kError, "CTickScheduler_RemoveGroup",
                "Group ID out of bounds: " + std::to_string(static_cast<int32_t>(op.a)));
        return resultOf(kGroupIdOutOfBounds);
    }
    record->groupMask &= ~(1u << op.a);
    return resultOf(kSuccess);
}

Outcome SchedulerModel::enableGroup(const Op& op) {
    const std::string function = "CTickScheduler_EnableTickGroup";
    if (op.a > 1) {
        message(kError, function, "Group ID out of bounds: " + std::to_string(static_cast<int32_t>(op.a)));
        return resultOf(kGroupIdOutOfBounds);
    }
    disabledGroupMask &= ~(1u << op.a);
    message(kInfo, function,
            "Enabled tick group, Enabled tick group " + channelText(op.a) + "(" + std::to_string(op.a) + ")");
    return resultOf(kSuccess);
}

Outcome SchedulerModel::disableGroup(const Op& op) {
    const std::string function = "CTickScheduler_DisableTickGroup";
    if (op.a > 1) {
        message(kError, function, "Group ID out of bounds: " + std::to_string(static_cast<int32_t>(op.a)));
        return resultOf(kGroupIdOutOfBounds);
    }
    disabledGroupMask |= 1u << op.a;
    message(kInfo, function,
            "Disabled tick group Disabled tick group " + channelText(op.a) + "(" + std::to_string(op.a) + ")");
    return resultOf(kSuccess);
}

Outcome SchedulerModel::freeze(bool on) {
    ledger.entry(kOscillatorSource, on ? "freeze" : "unfreeze");
    isFrozen = on;
    return resultOf(kSuccess);
}

Outcome SchedulerModel::copyForeignHandle(const Op& op) {
    // Only handles to blocks that stay valid are copied: a copy of a handle
    // that is later unregistered would dangle, and only the unregister
    // operation may be given a dangling handle.
    const ModelRecord* record = recordIn(op.slot);
    const int target = firstFreeSlot();
    if (record == nullptr || target < 0 || (record->place != Place::Foreign && record->place != Place::Dropped)) {
        return skipped();
    }
    slotRecords[static_cast<size_t>(target)] = slotRecords[op.slot];
    Outcome outcome;
    outcome.slot = target;
    return outcome;
}

Outcome SchedulerModel::initialize(const Op& op) {
    const std::string function = "CTickScheduler_Initialize";
    ledger.entry(kSchedulerSource, function);
    if (isInitialized) {
        message(kError, function, "Has already been initialized");
        return resultOf(kAlreadyInitialized);
    }
    ++calls.moduleRegistrations;
    if (zyn_fuzz::refused(op.b)) {
        message(kError, function, "Failed to register module with ModuleManager");
        return resultOf(kModuleRegistrationFailed);
    }
    ++calls.callbackRegistrations;
    if (zyn_fuzz::refused(op.c)) {
        message(kError, function, "Failed to register module callback with error " + zyn_fuzz::hex8(op.c));
        return resultOf(kCallbackRegistrationFailed);
    }
    ++calls.interfaceRegistrations;
    if (zyn_fuzz::refused(op.d)) {
        message(kError, function, "Failed to register ITickScheduler with error " + zyn_fuzz::hex8(op.d));
        return resultOf(kFailure);
    }
    disabledGroupMask = 0;
    isInitialized = true;
    storedPriority = static_cast<int32_t>(op.a);
    return resultOf(kSuccess);
}

bool SchedulerModel::startOscillator() {
    const std::string startTick = "CTickScheduler_PhaseModuleStartTick";
    ledger.entry(kOscillatorSource, "start");
    if (!oscillatorConfigured) {
        // The platform's wording for an oscillator that phase 11 never set up.
        ledger.message(kError, kOscillatorSource, "start", "TickOscillator is already initialized");
    } else if (oscillatorRunning) {
        ledger.message(kWarning, kOscillatorSource, "start", "Thread is already running");
    } else {
        // What the new thread writes before it parks in its first sleep.
        timespec resolution{};
        clock_getres(CLOCK_MONOTONIC, &resolution);
        ledger.entry(kOscillatorSource, "run");
        ledger.message(
            kInfo, kOscillatorSource, "run",
            "  Starting oscillator with delay 6 ms, resolution " + std::to_string(resolution.tv_nsec) + " ns");
        oscillatorRunning = true;
        return true;
    }
    message(kError, startTick, "Failed to start TickOscillator");
    message(kError, "CTickScheduler_OnPhaseActivation", "Phase not handled: 14");
    return false;
}

void SchedulerModel::uninitialize() {
    ledger.entry(kOscillatorSource, "stop");
    oscillatorRunning = false;
    isInitialized = false;
    ++calls.interfaceWithdrawals;
    for (uint32_t id : handlerList) {
        allRecords[id].place = Place::Dropped;
    }
    handlerList.clear();
}

Outcome SchedulerModel::phase(const Op& op) {
    const std::string function = "CTickScheduler_OnPhaseActivation";
    if (!isInitialized) {
        message(kWarning, function, "Tick Scheduler has not been initialized");
        return resultOf(kNotInitialized);
    }
    switch (op.a) {
        case 13:
            return resultOf(kSuccess);
        case 16:
            uninitialize();
            return resultOf(kSuccess);
        case 14: {
            const std::string startTick = "CTickScheduler_PhaseModuleStartTick";
            ledger.entry(kSchedulerSource, startTick);
            message(kInfo, startTick, "Starting TickScheduler with TickHandlers in the following order");
            for (uint32_t id : handlerList) {
                const ModelRecord& record = allRecords[id];
                message(kInfo, startTick,
                        record.name + ": Prio = " + std::to_string(record.prio) +
                            ", tickInterval = " + std::to_string(static_cast<int32_t>(6u * record.interval)) +
                            ", current interval = " + std::to_string(record.counter));
            }
            return startOscillator() ? resultOf(kSuccess) : resultOf(kFailure);
        }
        case 11:
            // The oscillator takes the 6 ms period and the stored priority;
            // a new configuration also ends a freeze.
            ledger.entry(kOscillatorSource, "initialize",
                         "eDelay=6, ePriority=" + std::to_string(storedPriority.value_or(0)));
            oscillatorConfigured = true;
            isFrozen = false;
            return resultOf(kSuccess);
        default:
            message(kError, function, "Phase not handled: " + std::to_string(op.a));
            return resultOf(kPhaseNotHandled);
    }
}

bool SchedulerModel::beginPass() {
    if (handlerList.empty() || isFrozen) {
        return false;
    }
    passRunning = true;
    passHandlers = handlerList;
    passPosition = 0;
    calling = kNoRecord;
    return true;
}

void SchedulerModel::noteThrow(ThrowKind kind, const std::string& what) {
    callingThrows = kind;
    callingWhat = zyn_fuzz::asCString(what);
}

void SchedulerModel::finishCall() {
    if (calling == kNoRecord) {
        return;
    }
    ModelRecord& record = allRecords[calling];
    if (callingThrows == ThrowKind::RuntimeError || callingThrows == ThrowKind::RangeError) {
        message(kError, "CTickScheduler_OnTick",
                "Failed to execute TickHandler " + record.name + ". Runtime error: " + callingWhat);
    } else if (callingThrows != ThrowKind::None) {
        message(kError, "CTickScheduler_OnTick", "Failed to execute TickHandler " + record.name);
    }
    if (record.place == Place::Listed) {
        advance(record);
    }
    calling = kNoRecord;
    callingThrows = ThrowKind::None;
}

std::optional<uint32_t> SchedulerModel::nextCall() {
    if (!passRunning) {
        return std::nullopt;
    }
    finishCall();
    while (passPosition < passHandlers.size()) {
        const uint32_t id = passHandlers[passPosition++];
        ModelRecord& record = allRecords[id];
        if (record.place != Place::Listed) {
            continue;  // unregistered earlier in this pass
        }
        if (record.counter == 0 && record.enabled != 0 && (record.groupMask & disabledGroupMask) == 0) {
            calling = id;
            return id;
        }
        advance(record);
    }
    return std::nullopt;
}

std::vector<uint32_t> SchedulerModel::finishPass() {
    std::vector<uint32_t> freed;
    if (!passRunning) {
        return freed;
    }
    const std::optional<uint32_t> missed = nextCall();
    if (missed) {
        const ModelRecord& record = allRecords[*missed];
        zyn_fuzz::fail("the pass ended without calling the due handler \"" + zyn_fuzz::printable(record.name) +
                       "\" of client " + std::to_string(record.client));
    }
    passRunning = false;
    passHandlers.clear();
    for (uint32_t id = 0; id < allRecords.size(); ++id) {
        if (allRecords[id].place == Place::Retired) {
            allRecords[id].place = Place::Freed;
            freed.push_back(id);
        }
    }
    return freed;
}

}  // namespace sched_fuzz
