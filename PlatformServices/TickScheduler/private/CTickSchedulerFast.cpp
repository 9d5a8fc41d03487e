#include <pthread.h>

#include "CList.h"
#include "CModuleManager.h"
#include "CTickSchedulerFast.h"
#include "CTickSchedulerFastModule.h"
#include "ITickSchedulerFast.h"
#include "InterfaceBroker.h"
#include "ObservedPass.h"
#include "SharedModuleParts.h"
#include "StatisticsClock.h"
#include "TickFastOscillator.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"
#include "TraceSite.h"

namespace {

using zyn_ts::groupBit;
using zyn_ts::groupIdForDisplay;
using zyn_ts::isGroupIdValid;

// The module manager keeps the address of the phase list, so it lives in
// static storage. This module never starts ticks, so it does not subscribe
// to that phase.
constexpr uint32_t kSubscribedPhases[] = {TickModule::Phase::Configure, TickModule::Phase::Idle,
                                          TickModule::Phase::ShutDown};

constexpr char kInterfaceName[] = "ITickSchedulerFast";

constexpr char kUnregisterName[] = "CTickSchedulerFast_UnregisterTickHandler";
constexpr char kUnregisterFromOnTickName[] = "CTickSchedulerFast_UnregisterTickHandlerFromOnTick";
constexpr char kAddGroupName[] = "CTickSchedulerFast_AddGroup";
constexpr char kRemoveGroupName[] = "CTickSchedulerFast_RemoveGroup";
constexpr char kEnableTickGroupName[] = "CTickSchedulerFast_EnableTickGroup";
constexpr char kDisableTickGroupName[] = "CTickSchedulerFast_DisableTickGroup";

}  // namespace

// Zero-filled and constant-initialised: ready before any static constructor
// elsewhere may register a handler, and costing no memory until then.
zyn_ts::HandlerSlot fastHandlerSlots[zyn_ts::kHandlerSlots];
zyn_ts::DispatchStatistics fastDispatchStatistics{zyn_support::kNanosecondsPerMillisecond, fastHandlerSlots};
CTickSchedulerFast tickSchedulerFastModule;

// The receiver given to the oscillator at phase 11.
static ITickReceiver fastTickReceiver;
// The record the module manager keeps the address of; filled right before it
// is handed over.
static SPhaseCallbackContext fastPhaseCallbackContext;

// The interface's operations are assigned by CTickSchedulerFast_Initialize;
// until then every slot is null.
ITickSchedulerFast::ITickSchedulerFast() = default;

ITickSchedulerFast::~ITickSchedulerFast() = default;

namespace {

const char* nameOf(const STickHandler* record) { return record != nullptr ? record->name : ""; }

/// Removes `*handle` from the handler list; on success frees the record and
/// clears `*handle`. Shared by both unregister operations; `Function` is the
/// operation's name, so each one's traces carry its own name. The caller
/// provides the locking.
template <const char* Function>
uint32_t removeAndFree(STickHandler** handle) {
    STickHandler* const record = *handle;
    const uint32_t listResult = CList_Remove(&tickSchedulerFastModule.handlerList, record);
    if (TickResult::isError(listResult)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, Function,
                     "Failed to remove Tick Handler from list, error: " << zyn_ts::Hex8{listResult});
        return TickResult::ListRemoveFailed;
    }
    ZYN_TS_TRACE(KIV_TRACE_INFO, Function, "Tick Handler " << nameOf(record) << " unregistered successfully");
    ZYN_TS_TRACEPOINT(handler_unregistered, static_cast<int>(zyn_ts::TracedScheduler::Fast), record, nameOf(record));
    fastDispatchStatistics.removeHandler(record);
    delete record;
    *handle = nullptr;
    return TickResult::Success;
}

bool isHandlerDue(const STickHandler& handler) {
    // Exactly 1: any other non-zero value counts as disabled.
    return handler.enabled.load(std::memory_order_relaxed) == 1 &&
           (handler.groupMask.load(std::memory_order_relaxed) &
            tickSchedulerFastModule.disabledGroupMask.load(std::memory_order_relaxed)) == 0;
}

/// Calls the handler's tick function. Exceptions are not caught: they
/// leave the dispatch, with the mutex still locked.
void callTickFunction(const STickHandler& handler) { handler.tickReceiver.onTick(handler.tickReceiver.context); }

/// One line per overrun that the rate limit lets through.
void traceOverrun(const zyn_ts::OverrunReport& report) {
    if (!report.due) {
        return;
    }
    ZYN_TS_TRACE(KIV_TRACE_WARNING, "CTickSchedulerFast_OnTick",
                 "CTickSchedulerFast pass took "
                     << zyn_ts::Microseconds{report.passNs} << " us, period " << zyn_ts::Microseconds{report.periodNs}
                     << " us; longest tick handler " << report.culprit << " took "
                     << zyn_ts::Microseconds{report.culpritNs} << " us; " << report.suppressed
                     << " earlier overruns not reported");
}

/// Walks the handler list once and calls each due handler; `tickMutex` is
/// held by the caller. The cursor has already moved past the element it
/// delivers, so a handler may remove itself (unlocked variant) and the walk
/// goes on with the next one; a record is never touched after its call.
/// With `Observed` every call is told to `pass`; the plain instance pays
/// nothing for it.
template <bool Observed>
void dispatchHandlers(zyn_ts::ObservedPass* pass) {
    CList* const list = &tickSchedulerFastModule.handlerList;
    CListCursor cursor = nullptr;
    void* element = nullptr;
    if (CList_StartIterationFromHead(list, &cursor) == CLIST_END_OF_LIST) {
        return;
    }
    for (;;) {
        // The end status comes together with the last element.
        const uint32_t status = CList_GetNext(list, &element, &cursor);
        // Null also when tick functions removed every handler after the one
        // called last: nothing is skipped then, but the message still says
        // the walk ended without an element.
        if (element == nullptr) {
            ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_OnTick",
                         "CTickSchedulerFast_OnTick failed in receiving tick handler");
            return;
        }
        const auto* const handler = static_cast<const STickHandler*>(element);
        if (isHandlerDue(*handler)) {
            if constexpr (Observed) {
                pass->call(*handler, callTickFunction);
            } else {
                callTickFunction(*handler);
            }
        }
        if (status == CLIST_END_OF_LIST) {
            return;
        }
    }
}

/// A dispatch someone watches: every call is told to the pass's observers.
void runObservedDispatch() {
    zyn_ts::ObservedPass pass(zyn_ts::TracedScheduler::Fast, fastDispatchStatistics, zyn_ts::fastEventRing);
    dispatchHandlers<true>(&pass);
    traceOverrun(pass.ends());
}

/// Sets or clears the group's bit in `mask` (a handler's groups or the
/// module's disabled groups) once the id passed the bound test; `Function`
/// is the operation's name, so that each one's trace carries its own name.
template <const char* Function>
uint32_t changeGroupBit(std::atomic<uint32_t>& mask, uint32_t groupId, bool set) {
    if (!isGroupIdValid(groupId)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, Function, "Group ID out of bounds: " << groupIdForDisplay(groupId));
        return TickResult::GroupIdOutOfBounds;
    }
    if (set) {
        mask.fetch_or(groupBit(groupId), std::memory_order_relaxed);
    } else {
        mask.fetch_and(~groupBit(groupId), std::memory_order_relaxed);
    }
    return TickResult::Success;
}

}  // namespace

// ---- Handlers --------------------------------------------------------------

extern "C" uint32_t CTickSchedulerFast_RegisterTickHandler(STickHandler** outHandle, const ITickReceiver* receiver,
                                                           const char* name) {
    if (outHandle == nullptr || receiver == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_RegisterTickHandler", "Called with nullptr argument");
        return TickResult::NullArgument;
    }
    if (name == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_RegisterTickHandler", "Tick handler name pointer is invalid");
        return TickResult::NullArgument;
    }
    // The record is filled as the interval scheduler fills one of interval
    // 0; this module never reads the interval, priority or counter. A single
    // object, freed with delete: the interval scheduler's are array blocks.
    auto* const record = new STickHandler;
    zyn_ts::fillHandlerRecord(*record, *receiver, 0, name);

    CTickSchedulerFast& module = tickSchedulerFastModule;
    if (pthread_mutex_lock(&module.tickMutex) != 0) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_RegisterTickHandler",
                     "Failed to lock mutex in CTickSchedulerFast_RegisterTickHandler");
        delete record;
        return TickResult::MutexFailure;
    }
    (void)CList_PushTail(&module.handlerList, record);
    // No allocation: a slot of the statistics' static table, claimed while
    // no pass runs.
    fastDispatchStatistics.addHandler(record);
    ZYN_TS_TRACEPOINT(handler_registered, static_cast<int>(zyn_ts::TracedScheduler::Fast), record, record->name);
    if (pthread_mutex_unlock(&module.tickMutex) != 0) {
        // The record is in the list and will be called, but the client is not
        // given its handle: it sees the failure and must not assume the
        // registration took place.
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_RegisterTickHandler",
                     "Failed to unlock mutex in CTickSchedulerFast_RegisterTickHandler");
        return TickResult::MutexFailure;
    }
    *outHandle = record;
    return TickResult::Success;
}

extern "C" uint32_t CTickSchedulerFast_UnregisterTickHandler(STickHandler** handle) {
    if (handle == nullptr) {
        return TickResult::NullArgument;
    }
    CTickSchedulerFast& module = tickSchedulerFastModule;
    if (pthread_mutex_lock(&module.tickMutex) != 0) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, kUnregisterName,
                     "Failed to lock mutex in CTickSchedulerFast_UnregisterTickHandler");
        return TickResult::MutexFailure;
    }
    const uint32_t result = removeAndFree<kUnregisterName>(handle);
    if (pthread_mutex_unlock(&module.tickMutex) != 0) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, kUnregisterName,
                     "Failed to unlock mutex in CTickSchedulerFast_UnregisterTickHandler");
        return TickResult::MutexFailure;
    }
    return result;
}

extern "C" uint32_t CTickSchedulerFast_UnregisterTickHandlerFromOnTick(STickHandler** handle) {
    if (handle == nullptr) {
        return TickResult::NullArgument;
    }
    // The dispatch on this very thread holds the non-recursive tickMutex:
    // locking it again would never return.
    return removeAndFree<kUnregisterFromOnTickName>(handle);
}

extern "C" uint32_t CTickSchedulerFast_EnableTickHandler(STickHandler* handle) {
    return zyn_ts::storeEnabled(zyn_ts::TracedScheduler::Fast, handle, 1);
}

extern "C" uint32_t CTickSchedulerFast_DisableTickHandler(STickHandler* handle) {
    return zyn_ts::storeEnabled(zyn_ts::TracedScheduler::Fast, handle, 0);
}

// ---- Tick ------------------------------------------------------------------

extern "C" void CTickSchedulerFast_OnTick(void* /*context*/) {
    CTickSchedulerFast& module = tickSchedulerFastModule;
    // A tick that cannot take the lock is dropped; the next one tries again.
    if (pthread_mutex_lock(&module.tickMutex) != 0) {
        return;
    }
    if (CList_IsEmpty(&module.handlerList) == 0) {
        if (zyn_ts::isWatched(fastDispatchStatistics, zyn_ts::fastEventRing)) {
            runObservedDispatch();
        } else {
            dispatchHandlers<false>(nullptr);
        }
    }
    (void)pthread_mutex_unlock(&module.tickMutex);
}

// ---- Groups ----------------------------------------------------------------
// Each change is one atomic read-modify-write, so concurrent changes of the
// same mask from several threads never lose an update.

extern "C" uint32_t CTickSchedulerFast_AddGroup(STickHandler* handle, uint32_t groupId) {
    if (handle == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_AddGroup", "tickHandler == NULL");
        return TickResult::NullArgument;
    }
    return changeGroupBit<kAddGroupName>(handle->groupMask, groupId, true);
}

extern "C" uint32_t CTickSchedulerFast_RemoveGroup(STickHandler* handle, uint32_t groupId) {
    if (handle == nullptr) {
        return TickResult::NullArgument;  // silently, unlike AddGroup
    }
    return changeGroupBit<kRemoveGroupName>(handle->groupMask, groupId, false);
}

extern "C" uint32_t CTickSchedulerFast_EnableTickGroup(uint32_t groupId) {
    return changeGroupBit<kEnableTickGroupName>(tickSchedulerFastModule.disabledGroupMask, groupId, false);
}

extern "C" uint32_t CTickSchedulerFast_DisableTickGroup(uint32_t groupId) {
    return changeGroupBit<kDisableTickGroupName>(tickSchedulerFastModule.disabledGroupMask, groupId, true);
}

// ---- Start-up and shut-down -----------------------------------------------

extern "C" uint32_t CTickSchedulerFast_Initialize(void) {
    ZYN_TS_ENTER("CTickSchedulerFast_Initialize");
    CTickSchedulerFast& module = tickSchedulerFastModule;
    if (module.initialized == 1) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_Initialize", "Has already been initialized");
        return TickResult::AlreadyInitialized;
    }
    // No step undoes an earlier one: what the platform accepted stays
    // registered, and a later Initialize registers again.
    uint32_t result = CModuleManager_RegisterModule(TickModule::FastSchedulerModuleId, "CTickSchedulerFast");
    if (TickResult::isPlatformFailure(result)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_Initialize",
                     "Failed to register module with ModuleManager. Error = " << zyn_ts::Hex8{result});
        return TickResult::ModuleRegistrationFailed;
    }
    // The doubled leading "C" is the name the module manager knows the
    // callback by.
    result = zyn_ts::registerPhaseCallback(TickModule::FastSchedulerModuleId, "CCTickSchedulerFast_OnPhaseActivation",
                                           fastPhaseCallbackContext, &CTickSchedulerFast_OnPhaseActivation,
                                           kSubscribedPhases);
    if (TickResult::isPlatformFailure(result)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_Initialize",
                     "Failed to register module callback. Error = " << zyn_ts::Hex8{result});
        return TickResult::CallbackRegistrationFailed;
    }
    // Every slot is stored again on each start-up that gets this far, so the
    // broker is handed a complete object whatever a client did to a slot.
    static ITickSchedulerFast tickSchedulerFastInterface;
    tickSchedulerFastInterface.RegisterTickHandler = &CTickSchedulerFast_RegisterTickHandler;
    tickSchedulerFastInterface.UnregisterTickHandler = &CTickSchedulerFast_UnregisterTickHandler;
    tickSchedulerFastInterface.UnregisterTickHandlerFromOnTick = &CTickSchedulerFast_UnregisterTickHandlerFromOnTick;
    tickSchedulerFastInterface.EnableTickHandler = &CTickSchedulerFast_EnableTickHandler;
    tickSchedulerFastInterface.DisableTickHandler = &CTickSchedulerFast_DisableTickHandler;
    tickSchedulerFastInterface.AddGroup = &CTickSchedulerFast_AddGroup;
    tickSchedulerFastInterface.RemoveGroup = &CTickSchedulerFast_RemoveGroup;
    tickSchedulerFastInterface.EnableTickGroup = &CTickSchedulerFast_EnableTickGroup;
    tickSchedulerFastInterface.DisableTickGroup = &CTickSchedulerFast_DisableTickGroup;
    result = InterfaceBroker::getInstance()->registerInterface(kInterfaceName, &tickSchedulerFastInterface);
    if (TickResult::isPlatformFailure(result)) {
        // Names ITickScheduler, as this text always has.
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_Initialize",
                     "Failed to register ITickScheduler. Error = " << zyn_ts::Hex8{result});
        return TickResult::Failure;
    }

    if (pthread_mutex_init(&module.tickMutex, nullptr) != 0) {
        return TickResult::MutexFailure;
    }
    // Records of an earlier life of the module are abandoned with the old
    // list, never freed by the module itself.
    (void)CList_Construct(&module.handlerList);
    // The figures of the abandoned records go with the old list.
    fastDispatchStatistics.dropAllHandlers();
    module.disabledGroupMask.store(0, std::memory_order_relaxed);
    module.initialized = 1;
    zyn_ts::applyEnvironmentOnce(fastDispatchStatistics, module.oscillatorAttachment.wake);
    return TickResult::Success;
}

extern "C" void CTickSchedulerFast_Uninitialize(void) {
    CTickSchedulerFast& module = tickSchedulerFastModule;
    // Stopping joins a running oscillator thread, so no dispatch runs once
    // the interface is withdrawn.
    (void)module.tickOscillator.stop();
    (void)InterfaceBroker::getInstance()->unregisterInterface(kInterfaceName, nullptr);
    module.initialized = 0;
    // Without a lock, like the rest of the shut-down: one atomic step.
    fastDispatchStatistics.dropAllHandlers();
}

namespace {

/// The phase itself (below); the exported callback adds its tracepoint.
uint32_t handlePhase(uint32_t phase);

}  // namespace

extern "C" uint32_t CTickSchedulerFast_OnPhaseActivation(void* /*context*/, uint32_t phase) {
    return zyn_ts::phaseHandled(zyn_ts::TracedScheduler::Fast, phase, handlePhase(phase));
}

namespace {

uint32_t handlePhase(uint32_t phase) {
    if (tickSchedulerFastModule.initialized == 0) {
        return TickResult::ModuleNotInitialized;
    }
    switch (phase) {
        case TickModule::Phase::Idle:
            return TickResult::Success;
        case TickModule::Phase::ShutDown:
            CTickSchedulerFast_Uninitialize();
            return TickResult::Success;
        case TickModule::Phase::Configure:
            // Configured only: this module never starts the oscillator thread.
            (void)tickSchedulerFastModule.tickOscillator.initialize(TICK_DELAY_1MS, TICK_PRIORITY_HIGH);
            fastTickReceiver = {&tickSchedulerFastModule, &CTickSchedulerFast_OnTick};
            (void)tickSchedulerFastModule.tickOscillator.registerOnTick(&fastTickReceiver);
            return TickResult::Success;
        default:
            ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickSchedulerFast_OnPhaseActivation", "Phase not handled: " << phase);
            return TickResult::PhaseNotHandled;
    }
}

}  // namespace

// Hands the integrator the oscillator this module configures but never
// starts (see TickFastOscillator.h).
extern "C" TickOscillator* CTickSchedulerFast_GetTickOscillator(void) {
    return &tickSchedulerFastModule.tickOscillator;
}
