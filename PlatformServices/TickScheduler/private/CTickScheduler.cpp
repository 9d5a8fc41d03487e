// CTickScheduler: handler registration, the tick pass and the tick lock,
// handler maintenance, tick groups and the module's life cycle.
//
// Every trace of the module is written from this file, so that all of them
// carry the module's own source path in their header.

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "CTickScheduler.h"
#include "CTickSchedulerModule.h"
#include "ITickScheduler.h"
#include "InterfaceBroker.h"
#include "ObservedPass.h"
#include "SharedModuleParts.h"
#include "StatisticsClock.h"
#include "TickModuleIdentity.h"
#include "TickResultCodes.h"
#include "TraceSite.h"

namespace {

using zyn_ts::groupBit;
using zyn_ts::groupIdForDisplay;
using zyn_ts::isGroupIdValid;

// The module manager keeps the address of the phase list, so it lives in
// static storage.
constexpr uint32_t kSubscribedPhases[] = {TickModule::Phase::Configure, TickModule::Phase::Idle,
                                          TickModule::Phase::ShutDown, TickModule::Phase::StartTicks};

constexpr char kInterfaceName[] = "ITickScheduler";

constexpr uint32_t kTickPeriodMs = 6;

// ---- Handler list helpers (callers hold tickMutex) --------------------------

/// True when the caller is the tick thread inside a running pass, i.e. a tick
/// function calling back into the module.
bool onTickThreadDuringPass(const CTickScheduler& state) {
    return state.inTick && pthread_equal(state.tickThreadId, pthread_self()) != 0;
}

/// Removes every occurrence of `handler`, keeping the order of the others.
/// Returns whether any was removed.
bool removeFromList(std::vector<STickHandler*>& list, const STickHandler* handler) {
    const auto newEnd = std::remove(list.begin(), list.end(), handler);
    const bool removed = newEnd != list.end();
    list.erase(newEnd, list.end());
    return removed;
}

// The two branch hints below keep the ordinary pass's code straight: a tick
// function changing the handler list is the rare case. Together they take
// the pass from 5.8 to 4.7 ns a handler at 1000 handlers, where releasing
// and retaking the mutex around each call of the same records alone costs
// 4.6 ns (BM_CTickScheduler_AgainstItsUnlockLockWalk).

/// True when a tick function unregistered `handler` during this pass.
inline bool retiredDuringPass(const CTickScheduler& state, const STickHandler* handler) {
    if (__builtin_expect(state.retiredHandlers.empty(), true)) {
        return false;
    }
    return std::find(state.retiredHandlers.begin(), state.retiredHandlers.end(), handler) !=
           state.retiredHandlers.end();
}

/// Before a tick function changes the handler list during a pass: the pass
/// goes on over the list as it started, so that every handler that stays
/// registered is counted exactly once and the changed list applies from the
/// next pass. Copying only then keeps the ordinary pass free of the copy.
void preservePassOrder(CTickScheduler& state) {
    if (onTickThreadDuringPass(state) && !state.passWalksCopy) {
        state.passHandlers.assign(state.tickHandlers.begin(), state.tickHandlers.end());
        state.passWalksCopy = true;
    }
}

/// The handler at `position` of the list the running pass walks.
STickHandler* passHandlerAt(const CTickScheduler& state, size_t position) {
    return __builtin_expect(state.passWalksCopy, false) ? state.passHandlers[position] : state.tickHandlers[position];
}

/// Keeps the pass copy able to take the whole handler list without
/// allocating. Must not run while a pass walks that copy.
void reservePassCopy(CTickScheduler& state) {
    if (state.passHandlers.capacity() < state.tickHandlers.capacity()) {
        state.passHandlers.reserve(state.tickHandlers.capacity());
    }
}

// ---- The tick pass ----------------------------------------------------------

inline bool isDue(const CTickScheduler& state, const STickHandler& handler) {
    return handler.currentInterval.load(std::memory_order_relaxed) == 0 &&
           handler.enabled.load(std::memory_order_relaxed) != 0 &&
           (handler.groupMask.load(std::memory_order_relaxed) &
            state.disabledGroupMask.load(std::memory_order_relaxed)) == 0;
}

/// Calls the handler's tick function; nothing it throws leaves the pass.
/// Forced inline: GCC keeps a function with handlers out of line, and the
/// call around the call made the plain walk 0.7 ns a handler slower (6.4
/// against 5.6 ns at 1000 handlers).
__attribute__((always_inline)) inline void callTickFunction(const STickHandler& handler) {
    try {
        handler.tickReceiver.onTick(handler.tickReceiver.context);
    } catch (const std::runtime_error& error) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_OnTick",
                     "Failed to execute TickHandler " << handler.name << ". Runtime error: " << error.what());
    } catch (...) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_OnTick", "Failed to execute TickHandler " << handler.name);
    }
}

/// One line per overrun that the rate limit lets through.
void traceOverrun(const zyn_ts::OverrunReport& report) {
    if (!report.due) {
        return;
    }
    ZYN_TS_TRACE(KIV_TRACE_WARNING, "CTickScheduler_OnTick",
                 "CTickScheduler pass took " << zyn_ts::Microseconds{report.passNs} << " us, period "
                                             << zyn_ts::Microseconds{report.periodNs} << " us; longest TickHandler "
                                             << report.culprit << " took " << zyn_ts::Microseconds{report.culpritNs}
                                             << " us; " << report.suppressed << " earlier overruns not reported");
}

/// The counter runs 0 .. tickInterval - 1; a counter at or above the interval
/// (a start offset written beyond it, or interval 0) wraps to 0 at once.
inline void advanceCounter(STickHandler& handler) {
    const uint32_t next = handler.currentInterval.load(std::memory_order_relaxed) + 1u;
    handler.currentInterval.store(next >= handler.tickInterval ? 0u : next, std::memory_order_relaxed);
}

/// Calls the handler's tick function with the mutex released, through the
/// mutex itself rather than `lock`: the lock object's ownership checks
/// around every call cost 0.25 ns a handler (5.3 against 5.0 ns at 1000
/// handlers). Should the call or the relock throw, `lock` is told that it
/// no longer holds the mutex.
template <bool Observed>
inline void callUnlocked(std::unique_lock<std::mutex>& lock, const STickHandler& handler, zyn_ts::ObservedPass* pass) {
    std::mutex& mutex = *lock.mutex();
    mutex.unlock();
    try {
        if constexpr (Observed) {
            pass->call(handler, callTickFunction);
        } else {
            callTickFunction(handler);
        }
        mutex.lock();
    } catch (...) {
        (void)lock.release();
        throw;
    }
}

/// Walks the handlers of one pass (see CTickScheduler_OnTick); with
/// `Observed` every call is told to `pass`.
template <bool Observed>
void walkHandlers(CTickScheduler& state, std::unique_lock<std::mutex>& lock, size_t handlerCount,
                  zyn_ts::ObservedPass* pass) {
    for (size_t position = 0; position < handlerCount; ++position) {
        STickHandler* const handler = passHandlerAt(state, position);
        if (retiredDuringPass(state, handler)) {
            continue;
        }
        if (isDue(state, *handler)) {
            callUnlocked<Observed>(lock, *handler, pass);
            // The tick function may have unregistered its own handler.
            if (retiredDuringPass(state, handler)) {
                continue;
            }
        }
        advanceCounter(*handler);
    }
}

/// A pass someone watches: every call is told to the pass's observers.
void runObservedPass(CTickScheduler& state, std::unique_lock<std::mutex>& lock, size_t handlerCount) {
    zyn_ts::ObservedPass pass(zyn_ts::TracedScheduler::Scheduler, state.statistics, zyn_ts::schedulerEventRing);
    walkHandlers<true>(state, lock, handlerCount, &pass);
    traceOverrun(pass.ends());
}

/// Frees what was unregistered during the pass and makes the pass copy big
/// enough for what was registered during it.
void finishPassBookkeeping(CTickScheduler& state) {
    for (STickHandler* record : state.retiredHandlers) {
        delete[] record;
    }
    state.retiredHandlers.clear();
    state.passWalksCopy = false;
    try {
        reservePassCopy(state);
    } catch (const std::bad_alloc&) {
        // A later change from a tick function copies with an allocation
        // instead; nothing is lost.
    }
}

// ---- Groups -----------------------------------------------------------------

// Group 0 is "channel 1" and group 1 "channel 2" in messages.
const char* enabledChannelText(uint32_t groupId) {
    return groupId == 0 ? "Enabled tick group channel 1" : "Enabled tick group channel 2";
}

const char* disabledChannelText(uint32_t groupId) {
    return groupId == 0 ? "Disabled tick group channel 1" : "Disabled tick group channel 2";
}

}  // namespace

// ---- Statics ----------------------------------------------------------------

// Zero-filled, so that its pages cost nothing until handlers are registered.
zyn_ts::HandlerSlot schedulerHandlerSlots[zyn_ts::kHandlerSlots];

// Constructed right after the trace object and before the library's other
// statics, so that a registration from another static constructor of a
// statically linked program finds a constructed module.
__attribute__((init_priority(102))) CTickScheduler tickScheduler;
ITickReceiver schedulerTickReceiver = {nullptr, nullptr};
SPhaseCallbackContext phaseCallbackContext = {nullptr, nullptr};

// Every member starts at its load state through its initializer.
CTickScheduler::CTickScheduler() = default;

CTickScheduler::~CTickScheduler() {
    // A process that exits while ticking must not run a pass over a destroyed
    // condition variable or handler array.
    if (tickOscillator.isRunning()) {
        (void)tickOscillator.stop();
    }
}

// Out of line, so that the class has one home: its vtable and type
// information are emitted here and exported.
ITickScheduler::ITickScheduler() = default;

ITickScheduler::~ITickScheduler() = default;

// ---- Tick lock --------------------------------------------------------------

namespace {

/// Takes the mutex and waits out a running pass (see CTickScheduler.h);
/// `waitedForPass` says whether it had to.
std::unique_lock<std::mutex> takeTickLock(CTickScheduler& state, bool& waitedForPass) {
    std::unique_lock<std::mutex> lock(state.tickMutex);
    if (!state.inTick) {
        return lock;
    }
    // The tick thread itself gets through at once: the pass has released the
    // mutex around the tick function that is calling in.
    const pthread_t self = pthread_self();
    while (pthread_equal(state.tickThreadId, self) == 0) {
        waitedForPass = true;
        state.tickDone.wait(lock);
        if (!state.inTick) {
            break;
        }
    }
    return lock;
}

}  // namespace

std::unique_lock<std::mutex> CTickScheduler_WaitForTickAndLock() {
    CTickScheduler& state = tickScheduler;
    bool waitedForPass = false;
    // One branch while no session records the lock's events.
    if (!(ZYN_TS_TRACEPOINT_ENABLED(tick_lock_wait) || ZYN_TS_TRACEPOINT_ENABLED(tick_lock_taken))) {
        return takeTickLock(state, waitedForPass);
    }
    constexpr int kScheduler = static_cast<int>(zyn_ts::TracedScheduler::Scheduler);
    ZYN_TS_TRACEPOINT(tick_lock_wait, kScheduler);
    const int64_t askedNs = zyn_ts::monotonicNowNs();
    std::unique_lock<std::mutex> lock = takeTickLock(state, waitedForPass);
    ZYN_TS_TRACEPOINT(tick_lock_taken, kScheduler, zyn_ts::monotonicNowNs() - askedNs, waitedForPass ? 1 : 0);
    return lock;
}

// ---- Tick pass --------------------------------------------------------------

extern "C" void CTickScheduler_OnTick(void* /*context*/) {
    CTickScheduler& state = tickScheduler;
    std::unique_lock<std::mutex> lock(state.tickMutex);
    if (state.tickHandlers.empty()) {
        return;
    }
    // A tick already under way when CTickScheduler_Freeze returned must run
    // nothing.
    if (state.tickOscillator.isFrozen()) {
        return;
    }
    // Tick functions may register, unregister and re-prioritise handlers;
    // the first such change makes the pass walk a copy of the list as it
    // started (preservePassOrder), so positions stay valid by index.
    const size_t handlerCount = state.tickHandlers.size();
    state.passWalksCopy = false;
    state.inTick = true;
    state.tickThreadId = pthread_self();
    // Decided once per pass: switching during the pass applies to the next.
    // The plain walk is a separate instance that pays nothing for observers.
    if (zyn_ts::isWatched(state.statistics, zyn_ts::schedulerEventRing)) {
        runObservedPass(state, lock, handlerCount);
    } else {
        walkHandlers<false>(state, lock, handlerCount, nullptr);
    }

    finishPassBookkeeping(state);
    state.inTick = false;
    state.tickDone.notify_all();
}

// ---- Registration -----------------------------------------------------------

extern "C" uint32_t CTickScheduler_RegisterTickHandler(STickHandler** tickHandler, const ITickReceiver* pITickReceiver,
                                                       uint32_t tickInterval, const char* pszName) {
    if (tickHandler == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_RegisterTickHandler", "tickHandler == NULL");
        return TickResult::NullArgument;
    }
    if (pITickReceiver == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_RegisterTickHandler", "pITickReceiver == NULL");
        return TickResult::NullArgument;
    }
    if (pszName == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_RegisterTickHandler", "pszName == NULL");
        return TickResult::NullArgument;
    }

    // Owned here until it is in the list, so a failing list growth frees it.
    // A one-element array, freed with delete[]: this module's records have
    // always been array blocks, and the fast module's single objects.
    std::unique_ptr<STickHandler[]> record(new STickHandler[1]());
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickScheduler_RegisterTickHandler", "Register tick handler  " << pszName);
    zyn_ts::fillHandlerRecord(record[0], *pITickReceiver, tickInterval, pszName);

    CTickScheduler& state = tickScheduler;
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    preservePassOrder(state);
    state.tickHandlers.push_back(record.get());
    if (!onTickThreadDuringPass(state)) {
        try {
            reservePassCopy(state);
        } catch (...) {
            state.tickHandlers.pop_back();
            throw;
        }
    }
    // No allocation: a slot of the statistics' static table, claimed under
    // the tick lock, while no pass runs.
    state.statistics.addHandler(record.get());
    ZYN_TS_TRACEPOINT(handler_registered, static_cast<int>(zyn_ts::TracedScheduler::Scheduler), record.get(),
                      record[0].name);
    *tickHandler = record.release();
    return TickResult::Success;
}

// ---- Enable, disable, freeze --------------------------------------------------

extern "C" uint32_t CTickScheduler_EnableTickHandler(STickHandler* handler) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    return zyn_ts::storeEnabled(zyn_ts::TracedScheduler::Scheduler, handler, 1);
}

extern "C" uint32_t CTickScheduler_DisableTickHandler(STickHandler* handler) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    return zyn_ts::storeEnabled(zyn_ts::TracedScheduler::Scheduler, handler, 0);
}

extern "C" uint32_t CTickScheduler_Freeze(void) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    return tickScheduler.tickOscillator.freeze();
}

extern "C" uint32_t CTickScheduler_Unfreeze(void) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    return tickScheduler.tickOscillator.unfreeze();
}

// ---- Handler maintenance ------------------------------------------------------

extern "C" uint32_t CTickScheduler_UnregisterTickHandler(STickHandler** handle) {
    if (handle == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_UnregisterTickHandler", "Called with nullptr argument");
        return TickResult::NullArgument;
    }
    STickHandler* const handler = *handle;
    if (handler == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_WARNING, "CTickScheduler_UnregisterTickHandler", "Error Unregistering Tick Handler");
        return TickResult::Success;
    }

    CTickScheduler& state = tickScheduler;
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    const bool duringPass = onTickThreadDuringPass(state);
    if (duringPass) {
        // Reserved before the list changes, so a failing allocation leaves
        // the list as it was.
        state.retiredHandlers.reserve(state.retiredHandlers.size() + 1);
    }
    preservePassOrder(state);
    if (!removeFromList(state.tickHandlers, handler)) {
        // Only the pointer value was compared; the record is not touched.
        ZYN_TS_TRACE(KIV_TRACE_WARNING, "CTickScheduler_UnregisterTickHandler",
                     "Tick Handler unregister unsuccessful : Tick handler doesn't exist");
    } else {
        ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickScheduler_UnregisterTickHandler",
                     "Tick Handler " << handler->name << " unregistered successfully");
        ZYN_TS_TRACEPOINT(handler_unregistered, static_cast<int>(zyn_ts::TracedScheduler::Scheduler), handler,
                          handler->name);
        state.statistics.removeHandler(handler);
        if (duringPass) {
            // The running pass may still hold the record; it is freed when
            // the pass ends.
            state.retiredHandlers.push_back(handler);
        } else {
            delete[] handler;
        }
    }
    *handle = nullptr;
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_SetTickPriority(STickHandler* handler, int32_t priority) {
    if (handler == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_SetTickPriority", "Called with nullptr argument");
        return TickResult::NullArgument;
    }
    if (handler->prio.load(std::memory_order_relaxed) == priority) {
        return TickResult::Success;
    }

    CTickScheduler& state = tickScheduler;
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    preservePassOrder(state);
    if (!removeFromList(state.tickHandlers, handler)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_SetTickPriority",
                     "Tick Handler change priority unsuccessful: Tick Handler " << handler->name << " not found");
        return TickResult::Failure;
    }
    handler->prio.store(priority, std::memory_order_relaxed);
    // In front of the first handler of higher priority: equal priorities
    // keep the order in which they reached it.
    const auto place = std::find_if(
        state.tickHandlers.begin(), state.tickHandlers.end(),
        [priority](const STickHandler* other) { return other->prio.load(std::memory_order_relaxed) > priority; });
    // The handler was removed first, so this insert never grows the list.
    state.tickHandlers.insert(place, handler);
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickScheduler_SetTickPriority",
                 "Tick Handler " << handler->name << " changed priority to " << priority);
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_SetStartOffset(STickHandler* handler, uint32_t offset) {
    if (handler == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_SetStartOffset", "Called with nullptr argument");
        return TickResult::NullArgument;
    }
    // No lock: a pass that advances the counter at the same moment may
    // overtake this write, which only shifts the phase by one tick.
    if (offset < handler->tickInterval) {
        handler->currentInterval.store(offset, std::memory_order_relaxed);
        return TickResult::Success;
    }
    return TickResult::OutOfRange;
}

// ---- Tick groups --------------------------------------------------------------

extern "C" uint32_t CTickScheduler_AddGroup(STickHandler* handler, uint32_t groupId) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    if (handler == nullptr) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_AddGroup", "CTickScheduler_AddGroup tickHandler == NULL");
        return TickResult::NullArgument;
    }
    if (!isGroupIdValid(groupId)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_AddGroup",
                     "Group ID out of bounds: " << groupIdForDisplay(groupId));
        return TickResult::GroupIdOutOfBounds;
    }
    handler->groupMask.fetch_or(groupBit(groupId), std::memory_order_relaxed);
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_RemoveGroup(STickHandler* handler, uint32_t groupId) {
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    if (handler == nullptr) {
        return TickResult::NullArgument;
    }
    if (!isGroupIdValid(groupId)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_RemoveGroup",
                     "Group ID out of bounds: " << groupIdForDisplay(groupId));
        return TickResult::GroupIdOutOfBounds;
    }
    handler->groupMask.fetch_and(~groupBit(groupId), std::memory_order_relaxed);
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_EnableTickGroup(uint32_t groupId) {
    CTickScheduler& state = tickScheduler;
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    if (!isGroupIdValid(groupId)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_EnableTickGroup",
                     "Group ID out of bounds: " << groupIdForDisplay(groupId));
        return TickResult::GroupIdOutOfBounds;
    }
    state.disabledGroupMask.fetch_and(~groupBit(groupId), std::memory_order_relaxed);
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickScheduler_EnableTickGroup",
                 "Enabled tick group, " << enabledChannelText(groupId) << "(" << groupIdForDisplay(groupId) << ")");
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_DisableTickGroup(uint32_t groupId) {
    // Refused before the lock: a bad id never waits for a running pass.
    if (!isGroupIdValid(groupId)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_DisableTickGroup",
                     "Group ID out of bounds: " << groupIdForDisplay(groupId));
        return TickResult::GroupIdOutOfBounds;
    }
    CTickScheduler& state = tickScheduler;
    std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
    state.disabledGroupMask.fetch_or(groupBit(groupId), std::memory_order_relaxed);
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickScheduler_DisableTickGroup",
                 "Disabled tick group " << disabledChannelText(groupId) << "(" << groupIdForDisplay(groupId) << ")");
    return TickResult::Success;
}

// ---- Life cycle ---------------------------------------------------------------

namespace {

/// Points every slot of the interface object at its operation, in slot
/// order: clients call through the slots by position.
void storeInterfaceSlots(ITickScheduler& object) {
    object.RegisterTickHandler = &CTickScheduler_RegisterTickHandler;
    object.UnregisterTickHandler = &CTickScheduler_UnregisterTickHandler;
    object.Freeze = &CTickScheduler_Freeze;
    object.Unfreeze = &CTickScheduler_Unfreeze;
    object.SetStartOffset = &CTickScheduler_SetStartOffset;
    object.SetTickPriority = &CTickScheduler_SetTickPriority;
    object.EnableTickHandler = &CTickScheduler_EnableTickHandler;
    object.DisableTickHandler = &CTickScheduler_DisableTickHandler;
    object.AddGroup = &CTickScheduler_AddGroup;
    object.RemoveGroup = &CTickScheduler_RemoveGroup;
    object.EnableTickGroup = &CTickScheduler_EnableTickGroup;
    object.DisableTickGroup = &CTickScheduler_DisableTickGroup;
}

}  // namespace

extern "C" uint32_t CTickScheduler_Initialize(const ETickPriority* priority) {
    ZYN_TS_ENTER("CTickScheduler_Initialize");
    CTickScheduler& state = tickScheduler;
    if (state.initialized.load(std::memory_order_relaxed) != 0) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_Initialize", "Has already been initialized");
        return TickResult::AlreadyInitialized;
    }
    // No step undoes an earlier one: what the platform accepted stays
    // registered, and a later Initialize registers again.
    uint32_t result = CModuleManager_RegisterModule(TickModule::SchedulerModuleId, "CTickScheduler");
    if (TickResult::isPlatformFailure(result)) {
        // This module's text never showed the platform's answer.
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_Initialize", "Failed to register module with ModuleManager");
        return TickResult::ModuleRegistrationFailed;
    }
    result = zyn_ts::registerPhaseCallback(TickModule::SchedulerModuleId, "CCTickScheduler_OnPhaseActivation",
                                           phaseCallbackContext, &CTickScheduler_OnPhaseActivation, kSubscribedPhases);
    if (TickResult::isPlatformFailure(result)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_Initialize",
                     "Failed to register module callback with error " << zyn_ts::Hex8{result});
        return TickResult::CallbackRegistrationFailed;
    }
    // Every slot is stored again on each start-up that gets this far, so the
    // broker is handed a complete object whatever a client did to a slot.
    static ITickScheduler tickSchedulerInterface;
    storeInterfaceSlots(tickSchedulerInterface);
    result = InterfaceBroker::getInstance()->registerInterface(kInterfaceName, &tickSchedulerInterface);
    if (TickResult::isPlatformFailure(result)) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_Initialize",
                     "Failed to register ITickScheduler with error " << zyn_ts::Hex8{result});
        return TickResult::Failure;
    }

    state.disabledGroupMask.store(0, std::memory_order_relaxed);
    state.initialized.store(1, std::memory_order_relaxed);
    // Read only now, when every registration has succeeded.
    state.tickPriority = *priority;
    zyn_ts::applyEnvironmentOnce(state.statistics, state.oscillatorAttachment.wake);
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_PhaseModuleStartTick(void) {
    ZYN_TS_ENTER("CTickScheduler_PhaseModuleStartTick");
    CTickScheduler& state = tickScheduler;
    ZYN_TS_TRACE(KIV_TRACE_INFO, "CTickScheduler_PhaseModuleStartTick",
                 "Starting TickScheduler with TickHandlers in the following order");
    {
        // A plain lock, not the tick lock: the oscillator is not ticking yet,
        // but a client thread may be registering at this moment.
        std::lock_guard<std::mutex> listLock(state.tickMutex);
        for (const STickHandler* handler : state.tickHandlers) {
            // The interval is listed in milliseconds (ticks of 6 ms), the
            // current interval in ticks.
            ZYN_TS_TRACE(
                KIV_TRACE_INFO, "CTickScheduler_PhaseModuleStartTick",
                handler->name << ": Prio = " << handler->prio.load(std::memory_order_relaxed)
                              << ", tickInterval = " << static_cast<int32_t>(kTickPeriodMs * handler->tickInterval)
                              << ", current interval = " << handler->currentInterval.load(std::memory_order_relaxed));
        }
    }
    if (TickResult::isPlatformFailure(state.tickOscillator.start())) {
        ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_PhaseModuleStartTick", "Failed to start TickOscillator");
        return TickResult::Failure;
    }
    return TickResult::Success;
}

namespace {

/// The phase itself; the exported callback adds its tracepoint.
uint32_t handlePhase(uint32_t phase) {
    {
        std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
        if (tickScheduler.initialized.load(std::memory_order_relaxed) == 0) {
            ZYN_TS_TRACE(KIV_TRACE_WARNING, "CTickScheduler_OnPhaseActivation",
                         "Tick Scheduler has not been initialized");
            return TickResult::ModuleNotInitialized;
        }
    }

    switch (phase) {
        case TickModule::Phase::Configure:
            // Failures here are not reported: they surface at phase 14, when
            // the oscillator refuses to start.
            (void)tickScheduler.tickOscillator.initialize(TICK_DELAY_6MS, tickScheduler.tickPriority);
            schedulerTickReceiver = {&tickScheduler, &CTickScheduler_OnTick};
            (void)tickScheduler.tickOscillator.registerOnTick(&schedulerTickReceiver);
            return TickResult::Success;
        case TickModule::Phase::Idle:
            return TickResult::Success;
        case TickModule::Phase::StartTicks:
            if (TickResult::isPlatformFailure(CTickScheduler_PhaseModuleStartTick())) {
                ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_OnPhaseActivation", "Phase not handled: " << phase);
                return TickResult::Failure;
            }
            return TickResult::Success;
        case TickModule::Phase::ShutDown:
            CTickScheduler_Uninitialize();
            return TickResult::Success;
        default:
            ZYN_TS_TRACE(KIV_TRACE_ERROR, "CTickScheduler_OnPhaseActivation", "Phase not handled: " << phase);
            return TickResult::PhaseNotHandled;
    }
}

}  // namespace

extern "C" uint32_t CTickScheduler_OnPhaseActivation(void* /*context*/, uint32_t phase) {
    return zyn_ts::phaseHandled(zyn_ts::TracedScheduler::Scheduler, phase, handlePhase(phase));
}

extern "C" void CTickScheduler_Uninitialize(void) {
    CTickScheduler& state = tickScheduler;
    // Before the lock: joining waits for a running pass, which needs the mutex.
    (void)state.tickOscillator.stop();
    {
        std::unique_lock<std::mutex> lock = CTickScheduler_WaitForTickAndLock();
        state.initialized.store(0, std::memory_order_relaxed);
    }
    (void)InterfaceBroker::getInstance()->unregisterInterface(kInterfaceName, nullptr);
    {
        // The records stay with their owners' handles; only the list is
        // emptied, under the mutex so that a concurrent registration is safe.
        std::lock_guard<std::mutex> listLock(state.tickMutex);
        state.tickHandlers.clear();
        state.statistics.dropAllHandlers();
    }
}
