/// @file
/// The passes and handler calls of a scheduler, as events a client thread
/// reads while the scheduler runs: what a timeline of the ticks is drawn from.
///
/// Capture is off by default and costs a scheduler nothing then: its pass
/// decides once, with one relaxed load, to walk its handlers as it always
/// does. Switched on, each pass writes into a ring of fixed size that belongs
/// to the scheduler (TICK_EVENT_CAPACITY events, made at the first start and
/// kept for the life of the process):
///
/// - TICK_EVENT_PASS_BEGIN when a pass that will call handlers starts;
/// - TICK_EVENT_CALL_BEGIN and TICK_EVENT_CALL_END around each handler call,
///   with the handler's handle and name;
/// - TICK_EVENT_PASS_END with the number of handlers the pass called.
///
/// Times are CLOCK_MONOTONIC nanoseconds, read as the statistics read them.
/// The tick thread never waits for the reader and allocates nothing: when the
/// ring is full an event is dropped and counted, and the reader learns the
/// count. A reader that keeps up (no events lost) sees every pass's events
/// in order, each CALL_END after its CALL_BEGIN and both between the pass's
/// BEGIN and END; after a loss, the passes around it may lack events.
///
/// Context: every function here may be called from any thread, including a
/// tick function; none takes the scheduler's lock or waits for a pass. Reads
/// from several threads at once take turns on a lock of the reader side that
/// the tick thread never touches. A start or a stop applies from the next
/// pass on.
#pragma once

#include <cstdint>

#include "STickHandler.h"
#include "TickSchedulerExport.h"

/// What an event marks.
enum ETickEventKind : uint32_t {
    TICK_EVENT_PASS_BEGIN = 1,
    TICK_EVENT_PASS_END = 2,
    TICK_EVENT_CALL_BEGIN = 3,
    TICK_EVENT_CALL_END = 4,
};

/// The number of events each scheduler's ring holds.
constexpr uint32_t TICK_EVENT_CAPACITY = 16384;

/// One event. A plain record of fixed layout (64 bytes on every target).
struct STickEvent {
    /// CLOCK_MONOTONIC, nanoseconds.
    int64_t timeNs;
    /// Call events: the handler's handle (its record's address); else 0.
    uint64_t handle;
    /// An ETickEventKind.
    uint32_t kind;
    /// TICK_EVENT_PASS_END: the handlers the pass called; else 0.
    uint32_t handlersCalled;
    /// Call events: the handler's name as it was at the call, NUL-terminated;
    /// else empty.
    char name[sizeof(STickHandler::name)];
    /// Zero; keeps the record at 64 bytes for later fields.
    uint64_t reserved;
};

static_assert(sizeof(STickEvent) == 64, "STickEvent has the same layout on every target");

extern "C" {

/// Switches CTickScheduler's event capture on, making its ring at the first
/// call (the only allocation). Events still in the ring from an earlier
/// capture are dropped and the lost count starts again from 0.
/// Results: TickResult::Success (0); TickResult::Failure (32768) the ring
/// could not be allocated (capture stays off).
/// Context: any thread; tick function: allowed only after a first start from
/// a client thread (the first start allocates); does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_StartEventCapture(void);

/// Switches it off; the events already written stay readable.
/// Result: TickResult::Success (0).
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickScheduler_StopEventCapture(void);

/// Moves up to `capacity` of the oldest events into `events`, in the order
/// they happened, and sets `*count` to how many it moved. When `lost` is not
/// null it receives the number of events dropped since the last read (or
/// start) because the ring was full, and that count starts again from 0.
/// Results: TickResult::Success (0), also when no event waits or capture
/// has never been started (`*count` is 0); TickResult::NullArgument (32770)
/// `count` is null, or `events` is null while `capacity` is not 0.
/// Context: any thread; tick function: allowed; does not wait for a running
/// pass (readers on several threads take turns, see above).
ZYN_TS_EXPORT uint32_t CTickScheduler_ReadEvents(STickEvent* events, uint32_t capacity, uint32_t* count,
                                                 uint64_t* lost);

/// The same three for CTickSchedulerFast, with the same results and context
/// (a fast tick function may call them: none takes the fast scheduler's
/// mutex). This one switches its capture on.
/// Context: any thread; tick function: allowed only after a first start from
/// a client thread (the first start allocates); does not wait for a running
/// pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_StartEventCapture(void);
/// Fast scheduler: switches the capture off.
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass.
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_StopEventCapture(void);
/// Fast scheduler: moves the oldest events out.
/// Context: any thread; tick function: allowed, a fast one too; does not wait
/// for a running pass (readers on several threads take turns, see above).
ZYN_TS_EXPORT uint32_t CTickSchedulerFast_ReadEvents(STickEvent* events, uint32_t capacity, uint32_t* count,
                                                     uint64_t* lost);
}
