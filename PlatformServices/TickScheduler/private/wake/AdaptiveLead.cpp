#include "AdaptiveLead.h"

#include "ZynSupport/MonotonicClock.h"

namespace zyn_ts {

void AdaptiveLead::addWakeUp(int64_t latenessNs) {
    int64_t us = latenessNs > 0 ? latenessNs / zyn_support::kNanosecondsPerMicrosecond : 0;
    if (us >= static_cast<int64_t>(kBins)) {
        us = static_cast<int64_t>(kBins) - 1;
    }
    if (known == kWindow) {
        counts[window[next]] -= 1;
    } else {
        ++known;
    }
    window[next] = static_cast<uint16_t>(us);
    counts[static_cast<size_t>(us)] += 1;
    next = (next + 1) % kWindow;
    if (++sinceRecompute >= kRecomputeEvery) {
        sinceRecompute = 0;
        recompute();
    }
}

void AdaptiveLead::recompute() {
    // The wake-up lateness that kPercentilePerMille of the window do not
    // exceed: counted from the top, the rest is what the lead must cover.
    const size_t allowedAbove = known * (1000 - kPercentilePerMille) / 1000;
    size_t above = 0;
    size_t bin = kBins;
    while (bin > 0) {
        --bin;
        above += counts[bin];
        if (above > allowedAbove) {
            break;
        }
    }
    // The bin's upper edge, so that every wake-up in it is covered.
    percentileLeadNs = static_cast<int64_t>(bin + 1) * zyn_support::kNanosecondsPerMicrosecond + kMarginNs;
}

}  // namespace zyn_ts
