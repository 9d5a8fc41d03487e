#include "PrecisionWake.h"

#include <cstdlib>
#include <cstring>

#include "TickPrecisionWake.h"
#include "ZynSupport/MonotonicClock.h"

namespace zyn_ts {
namespace {

constexpr const char* kEnvironmentSwitch = "ZYN_TICK_WAKE_LEAD";
constexpr double kPartsPerMillion = 1e6;

template <typename T>
void bump(std::atomic<T>& field, T by) {
    field.store(field.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

/// Microseconds as "80" or "80us", or -1.
int64_t parseMicroseconds(const char* text) {
    int64_t value = 0;
    const char* cursor = text;
    if (*cursor < '0' || *cursor > '9') {
        return -1;
    }
    while (*cursor >= '0' && *cursor <= '9') {
        value = value * 10 + (*cursor - '0');
        if (value > zyn_support::kNanosecondsPerMicrosecond * zyn_support::kNanosecondsPerMicrosecond) {
            return -1;
        }
        ++cursor;
    }
    if (*cursor != '\0' && std::strcmp(cursor, "us") != 0) {
        return -1;
    }
    return value;
}

}  // namespace

void PrecisionWake::setMode(uint32_t mode) {
    uint32_t word = control.load(std::memory_order_relaxed);
    while (!control.compare_exchange_weak(word, (word & ~kModeMask) | mode, std::memory_order_relaxed)) {}
}

bool PrecisionWake::switchFixed(int64_t leadNs) {
    if (leadNs < kMinimumFixedLeadNs || leadNs > maximumFixedLeadNs) {
        return false;
    }
    // The lead is stored before the mode, but a thread that sees the new
    // mode with the old lead for one iteration does no harm: both are valid.
    fixedLeadNs.store(leadNs, std::memory_order_relaxed);
    setMode(TICK_WAKE_FIXED);
    return true;
}

bool PrecisionWake::applySetting(const char* value) {
    if (std::strcmp(value, "off") == 0) {
        switchOff();
        return true;
    }
    if (std::strcmp(value, "auto") == 0) {
        switchAdaptive();
        return true;
    }
    const int64_t us = parseMicroseconds(value);
    return us >= 0 && switchFixed(us * zyn_support::kNanosecondsPerMicrosecond);
}

void PrecisionWake::applyEnvironmentOnce() {
    if (environmentConsulted.exchange(true, std::memory_order_relaxed)) {
        return;
    }
    // Read at start-up only; nothing in the library changes the environment.
    const char* value = std::getenv(kEnvironmentSwitch);  // NOLINT(concurrency-mt-unsafe)
    if (value != nullptr) {
        (void)applySetting(value);
    }
}

void PrecisionWake::controlChanged(uint32_t current) {
    const uint32_t previous = appliedControl;
    appliedControl = current;
    if ((previous & ~kModeMask) != (current & ~kModeMask)) {
        clearFigures();
    }
    if (modeOf(current) == TICK_WAKE_OFF) {
        leadInUseNs.store(0, std::memory_order_relaxed);
    }
}

void PrecisionWake::clearFigures() {
    ticks.store(0, std::memory_order_relaxed);
    lateTicks.store(0, std::memory_order_relaxed);
    spinNs.store(0, std::memory_order_relaxed);
    firstTickNs.store(0, std::memory_order_relaxed);
    lastTickNs.store(0, std::memory_order_relaxed);
    wakeUp.clear();
    delivery.clear();
    wakeUpAndPass.clear();
}

int64_t PrecisionWake::leadFor(uint32_t mode, int64_t periodNs) {
    int64_t lead = mode == TICK_WAKE_FIXED ? fixedLeadNs.load(std::memory_order_relaxed) : adaptive.leadFor(periodNs);
    // A repeated initialize may have shortened the period under a fixed
    // lead: the spin never covers more than half a period.
    if (lead > periodNs / 2) {
        lead = periodNs / 2;
    }
    if (lead != leadInUseNs.load(std::memory_order_relaxed)) {
        leadInUseNs.store(lead, std::memory_order_relaxed);
    }
    const int64_t ceiling = AdaptiveLead::ceilingFor(periodNs);
    if (ceiling != ceilingInUseNs.load(std::memory_order_relaxed)) {
        ceilingInUseNs.store(ceiling, std::memory_order_relaxed);
    }
    return lead;
}

void PrecisionWake::delivered(int64_t instantNs, int64_t latenessNs, int64_t spunNs, bool lateDespiteLead) {
    delivery.add(latenessNs);
    bump(ticks, uint64_t{1});
    if (lateDespiteLead) {
        bump(lateTicks, uint64_t{1});
    }
    bump(spinNs, spunNs);
    if (firstTickNs.load(std::memory_order_relaxed) == 0) {
        firstTickNs.store(instantNs, std::memory_order_relaxed);
    }
    lastTickNs.store(instantNs, std::memory_order_relaxed);
}

void PrecisionWake::copyTo(STickPrecisionWake& out) const {
    out.mode = modeOf(control.load(std::memory_order_relaxed));
    out.fixedLeadNs = fixedLeadNs.load(std::memory_order_relaxed);
    out.leadNs = leadInUseNs.load(std::memory_order_relaxed);
    out.leadFloorNs = AdaptiveLead::kFloorNs;
    out.leadCeilingNs = ceilingInUseNs.load(std::memory_order_relaxed);
    out.ticks = ticks.load(std::memory_order_relaxed);
    out.lateDespiteLead = lateTicks.load(std::memory_order_relaxed);
    out.spinNs = spinNs.load(std::memory_order_relaxed);
    const int64_t first = firstTickNs.load(std::memory_order_relaxed);
    const int64_t last = lastTickNs.load(std::memory_order_relaxed);
    out.spanNs = first != 0 && last > first ? last - first : 0;
    // In floating point: a whole CPU's spin over hours overflows 64 bits
    // once multiplied by a million.
    out.spinPpm = out.spanNs > 0 ? static_cast<uint32_t>(static_cast<double>(out.spinNs) * kPartsPerMillion /
                                                         static_cast<double>(out.spanNs))
                                 : 0;
    out.reserved = 0;
    wakeUp.copyTo(out.wakeUp);
    delivery.copyTo(out.delivery);
    wakeUpAndPass.copyTo(out.wakeUpAndPass);
}

}  // namespace zyn_ts
