#include "SchedulerModel.h"

#include <ctime>

#include <algorithm>

#include "FuzzCheck.h"
#include "FuzzNames.h"
#include "ModelSupport.h"
#include "TickModuleIdentity.h"

namespace zyn_fuzz::sched {

namespace {

const ModuleTexts kTexts{kSchedulerSource,
                         "CTickScheduler_",
                         " with error ",
                         false,
                         "CTickScheduler_AddGroup tickHandler == NULL",
                         "Enabled tick group, Enabled tick group ",
                         "Disabled tick group Disabled tick group ",
                         "Tick Scheduler has not been initialized"};

// The foreign record: a block the module never created, with an interval.
constexpr uint32_t kForeignInterval = 7;

}  // namespace

SchedulerModel::SchedulerModel(zyn_fuzz::TraceLedger& ledger) : ModelBase(ledger, kTexts, kForeignInterval) {}

void SchedulerModel::removeFromList(uint32_t record) {
    handlerList.erase(std::remove(handlerList.begin(), handlerList.end(), record), handlerList.end());
}

void SchedulerModel::advance(ModelRecord& record) {
    record.counter += 1;
    if (record.counter >= record.interval) {
        record.counter = 0;
    }
}

Outcome SchedulerModel::applyOwn(const Op& op) {
    switch (op.kind) {
        case OpKind::Unregister:
            return unregisterHandler(op);
        case OpKind::SetPriority:
            return setPriority(op);
        case OpKind::SetStartOffset:
            return setStartOffset(op);
        case OpKind::Freeze:
        case OpKind::Unfreeze:
            return freeze(op.kind == OpKind::Freeze);
        case OpKind::CopyForeignHandle:
            return copyForeignHandle(op);
        default:  // ArmThrow: only the target's bookkeeping
            return Outcome{};
    }
}

bool SchedulerModel::acceptsRegistration(const Op& op) {
    const std::string function = named("RegisterTickHandler");
    if ((op.variant & kNullHandleVariable) != 0) {
        message(kError, function, "tickHandler == NULL");
        return false;
    }
    if ((op.variant & kNullReceiver) != 0) {
        message(kError, function, "pITickReceiver == NULL");
        return false;
    }
    if ((op.variant & kNullName) != 0) {
        message(kError, function, "pszName == NULL");
        return false;
    }
    message(kInfo, function, "Register tick handler  " + zyn_fuzz::asCString(op.text));
    return true;
}

Outcome SchedulerModel::unregisterHandler(const Op& op) {
    const std::string function = "CTickScheduler_UnregisterTickHandler";
    if (op.slot == kNullSlot) {
        message(kError, function, "Called with nullptr argument");
        return resultOf(TickResult::NullArgument);
    }
    const uint32_t id = slotRecords[op.slot];
    if (id == kNoRecord) {
        message(kWarning, function, "Error Unregistering Tick Handler");
        return resultOf(TickResult::Success);
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
    return resultOf(TickResult::Success);
}

Outcome SchedulerModel::setPriority(const Op& op) {
    const std::string function = "CTickScheduler_SetTickPriority";
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        message(kError, function, "Called with nullptr argument");
        return resultOf(TickResult::NullArgument);
    }
    const auto priority = static_cast<int32_t>(op.a);
    if (record->prio == priority) {
        return resultOf(TickResult::Success);
    }
    if (record->place != Place::Listed) {
        message(kError, function,
                "Tick Handler change priority unsuccessful: Tick Handler " + record->name + " not found");
        return resultOf(TickResult::Failure);
    }
    const uint32_t id = slotRecords[op.slot];
    removeFromList(id);
    record->prio = priority;
    auto place = std::find_if(handlerList.begin(), handlerList.end(),
                              [&](uint32_t other) { return allRecords[other].prio > priority; });
    handlerList.insert(place, id);
    message(kInfo, function, "Tick Handler " + record->name + " changed priority to " + std::to_string(priority));
    return resultOf(TickResult::Success);
}

Outcome SchedulerModel::setStartOffset(const Op& op) {
    ModelRecord* record = recordIn(op.slot);
    if (record == nullptr) {
        message(kError, "CTickScheduler_SetStartOffset", "Called with nullptr argument");
        return resultOf(TickResult::NullArgument);
    }
    if (op.a < record->interval) {
        record->counter = op.a;
        return resultOf(TickResult::Success);
    }
    return resultOf(TickResult::OutOfRange);
}

Outcome SchedulerModel::freeze(bool on) {
    ledger.entry(kOscillatorSource, on ? "freeze" : "unfreeze");
    isFrozen = on;
    return resultOf(TickResult::Success);
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
    const Outcome outcome = ModelBase::initialize(op);
    if (outcome.result == TickResult::Success) {
        storedPriority = static_cast<int32_t>(op.a);
    }
    return outcome;
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
    message(kError, named("OnPhaseActivation"), "Phase not handled: 14");
    return false;
}

void SchedulerModel::uninitialize() {
    ModelBase::uninitialize();
    oscillatorRunning = false;
    for (uint32_t id : handlerList) {
        allRecords[id].place = Place::Dropped;
    }
    handlerList.clear();
}

std::optional<Outcome> SchedulerModel::applyOwnPhase(uint32_t phase) {
    if (phase == TickModule::Phase::StartTicks) {
        return startTicks();
    }
    if (phase == TickModule::Phase::Configure) {
        // The oscillator takes the 6 ms period and the stored priority; a new
        // configuration also ends a freeze.
        ledger.entry(kOscillatorSource, "initialize",
                     "eDelay=6, ePriority=" + std::to_string(storedPriority.value_or(0)));
        oscillatorConfigured = true;
        isFrozen = false;
        return resultOf(TickResult::Success);
    }
    return std::nullopt;
}

Outcome SchedulerModel::startTicks() {
    const std::string startTick = named("PhaseModuleStartTick");
    ledger.entry(kSchedulerSource, startTick);
    message(kInfo, startTick, "Starting TickScheduler with TickHandlers in the following order");
    for (uint32_t id : handlerList) {
        const ModelRecord& record = allRecords[id];
        message(kInfo, startTick,
                record.name + ": Prio = " + std::to_string(record.prio) +
                    ", tickInterval = " + std::to_string(static_cast<int32_t>(6u * record.interval)) +
                    ", current interval = " + std::to_string(record.counter));
    }
    return startOscillator() ? resultOf(TickResult::Success) : resultOf(TickResult::Failure);
}

void SchedulerModel::beginTick() {
    // A frozen module, or one without handlers, runs no pass at all.
    if (handlerList.empty() || isFrozen) {
        return;
    }
    passRunning = true;
    passHandlers = handlerList;
    passPosition = 0;
    calling = kNoRecord;
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
        message(kError, named("OnTick"),
                "Failed to execute TickHandler " + record.name + ". Runtime error: " + callingWhat);
    } else if (callingThrows != ThrowKind::None) {
        message(kError, named("OnTick"), "Failed to execute TickHandler " + record.name);
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

std::vector<uint32_t> SchedulerModel::finishTick() {
    std::vector<uint32_t> freed;
    if (!passRunning) {
        return freed;
    }
    checkNoneMissed(nextCall());
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

}  // namespace zyn_fuzz::sched
