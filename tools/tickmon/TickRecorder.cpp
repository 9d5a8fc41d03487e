#include "TickRecorder.h"

namespace tickmon {
namespace {

size_t roundUpToPowerOfTwo(size_t value) {
    size_t power = 1;
    while (power < value) {
        power <<= 1;
    }
    return power;
}

}  // namespace

TickRecorder::TickRecorder(size_t capacity) : ring(roundUpToPowerOfTwo(capacity == 0 ? 1 : capacity)) {
    mask = ring.size() - 1;
}

void TickRecorder::record(int64_t timestampNs) {
    const uint64_t position = written.load(std::memory_order_relaxed);
    if (position - readSeenByRecorder >= ring.size()) {
        readSeenByRecorder = read.load(std::memory_order_acquire);
        if (position - readSeenByRecorder >= ring.size()) {
            lostCount.fetch_add(1, std::memory_order_relaxed);
            return;
        }
    }
    ring[position & mask] = timestampNs;
    written.store(position + 1, std::memory_order_release);
}

size_t TickRecorder::drain(std::vector<int64_t>& into) {
    const uint64_t end = written.load(std::memory_order_acquire);
    uint64_t position = read.load(std::memory_order_relaxed);
    const size_t count = static_cast<size_t>(end - position);
    for (; position != end; ++position) {
        into.push_back(ring[position & mask]);
    }
    read.store(position, std::memory_order_release);
    return count;
}

}  // namespace tickmon
