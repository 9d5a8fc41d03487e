// CTickSchedulerFast inside the library: the module state and the handler,
// group, tick and phase operations that clients reach only through the
// "ITickSchedulerFast" object. Nothing here is exported from the shared
// library; white-box tests reach it through the static archive.
//
// Locking: one plain (non-recursive) pthread mutex, `tickMutex`. It guards
// `handlerList` and is held for the whole of a tick dispatch, so every
// handler runs with it held. Registration and the locked unregister take it;
// enable/disable and the group operations write single atomic words without
// it; start-up, shut-down and the phase callback take no lock at all (the
// platform calls them one at a time).
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "CList.h"
#include "DispatchStatistics.h"
#include "ITickReceiver.h"
#include "OscillatorAttachment.h"
#include "STickHandler.h"
#include "TickOscillator.h"
#include "TickSchedulerExport.h"
#include "ZynSupport/MonotonicClock.h"

/// The fast module's state. Exactly one instance exists,
/// `tickSchedulerFastModule`, a static of the library. Destruction (at process
/// exit) destroys the oscillator, which stops and joins a running thread, and
/// then detaches its grid; the mutex is left alone and the records still in
/// the list are not freed.
class CTickSchedulerFast {
public:
    /// What the oscillator's thread keeps for the module: the grid that
    /// CTickSchedulerFast_GetTickGrid reads, and the precision wake with its
    /// figures (a fixed lead at most half the 1 ms period). Attached at construction;
    /// declared before the oscillator, whose destructor joins a thread still
    /// running, so that it outlives that thread. Written by that thread only,
    /// read without a lock.
    zyn_ts::OscillatorAttachment oscillatorAttachment{&tickOscillator, zyn_support::kNanosecondsPerMillisecond};
    /// The 1 ms tick source: configured at phase 11, never started by this
    /// module.
    TickOscillator tickOscillator;
    /// 1 after a successful CTickSchedulerFast_Initialize, 0 before it and
    /// after CTickSchedulerFast_Uninitialize.
    uint32_t initialized = 0;
    /// STickHandler pointers in registration order. Zero-filled at load;
    /// constructed by CTickSchedulerFast_Initialize.
    CList handlerList{};
    /// Zero-filled at load (usable as a default mutex on glibc); initialised
    /// by CTickSchedulerFast_Initialize.
    pthread_mutex_t tickMutex{};
    /// Bit g set: tick group g is disabled and its members are skipped.
    std::atomic<uint32_t> disabledGroupMask{0};
};

/// The module instance.
extern ZYN_TS_INTERNAL CTickSchedulerFast tickSchedulerFastModule;

/// The fast module's handler timing, guarded by `tickMutex`. Kept beside the
/// module object rather than in it, so that the module's members stay as
/// they are; constructed before and destroyed after it.
extern ZYN_TS_INTERNAL zyn_ts::HandlerSlot fastHandlerSlots[zyn_ts::kHandlerSlots];

extern ZYN_TS_INTERNAL zyn_ts::DispatchStatistics fastDispatchStatistics;

// The operations behind the slots of ITickSchedulerFast, one each, with the
// results and contexts documented there; not exported by name.
extern "C" {
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_RegisterTickHandler(STickHandler** outHandle, const ITickReceiver* receiver,
                                                                const char* name);
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_UnregisterTickHandler(STickHandler** handle);
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_UnregisterTickHandlerFromOnTick(STickHandler** handle);
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_EnableTickHandler(STickHandler* handle);
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_DisableTickHandler(STickHandler* handle);
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_AddGroup(STickHandler* handle, uint32_t groupId);
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_RemoveGroup(STickHandler* handle, uint32_t groupId);
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_EnableTickGroup(uint32_t groupId);
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_DisableTickGroup(uint32_t groupId);

/// One tick: under `tickMutex`, calls every handler whose `enabled` is exactly
/// 1 and none of whose groups is disabled, in list order. A failed lock skips
/// the tick silently. Exceptions of a handler are not caught (and leave the
/// mutex locked). `context` is not used.
ZYN_TS_INTERNAL void CTickSchedulerFast_OnTick(void* context);

/// The module manager's phase callback: 11 configures the oscillator (1 ms,
/// priority 1, this module's receiver) without starting it, 13 does nothing,
/// 16 runs CTickSchedulerFast_Uninitialize. `context` is not used.
/// Results: TickResult::Success; TickResult::PhaseNotHandled for any other
/// phase; TickResult::ModuleNotInitialized when the module is not
/// initialised.
ZYN_TS_INTERNAL uint32_t CTickSchedulerFast_OnPhaseActivation(void* context, uint32_t phase);
}
