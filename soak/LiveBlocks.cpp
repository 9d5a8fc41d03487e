#include "LiveBlocks.h"

#include <execinfo.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>

#include "SanitizerRuntime.h"

namespace soak {

namespace {

constexpr unsigned kCapacityBits = 14;
constexpr size_t kCapacity = size_t{1} << kCapacityBits;
constexpr int kFrames = 32;

struct Block {
    const volatile void* address = nullptr;
    size_t size = 0;
    int frames = 0;
    void* stack[kFrames] = {};
};

Block table[kCapacity];
std::atomic<bool> armed{false};
// A mutex, not a spin lock: the tick threads allocate too, and a real-time
// thread spinning on a lock its preempted holder cannot release would stall
// until the kernel throttles it.
std::mutex tableMutex;
size_t unrecorded = 0;  // guarded by tableMutex

/// Fibonacci hashing: the product's top bits, so that blocks the allocator
/// hands out side by side land far apart.
size_t slotOf(const volatile void* block) {
    const uint64_t key = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(block)) >> 3;
    return static_cast<size_t>((key * 0x9E3779B97F4A7C15ull) >> (64 - kCapacityBits));
}

/// Backward-shift deletion: each later entry of the probe run that may move
/// into the hole does, so that every entry stays reachable from its home
/// slot. Called with tableMutex held.
void emptySlot(size_t hole) {
    for (size_t next = (hole + 1) % kCapacity; table[next].address != nullptr; next = (next + 1) % kCapacity) {
        const size_t home = slotOf(table[next].address);
        // It may move unless its home lies after the hole on the way round
        // to it.
        const bool movable = hole <= next ? (home <= hole || home > next) : (home <= hole && home > next);
        if (movable) {
            table[hole] = table[next];
            hole = next;
        }
    }
    table[hole] = Block{};
}

void printFrame(void* pc) {
#ifdef ZYN_SOAK_SANITIZER_RUNTIME
    char line[512];
    __sanitizer_symbolize_pc(pc, "%p in %f %S", line, sizeof line);
    std::fprintf(stderr, "        %s\n", line);
#else
    backtrace_symbols_fd(&pc, 1, 2);
#endif
}

}  // namespace

void armLiveBlocks() {
    // The first backtrace loads the unwinder, which allocates.
    void* warmUp[2];
    (void)backtrace(warmUp, 2);
    {
        const std::lock_guard<std::mutex> guard(tableMutex);
        for (Block& entry : table) {
            entry = Block{};
        }
        unrecorded = 0;
    }
    armed.store(true);
}

void disarmLiveBlocks() { armed.store(false); }

void blockAllocated(const volatile void* block, size_t size) {
    if (!armed.load(std::memory_order_relaxed) || block == nullptr) {
        return;
    }
    void* stack[kFrames];
    const int frames = backtrace(stack, kFrames);
    const std::lock_guard<std::mutex> guard(tableMutex);
    for (size_t probe = 0, slot = slotOf(block); probe < kCapacity; ++probe, slot = (slot + 1) % kCapacity) {
        Block& entry = table[slot];
        if (entry.address == nullptr) {
            entry.address = block;
            entry.size = size;
            entry.frames = frames;
            for (int i = 0; i < frames; ++i) {
                entry.stack[i] = stack[i];
            }
            return;
        }
    }
    ++unrecorded;
}

void blockReleased(const volatile void* block) {
    if (!armed.load(std::memory_order_relaxed) || block == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> guard(tableMutex);
    size_t slot = slotOf(block);
    for (size_t probe = 0; probe < kCapacity && table[slot].address != nullptr;
         ++probe, slot = (slot + 1) % kCapacity) {
        if (table[slot].address == block) {
            emptySlot(slot);
            return;
        }
    }
}

size_t liveBlockCount() {
    const std::lock_guard<std::mutex> guard(tableMutex);
    size_t live = 0;
    for (const Block& entry : table) {
        live += entry.address != nullptr ? 1 : 0;
    }
    return live;
}

size_t unrecordedBlockCount() {
    const std::lock_guard<std::mutex> guard(tableMutex);
    return unrecorded;
}

size_t printLiveBlocks() {
    // Printing and symbolizing allocate: recording pauses meanwhile, so no
    // hook of this thread waits for the lock it holds.
    const bool wasArmed = armed.exchange(false);
    const std::lock_guard<std::mutex> guard(tableMutex);
    size_t live = 0;
    for (const Block& entry : table) {
        if (entry.address == nullptr) {
            continue;
        }
        ++live;
        std::fprintf(stderr, "    live block of %zu bytes at %p, allocated at:\n", entry.size,
                     const_cast<const void*>(static_cast<const volatile void*>(entry.address)));
        // Frame 0 is blockAllocated itself.
        for (int i = 1; i < entry.frames; ++i) {
            printFrame(entry.stack[i]);
        }
    }
    if (unrecorded != 0) {
        std::fprintf(stderr, "    %zu more blocks were allocated while the table was full\n", unrecorded);
    }
    armed.store(wasArmed);
    return live;
}

}  // namespace soak
