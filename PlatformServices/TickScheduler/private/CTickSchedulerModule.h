// The CTickScheduler module state and its module-internal entry points.
//
// Not part of the public interface: the library's own source and white-box
// tests (through the static archive) include it. Every member below is
// guarded by `tickMutex` unless its comment says otherwise.
#pragma once

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "CModuleManager.h"
#include "DispatchStatistics.h"
#include "ETickPriority.h"
#include "ITickReceiver.h"
#include "OscillatorAttachment.h"
#include "STickHandler.h"
#include "TickOscillator.h"
#include "TickSchedulerExport.h"

/// The module state. One instance, `tickScheduler`, lives for the life of the
/// library.
/// The statistics' handler table: zero-filled static storage, so that its
/// pages cost nothing until handlers are registered.
extern ZYN_TS_INTERNAL zyn_ts::HandlerSlot schedulerHandlerSlots[zyn_ts::kHandlerSlots];

class ZYN_TS_INTERNAL CTickScheduler {
public:
    /// The state at load: oscillator constructed, every word zero, no handler.
    CTickScheduler();
    /// Stops and joins a still running oscillator before anything a tick pass
    /// uses (condition variable, handler array) is destroyed.
    ~CTickScheduler();
    CTickScheduler(const CTickScheduler&) = delete;
    CTickScheduler& operator=(const CTickScheduler&) = delete;

    /// What the oscillator's thread keeps for the module: the grid that
    /// CTickScheduler_GetTickGrid reads, and the precision wake with its
    /// figures. Attached at construction; declared
    /// before the oscillator, so that it outlives the oscillator's thread.
    /// Written by that thread only, read without a lock.
    zyn_ts::OscillatorAttachment oscillatorAttachment{&tickOscillator, 6000000};
    /// The 6 ms time base; initialised at phase 11, started at phase 14.
    TickOscillator tickOscillator;
    /// Priority class of the oscillator thread, stored by Initialize (which
    /// the platform calls before any phase, on one thread).
    ETickPriority tickPriority = static_cast<ETickPriority>(0);
    /// 1 while the module is initialised. Read without the lock by
    /// Initialize, hence atomic.
    std::atomic<uint32_t> initialized{0};
    /// Every registered handler, in dispatch order.
    std::vector<STickHandler*> tickHandlers;
    std::mutex tickMutex;
    /// Notified (all waiters) at the end of every pass that set `inTick`.
    std::condition_variable tickDone;
    /// True while a pass walks the handlers.
    bool inTick = false;
    /// Bit n set while tick group n is disabled. Reset by Initialize without
    /// the lock, hence atomic.
    std::atomic<uint32_t> disabledGroupMask{0};
    /// The thread of the running or last pass.
    pthread_t tickThreadId{};

    /// The handler list as the running pass started it, copied only when a
    /// tick function is about to change `tickHandlers` during the pass; the
    /// pass then walks this copy. Its capacity is kept at least that of
    /// `tickHandlers`, so taking the copy never allocates.
    std::vector<STickHandler*> passHandlers;
    /// True once the running pass walks `passHandlers` instead of
    /// `tickHandlers`.
    bool passWalksCopy = false;
    /// Records unregistered on the tick thread during a pass: the pass may
    /// still hold them in `passHandlers`, so they are freed when it ends.
    std::vector<STickHandler*> retiredHandlers;

    /// Handler timing and overrun attribution, off until switched on.
    /// Declared last: the destructor stops the oscillator before any member
    /// goes.
    zyn_ts::DispatchStatistics statistics{6 * zyn_support::kNanosecondsPerMillisecond, schedulerHandlerSlots};
};

/// The module state.
extern ZYN_TS_INTERNAL CTickScheduler tickScheduler;

/// The receiver given to the oscillator at phase 11: {&tickScheduler, CTickScheduler_OnTick}.
extern ZYN_TS_INTERNAL ITickReceiver schedulerTickReceiver;

/// The phase-callback record handed to the module manager by Initialize.
extern ZYN_TS_INTERNAL SPhaseCallbackContext phaseCallbackContext;

extern "C" {

/// One tick pass: calls every due handler (counter 0, enabled, no group
/// disabled) in list order without the mutex held, then advances every
/// handler's counter. Runs nothing while there is no handler or the
/// oscillator is frozen. The context is ignored.
ZYN_TS_INTERNAL void CTickScheduler_OnTick(void* context);

/// The module's phase callback: 11 prepares the oscillator, 13 does nothing,
/// 14 lists the handlers and starts the oscillator, 16 uninitialises.
/// Results: TickResult::Success; TickResult::Failure when the oscillator did
/// not start; TickResult::PhaseNotHandled for a phase the module does not
/// handle; TickResult::ModuleNotInitialized when the module is not
/// initialised.
ZYN_TS_INTERNAL uint32_t CTickScheduler_OnPhaseActivation(void* context, uint32_t phase);

/// Phase 14: traces the handlers in dispatch order and starts the oscillator.
/// Results: TickResult::Success; TickResult::Failure when the oscillator
/// refused to start.
ZYN_TS_INTERNAL uint32_t CTickScheduler_PhaseModuleStartTick(void);
}
