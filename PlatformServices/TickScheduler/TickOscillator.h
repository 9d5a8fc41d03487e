/// @file
/// TickOscillator: the tick source of both schedulers.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <thread>

#include "ETickDelay.h"
#include "ETickPriority.h"
#include "ITickReceiver.h"
#include "TickSchedulerExport.h"

/// A real-time thread that delivers ticks on a drift-free grid of the
/// monotonic clock.
///
/// Tick k is due at start + k x period, where start is the instant the thread
/// began. A late wake-up or a long tick callback never shortens later periods:
/// grid points that have passed are skipped, not delivered in a burst. The
/// thread publishes its grid (start instant, period, running) outside the
/// object, into a record its owner attached before starting it, and is that
/// record's only writer: its start before the first tick, a new delay before
/// the first sleep on it, not running when its loop ends. The owning
/// schedulers answer for theirs (TickGrid.h); an oscillator without such a
/// record publishes nothing.
///
/// Threads: the owner calls the operations; the oscillator thread runs `run`
/// and reads `running`, `frozen`, `receiver`, `delay` and `compensation` on
/// every iteration without a lock (they are relaxed atomics, so a write is seen
/// at the latest by the next iteration). `stop` must not be called from the
/// oscillator thread (it joins it). In the Context lines below, a tick
/// function is one that this oscillator's thread delivers a tick to.
class ZYN_TS_EXPORT TickOscillator {
public:
    /// A routine that corrects the nanosecond part of an elapsed time so that
    /// its remainder modulo the period is the true phase on the grid.
    using Compensation = void (*)(timespec* elapsed);

    /// Not initialised, not running, not frozen, without receiver.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass.
    TickOscillator();
    /// Clears `running` and joins a running thread.
    /// Context: the owner, never the oscillator thread; tick function: not
    /// allowed (it would join its own thread); waits for a running pass (it
    /// joins the thread).
    virtual ~TickOscillator();
    TickOscillator(const TickOscillator&) = delete;
    TickOscillator& operator=(const TickOscillator&) = delete;

    /// Sets the period (1 or 6 ms, with its compensation routine) and the
    /// priority (mapped 0->99, 1->98, 2..4->79, other->0), clears `frozen`
    /// and marks the oscillator initialised. May be called again at any time;
    /// a new delay applies from the thread's next period computation.
    /// Results: TickResult::Success (0); TickResult::NullArgument (32770) for a
    /// delay other than 1 or 6 (nothing changed).
    /// Context: the owner, one call at a time; tick function: allowed; does
    /// not wait for a running pass.
    uint32_t initialize(ETickDelay eDelay, ETickPriority ePriority);

    /// Creates the thread, applies SCHED_RR with the mapped priority (a
    /// refusal is ignored) and names it "zyn-ts-osc" + delay.
    /// Results: TickResult::Success (0); TickResult::NotInitialized (32772);
    /// TickResult::AlreadyRunning (32774); TickResult::ThreadCreationFailed
    /// (32777) the thread could not be created.
    /// Context: the owner, one call at a time; tick function: not allowed; does
    /// not wait for a running pass.
    uint32_t start();

    /// Clears `running` and joins the thread (after at most one sleep and one
    /// tick). Always TickResult::Success (0).
    /// Context: the owner, never the oscillator thread; tick function: not
    /// allowed (it would join its own thread); waits for a running pass (it
    /// joins the thread).
    uint32_t stop();

    /// Ticks stop being delivered; the grid keeps running. Always
    /// TickResult::Success (0).
    /// Context: the owner, one call at a time; tick function: allowed; does
    /// not wait for a running pass (a tick already being delivered goes on).
    uint32_t freeze();

    /// Ticks are delivered again, on the same grid. Always
    /// TickResult::Success (0).
    /// Context: the owner, one call at a time; tick function: allowed; does
    /// not wait for a running pass.
    uint32_t unfreeze();

    /// Sets the receiver (null stops delivery). Results: TickResult::Success
    /// (0); TickResult::NotInitialized (32772) when not initialised.
    /// Context: the owner, one call at a time; tick function: allowed; does
    /// not wait for a running pass (a tick already being delivered goes on).
    uint32_t registerOnTick(ITickReceiver* receiver);

    /// The thread body: sleeps to each grid point and delivers the tick
    /// unless frozen or without receiver, until `running` is false.
    /// Context: the oscillator thread only, which start() creates to run it;
    /// tick function: not allowed; does not wait for a running pass (it is
    /// the loop that delivers the ticks).
    void run();

    /// result = end - start with nanosecond borrow; end must not lie before
    /// start. Returns TickResult::Success (0).
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (a computation on its arguments only).
    uint32_t timeDiff(timespec* start, timespec* end, timespec* result);

    /// Corrects the nanoseconds of an elapsed time for a 6 ms grid: one second
    /// is 166 periods plus 4 ms, so dropping s whole seconds would shift the
    /// phase by s x 4 ms; this adds back 4 ms (s mod 3 == 1) or 2 ms (s mod 3
    /// == 2). The sum may exceed 999999999 on purpose.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (a computation on its arguments only).
    static void tickCompensation6MS(timespec* elapsed);

    /// A second is a whole number of 1 ms periods: nothing to correct.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (a computation on its arguments only).
    static void tickCompensation1MS(timespec* elapsed);

    /// Nanoseconds to sleep from an elapsed time (already compensated) to the
    /// next grid point of `periodNs`: a full period when on a grid point.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (a computation on its arguments only).
    static uint32_t sleepToNextGridPoint(const timespec& compensatedElapsed, uint32_t periodNs);

    // Read-only views of the state, for the owners and for diagnostics.

    /// True once initialize() has succeeded.
    /// Context: the owner, or any thread while the owner is not in
    /// initialize(); tick function: allowed; does not wait for a running pass.
    bool isInitialized() const { return initialized; }
    /// True while the thread runs (from start() until stop()).
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (one relaxed load).
    bool isRunning() const { return running.load(std::memory_order_relaxed); }
    /// True while ticks are held back by freeze().
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (one relaxed load).
    bool isFrozen() const { return frozen.load(std::memory_order_relaxed); }
    /// The SCHED_RR priority that start() applies.
    /// Context: the owner, or any thread while the owner is not in
    /// initialize(); tick function: allowed; does not wait for a running pass.
    int32_t getPriority() const { return priority; }
    /// The period.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (one relaxed load).
    ETickDelay getDelay() const { return delay.load(std::memory_order_relaxed); }
    /// The receiver of the ticks, or null.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (one relaxed load).
    ITickReceiver* getReceiver() const { return receiver.load(std::memory_order_relaxed); }
    /// The compensation routine of the period.
    /// Context: any thread; tick function: allowed; does not wait for a
    /// running pass (one relaxed load).
    Compensation getCompensation() const { return compensation.load(std::memory_order_relaxed); }
    /// The thread's native handle, or 0 when there is no thread.
    /// Context: the owner, or any thread while the owner is not in start() or
    /// stop(); tick function: allowed; does not wait for a running pass.
    std::thread::native_handle_type nativeHandle() { return thread.joinable() ? thread.native_handle() : 0; }

private:
    ZYN_TS_INTERNAL void deliverTick();

    std::thread thread;
    int32_t priority = 0;
    std::atomic<ETickDelay> delay{TICK_DELAY_6MS};
    std::atomic<bool> frozen{false};
    std::atomic<bool> running{false};
    bool initialized = false;
    std::atomic<ITickReceiver*> receiver{nullptr};
    std::atomic<Compensation> compensation{nullptr};
};
