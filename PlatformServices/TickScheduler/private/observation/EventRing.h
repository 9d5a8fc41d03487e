// The ring a scheduler's passes write their events into (TickEventCapture.h).
//
// A bounded queue of slots, each with a sequence number: a writer claims the
// next position with one compare-exchange, fills the slot and publishes it
// by storing the sequence with release; the reader takes slots in position
// order once their sequence says they are published, and hands each back by
// advancing its sequence a lap. Writers never wait: a full ring, or a claim
// that loses its compare-exchange a few times in a row to other writers,
// drops the event and counts it. The one pass of a scheduler is normally the
// only writer; several are handled (a pass run directly by a test thread
// beside the oscillator's, say), never a data race.
//
// Readers (ReadEvents, start) take turns on a mutex of their own; the tick
// thread never takes it. The slots are allocated by the first start and live
// as long as the process, so a pass that decided to write just before a
// stop never writes into freed memory.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "TickEventCapture.h"
#include "ZynSupport/GuardedMutex.h"

namespace zyn_ts {

class EventRing {
public:
    static constexpr uint32_t kCapacity = TICK_EVENT_CAPACITY;
    static_assert((kCapacity & (kCapacity - 1)) == 0, "a power of two: positions map to slots with a mask");

    constexpr EventRing() = default;
    EventRing(const EventRing&) = delete;
    EventRing& operator=(const EventRing&) = delete;

    /// Client thread: makes the slots at the first call, drops what is left
    /// in them, zeroes the lost count and switches writing on. False when
    /// the slots could not be allocated.
    bool start();
    /// Switches writing off from the next pass; written events stay.
    void stop() { on.store(false, std::memory_order_relaxed); }
    /// Tick thread, once a pass: whether the pass writes events.
    bool isOn() const { return on.load(std::memory_order_relaxed); }
    /// Whether a start has made the slots.
    bool isMade() const { return slots.load(std::memory_order_acquire) != nullptr; }

    /// Tick thread: writes one event; never waits, never allocates.
    void write(uint32_t kind, int64_t timeNs, const void* handle, const char* name, uint32_t handlersCalled);

    /// Any thread: moves up to `capacity` oldest events into `out`; returns
    /// how many. `lost` (when not null) takes and clears the lost count.
    uint32_t read(STickEvent* out, uint32_t capacity, uint64_t* lost);

private:
    struct Slot {
        std::atomic<uint64_t> sequence{0};
        STickEvent event{};
    };

    /// Claims attempted before an event is dropped instead.
    static constexpr int kClaimAttempts = 4;

    uint32_t takeLocked(STickEvent* out, uint32_t capacity) ZYN_REQUIRES(readers);

    std::atomic<bool> on{false};
    std::atomic<Slot*> slots{nullptr};
    std::atomic<uint64_t> writePosition{0};
    std::atomic<uint64_t> lostEvents{0};
    zyn_support::GuardedMutex readers;
    uint64_t readPosition ZYN_GUARDED_BY(readers) = 0;
};

/// Each scheduler's ring.
extern EventRing schedulerEventRing;
extern EventRing fastEventRing;

}  // namespace zyn_ts
