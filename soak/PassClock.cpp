#include "PassClock.h"

#include <ctime>

namespace soak {

uint64_t monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000u + static_cast<uint64_t>(now.tv_nsec);
}

void PassClock::onTick(void* context) {
    auto* clock = static_cast<PassClock*>(context);
    const uint64_t now = monotonicNs();
    GridRecord& record = clock->record;
    if (record.passes == 0) {
        record.firstNs = now;
    } else {
        const uint64_t gap = now - record.lastNs;
        // A gap rounds to a whole number of periods; more than one means the
        // grid points in between were passed over, not delivered late. A late
        // pass followed by a punctual one gives a long and a short gap, which
        // round to the same sum as two regular ones.
        const uint64_t periods = (gap + clock->periodNs / 2) / clock->periodNs;
        record.gridSteps += periods;
        record.skippedPeriods += periods > 1 ? periods - 1 : 0;
        record.longestGapNs = gap > record.longestGapNs ? gap : record.longestGapNs;
    }
    record.lastNs = now;
    ++record.passes;
    clock->pass.store(record.passes, std::memory_order_release);
}

}  // namespace soak
