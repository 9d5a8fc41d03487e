#include "PublishedGrid.h"

#include <array>
#include <atomic>
#include <thread>

namespace zyn_ts {
namespace {

constexpr int64_t kNanosecondsPerSecond = 1000000000;
/// Oscillators with a thread started at the same time: the two modules' plus
/// room for the oscillators a test or a platform creates of its own.
constexpr size_t kSlots = 32;

struct GridSlot {
    std::atomic<const TickOscillator*> owner{nullptr};
    /// Odd while a writer changes the fields below.
    std::atomic<uint64_t> sequence{0};
    std::atomic<uint32_t> running{0};
    std::atomic<uint64_t> generation{0};
    std::atomic<int64_t> originNs{0};
    std::atomic<int64_t> periodNs{0};
};

std::array<GridSlot, kSlots> slots;

GridSlot* findSlot(const TickOscillator& oscillator) {
    for (GridSlot& slot : slots) {
        if (slot.owner.load(std::memory_order_acquire) == &oscillator) {
            return &slot;
        }
    }
    return nullptr;
}

GridSlot* findOrClaimSlot(const TickOscillator& oscillator) {
    if (GridSlot* mine = findSlot(oscillator)) {
        return mine;
    }
    for (GridSlot& slot : slots) {
        const TickOscillator* expected = nullptr;
        if (slot.owner.compare_exchange_strong(expected, &oscillator, std::memory_order_acq_rel)) {
            return &slot;
        }
    }
    return nullptr;
}

/// Holds a slot's sequence odd while alive. Writers are rare and short (a few
/// stores), so a second writer simply yields until the first is done.
///
/// No standalone fences (ThreadSanitizer does not model them): the odd
/// sequence is taken with an acquire exchange, so the field stores cannot
/// move before it; the fields are stored with release and loaded with
/// acquire, so a reader that sees any new field value also sees the odd (or
/// a later) sequence on its second look and retries.
class SlotWrite {
public:
    explicit SlotWrite(GridSlot& written) : slot(written) {
        uint64_t current = slot.sequence.load(std::memory_order_relaxed);
        for (;;) {
            if ((current & 1u) == 0 &&
                slot.sequence.compare_exchange_weak(current, current + 1, std::memory_order_acquire)) {
                break;
            }
            std::this_thread::yield();
            current = slot.sequence.load(std::memory_order_relaxed);
        }
    }
    ~SlotWrite() { slot.sequence.fetch_add(1, std::memory_order_release); }
    SlotWrite(const SlotWrite&) = delete;
    SlotWrite& operator=(const SlotWrite&) = delete;

private:
    GridSlot& slot;
};

/// Runs `write` on the oscillator's slot inside one slot write and returns
/// the slot; does nothing and returns null when the oscillator has none.
template <typename Write>
GridSlot* writeOwnSlot(const TickOscillator& oscillator, Write write) {
    GridSlot* slot = findSlot(oscillator);
    if (slot == nullptr) {
        return nullptr;
    }
    const SlotWrite guard(*slot);
    write(*slot);
    return slot;
}

}  // namespace

bool publishGridStart(const TickOscillator& oscillator, const timespec& origin, int64_t periodNs) {
    GridSlot* slot = findOrClaimSlot(oscillator);
    if (slot == nullptr) {
        return false;
    }
    const SlotWrite write(*slot);
    slot->originNs.store(static_cast<int64_t>(origin.tv_sec) * kNanosecondsPerSecond + origin.tv_nsec,
                         std::memory_order_release);
    slot->periodNs.store(periodNs, std::memory_order_release);
    slot->generation.fetch_add(1, std::memory_order_acq_rel);
    slot->running.store(1, std::memory_order_release);
    return true;
}

void publishGridPeriod(const TickOscillator& oscillator, int64_t periodNs) {
    (void)writeOwnSlot(oscillator,
                       [periodNs](GridSlot& slot) { slot.periodNs.store(periodNs, std::memory_order_release); });
}

void publishGridStopped(const TickOscillator& oscillator) {
    (void)writeOwnSlot(oscillator, [](GridSlot& slot) { slot.running.store(0, std::memory_order_release); });
}

void releaseGrid(const TickOscillator& oscillator) {
    GridSlot* const slot = writeOwnSlot(oscillator, [](GridSlot& released) {
        released.running.store(0, std::memory_order_release);
        released.generation.store(0, std::memory_order_release);
        released.originNs.store(0, std::memory_order_release);
        released.periodNs.store(0, std::memory_order_release);
    });
    if (slot != nullptr) {
        slot->owner.store(nullptr, std::memory_order_release);
    }
}

GridSnapshot readGrid(const TickOscillator& oscillator) {
    GridSnapshot snapshot;
    const GridSlot* slot = findSlot(oscillator);
    if (slot == nullptr) {
        return snapshot;
    }
    for (;;) {
        const uint64_t before = slot->sequence.load(std::memory_order_acquire);
        if ((before & 1u) != 0) {
            std::this_thread::yield();
            continue;
        }
        snapshot.running = slot->running.load(std::memory_order_acquire) != 0;
        snapshot.generation = slot->generation.load(std::memory_order_acquire);
        snapshot.originNs = slot->originNs.load(std::memory_order_acquire);
        snapshot.periodNs = slot->periodNs.load(std::memory_order_acquire);
        if (slot->sequence.load(std::memory_order_relaxed) == before) {
            return snapshot;
        }
    }
}

}  // namespace zyn_ts
