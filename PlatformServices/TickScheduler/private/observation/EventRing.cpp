#include "EventRing.h"

#include <cstring>
#include <new>

#include "TickResultCodes.h"

namespace zyn_ts {

// Constant-initialised, so ready before any static constructor elsewhere.
EventRing schedulerEventRing;
EventRing fastEventRing;

bool EventRing::start() {
    const zyn_support::GuardedLock guard(readers);
    if (slots.load(std::memory_order_relaxed) == nullptr) {
        Slot* const made = new (std::nothrow) Slot[kCapacity];
        if (made == nullptr) {
            return false;
        }
        // Slot i is free for the write at position i of the first lap.
        for (uint32_t index = 0; index < kCapacity; ++index) {
            made[index].sequence.store(index, std::memory_order_relaxed);
        }
        // Published before writing can be switched on: a writer that sees
        // `on` loads the slots with acquire.
        slots.store(made, std::memory_order_release);
    }
    while (takeLocked(nullptr, kCapacity) != 0) {}
    lostEvents.store(0, std::memory_order_relaxed);
    on.store(true, std::memory_order_release);
    return true;
}

void EventRing::write(uint32_t kind, int64_t timeNs, const void* handle, const char* name, uint32_t handlersCalled) {
    Slot* const ring = slots.load(std::memory_order_acquire);
    if (ring == nullptr) {
        return;
    }
    uint64_t position = writePosition.load(std::memory_order_relaxed);
    for (int attempt = 0; attempt < kClaimAttempts; ++attempt) {
        Slot& slot = ring[position & (kCapacity - 1)];
        const uint64_t sequence = slot.sequence.load(std::memory_order_acquire);
        if (sequence != position) {
            if (sequence < position) {
                // The reader has not handed this slot back yet: full.
                break;
            }
            // Another writer took this position; try the next free one.
            position = writePosition.load(std::memory_order_relaxed);
            continue;
        }
        if (!writePosition.compare_exchange_weak(position, position + 1, std::memory_order_relaxed)) {
            continue;
        }
        STickEvent& event = slot.event;
        event.timeNs = timeNs;
        event.handle = reinterpret_cast<uintptr_t>(handle);
        event.kind = kind;
        event.handlersCalled = handlersCalled;
        if (name != nullptr) {
            std::memcpy(event.name, name, sizeof(event.name));
            event.name[sizeof(event.name) - 1] = '\0';
        } else {
            event.name[0] = '\0';
        }
        slot.sequence.store(position + 1, std::memory_order_release);
        return;
    }
    lostEvents.fetch_add(1, std::memory_order_relaxed);
}

uint32_t EventRing::read(STickEvent* out, uint32_t capacity, uint64_t* lost) {
    const zyn_support::GuardedLock guard(readers);
    const uint32_t moved = takeLocked(out, capacity);
    if (lost != nullptr) {
        *lost = lostEvents.exchange(0, std::memory_order_relaxed);
    }
    return moved;
}

uint32_t EventRing::takeLocked(STickEvent* out, uint32_t capacity) {
    Slot* const ring = slots.load(std::memory_order_acquire);
    if (ring == nullptr) {
        return 0;
    }
    uint32_t moved = 0;
    while (moved < capacity) {
        Slot& slot = ring[readPosition & (kCapacity - 1)];
        if (slot.sequence.load(std::memory_order_acquire) != readPosition + 1) {
            break;  // not yet published
        }
        if (out != nullptr) {
            out[moved] = slot.event;
        }
        slot.sequence.store(readPosition + kCapacity, std::memory_order_release);
        ++readPosition;
        ++moved;
    }
    return moved;
}

}  // namespace zyn_ts

namespace {

uint32_t readEvents(zyn_ts::EventRing& ring, STickEvent* events, uint32_t capacity, uint32_t* count, uint64_t* lost) {
    if (count == nullptr || (events == nullptr && capacity != 0)) {
        return TickResult::NullArgument;
    }
    *count = ring.read(events, capacity, lost);
    return TickResult::Success;
}

}  // namespace

extern "C" uint32_t CTickScheduler_StartEventCapture(void) {
    return zyn_ts::schedulerEventRing.start() ? TickResult::Success : TickResult::Failure;
}

extern "C" uint32_t CTickScheduler_StopEventCapture(void) {
    zyn_ts::schedulerEventRing.stop();
    return TickResult::Success;
}

extern "C" uint32_t CTickScheduler_ReadEvents(STickEvent* events, uint32_t capacity, uint32_t* count, uint64_t* lost) {
    return readEvents(zyn_ts::schedulerEventRing, events, capacity, count, lost);
}

extern "C" uint32_t CTickSchedulerFast_StartEventCapture(void) {
    return zyn_ts::fastEventRing.start() ? TickResult::Success : TickResult::Failure;
}

extern "C" uint32_t CTickSchedulerFast_StopEventCapture(void) {
    zyn_ts::fastEventRing.stop();
    return TickResult::Success;
}

extern "C" uint32_t CTickSchedulerFast_ReadEvents(STickEvent* events, uint32_t capacity, uint32_t* count,
                                                  uint64_t* lost) {
    return readEvents(zyn_ts::fastEventRing, events, capacity, count, lost);
}
