// The precision wake of one oscillator: its switch, its lead and its
// figures, kept in the owner's attachment beside the grid.
//
// The owner's threads (the exported switches and queries) write the control
// word and the fixed lead and read the figures; the oscillator thread reads
// the control word once per loop iteration and is the only writer of the
// figures, the lead in use and the adaptive lead's history. The control word
// holds the mode in its low byte and a reset count above it, so that one
// relaxed load per iteration tells the thread both its mode and whether the
// figures are to be dropped. Nothing here locks or allocates.
#pragma once

#include <atomic>
#include <cstdint>

#include "AdaptiveLead.h"
#include "LatenessHistogram.h"

struct STickPrecisionWake;

namespace zyn_ts {

class PrecisionWake {
public:
    static constexpr uint32_t kModeMask = 0xFFU;
    static constexpr uint32_t kResetStep = 0x100U;
    static constexpr int64_t kMinimumFixedLeadNs = 1000;

    /// `nominalPeriodNs`: the owner's period; a fixed lead may be at most
    /// half of it.
    explicit PrecisionWake(int64_t nominalPeriodNs) : maximumFixedLeadNs(nominalPeriodNs / 2) {}
    PrecisionWake(const PrecisionWake&) = delete;
    PrecisionWake& operator=(const PrecisionWake&) = delete;

    // ---- Any thread ----------------------------------------------------------

    void switchOff() { setMode(0); }
    void switchAdaptive() { setMode(2); }
    /// False (nothing changed) when `leadNs` is out of range.
    bool switchFixed(int64_t leadNs);
    /// The oscillator thread drops the figures at its next iteration.
    void requestReset() { control.fetch_add(kResetStep, std::memory_order_relaxed); }
    /// The setting and the figures.
    void copyTo(STickPrecisionWake& out) const;
    /// Applies ZYN_TICK_WAKE_LEAD the first time it is called; later calls
    /// do nothing. Takes no lock.
    void applyEnvironmentOnce();
    /// Applies a ZYN_TICK_WAKE_LEAD value: "off", "auto", or microseconds
    /// ("80", "80us"). False (nothing changed) for any other text.
    bool applySetting(const char* value);

    // ---- The oscillator thread -----------------------------------------------

    /// The control word, once per iteration.
    uint32_t loadControl() const { return control.load(std::memory_order_relaxed); }
    static uint32_t modeOf(uint32_t controlWord) { return controlWord & kModeMask; }
    /// True when `controlWord` differs from the one applied last.
    bool changedSince(uint32_t controlWord) const { return controlWord != appliedControl; }
    /// Applies a changed control word: drops the figures if a reset was
    /// asked since the word applied last.
    void controlChanged(uint32_t current);
    /// The lead for this iteration on a grid of `periodNs`, published for
    /// the queries.
    int64_t leadFor(uint32_t mode, int64_t periodNs);

    /// A kernel wake-up `latenessNs` behind the instant asked for.
    void wokeUp(int64_t latenessNs, bool adapts) {
        wakeUp.add(latenessNs);
        if (adapts) {
            adaptive.addWakeUp(latenessNs);
        }
    }
    /// A tick delivered at `instantNs`, `latenessNs` behind its grid point,
    /// after spinning `spunNs`; `lateDespiteLead` when the wake-up came after
    /// the grid point.
    void delivered(int64_t instantNs, int64_t latenessNs, int64_t spunNs, bool lateDespiteLead);
    /// Mode off: the loop's reading `latenessNs` behind the grid point the
    /// sleep before it asked for.
    void passEnded(int64_t latenessNs) { wakeUpAndPass.add(latenessNs); }

    /// The adaptive lead's history (oscillator thread, or tests with no
    /// thread running).
    const AdaptiveLead& adaptiveLead() const { return adaptive; }

private:
    void setMode(uint32_t mode);
    void clearFigures();

    const int64_t maximumFixedLeadNs;
    std::atomic<uint32_t> control{0};
    std::atomic<int64_t> fixedLeadNs{0};
    std::atomic<bool> environmentConsulted{false};

    // Written by the oscillator thread only. The next thread of the same
    // oscillator starts after the previous one was joined.
    uint32_t appliedControl = 0;
    std::atomic<int64_t> leadInUseNs{0};
    std::atomic<int64_t> ceilingInUseNs{0};
    std::atomic<uint64_t> ticks{0};
    std::atomic<uint64_t> lateTicks{0};
    std::atomic<int64_t> spinNs{0};
    std::atomic<int64_t> firstTickNs{0};
    std::atomic<int64_t> lastTickNs{0};
    LatenessHistogram wakeUp;
    LatenessHistogram delivery;
    LatenessHistogram wakeUpAndPass;
    AdaptiveLead adaptive;
};

}  // namespace zyn_ts
