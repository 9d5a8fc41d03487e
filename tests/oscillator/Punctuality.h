// Judging how punctual the oscillator was in one attempt, against the
// reference sleeper measured in the same attempt, and repeating attempts.
//
// A host that stalls the machine for milliseconds can spoil any one attempt:
// ticks come late, grid points are lost. It cannot spoil every one of several
// attempts, whereas a real regression (a late grid, drift, a wrong anchor,
// lost grid points) spoils them all. So a test passes when one attempt shows
// the oscillator no clearly worse than the reference, and fails with the
// figures of every attempt otherwise.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "GridAnalysis.h"
#include "GridOrigin.h"
#include "ReferenceSleeper.h"
#include "ZynSupport/MonotonicClock.h"

namespace oscillator_test {

constexpr int kAttempts = 5;

/// How much later than the reference the oscillator's typical tick may come:
/// far above what the loop adds to a plain sleep (a clock reading and a
/// division), far below a grid that is off by a visible amount.
inline int64_t latenessMargin(int64_t period) {
    return period >= 6 * zyn_support::kNanosecondsPerMillisecond ? 500000 : 200000;
}

/// The complaint of one attempt; empty when it passed.
using Complaint = std::string;

/// The start of a complaint that says the attempt could not be judged at all.
constexpr char kCannotJudge[] = "cannot judge: ";

inline bool cannotJudge(const Complaint& complaint) { return complaint.rfind(kCannotJudge, 0) == 0; }

/// The lateness of each tick on the grid through the earliest possible
/// origin: too late by at most the bracket's width.
inline std::vector<int64_t> latenessesOn(const std::vector<int64_t>& ticks, const GridOrigin& origin, int64_t period) {
    return latenesses(ticks, origin.earliest, period);
}

/// The ticks come about as soon after their grid points as the reference's
/// wake-ups, to the end of the run (no drift), and the oscillator loses
/// hardly more grid points than the reference did.
inline Complaint judgePunctuality(const std::vector<int64_t>& ticks, const GridOrigin& origin, int64_t period,
                                  int64_t gridPoints, const ReferenceRun& reference) {
    std::ostringstream complaint;
    if (ticks.size() < 4 || reference.latenesses.empty()) {
        complaint << "too few ticks (" << ticks.size() << ") to judge; ";
        return complaint.str();
    }
    // A start known more vaguely than that leaves the lateness bound too
    // loose to prove anything: the attempt does not count.
    if (origin.width() > period / 2) {
        complaint << kCannotJudge << "the start instant is known only within " << origin.width() << " ns";
        return complaint.str();
    }
    const int64_t referenceMedian = median(reference.latenesses);
    const int64_t bound = referenceMedian + origin.width() + latenessMargin(period);
    const std::vector<int64_t> late = latenessesOn(ticks, origin, period);
    const std::vector<int64_t> lastQuarter(late.end() - static_cast<std::ptrdiff_t>(late.size() / 4), late.end());
    if (median(late) > bound) {
        complaint << "median lateness " << median(late) << " ns > " << bound << " ns; ";
    }
    if (median(lastQuarter) > bound) {
        complaint << "median lateness of the last quarter " << median(lastQuarter) << " ns > " << bound
                  << " ns (drift); ";
    }
    const double referenceMissedShare =
        reference.gridPoints > 0 ? static_cast<double>(std::max<int64_t>(
                                       0, reference.gridPoints - static_cast<int64_t>(reference.latenesses.size()))) /
                                       static_cast<double>(reference.gridPoints)
                                 : 0.0;
    const int64_t missed = std::max<int64_t>(0, gridPoints - static_cast<int64_t>(ticks.size()));
    const double allowedMissed =
        referenceMissedShare * static_cast<double>(gridPoints) + std::max<double>(2.0, gridPoints / 50.0);
    if (static_cast<double>(missed) > allowedMissed) {
        complaint << missed << " of " << gridPoints << " grid points without a tick, " << allowedMissed << " allowed; ";
    }
    if (!complaint.str().empty()) {
        complaint << "(reference median " << referenceMedian << " ns over " << reference.latenesses.size()
                  << " wake-ups)";
    }
    return complaint.str();
}

/// What the attempts of one test showed.
struct AttemptsOutcome {
    bool punctual = false;  ///< one attempt passed, or an exact property failed
    bool judged = false;    ///< at least one attempt could be judged
    std::string complaints;
};

/// Runs `attempt` until one returns no complaint, at most kAttempts times,
/// and collects every complaint. An attempt that breaks an exact property
/// has failed the test already: no retry.
inline AttemptsOutcome repeatUntilPunctual(const std::function<Complaint(int attempt)>& attempt) {
    AttemptsOutcome outcome;
    std::ostringstream all;
    for (int i = 1; i <= kAttempts; ++i) {
        const Complaint complaint = attempt(i);
        outcome.judged = outcome.judged || !cannotJudge(complaint);
        if (complaint.empty() || ::testing::Test::HasFailure()) {
            outcome.punctual = true;
            return outcome;
        }
        // Shown in the log, so that spoilt attempts can be counted.
        std::cout << "[ REPEAT   ] attempt " << i << " not punctual: " << complaint << std::endl;
        all << "\n  attempt " << i << ": " << complaint;
    }
    outcome.complaints = all.str();
    return outcome;
}

}  // namespace oscillator_test
